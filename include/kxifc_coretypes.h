/*
 * kxifc_coretypes.h: the six EXPRESS base types (BOOLEAN, INTEGER, REAL,
 * STRING, LOGICAL, BINARY) and their in-band undefined values. An attribute
 * is set exactly when its value differs from its type's undefined value:
 *   BOOLEAN -1, INTEGER 2147483647, REAL the largest finite double (bit
 *   pattern 0x7FEFFFFFFFFFFFFF), STRING NULL, LOGICAL -2 (TRUE 1, FALSE 0,
 *   UNKNOWN -1), BINARY { NULL, 0 }.
 * Compiles as C11 and as C++.
 */
#ifndef KXIFC_CORETYPES_H
#define KXIFC_CORETYPES_H

#include "kxifc_defs.h"

KX_EXTERN_C_BEGIN

/* kxBTRUE for 0 and 1, kxBFALSE for -1; any other value is reported. */
KX_API kxBool kxIfcCoreTypes_boolean_has_value(kxBoolean value);
KX_API kxBoolean kxIfcCoreTypes_boolean_undefined_value(void);

/* True unless 2147483647. */
KX_API kxBool kxIfcCoreTypes_integer_has_value(int32_t value);
KX_API int32_t kxIfcCoreTypes_integer_undefined_value(void);

/* True unless the exact bit pattern 0x7FEFFFFFFFFFFFFF (NaN and infinities
 * have a value). */
KX_API kxBool kxIfcCoreTypes_real_has_value(double value);
KX_API double kxIfcCoreTypes_real_undefined_value(void);

/* True unless NULL (an empty string has a value). */
KX_API kxBool kxIfcCoreTypes_string_has_value(const kxWChar *value);
KX_API kxWChar *kxIfcCoreTypes_string_undefined_value(void);

/* False for -2; true for -1 (UNKNOWN), 0 and 1; any other value is reported. */
KX_API kxBool kxIfcCoreTypes_logical_has_value(kxLogical value);
KX_API kxLogical kxIfcCoreTypes_logical_undefined_value(void);

/* True when the bit count is not 0 (the contents pointer is not looked at). */
KX_API kxBool kxIfcCoreTypes_binary_has_value(kxBinary value);
KX_API kxBinary kxIfcCoreTypes_binary_undefined_value(void);

/* Frees *value when both value and *value are non-NULL and leaves *value
 * NULL; a NULL argument is accepted silently. */
KX_API void kxIfcCoreTypes_free_string(kxWChar **value);

/* A new copy of the string, owned by the caller (free it with
 * kxIfcCoreTypes_free_string). */
KX_API kxWChar *kxIfcCoreTypes_copy_string(const kxWChar *value);

/* A new BINARY of num_bits '0' characters; { NULL, 0 } for 0. */
KX_API kxBinary kxIfcCoreTypes_make_binary_with_size(uint32_t num_bits);

/* A new BINARY with a fresh copy of the contents; { NULL, 0 } for a count
 * of 0. */
KX_API kxBinary kxIfcCoreTypes_copy_binary(kxBinary value);

/* Frees the contents (if any) and leaves { NULL, 0 }. */
KX_API void kxIfcCoreTypes_free_binary(kxBinary *value);

KX_EXTERN_C_END

#endif
