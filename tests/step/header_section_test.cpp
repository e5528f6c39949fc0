// The HEADER section: written from a record (lists, encodings), read back
// from files (each entity optional, string lists in all their forms, the
// implementation level, malformed and truncated sections), and the release
// a file declares, also for the sample files. Then exporting a model to a
// file: the exact text of a small model, the temporary file and the replaced
// target, the written flags, the header record after an export, and reports
// for inconsistent instances.
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "model/header.h"
#include "model/headerio.h"
#include "model/model.h"
#include "support/memory.h"
#include "support/valuearray.h"
#include "support/writedata.h"
#include "support/wstring.h"
#include "kxifc_header.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

using kxtest::EnvGuard;
using kxtest::narrow;
using kxtest::text_of;
using kxtest::wide;

// A whole file around a header body (the lines between HEADER; and ENDSEC;).
std::string file_with_header(const std::string &body) {
    return "ISO-10303-21;\nHEADER;\n" + body + "ENDSEC;\n\nDATA;\n#1= IFCWALL('x',$,$,$,$,$,$,$);\nENDSEC;\nEND-ISO-10303-21;\n";
}

const char kDuplexHeader[] =
    "FILE_DESCRIPTION(('ViewDefinition [CoordinationView]'),'2;1');\n"
    "FILE_NAME('0001','2011-09-07T12:28:29',(''),(''),'Autodesk Revit Architecture 2011 - 1.0',"
    "'20100326_1700','');\n"
    "FILE_SCHEMA(('IFC2X3'));\n";

class HeaderSectionTest : public kxtest::LibraryTest {
protected:
    void TearDown() override {
        if (header_ != nullptr) kx::header_destroy(&header_);
        LibraryTest::TearDown();
    }

    // Writes a file into the test's directory; its path.
    std::u16string make_file(const std::string &contents, const std::string &name = "header.ifc") {
        return wide(dir().write(name, contents));
    }
    // Reads the header section of a file made from the text; keeps the
    // record in header_.
    bool read(const std::string &contents) {
        if (header_ != nullptr) kx::header_destroy(&header_);
        const std::u16string path = make_file(contents);
        const bool read = kx::header_read_section(path.c_str(), &header_) == CIERTO;
        EXPECT_EQ(read, header_ != nullptr);
        return read;
    }
    bool read_body(const std::string &body) { return read(file_with_header(body)); }

    static std::string written(kxIfcHeader *header, const char16_t *name, kxIfcVersion_t version) {
        return kxtest::written_text(
            [&](kxIfcWriteData *output) { kx::header_write_section(header, name, version, output); });
    }

    // The items of a list as "('a','b')".
    static std::string items(const kx::WStrArray *list) {
        std::string text;
        for (uint32_t i = 0; i < kx::wstrarray_count(list); i++)
            text += (i == 0 ? "'" : ",'") + narrow(kx::wstrarray_get(list, i)) + "'";
        return "(" + text + ")";
    }

    kxIfcHeader *header_ = nullptr;
};

// ---- writing ----

