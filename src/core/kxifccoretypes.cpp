#define KX_UNIT "kxifccoretypes"
#include "kxifc_coretypes.h"

#include <cstring>

#include "core/coretypes.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

// An out-of-range BOOLEAN or LOGICAL is reported and then treated as a set
// value, since it differs from the undefined value.
extern "C" KX_API kxBool kxIfcCoreTypes_boolean_has_value(kxBoolean value) {
    switch (value) {
        case kxBTRUE:
        case kxBFALSE: return kxBTRUE;
        case kx::kBooleanUndefined: return kxBFALSE;
        default: kx_assert_unreachable(); return kxBTRUE;
    }
}

extern "C" KX_API kxBoolean kxIfcCoreTypes_boolean_undefined_value(void) {
    return kx::kBooleanUndefined;
}

extern "C" KX_API kxBool kxIfcCoreTypes_integer_has_value(int32_t value) {
    return value != kx::kIntegerUndefined ? kxBTRUE : kxBFALSE;
}

extern "C" KX_API int32_t kxIfcCoreTypes_integer_undefined_value(void) {
    return kx::kIntegerUndefined;
}

extern "C" KX_API kxBool kxIfcCoreTypes_real_has_value(double value) {
    return kx::real_is_undefined(value) ? kxBFALSE : kxBTRUE;
}

extern "C" KX_API double kxIfcCoreTypes_real_undefined_value(void) { return kx::kRealUndefined; }

extern "C" KX_API kxBool kxIfcCoreTypes_string_has_value(const kxWChar *value) {
    return value != nullptr ? kxBTRUE : kxBFALSE;
}

extern "C" KX_API kxWChar *kxIfcCoreTypes_string_undefined_value(void) { return nullptr; }

extern "C" KX_API kxBool kxIfcCoreTypes_logical_has_value(kxLogical value) {
    switch (value) {
        case kx::kLogicalTrue:
        case kx::kLogicalFalse:
        case kx::kLogicalUnknown: return kxBTRUE;
        case kx::kLogicalUndefined: return kxBFALSE;
        default: kx_assert_unreachable(); return kxBTRUE;
    }
}

extern "C" KX_API kxLogical kxIfcCoreTypes_logical_undefined_value(void) {
    return kx::kLogicalUndefined;
}

extern "C" KX_API kxBool kxIfcCoreTypes_binary_has_value(kxBinary value) {
    return value.num_bits != 0 ? kxBTRUE : kxBFALSE;
}

extern "C" KX_API kxBinary kxIfcCoreTypes_binary_undefined_value(void) {
    return kxBinary{nullptr, 0};
}

extern "C" KX_API void kxIfcCoreTypes_free_string(kxWChar **value) {
    if (value != nullptr && *value != nullptr) kx::wstr_destroy(value);
}

extern "C" KX_API kxWChar *kxIfcCoreTypes_copy_string(const kxWChar *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return nullptr;
    return kx::wstr_copy(value);
}

extern "C" KX_API kxBinary kxIfcCoreTypes_make_binary_with_size(uint32_t num_bits) {
    if (num_bits == 0) return kxBinary{nullptr, 0};
    char *contents = static_cast<char *>(kx::mem_alloc(num_bits));
    std::memset(contents, '0', num_bits);
    return kxBinary{contents, num_bits};
}

extern "C" KX_API kxBinary kxIfcCoreTypes_copy_binary(kxBinary value) {
    if (value.num_bits == 0) return kxBinary{nullptr, 0};
    kx_assert_not_null(value.contents);
    if (value.contents == nullptr) return kxBinary{nullptr, 0};
    char *contents = static_cast<char *>(kx::mem_alloc(value.num_bits));
    std::memcpy(contents, value.contents, value.num_bits);
    return kxBinary{contents, value.num_bits};
}

extern "C" KX_API void kxIfcCoreTypes_free_binary(kxBinary *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return;
    if (value->contents != nullptr) kx::mem_free_and_clear(&value->contents);
    value->num_bits = 0;
}
