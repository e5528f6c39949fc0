// Select values: typed values read (and names that fit no member), an empty
// value written, and every exported member setter; then every exported
// inverse accessor. Both families are called through the built shared
// library.
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/engines.h"
#include "support/parseparlist.h"
#include "support/wstring.h"
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

}  // namespace
