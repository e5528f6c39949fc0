// Instance creation and class queries over every class of both releases,
// checked against the committed schema digest rather than the generated
// tables: which classes exist and are abstract in each release, and which
// classes are supertypes of which.
#include <array>
#include <cstdint>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "kxifc_model.h"
#include "model/model.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

constexpr std::array<kxIfcVersion_t, 2> kReleases = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

// What the digest says about one class in one release.
struct ReleaseFacts {
    bool exists = false;
    bool abstract = false;
    std::string supertype;  // entities only; empty at a root
};

struct DigestClass {
    bool is_entity = false;
    std::array<ReleaseFacts, 2> release;
};

using Digest = std::map<std::string, DigestClass>;

// Reads the entity and select records of schema/ifc.digest.
Digest read_digest() {
    Digest digest;
    std::ifstream file(std::string(KX_SOURCE_DIR) + "/schema/ifc.digest");
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string record, name, rel, supertype, abstract;
        fields >> record >> name >> rel;
        if (record != "entity" && record != "select") continue;
        if (record == "entity") fields >> supertype >> abstract;
        DigestClass &entry = digest[name];
        entry.is_entity = record == "entity";
        for (size_t r = 0; r < kReleases.size(); r++) {
            if (rel.find(r == 0 ? '2' : '4') == std::string::npos) continue;
            ReleaseFacts &facts = entry.release[r];
            facts.exists = true;
            facts.supertype = supertype == "-" ? "" : supertype;
            facts.abstract = abstract == "1";
        }
    }
    return digest;
}

// Every supertype of the class in the release, per the digest.
std::set<std::string> supertypes(const Digest &digest, const std::string &name, size_t release) {
    std::set<std::string> result;
    std::string current = digest.at(name).release[release].supertype;
    while (!current.empty()) {
        EXPECT_TRUE(result.insert(current).second) << "supertype cycle at " << current;
        const auto found = digest.find(current);
        if (found == digest.end() || !found->second.release[release].exists) {
            ADD_FAILURE() << name << ": supertype " << current << " missing in release " << release;
            break;
        }
        current = found->second.release[release].supertype;
    }
    return result;
}

using kxtest::elements;
using kxtest::narrow;

class WholeSchemaTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        kxtest::LibraryTest::SetUp();
        digest_ = read_digest();
        ASSERT_EQ(digest_.size(), 960u) << "digest not read from " << KX_SOURCE_DIR;
        for (uint32_t id = 0; id < kx::g_num_classes; id++) {
            const kxClass_t *klass = kx::g_classes[id];
            classes_.push_back({klass, narrow(kxClass_ifc_name(klass))});
        }
    }

    struct Named {
        const kxClass_t *klass;
        std::string name;
    };
    Digest digest_;
    std::vector<Named> classes_;
};

// The descriptors are exactly the digest's classes, with dense ids, the
// right kind, and the digest's releases and abstract flags.
TEST_F(WholeSchemaTest, DescriptorsMatchTheDigest) {
    ASSERT_EQ(kx::g_num_classes, 960u);
    std::set<std::string> seen;
    uint32_t entities = 0;
    for (uint32_t id = 0; id < classes_.size(); id++) {
        const Named &c = classes_[id];
        SCOPED_TRACE(c.name);
        EXPECT_EQ(kxClass_unique_id(c.klass), id);
        EXPECT_TRUE(seen.insert(c.name).second);
        const auto found = digest_.find(c.name);
        ASSERT_NE(found, digest_.end());
        const DigestClass &expected = found->second;
        EXPECT_EQ(kxClass_is_entity(c.klass) == kxBTRUE, expected.is_entity);
        entities += expected.is_entity ? 1 : 0;
        EXPECT_EQ(kxClass_find_by_name(kxClass_ifc_name(c.klass)), c.klass);
        for (size_t r = 0; r < kReleases.size(); r++) {
            EXPECT_EQ(kxClass_exists_in_version(c.klass, kReleases[r]) == kxBTRUE, expected.release[r].exists)
                << "release " << r;
            if (expected.release[r].exists) {
                EXPECT_EQ(kxClass_is_abstract(c.klass, kReleases[r]) == kxBTRUE, expected.release[r].abstract)
                    << "release " << r;
            }
        }
    }
    EXPECT_EQ(entities, 890u);
}

