// Select values: typed values read (and names that fit no member), an empty
// value written, and every exported member setter; then every exported
// inverse accessor. Both families are called through the built shared
// library. Then aggregates: instance aggregates hold one retain per
// occurrence, value aggregates own their strings and copies, nested lists own
// their inner lists, and aggregate defined types forward to their element
// aggregates; the exported entity accessors one rule at a time; and every
// concrete entity and select member of both releases through its accessors
// and back through an instance line.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "core/coretypes.h"
#include "schema/accessors.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "schema/select.h"
#include "step/scanner.h"
#include "support/parseparlist.h"
#include "support/wstring.h"
#include "kxifc_coretypes.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "shared_library.h"
#include "test_support.h"

namespace {

using kxtest::narrow;
using kxtest::wide;
using kxtest::written_line;

using SelectsTest = kxtest::ModelFixture;

kxBaseObject *create_for_list(void *model, const kxClass_t *klass) {
    return kxIfcModel_dontuse_new_object(static_cast<kxIfcModel *>(model), klass);
}

// A type name that is no member of the select: reported, the group skipped,
// the next attribute still read. (The round trip reads every member by its
// name.) An empty select value is written like an empty attribute.
TEST_F(SelectsTest, UnknownTypedValuesAreReportedAndEmptyValuesWrittenUnset) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *unknown = make(kxIfcPropertySingleValue_class());
    kxBaseObject *unit = make(kxIfcSIUnit_class());
    kxParseParList *list = kxParseParList_new(KXIFCVERSION_IFC_4, &create_for_list, model_);
    char16_t *name = kx::wstr_copy(u"Odd"), *type = kx::wstr_copy(u"IFCWALL");
    // 'Odd',$,IFCWALL(1.),#unit as the tokenizer gives them.
    for (const kxParserParam &parameter :
         {kxParserParam_string(&name, 1, 0), kxParserParam_null(1, 0), kxParserParam_typed_name(&type, 1, 0),
          kxParserParam_nested_begin(1, 0), kxParserParam_real(1.0, 1, 0), kxParserParam_nested_end(1, 0),
          kxParserParam_reference(unit->output_file_id, unit, 1, 0)})
        kxParseParList_append(list, parameter);
    kx::entity_init_from_parse(unknown, list);
    EXPECT_TRUE(kxParseParList_has_errors(list));
    EXPECT_EQ(narrow(kxParseParList_get(list, 2)->message), "Incorrect type, expected 'kxIfcValue'");
    kxParseParList_free(&list);
    EXPECT_EQ(kxIfcPropertySingleValue_get_NominalValue(unknown), nullptr);
    ASSERT_NE(kxIfcPropertySingleValue_get_Unit(unknown), nullptr);
    EXPECT_EQ(kxIfcUnit_get_kxIfcNamedUnit(kxIfcPropertySingleValue_get_Unit(unknown)), unit);

    kxBaseObject *empty = make(kxIfcPropertySingleValue_class());
    kxIfcPropertySingleValue_set_Name(empty, u"Height");
    kxIfcPropertySingleValue_set_NominalValue(empty, make(kxIfcValue_class()));
    EXPECT_EQ(written_line(empty), std::string("#") + id(empty) + "= IFCPROPERTYSINGLEVALUE('Height',$,$,$);\n");
}

// ---- every exported member and inverse accessor ----

struct MemberRow {
    std::string select, member, kind;
    uint32_t code;
    int releases;
};

struct InverseRow {
    std::string entity, name;
    std::string relating[2], attribute[2];  // "-" where the release has none
};

struct Manifest {
    std::vector<MemberRow> members;
    std::vector<InverseRow> inverses;
    std::map<std::pair<std::string, std::string>, std::vector<std::pair<int, std::string>>> attrs;  // releases, kind
};

Manifest read_manifest() {
    Manifest manifest;
    for (const std::vector<std::string> &fields : kxtest::accessor_manifest()) {
        if (fields[0] == "member" && fields.size() == 6)
            manifest.members.push_back({fields[1], fields[3], fields[4], static_cast<uint32_t>(std::stoul(fields[2])),
                                        std::stoi(fields[5])});
        else if (fields[0] == "inverse" && fields.size() == 7)
            manifest.inverses.push_back({fields[1], fields[2], {fields[3], fields[5]}, {fields[4], fields[6]}});
        else if (fields[0] == "attr" && fields.size() == 8)
            manifest.attrs[{fields[1], fields[2]}].push_back({std::stoi(fields[6]), fields[4]});
    }
    return manifest;
}

// Whether the exported getter gives back what the exported setter was given.
template <typename T>
bool sets_and_gets(void (*setter)(), void (*getter)(), kxBaseObject *select, T value) {
    reinterpret_cast<void (*)(kxBaseObject *, T)>(setter)(select, value);
    return reinterpret_cast<T (*)(const kxBaseObject *)>(getter)(select) == value;
}

