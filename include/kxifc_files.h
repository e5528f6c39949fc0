/*
 * kxifc_files.h: faithful reading and writing of exchange files: the
 * lossless text mode, read reports and the status of an export. Compiles as
 * C11 and as C++.
 *
 * These extend kxIfcModel_read_from_step_file and
 * kxIfcModel_export_model_to_file, whose behaviour stays as it is: a model
 * made or read by them uses the fixed text form (reals to ten significant
 * digits, one \X2\ group per code unit) and reports nothing but a flag.
 */
#ifndef KXIFC_FILES_H
#define KXIFC_FILES_H

#include "kxifc_defs.h"
#include "kxifc_model.h"

KX_EXTERN_C_BEGIN

/* ---- Text modes ---------------------------------------------------------- */

/* How values become text and text becomes values. */
typedef int32_t kxTextMode;
/* The fixed form: reals to ten significant digits (tiny values and -0.
 * written "0."), one \X2\ group per non-ASCII code unit; \X2\ groups of one
 * code unit, \X\hh and \\ decoded, every other escape kept literally. */
#define KX_TEXT_MODE_SPEC 0
/* Nothing lost: every real written as the shortest text that reads back to
 * the same double, strings decoded in full (\X2\ and \X4\ groups of any
 * length, \S\ under the \P?\ code pages A to I, \X\hh) and written so that
 * they read back identically. */
#define KX_TEXT_MODE_LOSSLESS 1

/* Sets the text mode the model's exports use. A model read in the lossless
 * mode is in it already; every other model starts in KX_TEXT_MODE_SPEC. */
KX_API void kxIfcModel_set_text_mode(kxIfcModel *ifc_model, kxTextMode text_mode);
/* The text mode the model's exports use. */
KX_API kxTextMode kxIfcModel_text_mode(const kxIfcModel *ifc_model);

/* ---- Read reports -------------------------------------------------------- */

/* What a read met that it could not keep as written: a list of problems, each
 * with a severity, a stable code and where it stood. The list keeps the first
 * `max_per_code` problems of each code and counts the rest. */
typedef struct kxReadReport kxReadReport;

typedef int32_t kxReadSeverity;
#define KX_SEVERITY_WARNING 1 /* the data was kept, perhaps not as meant */
#define KX_SEVERITY_ERROR 2   /* data was lost or the read failed */

typedef int32_t kxReadCode;
#define KX_READ_UNREADABLE_FILE 1        /* missing, not a regular file, no header */
#define KX_READ_SYNTAX_ERROR 2           /* the read fails */
#define KX_READ_UNKNOWN_ENTITY 3         /* a name no release knows: line skipped */
#define KX_READ_OTHER_RELEASE_ENTITY 4   /* an entity of the other release: skipped */
#define KX_READ_ABSTRACT_ENTITY 5        /* an abstract entity: skipped */
#define KX_READ_DUPLICATE_ID 6           /* an id defined again: the first line kept */
#define KX_READ_UNDEFINED_REFERENCE 7    /* "#n" that no line defines: value lost */
#define KX_READ_WRONG_TYPE 8             /* a value of the wrong type: value lost */
#define KX_READ_WRONG_ATTRIBUTE_COUNT 9  /* too few or too many attributes */
#define KX_READ_INTEGER_OUT_OF_RANGE 10  /* beyond 32 bits: value lost */
#define KX_READ_REAL_OUT_OF_RANGE 11     /* beyond the range of a double: value lost */
#define KX_READ_MALFORMED_ESCAPE 12      /* a string escape that means nothing: kept literally */
#define KX_READ_SCHEMA_MISMATCH 13       /* FILE_SCHEMA not exactly IFC2X3 or IFC4 */
#define KX_READ_TEXT_AFTER_END 14        /* text after END-ISO-10303-21;: ignored */
#define KX_READ_ID_OUT_OF_RANGE 15       /* an #id of 2^32 or more: line skipped */
#define KX_READ_UNSUPPORTED_INSTANCE 16  /* a complex instance "#n=(A()B())": skipped */
#define KX_READ_NUL_IN_STRING 17         /* a NUL character in a string: cut there */
#define KX_READ_CODE_COUNT 18            /* one more than the largest code */

/* A new empty report keeping at most max_per_code problems of each code
 * (0: 100). */
KX_API kxReadReport *kxReadReport_new(uint32_t max_per_code);
/* Frees the report; *report becomes NULL. */
KX_API void kxReadReport_free(kxReadReport **report);
/* Forgets every problem, for the next read. */
KX_API void kxReadReport_clear(kxReadReport *report);

