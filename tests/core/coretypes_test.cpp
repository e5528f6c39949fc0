// The six base types: their in-band undefined values, copies of strings and
// binaries, compressed GUIDs, and reading each base type from parser
// parameters; then the parameter list the parser builds for each instance
// line: walking it, running past its end, error marks, saved states for
// select alternatives, and unresolved references.
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <set>
#include <sstream>
#include <string>

#include "core/coretypes.h"
#include "core/coretypes_io.h"
#include "core/guid.h"
#include "support/memory.h"
#include "support/parseparlist.h"
#include "support/rbtree.h"
#include "support/wstring.h"
#include "kxifc_coretypes.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

class CoreTypesTest : public kxtest::LibraryTest {};

// Each undefined value is exact and the one value its test rejects; the
// values next to it, and UNKNOWN, are values. Strings and binaries copy.
TEST_F(CoreTypesTest, UndefinedValuesCopiesOfStringsAndBinariesAndMisuse) {
    EXPECT_EQ(kxIfcCoreTypes_boolean_undefined_value(), -1);
    EXPECT_EQ(kxIfcCoreTypes_integer_undefined_value(), 2147483647);
    EXPECT_EQ(std::bit_cast<uint64_t>(kxIfcCoreTypes_real_undefined_value()), 0x7FEFFFFFFFFFFFFFull);
    EXPECT_EQ(kxIfcCoreTypes_string_undefined_value(), nullptr);
    EXPECT_EQ(kxIfcCoreTypes_logical_undefined_value(), -2);
    EXPECT_EQ(kxIfcCoreTypes_binary_undefined_value().contents, nullptr);
    EXPECT_FALSE(kxIfcCoreTypes_boolean_has_value(kxIfcCoreTypes_boolean_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_integer_has_value(kxIfcCoreTypes_integer_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_real_has_value(kxIfcCoreTypes_real_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_string_has_value(kxIfcCoreTypes_string_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_logical_has_value(kxIfcCoreTypes_logical_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_binary_has_value(kxIfcCoreTypes_binary_undefined_value()));

    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(kxBFALSE));
    EXPECT_TRUE(kxIfcCoreTypes_integer_has_value(2147483646));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(std::bit_cast<double>(0x7FEFFFFFFFFFFFFEull)));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_TRUE(kxIfcCoreTypes_string_has_value(u""));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(-1));
    char bit = '1';
    EXPECT_TRUE(kxIfcCoreTypes_binary_has_value(kxBinary{&bit, 1}));
    EXPECT_FALSE(kxIfcCoreTypes_binary_has_value(kxBinary{&bit, 0}));  // the count decides
    const char16_t original[] = u"Wall \u00e9";
    kxWChar *copy = kxIfcCoreTypes_copy_string(original);
    EXPECT_NE(copy, original);
    EXPECT_EQ(std::u16string(copy), original);
    kxIfcCoreTypes_free_string(&copy);
    EXPECT_EQ(copy, nullptr);
    kxIfcCoreTypes_free_string(&copy);    // already NULL: nothing happens
    kxIfcCoreTypes_free_string(nullptr);  // accepted silently

    EXPECT_EQ(kxIfcCoreTypes_make_binary_with_size(0).contents, nullptr);
    kxBinary bits = kxIfcCoreTypes_make_binary_with_size(5);
    EXPECT_EQ(std::string(bits.contents, 5), "00000");
    bits.contents[0] = '1';
    kxBinary binary_copy = kxIfcCoreTypes_copy_binary(bits);
    EXPECT_NE(binary_copy.contents, bits.contents);
    EXPECT_EQ(std::string(binary_copy.contents, binary_copy.num_bits), "10000");
    kxIfcCoreTypes_free_binary(&bits);
    EXPECT_EQ(bits.num_bits, 0u);
    kxIfcCoreTypes_free_binary(&bits);  // freeing an undefined binary is harmless
    kxIfcCoreTypes_free_binary(&binary_copy);
    char stray = '1';
    EXPECT_EQ(kxIfcCoreTypes_copy_binary(kxBinary{&stray, 0}).contents, nullptr);
    expect_reports();
    // Out-of-range booleans and logicals count as values, with a report.
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(2));
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(-2));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(-3));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(2));
    ASSERT_EQ(asserts().reports().size(), 4u);
    EXPECT_EQ(asserts().reports()[0].source, "kxifccoretypes (KXIFCMODEL.DLL)");
    EXPECT_EQ(kxIfcCoreTypes_copy_string(nullptr), nullptr);
    EXPECT_TRUE(reported("(value) != NULL"));
    kxIfcCoreTypes_free_binary(nullptr);
    EXPECT_TRUE(reported("(value) != NULL"));
}