TEST_F(HeaderSectionTest, ListsAreQuotedAndEncodedAuthorizationIsOneJoinedString) {
    EnvGuard stamp("VELMTEST", "1");
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_add_to_description(header_, u"ViewDefinition [CoordinationView]");
    kxIfcHeader_add_to_description(header_, u"It's");
    kxIfcHeader_set_file_name(header_, u"caf\u00e9.ifc");
    kxIfcHeader_add_to_author(header_, u"Ann");
    kxIfcHeader_add_to_author(header_, u"Bob");
    kxIfcHeader_add_to_organization(header_, u"a\\b");
    kxIfcHeader_set_originating_system(header_, u"Tool 'X'");
    kxIfcHeader_add_to_authorization(header_, u"a");
    kxIfcHeader_add_to_authorization(header_, u"b'c");
    EXPECT_EQ(written(header_, u"fallback.ifc", KXIFCVERSION_IFC_4),
              "HEADER;\n"
              "FILE_DESCRIPTION(('ViewDefinition [CoordinationView]', 'It''s'), '2;1');\n"
              "FILE_NAME('caf\\X2\\00E9\\X0\\.ifc', '', ('Ann', 'Bob'), ('a\\\\b'), "
              "'Orlith IFC Preprocessor 1.0', 'Tool ''X''', 'a;b''c');\n"
              "FILE_SCHEMA(('IFC4'));\n"
              "ENDSEC;\n");
    // A record without members is written like an empty one.
    kx::header_destroy(&header_);
    header_ = kx::header_new(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(written(header_, u"m.ifc", KXIFCVERSION_IFC_2X3),
              "HEADER;\nFILE_DESCRIPTION((''), '2;1');\n"
              "FILE_NAME('m.ifc', '', (''), (''), 'Orlith IFC Preprocessor 1.0', '', '');\n"
              "FILE_SCHEMA(('IFC2X3'));\nENDSEC;\n");
}

// ---- reading ----

TEST_F(HeaderSectionTest, StringListFormsDollarsKeywordCaseCommentsImplementationLevelAndRelease) {
    ASSERT_TRUE(read_body(
        "FILE_DESCRIPTION (($, 'a', $), '2;1') ;\n"
        "FILE_NAME ($, $, (), ($), 'pre', $, ('x', 'y'));\n"
        "FILE_SCHEMA (('IFC2X3'));\n"));
    EXPECT_NE(header_->file_name, nullptr);
    EXPECT_EQ(narrow(header_->file_name) + "|" + narrow(header_->time_stamp) + "|" +
                  narrow(header_->originating_system),
              "||");
    EXPECT_EQ(items(header_->description_data) + items(header_->author_data) + items(header_->organization_data) +
                  items(header_->authorization_data),
              "('a')()()('x','y')");
    // The authorization as one string, or "$", is a one-item list.
    for (const std::string authorization : {"Nobody", ""}) {
        const std::string value = authorization.empty() ? "$" : "'" + authorization + "'";
        ASSERT_TRUE(read_body("FILE_NAME('n','t',('a'),('o'),'p','s'," + value + ");\n"));
        EXPECT_EQ(items(header_->authorization_data), "('" + authorization + "')");
    }
    ASSERT_TRUE(read("ISO-10303-21;\n/* a comment; HEADER; */ header;\r\n/* produced by */\r\n"
                     "file_description(('d'),'2;1');\r\nfile_schema(('ifc4'));\r\nendsec;\r\n"));
    EXPECT_EQ(narrow(header_->file_schema), "ifc4");

    // The implementation level must be 2;1.
    EnvGuard ignore("KXIFCHEADER_IGNORE_ERRORS", nullptr);
    const std::string body = "FILE_DESCRIPTION(('d'),'2;2');\nFILE_SCHEMA(('IFC4'));\n";
    EXPECT_FALSE(read_body(body));
    {
        EnvGuard set("KXIFCHEADER_IGNORE_ERRORS", "1");
        EXPECT_TRUE(read_body(body));
        EXPECT_EQ(narrow(header_->file_schema), "IFC4");
        kxIfcVersion_t version = ifc_version_not_defined;
        const std::u16string path = make_file(file_with_header(body), "level.ifc");
        EXPECT_EQ(kxIfcHeader_read_ifc_version(path.c_str(), &version), kxBTRUE);
        EXPECT_EQ(version, KXIFCVERSION_IFC_4);
    }
    EXPECT_FALSE(read_body(body)) << "the variable is looked at on every read";
    // The level is one string: a list of two, or none, is malformed.
    EXPECT_FALSE(read_body("FILE_DESCRIPTION(('d'),('2;1','2;1'));\n"));
    EXPECT_FALSE(read_body("FILE_DESCRIPTION(('d'),());\n"));
    EXPECT_TRUE(read_body("FILE_DESCRIPTION(('d'),('2;1'));\n"));
    kxIfcVersion_t version = KXIFCVERSION_IFC_4;
    const std::u16string no_schema = make_file(file_with_header("FILE_DESCRIPTION(('d'),'2;1');\n"), "a.ifc");
    EXPECT_EQ(kxIfcHeader_read_ifc_version(no_schema.c_str(), &version), kxBFALSE);
    EXPECT_EQ(static_cast<uint32_t>(version), 0xFFFFu);

    version = KXIFCVERSION_IFC_2X3;
    const std::u16string broken = make_file("ISO-10303-21;\nHEADER;\nFILE_SCHEMA(('IFC4'))\n", "b.ifc");
    EXPECT_EQ(kxIfcHeader_read_ifc_version(broken.c_str(), &version), kxBFALSE);
    EXPECT_EQ(version, KXIFCVERSION_IFC_2X3) << "a failed read leaves the version alone";
    EXPECT_EQ(kxIfcHeader_read_ifc_version(wide(dir().file("none.ifc")).c_str(), &version), kxBFALSE);
}

TEST_F(HeaderSectionTest, MalformedOrTruncatedSectionsFailAndLongListsAreReported) {
    const char *bodies[] = {
        "FILE_DESCRIPTION(('d'),'2;1')\n",                              // no ";"
        "FILE_DESCRIPTION(('d' 'e'),'2;1');\n",                         // no "," between items
        "FILE_DESCRIPTION((('d')),'2;1');\n",                           // nested list
        "FILE_DESCRIPTION(('d'),'2;1',3);\n",                           // an extra value
        "FILE_NAME('n','t',(''),(''),'p','s');\n",                      // no authorization
        "FILE_NAME('n',5,(''),(''),'p','s','');\n",                     // not a string
        "FILE_SCHEMA(('IFC4','IFC2X3'));\n",                            // two schemas
        "FILE_SCHEMA(());\n",                                           // none
        "FILE_SCHEMA(('IFC4'));\nFILE_NAME('n','t',(''),(''),'p','s','');\n",  // out of order
        "FILE_POPULATION('x');\n",                                      // an entity of its own
        "FILE_DESCRIPTION(('d'),'2;1');\nFILE_DESCRIPTION(('d'),'2;1');\n",
    };
    for (const char *body : bodies) EXPECT_FALSE(read_body(body)) << body;
    EXPECT_FALSE(read(""));
    EXPECT_FALSE(read("ISO-10303-21;\nDATA;\nENDSEC;\n")) << "no HEADER";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER\nFILE_SCHEMA(('IFC4'));\nENDSEC;\n")) << "no ; after HEADER";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER;\nFILE_SCHEMA(('IFC4'));\nENDSEC\n")) << "no ; after ENDSEC";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER;\nFILE_NAME('unterminated")) << "open literal";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER;\n/* open comment")) << "open comment";
    EXPECT_FALSE(read(std::string("HEADER;\0\xff\xfe(((((", 13))) << "binary bytes";

    kxIfcHeader *earlier = kxIfcHeader_new_empty_header();
    header_ = earlier;
    EXPECT_FALSE(kx::header_read_section(wide(dir().file("missing.ifc")).c_str(), &header_));
    EXPECT_EQ(header_, nullptr) << "the holder is cleared";
    kx::header_destroy(&earlier);
    EXPECT_FALSE(kx::header_read_section(wide(dir().path()).c_str(), &header_)) << "a directory";
    const std::string whole = "ISO-10303-21;\nHEADER;\n" + std::string(kDuplexHeader) + "ENDSEC;";
    ASSERT_TRUE(read(whole));
    for (size_t length = 0; length < whole.size(); length++)
        EXPECT_FALSE(read(whole.substr(0, length))) << whole.substr(0, length);
    // Each item past the 1000th of a list is reported, and still read.
    std::string items = "'0'";
    for (int i = 1; i < 1003; i++) items += ",'" + std::to_string(i) + "'";
    expect_reports();
    ASSERT_TRUE(read_body("FILE_DESCRIPTION((" + items + "),'2;1');\n"));
    EXPECT_EQ(narrow(kx::wstrarray_get(header_->description_data, 1002)), "1002");
    ASSERT_EQ(asserts().reports().size(), 3u);
    EXPECT_EQ(asserts().reports()[0].condition, "num_iters < 1000");
}

