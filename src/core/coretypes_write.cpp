#define KX_UNIT "kxifccoretypes"
#include "core/coretypes_io.h"

#include "core/coretypes.h"
#include "support/writedata.h"
#include "support/assert.h"
#include "support/memory.h"

namespace kx {

void coretype_write_boolean(kxIfcWriteData *write_data, kxBoolean value) {
    if (value == kxBTRUE) {
        kxIfcWriteData_write_literal(write_data, u".T.");
        return;
    }
    kx_assert(value == kxBFALSE);
    kxIfcWriteData_write_literal(write_data, u".F.");
}

void coretype_write_logical(kxIfcWriteData *write_data, kxLogical value) {
    switch (value) {
        case kLogicalTrue: kxIfcWriteData_write_literal(write_data, u".T."); break;
        case kLogicalFalse: kxIfcWriteData_write_literal(write_data, u".F."); break;
        case kLogicalUnknown:
        case kLogicalUndefined: kxIfcWriteData_write_literal(write_data, u".U."); break;
        default:
            kx_assert_unreachable();
            kxIfcWriteData_write_literal(write_data, u".U.");
            break;
    }
}

void coretype_write_integer(kxIfcWriteData *write_data, int32_t value) {
    kxIfcWriteData_write_integer(write_data, value);
}

void coretype_write_real(kxIfcWriteData *write_data, double value) {
    kxIfcWriteData_write_real(write_data, value);
}

void coretype_write_string(kxIfcWriteData *write_data, const char16_t *value) {
    if (value == nullptr) {
        kxIfcWriteData_write_unset(write_data);
        return;
    }
    kxIfcWriteData_write_string(write_data, value);
}

void coretype_write_binary(kxIfcWriteData *write_data, kxBinary value) {
    const uint32_t num_bits = value.contents != nullptr ? value.num_bits : 0;
    kx_assert(value.num_bits == 0 || value.contents != nullptr);
    // The bits as a wide text: short ones on the stack.
    char16_t small[128];
    char16_t *bits = num_bits < 128 ? small
                                    : static_cast<char16_t *>(
                                          mem_alloc((num_bits + 1) * sizeof(char16_t)));
    for (uint32_t i = 0; i < num_bits; i++) {
        if (value.contents[i] == '0') {
            bits[i] = u'0';
        } else {
            kx_assert(value.contents[i] == '1');
            bits[i] = u'1';
        }
    }
    bits[num_bits] = u'\0';
    kxIfcWriteData_write_binary(write_data, bits);
    if (bits != small) mem_free(bits);
}

}  // namespace kx
