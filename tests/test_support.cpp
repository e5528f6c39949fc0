#include "test_support.h"

#include <sys/stat.h>

#include "kxifc_diagnostics.h"
#include "support/memory.h"

namespace kxtest {

AssertCapture::AssertCapture() { kxDiagnostics_set_assert_sink(&AssertCapture::sink, this); }

AssertCapture::~AssertCapture() { kxDiagnostics_set_assert_sink(nullptr, nullptr); }

void AssertCapture::sink(void *self, const char *condition, const char *source, uint32_t line) {
    static_cast<AssertCapture *>(self)->reports_.push_back({condition, source, line});
}

bool AssertCapture::saw(const std::string &condition) const {
    for (const AssertReport &report : reports_)
        if (report.condition == condition) return true;
    return false;
}

void LibraryTest::SetUp() {
    const kx::MemUsage usage = kx::mem_usage();
    blocks_at_start_ = usage.live_blocks;
    bytes_at_start_ = usage.live_bytes;
    capture_ = new AssertCapture();
}

void LibraryTest::TearDown() {
    if (!reports_expected_) {
        for (const AssertReport &report : capture_->reports())
            ADD_FAILURE() << "unexpected assertion report \"" << report.condition << "\" in "
                          << report.source << ":" << report.line;
    }
    delete capture_;
    capture_ = nullptr;
    const kx::MemUsage usage = kx::mem_usage();
    EXPECT_EQ(usage.live_blocks, blocks_at_start_) << "tracked blocks leaked";
    EXPECT_EQ(usage.live_bytes, bytes_at_start_) << "tracked bytes leaked";
}

std::string shared_path(const std::string &relative) {
    const std::string path = std::string(KX_SHARED_DIR) + "/" + relative;
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? path : std::string();
}

}  // namespace kxtest
