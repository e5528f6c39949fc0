// Every input the reader's fuzzer starts from or ever found a fault with
// goes through the same round as in the fuzzer: read in one and two passes,
// exported, read back, memory back where it was.
#include <filesystem>
#include <string>

#include "fuzz/exercise_reader.h"
#include "test_support.h"

namespace {

using FuzzRegressionsTest = kxtest::LibraryTest;

TEST_F(FuzzRegressionsTest, EveryKeptInputReadsWritesAndReadsBack) {
    kxtest::TempDirectory directory("kxifc_fuzz_regressions");
    int inputs = 0;
    for (const char *folder : {"seeds", "regressions"}) {
        const std::filesystem::path path = std::filesystem::path(KX_SOURCE_DIR) / "tests" / "fuzz" / folder;
        if (!std::filesystem::exists(path)) continue;
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            SCOPED_TRACE(entry.path().string());
            EXPECT_EQ(kxfuzz::exercise_reader(entry.path().string(), directory.path()), "");
            inputs++;
        }
    }
    EXPECT_GE(inputs, 2);
}

}  // namespace
