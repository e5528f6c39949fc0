// Reading the six base values from parser parameters: accepted forms,
// mismatches reported with the expected type's name, "$" and "*" giving the
// undefined value quietly, and the binary encodings.
#include <cstring>
#include <string>

#include "core/coretypes.h"
#include "core/coretypes_io.h"
#include "kxifc_coretypes.h"
#include "support/parseparlist.h"
#include "support/wstring.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

using kxtest::text_of;

std::string bits_of(const kxBinary &value) {
    return value.contents == nullptr ? std::string() : std::string(value.contents, value.num_bits);
}

class CoreTypesReadTest : public kxtest::ParameterListFixture {
protected:
    // Each helper empties the list and leaves it holding just that parameter.
    kxParserParam *literal(const char16_t *text) {
        char16_t *copy = kx::wstr_copy(text);
        return put(kxParserParam_literal(&copy, 2, 7));
    }
    kxParserParam *string(const char16_t *text) {
        char16_t *copy = kx::wstr_copy(text);
        return put(kxParserParam_string(&copy, 2, 7));
    }
    kxParserParam *integer(int32_t value) { return put(kxParserParam_integer(value, 2, 7)); }
    kxParserParam *real(double value) { return put(kxParserParam_real(value, 2, 7)); }
    kxParserParam *null() { return put(kxParserParam_null(2, 7)); }
    kxParserParam *derived() { return put(kxParserParam_derived(2, 7)); }
    kxParserParam *put(kxParserParam parameter) {
        kxParseParList_clear(list);
        kxParseParList_append(list, parameter);
        return kxParseParList_get(list, 0);
    }

    // The mark left on the only parameter: "<type>: <message>", or "".
    std::u16string mark() {
        const kxParserParam *parameter = kxParseParList_get(list, 0);
        if (!parameter->has_error) return u"";
        return text_of(parameter->expected_type) + u": " + text_of(parameter->message);
    }
};

// ---------------------------------------------------------------------------
// BOOLEAN and LOGICAL

TEST_F(CoreTypesReadTest, BooleanTextsInAnyCase) {
    kxBoolean value = 5;
    EXPECT_TRUE(kx::coretype_read_boolean(list, literal(u".t."), u"IsExternal", &value));
    EXPECT_EQ(value, 1);
    EXPECT_TRUE(kx::coretype_read_boolean(list, literal(u".TRUE."), u"IsExternal", &value));
    EXPECT_EQ(value, 1);
    EXPECT_TRUE(kx::coretype_read_boolean(list, literal(u".F."), u"IsExternal", &value));
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(kx::coretype_read_boolean(list, literal(u".False."), u"IsExternal", &value));
    EXPECT_EQ(value, 0);
    EXPECT_FALSE(kxParseParList_has_errors(list));
}

TEST_F(CoreTypesReadTest, UnknownIntoBooleanIsAMismatch) {
    kxBoolean value = 1;
    EXPECT_FALSE(kx::coretype_read_boolean(list, literal(u".U."), u"IsExternal", &value));
    EXPECT_EQ(value, kx::kBooleanUndefined);
    EXPECT_EQ(mark(), u"kxBoolean: IsExternal");
    EXPECT_TRUE(kxParseParList_has_errors(list));

    EXPECT_FALSE(kx::coretype_read_boolean(list, literal(u".UNKNOWN."), u"IsExternal", &value));
    EXPECT_EQ(mark(), u"kxBoolean: IsExternal");
    EXPECT_FALSE(kx::coretype_read_boolean(list, literal(u".ELEMENT."), u"IsExternal", &value));
    EXPECT_EQ(mark(), u"kxBoolean: IsExternal");
}

TEST_F(CoreTypesReadTest, BooleanFromAnotherKindFailsQuietly) {
    kxBoolean value = 1;
    EXPECT_FALSE(kx::coretype_read_boolean(list, integer(1), u"IsExternal", &value));
    EXPECT_EQ(value, kx::kBooleanUndefined);
    EXPECT_FALSE(kx::coretype_read_boolean(list, string(u".T."), u"IsExternal", &value));
    EXPECT_FALSE(kx::coretype_read_boolean(list, null(), u"IsExternal", &value));
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(mark(), u"");
}