// ---- the sample files ----

// Only the first header section of concatenated files is looked at.
TEST_F(HeaderSectionTest, EverySampleFileAndConcatenatedFilesDeclareTheirRelease) {
    KX_REQUIRE_SHARED("ifc");
    // The releases of the files known to be there; any other file must at
    // least read.
    const std::map<std::string, kxIfcVersion_t> known = {
        {"AC20-FZK-Haus.ifc", KXIFCVERSION_IFC_4},
        {"ISSUE_044_test_IFCCOMPOSITEPROFILEDEF.ifc", KXIFCVERSION_IFC_2X3},
        {"ISSUE_171_IfcSurfaceCurveSweptAreaSolid.ifc", KXIFCVERSION_IFC_4},
        {"IfcOpenHouse_IFC4.ifc", KXIFCVERSION_IFC_4},
        {"Sample_entities.ifc", KXIFCVERSION_IFC_2X3},
        {"duplex.ifc", KXIFCVERSION_IFC_2X3},
        {"example.ifc", KXIFCVERSION_IFC_2X3},
        {"tested_sample_project.ifc", KXIFCVERSION_IFC_2X3},
        {"concatenated_files.ifc", KXIFCVERSION_IFC_2X3},
    };
    std::vector<std::string> files = kxtest::sample_files();
    ASSERT_GT(files.size(), 0u);
    const std::string concatenated = kxtest::shared_path("ifc-malformed/concatenated_files.ifc");
    if (!concatenated.empty()) files.push_back(concatenated);
    for (const std::string &file : files) {
        const std::string name = std::filesystem::path(file).filename().string();
        const std::u16string path = wide(file);
        kxIfcVersion_t version = ifc_version_not_defined;
        ASSERT_EQ(kxIfcHeader_read_ifc_version(path.c_str(), &version), kxBTRUE) << name;
        const auto found = known.find(name);
        if (found != known.end()) {
            EXPECT_EQ(version, found->second) << name;
        }
        ASSERT_TRUE(kx::header_read_section(path.c_str(), &header_)) << name;
        EXPECT_NE(header_->file_schema, nullptr) << name;
        if (file == concatenated) {
            EXPECT_EQ(narrow(header_->file_name), "test.ifc");
        }
        kx::header_destroy(&header_);
    }
}

