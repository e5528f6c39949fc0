// An export that cannot be completed says so, leaves an existing target as
// it was and leaves no temporary file behind.
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class ExportFailureTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        kxtest::LibraryTest::SetUp();
        model_ = kxIfcModel_new();
        kxIfcModel_set_version(model_, KXIFCVERSION_IFC_4);
        for (int i = 0; i < 2000; i++) kxIfcModel_dontuse_new_object(model_, kxIfcCartesianPoint_class());
    }
    void TearDown() override {
        kxIfcModel_free(&model_);
        kxtest::LibraryTest::TearDown();
    }
    kxExportStatus export_as(const std::string &name, const std::string &directory) {
        kxWChar *base = kxWideString_new_from_utf8(name.c_str());
        kxWChar *folder = kxWideString_new_from_utf8(directory.c_str());
        const kxExportStatus status = kxIfcModel_export_with_status(model_, base, folder);
        kxWideString_free(&base);
        kxWideString_free(&folder);
        return status;
    }
    bool no_temporary_file_left() const {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(directory_.path()))
            if (entry.path().extension() == ".ifctmp") return false;
        return true;
    }
    kxIfcModel *model_ = nullptr;
    kxtest::TempDirectory directory_{"kxifc_export_failure"};
};

TEST_F(ExportFailureTest, AFailedExportLeavesTheTargetAndNoTrace) {
    const std::string old_text = "an earlier file\n";
    directory_.write("kept.ifc", old_text);
    std::filesystem::create_directory(directory_.file("folder.ifc"));
    const struct {
        const char *name;
        std::string directory;
        kxExportStatus status;
    } cases[] = {
        {"", directory_.path(), KX_EXPORT_BAD_NAME},
        {"..", directory_.path(), KX_EXPORT_BAD_NAME},
        {"../escaped", directory_.path(), KX_EXPORT_BAD_NAME},
        {"folder", directory_.path(), KX_EXPORT_CANNOT_REPLACE},
        {"kept", directory_.file("missing"), KX_EXPORT_CANNOT_CREATE},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(export_as(c.name, c.directory), c.status);
        EXPECT_EQ(kxIfcModel_last_export_status(model_), c.status);
        EXPECT_NE(std::string(kxExportStatus_message(c.status)), "");
    }
    // A file-size limit stops the writing half-way.
    struct rlimit old_limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    struct rlimit small = old_limit;
    small.rlim_cur = 4096;
    auto *old_handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const kxExportStatus limited = export_as("kept", directory_.path());
    setrlimit(RLIMIT_FSIZE, &old_limit);
    std::signal(SIGXFSZ, old_handler);
    EXPECT_EQ(limited, KX_EXPORT_WRITE_FAILED);
    EXPECT_EQ(kxtest::read_file(directory_.file("kept.ifc")), old_text);
    EXPECT_TRUE(no_temporary_file_left());
    // Without the limit the same export replaces the file.
    EXPECT_EQ(export_as("kept", directory_.path()), KX_EXPORT_OK);
    EXPECT_NE(kxtest::read_file(directory_.file("kept.ifc")).find("IFCCARTESIANPOINT"), std::string::npos);
}

}  // namespace