// The model creates an instance exactly of the classes that exist and are
// concrete in its release; the class itself creates one wherever it exists,
// abstract or not.
TEST_F(WholeSchemaTest, CreationFollowsExistenceAndAbstractnessInEachRelease) {
    for (size_t r = 0; r < kReleases.size(); r++) {
        kxIfcModel *model = kxIfcModel_new();
        kxIfcModel_set_version(model, kReleases[r]);
        uint32_t created = 0;
        for (const Named &c : classes_) {
            SCOPED_TRACE(c.name + (r == 0 ? " in IFC2X3" : " in IFC4"));
            const ReleaseFacts &facts = digest_.at(c.name).release[r];

            kxBaseObject *instance = kxIfcModel_dontuse_new_object(model, c.klass);
            EXPECT_EQ(instance != nullptr, facts.exists && !facts.abstract);
            if (instance != nullptr) {
                created++;
                EXPECT_EQ(kx::baseobject_class(instance), c.klass);
                EXPECT_EQ(kx::baseobject_version(instance), kReleases[r]);
                EXPECT_EQ(narrow(kxBaseObject_dontuse_get_ifc_class_name(instance)), c.name);
            }

            uint32_t throwaway_counter = 0;
            kxBaseObject *raw =
                kx::class_new_instance(c.klass, kReleases[r], &throwaway_counter, model->model_manager);
            EXPECT_EQ(raw != nullptr, facts.exists);
            if (raw != nullptr) {
                EXPECT_EQ(raw->retain_count, 1u);
                EXPECT_EQ(throwaway_counter, 1u);
                EXPECT_EQ(kx::baseobject_class(raw), c.klass);
                kx::baseobject_release(&raw);
                EXPECT_EQ(raw, nullptr);
            }
        }
        EXPECT_EQ(kxIfcModel_count_objects(model), created);
        kxIfcModel_free(&model);
        EXPECT_EQ(model, nullptr);
    }
}

// With one instance of every concrete class in one model, each class query
// gives exactly the instances whose class is that class or a subtype of it
// in the release, oldest first.
TEST_F(WholeSchemaTest, EveryClassQueryListsExactlyItsKindsInCreationOrder) {
    for (size_t r = 0; r < kReleases.size(); r++) {
        SCOPED_TRACE(r == 0 ? "IFC2X3" : "IFC4");
        std::map<std::string, std::set<std::string>> ancestors;
        for (const auto &[name, entry] : digest_)
            if (entry.release[r].exists) ancestors[name] = supertypes(digest_, name, r);

        kxIfcModel *model = kxIfcModel_new();
        kxIfcModel_set_version(model, kReleases[r]);
        // A creation order unrelated to class ids or names, so that a query
        // answering in table order instead of creation order shows.
        struct Created {
            kxBaseObject *instance;
            std::string name;
        };
        std::vector<Created> created;
        const uint32_t n = static_cast<uint32_t>(classes_.size());
        for (uint32_t i = 0; i < n; i++) {
            const Named &c = classes_[(i * 397u + 11u) % n];
            const ReleaseFacts &facts = digest_.at(c.name).release[r];
            if (!facts.exists || facts.abstract) continue;
            kxBaseObject *instance = kxIfcModel_dontuse_new_object(model, c.klass);
            ASSERT_NE(instance, nullptr) << c.name;
            created.push_back({instance, c.name});
        }
        ASSERT_EQ(kxIfcModel_count_objects(model), created.size());
        for (uint32_t i = 0; i < created.size(); i++)
            EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(created[i].instance), i + 1) << created[i].name;

        for (const Named &k : classes_) {
            SCOPED_TRACE("query " + k.name);
            std::vector<kxBaseObject *> expected;
            for (const Created &c : created)
                if (c.name == k.name || ancestors.at(c.name).count(k.name) != 0) expected.push_back(c.instance);
            EXPECT_EQ(elements(kxIfcModel_dontuse_get_objects_by_class(model, k.klass)), expected);
            EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model, k.klass),
                      expected.empty() ? nullptr : expected.front());
        }
        kxIfcModel_free(&model);
    }
}

}  // namespace
