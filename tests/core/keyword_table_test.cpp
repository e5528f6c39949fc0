// The keyword tables: every type name of both releases and every named
// aggregate type, in name order ignoring case, with keyword ids and class
// descriptors. The expected keyword set is derived from the schema digest.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/class.h"
#include "core/typelibrary.h"
#include "kxifc_model.h"
#include "schema_digest.h"
#include "test_support.h"

namespace {

using kxtest::committed_digest;
using kxtest::narrow;

// Keyword of an aggregate type text ("LIST[1:?]/SET[2:2]/IfcX" gives
// "ListSetIfcX"), and of each nested level, unless its elements are a simple
// base type (those use the fixed names kxArrReal ... and no keyword).
void add_aggregate_keywords(const std::string &type_text, std::set<std::string> &keywords) {
    std::vector<std::string> parts = kxtest::digest_split(type_text, '/');
    const std::string element = parts.back();
    parts.pop_back();
    if (parts.empty() || !kxtest::simple_base(element).empty()) return;
    for (size_t level = 0; level < parts.size(); level++) {
        std::string keyword;
        for (size_t i = level; i < parts.size(); i++) {
            const std::string container = parts[i].substr(0, parts[i].find('['));
            keyword += container == "LIST" ? "List" : container == "ARRAY" ? "Arr" : "Set";  // SET and BAG
        }
        keywords.insert(keyword + element);
    }
}

class KeywordTableTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_TRUE(committed_digest().loaded) << "schema/ifc.digest not readable";
        kx::typelibrary_keyword_tables(&keywords_, &ids_, &classes_);
        ASSERT_NE(keywords_, nullptr);
        ASSERT_NE(ids_, nullptr);
        ASSERT_NE(classes_, nullptr);
        for (uint32_t i = 0; i < kx::wstrarray_count(keywords_); i++) index_[narrow(kx::wstrarray_get(keywords_, i))] = i;
    }
    void TearDown() override {
        kx::wstrarray_destroy(&keywords_);
        kx::ulongarray_destroy(&ids_);
        kx::ptrarray_destroy_const(&classes_);
        LibraryTest::TearDown();
    }
    const kxClass_t *class_at(uint32_t i) const { return static_cast<const kxClass_t *>(kx::ptrarray_get(classes_, i)); }

    kx::WStrArray *keywords_ = nullptr;
    kx::ULongArray *ids_ = nullptr;
    kx::PtrArray *classes_ = nullptr;
    std::map<std::string, uint32_t> index_;
};

TEST_F(KeywordTableTest, ThreeParallelArraysSortedWithoutCaseWithIdsEqualToIndex) {
    ASSERT_EQ(kx::wstrarray_count(keywords_), 1453u);
    ASSERT_EQ(kx::ulongarray_count(ids_), 1453u);
    ASSERT_EQ(kx::ptrarray_count(classes_), 1453u);
    EXPECT_EQ(index_.size(), 1453u) << "keywords are not unique";
    std::string previous;
    std::vector<int> class_seen(kx::g_num_classes, 0);
    uint32_t without_class = 0;
    for (uint32_t i = 0; i < 1453; i++) {
        const std::string keyword = narrow(kx::wstrarray_get(keywords_, i));
        EXPECT_EQ(kx::ulongarray_get(ids_, i), i);
        const std::string folded = kxtest::lower(keyword);
        if (i > 0) {
            EXPECT_LT(previous, folded) << "order at " << i << " (" << keyword << ")";
        }
        previous = folded;
        const kxClass_t *klass = class_at(i);
        if (klass == nullptr) {
            without_class++;
            continue;
        }
        EXPECT_EQ(narrow(klass->ifc_name), keyword);
        class_seen[klass->unique_class_id]++;
    }
    EXPECT_EQ(without_class, 493u);
    for (uint32_t id = 0; id < kx::g_num_classes; id++) EXPECT_EQ(class_seen[id], 1) << "class id " << id;
}

TEST_F(KeywordTableTest, KeywordsAreTheSchemasTypeNamesAndNamedAggregates) {
    const auto &digest = committed_digest();
    std::set<std::string> expected, with_class;
    for (const auto &entry : digest.entities) expected.insert(entry.first), with_class.insert(entry.first);
    for (const auto &entry : digest.selects) expected.insert(entry.first), with_class.insert(entry.first);
    for (const auto &entry : digest.enums) expected.insert(entry.first);
    for (const auto &entry : digest.types) expected.insert(entry.first);
    std::set<std::string> aggregates;
    for (const std::string &type_text : digest.attribute_types) add_aggregate_keywords(type_text, aggregates);
    for (const auto &[name, per_release] : digest.types)
        for (const auto &underlying : per_release)
            if (underlying && underlying->find('/') != std::string::npos) add_aggregate_keywords(*underlying, aggregates);
    EXPECT_EQ(aggregates.size(), 128u);
    EXPECT_EQ(aggregates.count("ListIfcNormalisedRatioMeasure"), 1u);
    expected.insert(aggregates.begin(), aggregates.end());

    std::set<std::string> actual;
    for (const auto &entry : index_) actual.insert(entry.first);
    EXPECT_EQ(actual, expected);
    for (const auto &[keyword, i] : index_)
        EXPECT_EQ(class_at(i) != nullptr, with_class.count(keyword) != 0) << keyword;
    for (const std::string &aggregate : aggregates)
        EXPECT_TRUE(aggregate.rfind("Arr", 0) == 0 || aggregate.rfind("List", 0) == 0 || aggregate.rfind("Set", 0) == 0)
            << aggregate;
}

TEST_F(KeywordTableTest, NullAddressesAreReported) {
    expect_reports();
    kx::WStrArray *keywords = nullptr;
    kx::ULongArray *ids = nullptr;
    kx::PtrArray *classes = nullptr;
    kx::typelibrary_keyword_tables(nullptr, &ids, &classes);
    EXPECT_TRUE(asserts().saw("(keywords) != NULL"));
    kx::typelibrary_keyword_tables(&keywords, nullptr, &classes);
    EXPECT_TRUE(asserts().saw("(unique_class_id) != NULL"));
    kx::typelibrary_keyword_tables(&keywords, &ids, nullptr);
    EXPECT_TRUE(asserts().saw("(entity_classes) != NULL"));
    EXPECT_EQ(asserts().reports().size(), 3u);
    // Nothing is built when an address is missing.
    EXPECT_EQ(keywords, nullptr);
    EXPECT_EQ(ids, nullptr);
    EXPECT_EQ(classes, nullptr);
}

}  // namespace
