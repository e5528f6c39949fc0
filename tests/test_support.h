// Shared test helpers: a fixture that captures assertion reports and checks
// that tracked memory is back where it started, and access to the shared
// sample files.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kxtest {

struct AssertReport {
    std::string condition;
    std::string source;
    uint32_t line;
};

// Captures every assertion report made while it lives.
class AssertCapture {
public:
    AssertCapture();
    ~AssertCapture();
    const std::vector<AssertReport> &reports() const { return reports_; }
    bool saw(const std::string &condition) const;
    void clear() { reports_.clear(); }

private:
    static void sink(void *self, const char *condition, const char *source, uint32_t line);
    std::vector<AssertReport> reports_;
};

// Base fixture: fails the test when it leaks tracked memory or when any
// assertion was reported that the test did not expect (call
// expect_reports() / take the capture to look at them).
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    AssertCapture &asserts() { return *capture_; }
    // The test expects reports: they no longer fail it.
    void expect_reports() { reports_expected_ = true; }

private:
    int64_t blocks_at_start_ = 0;
    int64_t bytes_at_start_ = 0;
    AssertCapture *capture_ = nullptr;
    bool reports_expected_ = false;
};

// Path of a file under ../shared (empty when the folder is missing).
std::string shared_path(const std::string &relative);
// Skips the current test when ../shared/<relative> is missing.
#define KX_REQUIRE_SHARED(relative)                                             \
    do {                                                                        \
        if (::kxtest::shared_path(relative).empty())                            \
            GTEST_SKIP() << "shared data missing: " << (relative);              \
    } while (0)

}  // namespace kxtest