std::string encode(const kx::Guid &guid) {
    char out[kx::kCompressedGuidBufferSize];
    std::memset(out, '#', sizeof out);
    EXPECT_TRUE(kx::guid_encode_compressed(guid, out, sizeof out));
    return std::string(out);
}

class GuidTest : public kxtest::LibraryTest {};

TEST_F(GuidTest, KnownVectorsBufferLimitsAndFreshGuids) {
    kx::Guid ones;
    std::memset(&ones, 0xFF, sizeof ones);
    EXPECT_EQ(encode(ones), "3" + std::string(21, '$'));
    EXPECT_EQ(encode(kx::Guid{0x00000001, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}}), "0000010000000000000000");
    EXPECT_EQ(encode(kx::Guid{0x12345678, 0x9ABC, 0xDEF0, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}}),
              "0ID5PuchpUy18qLdYQlDxm");

    char out[8] = {};
    EXPECT_TRUE(kx::guid_write_digits(64, 2, out));
    EXPECT_EQ(std::string(out, 2), "10");
    EXPECT_FALSE(kx::guid_write_digits(64 * 64, 2, out));
    EXPECT_FALSE(kx::guid_write_digits(0, 5, out));
    char small[kx::kCompressedGuidBufferSize - 1];
    EXPECT_FALSE(kx::guid_encode_compressed(ones, small, sizeof small));
    EXPECT_FALSE(kx::guid_encode_compressed(ones, nullptr, 23));
    // Generated GUIDs are random (version 4); compressed ones are 22 digits of
    // the alphabet and distinct.
    const std::string alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$";
    std::set<std::u16string> seen;
    for (int i = 0; i < 10000; ++i) {
        kx::Guid guid{};
        ASSERT_TRUE(kx::guid_generate(&guid));
        ASSERT_TRUE(!kx::guid_is_zero(guid) && guid.data3 >> 12 == 4 && guid.data4[0] >> 6 == 2);
        kxWChar *text = kxCreateCompressedGuidString_Create();
        const std::u16string compressed(text);
        kxIfcCoreTypes_free_string(&text);
        ASSERT_EQ(compressed.size(), 22u);
        ASSERT_NE(std::u16string(u"0123").find(compressed[0]), std::u16string::npos) << i;
        for (char16_t c : compressed) ASSERT_NE(alphabet.find(char(c)), std::string::npos);
        ASSERT_TRUE(seen.insert(compressed).second) << "repeated after " << i;
    }
}

// Reading the six base values from parser parameters: accepted forms,
// mismatches reported with the expected type's name, "$" and "*" giving the
// undefined value quietly, and the binary encodings.
using kxtest::text_of;

std::string bits_of(const kxBinary &value) {
    return value.contents == nullptr ? std::string() : std::string(value.contents, value.num_bits);
}

// A parameter list of an IFC4 line with no model behind it, freed in
// TearDown, and ways to fill and walk it.
class ParameterListTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        list = kxParseParList_new(KXIFCVERSION_IFC_4, nullptr, nullptr);
    }
    void TearDown() override {
        kxParseParList_free(&list);
        LibraryTest::TearDown();
    }
    // Empties the list and leaves it holding just the parameter.
    kxParserParam *put(kxParserParam parameter) {
        kxParseParList_clear(list);
        kxParseParList_append(list, parameter);
        return kxParseParList_get(list, 0);
    }
    void add_literal(const char16_t *text, uint32_t line = 1, uint32_t column = 1) {
        char16_t *copy = kx::wstr_copy(text);
        kxParseParList_append(list, kxParserParam_literal(&copy, line, column));
    }
    kxParserParam *next() {
        kxParserParam *parameter = nullptr;
        EXPECT_TRUE(kxParseParList_next(list, &parameter));
        return parameter;
    }

    kxParseParList *list = nullptr;
};
using CoreTypesReadTest = ParameterListTest;

// The mark left on a parameter: "<type>: <message>", or "".
std::u16string mark(const kxParserParam *parameter) {
    if (!parameter->has_error) return u"";
    return text_of(parameter->expected_type) + u": " + text_of(parameter->message);
}

