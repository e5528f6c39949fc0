#include <cstdint>
#include <string>

#include "kxifc_header.h"
#include "model/header.h"
#include "support/memory.h"
#include "test_support.h"

namespace {

std::u16string text(const kxWChar *value) { return value != nullptr ? std::u16string(value) : u"<NULL>"; }

class HeaderRecordTest : public kxtest::LibraryTest {
protected:
    void TearDown() override {
        if (header_ != nullptr) kx::header_destroy(&header_);
        kxtest::LibraryTest::TearDown();
    }
    kxIfcHeader *header_ = nullptr;
};

TEST_F(HeaderRecordTest, ListsKeepCopiesAndIndexAtCountGivesTheStaticEmptyString) {
    header_ = kxIfcHeader_new_empty_header();
    const kxWChar *empty = kxIfcHeader_get_author_field(header_, 0);
    char16_t author[] = u"Ann";
    kxIfcHeader_add_to_author(header_, author);
    kxIfcHeader_add_to_author(header_, u"Bob");
    author[0] = u'X';
    kxIfcHeader_add_to_organization(header_, u"Acme");
    kxIfcHeader_add_to_authorization(header_, u"ok");
    kxIfcHeader_add_to_description(header_, u"desc");
    ASSERT_EQ(kxIfcHeader_author_fields_count(header_), 2u);
    EXPECT_EQ(text(kxIfcHeader_get_author_field(header_, 0)), u"Ann");
    EXPECT_EQ(text(kxIfcHeader_get_author_field(header_, 1)), u"Bob");
    EXPECT_EQ(text(kxIfcHeader_get_organization_field(header_, 0)), u"Acme");
    EXPECT_EQ(text(kxIfcHeader_get_authorization_field(header_, 0)), u"ok");
    EXPECT_EQ(text(kxIfcHeader_get_description_field(header_, 0)), u"desc");
    EXPECT_EQ(kxIfcHeader_organization_fields_count(header_), 1u);
    // At or past the count: one shared static string, nothing reported.
    EXPECT_EQ(text(empty), u"");
    EXPECT_EQ(kxIfcHeader_get_author_field(header_, 2), empty);
    EXPECT_EQ(kxIfcHeader_get_organization_field(header_, 1), empty);
    EXPECT_EQ(kxIfcHeader_get_authorization_field(header_, UINT32_MAX), empty);
    EXPECT_EQ(kxIfcHeader_get_description_field(header_, 1), empty);
}

TEST_F(HeaderRecordTest, BuiltRecordTakesValuesOverAndMayLackMembers) {
    kx::WideString name = kx::wstr_copy(u"f.ifc");
    const kxWChar *name_pointer = name;
    kx::WStrArray *authors = nullptr;
    header_ = kx::header_new(nullptr, &name, nullptr, &authors, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(kxIfcHeader_get_file_name(header_), name_pointer);
    EXPECT_EQ(kxIfcHeader_get_file_schema(header_), nullptr);

    expect_reports();
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_organization_field(header_, 0)), u"");
    EXPECT_EQ(asserts().reports().size(), 2u);
    EXPECT_TRUE(asserts().saw("(value_container) != NULL"));
    asserts().clear();
    kxIfcHeader_add_to_author(header_, u"Ann");  // the absent list is made
    EXPECT_TRUE(asserts().reports().empty());
    EXPECT_EQ(text(kxIfcHeader_get_description_data(header_, 0)), u"Ann");
    kx::header_destroy(&header_);
    EXPECT_EQ(header_, nullptr);
}

TEST_F(HeaderRecordTest, FaultyArgumentsAreReported) {
    expect_reports();
    kx::header_destroy(nullptr);
    EXPECT_TRUE(asserts().saw("(header) != NULL"));
    kx::header_destroy(&header_);
    EXPECT_TRUE(asserts().saw("(*header) != NULL"));
    asserts().clear();

    kxIfcHeader_add_to_description(nullptr, u"x");
    kxIfcHeader_set_file_name(nullptr, u"x");
    kxIfcHeader_add_to_author(nullptr, u"x");
    EXPECT_EQ(kxIfcHeader_get_file_name(nullptr), nullptr);
    EXPECT_EQ(kxIfcHeader_author_fields_count(nullptr), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_description_data(nullptr, 0)), u"");
    EXPECT_EQ(text(kxIfcHeader_get_authorization_field(nullptr, 0)), u"");
    ASSERT_EQ(asserts().reports().size(), 7u);
    for (const kxtest::AssertReport &report : asserts().reports()) {
        EXPECT_EQ(report.condition, "(ifc_header) != NULL");
        EXPECT_EQ(report.source, "kxifcheader (KXIFCMODEL.DLL)");
    }
    asserts().clear();

    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_set_file_name(header_, u"keep.ifc");
    kxIfcHeader_set_file_name(header_, nullptr);
    kxIfcHeader_add_to_author(header_, nullptr);
    EXPECT_EQ(asserts().reports().size(), 2u);
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
    EXPECT_EQ(text(kxIfcHeader_get_file_name(header_)), u"keep.ifc");
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
}

}  // namespace
