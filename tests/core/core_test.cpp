// The class descriptors and the class list, checked class by class against
// the committed schema digest: identity, kind, abstract flags, existence and
// supertype chains per release, look-up by name, the keyword tables and
// class queries of models; then every enumeration (member numbering across
// both releases, names, literals, range checks and release membership) and
// every defined type's storage, also against the digest. Then the model:
// filters and visits, inverse queries, object tables, misuse, and the head of
// every instance. Then the six base types: their in-band undefined values,
// copies of strings and binaries, compressed GUIDs, and reading each base
// type from parser parameters; and the parameter list the parser builds for
// each instance line: walking it, running past its end, error marks, saved
// states for select alternatives, and unresolved references.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "core/coretypes.h"
#include "core/coretypes_io.h"
#include "core/guid.h"
#include "core/typelibrary.h"
#include "model/model.h"
#include "model/modelmngr.h"
#include "model/objtable.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "support/memory.h"
#include "support/parseparlist.h"
#include "support/rbtree.h"
#include "support/wstring.h"
#include "kxifc_coretypes.h"
#include "kxifc_header.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "schema_digest.h"
#include "test_support.h"

namespace {

using kxtest::committed_digest;
using kxtest::elements;
using kxtest::narrow;

class ClassRegistryTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_TRUE(committed_digest().loaded) << "schema/ifc.digest not readable";
        for (uint32_t i = 0; i < kx::g_num_classes; i++) by_name_[narrow(kx::g_classes[i]->ifc_name)] = kx::g_classes[i];
    }
    const kxClass_t *find(const std::string &name) const {
        auto found = by_name_.find(name);
        return found != by_name_.end() ? found->second : nullptr;
    }
    std::map<std::string, const kxClass_t *> by_name_;
};

// Ids index the descriptor table; the class list holds every class once in
// name order ignoring case; every name is found in any case.
TEST_F(ClassRegistryTest, IdsClassListLookUpAndPerReleaseFlagsAndAncestorsFollowTheSchema) {
    ASSERT_EQ(kx::g_num_classes, 960u);
    EXPECT_EQ(by_name_.size(), 960u) << "class names are not unique";
    for (uint32_t i = 0; i < kx::g_num_classes; i++) {
        const kxClass_t *klass = kx::g_classes[i];
        ASSERT_NE(klass, nullptr) << i;
        const std::string name = narrow(klass->ifc_name);
        EXPECT_EQ(klass->unique_class_id, i);
        EXPECT_EQ(kxClass_unique_id(klass), i);
        EXPECT_EQ(narrow(klass->type_name), "kx" + name);
        EXPECT_EQ(narrow(kxClass_ifc_name(klass)), name);
        for (const std::string &spelling : {name, kxtest::upper(name), kxtest::lower(name)})
            EXPECT_EQ(kxClass_find_by_name(kxtest::wide(spelling).c_str()), klass) << spelling;
    }
    // The exported accessor hands out the same descriptor.
    EXPECT_EQ(kxIfcWall_class(), find("IfcWall"));
    EXPECT_EQ(kxIfcActorSelect_class(), find("IfcActorSelect"));
    // Keywords that name no class, and names that are no keyword.
    for (const char16_t *name : {u"IfcLengthMeasure", u"IfcWallTypeEnum", u"SetIfcWorkTime", u"IfcWal", u"IfcWalls", u""})
        EXPECT_EQ(kxClass_find_by_name(name), nullptr) << kxtest::narrow(name);
    EXPECT_EQ(kxClass_find_by_name(nullptr), nullptr);

    kx::PtrArray *classes = kx::typelibrary_all_classes();
    ASSERT_EQ(kx::ptrarray_count(classes), 960u);
    std::vector<int> seen(960, 0);
    std::vector<std::string> names;
    for (uint32_t i = 0; i < kx::ptrarray_count(classes); i++) {
        const auto *klass = static_cast<const kxClass_t *>(kx::ptrarray_get(classes, i));
        ASSERT_LT(klass->unique_class_id, 960u);
        seen[klass->unique_class_id]++;
        names.push_back(narrow(klass->ifc_name));
        if (i > 0) {
            EXPECT_LT(kxtest::lower(names[i - 1]), kxtest::lower(names[i])) << "at " << i;
        }
    }
    EXPECT_EQ(seen, std::vector<int>(960, 1));
    EXPECT_EQ((std::vector<std::string>{names[0], names[1], names[958], names[959]}),
              (std::vector<std::string>{"Ifc2DCompositeCurve", "IfcActionRequest", "IfcZone", "IfcZShapeProfileDef"}));
    kx::ptrarray_destroy_const(&classes);
    EXPECT_EQ(classes, nullptr);
    // The entities and selects are exactly the schema's; per release each
    // exists, is abstract and has the supertype chain (root first) the schema
    // gives it.
    const auto &digest = committed_digest();
    std::set<std::string> entities, selects, digest_entities, digest_selects;
    for (const auto &[name, klass] : by_name_) {
        (klass->is_entity ? entities : selects).insert(name);
        EXPECT_EQ(kxClass_is_entity(klass), klass->is_entity ? kxBTRUE : kxBFALSE);
        EXPECT_NE(klass->func_new, nullptr) << name;
        EXPECT_EQ(klass->func_init_from_parse != nullptr, klass->is_entity) << name;
        EXPECT_EQ(klass->select == nullptr, klass->is_entity) << name;
        if (!klass->is_entity) {
            EXPECT_EQ(klass->func_process_inverse_relation, nullptr) << name;
        }
    }
    for (const auto &entry : digest.entities) digest_entities.insert(entry.first);
    for (const auto &entry : digest.selects) digest_selects.insert(entry.first);
    EXPECT_EQ(entities.size(), 890u);
    EXPECT_EQ(selects.size(), 70u);
    ASSERT_EQ(entities, digest_entities);
    ASSERT_EQ(selects, digest_selects);

    int abstract_somewhere = 0;
    size_t chains = 0;
    for (const auto &[name, entity] : digest.entities) {
        const kxClass_t *klass = find(name);
        for (int release = 0; release < kxtest::kReleases; release++) {
            SCOPED_TRACE(name + (release == 0 ? " in IFC2X3" : " in IFC4"));
            const kxIfcVersion_t version = static_cast<kxIfcVersion_t>(release);
            const kx::ClassRelease *data = klass->releases[release];
            EXPECT_EQ(data != nullptr, entity.exists[release]);
            EXPECT_EQ(kxClass_exists_in_version(klass, version) != 0, entity.exists[release]);
            const bool abstract = entity.exists[release] && entity.abstract[release];
            EXPECT_EQ(klass->is_abstract[release] != 0, abstract);
            EXPECT_EQ(kxClass_is_abstract(klass, version) != 0, abstract);
            if (data == nullptr) continue;
            EXPECT_EQ(data->version, static_cast<uint32_t>(release));
            std::vector<std::string> ancestors;
            for (uint32_t i = 0; i < data->num_ancestors; i++)
                ancestors.push_back(narrow(kx::g_classes[data->ancestors[i]]->ifc_name));
            EXPECT_EQ(ancestors, digest.chain(name, release));
            chains++;
        }
        for (uint32_t unused = kxtest::kReleases; unused < kx::KXCLASS_MAX_IFC_VERSIONS; unused++)
            EXPECT_EQ(klass->is_abstract[unused], 0) << name << " entry " << unused;
        if (entity.abstract[0] || entity.abstract[1]) abstract_somewhere++;
    }
    for (const auto &[name, members] : digest.selects) {
        const kxClass_t *klass = find(name);
        for (int release = 0; release < kxtest::kReleases; release++) {
            EXPECT_EQ(kxClass_exists_in_version(klass, static_cast<kxIfcVersion_t>(release)) != 0,
                      members[release].has_value())
                << name;
            EXPECT_EQ(klass->is_abstract[release], 0) << name;
        }
    }
    EXPECT_EQ(abstract_somewhere, 131);
    EXPECT_EQ(chains, 1429u);  // entities of IFC2X3 plus entities of IFC4
}