// The parameter a case reads, and the base type it reads it as.
enum class Param { LITERAL, STRING, INTEGER, REAL, NUL, DERIVED };
enum class Type { BOOLEAN, LOGICAL, INTEGER, REAL, STRING, BINARY };

struct ReadCase {
    Type type;
    Param param;
    const char16_t *text;  // of a literal or string
    double number;         // of an integer or real
    bool read;
    const char *value;        // what was read, as text; "?" for the undefined value
    const char16_t *mismatch;  // the expected type a mismatch names, or ""
};

constexpr Type kBool = Type::BOOLEAN, kLogic = Type::LOGICAL, kInt = Type::INTEGER, kReal = Type::REAL,
               kStr = Type::STRING, kBin = Type::BINARY;
constexpr Param pLit = Param::LITERAL, pStr = Param::STRING, pInt = Param::INTEGER, pReal = Param::REAL,
                pNull = Param::NUL, pDerived = Param::DERIVED;

const ReadCase kReadCases[] = {
    // BOOLEAN in any case; unknown is a mismatch, another kind fails quietly.
    {kBool, pLit, u".t.", 0, true, "1", u""}, {kBool, pLit, u".TRUE.", 0, true, "1", u""},
    {kBool, pLit, u".F.", 0, true, "0", u""}, {kBool, pLit, u".False.", 0, true, "0", u""},
    {kBool, pLit, u".U.", 0, false, "?", u"kxBoolean"}, {kBool, pLit, u".UNKNOWN.", 0, false, "?", u"kxBoolean"},
    {kBool, pLit, u".ELEMENT.", 0, false, "?", u"kxBoolean"}, {kBool, pInt, nullptr, 1, false, "?", u""},
    {kBool, pStr, u".T.", 0, false, "?", u""}, {kBool, pNull, nullptr, 0, false, "?", u""},
    // LOGICAL takes unknown too.
    {kLogic, pLit, u".UNKNOWN.", 0, true, "-1", u""}, {kLogic, pLit, u".u.", 0, true, "-1", u""},
    {kLogic, pLit, u".T.", 0, true, "1", u""}, {kLogic, pLit, u".false.", 0, true, "0", u""},
    {kLogic, pLit, u".MAYBE.", 0, false, "?", u"kxLogical"}, {kLogic, pDerived, nullptr, 0, false, "?", u""},
    // INTEGER only from integers; REAL from integers too.
    {kInt, pInt, nullptr, -2147483648.0, true, "-2147483648", u""}, {kInt, pReal, nullptr, 3.0, false, "?", u"long"},
    {kInt, pNull, nullptr, 0, false, "?", u""}, {kReal, pInt, nullptr, 3, true, "3", u""},
    {kReal, pReal, nullptr, -0.25, true, "-0.25", u""}, {kReal, pStr, u"3.0", 0, false, "?", u"double"},
    {kReal, pDerived, nullptr, 0, false, "?", u""},
    // STRING; empty is a value.
    {kStr, pStr, u"Wall \u00e9", 0, true, "Wall \xc3\xa9", u""}, {kStr, pStr, u"", 0, true, "", u""},
    {kStr, pLit, u".T.", 0, false, "?", u"wchar_t"}, {kStr, pNull, nullptr, 0, false, "?", u""},
    // BINARY from the quoted hex form, whose leading digit counts the unused
    // high bits of the first hex digit, or from its bits. No digits: the
    // empty binary, which is the undefined value.
    {kBin, pLit, u"\"0F\"", 0, true, "1111", u""}, {kBin, pLit, u"\"2A5\"", 0, true, "100101", u""},
    {kBin, pLit, u"\"3fe\"", 0, true, "11110", u""}, {kBin, pLit, u"\"0C30\"", 0, true, "110000110000", u""},
    {kBin, pLit, u"\"0\"", 0, true, "?", u""}, {kBin, pLit, u"0110001", 0, true, "0110001", u""},
    {kBin, pLit, u"\"4F\"", 0, false, "?", u""}, {kBin, pLit, u"\"1\"", 0, false, "?", u""},
    {kBin, pLit, u"\"0G\"", 0, false, "?", u""}, {kBin, pLit, u"\"0F", 0, false, "?", u""},
    {kBin, pLit, u"\"\"", 0, false, "?", u""}, {kBin, pLit, u"01x1", 0, false, "?", u""},
    {kBin, pLit, u"", 0, false, "?", u""}, {kBin, pLit, u"\"0F\"x", 0, false, "?", u""},
    {kBin, pStr, u"0F", 0, false, "?", u"kxBinary"}, {kBin, pNull, nullptr, 0, false, "?", u""},
};

