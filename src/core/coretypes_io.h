// Conversions of the six EXPRESS base values to and from the exchange-file
// form, for the parser and the writer. Internal to the library.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"
#include "support/types.h"

struct kxParseParList;
struct kxParserParam;
struct kxIfcWriteData;

namespace kx {

// ---------------------------------------------------------------------------
// Readers
//
// Each reader takes the parameter list (where type mismatches are reported),
// one parameter and the attribute's name (the message of a mismatch), and
// always stores a value: the undefined value of the type on failure. A "$"
// or "*" parameter gives the undefined value and failure without a report;
// the caller decides whether the attribute may be unset. The `next` forms
// take the list's next parameter first.
//
// BOOLEAN and LOGICAL: a dotted literal compared without regard to case with
// ".TRUE."/".T.", ".FALSE."/".F." and (LOGICAL) ".UNKNOWN."/".U."; another
// kind of parameter fails silently, another text is reported.
kx_bool16 coretype_read_boolean(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                                kxBoolean *value);
kx_bool16 coretype_read_next_boolean(kxParseParList *list, const char16_t *attribute_name, kxBoolean *value);
kx_bool16 coretype_read_logical(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                                kxLogical *value);
kx_bool16 coretype_read_next_logical(kxParseParList *list, const char16_t *attribute_name, kxLogical *value);
// INTEGER: an integer parameter.
kx_bool16 coretype_read_integer(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                                int32_t *value);
kx_bool16 coretype_read_next_integer(kxParseParList *list, const char16_t *attribute_name, int32_t *value);
// REAL: a real parameter, or an integer one converted.
kx_bool16 coretype_read_real(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                             double *value);
kx_bool16 coretype_read_next_real(kxParseParList *list, const char16_t *attribute_name, double *value);
// STRING: the target must be empty (NULL); a copy of the text is stored.
kx_bool16 coretype_read_string(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                               char16_t **value);
kx_bool16 coretype_read_next_string(kxParseParList *list, const char16_t *attribute_name, char16_t **value);
// BINARY: a literal holding the quoted hex form ("\"0F\"": the first digit
// is the count of unused leading bits of the digits after it), or the bits
// themselves as '0'/'1' characters. A malformed literal fails silently.
kx_bool16 coretype_read_binary(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                               kxBinary *value);
kx_bool16 coretype_read_next_binary(kxParseParList *list, const char16_t *attribute_name, kxBinary *value);

// ---------------------------------------------------------------------------
// Writers
//
// Each appends one value to the group the writer is collecting.
//
// BOOLEAN: ".T." for kxBTRUE, ".F." for kxBFALSE; any other value is
// reported and written ".F.".
void coretype_write_boolean(kxIfcWriteData *write_data, kxBoolean value);
// LOGICAL: ".T.", ".F.", and ".U." for UNKNOWN and for the undefined value
// alike; a value outside them is reported and written ".U.".
void coretype_write_logical(kxIfcWriteData *write_data, kxLogical value);
void coretype_write_integer(kxIfcWriteData *write_data, int32_t value);
void coretype_write_real(kxIfcWriteData *write_data, double value);
// STRING: quoted and encoded; NULL (the undefined string) is written "$".
void coretype_write_string(kxIfcWriteData *write_data, const char16_t *value);
// BINARY: the bits as a STEP binary literal; a character other than '0' or
// '1' is reported and taken as '1'. No bits: nothing is written.
void coretype_write_binary(kxIfcWriteData *write_data, kxBinary value);

}  // namespace kx
