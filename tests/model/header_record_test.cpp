#include <cstdint>
#include <string>

#include "kxifc_header.h"
#include "model/header.h"
#include "support/memory.h"
#include "support/valuearray.h"
#include "support/wstring.h"
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

// ---- Empty record -----------------------------------------------------------

TEST_F(HeaderRecordTest, EmptyHeaderHasNoItemsAndEmptyStrings) {
    header_ = kxIfcHeader_new_empty_header();
    ASSERT_NE(header_, nullptr);
    EXPECT_EQ(kxIfcHeader_description_fields_count(header_), 0u);
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
    EXPECT_EQ(kxIfcHeader_organization_fields_count(header_), 0u);
    EXPECT_EQ(kxIfcHeader_authorization_fields_count(header_), 0u);
    for (const kxWChar *member :
         {kxIfcHeader_get_file_name(header_), kxIfcHeader_get_timestamp(header_),
          kxIfcHeader_get_originating_system(header_), kxIfcHeader_get_file_schema(header_)}) {
        ASSERT_NE(member, nullptr);
        EXPECT_EQ(text(member), u"");
    }
    // No member of an empty record is absent.
    EXPECT_NE(header_->description_data, nullptr);
    EXPECT_NE(header_->author_data, nullptr);
    EXPECT_NE(header_->organization_data, nullptr);
    EXPECT_NE(header_->authorization_data, nullptr);
}

TEST_F(HeaderRecordTest, IndexAtOrPastCountGivesTheSharedEmptyString) {
    header_ = kxIfcHeader_new_empty_header();
    const kxWChar *empty = kxIfcHeader_get_author_field(header_, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(text(empty), u"");
    kxIfcHeader_add_to_author(header_, u"Ann");
    kxIfcHeader_add_to_organization(header_, u"Org");
    kxIfcHeader_add_to_authorization(header_, u"Boss");
    kxIfcHeader_add_to_description(header_, u"ViewDefinition [CoordinationView]");
    // Index == count, and far past it: the same static string, no report.
    EXPECT_EQ(kxIfcHeader_get_author_field(header_, 1), empty);
    EXPECT_EQ(kxIfcHeader_get_organization_field(header_, 1), empty);
    EXPECT_EQ(kxIfcHeader_get_authorization_field(header_, 1), empty);
    EXPECT_EQ(kxIfcHeader_get_description_field(header_, 1), empty);
    EXPECT_EQ(kxIfcHeader_get_description_data(header_, 1), empty);
    EXPECT_EQ(kxIfcHeader_get_author_field(header_, UINT32_MAX), empty);
    EXPECT_TRUE(asserts().reports().empty());
}

// ---- Lists ------------------------------------------------------------------

TEST_F(HeaderRecordTest, ListsKeepCopiesInOrder) {
    header_ = kxIfcHeader_new_empty_header();
    char16_t author[] = u"Ann";
    kxIfcHeader_add_to_author(header_, author);
    kxIfcHeader_add_to_author(header_, u"Bob");
    kxIfcHeader_add_to_author(header_, u"");
    author[0] = u'X';  // the record holds its own copy
    ASSERT_EQ(kxIfcHeader_author_fields_count(header_), 3u);
    EXPECT_EQ(text(kxIfcHeader_get_author_field(header_, 0)), u"Ann");
    EXPECT_NE(kxIfcHeader_get_author_field(header_, 0), author);
    EXPECT_EQ(text(kxIfcHeader_get_author_field(header_, 1)), u"Bob");
    EXPECT_EQ(text(kxIfcHeader_get_author_field(header_, 2)), u"");

    kxIfcHeader_add_to_organization(header_, u"Acme \u00e9");
    kxIfcHeader_add_to_organization(header_, u"Beta");
    kxIfcHeader_add_to_authorization(header_, u"a");
    kxIfcHeader_add_to_description(header_, u"d1");
    kxIfcHeader_add_to_description(header_, u"d2");
    kxIfcHeader_add_to_description(header_, u"d3");
    EXPECT_EQ(kxIfcHeader_organization_fields_count(header_), 2u);
    EXPECT_EQ(text(kxIfcHeader_get_organization_field(header_, 0)), u"Acme \u00e9");
    EXPECT_EQ(text(kxIfcHeader_get_organization_field(header_, 1)), u"Beta");
    EXPECT_EQ(kxIfcHeader_authorization_fields_count(header_), 1u);
    EXPECT_EQ(text(kxIfcHeader_get_authorization_field(header_, 0)), u"a");
    EXPECT_EQ(kxIfcHeader_description_fields_count(header_), 3u);
    EXPECT_EQ(text(kxIfcHeader_get_description_field(header_, 2)), u"d3");
    // Each list only grew by its own items.
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 3u);
}