// ---- the forms that take the next parameter ----

// What the six forms that take the next parameter read, in one line
// ("?" for the undefined value).
std::string read_next_six(kxParseParList *list) {
    char16_t *text = nullptr;
    kxBoolean boolean = 5;
    kxLogical logical = 5;
    int32_t count = 5;
    double thickness = 5.0;
    kxBinary binary{nullptr, 3};
    std::ostringstream read;
    for (bool ok : {kx::coretype_read_next_string(list, u"Name", &text),
                    kx::coretype_read_next_boolean(list, u"IsExternal", &boolean),
                    kx::coretype_read_next_logical(list, u"Reversed", &logical),
                    kx::coretype_read_next_integer(list, u"Count", &count),
                    kx::coretype_read_next_real(list, u"Thickness", &thickness),
                    kx::coretype_read_next_binary(list, u"RasterCode", &binary)})
        read << (ok ? "+" : "-");
    const auto number = [](int32_t value, int32_t undefined) {
        return value != undefined ? std::to_string(value) : std::string("?");
    };
    read << " " << (text != nullptr ? kxtest::utf8(text) : "?") << " " << number(boolean, kx::kBooleanUndefined) << " "
         << number(logical, kx::kLogicalUndefined) << " " << number(count, kx::kIntegerUndefined) << " ";
    if (kx::real_is_undefined(thickness))
        read << "?";
    else
        read << thickness;
    read << " " << (binary.num_bits != 0 ? bits_of(binary) : "?");
    kxIfcCoreTypes_free_string(&text);
    kxIfcCoreTypes_free_binary(&binary);
    return read.str();
}

TEST_F(CoreTypesReadTest, NextFormsThenEachBaseTypeFromEachKindOfParameterAndMisuse) {
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
    EXPECT_EQ(read_next_six(list), "++++++ Slab 1 -1 4 0.5 111");
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(read_next_six(list), "------ ? ? ? ? ? ?");
    EXPECT_TRUE(kxParseParList_has_errors(list));  // too few parameters
    // Every target starts out holding a value, so that a failed read must set
    // the undefined value.
    for (const ReadCase &c : kReadCases) {
        char16_t *text = c.text != nullptr ? kx::wstr_copy(c.text) : nullptr;  // taken over by the parameter
        kxParserParam *parameter = put(c.param == Param::LITERAL   ? kxParserParam_literal(&text, 2, 7)
                                       : c.param == Param::STRING  ? kxParserParam_string(&text, 2, 7)
                                       : c.param == Param::INTEGER ? kxParserParam_integer(int32_t(c.number), 2, 7)
                                       : c.param == Param::REAL    ? kxParserParam_real(c.number, 2, 7)
                                       : c.param == Param::NUL     ? kxParserParam_null(2, 7)
                                                                   : kxParserParam_derived(2, 7));
        bool read = false;
        std::string value = "?";
        const char16_t *attribute = nullptr;
        switch (c.type) {
        case Type::BOOLEAN: {
            kxBoolean target = 5;
            read = kx::coretype_read_boolean(list, parameter, attribute = u"IsExternal", &target);
            if (target != kx::kBooleanUndefined) value = std::to_string(target);
            break;
        }
        case Type::LOGICAL: {
            kxLogical target = 7;
            read = kx::coretype_read_logical(list, parameter, attribute = u"Reversed", &target);
            if (target != kx::kLogicalUndefined) value = std::to_string(target);
            break;
        }
        case Type::INTEGER: {
            int32_t target = 0;
            read = kx::coretype_read_integer(list, parameter, attribute = u"Level", &target);
            if (target != kx::kIntegerUndefined || read) value = std::to_string(target);
            break;
        }
        case Type::REAL: {
            double target = 1.0;
            read = kx::coretype_read_real(list, parameter, attribute = u"Radius", &target);
            if (!kx::real_is_undefined(target)) value = (std::ostringstream() << target).str();
            break;
        }
        case Type::STRING: {
            char16_t *target = nullptr;
            read = kx::coretype_read_string(list, parameter, attribute = u"Name", &target);
            if (target != nullptr) value = kxtest::utf8(target);
            if (target != nullptr) {
                EXPECT_NE(target, kxParserParam_get_string(parameter)) << "a copy";
            }
            kxIfcCoreTypes_free_string(&target);
            break;
        }
        case Type::BINARY: {
            kxBinary target{nullptr, 3};
            read = kx::coretype_read_binary(list, parameter, attribute = u"RasterCode", &target);
            if (target.contents != nullptr) value = bits_of(target);
            EXPECT_EQ(target.num_bits, target.contents == nullptr ? 0u : value.size());
            kxIfcCoreTypes_free_binary(&target);
            break;
        }
        }
        const std::string where = std::to_string(&c - kReadCases);
        EXPECT_EQ(read, c.read) << "case " << where;
        EXPECT_EQ(value, c.value) << "case " << where;
        EXPECT_EQ(mark(parameter), *c.mismatch == 0 ? u"" : std::u16string(c.mismatch) + u": " + attribute) << "case " << where;
        EXPECT_EQ(kxParseParList_has_errors(list), *c.mismatch != 0) << "case " << where;
    }
    expect_reports();
    char16_t *held = kx::wstr_copy(u"old"), *text = kx::wstr_copy(u"new");
    char16_t *value = held;
    kxParserParam *parameter = put(kxParserParam_string(&text, 2, 7));
    EXPECT_TRUE(kx::coretype_read_string(list, parameter, u"Name", &value));
    EXPECT_TRUE(asserts().saw("*value == NULL"));
    EXPECT_EQ(text_of(value), u"new");
    kxIfcCoreTypes_free_string(&value);
    kxIfcCoreTypes_free_string(&held);

    EXPECT_FALSE(kx::coretype_read_string(list, parameter, u"Name", nullptr));
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
}