// Every class asked of a model of each release, in an order unrelated to
// class ids or names: the model builds exactly the concrete classes of that
// release, each instance is of kind of every ancestor of that release and of
// no other class outside its chain; then each class query gives exactly the
// instances whose class is that class or a subtype of it, oldest first.
TEST_F(ClassRegistryTest, ModelsBuildExactlyTheConcreteClassesOfTheirReleaseAndQueriesFindThem) {
    const auto &digest = committed_digest();
    const uint32_t n = kx::g_num_classes;
    for (int release = 0; release < kxtest::kReleases; release++) {
        SCOPED_TRACE(release == 0 ? "IFC2X3" : "IFC4");
        kxIfcModel *model = kxIfcModel_new();
        kxIfcModel_set_version(model, static_cast<kxIfcVersion_t>(release));
        struct Created {
            kxBaseObject *instance;
            std::set<std::string> kinds;  // the class and its supertypes
        };
        std::vector<Created> created;
        for (uint32_t i = 0; i < n; i++) {
            const kxClass_t *klass = kx::g_classes[(i * 397u + 11u) % n];
            const std::string name = narrow(klass->ifc_name);
            bool expected;
            if (klass->is_entity) {
                const auto &entity = digest.entities.at(name);
                expected = entity.exists[release] && !entity.abstract[release];
            } else {
                expected = digest.selects.at(name)[release].has_value();
            }
            kxBaseObject *instance = kxIfcModel_dontuse_new_object(model, klass);
            EXPECT_EQ(instance != nullptr, expected) << name;
            // The class itself makes an instance wherever it exists, abstract
            // or not.
            uint32_t counter = 0;
            kxBaseObject *raw = kx::class_new_instance(klass, static_cast<kxIfcVersion_t>(release), &counter,
                                                       model->model_manager);
            EXPECT_EQ(raw != nullptr, kxClass_exists_in_version(klass, static_cast<kxIfcVersion_t>(release)) != 0)
                << name;
            if (raw != nullptr) {
                EXPECT_EQ(raw->retain_count, 1u);
                EXPECT_EQ(counter, 1u);
                EXPECT_EQ(raw->object_class, klass);
                kx::baseobject_release(&raw);
            }
            if (instance == nullptr) continue;
            created.push_back({instance, {name}});
            EXPECT_EQ(instance->object_class, klass) << name;
            EXPECT_EQ(instance->ifc_version, release) << name;
            EXPECT_TRUE(kxBaseObject_dontuse_is_object_of_class(instance, klass)) << name;
            EXPECT_EQ(narrow(kxBaseObject_dontuse_get_ifc_class_name(instance)), name);
            if (!klass->is_entity) continue;
            std::set<std::string> &chain = created.back().kinds;
            for (const std::string &ancestor : digest.chain(name, release)) {
                chain.insert(ancestor);
                EXPECT_TRUE(kxBaseObject_dontuse_is_object_kind_of(instance, find(ancestor)))
                    << name << " of kind " << ancestor;
                EXPECT_EQ(kx::baseobject_cast(instance, find(ancestor)), instance);
            }
            // The parent of another release is not an ancestor here.
            const std::string other_parent = digest.entities.at(name).super[1 - release];
            if (!other_parent.empty() && chain.count(other_parent) == 0) {
                EXPECT_FALSE(kxBaseObject_dontuse_is_object_kind_of(instance, find(other_parent)))
                    << name << " not of kind " << other_parent;
                EXPECT_EQ(kx::baseobject_cast(instance, find(other_parent)), nullptr);
            }
        }
        ASSERT_EQ(kxIfcModel_count_objects(model), created.size());
        for (uint32_t i = 0; i < created.size(); i++)
            EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(created[i].instance), i + 1);
        for (uint32_t id = 0; id < n; id++) {
            const kxClass_t *klass = kx::g_classes[id];
            const std::string name = narrow(klass->ifc_name);
            std::vector<kxBaseObject *> expected;
            for (const Created &c : created)
                if (c.kinds.count(name) != 0) expected.push_back(c.instance);
            EXPECT_EQ(elements(kxIfcModel_dontuse_get_objects_by_class(model, klass)), expected) << name;
            EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model, klass),
                      expected.empty() ? nullptr : expected.front())
                << name;
        }
        kxIfcModel_free(&model);
        EXPECT_EQ(model, nullptr);
    }
}

// Descriptor checks report their conditions; the keyword tables are not
// built when an address is missing.
TEST_F(ClassRegistryTest, DescriptorChecksAndKeywordTablesReportTheirConditions) {
    const auto past_the_releases = static_cast<kxIfcVersion_t>(kx::KXCLASS_MAX_IFC_VERSIONS);
    kx::WStrArray *keywords = nullptr;
    kx::ULongArray *ids = nullptr;
    kx::PtrArray *classes = nullptr;
    expect_each_reported({
        {"ifc_version < (enum kxIfcVersion_t)KXCLASS_MAX_IFC_VERSIONS",
         [&] { EXPECT_EQ(kxClass_is_abstract(kxIfcRoot_class(), past_the_releases), kxBFALSE); }},
        {"(klass) != NULL", [] { kxClass_unique_id(nullptr); }},
        {"(klass2) != NULL", [] { kx::class_is_same(kxIfcWall_class(), nullptr); }},
        {"(klass->func_init_from_parse) != NULL",
         [] { kx::class_init_from_parse(kxIfcActorSelect_class(), nullptr, nullptr); }},
        {"(keywords) != NULL", [&] { kx::typelibrary_keyword_tables(nullptr, &ids, &classes); }},
        {"(unique_class_id) != NULL", [&] { kx::typelibrary_keyword_tables(&keywords, nullptr, &classes); }},
        {"(entity_classes) != NULL", [&] { kx::typelibrary_keyword_tables(&keywords, &ids, nullptr); }},
    });
    EXPECT_TRUE(keywords == nullptr && ids == nullptr && classes == nullptr);
    // The same-class and has-id operations compare ids.
    EXPECT_TRUE(kx::class_is_same(kxIfcWall_class(), kxIfcWall_class()));
    EXPECT_FALSE(kx::class_is_same(kxIfcWall_class(), kxIfcWallStandardCase_class()));
    EXPECT_TRUE(kx::class_has_id(kxIfcWall_class(), kxIfcWall_class()->unique_class_id));
}

// The keyword tables: every type name of both releases and every named
// aggregate type, in name order ignoring case, with keyword ids and class
// descriptors. The expected keyword set is derived from the schema digest.

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

using KeywordTableTest = kxtest::LibraryTest;

// Three parallel arrays, sorted without case, with ids equal to the index:
// the keywords are exactly the expected set, and the class column names the
// keyword's class for entities and selects (each class once), NULL else.
TEST_F(KeywordTableTest, KeywordsAreTheSchemasTypeNamesAndNamedAggregatesSortedWithTheirClasses) {
    const auto &digest = committed_digest();
    ASSERT_TRUE(digest.loaded) << "schema/ifc.digest not readable";
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
    for (const std::string &aggregate : aggregates)
        EXPECT_TRUE(aggregate.rfind("Arr", 0) == 0 || aggregate.rfind("List", 0) == 0 || aggregate.rfind("Set", 0) == 0)
            << aggregate;

    kx::WStrArray *keywords = nullptr;
    kx::ULongArray *ids = nullptr;
    kx::PtrArray *classes = nullptr;
    kx::typelibrary_keyword_tables(&keywords, &ids, &classes);
    ASSERT_EQ(kx::wstrarray_count(keywords), 1453u);
    ASSERT_EQ(kx::ulongarray_count(ids), 1453u);
    ASSERT_EQ(kx::ptrarray_count(classes), 1453u);
    std::set<std::string> actual;
    std::string previous;
    std::vector<int> class_seen(kx::g_num_classes, 0);
    uint32_t without_class = 0;
    for (uint32_t i = 0; i < 1453; i++) {
        const std::string keyword = narrow(kx::wstrarray_get(keywords, i));
        actual.insert(keyword);
        EXPECT_EQ(kx::ulongarray_get(ids, i), i);
        const std::string folded = kxtest::lower(keyword);
        if (i > 0) {
            EXPECT_LT(previous, folded) << "order at " << i << " (" << keyword << ")";
        }
        previous = folded;
        const auto *klass = static_cast<const kxClass_t *>(kx::ptrarray_get(classes, i));
        EXPECT_EQ(klass != nullptr, with_class.count(keyword) != 0) << keyword;
        if (klass == nullptr) {
            without_class++;
            continue;
        }
        EXPECT_EQ(narrow(klass->ifc_name), keyword);
        class_seen[klass->unique_class_id]++;
    }
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(without_class, 493u);
    for (uint32_t id = 0; id < kx::g_num_classes; id++) EXPECT_EQ(class_seen[id], 1) << "class id " << id;
    kx::wstrarray_destroy(&keywords);
    kx::ulongarray_destroy(&ids);
    kx::ptrarray_destroy_const(&classes);
}

const kx::EnumInfo *find_enum(const std::string &name) {
    for (uint32_t i = 0; i < kx::g_num_enums; i++)
        if (narrow(kx::g_enums[i].name) == name) return &kx::g_enums[i];
    return nullptr;
}

class EnumerationsTest : public kxtest::LibraryTest {};

