#include <cstring>
#include <set>
#include <string>

#include "core/guid.h"
#include "kxifcmodel.h"
#include "test_support.h"

namespace {

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

}  // namespace
