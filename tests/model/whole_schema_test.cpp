// Class queries over every class of both releases, checked against the
// committed schema digest rather than the generated tables: with one
// instance of every concrete class in one model, each class query gives
// exactly the instances whose class is that class or a subtype of it in the
// release, oldest first.
#include <set>
#include <string>
#include <vector>

#include "core/class.h"
#include "kxifc_model.h"
#include "model_fixture.h"
#include "schema_digest.h"
#include "test_support.h"

namespace {

using kxtest::elements;
using kxtest::narrow;

using WholeSchemaTest = kxtest::LibraryTest;

TEST_F(WholeSchemaTest, EveryClassQueryListsExactlyItsKindsInCreationOrder) {
    const kxtest::Digest &digest = kxtest::committed_digest();
    ASSERT_TRUE(digest.loaded);
    for (int release = 0; release < kxtest::kReleases; release++) {
        SCOPED_TRACE(release == 0 ? "IFC2X3" : "IFC4");
        kxIfcModel *model = kxIfcModel_new();
        kxIfcModel_set_version(model, static_cast<kxIfcVersion_t>(release));
        // A creation order unrelated to class ids or names, so that a query
        // answering in table order instead of creation order shows.
        struct Created {
            kxBaseObject *instance;
            std::set<std::string> kinds;  // the class and its supertypes
        };
        std::vector<Created> created;
        const uint32_t n = kx::g_num_classes;
        for (uint32_t i = 0; i < n; i++) {
            const kxClass_t *klass = kx::g_classes[(i * 397u + 11u) % n];
            const std::string name = narrow(klass->ifc_name);
            const auto entity = digest.entities.find(name);
            if (entity == digest.entities.end() || !entity->second.exists[release] ||
                entity->second.abstract[release])
                continue;
            kxBaseObject *instance = kxIfcModel_dontuse_new_object(model, klass);
            ASSERT_NE(instance, nullptr) << name;
            const std::vector<std::string> chain = digest.chain(name, release);
            created.push_back({instance, std::set<std::string>(chain.begin(), chain.end())});
            created.back().kinds.insert(name);
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
    }
}

}  // namespace