// Stand-ins for instances: only their addresses are used.
kxBaseObject *fake_instance(int &storage) { return reinterpret_cast<kxBaseObject *>(&storage); }

// ---- walking the list ----

TEST_F(ParameterListTest, EveryKindComesBackInFileOrderAndBackStepsOntoTheLastTaken) {
    int wall = 0;
    char16_t *name = kx::wstr_copy(u"IFCLABEL"), *text = kx::wstr_copy(u"Wall 'A'");
    kxParseParList_append(list, kxParserParam_nested_begin(3, 10));
    kxParseParList_append(list, kxParserParam_null(3, 11));
    kxParseParList_append(list, kxParserParam_derived(3, 13));
    kxParseParList_append(list, kxParserParam_integer(-42, 3, 15));
    kxParseParList_append(list, kxParserParam_real(2.5, 3, 19));
    add_literal(u".NOTDEFINED.", 3, 23);
    kxParseParList_append(list, kxParserParam_reference(17, fake_instance(wall), 3, 36));
    kxParseParList_append(list, kxParserParam_typed_name(&name, 3, 40));
    EXPECT_EQ(name, nullptr);  // taken over
    kxParseParList_append(list, kxParserParam_string(&text, 1, 1));
    kxParseParList_append(list, kxParserParam_nested_end(4, 1));
    ASSERT_EQ(kxParseParList_count(list), 10u);

    kxParserParam *p = next();
    EXPECT_TRUE(kxParserParam_is_nested_begin(p) && p->line == 3u && p->column == 10u);
    EXPECT_TRUE(kxParserParam_is_null_or_derived(next()));
    EXPECT_TRUE(kxParserParam_is_null_or_derived(next()));
    p = next();
    EXPECT_TRUE(kxParserParam_is_integer(p));
    EXPECT_EQ(kxParserParam_get_integer(p), -42);
    p = next();
    EXPECT_TRUE(kxParserParam_is_real(p) && !kxParserParam_is_integer(p));
    EXPECT_EQ(kxParserParam_get_real(p), 2.5);
    EXPECT_EQ(text_of(kxParserParam_get_literal(next())), u".NOTDEFINED.");
    p = next();
    EXPECT_EQ(kxParserParam_get_instance(p), fake_instance(wall));
    EXPECT_EQ(p->value.reference.file_id, 17u);
    EXPECT_EQ(text_of(kxParserParam_get_typed_name(next())), u"IFCLABEL");
    p = next();
    EXPECT_TRUE(kxParserParam_is_string(p));
    EXPECT_EQ(text_of(kxParserParam_get_string(p)), u"Wall 'A'");
    EXPECT_TRUE(kxParseParList_has_more(list));
    p = next();
    EXPECT_TRUE(kxParserParam_is_nested_end(p));
    EXPECT_FALSE(kxParseParList_has_more(list));
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(kxParseParList_get(list, 9), p);
    kxParseParList_append(list, kxParserParam_integer(1, 1, 1));
    kxParseParList_append(list, kxParserParam_integer(2, 1, 3));
    kxParserParam *first = next();
    kxParseParList_back(list, first);
    EXPECT_EQ(next(), first);
    EXPECT_EQ(kxParserParam_get_integer(next()), 2);

    // Asking past the end flags too few parameters.
    EXPECT_FALSE(kxParseParList_next(list, &p));
    EXPECT_EQ(p, nullptr);
    EXPECT_TRUE(kxParseParList_has_errors(list));
}