TEST_F(HeaderRecordTest, DescriptionDataGetterReadsTheAuthorList) {
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_add_to_author(header_, u"Ann");
    ASSERT_EQ(kxIfcHeader_description_fields_count(header_), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_description_data(header_, 0)), u"Ann");
    EXPECT_EQ(kxIfcHeader_get_description_data(header_, 0), kxIfcHeader_get_author_field(header_, 0));

    kxIfcHeader_add_to_description(header_, u"desc");
    EXPECT_EQ(text(kxIfcHeader_get_description_data(header_, 0)), u"Ann");
    EXPECT_EQ(text(kxIfcHeader_get_description_data(header_, 1)), u"");
    EXPECT_EQ(text(kxIfcHeader_get_description_field(header_, 0)), u"desc");
}

// ---- Single strings ---------------------------------------------------------

TEST_F(HeaderRecordTest, SetFileNameReplacesAndFreesTheOld) {
    header_ = kxIfcHeader_new_empty_header();
    const int64_t blocks_before = kx::mem_usage().live_blocks;
    kxIfcHeader_set_file_name(header_, u"first.ifc");
    const kxWChar *first = kxIfcHeader_get_file_name(header_);
    EXPECT_EQ(text(first), u"first.ifc");
    EXPECT_EQ(kx::mem_usage().live_blocks, blocks_before);  // the empty name went
    kxIfcHeader_set_file_name(header_, u"second.ifc");
    EXPECT_EQ(text(kxIfcHeader_get_file_name(header_)), u"second.ifc");
    EXPECT_EQ(kx::mem_usage().live_blocks, blocks_before);
    // Setting the record's own string again copies before freeing.
    kxIfcHeader_set_file_name(header_, kxIfcHeader_get_file_name(header_));
    EXPECT_EQ(text(kxIfcHeader_get_file_name(header_)), u"second.ifc");
    EXPECT_EQ(kx::mem_usage().live_blocks, blocks_before);
}

TEST_F(HeaderRecordTest, OtherSettersReplaceTheirMemberOnly) {
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_set_originating_system(header_, u"Tool 2.0");
    kxIfcHeader_set_time_stamp(header_, u"2024-01-02T03:04:05");
    kxIfcHeader_set_file_schema(header_, u"IFC4");
    kxIfcHeader_set_file_schema(header_, u"IFC2X3");
    EXPECT_EQ(text(kxIfcHeader_get_originating_system(header_)), u"Tool 2.0");
    EXPECT_EQ(text(kxIfcHeader_get_timestamp(header_)), u"2024-01-02T03:04:05");
    EXPECT_EQ(text(kxIfcHeader_get_file_schema(header_)), u"IFC2X3");
    EXPECT_EQ(text(kxIfcHeader_get_file_name(header_)), u"");
}

// ---- Internal record operations ---------------------------------------------

