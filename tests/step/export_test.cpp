// Exporting a model to a file: the exact text of a small model, the
// temporary file and the replaced target, the written flags, the header
// record after an export, and reports for inconsistent instances.
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "core/baseobject.h"
#include "model/model.h"
#include "kxifc_header.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

using kxtest::EnvGuard;
using kxtest::is_time_stamp;
using kxtest::narrow;
using kxtest::read_file;
using kxtest::wide;

const char kHeaderOfEmptyRecord[] =
    "ISO-10303-21;\n"
    "HEADER;\n"
    "FILE_DESCRIPTION((''), '2;1');\n"
    "FILE_NAME('wall.ifc', '', (''), (''), 'Orlith IFC Preprocessor 1.0', '', '');\n"
    "FILE_SCHEMA(('IFC4'));\n"
    "ENDSEC;\n"
    "\n";

class ExportTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }

    // #1 a wall, #2 the select value (no line of its own), #3 a property
    // holding the value.
    void build_wall_and_property() {
        wall_ = make(kxIfcWall_class());
        kxIfcWall_set_GlobalId(wall_, u"2O2Fr$t4X7Zf8NOew3FLOH");
        kxIfcWall_set_Name(wall_, u"Wall");
        value_ = make(kxIfcValue_class());
        kxIfcValue_set_kxIfcLengthMeasure(value_, 2500.0);
        property_ = make(kxIfcPropertySingleValue_class());
        kxIfcPropertySingleValue_set_Name(property_, u"Height");
        kxIfcPropertySingleValue_set_NominalValue(property_, value_);
    }

    void export_as(const std::string &name, const std::string &directory = "") {
        const std::u16string file_name = wide(name);
        const std::u16string folder = wide(directory.empty() ? dir().path() : directory);
        kxIfcModel_export_model_to_file(model_, file_name.c_str(), folder.c_str());
    }
    static bool exists(const std::string &file) { return std::filesystem::exists(file); }
    void expect_nothing_written() const {
        for (uint32_t i = 0; i < kxIfcModel_count_objects(model_); i++) {
            const kxBaseObject *instance = static_cast<kxBaseObject *>(model_->objects->items[i]);
            EXPECT_FALSE(kx::baseobject_has_been_written(instance)) << "#" << instance->output_file_id;
        }
    }

    kxBaseObject *wall_ = nullptr;
    kxBaseObject *value_ = nullptr;
    kxBaseObject *property_ = nullptr;
};

// ---- the text ----

TEST_F(ExportTest, SmallModelGivesTheExactFileAndInconsistentInstancesAreReported) {
    EnvGuard stamp("VELMTEST", "1");
    build_wall_and_property();
    ASSERT_EQ(value_->output_file_id, 2u);
    export_as("wall");
    EXPECT_EQ(read_file(dir().file("wall.ifc")),
              std::string(kHeaderOfEmptyRecord) +
                  "DATA;\n"
                  "#1= IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',$,'Wall',$,$,$,$,$,$);\n"
                  "#3= IFCPROPERTYSINGLEVALUE('Height',$,IFCLENGTHMEASURE(2500.),$);\n"
                  "ENDSEC;\n"
                  "END-ISO-10303-21;\n");
    EXPECT_FALSE(exists(dir().file("wall.ifctmp")));
    expect_nothing_written();

    // A NULL model, an instance already marked written and an entity without
    // an output id are reported; the written marks are cleared afterwards, so
    // the next export is clean.
    expect_each_reported({
        {"(ifc_model) != NULL",
         [&] { kxIfcModel_export_model_to_file(nullptr, u"x", wide(dir().path()).c_str()); }},
        {"kxBaseObject_has_been_written_to_output_file(base_object) == FALSO",
         [&] {
             wall_->flags |= kx::OBJECT_WRITTEN;
             export_as("twice");
         }},
    });
    EXPECT_FALSE(exists(dir().file("x.ifc")) || exists(dir().file("x.ifctmp")));
    expect_nothing_written();
    export_as("twice");
    EXPECT_TRUE(asserts().reports().empty()) << "the next export is clean";
    property_->output_file_id = kx::ULONG_MAX32;
    expect_each_reported({{"kxBaseObject_get_output_file_id(base_object) != ULONG_MAX", [&] { export_as("noid"); }}});
    EXPECT_TRUE(exists(dir().file("noid.ifc")));
    expect_nothing_written();
}

// ---- repeated exports and the header record ----