// Every enumeration: members numbered from 1 in IFC2X3 order, then the
// members IFC4 adds in IFC4 order; membership per release as the schema says;
// text out of range.
TEST_F(EnumerationsTest, EveryEnumerationFollowsTheNumberingRule) {
    const auto &digest = committed_digest();
    ASSERT_TRUE(digest.loaded);
    ASSERT_EQ(kx::g_num_enums, digest.enums.size());
    EXPECT_EQ(kx::g_num_enums, 230u);
    uint32_t with_dropped_members = 0, with_added_members = 0;
    for (const auto &[name, per_release] : digest.enums) {
        SCOPED_TRACE(name);
        const kx::EnumInfo *info = find_enum(name);
        ASSERT_NE(info, nullptr);
        const std::vector<std::string> none;
        const std::vector<std::string> &in_2x3 = per_release[0] ? *per_release[0] : none;
        const std::vector<std::string> &in_4 = per_release[1] ? *per_release[1] : none;
        std::vector<std::string> expected = in_2x3;
        for (const std::string &member : in_4)
            if (std::find(expected.begin(), expected.end(), member) == expected.end()) expected.push_back(member);
        auto contains = [](const std::vector<std::string> &list, const std::string &member) {
            return std::find(list.begin(), list.end(), member) != list.end();
        };
        if (per_release[0] && per_release[1]) {
            if (expected.size() > in_2x3.size()) with_added_members++;
            if (expected.size() > in_4.size()) with_dropped_members++;
        }

        ASSERT_EQ(info->num_values, expected.size() + 1);
        EXPECT_EQ(narrow(info->type_name), "kx" + name);
        EXPECT_EQ(std::string(info->unit_label), kxtest::lower("kx" + name) + " (KXIFCMODEL.DLL)");
        EXPECT_EQ(narrow(info->names[0]), "UNDEFINED");
        EXPECT_EQ(narrow(info->literals[0]), ".KX_UNDEFINED.");
        EXPECT_EQ(info->releases[0], 0);
        EXPECT_FALSE(kx::enum_has_value(*info, 0));
        EXPECT_FALSE(kx::enum_has_value(*info, static_cast<int32_t>(info->num_values)));
        EXPECT_EQ(kx::enum_from_literal(*info, u".KX_UNDEFINED."), 0);
        EXPECT_EQ(kx::enum_from_literal(*info, nullptr), 0);
        // Outside the members or the releases nothing is a member.
        EXPECT_FALSE(kx::enum_is_member_of_release(*info, 0, KXIFCVERSION_IFC_4));
        EXPECT_FALSE(kx::enum_is_member_of_release(*info, static_cast<int32_t>(info->num_values), KXIFCVERSION_IFC_4));
        EXPECT_FALSE(kx::enum_is_member_of_release(*info, 1, 2));
        for (size_t i = 0; i < expected.size(); i++) {
            const int32_t value = static_cast<int32_t>(i + 1);
            const std::string &member = expected[i];
            EXPECT_EQ(narrow(info->names[value]), member);
            EXPECT_EQ(narrow(kx::enum_to_string(*info, value)), member);
            EXPECT_EQ(narrow(kx::enum_to_literal(*info, value)), "." + member + ".");
            EXPECT_TRUE(kx::enum_has_value(*info, value));
            EXPECT_EQ(kx::enum_from_literal(*info, kxtest::wide(std::string(".").append(kxtest::lower(member)).append(".")).c_str()), value);
            const bool member_2x3 = contains(in_2x3, member), member_4 = contains(in_4, member);
            EXPECT_EQ(info->releases[value], (member_2x3 ? kx::IN_IFC2X3 : 0) | (member_4 ? kx::IN_IFC4 : 0))
                << member;
            EXPECT_EQ(kx::enum_is_member_of_release(*info, value, KXIFCVERSION_IFC_2X3) != 0, member_2x3) << member;
            EXPECT_EQ(kx::enum_is_member_of_release(*info, value, KXIFCVERSION_IFC_4) != 0, member_4) << member;
        }
    }
    // Both directions of change occur in the schema, so both paths were checked.
    EXPECT_GT(with_added_members, 0u);
    EXPECT_GT(with_dropped_members, 0u);
    // Text out of range is a default branch that must not be reached:
    // reported with no condition.
    expect_each_reported({
        {"", [] { EXPECT_EQ(kxIfcWallTypeEnum_to_string(12), nullptr); }},
        {"", [] { EXPECT_EQ(kxIfcWallTypeEnum_to_string(-1), nullptr); }},
        {"", [] { EXPECT_EQ(kx::enum_to_literal(*find_enum("IfcWallTypeEnum"), 12), nullptr); }},
    });
}

// Defined types: each holds its value exactly as the base type its chain of
// definitions ends in, checked for every defined type against the digest.
// The storage kind of a type text in a release, following defined types
// down to an EXPRESS base type or an aggregate.
uint8_t expected_kind(const kxtest::Digest &digest, std::string type_text, int release) {
    for (int depth = 0; depth < 16; depth++) {
        if (type_text.find('/') != std::string::npos) return kx::SLOT_AGGREGATE;
        const std::string base = kxtest::simple_base(type_text);
        if (base == "REAL" || base == "NUMBER") return kx::SLOT_REAL;
        if (base == "INTEGER") return kx::SLOT_INTEGER;
        if (base == "STRING") return kx::SLOT_STRING;
        if (base == "BOOLEAN") return kx::SLOT_BOOLEAN;
        if (base == "LOGICAL") return kx::SLOT_LOGICAL;
        if (base == "BINARY") return kx::SLOT_BINARY;
        if (digest.enums.count(type_text) != 0) return kx::SLOT_ENUM;
        if (digest.entities.count(type_text) != 0) return kx::SLOT_ENTITY;
        if (digest.selects.count(type_text) != 0) return kx::SLOT_SELECT;
        const auto &definition = digest.types.at(type_text);
        type_text = definition[release] ? *definition[release] : *definition[1 - release];
    }
    ADD_FAILURE() << "type chain too deep at " << type_text;
    return 0xFF;
}

const kx::DefinedTypeInfo *find_defined_type(const std::string &name) {
    for (uint32_t i = 0; i < kx::g_num_defined_types; i++)
        if (narrow(kx::g_defined_types[i].name) == name) return &kx::g_defined_types[i];
    return nullptr;
}

// Every defined type of both releases: its storage is that of the base type
// its definition chain ends in, in each release where it is defined.
TEST_F(EnumerationsTest, EveryDefinedTypeIsStoredAsItsBaseType) {
    const auto &digest = committed_digest();
    ASSERT_TRUE(digest.loaded);
    ASSERT_EQ(kx::g_num_defined_types, digest.types.size());
    EXPECT_EQ(kx::g_num_defined_types, 135u);
    uint32_t per_kind[10] = {};
    for (const auto &[name, per_release] : digest.types) {
        SCOPED_TRACE(name);
        const kx::DefinedTypeInfo *info = find_defined_type(name);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(narrow(info->upper_name), kxtest::upper(name));
        EXPECT_EQ(info->releases, (per_release[0] ? kx::IN_IFC2X3 : 0) | (per_release[1] ? kx::IN_IFC4 : 0));
        for (int release = 0; release < kxtest::kReleases; release++) {
            if (!per_release[release]) continue;
            EXPECT_EQ(info->kind, expected_kind(digest, *per_release[release], release)) << "release " << release;
        }
        ASSERT_LT(info->kind, 10);
        per_kind[info->kind]++;
        if (info->kind != kx::SLOT_AGGREGATE) continue;
        // An aggregate type: container and element storage as defined.
        const std::string &text = per_release[1] ? *per_release[1] : *per_release[0];
        ASSERT_LT(info->type_ref, kx::g_num_aggregates);
        const kx::AggregateInfo &aggregate = kx::g_aggregates[info->type_ref];
        const std::string container = text.substr(0, text.find('['));
        EXPECT_EQ(aggregate.container, container == "LIST" ? 0 : container == "ARRAY" ? 2 : 1);
        const std::string element = text.substr(text.rfind('/') + 1);
        EXPECT_EQ(aggregate.element_kind, expected_kind(digest, element, per_release[1] ? 1 : 0));
    }
    EXPECT_EQ(per_kind[kx::SLOT_AGGREGATE], 5u);
    EXPECT_EQ(per_kind[kx::SLOT_ENUM] + per_kind[kx::SLOT_ENTITY] + per_kind[kx::SLOT_SELECT], 0u);
    EXPECT_GT(per_kind[kx::SLOT_REAL], 80u);
    EXPECT_EQ(find_defined_type("IfcPositiveLengthMeasure")->kind, kx::SLOT_REAL);
    EXPECT_EQ(find_defined_type("IfcLabel")->kind, kx::SLOT_STRING);
    EXPECT_EQ(find_defined_type("IfcPropertySetDefinitionSet")->kind, kx::SLOT_AGGREGATE);
}