TEST_F(HeaderRecordTest, BuildingFromValuesTakesThemOver) {
    kx::WStrArray *description = kx::wstrarray_create(0);
    kx::wstrarray_append(description, u"desc");
    kx::WStrArray *authors = kx::wstrarray_create(0);
    kx::wstrarray_append(authors, u"Ann");
    kx::WStrArray *organizations = kx::wstrarray_create(0);
    kx::WStrArray *authorizations = kx::wstrarray_create(0);
    kx::wstrarray_append(authorizations, u"ok");
    kx::WideString name = kx::wstr_copy(u"f.ifc");
    kx::WideString stamp = kx::wstr_copy(u"now");
    kx::WideString system = kx::wstr_copy(u"sys");
    kx::WideString schema = kx::wstr_copy(u"IFC4");
    const kx::WideString name_pointer = name;

    header_ = kx::header_new(&description, &name, &stamp, &authors, &organizations, &system,
                             &authorizations, &schema);
    ASSERT_NE(header_, nullptr);
    EXPECT_EQ(description, nullptr);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(stamp, nullptr);
    EXPECT_EQ(authors, nullptr);
    EXPECT_EQ(organizations, nullptr);
    EXPECT_EQ(system, nullptr);
    EXPECT_EQ(authorizations, nullptr);
    EXPECT_EQ(schema, nullptr);

    EXPECT_EQ(kxIfcHeader_get_file_name(header_), name_pointer);  // not copied
    EXPECT_EQ(text(kxIfcHeader_get_description_field(header_, 0)), u"desc");
    EXPECT_EQ(text(kxIfcHeader_get_author_field(header_, 0)), u"Ann");
    EXPECT_EQ(kxIfcHeader_organization_fields_count(header_), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_authorization_field(header_, 0)), u"ok");
    EXPECT_EQ(text(kxIfcHeader_get_timestamp(header_)), u"now");
    EXPECT_EQ(text(kxIfcHeader_get_originating_system(header_)), u"sys");
    EXPECT_EQ(text(kxIfcHeader_get_file_schema(header_)), u"IFC4");

    kx::header_destroy(&header_);
    EXPECT_EQ(header_, nullptr);
}

TEST_F(HeaderRecordTest, AbsentMembersStayAbsent) {
    kx::WideString schema = kx::wstr_copy(u"IFC2X3");
    kx::WStrArray *authors = nullptr;
    header_ = kx::header_new(nullptr, nullptr, nullptr, &authors, nullptr, nullptr, nullptr, &schema);
    ASSERT_NE(header_, nullptr);
    EXPECT_EQ(text(kxIfcHeader_get_file_schema(header_)), u"IFC2X3");
    EXPECT_EQ(kxIfcHeader_get_file_name(header_), nullptr);
    EXPECT_EQ(kxIfcHeader_get_timestamp(header_), nullptr);
    EXPECT_EQ(kxIfcHeader_get_originating_system(header_), nullptr);
    EXPECT_EQ(header_->author_data, nullptr);
    EXPECT_TRUE(asserts().reports().empty());

    // Reading an absent list is reported and gives nothing.
    expect_reports();
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
    EXPECT_TRUE(asserts().saw("(value_container) != NULL"));
    asserts().clear();
    EXPECT_EQ(text(kxIfcHeader_get_organization_field(header_, 0)), u"");
    EXPECT_TRUE(asserts().saw("(value_container) != NULL"));
    asserts().clear();

    // Filling an absent member makes it.
    kxIfcHeader_add_to_author(header_, u"Ann");
    kxIfcHeader_set_file_name(header_, u"f.ifc");
    EXPECT_TRUE(asserts().reports().empty());
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 1u);
    EXPECT_EQ(text(kxIfcHeader_get_description_data(header_, 0)), u"Ann");
    EXPECT_EQ(text(kxIfcHeader_get_file_name(header_)), u"f.ifc");
}