TEST_F(CoreTypesReadTest, LogicalTakesUnknownToo) {
    kxLogical value = 7;
    EXPECT_TRUE(kx::coretype_read_logical(list, literal(u".UNKNOWN."), u"Reversed", &value));
    EXPECT_EQ(value, -1);
    value = 7;
    EXPECT_TRUE(kx::coretype_read_logical(list, literal(u".u."), u"Reversed", &value));
    EXPECT_EQ(value, -1);
    EXPECT_TRUE(kx::coretype_read_logical(list, literal(u".T."), u"Reversed", &value));
    EXPECT_EQ(value, 1);
    EXPECT_TRUE(kx::coretype_read_logical(list, literal(u".false."), u"Reversed", &value));
    EXPECT_EQ(value, 0);
    EXPECT_FALSE(kxParseParList_has_errors(list));

    EXPECT_FALSE(kx::coretype_read_logical(list, literal(u".MAYBE."), u"Reversed", &value));
    EXPECT_EQ(value, kx::kLogicalUndefined);
    EXPECT_EQ(mark(), u"kxLogical: Reversed");

    EXPECT_FALSE(kx::coretype_read_logical(list, derived(), u"Reversed", &value));
    EXPECT_EQ(value, kx::kLogicalUndefined);
    EXPECT_EQ(mark(), u"");
}

// ---------------------------------------------------------------------------
// INTEGER and REAL

TEST_F(CoreTypesReadTest, IntegerOnlyFromIntegers) {
    int32_t value = 0;
    EXPECT_TRUE(kx::coretype_read_integer(list, integer(-2147483647 - 1), u"Level", &value));
    EXPECT_EQ(value, INT32_MIN);

    EXPECT_FALSE(kx::coretype_read_integer(list, real(3.0), u"Level", &value));
    EXPECT_EQ(value, kx::kIntegerUndefined);
    EXPECT_EQ(mark(), u"long: Level");

    EXPECT_FALSE(kx::coretype_read_integer(list, null(), u"Level", &value));
    EXPECT_EQ(value, kx::kIntegerUndefined);
    EXPECT_EQ(mark(), u"");
}

TEST_F(CoreTypesReadTest, RealAlsoFromIntegers) {
    double value = 0.0;
    EXPECT_TRUE(kx::coretype_read_real(list, integer(3), u"Radius", &value));
    EXPECT_EQ(value, 3.0);
    EXPECT_TRUE(kx::coretype_read_real(list, real(-0.25), u"Radius", &value));
    EXPECT_EQ(value, -0.25);
    EXPECT_FALSE(kxParseParList_has_errors(list));

    EXPECT_FALSE(kx::coretype_read_real(list, string(u"3.0"), u"Radius", &value));
    EXPECT_TRUE(kx::real_is_undefined(value));
    EXPECT_EQ(mark(), u"double: Radius");

    value = 1.0;
    EXPECT_FALSE(kx::coretype_read_real(list, derived(), u"Radius", &value));
    EXPECT_TRUE(kx::real_is_undefined(value));
    EXPECT_EQ(mark(), u"");
}

// ---------------------------------------------------------------------------
// STRING

TEST_F(CoreTypesReadTest, StringIsCopied) {
    char16_t *value = nullptr;
    kxParserParam *parameter = string(u"Wall \u00e9");
    EXPECT_TRUE(kx::coretype_read_string(list, parameter, u"Name", &value));
    EXPECT_EQ(text_of(value), u"Wall \u00e9");
    EXPECT_NE(value, kxParserParam_get_string(parameter));
    kxIfcCoreTypes_free_string(&value);

    EXPECT_TRUE(kx::coretype_read_string(list, string(u""), u"Name", &value));
    EXPECT_EQ(text_of(value), u"");  // empty is a value
    kxIfcCoreTypes_free_string(&value);

    EXPECT_FALSE(kx::coretype_read_string(list, literal(u".T."), u"Name", &value));
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(mark(), u"wchar_t: Name");

    EXPECT_FALSE(kx::coretype_read_string(list, null(), u"Name", &value));
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(mark(), u"");
}