TEST_F(ParameterListTest, MisuseIsReported) {
    kxParseParList_append(list, kxParserParam_integer(1, 1, 1));
    kxParseParList_append(list, kxParserParam_real(1.0, 1, 3));
    kxParserParam *first = nullptr, *second = nullptr;
    expect_each_reported({
        {"parameter_list->cursor > 0", [&] { kxParseParList_back(list, nullptr); }},  // nothing taken yet
        {"&parameter_list->parameters[parameter_list->cursor] == parameter",
         [&] {
             first = next();
             second = next();
             kxParseParList_back(list, first);  // the cursor stands on the second
         }},
        {"parameter->kind == i_TYPE_REAL", [&] { EXPECT_EQ(kxParserParam_get_real(first), 0.0); }},
        {"parameter->kind == i_TYPE_LITERAL", [&] { EXPECT_EQ(kxParserParam_get_literal(second), nullptr); }},
        {"index < parameter_list->count", [&] { EXPECT_EQ(kxParseParList_get(list, 2), nullptr); }},
        {"(parameter) != NULL", [] { EXPECT_FALSE(kxParserParam_is_integer(nullptr)); }},
        {"(parameter_list) != NULL", [] { EXPECT_EQ(kxParseParList_count(nullptr), 0u); }},
    });
}

// ---- nested begins and error marks ----

TEST_F(ParameterListTest, NestedBeginOrWhyNot) {
    kxParseParList_append(list, kxParserParam_nested_begin(1, 1));
    kxParseParList_append(list, kxParserParam_null(1, 2));
    kxParseParList_append(list, kxParserParam_derived(1, 4));
    kxParseParList_append(list, kxParserParam_integer(7, 1, 6));

    kxParserParam *parameter = nullptr;
    EXPECT_TRUE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", FALSO, &parameter));
    EXPECT_TRUE(kxParserParam_is_nested_begin(parameter));
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // "$" for an optional attribute: no list, no error.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_TRUE(kxParserParam_is_null_or_derived(parameter));
    EXPECT_EQ(mark(parameter), u"");
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // "*" where the attribute must be given.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxListIfcLengthMeasure", u"Coordinates", FALSO, &parameter));
    EXPECT_EQ(mark(parameter), u"kxListIfcLengthMeasure: Non optional Coordinates");
    EXPECT_TRUE(kxParseParList_has_errors(list));

    // Another kind of value is marked with the attribute's name, optional or not.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_EQ(mark(parameter), u"kxSetIfcLabel: Names");
    // Past the end: no list.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_EQ(parameter, nullptr);
}

TEST_F(ParameterListTest, MarkedTwiceKeepsTheFirstMarkAndAppendingAfterErrorsIsReported) {
    expect_reports();
    kxParseParList_append(list, kxParserParam_integer(7, 1, 1));
    kxParserParam *parameter = next();
    kxParseParList_mark_error(list, parameter, u"double", u"Radius");
    kxParseParList_mark_error(list, parameter, u"kxIfcLabel", u"Name");
    EXPECT_EQ(mark(parameter), u"double: Radius");
    EXPECT_TRUE(kxParseParList_has_errors(list));
    // Appending after errors, and after running past the end, is reported.
    kxParserParam *none = nullptr;
    kxParseParList_next(list, &none);
    add_literal(u".T.");  // appended all the same
    EXPECT_TRUE(asserts().saw("parameter_list->incorrect_number_of_parameters == FALSO"));
    EXPECT_TRUE(asserts().saw("parameter_list->there_are_incorrect_parameters == FALSO"));
    EXPECT_EQ(kxParseParList_count(list), 2u);
}

// ---- saved states ----

