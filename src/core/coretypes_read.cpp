#define KX_UNIT "kxifccoretypes"
#include "core/coretypes_io.h"

#include <cstring>

#include "core/coretypes.h"
#include "kxifc_coretypes.h"
#include "support/parseparlist.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace {

constexpr kxBinary kBinaryUndefined{nullptr, 0};

// The checks every reader starts with; false when it cannot go on.
bool arguments_valid(kxParseParList *list, kxParserParam *parameter) {
    kx_assert_not_null(list);
    kx_assert_not_null(parameter);
    return list != nullptr && parameter != nullptr;
}

// A dotted literal as TRUE (1), FALSE (0) or, when allowed, UNKNOWN (-1);
// false when the text is none of them.
bool literal_truth(const char16_t *text, bool allow_unknown, int32_t *truth) {
    if (text == nullptr) return false;
    if (kx::wstr_equal_nocase(text, u".T.") || kx::wstr_equal_nocase(text, u".TRUE.")) {
        *truth = 1;
        return true;
    }
    if (kx::wstr_equal_nocase(text, u".F.") || kx::wstr_equal_nocase(text, u".FALSE.")) {
        *truth = 0;
        return true;
    }
    if (allow_unknown && (kx::wstr_equal_nocase(text, u".U.") || kx::wstr_equal_nocase(text, u".UNKNOWN."))) {
        *truth = kx::kLogicalUnknown;
        return true;
    }
    return false;
}

int hex_digit_value(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    return -1;
}

// The quoted form: "\"" + count of unused leading bits (0-3) + hex digits
// + "\"". "\"0\"" is the empty binary. False when malformed.
bool binary_from_hex(const char16_t *text, uint32_t length, kxBinary *value) {
    if (length < 3 || text[0] != u'"' || text[length - 1] != u'"') return false;
    const int unused = hex_digit_value(text[1]);
    const uint32_t digits = length - 3;
    if (unused < 0 || unused > 3 || (digits == 0 && unused != 0)) return false;
    const uint32_t num_bits = digits * 4 - static_cast<uint32_t>(unused);
    if (num_bits == 0) {
        *value = kBinaryUndefined;
        return true;
    }
    kxBinary built = kxIfcCoreTypes_make_binary_with_size(num_bits);
    uint32_t position = 0;
    for (uint32_t i = 0; i < digits; i++) {
        const int nibble = hex_digit_value(text[2 + i]);
        if (nibble < 0) {
            kxIfcCoreTypes_free_binary(&built);
            return false;
        }
        for (int bit = 3; bit >= 0; bit--) {
            if (i == 0 && bit > 3 - unused) continue;  // an unused leading bit
            built.contents[position++] = (nibble >> bit) & 1 ? '1' : '0';
        }
    }
    *value = built;
    return true;
}

// The bits themselves, one '0' or '1' character each. False when any other
// character occurs.
bool binary_from_bits(const char16_t *text, uint32_t length, kxBinary *value) {
    if (length == 0) return false;
    kxBinary built = kxIfcCoreTypes_make_binary_with_size(length);
    for (uint32_t i = 0; i < length; i++) {
        if (text[i] != u'0' && text[i] != u'1') {
            kxIfcCoreTypes_free_binary(&built);
            return false;
        }
        built.contents[i] = static_cast<char>(text[i]);
    }
    *value = built;
    return true;
}

}  // namespace

