// The HEADER section: written from a record (lists, encodings), read back
// from files (each entity optional, string lists in all their forms, the
// implementation level, malformed and truncated sections), and the release
// a file declares, also for the sample files.
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "model/header.h"
#include "model/headerio.h"
#include "support/memory.h"
#include "support/valuearray.h"
#include "support/writedata.h"
#include "support/wstring.h"
#include "kxifc_header.h"
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

}  // namespace
