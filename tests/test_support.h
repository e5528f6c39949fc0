// Shared test helpers: a fixture that captures assertion reports and checks
// that tracked memory is back where it started, access to the shared sample
// files and the generated accessor manifest, library text as ASCII,
// enumeration members by name, a temporary directory, whole files as strings
// and environment variables set for a while.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "kxifc_diagnostics.h"

namespace kxtest {

struct AssertReport {
    std::string condition;
    std::string source;
    uint32_t line;
};

// Captures every assertion report made while it lives.
class AssertCapture {
public:
    AssertCapture() { kxDiagnostics_set_assert_sink(&AssertCapture::sink, this); }
    ~AssertCapture() { kxDiagnostics_set_assert_sink(nullptr, nullptr); }
    const std::vector<AssertReport> &reports() const { return reports_; }
    bool saw(const std::string &condition) const {
        const auto named = [&](const AssertReport &report) { return report.condition == condition; };
        return std::any_of(reports_.begin(), reports_.end(), named);
    }
    void clear() { reports_.clear(); }

private:
    static void sink(void *self, const char *condition, const char *source, uint32_t line) {
        static_cast<AssertCapture *>(self)->reports_.push_back({condition, source, line});
    }
    std::vector<AssertReport> reports_;
};

// A call that misuses the library, and the condition its report must name.
struct Misuse {
    std::string condition;
    std::function<void()> call;
};

// A new directory /tmp/<prefix>_XXXXXX. When it goes, everything created in
// it goes with it.
class TempDirectory {
public:
    explicit TempDirectory(const std::string &prefix);
    ~TempDirectory();
    TempDirectory(const TempDirectory &) = delete;
    TempDirectory &operator=(const TempDirectory &) = delete;

    const std::string &path() const { return path_; }
    // The path of the file of that name in the directory.
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Writes the text (bytes as they are) to the file of that name in the
    // directory; its path.
    std::string write(const std::string &name, const std::string &text) const;

private:
    std::string path_;
};

// Base fixture: fails the test when it leaks tracked memory or when any
// assertion was reported that the test did not expect (call
// expect_reports() / take the capture to look at them).
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    AssertCapture &asserts() { return *capture_; }
    // Whether the condition was reported; the reports so far are forgotten.
    bool reported(const std::string &condition) {
        const bool seen = capture_->saw(condition);
        capture_->clear();
        return seen;
    }
    // The test expects reports from here on: they no longer fail it (one
    // made before still does).
    void expect_reports() {
        EXPECT_TRUE(reports_expected_ || capture_->reports().empty()) << "reported before any was expected";
        reports_expected_ = true;
    }
    // Each call, made in turn, is reported with its condition.
    void expect_each_reported(std::initializer_list<Misuse> misuses);
    // The test's temporary directory, made on first use.
    const TempDirectory &dir() {
        if (dir_ == nullptr) dir_ = std::make_unique<TempDirectory>("kxtest");
        return *dir_;
    }

private:
    std::unique_ptr<TempDirectory> dir_;
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

// The .ifc files of ../shared/ifc, in directory order (none when the folder
// is missing).
std::vector<std::string> sample_files();

// The lines of the generated accessor manifest, each split at its tabs.
std::vector<std::vector<std::string>> accessor_manifest();

// Tracked blocks live right now.
int64_t live_blocks();

// ---- text ----

// The text as narrow ASCII (for messages and comparisons); "" for NULL.
inline std::string narrow(const char16_t *text) {
    std::string result;
    for (; text != nullptr && *text != 0; text++) result.push_back(static_cast<char>(*text));
    return result;
}

// The member of an enumeration with that name, through its exported
// has-value and to-string functions (0, and a failure, when there is none).
template <typename HasValue, typename ToString>
int32_t enum_member(HasValue has_value, ToString to_string, const std::string &name) {
    for (int32_t value = 1; has_value(value); value++)
        if (narrow(to_string(value)) == name) return value;
    ADD_FAILURE() << "no member " << name;
    return 0;
}

// ASCII text as a library string.
inline std::u16string wide(const std::string &text) { return std::u16string(text.begin(), text.end()); }

// The text, or "<null>" for NULL.
inline std::u16string text_of(const char16_t *text) { return text == nullptr ? std::u16string(u"<null>") : text; }

// The text as UTF-8, converted by the library.
std::string utf8(const char16_t *text);

// Whether the text has the form 2024-03-05T14:07:09.
bool is_time_stamp(const std::string &text);

// ---- files and the environment ----

// An exchange file of the schema around the data lines, which start on its
// line 8; `after` follows its end.
std::string step_file(const std::string &data, const std::string &schema = "IFC4", const std::string &after = "");

// The whole file ("" when it cannot be read).
std::string read_file(const std::string &path);

// The first line that differs between two texts, as "a  <>  b" ("" when
// they are equal).
std::string first_difference(const std::string &a, const std::string &b);

// Sets (or, with NULL, removes) an environment variable for the life of the
// guard, then puts back what was there.
class EnvGuard {
public:
    EnvGuard(const char *name, const char *value);
    ~EnvGuard();
    EnvGuard(const EnvGuard &) = delete;
    EnvGuard &operator=(const EnvGuard &) = delete;

private:
    const char *name_;
    bool had_ = false;
    std::string old_;
};

}  // namespace kxtest