using kxtest::append_reference;
using kxtest::set_reference;

using ModelTest = kxtest::ModelFixture;
using List = std::vector<kxBaseObject *>;

constexpr kxIfcVersion_t kReleases[] = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

int32_t filter_by_map(kxBaseObject *instance, void *filter_data) {
    const auto &answers = *static_cast<std::map<kxBaseObject *, int32_t> *>(filter_data);
    return answers.at(instance);
}

// The instances a visit offers; each call sets the stop flag to `stop`.
std::vector<kxBaseObject *> visit(kxIfcModel *model, int32_t stop) {
    struct Log {
        std::vector<kxBaseObject *> calls;
        int32_t stop;
    } log{{}, stop};
    kxIfcModel_dontuse_visit_model(model, &log, [](kxBaseObject *instance, void *data, int32_t *stop_flag) {
        static_cast<Log *>(data)->calls.push_back(instance);
        *stop_flag = static_cast<Log *>(data)->stop;
    });
    return log.calls;
}

TEST_F(ModelTest, FilterKeepsOnlyAnAnswerOfExactlyOneAndVisitsStopOnRequest) {
    model(KXIFCVERSION_IFC_4);
    std::map<kxBaseObject *, int32_t> answers;
    std::vector<kxBaseObject *> walls, kept;
    const int32_t replies[] = {1, 2, 0, -1, 1, 3};
    for (int32_t reply : replies) {
        kxBaseObject *wall = make(kxIfcWall_class());
        walls.push_back(wall);
        answers[wall] = reply;
        if (reply == 1) kept.push_back(wall);
    }
    make(kxIfcBeam_class());  // of another class: never offered to the filter
    EXPECT_EQ(elements(kxIfcModel_dontuse_get_filtered_objects_of_class(model_, kxIfcWall_class(), &filter_by_map,
                                                                         &answers)),
              kept);
    EXPECT_EQ(elements(kxIfcModel_dontuse_get_filtered_objects_of_class(model_, kxIfcWall_class(), nullptr,
                                                                         nullptr)),
              walls);

    // A visit stops on request; visited flags persist until cleared.
    model(KXIFCVERSION_IFC_2X3);
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcBeam_class());
    kxBaseObject *c = make(kxIfcPerson_class());
    EXPECT_EQ(visit(model_, 1), (List{a}));
    kxBaseObject_dontuse_mark_as_visited(c);
    EXPECT_EQ(visit(model_, 0), (List{b})) << "only what is not visited yet";
    EXPECT_TRUE(visit(model_, 0).empty());
    kxIfcModel_clear_objects_visited_mask(model_);
    EXPECT_EQ(visit(model_, 2), (List{a, b, c})) << "only exactly 1 stops";
}

// Inverse queries scan the referring class and its subclasses, in creation
// order, through single references and through aggregates, each referring
// instance once.
TEST_F(ModelTest, InverseRelationsFindReferringInstancesOrAnEmptyArray) {
    for (kxIfcVersion_t version : kReleases) {
        model(version);
        kxBaseObject *building = make(kxIfcBuilding_class());
        kxBaseObject *storey = make(kxIfcBuildingStorey_class());
        kxBaseObject *space = make(kxIfcSpace_class());
        // Created before the aggregation, so that creation order differs
        // from the order of the classes.
        kxBaseObject *nests = make(kxIfcRelNests_class());
        kxBaseObject *aggregates = make(kxIfcRelAggregates_class());
        kxBaseObject *other = make(kxIfcRelAggregates_class());
        set_reference(nests, u"RelatingObject", building);
        append_reference(nests, u"RelatedObjects", space);
        append_reference(nests, u"RelatedObjects", space);  // listed twice, found once
        set_reference(aggregates, u"RelatingObject", building);
        append_reference(aggregates, u"RelatedObjects", storey);
        set_reference(other, u"RelatingObject", storey);
        append_reference(other, u"RelatedObjects", space);

        const kxClass_t *decomposes = kxIfcRelDecomposes_class();
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(building, decomposes, u"RelatingObject")),
                  (List{nests, aggregates}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(building, kxIfcRelAggregates_class(), u"RelatingObject")),
                  (List{aggregates}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(space, decomposes, u"RelatedObjects")),
                  (List{nests, other}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(storey, decomposes, u"RelatedObjects")),
                  (List{aggregates}));

        const kxClass_t *containment = kxIfcRelContainedInSpatialStructure_class();
        for (kxArrayST *none : {kx::modelmngr_inverse_relation_of(space, decomposes, u"RelatingObject"),
                                kx::modelmngr_inverse_relation_of(building, containment, u"RelatingStructure")}) {
            ASSERT_NE(none, nullptr);
            EXPECT_EQ(kxArrayST_dontuse_count(none), 0u);
            kxArrayST_dontuse_free(&none, nullptr);
        }
    }
}

// One object table: a non-owning list of instances of a class and its kinds.
std::vector<kxBaseObject *> listed(const kxIfcObjTable_t *object_table) {
    kxArrayST *array = kxArrayST_dontuse_new(nullptr);
    kx::objtable_all(object_table, array);
    return kxtest::elements(array);
}

// A table takes instances of its class and its subtypes, keeps their order
// through removals, and reports another class or an unlisted instance.
TEST_F(ModelTest, ObjectTablesAddAndRemoveKeepTheOrderAndReportStrangers) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxBaseObject *c = make(kxIfcWallStandardCase_class());
    kxBaseObject *unlisted = make(kxIfcWall_class());
    kxBaseObject *beam = make(kxIfcBeam_class());
    kxIfcObjTable_t *walls = kx::objtable_new(kxIfcWall_class(), 0x10000);
    EXPECT_EQ(kx::objtable_first(walls), nullptr);
    for (kxBaseObject *o : {a, b, c}) kx::objtable_add(walls, o);
    EXPECT_EQ(listed(walls), (List{a, b, c}));
    kx::objtable_remove(walls, b);
    EXPECT_EQ(listed(walls), (List{a, c}));
    kx::objtable_remove(walls, a);
    EXPECT_EQ(listed(walls), (List{c}));
    expect_each_reported({
        {"idx != ULONG_MAX", [&] { kx::objtable_remove(walls, unlisted); }},
        {"kxBaseObject_is_kind_of(base_object, object_table->klass) == CIERTO", [&] { kx::objtable_add(walls, beam); }},
    });
    EXPECT_EQ(listed(walls), (List{c}));  // the beam was left out
    kx::objtable_free(&walls);
}

// Misuse is reported. Calls that would corrupt a model are refused and
// change nothing: a reference into another model, one aggregate given to two
// owners, a release changed under existing instances, ids run out.
TEST_F(ModelTest, MisuseIsReportedAndRefusedCallsChangeNothing) {
    kxIfcModel *unset = kxIfcModel_new();  // no release yet
    kxIfcModel *nothing = nullptr;
    const std::string path =
        dir().write("high.ifc", kxtest::step_file("#4294967294= IFCCARTESIANPOINT((0.,0.));\n"));
    kxIfcModel *high = kxIfcModel_read_from_step_file(kxtest::wide(path).c_str(), 0, nullptr);
    kxIfcModel *other = model(KXIFCVERSION_IFC_4);
    kxIfcModel *home = model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *foreign_placement = make(other, kxIfcLocalPlacement_class());
    kxListIfcCartesianPoint *foreign_points = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(foreign_points, make(other, kxIfcCartesianPoint_class()));
    kxBaseObject *polyline = make(kxIfcPolyline_class());
    kxListIfcCartesianPoint *points = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(points, make(kxIfcCartesianPoint_class()));
    kxIfcPolyline_set_Points(polyline, points);
    kxBaseObject *other_polyline = make(kxIfcPolyline_class());
    expect_each_reported({
        {"ifc_model->ifc_version != ifc_version_not_defined",
         [&] { EXPECT_EQ(kxIfcModel_dontuse_new_object(unset, kxIfcWall_class()), nullptr); }},
        {"(ifc_model) != NULL", [] { EXPECT_EQ(kxIfcModel_count_objects(nullptr), 0u); }},
        {"(*ifc_model) != NULL", [&] { kxIfcModel_free(&nothing); }},
        {"ifc_model1 != ifc_model2", [&] { kx::model_move_all_instances(home, home); }},
        {"ifc_model->output_id_counter < ULONG_MAX",
         [&] { EXPECT_EQ(kxIfcModel_dontuse_new_object(high, kxIfcCartesianPoint_class()), nullptr); }},
        {"the value belongs to the instance's model", [&] { kxIfcWall_set_ObjectPlacement(wall, foreign_placement); }},
        {"every instance of the aggregate belongs to the instance's model",
         [&] { kxIfcPolyline_set_Points(other_polyline, foreign_points); }},
        {"the aggregate is not held by another instance or aggregate",
         [&] { kxIfcPolyline_set_Points(other_polyline, points); }},
        {"kxIfcModel_count_objects(ifc_model) == 0", [&] { kxIfcModel_set_version(home, KXIFCVERSION_IFC_2X3); }},
    });
    EXPECT_EQ(kxIfcModel_count_objects(unset), 0u);
    EXPECT_EQ(kxIfcModel_count_objects(high), 1u);
    EXPECT_EQ(kxIfcModel_count_objects(home), 4u);
    EXPECT_EQ(kxIfcWall_get_ObjectPlacement(wall), nullptr);
    EXPECT_EQ(kxIfcPolyline_get_Points(other_polyline), nullptr);  // freeing the model frees the points once
    EXPECT_EQ(kxIfcModel_ifc_version(home), KXIFCVERSION_IFC_4);
    kxListIfcCartesianPoint_free(&foreign_points);
    kxIfcModel_free(&unset);
    kxIfcModel_free(&high);
}