namespace kx {

kx_bool16 coretype_read_boolean(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                                kxBoolean *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return FALSO;
    *value = kBooleanUndefined;
    if (!arguments_valid(list, parameter)) return FALSO;
    if (parameter->kind != i_TYPE_LITERAL) return FALSO;
    int32_t truth;
    if (!literal_truth(parameter->value.text, false, &truth)) {
        kxParseParList_mark_error(list, parameter, u"kxBoolean", attribute_name);
        return FALSO;
    }
    *value = truth;
    return CIERTO;
}

kx_bool16 coretype_read_next_boolean(kxParseParList *list, const char16_t *attribute_name, kxBoolean *value) {
    kxParserParam *parameter = nullptr;
    kx_assert_not_null(list);
    if (list != nullptr && kxParseParList_next(list, &parameter))
        return coretype_read_boolean(list, parameter, attribute_name, value);
    kx_assert_not_null(value);
    if (value != nullptr) *value = kBooleanUndefined;
    return FALSO;
}

kx_bool16 coretype_read_logical(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                                kxLogical *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return FALSO;
    *value = kLogicalUndefined;
    if (!arguments_valid(list, parameter)) return FALSO;
    if (parameter->kind != i_TYPE_LITERAL) return FALSO;
    int32_t truth;
    if (!literal_truth(parameter->value.text, true, &truth)) {
        kxParseParList_mark_error(list, parameter, u"kxLogical", attribute_name);
        return FALSO;
    }
    *value = truth;
    return CIERTO;
}

kx_bool16 coretype_read_next_logical(kxParseParList *list, const char16_t *attribute_name, kxLogical *value) {
    kxParserParam *parameter = nullptr;
    kx_assert_not_null(list);
    if (list != nullptr && kxParseParList_next(list, &parameter))
        return coretype_read_logical(list, parameter, attribute_name, value);
    kx_assert_not_null(value);
    if (value != nullptr) *value = kLogicalUndefined;
    return FALSO;
}

kx_bool16 coretype_read_integer(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                                int32_t *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return FALSO;
    *value = kIntegerUndefined;
    if (!arguments_valid(list, parameter)) return FALSO;
    switch (parameter->kind) {
        case i_TYPE_INTEGER: *value = parameter->value.integer; return CIERTO;
        case i_TYPE_NULL:
        case i_TYPE_DERIVED: return FALSO;
        default: kxParseParList_mark_error(list, parameter, u"long", attribute_name); return FALSO;
    }
}

kx_bool16 coretype_read_next_integer(kxParseParList *list, const char16_t *attribute_name, int32_t *value) {
    kxParserParam *parameter = nullptr;
    kx_assert_not_null(list);
    if (list != nullptr && kxParseParList_next(list, &parameter))
        return coretype_read_integer(list, parameter, attribute_name, value);
    kx_assert_not_null(value);
    if (value != nullptr) *value = kIntegerUndefined;
    return FALSO;
}

kx_bool16 coretype_read_real(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                             double *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return FALSO;
    *value = kRealUndefined;
    if (!arguments_valid(list, parameter)) return FALSO;
    switch (parameter->kind) {
        case i_TYPE_REAL: *value = parameter->value.real; return CIERTO;
        case i_TYPE_INTEGER: *value = static_cast<double>(parameter->value.integer); return CIERTO;
        case i_TYPE_NULL:
        case i_TYPE_DERIVED: return FALSO;
        default: kxParseParList_mark_error(list, parameter, u"double", attribute_name); return FALSO;
    }
}

kx_bool16 coretype_read_next_real(kxParseParList *list, const char16_t *attribute_name, double *value) {
    kxParserParam *parameter = nullptr;
    kx_assert_not_null(list);
    if (list != nullptr && kxParseParList_next(list, &parameter))
        return coretype_read_real(list, parameter, attribute_name, value);
    kx_assert_not_null(value);
    if (value != nullptr) *value = kRealUndefined;
    return FALSO;
}

kx_bool16 coretype_read_string(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                               char16_t **value) {
    kx_assert_not_null(value);
    if (value == nullptr) return FALSO;
    kx_assert_text(*value == nullptr, "*value == NULL");
    *value = nullptr;
    if (!arguments_valid(list, parameter)) return FALSO;
    switch (parameter->kind) {
        case i_TYPE_STRING:
            *value = wstr_copy(parameter->value.text != nullptr ? parameter->value.text : u"");
            return CIERTO;
        case i_TYPE_NULL:
        case i_TYPE_DERIVED: return FALSO;
        default: kxParseParList_mark_error(list, parameter, u"wchar_t", attribute_name); return FALSO;
    }
}

kx_bool16 coretype_read_next_string(kxParseParList *list, const char16_t *attribute_name, char16_t **value) {
    kxParserParam *parameter = nullptr;
    kx_assert_not_null(list);
    if (list != nullptr && kxParseParList_next(list, &parameter))
        return coretype_read_string(list, parameter, attribute_name, value);
    kx_assert_not_null(value);
    if (value != nullptr) *value = nullptr;
    return FALSO;
}

kx_bool16 coretype_read_binary(kxParseParList *list, kxParserParam *parameter, const char16_t *attribute_name,
                               kxBinary *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return FALSO;
    *value = kBinaryUndefined;
    if (!arguments_valid(list, parameter)) return FALSO;
    switch (parameter->kind) {
        case i_TYPE_LITERAL: break;
        case i_TYPE_NULL:
        case i_TYPE_DERIVED: return FALSO;
        default: kxParseParList_mark_error(list, parameter, u"kxBinary", attribute_name); return FALSO;
    }
    const char16_t *text = parameter->value.text;
    if (text == nullptr) return FALSO;
    const uint32_t length = wstr_length(text);
    const bool read = length > 0 && text[0] == u'"' ? binary_from_hex(text, length, value)
                                                     : binary_from_bits(text, length, value);
    return read ? CIERTO : FALSO;
}

kx_bool16 coretype_read_next_binary(kxParseParList *list, const char16_t *attribute_name, kxBinary *value) {
    kxParserParam *parameter = nullptr;
    kx_assert_not_null(list);
    if (list != nullptr && kxParseParList_next(list, &parameter))
        return coretype_read_binary(list, parameter, attribute_name, value);
    kx_assert_not_null(value);
    if (value != nullptr) *value = kBinaryUndefined;
    return FALSO;
}

}  // namespace kx