// Through the built shared library: each member's exported setter stores its
// code and its getter gives the value back, for every member of every select
// in a release that has it; every exported inverse accessor, called on an
// instance of each release where its entity is concrete, answers with an
// empty array. (The model tests cover what inverse queries find.)
TEST(SharedLibraryExportsTest, EveryMemberSetterStoresItsCodeAndEveryInverseAnswers) {
    KX_REQUIRE_SHARED_LIBRARY();
    kxtest::SharedLibrary library;
    ASSERT_TRUE(library.open()) << dlerror();
    const Manifest manifest = read_manifest();
    ASSERT_GT(manifest.members.size(), 600u);
    const kxtest::SharedLibrary::Usage before = library.usage();

    kxIfcModel *models[2];
    for (uint32_t release = 0; release < 2; release++) {
        models[release] = library.model_new();
        library.set_version(models[release], static_cast<kxIfcVersion_t>(release));
    }
    char bits[] = {'1', '0'};
    uint32_t checked = 0, without_instances = 0;
    for (const MemberRow &row : manifest.members) {
        const std::string where = row.select + " member " + std::to_string(row.code) + " " + row.member;
        const uint32_t release = (row.releases & 2) != 0 ? 1 : 0;
        const std::string prefix = "kx" + row.select + "_";
        auto *get_type = library.function<uint32_t(const kxBaseObject *)>(prefix + "get_type");
        void (*setter)() = library.function<void()>(prefix + "set_kx" + row.member);
        void (*getter)() = library.function<void()>(prefix + "get_kx" + row.member);
        if (get_type == nullptr || setter == nullptr || getter == nullptr) {
            ADD_FAILURE() << where << ": accessor not exported";
            continue;
        }
        const kxClass_t *select_class = library.find_class(wide(row.select).c_str());
        ASSERT_NE(select_class, nullptr) << where;
        kxBaseObject *select = library.new_object(models[release], select_class);
        ASSERT_NE(select, nullptr) << where;

        bool gives_back = false;
        if (row.kind == "ENTITY") {
            const kxClass_t *member = kxClass_find_by_name(wide(row.member).c_str());
            const kxClass_t *concrete = kxtest::concrete_kind_of(member, release);
            if (concrete == nullptr) {
                without_instances++;
                continue;
            }
            gives_back = sets_and_gets(setter, getter, select,
                                       library.new_object(models[release], library.find_class(concrete->ifc_name)));
        } else if (row.kind == "REAL") {
            gives_back = sets_and_gets(setter, getter, select, 2.5);
        } else if (row.kind == "STRING") {
            reinterpret_cast<void (*)(kxBaseObject *, const kxWChar *)>(setter)(select, u"text");
            gives_back = narrow(reinterpret_cast<const kxWChar *(*)(const kxBaseObject *)>(getter)(select)) == "text";
        } else if (row.kind == "INTEGER" || row.kind == "BOOLEAN" || row.kind == "LOGICAL" || row.kind == "ENUM") {
            gives_back = sets_and_gets(setter, getter, select, int32_t{1});
        } else if (row.kind == "BINARY") {
            reinterpret_cast<void (*)(kxBaseObject *, kxBinary)>(setter)(select, kxBinary{bits, 2});
            const kxBinary back = reinterpret_cast<kxBinary (*)(const kxBaseObject *)>(getter)(select);
            gives_back = back.num_bits == 2 && back.contents != bits && back.contents[0] == '1' && back.contents[1] == '0';
        } else if (row.kind == "AGGREGATE") {
            auto *make = library.function<kxAggregate *()>("kx" + row.member + "_new");
            ASSERT_NE(make, nullptr) << where;
            gives_back = sets_and_gets(setter, getter, select, make());
        } else {
            ADD_FAILURE() << where << ": unknown kind " << row.kind;
        }
        EXPECT_EQ(get_type(select), row.code) << where;
        EXPECT_TRUE(gives_back) << where;
        checked++;
    }
    EXPECT_EQ(checked + without_instances, manifest.members.size());
    EXPECT_LT(without_instances, 10u);

    uint32_t calls = 0;
    std::set<std::string> missing;
    for (int release = 0; release < 2; release++) {
        const kxIfcVersion_t version = static_cast<kxIfcVersion_t>(release);
        std::map<std::string, kxBaseObject *> instances;
        for (const InverseRow &row : manifest.inverses) {
            const std::string symbol = "kx" + row.entity + "_inverse_relation_" + row.name;
            auto *inverse = library.function<kxArrayST *(const kxBaseObject *)>(symbol);
            if (inverse == nullptr) {
                missing.insert(symbol);
                continue;
            }
            auto found = instances.find(row.entity);
            if (found == instances.end()) {
                const kxClass_t *klass = library.find_class(wide(row.entity).c_str());
                kxBaseObject *instance = nullptr;
                if (klass != nullptr && library.exists_in(klass, version) && !library.is_abstract(klass, version))
                    instance = library.new_object(models[release], klass);
                found = instances.emplace(row.entity, instance).first;
            }
            if (found->second == nullptr) continue;
            kxArrayST *array = inverse(found->second);
            EXPECT_NE(array, nullptr) << symbol << " in release " << release;
            if (array == nullptr) continue;
            EXPECT_EQ(library.array_count(array), 0u) << symbol << ": nothing refers to the instance";
            library.array_free(&array, nullptr);
            calls++;
        }
    }
    for (kxIfcModel *&model : models) library.model_free(&model);
    EXPECT_TRUE(missing.empty()) << missing.size() << " not exported, first " << *missing.begin();
    // Most inverses belong to concrete entities of both releases.
    EXPECT_GT(calls, manifest.inverses.size());
    std::printf("inverse accessors: %zu exported, %u calls on concrete instances\n", manifest.inverses.size(), calls);

    library.expect_usage_back_at(before);
}

// The manifest names a forward reference for every inverse.
TEST(InverseRelationsExportsTest, ManifestNamesAForwardReferenceForEveryInverse) {
    const Manifest manifest = read_manifest();
    ASSERT_GT(manifest.inverses.size(), 7000u);
    for (const InverseRow &row : manifest.inverses) {
        bool any = false;
        for (int release = 0; release < 2; release++) {
            if (row.relating[release] == "-") {
                EXPECT_EQ(row.attribute[release], "-") << row.entity << "." << row.name;
                continue;
            }
            any = true;
            // The relating entity has the forward attribute in that release,
            // and it can hold a reference.
            bool found = false;
            const auto attrs = manifest.attrs.find({row.relating[release], row.attribute[release]});
            if (attrs != manifest.attrs.end())
                for (const auto &[releases, kind] : attrs->second)
                    if (((releases >> release) & 1) != 0)
                        found = kind == "ENTITY" || kind == "SELECT" || kind == "AGGREGATE";
            EXPECT_TRUE(found) << row.entity << "." << row.name << " -> " << row.relating[release] << "."
                               << row.attribute[release] << " in release " << release;
        }
        EXPECT_TRUE(any) << row.entity << "." << row.name << " exists in no release";
        // A suffix names the one release that differs.
        const bool v2x3 = row.name.size() > 5 && row.name.compare(row.name.size() - 5, 5, "_v2x3") == 0;
        const bool v4 = row.name.size() > 3 && row.name.compare(row.name.size() - 3, 3, "_v4") == 0;
        if (v2x3) {
            EXPECT_EQ(row.relating[1], "-") << row.entity << "." << row.name;
        }
        if (v4) {
            EXPECT_EQ(row.relating[0], "-") << row.entity << "." << row.name;
        }
    }
}

class AggregatesTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }
    static uint32_t retains(const kxBaseObject *instance) { return instance->retain_count; }
    using Texts = std::vector<std::string>;
    static Texts labels_of(const kxArrIfcLabel *labels) {
        Texts texts;
        for (uint32_t i = 0; i < kxArrIfcLabel_count(labels); i++)
            texts.push_back(narrow(kxtest::text_of(kxArrIfcLabel_get(labels, i)).c_str()));
        return texts;
    }
    static std::vector<double> reals_of(const kxArrReal *reals) {
        std::vector<double> values;
        for (uint32_t i = 0; i < kxArrReal_count(reals); i++) values.push_back(kxArrReal_get(reals, i));
        return values;
    }
};

