#include "test_support.h"

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/memory.h"
#include "support/wstring.h"

namespace kxtest {

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

void LibraryTest::expect_each_reported(std::initializer_list<Misuse> misuses) {
    expect_reports();
    for (const Misuse &misuse : misuses) {
        capture_->clear();
        misuse.call();
        EXPECT_TRUE(capture_->saw(misuse.condition)) << "not reported: " << misuse.condition;
    }
    capture_->clear();
}

std::string shared_path(const std::string &relative) {
    const std::string path = std::string(KX_SHARED_DIR) + "/" + relative;
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? path : std::string();
}

std::vector<std::string> sample_files() {
    std::vector<std::string> files;
    const std::string folder = shared_path("ifc");
    if (folder.empty()) return files;
    DIR *dir = opendir(folder.c_str());
    while (dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.size() > 4 && name.substr(name.size() - 4) == ".ifc") files.push_back(folder + "/" + name);
    }
    closedir(dir);
    return files;
}

std::vector<std::vector<std::string>> accessor_manifest() {
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(std::string(KX_GENERATED_DIR) + "/manifest/accessors.tsv");
    std::string line;
    while (std::getline(file, line)) {
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string field; std::getline(split, field, '\t');) fields.push_back(field);
        rows.push_back(fields);
    }
    return rows;
}

int64_t live_blocks() { return kx::mem_usage().live_blocks; }

std::string utf8(const char16_t *text) {
    char *bytes = kx::wstr_to_utf8(text);
    std::string result(bytes);
    kx::mem_free(bytes);
    return result;
}

bool is_time_stamp(const std::string &text) {
    const std::string form = "dddd-dd-ddTdd:dd:dd";
    if (text.size() != form.size()) return false;
    for (size_t i = 0; i < form.size(); i++) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == 'd' ? !digit : text[i] != form[i]) return false;
    }
    return true;
}

std::string step_file(const std::string &data, const std::string &schema, const std::string &after) {
    return "ISO-10303-21;\nHEADER;\nFILE_DESCRIPTION((''),'2;1');\nFILE_NAME('','',(''),(''),'','','');\n"
           "FILE_SCHEMA(('" + schema + "'));\nENDSEC;\nDATA;\n" + data + "ENDSEC;\nEND-ISO-10303-21;\n" + after;
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string first_difference(const std::string &a, const std::string &b) {
    std::istringstream in_a(a), in_b(b);
    std::string line_a, line_b;
    while (true) {
        const bool more_a = static_cast<bool>(std::getline(in_a, line_a));
        const bool more_b = static_cast<bool>(std::getline(in_b, line_b));
        if (!more_a && !more_b) return "";
        if (more_a != more_b || line_a != line_b) return line_a + "  <>  " + line_b;
    }
}

TempDirectory::TempDirectory(const std::string &prefix) {
    std::string pattern = "/tmp/" + prefix + "_XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::write(const std::string &name, const std::string &text) const {
    const std::string path = file(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

EnvGuard::EnvGuard(const char *name, const char *value) : name_(name) {
    const char *old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    if (value != nullptr)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

EnvGuard::~EnvGuard() {
    if (had_)
        setenv(name_, old_.c_str(), 1);
    else
        unsetenv(name_);
}

}  // namespace kxtest