TEST_F(HeaderRecordTest, InternalSettersTakeTheStringAndFreeTheOld) {
    header_ = kxIfcHeader_new_empty_header();
    const int64_t blocks_before = kx::mem_usage().live_blocks;
    kx::WideString stamp = kx::wstr_copy(u"2024-05-06T07:08:09");
    const kx::WideString stamp_pointer = stamp;
    kx::header_set_time_stamp(header_, &stamp);
    EXPECT_EQ(stamp, nullptr);
    EXPECT_EQ(kxIfcHeader_get_timestamp(header_), stamp_pointer);

    kx::WideString schema = kx::wstr_copy(u"FILE_SCHEMA(('IFC4'))");
    kx::header_set_file_schema(header_, &schema);
    EXPECT_EQ(schema, nullptr);
    EXPECT_EQ(text(kxIfcHeader_get_file_schema(header_)), u"FILE_SCHEMA(('IFC4'))");
    EXPECT_EQ(kx::mem_usage().live_blocks, blocks_before);  // both old strings freed
}

TEST_F(HeaderRecordTest, DestroyChecksItsHolder) {
    expect_reports();
    kx::header_destroy(nullptr);
    EXPECT_TRUE(asserts().saw("(header) != NULL"));
    kxIfcHeader *none = nullptr;
    kx::header_destroy(&none);
    EXPECT_TRUE(asserts().saw("(*header) != NULL"));
    EXPECT_EQ(asserts().reports().size(), 2u);
}

// ---- Faulty arguments -------------------------------------------------------

TEST_F(HeaderRecordTest, NullHeaderIsReportedByEveryOperation) {
    expect_reports();
    kxIfcHeader_add_to_description(nullptr, u"x");
    kxIfcHeader_set_file_name(nullptr, u"x");
    kxIfcHeader_add_to_author(nullptr, u"x");
    kxIfcHeader_add_to_organization(nullptr, u"x");
    kxIfcHeader_add_to_authorization(nullptr, u"x");
    kxIfcHeader_set_originating_system(nullptr, u"x");
    kxIfcHeader_set_time_stamp(nullptr, u"x");
    kxIfcHeader_set_file_schema(nullptr, u"x");
    EXPECT_EQ(text(kxIfcHeader_get_description_data(nullptr, 0)), u"");
    EXPECT_EQ(kxIfcHeader_description_fields_count(nullptr), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_description_field(nullptr, 0)), u"");
    EXPECT_EQ(kxIfcHeader_get_file_name(nullptr), nullptr);
    EXPECT_EQ(kxIfcHeader_get_timestamp(nullptr), nullptr);
    EXPECT_EQ(kxIfcHeader_get_originating_system(nullptr), nullptr);
    EXPECT_EQ(kxIfcHeader_get_file_schema(nullptr), nullptr);
    EXPECT_EQ(kxIfcHeader_author_fields_count(nullptr), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_author_field(nullptr, 0)), u"");
    EXPECT_EQ(kxIfcHeader_organization_fields_count(nullptr), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_organization_field(nullptr, 0)), u"");
    EXPECT_EQ(kxIfcHeader_authorization_fields_count(nullptr), 0u);
    EXPECT_EQ(text(kxIfcHeader_get_authorization_field(nullptr, 0)), u"");

    ASSERT_EQ(asserts().reports().size(), 21u);
    for (const kxtest::AssertReport &report : asserts().reports()) {
        EXPECT_EQ(report.condition, "(ifc_header) != NULL");
        EXPECT_EQ(report.source, "kxifcheader (KXIFCMODEL.DLL)");
    }
}

TEST_F(HeaderRecordTest, NullTextIsReportedAndChangesNothing) {
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_set_file_name(header_, u"keep.ifc");
    expect_reports();
    kxIfcHeader_set_file_name(header_, nullptr);
    kxIfcHeader_add_to_author(header_, nullptr);
    EXPECT_EQ(asserts().reports().size(), 2u);
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
    EXPECT_EQ(text(kxIfcHeader_get_file_name(header_)), u"keep.ifc");
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
}

}  // namespace
