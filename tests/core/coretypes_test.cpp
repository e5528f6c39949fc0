
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <set>
#include <string>

#include "kxifc_coretypes.h"
#include "test_support.h"
#include "core/guid.h"
#include "kxifcmodel.h"

namespace {

double from_bits(uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

class CoreTypesTest : public kxtest::LibraryTest {};

TEST_F(CoreTypesTest, UndefinedValuesAreExact) {
    EXPECT_EQ(kxIfcCoreTypes_boolean_undefined_value(), -1);
    EXPECT_EQ(kxIfcCoreTypes_integer_undefined_value(), 2147483647);
    const double real = kxIfcCoreTypes_real_undefined_value();
    uint64_t bits;
    std::memcpy(&bits, &real, sizeof bits);
    EXPECT_EQ(bits, 0x7FEFFFFFFFFFFFFFull);
    EXPECT_EQ(kxIfcCoreTypes_string_undefined_value(), nullptr);
    EXPECT_EQ(kxIfcCoreTypes_logical_undefined_value(), -2);
    const kxBinary binary = kxIfcCoreTypes_binary_undefined_value();
    EXPECT_EQ(binary.contents, nullptr);
    EXPECT_EQ(binary.num_bits, 0u);

    // Each undefined value is the one value its test rejects.
    EXPECT_FALSE(kxIfcCoreTypes_boolean_has_value(kxIfcCoreTypes_boolean_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_integer_has_value(kxIfcCoreTypes_integer_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_real_has_value(kxIfcCoreTypes_real_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_string_has_value(kxIfcCoreTypes_string_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_logical_has_value(kxIfcCoreTypes_logical_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_binary_has_value(kxIfcCoreTypes_binary_undefined_value()));
}

TEST_F(CoreTypesTest, ValuesNextToTheUndefinedOnesAreSet) {
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(kxBTRUE));
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(kxBFALSE));
    EXPECT_TRUE(kxIfcCoreTypes_integer_has_value(INT32_MIN));
    EXPECT_TRUE(kxIfcCoreTypes_integer_has_value(2147483646));
    EXPECT_TRUE(kxIfcCoreTypes_integer_has_value(0));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(0.0));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(from_bits(0x7FEFFFFFFFFFFFFEull)));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(-std::numeric_limits<double>::max()));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(std::numeric_limits<double>::infinity()));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_TRUE(kxIfcCoreTypes_string_has_value(u""));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(1));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(0));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(-1));  // UNKNOWN is a value
    char bit = '1';
    EXPECT_TRUE(kxIfcCoreTypes_binary_has_value(kxBinary{&bit, 1}));
    EXPECT_FALSE(kxIfcCoreTypes_binary_has_value(kxBinary{&bit, 0}));  // the count decides
}

TEST_F(CoreTypesTest, OutOfRangeBooleansAndLogicalsAreReported) {
    expect_reports();
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(2));
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(-2));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(-3));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(2));
    ASSERT_EQ(asserts().reports().size(), 4u);
    for (const kxtest::AssertReport &report : asserts().reports()) {
        EXPECT_EQ(report.condition, "");
        EXPECT_EQ(report.source, "kxifccoretypes (KXIFCMODEL.DLL)");
    }
}

TEST_F(CoreTypesTest, StringsAreCopiedAndFreed) {
    const char16_t original[] = u"Wall \u00e9";
    kxWChar *copy = kxIfcCoreTypes_copy_string(original);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, original);
    EXPECT_EQ(std::u16string(copy), original);
    kxIfcCoreTypes_free_string(&copy);
    EXPECT_EQ(copy, nullptr);
    kxIfcCoreTypes_free_string(&copy);    // already NULL: nothing happens
    kxIfcCoreTypes_free_string(nullptr);  // accepted silently

    kxWChar *empty = kxIfcCoreTypes_copy_string(u"");
    EXPECT_EQ(std::u16string(empty), u"");
    kxIfcCoreTypes_free_string(&empty);
}

TEST_F(CoreTypesTest, CopyingANullStringIsReported) {
    expect_reports();
    EXPECT_EQ(kxIfcCoreTypes_copy_string(nullptr), nullptr);
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
}

