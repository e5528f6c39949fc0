/*
 * kxifc_header.h: the file header record of a model: the data written to
 * and read from the HEADER section of an exchange file (FILE_DESCRIPTION,
 * FILE_NAME, FILE_SCHEMA). Compiles as C11 and as C++.
 *
 * Every model owns one header (kxIfcModel_get_header); a host may build a
 * new one with kxIfcHeader_new_empty_header and hand it to the model with
 * kxIfcModel_set_header. Strings passed in are copied; strings returned
 * stay the record's and must not be freed. An index at or past a list's
 * count gives a shared, static empty string.
 */
#ifndef KXIFC_HEADER_H
#define KXIFC_HEADER_H

#include "kxifc_defs.h"

KX_EXTERN_C_BEGIN

/* Opaque header record (also declared by kxifc_model.h). */
typedef struct kxIfcHeader kxIfcHeader;

/* ---- Building ------------------------------------------------------------ */

/* A new record with four empty lists and four empty strings (none NULL). */
KX_API kxIfcHeader *kxIfcHeader_new_empty_header(void);

/* Appends a copy of the text to the FILE_DESCRIPTION description items. */
KX_API void kxIfcHeader_add_to_description(kxIfcHeader *ifc_header, const kxWChar *value);
/* Replaces the FILE_NAME name with a copy of the text. */
KX_API void kxIfcHeader_set_file_name(kxIfcHeader *ifc_header, const kxWChar *value);
/* Appends a copy of the text to the FILE_NAME author items. */
KX_API void kxIfcHeader_add_to_author(kxIfcHeader *ifc_header, const kxWChar *value);
/* Appends a copy of the text to the FILE_NAME organization items. */
KX_API void kxIfcHeader_add_to_organization(kxIfcHeader *ifc_header, const kxWChar *value);
/* Appends a copy of the text to the FILE_NAME authorization items. */
KX_API void kxIfcHeader_add_to_authorization(kxIfcHeader *ifc_header, const kxWChar *value);
/* Replaces the FILE_NAME originating system with a copy of the text. */
KX_API void kxIfcHeader_set_originating_system(kxIfcHeader *ifc_header, const kxWChar *value);
/* Replaces the FILE_NAME time stamp with a copy of the text (writing a file
 * stamps it again with the time of the export). */
KX_API void kxIfcHeader_set_time_stamp(kxIfcHeader *ifc_header, const kxWChar *value);
/* Replaces the schema name with a copy of the text (writing a file replaces
 * it with the FILE_SCHEMA text of the model's release). */
KX_API void kxIfcHeader_set_file_schema(kxIfcHeader *ifc_header, const kxWChar *value);

/* ---- Reading ------------------------------------------------------------- */

/* The AUTHOR item at the index (not a description item: this getter has
 * always read the author list), or the empty string. For the description
 * use kxIfcHeader_get_description_field. */
KX_API const kxWChar *kxIfcHeader_get_description_data(const kxIfcHeader *ifc_header, uint32_t index);
/* Number of FILE_DESCRIPTION description items. */
KX_API uint32_t kxIfcHeader_description_fields_count(const kxIfcHeader *ifc_header);
/* The description item at the index, or the empty string. */
KX_API const kxWChar *kxIfcHeader_get_description_field(const kxIfcHeader *ifc_header, uint32_t index);

/* The FILE_NAME name; NULL when the record was read from a file without it. */
KX_API const kxWChar *kxIfcHeader_get_file_name(const kxIfcHeader *ifc_header);
/* The FILE_NAME time stamp; NULL when absent. */
KX_API const kxWChar *kxIfcHeader_get_timestamp(const kxIfcHeader *ifc_header);
/* The FILE_NAME originating system; NULL when absent. */
KX_API const kxWChar *kxIfcHeader_get_originating_system(const kxIfcHeader *ifc_header);
/* The schema name read from FILE_SCHEMA; after the model has been written,
 * the whole FILE_SCHEMA text, such as "FILE_SCHEMA(('IFC4'))". NULL when
 * absent. */
KX_API const kxWChar *kxIfcHeader_get_file_schema(const kxIfcHeader *ifc_header);

/* Number of FILE_NAME author items. */
KX_API uint32_t kxIfcHeader_author_fields_count(const kxIfcHeader *ifc_header);
/* The author item at the index, or the empty string. */
KX_API const kxWChar *kxIfcHeader_get_author_field(const kxIfcHeader *ifc_header, uint32_t index);
/* Number of FILE_NAME organization items. */
KX_API uint32_t kxIfcHeader_organization_fields_count(const kxIfcHeader *ifc_header);
/* The organization item at the index, or the empty string. */
KX_API const kxWChar *kxIfcHeader_get_organization_field(const kxIfcHeader *ifc_header, uint32_t index);
/* Number of FILE_NAME authorization items. */
KX_API uint32_t kxIfcHeader_authorization_fields_count(const kxIfcHeader *ifc_header);
/* The authorization item at the index, or the empty string. */
KX_API const kxWChar *kxIfcHeader_get_authorization_field(const kxIfcHeader *ifc_header, uint32_t index);

/* ---- Files -------------------------------------------------------------- */

/* Reads the HEADER section of an exchange file and stores the release its
 * FILE_SCHEMA declares: IFC4 for a name holding "IFC4" or "IFC2X4", IFC2X3
 * for one holding "IFC2X3" or "IFC2X" (searched in that order, ignoring
 * case). kxBFALSE when the section cannot be read (the version is then left
 * as it was) or names neither release (the version is then 65535). */
KX_API kxBool kxIfcHeader_read_ifc_version(const kxWChar *file_name, kxIfcVersion_t *ifc_version);
/* A new record read from the HEADER section of an exchange file, or NULL
 * when the section is missing or malformed. Members of an entity the file
 * does not carry are NULL. Free it with kxIfcHeader_free (or hand it to a
 * model with kxIfcModel_set_header). The implementation level must be
 * '2;1' unless the environment variable KXIFCHEADER_IGNORE_ERRORS is set. */
KX_API kxIfcHeader *kxIfcHeader_read_from_file(const kxWChar *file_name);
/* Frees a record the caller owns; *ifc_header becomes NULL. */
KX_API void kxIfcHeader_free(kxIfcHeader **ifc_header);

KX_EXTERN_C_END

#endif
