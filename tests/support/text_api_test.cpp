#include <string>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class TextApiTest : public kxtest::LibraryTest {};

TEST_F(TextApiTest, RoundTripsThroughUtf8) {
    const char *utf8 = "Mur \xc3\xa9tag\xc3\xa8re \xe2\x82\xac \xf0\x9f\x8f\xa0";
    kxWChar *wide = kxWideString_new_from_utf8(utf8);
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::u16string(wide), u"Mur \u00e9tag\u00e8re \u20ac \U0001F3E0");
    EXPECT_EQ(kxWideString_length(wide), 16u);  // the house takes two units
    char *back = kxWideString_to_utf8(wide);
    ASSERT_NE(back, nullptr);
    EXPECT_STREQ(back, utf8);
    kxUtf8String_free(&back);
    kxWideString_free(&wide);
    EXPECT_EQ(back, nullptr);
    EXPECT_EQ(wide, nullptr);
}

TEST_F(TextApiTest, NullsAreAcceptedEverywhere) {
    EXPECT_EQ(kxWideString_new_from_utf8(nullptr), nullptr);
    EXPECT_EQ(kxWideString_to_utf8(nullptr), nullptr);
    EXPECT_EQ(kxWideString_length(nullptr), 0u);
    kxWChar *no_wide = nullptr;
    char *no_narrow = nullptr;
    kxWideString_free(&no_wide);
    kxUtf8String_free(&no_narrow);
    kxWideString_free(nullptr);
    kxUtf8String_free(nullptr);
}

TEST_F(TextApiTest, InvalidInputIsReplacedNotRejected) {
    kxWChar *wide = kxWideString_new_from_utf8("a\xff" "b");
    EXPECT_EQ(std::u16string(wide), u"a\ufffdb");
    kxWideString_free(&wide);
}

}  // namespace
