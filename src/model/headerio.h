// The HEADER section of an exchange file: written from a model's header
// record, and read back from a file with the light-weight lexer (without the
// data-section parser).
#pragma once

#include "kxifc_defs.h"
#include "model/header.h"
#include "support/types.h"

struct kxIfcWriteData;

namespace kx {

// Writes HEADER, FILE_DESCRIPTION, FILE_NAME, FILE_SCHEMA and ENDSEC, one line
// each. The record's time stamp is replaced by the time of writing (empty
// when the environment variable VELMTEST exists) and its schema member by
// the FILE_SCHEMA text of the release written. file_name_written is the
// FILE_NAME name used when the record's own name is blank.
void header_write_section(kxIfcHeader *header, const char16_t *file_name_written, kxIfcVersion_t version,
                          kxIfcWriteData *output);

// Reads the header section of the file into a new record (*header). Each of
// the three entities may be missing; its members then stay NULL. The
// implementation level must be '2;1' unless the environment variable
// KXIFCHEADER_IGNORE_ERRORS exists; a file without FILE_DESCRIPTION has no
// level to check and is accepted. On any failure nothing is kept, *header
// is NULL and the result is FALSO. Escapes are decoded by the full rules of
// the lossless mode when full_decoding is set, else by the fixed ones.
kx_bool16 header_read_section(const char16_t *file_name, kxIfcHeader **header, bool full_decoding = false);

}  // namespace kx