// ---- the head of every instance ----

// rel1 relates the building to the storey, rel2 the storey to the space and
// the building; the wall is reached by nothing.
TEST_F(ModelTest, AnObjectBeingVisitedIsSkippedAndHeadsAreNumbered) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *building = make(kxIfcBuilding_class());
    kxBaseObject *storey = make(kxIfcBuildingStorey_class());
    kxBaseObject *space = make(kxIfcSpace_class());
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *rel1 = make(kxIfcRelAggregates_class());
    kxBaseObject *rel2 = make(kxIfcRelAggregates_class());
    set_reference(rel1, u"RelatingObject", building);
    append_reference(rel1, u"RelatedObjects", storey);
    set_reference(rel2, u"RelatingObject", storey);
    append_reference(rel2, u"RelatedObjects", space);
    append_reference(rel2, u"RelatedObjects", building);
    const auto visited = [&] {
        std::vector<bool> result;
        for (kxBaseObject *o : {building, storey, space, wall, rel1, rel2})
            result.push_back(kxBaseObject_dontuse_has_been_visited(o) == kxBTRUE);
        return result;
    };
    kxBaseObject_dontuse_mark_as_being_visited(storey);
    kx::baseobject_visit(storey, nullptr);
    EXPECT_EQ(visited(), (std::vector<bool>(6, false)));

    kx::baseobject_visit(rel2, nullptr);  // storey is skipped, the rest reached
    EXPECT_EQ(visited(), (std::vector<bool>{true, false, true, false, false, true}));
    EXPECT_EQ(kxBaseObject_dontuse_is_being_visited(storey), kxBTRUE);
    kxBaseObject_dontuse_clear_being_visited_flag(storey);

    kxBaseObject_dontuse_mark_as_visited(wall);
    EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(wall), kxBTRUE);
    kxBaseObject_dontuse_clear_visited_flag(wall);
    EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(wall), kxBFALSE);

    // A new head takes the next object id and no output id; a destroyed one is
    // marked, and any later use is reported. A NULL object is released quietly,
    // and its output id is all ones.
    kxBaseObject object{};
    uint32_t counter = 7;
    kx::baseobject_init(&object, KXIFCVERSION_IFC_4, &counter, model_->model_manager);
    EXPECT_EQ(object.object_id, 7u);
    EXPECT_EQ(counter, 8u);
    EXPECT_EQ(object.retain_count, 1u);
    EXPECT_EQ(object.output_file_id, 4294967295u);
    object.retain_count = 0;
    kx::baseobject_destroy(&object);
    EXPECT_EQ(object.validity_mask, 111111111u);
    kxBaseObject *nothing = nullptr;
    kx::baseobject_release(&nothing);
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(nullptr), 4294967295u);
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(building), 1u);
    expect_each_reported({
        {"base_object->validity_mask == i_VALIDITY_MASK_VALUE",
         [&] { EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(&object), kxBFALSE); }},
        {"(base_object) != NULL", [] { kx::baseobject_release(nullptr); }},
    });
}

class CoreTypesTest : public kxtest::LibraryTest {};

// Each undefined value is exact and the one value its test rejects; the
// values next to it, and UNKNOWN, are values. Strings and binaries copy.
TEST_F(CoreTypesTest, UndefinedValuesCopiesOfStringsAndBinariesAndMisuse) {
    EXPECT_EQ(kxIfcCoreTypes_boolean_undefined_value(), -1);
    EXPECT_EQ(kxIfcCoreTypes_integer_undefined_value(), 2147483647);
    EXPECT_EQ(std::bit_cast<uint64_t>(kxIfcCoreTypes_real_undefined_value()), 0x7FEFFFFFFFFFFFFFull);
    EXPECT_EQ(kxIfcCoreTypes_string_undefined_value(), nullptr);
    EXPECT_EQ(kxIfcCoreTypes_logical_undefined_value(), -2);
    EXPECT_EQ(kxIfcCoreTypes_binary_undefined_value().contents, nullptr);
    EXPECT_FALSE(kxIfcCoreTypes_boolean_has_value(kxIfcCoreTypes_boolean_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_integer_has_value(kxIfcCoreTypes_integer_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_real_has_value(kxIfcCoreTypes_real_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_string_has_value(kxIfcCoreTypes_string_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_logical_has_value(kxIfcCoreTypes_logical_undefined_value()));
    EXPECT_FALSE(kxIfcCoreTypes_binary_has_value(kxIfcCoreTypes_binary_undefined_value()));

    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(kxBFALSE));
    EXPECT_TRUE(kxIfcCoreTypes_integer_has_value(2147483646));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(std::bit_cast<double>(0x7FEFFFFFFFFFFFFEull)));
    EXPECT_TRUE(kxIfcCoreTypes_real_has_value(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_TRUE(kxIfcCoreTypes_string_has_value(u""));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(-1));
    char bit = '1';
    EXPECT_TRUE(kxIfcCoreTypes_binary_has_value(kxBinary{&bit, 1}));
    EXPECT_FALSE(kxIfcCoreTypes_binary_has_value(kxBinary{&bit, 0}));  // the count decides
    const char16_t original[] = u"Wall \u00e9";
    kxWChar *copy = kxIfcCoreTypes_copy_string(original);
    EXPECT_NE(copy, original);
    EXPECT_EQ(std::u16string(copy), original);
    kxIfcCoreTypes_free_string(&copy);
    EXPECT_EQ(copy, nullptr);
    kxIfcCoreTypes_free_string(&copy);    // already NULL: nothing happens
    kxIfcCoreTypes_free_string(nullptr);  // accepted silently

    EXPECT_EQ(kxIfcCoreTypes_make_binary_with_size(0).contents, nullptr);
    kxBinary bits = kxIfcCoreTypes_make_binary_with_size(5);
    EXPECT_EQ(std::string(bits.contents, 5), "00000");
    bits.contents[0] = '1';
    kxBinary binary_copy = kxIfcCoreTypes_copy_binary(bits);
    EXPECT_NE(binary_copy.contents, bits.contents);
    EXPECT_EQ(std::string(binary_copy.contents, binary_copy.num_bits), "10000");
    kxIfcCoreTypes_free_binary(&bits);
    EXPECT_EQ(bits.num_bits, 0u);
    kxIfcCoreTypes_free_binary(&bits);  // freeing an undefined binary is harmless
    kxIfcCoreTypes_free_binary(&binary_copy);
    char stray = '1';
    EXPECT_EQ(kxIfcCoreTypes_copy_binary(kxBinary{&stray, 0}).contents, nullptr);
    expect_reports();
    // Out-of-range booleans and logicals count as values, with a report.
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(2));
    EXPECT_TRUE(kxIfcCoreTypes_boolean_has_value(-2));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(-3));
    EXPECT_TRUE(kxIfcCoreTypes_logical_has_value(2));
    ASSERT_EQ(asserts().reports().size(), 4u);
    EXPECT_EQ(asserts().reports()[0].source, "kxifccoretypes (KXIFCMODEL.DLL)");
    EXPECT_EQ(kxIfcCoreTypes_copy_string(nullptr), nullptr);
    EXPECT_TRUE(reported("(value) != NULL"));
    kxIfcCoreTypes_free_binary(nullptr);
    EXPECT_TRUE(reported("(value) != NULL"));
}

std::string encode(const kx::Guid &guid) {
    char out[kx::kCompressedGuidBufferSize];
    std::memset(out, '#', sizeof out);
    EXPECT_TRUE(kx::guid_encode_compressed(guid, out, sizeof out));
    return std::string(out);
}

class GuidTest : public kxtest::LibraryTest {};

TEST_F(GuidTest, KnownVectorsBufferLimitsAndFreshGuids) {
    kx::Guid ones;
    std::memset(&ones, 0xFF, sizeof ones);
    EXPECT_EQ(encode(ones), "3" + std::string(21, '$'));
    EXPECT_EQ(encode(kx::Guid{0x00000001, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}}), "0000010000000000000000");
    EXPECT_EQ(encode(kx::Guid{0x12345678, 0x9ABC, 0xDEF0, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}}),
              "0ID5PuchpUy18qLdYQlDxm");

    char out[8] = {};
    EXPECT_TRUE(kx::guid_write_digits(64, 2, out));
    EXPECT_EQ(std::string(out, 2), "10");
    EXPECT_FALSE(kx::guid_write_digits(64 * 64, 2, out));
    EXPECT_FALSE(kx::guid_write_digits(0, 5, out));
    char small[kx::kCompressedGuidBufferSize - 1];
    EXPECT_FALSE(kx::guid_encode_compressed(ones, small, sizeof small));
    EXPECT_FALSE(kx::guid_encode_compressed(ones, nullptr, 23));
    // Generated GUIDs are random (version 4); compressed ones are 22 digits of
    // the alphabet and distinct.
    const std::string alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$";
    std::set<std::u16string> seen;
    for (int i = 0; i < 10000; ++i) {
        kx::Guid guid{};
        ASSERT_TRUE(kx::guid_generate(&guid));
        ASSERT_TRUE(!kx::guid_is_zero(guid) && guid.data3 >> 12 == 4 && guid.data4[0] >> 6 == 2);
        kxWChar *text = kxCreateCompressedGuidString_Create();
        const std::u16string compressed(text);
        kxIfcCoreTypes_free_string(&text);
        ASSERT_EQ(compressed.size(), 22u);
        ASSERT_NE(std::u16string(u"0123").find(compressed[0]), std::u16string::npos) << i;
        for (char16_t c : compressed) ASSERT_NE(alphabet.find(char(c)), std::string::npos);
        ASSERT_TRUE(seen.insert(compressed).second) << "repeated after " << i;
    }
}