TEST_F(CoreTypesTest, BinariesAreMadeCopiedAndFreed) {
    kxBinary none = kxIfcCoreTypes_make_binary_with_size(0);
    EXPECT_EQ(none.contents, nullptr);
    EXPECT_EQ(none.num_bits, 0u);

    kxBinary bits = kxIfcCoreTypes_make_binary_with_size(5);
    ASSERT_NE(bits.contents, nullptr);
    EXPECT_EQ(std::string(bits.contents, 5), "00000");
    EXPECT_TRUE(kxIfcCoreTypes_binary_has_value(bits));
    bits.contents[0] = '1';
    bits.contents[3] = '1';

    kxBinary copy = kxIfcCoreTypes_copy_binary(bits);
    ASSERT_NE(copy.contents, nullptr);
    EXPECT_NE(copy.contents, bits.contents);
    EXPECT_EQ(copy.num_bits, 5u);
    EXPECT_EQ(std::string(copy.contents, 5), "10010");

    kxIfcCoreTypes_free_binary(&bits);
    EXPECT_EQ(bits.contents, nullptr);
    EXPECT_EQ(bits.num_bits, 0u);
    kxIfcCoreTypes_free_binary(&bits);  // freeing an undefined binary is harmless
    kxIfcCoreTypes_free_binary(&copy);

    char stray = '1';
    const kxBinary empty = kxIfcCoreTypes_copy_binary(kxBinary{&stray, 0});
    EXPECT_EQ(empty.contents, nullptr);
    EXPECT_EQ(empty.num_bits, 0u);
}

TEST_F(CoreTypesTest, FreeingThroughANullBinaryIsReported) {
    expect_reports();
    kxIfcCoreTypes_free_binary(nullptr);
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
}

std::string encode(const kx::Guid &guid) {
    char out[kx::kCompressedGuidBufferSize];
    std::memset(out, '#', sizeof out);
    EXPECT_TRUE(kx::guid_encode_compressed(guid, out, sizeof out));
    return std::string(out);
}

class GuidTest : public kxtest::LibraryTest {};

TEST_F(GuidTest, DigitWriterRefusesWhatDoesNotFit) {
    char out[8] = {};
    EXPECT_TRUE(kx::guid_write_digits(64 * 64 * 64 * 64 - 1, 4, out));
    EXPECT_EQ(std::string(out, 4), "$$$$");
    EXPECT_TRUE(kx::guid_write_digits(64, 2, out));
    EXPECT_EQ(std::string(out, 2), "10");
    EXPECT_FALSE(kx::guid_write_digits(64 * 64, 2, out));
    EXPECT_FALSE(kx::guid_write_digits(64 * 64 * 64 * 64, 4, out));
    EXPECT_FALSE(kx::guid_write_digits(0, 5, out));

    const kx::Guid guid{};
    char small[kx::kCompressedGuidBufferSize - 1];
    EXPECT_FALSE(kx::guid_encode_compressed(guid, small, sizeof small));
    EXPECT_FALSE(kx::guid_encode_compressed(guid, nullptr, 23));
}

TEST_F(GuidTest, EncodesTheKnownVectors) {
    kx::Guid ones;
    std::memset(&ones, 0xFF, sizeof ones);
    EXPECT_EQ(encode(ones), "3" + std::string(21, '$'));

    const kx::Guid one{0x00000001, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(encode(one), "0000010000000000000000");

    const kx::Guid mixed{0x12345678, 0x9ABC, 0xDEF0,
                         {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}};
    EXPECT_EQ(encode(mixed), "0ID5PuchpUy18qLdYQlDxm");

    const kx::Guid zero{};
    EXPECT_EQ(encode(zero), std::string(22, '0'));
}

TEST_F(GuidTest, GeneratedGuidsAreVersionFour) {
    for (int i = 0; i < 100; ++i) {
        kx::Guid guid{};
        ASSERT_TRUE(kx::guid_generate(&guid));
        EXPECT_FALSE(kx::guid_is_zero(guid));
        EXPECT_EQ(guid.data3 >> 12, 4);
        EXPECT_EQ(guid.data4[0] >> 6, 2);
    }
}

TEST_F(GuidTest, FreshCompressedGuidsAreDistinct) {
    const std::string alphabet =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$";
    std::set<std::u16string> seen;
    for (int i = 0; i < 10000; ++i) {
        kxWChar *text = kxCreateCompressedGuidString_Create();
        ASSERT_NE(text, nullptr);
        const std::u16string guid(text);
        kxIfcCoreTypes_free_string(&text);
        ASSERT_EQ(guid.size(), 22u);
        ASSERT_NE(std::u16string(u"0123").find(guid[0]), std::u16string::npos) << i;
        for (char16_t c : guid) ASSERT_NE(alphabet.find(char(c)), std::string::npos);
        ASSERT_TRUE(seen.insert(guid).second) << "repeated after " << i;
    }
}

}  // namespace
