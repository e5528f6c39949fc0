#define KX_UNIT "kxenum"
// Enumerations: member numbers, their plain names and dotted literals, and
// which release each member belongs to, from the enumeration tables.
#include "schema/engines.h"
#include "support/assert.h"
#include "support/wstring.h"

namespace kx {

kxBool enum_has_value(const EnumInfo &info, int32_t value) {
    return value >= 1 && static_cast<uint32_t>(value) < info.num_values ? kxBTRUE : kxBFALSE;
}

const char16_t *enum_to_string(const EnumInfo &info, int32_t value) {
    if (value < 0 || static_cast<uint32_t>(value) >= info.num_values) {
        assert_report("", info.unit_label, __LINE__);
        return nullptr;
    }
    return info.names[value];
}

const char16_t *enum_to_literal(const EnumInfo &info, int32_t value) {
    if (value < 0 || static_cast<uint32_t>(value) >= info.num_values) {
        assert_report("", info.unit_label, __LINE__);
        return nullptr;
    }
    return info.literals[value];
}

int32_t enum_from_literal(const EnumInfo &info, const char16_t *literal) {
    if (literal == nullptr) return 0;
    for (uint32_t value = 1; value < info.num_values; value++)
        if (wstr_equal_nocase(info.literals[value], literal)) return static_cast<int32_t>(value);
    return 0;
}

kx_bool16 enum_is_member_of_release(const EnumInfo &info, int32_t value, uint32_t version) {
    if (value < 1 || static_cast<uint32_t>(value) >= info.num_values || version >= NUM_RELEASES) return FALSO;
    return (info.releases[value] & (1u << version)) != 0 ? CIERTO : FALSO;
}

}  // namespace kx