// Reading the six base values from parser parameters: accepted forms,
// mismatches reported with the expected type's name, "$" and "*" giving the
// undefined value quietly, and the binary encodings.
using kxtest::text_of;

std::string bits_of(const kxBinary &value) {
    return value.contents == nullptr ? std::string() : std::string(value.contents, value.num_bits);
}

// A parameter list of an IFC4 line with no model behind it, freed in
// TearDown, and ways to fill and walk it.
class ParameterListTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        list = kxParseParList_new(KXIFCVERSION_IFC_4, nullptr, nullptr);
    }
    void TearDown() override {
        kxParseParList_free(&list);
        LibraryTest::TearDown();
    }
    // Empties the list and leaves it holding just the parameter.
    kxParserParam *put(kxParserParam parameter) {
        kxParseParList_clear(list);
        kxParseParList_append(list, parameter);
        return kxParseParList_get(list, 0);
    }
    void add_literal(const char16_t *text, uint32_t line = 1, uint32_t column = 1) {
        char16_t *copy = kx::wstr_copy(text);
        kxParseParList_append(list, kxParserParam_literal(&copy, line, column));
    }
    kxParserParam *next() {
        kxParserParam *parameter = nullptr;
        EXPECT_TRUE(kxParseParList_next(list, &parameter));
        return parameter;
    }

    kxParseParList *list = nullptr;
};
using CoreTypesReadTest = ParameterListTest;

// The mark left on a parameter: "<type>: <message>", or "".
std::u16string mark(const kxParserParam *parameter) {
    if (!parameter->has_error) return u"";
    return text_of(parameter->expected_type) + u": " + text_of(parameter->message);
}

// The parameter a case reads, and the base type it reads it as.
enum class Param { LITERAL, STRING, INTEGER, REAL, NUL, DERIVED };
enum class Type { BOOLEAN, LOGICAL, INTEGER, REAL, STRING, BINARY };

struct ReadCase {
    Type type;
    Param param;
    const char16_t *text;  // of a literal or string
    double number;         // of an integer or real
    bool read;
    const char *value;        // what was read, as text; "?" for the undefined value
    const char16_t *mismatch;  // the expected type a mismatch names, or ""
};

constexpr Type kBool = Type::BOOLEAN, kLogic = Type::LOGICAL, kInt = Type::INTEGER, kReal = Type::REAL,
               kStr = Type::STRING, kBin = Type::BINARY;
constexpr Param pLit = Param::LITERAL, pStr = Param::STRING, pInt = Param::INTEGER, pReal = Param::REAL,
                pNull = Param::NUL, pDerived = Param::DERIVED;

const ReadCase kReadCases[] = {
    // BOOLEAN in any case; unknown is a mismatch, another kind fails quietly.
    {kBool, pLit, u".t.", 0, true, "1", u""}, {kBool, pLit, u".TRUE.", 0, true, "1", u""},
    {kBool, pLit, u".F.", 0, true, "0", u""}, {kBool, pLit, u".False.", 0, true, "0", u""},
    {kBool, pLit, u".U.", 0, false, "?", u"kxBoolean"}, {kBool, pLit, u".UNKNOWN.", 0, false, "?", u"kxBoolean"},
    {kBool, pLit, u".ELEMENT.", 0, false, "?", u"kxBoolean"}, {kBool, pInt, nullptr, 1, false, "?", u""},
    {kBool, pStr, u".T.", 0, false, "?", u""}, {kBool, pNull, nullptr, 0, false, "?", u""},
    // LOGICAL takes unknown too.
    {kLogic, pLit, u".UNKNOWN.", 0, true, "-1", u""}, {kLogic, pLit, u".u.", 0, true, "-1", u""},
    {kLogic, pLit, u".T.", 0, true, "1", u""}, {kLogic, pLit, u".false.", 0, true, "0", u""},
    {kLogic, pLit, u".MAYBE.", 0, false, "?", u"kxLogical"}, {kLogic, pDerived, nullptr, 0, false, "?", u""},
    // INTEGER only from integers; REAL from integers too.
    {kInt, pInt, nullptr, -2147483648.0, true, "-2147483648", u""}, {kInt, pReal, nullptr, 3.0, false, "?", u"long"},
    {kInt, pNull, nullptr, 0, false, "?", u""}, {kReal, pInt, nullptr, 3, true, "3", u""},
    {kReal, pReal, nullptr, -0.25, true, "-0.25", u""}, {kReal, pStr, u"3.0", 0, false, "?", u"double"},
    {kReal, pDerived, nullptr, 0, false, "?", u""},
    // STRING; empty is a value.
    {kStr, pStr, u"Wall \u00e9", 0, true, "Wall \xc3\xa9", u""}, {kStr, pStr, u"", 0, true, "", u""},
    {kStr, pLit, u".T.", 0, false, "?", u"wchar_t"}, {kStr, pNull, nullptr, 0, false, "?", u""},
    // BINARY from the quoted hex form, whose leading digit counts the unused
    // high bits of the first hex digit, or from its bits. No digits: the
    // empty binary, which is the undefined value.
    {kBin, pLit, u"\"0F\"", 0, true, "1111", u""}, {kBin, pLit, u"\"2A5\"", 0, true, "100101", u""},
    {kBin, pLit, u"\"3fe\"", 0, true, "11110", u""}, {kBin, pLit, u"\"0C30\"", 0, true, "110000110000", u""},
    {kBin, pLit, u"\"0\"", 0, true, "?", u""}, {kBin, pLit, u"0110001", 0, true, "0110001", u""},
    {kBin, pLit, u"\"4F\"", 0, false, "?", u""}, {kBin, pLit, u"\"1\"", 0, false, "?", u""},
    {kBin, pLit, u"\"0G\"", 0, false, "?", u""}, {kBin, pLit, u"\"0F", 0, false, "?", u""},
    {kBin, pLit, u"\"\"", 0, false, "?", u""}, {kBin, pLit, u"01x1", 0, false, "?", u""},
    {kBin, pLit, u"", 0, false, "?", u""}, {kBin, pLit, u"\"0F\"x", 0, false, "?", u""},
    {kBin, pStr, u"0F", 0, false, "?", u"kxBinary"}, {kBin, pNull, nullptr, 0, false, "?", u""},
};

// ---- the forms that take the next parameter ----