TEST_F(AggregatesTest, InstanceAggregatesHoldOneRetainPerOccurrenceAndNestedListsOwnTheirInnerLists) {
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcSlab_class());
    const uint32_t a0 = retains(a), b0 = retains(b);

    kxSetIfcObjectDefinition *set = kxSetIfcObjectDefinition_new();
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(kxSetIfcObjectDefinition_count(set), 0u);
    kxSetIfcObjectDefinition_append_element(set, a);
    kxSetIfcObjectDefinition_append_element(set, b);
    kxSetIfcObjectDefinition_append_element(set, a);  // the same instance again: stored again
    EXPECT_EQ(kxSetIfcObjectDefinition_count(set), 3u);
    EXPECT_EQ(retains(a), a0 + 2);
    EXPECT_EQ(retains(b), b0 + 1);

    // Removal releases once and takes out only the first position.
    kxSetIfcObjectDefinition_remove_element(set, a);
    ASSERT_EQ(kxSetIfcObjectDefinition_count(set), 2u);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 0), b);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 1), a);
    EXPECT_EQ(retains(a), a0 + 1);
    EXPECT_EQ(retains(b), b0 + 1);

    // An instance that is not there: nothing happens.
    kxBaseObject *absent = make(kxIfcBeam_class());
    const uint32_t absent0 = retains(absent);
    kxSetIfcObjectDefinition_remove_element(set, absent);
    kxSetIfcObjectDefinition_delete_element(set, absent);
    EXPECT_EQ(kxSetIfcObjectDefinition_count(set), 2u);
    EXPECT_EQ(retains(absent), absent0);

    // The other name behaves alike.
    kxSetIfcObjectDefinition_delete_element(set, b);
    ASSERT_EQ(kxSetIfcObjectDefinition_count(set), 1u);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 0), a);
    EXPECT_EQ(retains(b), b0);

    kxSetIfcObjectDefinition_free(&set);
    EXPECT_EQ(set, nullptr);
    EXPECT_EQ(retains(a), a0);

    // Setting over an occupied position retains the new element and keeps the old retain.
    kxBaseObject *old_element = make(kxIfcCartesianPoint_class());
    kxBaseObject *new_element = make(kxIfcCartesianPoint_class());
    const uint32_t old0 = retains(old_element), new0 = retains(new_element);
    kxListIfcCartesianPoint *list = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(list, old_element);
    EXPECT_EQ(retains(old_element), old0 + 1);

    kxListIfcCartesianPoint_set_element(list, 0, new_element);
    EXPECT_EQ(kxListIfcCartesianPoint_count(list), 1u);
    EXPECT_EQ(kxListIfcCartesianPoint_get_element(list, 0), new_element);
    EXPECT_EQ(retains(new_element), new0 + 1);
    EXPECT_EQ(retains(old_element), old0 + 1) << "the replaced element is not released, by contract";

    // The caller owns that retain now: give it back so the model frees cleanly.
    kxBaseObject *held = old_element;
    kx::baseobject_release(&held);
    EXPECT_EQ(retains(old_element), old0);

    // Setting the element already there adds a retain as well.
    kxListIfcCartesianPoint_set_element(list, 0, new_element);
    EXPECT_EQ(retains(new_element), new0 + 2);
    held = new_element;
    kx::baseobject_release(&held);

    kxListIfcCartesianPoint_free(&list);
    EXPECT_EQ(retains(new_element), new0);

    kxBaseObject *p = make(kxIfcCartesianPoint_class());
    kxBaseObject *q = make(kxIfcCartesianPoint_class());
    const uint32_t p0 = retains(p), q0 = retains(q);

    kxListListIfcCartesianPoint *rows = kxListListIfcCartesianPoint_new();
    for (int row = 0; row < 2; row++) {
        kxListIfcCartesianPoint *inner = kxListIfcCartesianPoint_new();
        kxListIfcCartesianPoint_append_element(inner, p);
        kxListIfcCartesianPoint_append_element(inner, q);
        kxListListIfcCartesianPoint_append_element(rows, inner);
    }
    EXPECT_EQ(kxListListIfcCartesianPoint_count(rows), 2u);
    EXPECT_EQ(kxListIfcCartesianPoint_get_element(kxListListIfcCartesianPoint_get_element(rows, 1), 1), q);
    EXPECT_EQ(retains(p), p0 + 2);

    // Replacing an inner list frees the one it replaces.
    kxListIfcCartesianPoint *replacement = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(replacement, q);
    kxListListIfcCartesianPoint_set_element(rows, 0, replacement);
    EXPECT_EQ(kxListListIfcCartesianPoint_get_element(rows, 0), replacement);
    EXPECT_EQ(retains(p), p0 + 1);
    EXPECT_EQ(retains(q), q0 + 2);

    // Removing an inner list frees it.
    kxListListIfcCartesianPoint_remove_element(rows, 1);
    EXPECT_EQ(kxListListIfcCartesianPoint_count(rows), 1u);
    EXPECT_EQ(retains(p), p0);

    // Freeing the outer list frees every inner one and releases their elements.
    kxListListIfcCartesianPoint_free(&rows);
    EXPECT_EQ(rows, nullptr);
    EXPECT_EQ(retains(q), q0);

    // Nested lists of values likewise (the fixture checks the memory).
    kxListListIfcLengthMeasure *grid = kxListListIfcLengthMeasure_new();
    for (int row = 0; row < 3; row++) {
        kxArrIfcLengthMeasure *inner = kxArrIfcLengthMeasure_new();
        for (int column = 0; column < 4; column++) kxArrIfcLengthMeasure_add(inner, row * 10.0 + column);
        kxListListIfcLengthMeasure_append_element(grid, inner);
    }
    EXPECT_EQ(kxArrIfcLengthMeasure_get(kxListListIfcLengthMeasure_get_element(grid, 2), 3), 23.0);
    kxListListIfcLengthMeasure_free(&grid);
    EXPECT_EQ(grid, nullptr);
}

TEST_F(AggregatesTest, ValueAggregatesOwnTheirStringsAndCopiesAreIndependent) {
    char16_t text[] = u"first";
    kxArrIfcLabel *labels = kxArrIfcLabel_new();
    kxArrIfcLabel_add(labels, text);
    kxArrIfcLabel_add(labels, u"second");
    kxArrIfcLabel_add(labels, nullptr);  // an undefined label is kept as such
    text[0] = u'F';                      // the caller's text is not the stored one
    EXPECT_EQ(labels_of(labels), (Texts{"first", "second", "<null>"}));
    EXPECT_NE(kxArrIfcLabel_get(labels, 0), text);
    kxArrIfcLabel_set(labels, 1, text);
    text[0] = u'X';
    EXPECT_EQ(narrow(kxArrIfcLabel_get(labels, 1)), "First");
    // Setting an element to its own stored text keeps it intact.
    kxArrIfcLabel_set(labels, 1, kxArrIfcLabel_get(labels, 1));
    kxArrIfcLabel *copy = kxArrIfcLabel_copy(labels);
    EXPECT_EQ(labels_of(copy), (Texts{"first", "First", "<null>"}));
    EXPECT_NE(kxArrIfcLabel_get(copy, 0), kxArrIfcLabel_get(labels, 0));
    kxArrIfcLabel_set(copy, 0, u"changed");
    EXPECT_EQ(narrow(kxArrIfcLabel_get(labels, 0)), "first");
    kxArrIfcLabel_remove(labels, 0);
    EXPECT_EQ(labels_of(labels), (Texts{"First", "<null>"}));
    EXPECT_EQ(labels_of(copy), (Texts{"changed", "First", "<null>"}));
    kxArrIfcLabel_free(&labels);
    kxArrIfcLabel_free(&copy);
    EXPECT_EQ(labels, nullptr);

    // Copies of value aggregates are independent.
    kxArrReal *reals = kxArrReal_new();
    kxArrReal_add(reals, 1.5);
    kxArrReal_add(reals, -2.25);
    kxArrReal *real_copy = kxArrReal_copy(reals);
    kxArrReal_set(real_copy, 0, 9.0);
    kxArrReal_add(real_copy, 3.0);
    kxArrReal_remove(reals, 1);
    EXPECT_EQ(reals_of(reals), (std::vector<double>{1.5}));
    EXPECT_EQ(reals_of(real_copy), (std::vector<double>{9.0, -2.25, 3.0}));
    kxArrReal_free(&reals);
    kxArrReal_free(&real_copy);

    // Binary elements live in cells of their own, duplicated by a copy.
    char bits[] = "1011";
    kxArrBinary *binaries = kxArrBinary_new();
    kxArrBinary_add(binaries, kxBinary{bits, 4});
    bits[0] = '0';
    kxArrBinary *binary_copy = kxArrBinary_copy(binaries);
    const kxBinary original = kxArrBinary_get(binaries, 0), copied = kxArrBinary_get(binary_copy, 0);
    ASSERT_EQ(original.num_bits, 4u);
    ASSERT_EQ(copied.num_bits, 4u);
    EXPECT_EQ(std::string(original.contents, 4), "1011");
    EXPECT_NE(original.contents, copied.contents);
    EXPECT_NE(original.contents, bits);
    kxArrBinary_set(binary_copy, 0, kxBinary{bits, 2});
    EXPECT_EQ(std::string(kxArrBinary_get(binaries, 0).contents, 4), "1011");
    EXPECT_EQ(kxArrBinary_get(binary_copy, 0).num_bits, 2u);
    kxArrBinary_free(&binaries);
    kxArrBinary_free(&binary_copy);

    // A defined type over an integer list forwards to its elements.
    kxIfcArcIndex *arc = kxIfcArcIndex_new();
    for (int32_t index : {1, 2, 3}) kxIfcArcIndex_append_element(arc, index);
    kxIfcArcIndex_set_element(arc, 1, 7);
    kxIfcArcIndex_remove_element(arc, 0);
    EXPECT_EQ(kxIfcArcIndex_get_element(arc, 0), 7);
    kxIfcArcIndex_free(&arc);
}

