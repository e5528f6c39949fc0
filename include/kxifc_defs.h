/*
 * kxifc_defs.h: the basic types and the export macro shared by every public
 * header of kxifcmodel. Compiles as C11 and as C++.
 */
#ifndef KXIFC_DEFS_H
#define KXIFC_DEFS_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(KX_BUILDING_LIBRARY)
#define KX_API __attribute__((visibility("default")))
#else
#define KX_API
#endif

#ifdef __cplusplus
#define KX_EXTERN_C_BEGIN extern "C" {
#define KX_EXTERN_C_END }
#else
#define KX_EXTERN_C_BEGIN
#define KX_EXTERN_C_END
#endif

/* One UTF-16 code unit. Every string of the interface is a NUL-terminated
 * array of these (a "WideString"). */
typedef char16_t kxWChar;

/* Interface booleans. */
typedef int32_t kxBool;
#define kxBTRUE 1
#define kxBFALSE 0

/* EXPRESS base values held in-band (see kxifc_coretypes.h for their
 * undefined values). */
typedef int32_t kxBoolean;
typedef int32_t kxLogical;
typedef struct kxBinary {
    char *contents;     /* one '0' or '1' character per bit, no terminator */
    uint32_t num_bits;  /* 0 means undefined */
} kxBinary;

/* Schema release of a model. */
typedef enum kxIfcVersion_t {
    KXIFCVERSION_IFC_2X3 = 0,
    KXIFCVERSION_IFC_4 = 1,
    ifc_version_not_defined = 65535
} kxIfcVersion_t;

#endif
