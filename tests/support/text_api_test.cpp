#include <string>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class TextApiTest : public kxtest::LibraryTest {};

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

}  // namespace