// ---- the record ----

// The lists keep copies; an index at or past the count gives one shared
// static empty string, without a report.
TEST_F(HeaderSectionTest, ListsKeepCopiesIndexAtCountGivesTheStaticEmptyStringAndMisuseIsReported) {
    header_ = kxIfcHeader_new_empty_header();
    const kxWChar *empty = kxIfcHeader_get_author_field(header_, 0);
    EXPECT_EQ(text_of(empty), u"");
    const struct {
        void (*add)(kxIfcHeader *, const kxWChar *);
        const kxWChar *(*get)(const kxIfcHeader *, uint32_t);
    } lists[] = {{kxIfcHeader_add_to_author, kxIfcHeader_get_author_field},
                 {kxIfcHeader_add_to_organization, kxIfcHeader_get_organization_field},
                 {kxIfcHeader_add_to_authorization, kxIfcHeader_get_authorization_field},
                 {kxIfcHeader_add_to_description, kxIfcHeader_get_description_field}};
    for (const auto &list : lists) {
        char16_t item[] = u"Ann";
        list.add(header_, item);
        item[0] = u'X';
        EXPECT_EQ(text_of(list.get(header_, 0)), u"Ann");
        EXPECT_EQ(list.get(header_, 1), empty);
        EXPECT_EQ(list.get(header_, UINT32_MAX), empty);
    }

    // A built record takes its values over and may lack lists, which a
    // later addition makes.
    kx::header_destroy(&header_);
    kx::WideString name = kx::wstr_copy(u"f.ifc");
    const kxWChar *name_pointer = name;
    header_ = kx::header_new(nullptr, &name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(kxIfcHeader_get_file_name(header_), name_pointer);
    kxIfcHeader_add_to_author(header_, u"Ann");
    EXPECT_EQ(text_of(kxIfcHeader_get_description_data(header_, 0)), u"Ann");

    EnvGuard stamp("VELMTEST", "1");
    kxIfcHeader *lacking = kx::header_new(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    kxIfcHeader *none = nullptr;
    kx::header_destroy(&header_);
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_set_file_name(header_, u"keep.ifc");
    std::string section;
    expect_each_reported({
        {"", [&] { section = written(header_, u"m.ifc", ifc_version_not_defined); }},  // an undefined release
        {"(value_container) != NULL", [&] { EXPECT_EQ(kxIfcHeader_author_fields_count(lacking), 0u); }},
        {"(value_container) != NULL", [&] { EXPECT_EQ(text_of(kxIfcHeader_get_organization_field(lacking, 0)), u""); }},
        {"(ifc_version) != NULL", [&] { EXPECT_EQ(kxIfcHeader_read_ifc_version(u"x.ifc", nullptr), kxBFALSE); }},
        {"(file_name) != NULL", [&] { EXPECT_EQ(kxIfcHeader_read_from_file(nullptr), nullptr); }},
        {"(header) != NULL", [&] { EXPECT_FALSE(kx::header_read_section(u"x.ifc", nullptr)); }},
        {"(header) != NULL", [&] { kx::header_destroy(nullptr); }},
        {"(*header) != NULL", [&] { kx::header_destroy(&none); }},
        {"(ifc_header) != NULL", [&] { kxIfcHeader_add_to_description(nullptr, u"x"); }},
        {"(ifc_header) != NULL", [&] { kxIfcHeader_set_file_name(nullptr, u"x"); }},
        {"(ifc_header) != NULL", [&] { kxIfcHeader_add_to_author(nullptr, u"x"); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(kxIfcHeader_get_file_name(nullptr), nullptr); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(kxIfcHeader_author_fields_count(nullptr), 0u); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(text_of(kxIfcHeader_get_description_data(nullptr, 0)), u""); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(text_of(kxIfcHeader_get_authorization_field(nullptr, 0)), u""); }},
        {"(value) != NULL", [&] { kxIfcHeader_set_file_name(header_, nullptr); }},
        {"(value) != NULL", [&] { kxIfcHeader_add_to_author(header_, nullptr); }},
    });
    EXPECT_NE(section.find("ENDSEC;\n"), std::string::npos) << "the section is still complete";
    EXPECT_EQ(text_of(kxIfcHeader_get_file_name(header_)), u"keep.ifc");
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
    kx::header_destroy(&lacking);
}

using kxtest::is_time_stamp;
using kxtest::read_file;

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