// The exported entity accessors one rule at a time, told on a few classes:
// the ownership rules of the setters, how empty attributes are written, and
// calls on the wrong instance.
using kxtest::live_blocks;

class EntityAccessorsTest : public kxtest::ModelFixture {};

// The same value given again is kept; a new one is taken (retained or
// copied) before the old one is let go; NULL lets go.
TEST_F(EntityAccessorsTest, SettersTakeTheNewValueFirstAndEmptyAttributesAreWrittenDerivedOrUnset) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall = make(m, kxIfcWall_class());
    kxBaseObject *history = make(m, kxIfcOwnerHistory_class());
    kxBaseObject *other = make(m, kxIfcOwnerHistory_class());
    const uint32_t alone = history->retain_count;
    kxIfcWall_set_OwnerHistory(wall, history);
    kxIfcWall_set_OwnerHistory(wall, history);
    EXPECT_EQ(history->retain_count, alone + 1);
    kxIfcWall_set_OwnerHistory(wall, other);
    EXPECT_EQ(history->retain_count, alone);
    EXPECT_EQ(other->retain_count, alone + 1);
    kxIfcWall_set_OwnerHistory(wall, nullptr);
    EXPECT_EQ(other->retain_count, alone);

    const int64_t empty = live_blocks();
    char16_t name[] = u"Wall";
    kxIfcWall_set_Name(wall, name);
    name[0] = u'B';  // the caller's text is not shared
    kxIfcWall_set_Name(wall, kxIfcWall_get_Name(wall));
    EXPECT_EQ(narrow(kxIfcWall_get_Name(wall)), "Wall");
    EXPECT_EQ(live_blocks(), empty + 1);
    kxIfcWall_set_Name(wall, nullptr);
    EXPECT_EQ(kxIfcWall_Name_has_value(wall), kxBFALSE);
    EXPECT_EQ(live_blocks(), empty);

    // Empty mandatory values are written "*", empty optional ones and
    // references "$"; attributes a subtype redeclares as derived are "*".
    for (kxIfcVersion_t release : {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4}) {
        kxIfcModel *in_release = model(release);
        kxBaseObject *unset_wall = make(in_release, kxIfcWall_class());
        const std::string wall_tail = release == KXIFCVERSION_IFC_4 ? "$,$,$,$,$,$,$,$);\n" : "$,$,$,$,$,$,$);\n";
        EXPECT_EQ(written_line(unset_wall), std::string("#") + id(unset_wall) + "= IFCWALL(*," + wall_tail);
        kxBaseObject *sub = make(in_release, kxIfcGeometricRepresentationSubContext_class());
        kxBaseObject *context = make(in_release, kxIfcGeometricRepresentationContext_class());
        EXPECT_EQ(written_line(context), std::string("#") + id(context) + "= IFCGEOMETRICREPRESENTATIONCONTEXT($,$,*,$,$,$);\n");
        kxIfcGeometricRepresentationSubContext_set_ParentContext(sub, context);
        EXPECT_EQ(written_line(sub),
                  std::string("#") + id(sub) + "= IFCGEOMETRICREPRESENTATIONSUBCONTEXT($,$,*,*,*,*,#" + id(context) + ",$,*,$);\n");
    }
}

// ---- calls on the wrong instance ----

// An accessor called on an instance of an unrelated class, on NULL, or on
// an instance of an unknown release is reported, gives the undefined value
// and stores nothing; so are calls on a missing aggregate or with an index
// out of range.
TEST_F(EntityAccessorsTest, MisuseIsReportedAndChangesNothing) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *point = make(m, kxIfcCartesianPoint_class());
    kxBaseObject *wall = make(m, kxIfcWall_class());
    kxSetIfcObjectDefinition *empty = nullptr;
    kxArrReal *reals = kxArrReal_new();
    kxArrReal_add(reals, 1.0);
    const std::vector<char> before(reinterpret_cast<char *>(point),
                                   reinterpret_cast<char *>(point) + point->object_class->record_size);
    const std::string unrelated = "kxBaseObject_dontuse_is_object_kind_of(instance, klass) == kxBTRUE";
    wall->ifc_version = 7;
    expect_each_reported({
        {unrelated, [&] { EXPECT_EQ(kxIfcWall_get_Name(point), nullptr); }},
        {unrelated, [&] { EXPECT_EQ(kxIfcWall_Name_has_value(point), kxBFALSE); }},
        {unrelated, [&] { kxIfcWall_set_Name(point, u"not a wall"); }},
        {unrelated, [&] { kxIfcWall_set_OwnerHistory(point, point); }},
        {unrelated, [&] { EXPECT_EQ(kxIfcWall_get_PredefinedType_v4(point), 0); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_get_Name(nullptr), nullptr); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_Name_has_value(nullptr), kxBFALSE); }},
        {"(instance) != NULL", [] { kxIfcWall_set_Name(nullptr, u"x"); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_get_OwnerHistory(nullptr), nullptr); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcRelAggregates_get_RelatedObjects_v4(nullptr), nullptr); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_inverse_relation_ContainedInStructure(nullptr), nullptr); }},
        {"", [&] { kxIfcWall_set_Name(wall, u"x"); }},
        {"", [&] { EXPECT_EQ(kxIfcWall_get_Name(wall), nullptr); }},
        {"", [&] { EXPECT_EQ(kxIfcWall_inverse_relation_ContainedInStructure(wall), nullptr); }},
        {"(array_of_elements) != NULL", [] { EXPECT_EQ(kxSetIfcObjectDefinition_count(nullptr), 0u); }},
        {"(*array_of_elements) != NULL", [&] { kxSetIfcObjectDefinition_free(&empty); }},
        {"(array_of_elements) != NULL", [] { kxIfcComplexNumber_append_element(nullptr, 1.0); }},
        {"index < array_of_elements->count",
         [&] { EXPECT_FALSE(kxIfcCoreTypes_real_has_value(kxArrReal_get(reals, 5))); }},
        {"index < array_of_elements->count", [&] { kxArrReal_set(reals, 5, 2.0); }},  // nothing stored
        {"index < array_of_elements->count", [&] { kxArrReal_remove(reals, 5); }},
    });
    EXPECT_EQ(std::memcmp(before.data(), point, before.size()), 0) << "the point changed";
    wall->ifc_version = KXIFCVERSION_IFC_4;
    EXPECT_EQ(kxIfcWall_Name_has_value(wall), kxBFALSE);
    EXPECT_EQ(kxArrReal_count(reals), 1u);
    EXPECT_EQ(kxArrReal_get(reals, 0), 1.0);
    kxArrReal_free(&reals);
}

