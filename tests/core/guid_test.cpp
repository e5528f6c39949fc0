#include <cstring>
#include <set>
#include <string>

#include "core/guid.h"
#include "kxifcmodel.h"
#include "test_support.h"

namespace {

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