TEST_F(ParameterListTest, NestedSaveAndRestoreDropsTheLaterStates) {
    expect_reports();
    for (int32_t i = 0; i < 5; i++) kxParseParList_append(list, kxParserParam_integer(i, 1, 1));
    const uint32_t outer = kxParseParList_save_state(list);
    next();
    const uint32_t inner = kxParseParList_save_state(list);
    EXPECT_EQ(inner, outer + 1);
    kxParserParam *tried = next();
    kxParseParList_mark_error(list, tried, u"kxIfcLabel", u"Inner");

    kxParseParList_restore_state(list, inner);
    EXPECT_FALSE(tried->has_error);
    EXPECT_EQ(kxParserParam_get_integer(next()), 1);
    // The inner state is gone: a new save takes its place.
    EXPECT_EQ(kxParseParList_save_state(list), inner);
    kxParseParList_mark_error(list, next(), u"kxIfcText", u"Second try");

    kxParseParList_restore_state(list, outer);
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(kxParserParam_get_integer(next()), 0);
    EXPECT_EQ(kxParseParList_save_state(list), outer);
    kxParseParList_restore_state(list, outer);
    // Restoring drops the later states.
    EXPECT_EQ(kxParseParList_save_state(list), outer);
    EXPECT_EQ(kxParseParList_save_state(list), inner);
    kxParseParList_restore_state(list, outer);
    EXPECT_TRUE(asserts().reports().empty());
    kxParseParList_restore_state(list, inner);  // dropped with the outer one
    EXPECT_TRUE(asserts().saw("position < parameter_list->saved_count"));
}

// ---- references ----

TEST_F(ParameterListTest, UnresolvedReferencesPassWhenAllowedAndAreResolvedThroughTheIdTree) {
    int placement = 0;
    kxParseParList_set_allow_unresolved(list, CIERTO);
    kxParseParList_append(list, kxParserParam_reference(99, nullptr, 1, 1));
    kxParseParList_append(list, kxParserParam_reference(5, fake_instance(placement), 1, 5));
    kxParserParam *forward = next();
    kxParseParList_mark_error(list, forward, u"kxIfcObjectPlacement", u"ObjectPlacement");
    EXPECT_FALSE(forward->has_error);
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // A resolved reference of the wrong class is marked all the same.
    kxParserParam *resolved = next();
    kxParseParList_mark_error(list, resolved, u"kxIfcProductRepresentation", u"Representation");
    EXPECT_TRUE(resolved->has_error);
    EXPECT_TRUE(kxParseParList_has_errors(list));

    // When the list does not allow them, an unresolved reference is an error.
    kxParseParList_clear(list);
    kxParseParList_set_allow_unresolved(list, FALSO);
    kxParseParList_append(list, kxParserParam_reference(99, nullptr, 1, 1));
    forward = next();
    kxParseParList_mark_error(list, forward, u"kxIfcObjectPlacement", u"ObjectPlacement");
    EXPECT_TRUE(forward->has_error);
    EXPECT_TRUE(kxParseParList_has_errors(list));

    int wall = 0, storey = 0, other = 0;
    kx::IdTreeEntry entries[] = {{12, fake_instance(wall)}, {30, fake_instance(storey)}, {7, nullptr}};
    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
    for (kx::IdTreeEntry &entry : entries) kx::rbtree_insert(tree, &entry);

    kxParseParList_clear(list);
    kxParseParList_set_allow_unresolved(list, CIERTO);
    kxParseParList_append(list, kxParserParam_nested_begin(1, 1));
    kxParseParList_append(list, kxParserParam_reference(30, nullptr, 1, 2));
    kxParseParList_append(list, kxParserParam_reference(12, fake_instance(other), 1, 6));  // kept
    kxParseParList_append(list, kxParserParam_reference(44, nullptr, 1, 10));             // no such line
    kxParseParList_append(list, kxParserParam_integer(12, 1, 14));                       // not a reference
    kxParseParList_append(list, kxParserParam_reference(12, nullptr, 1, 17));
    kxParseParList_append(list, kxParserParam_nested_end(1, 20));

    kxParseParList_resolve_references(list, tree);
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 1)), fake_instance(storey));
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 2)), fake_instance(other));
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 3)), nullptr);
    EXPECT_EQ(kxParserParam_get_integer(kxParseParList_get(list, 4)), 12);
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 5)), fake_instance(wall));
    kx::rbtree_destroy(&tree);
}

}  // namespace