// Every concrete entity of both releases, through its exported accessors and
// back through an instance line. Each attribute is set to a sample of its
// storage kind through the exported setter and read back through the
// exported getter; the instance is written with the entity writer, the line
// is cut into a parameter list by the reader's scanner and read into a fresh
// instance of the same class, which must be written the same way. Each
// release's model is then exported, read back by the STEP reader without a
// fault and exported again: the two files must be the same. The accessors of
// the other release must leave the instance alone.
using namespace kx;

struct AccessorRow {
    const char16_t *entity;
    const char16_t *attribute;
    const char16_t *suffix;
    int kind;
    int slot;
    int releases;
    void (*has_value)();
    void (*get)();
    void (*set)();
};

const AccessorRow kAccessors[] = {
#include "manifest/accessor_table.inc"
};

// The exported signatures by storage kind (every entity, select and
// aggregate handle is a kxBaseObject or a kxAggregate).
using HasValueFn = kxBool (*)(const kxBaseObject *);
template <typename T>
using GetFn = T (*)(const kxBaseObject *);
template <typename T>
using SetFn = void (*)(kxBaseObject *, T);

template <typename T>
T get(const AccessorRow &row, const kxBaseObject *instance) {
    return reinterpret_cast<GetFn<T>>(row.get)(instance);
}
template <typename T>
void set(const AccessorRow &row, kxBaseObject *instance, T value) {
    reinterpret_cast<SetFn<T>>(row.set)(instance, value);
}
kxBool has_value(const AccessorRow &row, const kxBaseObject *instance) {
    return reinterpret_cast<HasValueFn>(row.has_value)(instance);
}

// The samples, one per storage kind (aggregates take a second value too).
const char16_t kText[] = u"It's a \\ test \u00e9";
const char16_t kText2[] = u"second";
char g_bits101[] = {'1', '0', '1'};
char g_bits1[] = {'1'};
const kxBinary kBinary{g_bits101, 3};
const kxBinary kBinary2{g_bits1, 1};
constexpr double kReal = 2.5, kReal2 = -1.25;
constexpr int32_t kInteger = 7, kInteger2 = -3;
constexpr int32_t kBoolean = 1, kBoolean2 = 0;
constexpr int32_t kLogical = -1, kLogical2 = 1;

// Collects what went wrong, so that a fault shared by many classes gives one
// readable failure rather than thousands.
struct Problems {
    std::vector<std::string> items;
    void add(const std::string &what) { items.push_back(what); }
    std::string summary() const {
        std::string text = std::to_string(items.size()) + " problems:\n";
        for (size_t i = 0; i < items.size() && i < 40; i++) text += "  " + items[i] + "\n";
        return text;
    }
};

// One model of one release, the sample values made in it, and the instances
// by output id for resolving references.
class Population {
public:
    Population(uint32_t release, Problems &problems) : release_(release), problems_(problems) {
        model_ = kxIfcModel_new();
        kxIfcModel_set_version(model_, static_cast<kxIfcVersion_t>(release));
    }
    ~Population() { kxIfcModel_free(&model_); }

    uint32_t release() const { return release_; }
    kxIfcModel *model() const { return model_; }
    uint8_t release_bit() const { return static_cast<uint8_t>(1u << release_); }

    kxBaseObject *create(const kxClass_t *klass) {
        kxBaseObject *instance = kxIfcModel_dontuse_new_object(model_, klass);
        if (instance != nullptr) by_output_id_[instance->output_file_id] = instance;
        return instance;
    }
    static kxBaseObject *create_for_list(void *context, const kxClass_t *klass) {
        return static_cast<Population *>(context)->create(klass);
    }
    kxBaseObject *find(uint32_t output_id) const {
        const auto found = by_output_id_.find(output_id);
        return found != by_output_id_.end() ? found->second : nullptr;
    }

    // A shared instance of a concrete class that is kind of the class in
    // this release (the class itself first), or NULL when there is none.
    kxBaseObject *instance_of(uint32_t class_id) {
        const auto cached = instances_.find(class_id);
        if (cached != instances_.end()) return cached->second;
        const kxClass_t *concrete = kxtest::concrete_kind_of(g_classes[class_id], release_);
        kxBaseObject *instance = concrete != nullptr ? create(concrete) : nullptr;
        if (instance != nullptr && !baseobject_is_kind_of(instance, g_classes[class_id]))
            problems_.add("sample of " + narrow(g_classes[class_id]->ifc_name) + " is not kind of it");
        instances_[class_id] = instance;
        return instance;
    }

    // The first (which 0) or second (which 1) member of the enumeration
    // valid in this release; the first again when there is no second.
    int32_t enum_member(uint32_t enum_index, int which) const {
        const EnumInfo &info = g_enums[enum_index];
        int32_t first = 0;
        for (uint32_t value = 1; value < info.num_values; value++) {
            if ((info.releases[value] & release_bit()) == 0) continue;
            if (first == 0) {
                first = static_cast<int32_t>(value);
                if (which == 0) return first;
            } else {
                return static_cast<int32_t>(value);
            }
        }
        return first;
    }

    // A new select value holding the first member of this release that can
    // be given a value (or exactly the member `only`); NULL when none can.
    kxBaseObject *select_of(uint32_t select_id, uint32_t only = 0) {
        const kxClass_t *klass = g_classes[select_id];
        const SelectInfo &info = *klass->select;
        for (uint32_t code = 1; code <= info.num_members; code++) {
            const SelectMember &member = info.members[code - 1];
            if ((member.releases & release_bit()) == 0 || (only != 0 && code != only)) continue;
            kxBaseObject *held = member.kind == SLOT_ENTITY ? instance_of(member.type_ref) : nullptr;
            if (member.kind == SLOT_ENTITY && held == nullptr) continue;
            kxBaseObject *select = create(klass);
            if (select == nullptr) {
                problems_.add("no select value of " + narrow(klass->ifc_name));
                return nullptr;
            }
            switch (member.kind) {
            case SLOT_ENTITY: select_set_object(select, select_id, code, held); break;
            case SLOT_STRING: select_set_string(select, select_id, code, kText); break;
            case SLOT_REAL: select_set_real(select, select_id, code, kReal); break;
            case SLOT_INTEGER: select_set_integer(select, select_id, code, kInteger); break;
            case SLOT_BOOLEAN: select_set_integer(select, select_id, code, kBoolean); break;
            case SLOT_LOGICAL: select_set_integer(select, select_id, code, kLogical); break;
            case SLOT_ENUM: select_set_integer(select, select_id, code, enum_member(member.type_ref, 0)); break;
            case SLOT_BINARY: select_set_binary(select, select_id, code, kBinary); break;
            case SLOT_AGGREGATE:
                select_set_aggregate(select, select_id, code, aggregate_of(g_defined_types[member.type_ref].type_ref));
                break;
            default: problems_.add("member kind " + std::to_string(member.kind)); break;
            }
            if (select_get_type(select, select_id) != code)
                problems_.add(narrow(klass->ifc_name) + ": member " + std::to_string(code) + " not taken");
            return select;
        }
        if (only == 0) problems_.add("no member of " + narrow(klass->ifc_name) + " can be given a value");
        return nullptr;
    }