/* Number of problems kept in the list (index 0 to count - 1, file order
 * within each pass of the read). */
KX_API uint32_t kxReadReport_count(const kxReadReport *report);
/* Number of problems met with the code, kept or not; code 0 counts all. */
KX_API uint64_t kxReadReport_total(const kxReadReport *report, kxReadCode code);
/* Number of problems met of the severity, kept or not. */
KX_API uint64_t kxReadReport_total_of_severity(const kxReadReport *report, kxReadSeverity severity);

/* Fields of the problem at an index. Line and column start at 1 (0: not
 * tied to a place); file_id is the "#n" of the line (0: none); the attribute
 * index counts from 1 in the schema's order (0: none). Texts are UTF-8 and
 * live as long as the report; an absent text is "". */
KX_API kxReadSeverity kxReadReport_severity(const kxReadReport *report, uint32_t index);
KX_API kxReadCode kxReadReport_code(const kxReadReport *report, uint32_t index);
KX_API uint32_t kxReadReport_line(const kxReadReport *report, uint32_t index);
KX_API uint32_t kxReadReport_column(const kxReadReport *report, uint32_t index);
KX_API uint32_t kxReadReport_file_id(const kxReadReport *report, uint32_t index);
KX_API const char *kxReadReport_entity_name(const kxReadReport *report, uint32_t index);
KX_API uint32_t kxReadReport_attribute_index(const kxReadReport *report, uint32_t index);
KX_API const char *kxReadReport_attribute_name(const kxReadReport *report, uint32_t index);
KX_API const char *kxReadReport_message(const kxReadReport *report, uint32_t index);

/* Stable name of a code ("syntax-error", "undefined-reference" ...), or
 * "unknown". */
KX_API const char *kxReadCode_name(kxReadCode code);
/* "warning" or "error". */
KX_API const char *kxReadSeverity_name(kxReadSeverity severity);

/* Called now and then during a long read or export with how far it has got:
 * bytes of the file for a read (per pass), instances for an export. The last
 * call has done == total. */
typedef void (*kxProgressFn)(void *user_data, uint64_t done, uint64_t total);
/* Reports the progress of every read the report is passed to (NULL: none). */
KX_API void kxReadReport_set_progress(kxReadReport *report, kxProgressFn progress, void *user_data);
/* How many threads a read with this report may use: 1 (the default) reads on
 * the calling thread only; 0 uses every core. A two-pass read of a large
 * file reads the parts of its second pass in parallel; the model and the
 * report come out identical whatever the count. */
KX_API void kxReadReport_set_threads(kxReadReport *report, uint32_t threads);

/* kxIfcModel_read_from_step_file with a text mode and a report: the report
 * (when not NULL) receives every problem of the read, also of a read that
 * fails (NULL result). The model exports in the mode it was read in. */
KX_API kxIfcModel *kxIfcModel_read_with_report(const kxWChar *file_name, uint32_t read_mode,
                                               kxTextMode text_mode, kxReadReport *report,
                                               kxBool *readed_with_errors);

/* ---- Export status ------------------------------------------------------ */

/* How an export ended. Whatever fails, an existing file of the final name is
 * left as it was and no temporary file stays behind. */
typedef int32_t kxExportStatus;
#define KX_EXPORT_OK 0
#define KX_EXPORT_BAD_NAME 1         /* empty, ".", "..", or holding a '/' */
#define KX_EXPORT_CANNOT_CREATE 2    /* the temporary file could not be made */
#define KX_EXPORT_WRITE_FAILED 3     /* writing stopped: disk full, size limit */
#define KX_EXPORT_CANNOT_REPLACE 4   /* the target is a directory, or the rename failed */
#define KX_EXPORT_NO_MODEL 5         /* a NULL model or name */

/* kxIfcModel_export_model_to_file, telling how it ended. */
KX_API kxExportStatus kxIfcModel_export_with_status(kxIfcModel *ifc_model, const kxWChar *file_name,
                                                    const kxWChar *directory);
/* How the model's last export (by either function) ended; KX_EXPORT_OK
 * before the first. */
KX_API kxExportStatus kxIfcModel_last_export_status(const kxIfcModel *ifc_model);
/* Reports the progress of the model's exports (NULL: none). */
KX_API void kxIfcModel_set_export_progress(kxIfcModel *ifc_model, kxProgressFn progress, void *user_data);
/* A sentence for a status ("the disk is full or a size limit was reached"...). */
KX_API const char *kxExportStatus_message(kxExportStatus status);

KX_EXTERN_C_END

#endif