TEST_F(CoreTypesReadTest, StringIntoATargetThatHoldsOneIsReported) {
    expect_reports();
    char16_t *held = kx::wstr_copy(u"old");
    char16_t *value = held;
    EXPECT_TRUE(kx::coretype_read_string(list, string(u"new"), u"Name", &value));
    EXPECT_TRUE(asserts().saw("*value == NULL"));
    EXPECT_EQ(text_of(value), u"new");
    kxIfcCoreTypes_free_string(&value);
    kxIfcCoreTypes_free_string(&held);

    EXPECT_FALSE(kx::coretype_read_string(list, string(u"x"), u"Name", nullptr));
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
}

// ---------------------------------------------------------------------------
// BINARY

TEST_F(CoreTypesReadTest, BinaryFromTheQuotedHexForm) {
    kxBinary value{nullptr, 0};
    EXPECT_TRUE(kx::coretype_read_binary(list, literal(u"\"0F\""), u"RasterCode", &value));
    EXPECT_EQ(value.num_bits, 4u);
    EXPECT_EQ(bits_of(value), "1111");
    kxIfcCoreTypes_free_binary(&value);

    // The leading digit counts the unused high bits of the first hex digit.
    EXPECT_TRUE(kx::coretype_read_binary(list, literal(u"\"2A5\""), u"RasterCode", &value));
    EXPECT_EQ(bits_of(value), "100101");
    kxIfcCoreTypes_free_binary(&value);
    EXPECT_TRUE(kx::coretype_read_binary(list, literal(u"\"3fe\""), u"RasterCode", &value));
    EXPECT_EQ(bits_of(value), "11110");
    kxIfcCoreTypes_free_binary(&value);
    EXPECT_TRUE(kx::coretype_read_binary(list, literal(u"\"0C30\""), u"RasterCode", &value));
    EXPECT_EQ(bits_of(value), "110000110000");
    kxIfcCoreTypes_free_binary(&value);

    // No digits: the empty binary, which is the undefined value.
    EXPECT_TRUE(kx::coretype_read_binary(list, literal(u"\"0\""), u"RasterCode", &value));
    EXPECT_EQ(value.contents, nullptr);
    EXPECT_EQ(value.num_bits, 0u);
    EXPECT_FALSE(kxParseParList_has_errors(list));
}

TEST_F(CoreTypesReadTest, BinaryFromItsBits) {
    kxBinary value{nullptr, 0};
    EXPECT_TRUE(kx::coretype_read_binary(list, literal(u"0110001"), u"RasterCode", &value));
    EXPECT_EQ(value.num_bits, 7u);
    EXPECT_EQ(bits_of(value), "0110001");
    kxIfcCoreTypes_free_binary(&value);
}

TEST_F(CoreTypesReadTest, MalformedBinaryFailsQuietly) {
    const char16_t *malformed[] = {u"\"4F\"", u"\"1\"", u"\"0G\"", u"\"0F", u"\"\"", u"01x1", u"", u"\"0F\"x"};
    for (const char16_t *text : malformed) {
        kxBinary value{nullptr, 0};
        EXPECT_FALSE(kx::coretype_read_binary(list, literal(text), u"RasterCode", &value))
            << std::string(text, text + kx::wstr_length(text));
        EXPECT_EQ(value.contents, nullptr);
        EXPECT_EQ(value.num_bits, 0u);
        EXPECT_EQ(mark(), u"");
    }
    EXPECT_FALSE(kxParseParList_has_errors(list));
}

TEST_F(CoreTypesReadTest, BinaryFromAnotherKindIsAMismatch) {
    kxBinary value{nullptr, 0};
    EXPECT_FALSE(kx::coretype_read_binary(list, string(u"0F"), u"RasterCode", &value));
    EXPECT_EQ(value.num_bits, 0u);
    EXPECT_EQ(mark(), u"kxBinary: RasterCode");
    EXPECT_FALSE(kx::coretype_read_binary(list, null(), u"RasterCode", &value));
    EXPECT_EQ(mark(), u"");
}