    // A new aggregate with two elements (nested lists: two inner lists).
    kxAggregate *aggregate_of(uint32_t index) {
        const AggregateInfo &info = g_aggregates[index];
        kxAggregate *aggregate = aggregate_new();
        for (int i = 0; i < 2; i++) {
            switch (info.element_kind) {
            case SLOT_STRING: aggregate_add_string(aggregate, i == 0 ? kText : kText2); break;
            case SLOT_REAL: aggregate_add_real(aggregate, i == 0 ? kReal : kReal2); break;
            case SLOT_INTEGER: aggregate_add_integer(aggregate, i == 0 ? kInteger : kInteger2); break;
            case SLOT_BOOLEAN: aggregate_add_boolean(aggregate, i == 0 ? kBoolean : kBoolean2); break;
            case SLOT_LOGICAL: aggregate_add_logical(aggregate, i == 0 ? kLogical : kLogical2); break;
            case SLOT_BINARY: aggregate_add_binary(aggregate, i == 0 ? kBinary : kBinary2); break;
            case SLOT_ENUM: aggregate_add_enum(aggregate, enum_member(info.element_ref, i)); break;
            case SLOT_ENTITY: {
                kxBaseObject *element = instance_of(info.element_ref);
                if (element != nullptr) aggregate_append_object(aggregate, element, index);
                break;
            }
            case SLOT_SELECT: {
                kxBaseObject *element = select_of(info.element_ref);
                if (element != nullptr) aggregate_append_object(aggregate, element, index);
                break;
            }
            case SLOT_AGGREGATE: aggregate_append_aggregate(aggregate, aggregate_of(info.element_ref), index); break;
            default: problems_.add("element kind " + std::to_string(info.element_kind)); break;
            }
        }
        if (aggregate->count != 2) problems_.add("no elements for " + narrow(info.type_name));
        return aggregate;
    }

private:
    uint32_t release_;
    Problems &problems_;
    kxIfcModel *model_ = nullptr;
    std::unordered_map<uint32_t, kxBaseObject *> instances_;
    std::unordered_map<uint32_t, kxBaseObject *> by_output_id_;
};

// Cuts "#id= NAME(parameters);" with the reader's scanner into the list:
// every parameter, nested groups and typed values marked by begin and end,
// references resolved through the population, strings decoded, and a final
// nested end for the closing parenthesis of the instance. Gives an empty
// text or the reason the line is not one instance line.
std::string tokenize(const std::string &line, const std::string &upper_name, const Population &population,
                     kxParseParList *list) {
    kx::Scanner scanner;
    kx::scanner_init(&scanner, line.data(), line.size());
    kx::Token token = kx::scanner_next(&scanner);
    if (token.kind != kx::TOKEN_ENTITY_ID || kx::scanner_next(&scanner).kind != kx::TOKEN_EQUAL) return "no line head";
    token = kx::scanner_next(&scanner);
    if (std::string(token.text, token.length) != upper_name || kx::scanner_next(&scanner).kind != kx::TOKEN_BEGIN_PAR)
        return "not " + upper_name;
    for (int depth = 0; depth >= 0;) {
        token = kx::scanner_next(&scanner);
        const uint32_t column = token.column;
        char16_t *text = nullptr;  // for the parameters that take their text
        switch (token.kind) {
        case kx::TOKEN_COMMA: break;
        case kx::TOKEN_BEGIN_PAR: depth++; kxParseParList_append(list, kxParserParam_nested_begin(1, column)); break;
        case kx::TOKEN_END_PAR: depth--; kxParseParList_append(list, kxParserParam_nested_end(1, column)); break;
        case kx::TOKEN_NULL_VALUE: kxParseParList_append(list, kxParserParam_null(1, column)); break;
        case kx::TOKEN_DERIVED_VALUE: kxParseParList_append(list, kxParserParam_derived(1, column)); break;
        case kx::TOKEN_REAL: kxParseParList_append(list, kxParserParam_real(token.real, 1, column)); break;
        case kx::TOKEN_INT: kxParseParList_append(list, kxParserParam_integer(token.integer, 1, column)); break;
        case kx::TOKEN_BOOLEAN:
        case kx::TOKEN_ENUM:
        case kx::TOKEN_HEX:
            text = wstr_from_narrow_n(token.text, token.length);
            kxParseParList_append(list, kxParserParam_literal(&text, 1, column));
            break;
        case kx::TOKEN_TYPE_NAME:
            text = wstr_from_narrow_n(token.text, token.length);
            kxParseParList_append(list, kxParserParam_typed_name(&text, 1, column));
            break;
        case kx::TOKEN_STRING:
            text = kx::step_string_value(token.text, token.length, false, nullptr);
            kxParseParList_append(list, kxParserParam_string(&text, 1, column));
            break;
        case kx::TOKEN_ENTITY_REFERENCE:
            if (population.find(token.id) == nullptr) return "unknown reference #" + std::to_string(token.id);
            kxParseParList_append(list, kxParserParam_reference(token.id, population.find(token.id), 1, column));
            break;
        default: return "unexpected " + std::string(token.text, token.length);
        }
    }
    return kx::scanner_next(&scanner).kind == kx::TOKEN_DOTCOMA ? "" : "text after the instance";
}

// ---------------------------------------------------------------------------

class RoundTripTest : public kxtest::LibraryTest {
protected:
    // What a setter was given, to compare the getter's answer with: the
    // integer or the instance, select or aggregate (texts, reals and bits
    // take their one sample).
    struct Given {
        const AccessorRow *row;
        int32_t integer = 0;
        void *pointer = nullptr;
    };

    static void set_value(const Given &given, kxBaseObject *instance) {
        const AccessorRow &row = *given.row;
        switch (row.kind) {
        case SLOT_STRING: set<const kxWChar *>(row, instance, kText); break;
        case SLOT_REAL: set<double>(row, instance, kReal); break;
        case SLOT_BINARY: set<kxBinary>(row, instance, kBinary); break;
        case SLOT_ENTITY:
        case SLOT_SELECT: set<kxBaseObject *>(row, instance, static_cast<kxBaseObject *>(given.pointer)); break;
        case SLOT_AGGREGATE: set<kxAggregate *>(row, instance, static_cast<kxAggregate *>(given.pointer)); break;
        default: set<int32_t>(row, instance, given.integer); break;  // integers, booleans, logicals, enumerations
        }
    }

