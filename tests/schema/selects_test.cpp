// Select values: typed values read (and names that fit no member), an empty
// value written, and every exported member setter; then every exported
// inverse accessor. Both families are called through the built shared
// library. Then aggregates: instance aggregates hold one retain per
// occurrence, value aggregates own their strings and copies, nested lists own
// their inner lists, and aggregate defined types forward to their element
// aggregates; and the exported entity accessors one rule at a time.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/engines.h"
#include "support/parseparlist.h"
#include "support/wstring.h"
#include "kxifc_coretypes.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
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

}  // namespace