// ---------------------------------------------------------------------------
// The forms that take the next parameter

TEST_F(CoreTypesReadTest, NextFormsWalkTheList) {
    char16_t *name = kx::wstr_copy(u"Slab");
    char16_t *flag = kx::wstr_copy(u".T.");
    char16_t *state = kx::wstr_copy(u".U.");
    char16_t *bits = kx::wstr_copy(u"\"1F\"");
    kxParseParList_append(list, kxParserParam_string(&name, 1, 1));
    kxParseParList_append(list, kxParserParam_literal(&flag, 1, 8));
    kxParseParList_append(list, kxParserParam_literal(&state, 1, 12));
    kxParseParList_append(list, kxParserParam_integer(4, 1, 16));
    kxParseParList_append(list, kxParserParam_real(0.5, 1, 18));
    kxParseParList_append(list, kxParserParam_literal(&bits, 1, 22));

    char16_t *text = nullptr;
    kxBoolean boolean = 0;
    kxLogical logical = 0;
    int32_t count = 0;
    double thickness = 0.0;
    kxBinary binary{nullptr, 0};
    EXPECT_TRUE(kx::coretype_read_next_string(list, u"Name", &text));
    EXPECT_TRUE(kx::coretype_read_next_boolean(list, u"IsExternal", &boolean));
    EXPECT_TRUE(kx::coretype_read_next_logical(list, u"Reversed", &logical));
    EXPECT_TRUE(kx::coretype_read_next_integer(list, u"Count", &count));
    EXPECT_TRUE(kx::coretype_read_next_real(list, u"Thickness", &thickness));
    EXPECT_TRUE(kx::coretype_read_next_binary(list, u"RasterCode", &binary));
    EXPECT_EQ(text_of(text), u"Slab");
    EXPECT_EQ(boolean, 1);
    EXPECT_EQ(logical, -1);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(thickness, 0.5);
    EXPECT_EQ(bits_of(binary), "111");
    EXPECT_FALSE(kxParseParList_has_errors(list));
    kxIfcCoreTypes_free_string(&text);
    kxIfcCoreTypes_free_binary(&binary);
}

TEST_F(CoreTypesReadTest, NextFormsPastTheEndGiveUndefined) {
    char16_t *text = nullptr;
    kxBoolean boolean = 1;
    kxLogical logical = 1;
    int32_t count = 1;
    double thickness = 1.0;
    kxBinary binary{nullptr, 3};
    EXPECT_FALSE(kx::coretype_read_next_string(list, u"Name", &text));
    EXPECT_FALSE(kx::coretype_read_next_boolean(list, u"IsExternal", &boolean));
    EXPECT_FALSE(kx::coretype_read_next_logical(list, u"Reversed", &logical));
    EXPECT_FALSE(kx::coretype_read_next_integer(list, u"Count", &count));
    EXPECT_FALSE(kx::coretype_read_next_real(list, u"Thickness", &thickness));
    EXPECT_FALSE(kx::coretype_read_next_binary(list, u"RasterCode", &binary));
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(boolean, kx::kBooleanUndefined);
    EXPECT_EQ(logical, kx::kLogicalUndefined);
    EXPECT_EQ(count, kx::kIntegerUndefined);
    EXPECT_TRUE(kx::real_is_undefined(thickness));
    EXPECT_EQ(binary.num_bits, 0u);
    EXPECT_TRUE(kxParseParList_has_errors(list));  // too few parameters
}

TEST_F(CoreTypesReadTest, MismatchInANextFormMarksThatParameter) {
    kxParseParList_append(list, kxParserParam_real(1.5, 4, 20));
    int32_t count = 0;
    EXPECT_FALSE(kx::coretype_read_next_integer(list, u"Count", &count));
    EXPECT_EQ(count, kx::kIntegerUndefined);
    EXPECT_EQ(mark(), u"long: Count");
    EXPECT_EQ(kxParseParList_get(list, 0)->line, 4u);
}

}  // namespace