    // Sets the sample of the row's kind; false when no sample can be made.
    bool set_sample(Population &population, const AccessorRow &row, kxBaseObject *instance, Given *given) {
        const uint32_t type_ref = g_slots[row.slot].type_ref;
        given->row = &row;
        switch (row.kind) {
        case SLOT_STRING:
        case SLOT_REAL:
        case SLOT_BINARY: break;
        case SLOT_INTEGER: given->integer = kInteger; break;
        case SLOT_BOOLEAN: given->integer = kBoolean; break;
        case SLOT_LOGICAL: given->integer = kLogical; break;
        case SLOT_ENUM: given->integer = population.enum_member(type_ref, 0); break;
        case SLOT_ENTITY: given->pointer = population.instance_of(type_ref); break;
        case SLOT_SELECT: given->pointer = population.select_of(type_ref); break;
        case SLOT_AGGREGATE: given->pointer = population.aggregate_of(type_ref); break;
        default: return false;
        }
        if ((row.kind == SLOT_ENTITY || row.kind == SLOT_SELECT) && given->pointer == nullptr) return false;
        set_value(*given, instance);
        return true;
    }

    // The getter gives back what the setter was given.
    bool gives_back(const Given &given, const kxBaseObject *instance) {
        const AccessorRow &row = *given.row;
        switch (row.kind) {
        case SLOT_STRING: {
            const kxWChar *text = get<const kxWChar *>(row, instance);
            return text != kText && wstr_equal(text, kText);
        }
        case SLOT_REAL: return get<double>(row, instance) == kReal;
        case SLOT_INTEGER:
        case SLOT_BOOLEAN:
        case SLOT_LOGICAL:
        case SLOT_ENUM: return get<int32_t>(row, instance) == given.integer;
        case SLOT_BINARY: {
            const kxBinary bits = get<kxBinary>(row, instance);
            return bits.contents != kBinary.contents && bits.num_bits == kBinary.num_bits &&
                   std::memcmp(bits.contents, kBinary.contents, bits.num_bits) == 0;
        }
        case SLOT_ENTITY:
        case SLOT_SELECT: return get<kxBaseObject *>(row, instance) == given.pointer;
        case SLOT_AGGREGATE: return get<kxAggregate *>(row, instance) == given.pointer;
        default: return false;
        }
    }

    // An accessor of the other release: no value, the undefined value, and a
    // setter that stores nothing and retains nothing (the instance itself is
    // given where a reference or select goes; an aggregate is not taken over).
    void other_release_is_harmless(const AccessorRow &row, kxBaseObject *instance, const std::string &where) {
        kxAggregate *aggregate = row.kind == SLOT_AGGREGATE ? aggregate_new() : nullptr;
        const Given given{&row, 1, aggregate != nullptr ? static_cast<void *>(aggregate) : instance};
        const uint32_t retains = instance->retain_count;
        const bool had_value = has_value(row, instance);
        set_value(given, instance);
        if (had_value || has_value(row, instance) || !reads_undefined(row, instance) ||
            instance->retain_count != retains)
            problems_.add(where + ": accessor of the other release is not harmless");
        if (aggregate != nullptr) aggregate_free(&aggregate, g_slots[row.slot].type_ref);
    }

    static bool reads_undefined(const AccessorRow &row, const kxBaseObject *instance) {
        switch (row.kind) {
        case SLOT_STRING: return get<const kxWChar *>(row, instance) == nullptr;
        case SLOT_REAL: return real_is_undefined(get<double>(row, instance));
        case SLOT_INTEGER: return get<int32_t>(row, instance) == kIntegerUndefined;
        case SLOT_BOOLEAN: return get<int32_t>(row, instance) == kBooleanUndefined;
        case SLOT_LOGICAL: return get<int32_t>(row, instance) == kLogicalUndefined;
        case SLOT_ENUM: return get<int32_t>(row, instance) == 0;
        case SLOT_BINARY: return get<kxBinary>(row, instance).num_bits == 0;
        case SLOT_ENTITY:
        case SLOT_SELECT: return get<kxBaseObject *>(row, instance) == nullptr;
        case SLOT_AGGREGATE: return get<kxAggregate *>(row, instance) == nullptr;
        default: return false;
        }
    }

    // The fresh instance must be written as the original is (after its
    // own id): every value read back as it was set.
    void same_as_written(const std::string &where, kxBaseObject *original, kxBaseObject *fresh) {
        const std::string a = kxtest::written_line(original), b = kxtest::written_line(fresh);
        if (a.substr(a.find('=')) != b.substr(b.find('=')))
            problems_.add(where + ": " + a + " reads back as " + b);
    }

    // Exports the model, reads the file back and exports what was read: the
    // reader must find nothing wrong and the two files must be the same.
    void write_read_write(const Population &population) {
        const std::string where = population.release() == 0 ? "IFC2X3 model" : "IFC4 model";
        const std::string first = export_model(population.model(), "first");
        kxBool faults = kxBFALSE;
        kxIfcModel *read = kxIfcModel_read_from_step_file(kxtest::wide(first).c_str(), 0, &faults);
        if (read == nullptr || faults) problems_.add(where + ": read back with faults");
        if (read == nullptr) return;
        if (kxIfcModel_count_objects(read) != kxIfcModel_count_objects(population.model()))
            problems_.add(where + ": instances lost in reading");
        const std::string difference =
            kxtest::first_difference(kxtest::read_file(first), kxtest::read_file(export_model(read, "second")));
        if (!difference.empty()) problems_.add(where + ": written again differently: " + difference);
        kxIfcModel_free(&read);
    }
    std::string export_model(kxIfcModel *model, const std::string &name) {
        kxIfcModel_export_model_to_file(model, kxtest::wide(name).c_str(), kxtest::wide(dir().path()).c_str());
        return dir().file(name + ".ifc");
    }

    // Writes the instance, tokenizes its line and reads it into a fresh
    // instance of the class; NULL when the line is not one instance line.
    kxBaseObject *read_back(Population &population, const kxClass_t *klass, kxBaseObject *original,
                            const std::string &where) {
        const uint32_t release = population.release();
        const std::string line = kxtest::written_line(original);
        kxParseParList *list =
            kxParseParList_new(static_cast<kxIfcVersion_t>(release), &Population::create_for_list, &population);
        const std::string bad_line = tokenize(line, narrow(klass->upper_name), population, list);
        if (!bad_line.empty()) {
            problems_.add(where + ": " + bad_line + " in " + line);
            kxParseParList_free(&list);
            return nullptr;
        }
        kxBaseObject *fresh = population.create(klass);
        entity_init_from_parse(fresh, list);
        kxParserParam *closing = nullptr;
        if (kxParseParList_has_errors(list)) {
            std::string reason = "list has errors";
            for (uint32_t i = 0; i < kxParseParList_count(list); i++) {
                const kxParserParam *parameter = kxParseParList_get(list, i);
                if (parameter->has_error)
                    reason += " [parameter " + std::to_string(i) + ": " + narrow(parameter->message) + "]";
            }
            problems_.add(where + ": " + reason + " reading " + line);
        } else if (!kxParseParList_next(list, &closing) || !kxParserParam_is_nested_end(closing) ||
                   kxParseParList_has_more(list)) {
            problems_.add(where + ": reading did not stop at the closing parenthesis of " + line);
        }
        kxParseParList_free(&list);
        return fresh;
    }