TEST_F(ExportTest, HeaderRecordKeepsTheTimeStampAndSchemaTextOfTheExport) {
    EnvGuard stamp("VELMTEST", nullptr);
    build_wall_and_property();
    kxIfcHeader *header = kxIfcModel_get_header(model_);
    kxIfcHeader_set_time_stamp(header, u"1999-01-01T00:00:00");
    kxIfcHeader_set_file_schema(header, u"IFC2X3");
    export_as("stamped");
    const std::string stamp_text = narrow(kxIfcHeader_get_timestamp(header));
    EXPECT_TRUE(is_time_stamp(stamp_text)) << stamp_text;
    EXPECT_EQ(narrow(kxIfcHeader_get_file_schema(header)), "FILE_SCHEMA(('IFC4'))");
    EXPECT_NE(read_file(dir().file("stamped.ifc")).find("FILE_NAME('stamped.ifc', '" + stamp_text + "', "),
              std::string::npos);

    // Exported again: only the stamp and the name differ.
    export_as("stamped2");
    const std::string later_stamp = narrow(kxIfcHeader_get_timestamp(header));
    EXPECT_TRUE(is_time_stamp(later_stamp)) << later_stamp;
    std::string earlier = read_file(dir().file("stamped.ifc"));
    std::string later = read_file(dir().file("stamped2.ifc"));
    earlier.replace(earlier.find("'" + stamp_text + "'"), stamp_text.size() + 2, "'T'");
    later.replace(later.find("'" + later_stamp + "'"), later_stamp.size() + 2, "'T'");
    later.replace(later.find("'stamped2.ifc'"), 14, "'stamped.ifc'");
    EXPECT_EQ(earlier, later);
}

// ---- files ----

// An export that cannot be completed says so, leaves an existing target as
// it was and leaves no temporary file behind.
TEST_F(ExportTest, AFailedExportLeavesTheTargetAndNoTrace) {
    for (int i = 0; i < 2000; i++) make(kxIfcCartesianPoint_class());
    const auto export_with_status = [this](const char *name, const std::string &folder) {
        return kxIfcModel_export_with_status(model_, wide(name).c_str(), wide(folder).c_str());
    };
    dir().write("kept.ifc", "kept");
    std::filesystem::create_directory(dir().file("folder.ifc"));
    ASSERT_EQ(mkdir(dir().file("taken.ifctmp").c_str(), 0700), 0);
    const struct {
        const char *name;
        std::string directory;
        kxExportStatus status;
    } cases[] = {
        {"", dir().path(), KX_EXPORT_BAD_NAME},
        {"..", dir().path(), KX_EXPORT_BAD_NAME},
        {"../escaped", dir().path(), KX_EXPORT_BAD_NAME},
        {"folder", dir().path(), KX_EXPORT_CANNOT_REPLACE},
        {"kept", dir().file("missing"), KX_EXPORT_CANNOT_CREATE},
        {"taken", dir().path(), KX_EXPORT_CANNOT_REPLACE},  // the temporary name is a folder
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(export_with_status(c.name, c.directory), c.status);
        EXPECT_EQ(kxIfcModel_last_export_status(model_), c.status);
        EXPECT_NE(std::string(kxExportStatus_message(c.status)), "");
    }
    EXPECT_FALSE(exists(dir().file("missing")));
    EXPECT_TRUE(std::filesystem::is_directory(dir().file("taken.ifctmp")));
    EXPECT_EQ(narrow(kxIfcHeader_get_file_schema(kxIfcModel_get_header(model_))), "") << "the header is untouched";
    // A file-size limit stops the writing half-way.
    struct rlimit old_limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    struct rlimit small = old_limit;
    small.rlim_cur = 4096;
    auto *old_handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const kxExportStatus limited = export_with_status("kept", dir().path());
    setrlimit(RLIMIT_FSIZE, &old_limit);
    std::signal(SIGXFSZ, old_handler);
    EXPECT_EQ(limited, KX_EXPORT_WRITE_FAILED);
    EXPECT_EQ(read_file(dir().file("kept.ifc")), "kept");
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir().path()))
        EXPECT_NE(entry.path().filename(), "kept.ifctmp");
    expect_nothing_written();
    // Without the limit the same export replaces the file.
    EXPECT_EQ(export_with_status("kept", dir().path()), KX_EXPORT_OK);
    EXPECT_NE(read_file(dir().file("kept.ifc")).find("IFCCARTESIANPOINT"), std::string::npos);
}

}  // namespace