// What the six forms that take the next parameter read, in one line
// ("?" for the undefined value).
std::string read_next_six(kxParseParList *list) {
    char16_t *text = nullptr;
    kxBoolean boolean = 5;
    kxLogical logical = 5;
    int32_t count = 5;
    double thickness = 5.0;
    kxBinary binary{nullptr, 3};
    std::ostringstream read;
    for (bool ok : {kx::coretype_read_next_string(list, u"Name", &text),
                    kx::coretype_read_next_boolean(list, u"IsExternal", &boolean),
                    kx::coretype_read_next_logical(list, u"Reversed", &logical),
                    kx::coretype_read_next_integer(list, u"Count", &count),
                    kx::coretype_read_next_real(list, u"Thickness", &thickness),
                    kx::coretype_read_next_binary(list, u"RasterCode", &binary)})
        read << (ok ? "+" : "-");
    const auto number = [](int32_t value, int32_t undefined) {
        return value != undefined ? std::to_string(value) : std::string("?");
    };
    read << " " << (text != nullptr ? kxtest::utf8(text) : "?") << " " << number(boolean, kx::kBooleanUndefined) << " "
         << number(logical, kx::kLogicalUndefined) << " " << number(count, kx::kIntegerUndefined) << " ";
    if (kx::real_is_undefined(thickness))
        read << "?";
    else
        read << thickness;
    read << " " << (binary.num_bits != 0 ? bits_of(binary) : "?");
    kxIfcCoreTypes_free_string(&text);
    kxIfcCoreTypes_free_binary(&binary);
    return read.str();
}

TEST_F(CoreTypesReadTest, NextFormsThenEachBaseTypeFromEachKindOfParameterAndMisuse) {
    char16_t *name = kx::wstr_copy(u"Slab");
    char16_t *flag = kx::wstr_copy(u".T.");
    char16_t *state = kx::wstr_copy(u".U.");
    char16_t *bits = kx::wstr_copy(u"\"1F\"");
    kxParseParList_append(list, kxParserParam_string(&name, 1, 1));
    kxParseParList_append(list, kxParserParam_literal(&flag, 1, 8));
    kxParseParList_append(list, kxParserParam_literal(&state, 1, 12));
    kxParseParList_append(list, kxParserParam_integer(4, 1, 16));
    kxParseParList_append(list, kxParserParam_real(0.5, 1, 18));
    kxParseParList_append(list, kxParserParam_literal(&bits, 1, 22));
    EXPECT_EQ(read_next_six(list), "++++++ Slab 1 -1 4 0.5 111");
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(read_next_six(list), "------ ? ? ? ? ? ?");
    EXPECT_TRUE(kxParseParList_has_errors(list));  // too few parameters
    // Every target starts out holding a value, so that a failed read must set
    // the undefined value.
    for (const ReadCase &c : kReadCases) {
        char16_t *text = c.text != nullptr ? kx::wstr_copy(c.text) : nullptr;  // taken over by the parameter
        kxParserParam *parameter = put(c.param == Param::LITERAL   ? kxParserParam_literal(&text, 2, 7)
                                       : c.param == Param::STRING  ? kxParserParam_string(&text, 2, 7)
                                       : c.param == Param::INTEGER ? kxParserParam_integer(int32_t(c.number), 2, 7)
                                       : c.param == Param::REAL    ? kxParserParam_real(c.number, 2, 7)
                                       : c.param == Param::NUL     ? kxParserParam_null(2, 7)
                                                                   : kxParserParam_derived(2, 7));
        bool read = false;
        std::string value = "?";
        const char16_t *attribute = nullptr;
        switch (c.type) {
        case Type::BOOLEAN: {
            kxBoolean target = 5;
            read = kx::coretype_read_boolean(list, parameter, attribute = u"IsExternal", &target);
            if (target != kx::kBooleanUndefined) value = std::to_string(target);
            break;
        }
        case Type::LOGICAL: {
            kxLogical target = 7;
            read = kx::coretype_read_logical(list, parameter, attribute = u"Reversed", &target);
            if (target != kx::kLogicalUndefined) value = std::to_string(target);
            break;
        }
        case Type::INTEGER: {
            int32_t target = 0;
            read = kx::coretype_read_integer(list, parameter, attribute = u"Level", &target);
            if (target != kx::kIntegerUndefined || read) value = std::to_string(target);
            break;
        }
        case Type::REAL: {
            double target = 1.0;
            read = kx::coretype_read_real(list, parameter, attribute = u"Radius", &target);
            if (!kx::real_is_undefined(target)) value = (std::ostringstream() << target).str();
            break;
        }
        case Type::STRING: {
            char16_t *target = nullptr;
            read = kx::coretype_read_string(list, parameter, attribute = u"Name", &target);
            if (target != nullptr) {
                value = kxtest::utf8(target);
                EXPECT_NE(target, kxParserParam_get_string(parameter)) << "a copy";
            }
            kxIfcCoreTypes_free_string(&target);
            break;
        }
        case Type::BINARY: {
            kxBinary target{nullptr, 3};
            read = kx::coretype_read_binary(list, parameter, attribute = u"RasterCode", &target);
            if (target.contents != nullptr) value = bits_of(target);
            EXPECT_EQ(target.num_bits, target.contents == nullptr ? 0u : value.size());
            kxIfcCoreTypes_free_binary(&target);
            break;
        }
        }
        const std::string where = std::to_string(&c - kReadCases);
        EXPECT_EQ(read, c.read) << "case " << where;
        EXPECT_EQ(value, c.value) << "case " << where;
        EXPECT_EQ(mark(parameter), *c.mismatch == 0 ? u"" : std::u16string(c.mismatch) + u": " + attribute)
            << "case " << where;
        EXPECT_EQ(kxParseParList_has_errors(list), *c.mismatch != 0) << "case " << where;
    }
    expect_reports();
    char16_t *held = kx::wstr_copy(u"old"), *text = kx::wstr_copy(u"new");
    char16_t *value = held;
    kxParserParam *parameter = put(kxParserParam_string(&text, 2, 7));
    EXPECT_TRUE(kx::coretype_read_string(list, parameter, u"Name", &value));
    EXPECT_TRUE(asserts().saw("*value == NULL"));
    EXPECT_EQ(text_of(value), u"new");
    kxIfcCoreTypes_free_string(&value);
    kxIfcCoreTypes_free_string(&held);

    EXPECT_FALSE(kx::coretype_read_string(list, parameter, u"Name", nullptr));
    EXPECT_TRUE(asserts().saw("(value) != NULL"));
}

// Stand-ins for instances: only their addresses are used.
kxBaseObject *fake_instance(int &storage) { return reinterpret_cast<kxBaseObject *>(&storage); }

// ---- walking the list ----

TEST_F(ParameterListTest, EveryKindComesBackInFileOrderAndBackStepsOntoTheLastTaken) {
    int wall = 0;
    char16_t *name = kx::wstr_copy(u"IFCLABEL"), *text = kx::wstr_copy(u"Wall 'A'");
    kxParseParList_append(list, kxParserParam_nested_begin(3, 10));
    kxParseParList_append(list, kxParserParam_null(3, 11));
    kxParseParList_append(list, kxParserParam_derived(3, 13));
    kxParseParList_append(list, kxParserParam_integer(-42, 3, 15));
    kxParseParList_append(list, kxParserParam_real(2.5, 3, 19));
    add_literal(u".NOTDEFINED.", 3, 23);
    kxParseParList_append(list, kxParserParam_reference(17, fake_instance(wall), 3, 36));
    kxParseParList_append(list, kxParserParam_typed_name(&name, 3, 40));
    EXPECT_EQ(name, nullptr);  // taken over
    kxParseParList_append(list, kxParserParam_string(&text, 1, 1));
    kxParseParList_append(list, kxParserParam_nested_end(4, 1));
    ASSERT_EQ(kxParseParList_count(list), 10u);

    kxParserParam *p = next();
    EXPECT_TRUE(kxParserParam_is_nested_begin(p) && p->line == 3u && p->column == 10u);
    EXPECT_TRUE(kxParserParam_is_null_or_derived(next()));
    EXPECT_TRUE(kxParserParam_is_null_or_derived(next()));
    p = next();
    EXPECT_TRUE(kxParserParam_is_integer(p));
    EXPECT_EQ(kxParserParam_get_integer(p), -42);
    p = next();
    EXPECT_TRUE(kxParserParam_is_real(p) && !kxParserParam_is_integer(p));
    EXPECT_EQ(kxParserParam_get_real(p), 2.5);
    EXPECT_EQ(text_of(kxParserParam_get_literal(next())), u".NOTDEFINED.");
    p = next();
    EXPECT_EQ(kxParserParam_get_instance(p), fake_instance(wall));
    EXPECT_EQ(p->value.reference.file_id, 17u);
    EXPECT_EQ(text_of(kxParserParam_get_typed_name(next())), u"IFCLABEL");
    p = next();
    EXPECT_TRUE(kxParserParam_is_string(p));
    EXPECT_EQ(text_of(kxParserParam_get_string(p)), u"Wall 'A'");
    EXPECT_TRUE(kxParseParList_has_more(list));
    p = next();
    EXPECT_TRUE(kxParserParam_is_nested_end(p));
    EXPECT_FALSE(kxParseParList_has_more(list));
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(kxParseParList_get(list, 9), p);
    kxParseParList_append(list, kxParserParam_integer(1, 1, 1));
    kxParseParList_append(list, kxParserParam_integer(2, 1, 3));
    kxParserParam *first = next();
    kxParseParList_back(list, first);
    EXPECT_EQ(next(), first);
    EXPECT_EQ(kxParserParam_get_integer(next()), 2);

    // Asking past the end flags too few parameters.
    EXPECT_FALSE(kxParseParList_next(list, &p));
    EXPECT_EQ(p, nullptr);
    EXPECT_TRUE(kxParseParList_has_errors(list));
}