    void check_entity(Population &population, const kxClass_t *klass, const std::vector<const AccessorRow *> &rows) {
        const uint32_t release = population.release();
        const std::string where = std::string(release == 0 ? "IFC2X3 " : "IFC4 ") + narrow(klass->ifc_name);
        kxBaseObject *original = population.create(klass);
        if (original == nullptr) {
            problems_.add(where + ": not created");
            return;
        }
        // The accessors of this release serve exactly the attributes the
        // record is read and written by (the order may differ where a
        // release places an attribute differently).
        const ClassRelease *attrs = class_release(klass, release);
        std::multiset<uint32_t> attr_slots, row_slots;
        for (uint32_t i = 0; i < attrs->num_attrs; i++) attr_slots.insert(attrs->attrs[i].slot);
        for (const AccessorRow *row : rows)
            if ((row->releases >> release) & 1) row_slots.insert(static_cast<uint32_t>(row->slot));
        if (attr_slots != row_slots) problems_.add(where + ": accessors and attribute list disagree");

        std::vector<Given> given;
        for (const AccessorRow *row : rows) {
            if (((row->releases >> release) & 1) == 0) continue;
            const std::string at = where + "." + narrow(row->attribute) + narrow(row->suffix);
            Given one;
            if (!set_sample(population, *row, original, &one)) {
                problems_.add(at + ": no sample value");
                continue;
            }
            given.push_back(one);
            accessors_exercised_++;
        }
        for (const AccessorRow *row : rows)
            if (((row->releases >> release) & 1) == 0)
                other_release_is_harmless(*row, original, where + "." + narrow(row->attribute) + narrow(row->suffix));
        for (const Given &one : given) {
            const std::string at = where + "." + narrow(one.row->attribute) + narrow(one.row->suffix);
            if (!has_value(*one.row, original)) problems_.add(at + ": no value after setting");
            if (!gives_back(one, original)) problems_.add(at + ": getter does not give back the value set");
        }

        kxBaseObject *fresh = read_back(population, klass, original, where);
        if (fresh != nullptr) same_as_written(where, original, fresh);
    }

    Problems problems_;
    uint32_t accessors_exercised_ = 0;
    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // the same header in both exports
};

TEST_F(RoundTripTest, EveryAttributeOfEveryConcreteEntityInBothReleases) {
    std::map<std::u16string, std::vector<const AccessorRow *>> rows_by_entity;
    for (const AccessorRow &row : kAccessors) rows_by_entity[row.entity].push_back(&row);

    uint32_t pairs = 0;
    uint32_t classes_with_rows = 0;
    uint32_t attributes = 0;
    for (uint32_t release = 0; release < NUM_RELEASES; release++) {
        Population population(release, problems_);
        for (uint32_t id = 0; id < g_num_classes; id++) {
            const kxClass_t *klass = g_classes[id];
            if (!kxtest::is_concrete(klass, release)) continue;
            const auto rows = rows_by_entity.find(klass->ifc_name);
            static const std::vector<const AccessorRow *> kNone;
            if (rows != rows_by_entity.end()) classes_with_rows++;
            check_entity(population, klass, rows != rows_by_entity.end() ? rows->second : kNone);
            pairs++;
            attributes += class_release(klass, release)->num_attrs;
        }
        write_read_write(population);
    }
    EXPECT_TRUE(problems_.items.empty()) << problems_.summary();
    // The schemas have 556 concrete entities in IFC2X3 and 653 in IFC4;
    // nearly all have attributes.
    EXPECT_EQ(pairs, 556u + 653u);
    EXPECT_GT(classes_with_rows, pairs - 10);
    EXPECT_EQ(accessors_exercised_, attributes);
    std::printf("round trip: %u (entity, release) pairs, %u attribute accessors exercised\n", pairs,
                accessors_exercised_);
}

// Every member of every select of both releases, each in an attribute
// that holds that select (or a list of it): written as a reference or a
// typed value and read back as the same member with the same value.
TEST_F(RoundTripTest, EveryMemberOfEverySelectInBothReleases) {
    uint32_t members = 0;
    std::vector<std::string> not_carried;
    for (uint32_t release = 0; release < NUM_RELEASES; release++) {
        Population population(release, problems_);
        // The first concrete entity attribute of this release holding each
        // select, directly or as the elements of an aggregate.
        std::map<uint32_t, std::pair<const kxClass_t *, const AccessorRow *>> carriers;
        for (const AccessorRow &row : kAccessors) {
            if (((row.releases >> release) & 1) == 0) continue;
            const SlotInfo &slot = g_slots[row.slot];
            uint32_t select_id = NO_INDEX;
            if (row.kind == SLOT_SELECT)
                select_id = slot.type_ref;
            else if (row.kind == SLOT_AGGREGATE && g_aggregates[slot.type_ref].element_kind == SLOT_SELECT)
                select_id = g_aggregates[slot.type_ref].element_ref;
            const kxClass_t *klass = kxClass_find_by_name(row.entity);
            if (select_id == NO_INDEX || carriers.count(select_id) != 0 || !kxtest::is_concrete(klass, release))
                continue;
            carriers[select_id] = {klass, &row};
        }
        for (uint32_t id = 0; id < g_num_classes; id++) {
            const kxClass_t *select_class = g_classes[id];
            if (select_class->select == nullptr || class_release(select_class, release) == nullptr) continue;
            const auto carrier = carriers.find(id);
            if (carrier == carriers.end()) {
                not_carried.push_back(std::string(release == 0 ? "IFC2X3 " : "IFC4 ") + narrow(select_class->ifc_name));
                continue;
            }
            const auto [klass, row] = carrier->second;
            for (uint32_t code = 1; code <= select_class->select->num_members; code++) {
                if ((select_class->select->members[code - 1].releases & population.release_bit()) == 0) continue;
                const std::string where = std::string(release == 0 ? "IFC2X3 " : "IFC4 ") +
                                          narrow(select_class->ifc_name) + " member " + std::to_string(code) +
                                          " in " + narrow(klass->ifc_name) + "." + narrow(row->attribute);
                kxBaseObject *select = population.select_of(id, code);
                if (select == nullptr) continue;  // an entity member without concrete instances here
                kxBaseObject *original = population.create(klass);
                if (row->kind == SLOT_SELECT) {
                    set<kxBaseObject *>(*row, original, select);
                } else {
                    kxAggregate *list = aggregate_new();
                    aggregate_append_object(list, select, g_slots[row->slot].type_ref);
                    set<kxAggregate *>(*row, original, list);
                }
                kxBaseObject *fresh = read_back(population, klass, original, where);
                if (fresh == nullptr) continue;
                same_as_written(where, original, fresh);
                if (row->kind == SLOT_SELECT &&
                    select_get_type(get<kxBaseObject *>(*row, fresh), id) != code)
                    problems_.add(where + ": read back as member " +
                                  std::to_string(select_get_type(get<kxBaseObject *>(*row, fresh), id)));
                members++;
            }
        }
        write_read_write(population);
    }
    EXPECT_TRUE(problems_.items.empty()) << problems_.summary();
    // Both releases together have about 800 members that can be given a value.
    EXPECT_GT(members, 750u);
    std::string names;
    for (const std::string &name : not_carried) names += " " + name;
    std::printf("select members read back: %u; selects held by no concrete attribute:%s\n", members, names.c_str());
}

}  // namespace
