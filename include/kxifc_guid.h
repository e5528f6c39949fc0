/*
 * kxifc_guid.h: fresh 22-character compressed GUIDs, the form IFC requires
 * for the GlobalId of every rooted object. Compiles as C11 and as C++.
 */
#ifndef KXIFC_GUID_H
#define KXIFC_GUID_H

#include "kxifc_defs.h"

KX_EXTERN_C_BEGIN

/* A new random GUID written as 22 characters of the compressed GUID alphabet
 * ("0-9A-Za-z_$", most significant digit first; the first is one of 0-3), or
 * NULL when no random GUID could be made. The caller frees it with
 * kxIfcCoreTypes_free_string or kxWideString_free. */
KX_API kxWChar *kxCreateCompressedGuidString_Create(void);

KX_EXTERN_C_END

#endif