TEST_F(ParameterListTest, MisuseIsReported) {
    kxParseParList_append(list, kxParserParam_integer(1, 1, 1));
    kxParseParList_append(list, kxParserParam_real(1.0, 1, 3));
    kxParserParam *first = nullptr, *second = nullptr;
    expect_each_reported({
        {"parameter_list->cursor > 0", [&] { kxParseParList_back(list, nullptr); }},  // nothing taken yet
        {"&parameter_list->parameters[parameter_list->cursor] == parameter",
         [&] {
             first = next();
             second = next();
             kxParseParList_back(list, first);  // the cursor stands on the second
         }},
        {"parameter->kind == i_TYPE_REAL", [&] { EXPECT_EQ(kxParserParam_get_real(first), 0.0); }},
        {"parameter->kind == i_TYPE_LITERAL", [&] { EXPECT_EQ(kxParserParam_get_literal(second), nullptr); }},
        {"index < parameter_list->count", [&] { EXPECT_EQ(kxParseParList_get(list, 2), nullptr); }},
        {"(parameter) != NULL", [] { EXPECT_FALSE(kxParserParam_is_integer(nullptr)); }},
        {"(parameter_list) != NULL", [] { EXPECT_EQ(kxParseParList_count(nullptr), 0u); }},
    });
}

// ---- nested begins and error marks ----

TEST_F(ParameterListTest, NestedBeginOrWhyNot) {
    kxParseParList_append(list, kxParserParam_nested_begin(1, 1));
    kxParseParList_append(list, kxParserParam_null(1, 2));
    kxParseParList_append(list, kxParserParam_derived(1, 4));
    kxParseParList_append(list, kxParserParam_integer(7, 1, 6));

    kxParserParam *parameter = nullptr;
    EXPECT_TRUE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", FALSO, &parameter));
    EXPECT_TRUE(kxParserParam_is_nested_begin(parameter));
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // "$" for an optional attribute: no list, no error.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_TRUE(kxParserParam_is_null_or_derived(parameter));
    EXPECT_EQ(mark(parameter), u"");
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // "*" where the attribute must be given.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxListIfcLengthMeasure", u"Coordinates", FALSO, &parameter));
    EXPECT_EQ(mark(parameter), u"kxListIfcLengthMeasure: Non optional Coordinates");
    EXPECT_TRUE(kxParseParList_has_errors(list));

    // Another kind of value is marked with the attribute's name, optional or not.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_EQ(mark(parameter), u"kxSetIfcLabel: Names");
    // Past the end: no list.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_EQ(parameter, nullptr);
}

TEST_F(ParameterListTest, MarkedTwiceKeepsTheFirstMarkAndAppendingAfterErrorsIsReported) {
    expect_reports();
    kxParseParList_append(list, kxParserParam_integer(7, 1, 1));
    kxParserParam *parameter = next();
    kxParseParList_mark_error(list, parameter, u"double", u"Radius");
    kxParseParList_mark_error(list, parameter, u"kxIfcLabel", u"Name");
    EXPECT_EQ(mark(parameter), u"double: Radius");
    EXPECT_TRUE(kxParseParList_has_errors(list));
    // Appending after errors, and after running past the end, is reported.
    kxParserParam *none = nullptr;
    kxParseParList_next(list, &none);
    add_literal(u".T.");  // appended all the same
    EXPECT_TRUE(asserts().saw("parameter_list->incorrect_number_of_parameters == FALSO"));
    EXPECT_TRUE(asserts().saw("parameter_list->there_are_incorrect_parameters == FALSO"));
    EXPECT_EQ(kxParseParList_count(list), 2u);
}

// ---- saved states ----

TEST_F(ParameterListTest, NestedSaveAndRestoreDropsTheLaterStates) {
    expect_reports();
    for (int32_t i = 0; i < 5; i++) kxParseParList_append(list, kxParserParam_integer(i, 1, 1));
    const uint32_t outer = kxParseParList_save_state(list);
    next();
    const uint32_t inner = kxParseParList_save_state(list);
    EXPECT_EQ(inner, outer + 1);
    kxParserParam *tried = next();
    kxParseParList_mark_error(list, tried, u"kxIfcLabel", u"Inner");

    kxParseParList_restore_state(list, inner);
    EXPECT_FALSE(tried->has_error);
    EXPECT_EQ(kxParserParam_get_integer(next()), 1);
    // The inner state is gone: a new save takes its place.
    EXPECT_EQ(kxParseParList_save_state(list), inner);
    kxParseParList_mark_error(list, next(), u"kxIfcText", u"Second try");

    kxParseParList_restore_state(list, outer);
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(kxParserParam_get_integer(next()), 0);
    EXPECT_EQ(kxParseParList_save_state(list), outer);
    kxParseParList_restore_state(list, outer);
    // Restoring drops the later states.
    EXPECT_EQ(kxParseParList_save_state(list), outer);
    EXPECT_EQ(kxParseParList_save_state(list), inner);
    kxParseParList_restore_state(list, outer);
    EXPECT_TRUE(asserts().reports().empty());
    kxParseParList_restore_state(list, inner);  // dropped with the outer one
    EXPECT_TRUE(asserts().saw("position < parameter_list->saved_count"));
}

// ---- references ----

TEST_F(ParameterListTest, UnresolvedReferencesPassWhenAllowedAndAreResolvedThroughTheIdTree) {
    int placement = 0;
    kxParseParList_set_allow_unresolved(list, CIERTO);
    kxParseParList_append(list, kxParserParam_reference(99, nullptr, 1, 1));
    kxParseParList_append(list, kxParserParam_reference(5, fake_instance(placement), 1, 5));
    kxParserParam *forward = next();
    kxParseParList_mark_error(list, forward, u"kxIfcObjectPlacement", u"ObjectPlacement");
    EXPECT_FALSE(forward->has_error);
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // A resolved reference of the wrong class is marked all the same.
    kxParserParam *resolved = next();
    kxParseParList_mark_error(list, resolved, u"kxIfcProductRepresentation", u"Representation");
    EXPECT_TRUE(resolved->has_error);
    EXPECT_TRUE(kxParseParList_has_errors(list));

    // When the list does not allow them, an unresolved reference is an error.
    kxParseParList_clear(list);
    kxParseParList_set_allow_unresolved(list, FALSO);
    kxParseParList_append(list, kxParserParam_reference(99, nullptr, 1, 1));
    forward = next();
    kxParseParList_mark_error(list, forward, u"kxIfcObjectPlacement", u"ObjectPlacement");
    EXPECT_TRUE(forward->has_error);
    EXPECT_TRUE(kxParseParList_has_errors(list));

    int wall = 0, storey = 0, other = 0;
    kx::IdTreeEntry entries[] = {{12, fake_instance(wall)}, {30, fake_instance(storey)}, {7, nullptr}};
    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
    for (kx::IdTreeEntry &entry : entries) kx::rbtree_insert(tree, &entry);

    kxParseParList_clear(list);
    kxParseParList_set_allow_unresolved(list, CIERTO);
    kxParseParList_append(list, kxParserParam_nested_begin(1, 1));
    kxParseParList_append(list, kxParserParam_reference(30, nullptr, 1, 2));
    kxParseParList_append(list, kxParserParam_reference(12, fake_instance(other), 1, 6));  // kept
    kxParseParList_append(list, kxParserParam_reference(44, nullptr, 1, 10));             // no such line
    kxParseParList_append(list, kxParserParam_integer(12, 1, 14));                       // not a reference
    kxParseParList_append(list, kxParserParam_reference(12, nullptr, 1, 17));
    kxParseParList_append(list, kxParserParam_nested_end(1, 20));

    kxParseParList_resolve_references(list, tree);
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 1)), fake_instance(storey));
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 2)), fake_instance(other));
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 3)), nullptr);
    EXPECT_EQ(kxParserParam_get_integer(kxParseParList_get(list, 4)), 12);
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 5)), fake_instance(wall));
    kx::rbtree_destroy(&tree);
}

}  // namespace
