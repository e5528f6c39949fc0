// Every exported inverse accessor of the built shared library, called on an
// instance of each release where its entity is concrete, and the manifest's
// forward reference of every inverse. (The model tests cover what inverse
// queries find.)
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kxifc_model.h"
#include "shared_library.h"
#include "test_support.h"

namespace {

struct InverseRow {
    std::string entity, name;
    std::string relating[2], attribute[2];  // "-" where the release has none
};

struct Manifest {
    std::vector<InverseRow> inverses;
    std::map<std::pair<std::string, std::string>, std::vector<std::pair<int, std::string>>> attrs;  // releases, kind
};

Manifest read_manifest() {
    Manifest manifest;
    for (const std::vector<std::string> &fields : kxtest::accessor_manifest()) {
        if (fields[0] == "inverse" && fields.size() == 7)
            manifest.inverses.push_back({fields[1], fields[2], {fields[3], fields[5]}, {fields[4], fields[6]}});
        else if (fields[0] == "attr" && fields.size() == 8)
            manifest.attrs[{fields[1], fields[2]}].push_back({std::stoi(fields[6]), fields[4]});
    }
    return manifest;
}

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

TEST(InverseRelationsExportsTest, EveryExportedInverseAnswersWithAnArray) {
    KX_REQUIRE_SHARED_LIBRARY();
    kxtest::SharedLibrary library;
    ASSERT_TRUE(library.open()) << dlerror();
    const Manifest manifest = read_manifest();

    const kxtest::SharedLibrary::Usage before = library.usage();

    uint32_t calls = 0;
    std::set<std::string> missing;
    for (int release = 0; release < 2; release++) {
        const kxIfcVersion_t version = static_cast<kxIfcVersion_t>(release);
        kxIfcModel *model = library.model_new();
        library.set_version(model, version);
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
                const std::u16string name = kxtest::wide(row.entity);
                const kxClass_t *klass = library.find_class(name.c_str());
                kxBaseObject *instance = nullptr;
                if (klass != nullptr && library.exists_in(klass, version) && !library.is_abstract(klass, version))
                    instance = library.new_object(model, klass);
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
        library.model_free(&model);
    }
    EXPECT_TRUE(missing.empty()) << missing.size() << " not exported, first " << *missing.begin();
    // Most inverses belong to concrete entities of both releases.
    EXPECT_GT(calls, manifest.inverses.size());
    std::printf("inverse accessors: %zu exported, %u calls on concrete instances\n", manifest.inverses.size(), calls);

    library.expect_usage_back_at(before);
}

}  // namespace
