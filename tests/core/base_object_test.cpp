// The head of every instance: reference counting, kind tests, output ids,
// traversal of the reference graph and the mark of a destroyed object.
#include <cstdint>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "model/model.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "model_fixture.h"
#include "test_support.h"

#include "record_helpers.h"

using kxtest::append_reference;
using kxtest::narrow;
using kxtest::set_reference;

namespace {

class BaseObjectTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }
};

TEST_F(BaseObjectTest, ReleasingANullObjectDoesNothingAndANullHolderIsReported) {
    kxBaseObject *nothing = nullptr;
    kx::baseobject_release(&nothing);
    EXPECT_TRUE(asserts().reports().empty());

    expect_reports();
    kx::baseobject_release(nullptr);
    ASSERT_EQ(asserts().reports().size(), 1u);
    EXPECT_TRUE(asserts().saw("(base_object) != NULL"));
}

TEST_F(BaseObjectTest, KindOfAcceptsTheOwnClassAndAncestorsButNotSubclasses) {
    for (kxIfcVersion_t version : {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4}) {
        kxBaseObject *wall = make(model(version), kxIfcWall_class());
        ASSERT_NE(wall, nullptr);
        struct Case {
            const kxClass_t *klass;
            kxBool kind_of;
            kxBool of_class;
        };
        const Case cases[] = {
            {kxIfcWall_class(), kxBTRUE, kxBTRUE},
            {kxIfcBuildingElement_class(), kxBTRUE, kxBFALSE},
            {kxIfcElement_class(), kxBTRUE, kxBFALSE},
            {kxIfcProduct_class(), kxBTRUE, kxBFALSE},
            {kxIfcObjectDefinition_class(), kxBTRUE, kxBFALSE},
            {kxIfcRoot_class(), kxBTRUE, kxBFALSE},
            {kxIfcWallStandardCase_class(), kxBFALSE, kxBFALSE},  // a subclass
            {kxIfcBeam_class(), kxBFALSE, kxBFALSE},              // a sibling
            {kxIfcSpatialStructureElement_class(), kxBFALSE, kxBFALSE},
        };
        for (const Case &c : cases) {
            SCOPED_TRACE(narrow(kxClass_ifc_name(c.klass)));
            EXPECT_EQ(kxBaseObject_dontuse_is_object_kind_of(wall, c.klass), c.kind_of);
            EXPECT_EQ(kxBaseObject_dontuse_is_object_of_class(wall, c.klass), c.of_class);
            EXPECT_EQ(kx::baseobject_cast(wall, c.klass), c.kind_of ? wall : nullptr);
        }
    }
}

TEST_F(BaseObjectTest, OutputIdOfNullIsAllOnesWithoutAReport) {
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(nullptr), 4294967295u);
    kxBaseObject *wall = make(kxIfcWall_class());
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(wall), 1u);
}

// rel1 relates the building to the storey, rel2 the storey to the space; the
// wall is reached by nothing.
class VisitTest : public BaseObjectTest {
protected:
    void SetUp() override {
        BaseObjectTest::SetUp();
        building = make(kxIfcBuilding_class());
        storey = make(kxIfcBuildingStorey_class());
        space = make(kxIfcSpace_class());
        wall = make(kxIfcWall_class());
        rel1 = make(kxIfcRelAggregates_class());
        rel2 = make(kxIfcRelAggregates_class());
        set_reference(rel1, u"RelatingObject", building);
        append_reference(rel1, u"RelatedObjects", storey);
        set_reference(rel2, u"RelatingObject", storey);
        append_reference(rel2, u"RelatedObjects", space);
        append_reference(rel2, u"RelatedObjects", building);
    }
    std::vector<bool> visited() const {
        std::vector<bool> result;
        for (kxBaseObject *o : {building, storey, space, wall, rel1, rel2})
            result.push_back(kxBaseObject_dontuse_has_been_visited(o) == kxBTRUE);
        return result;
    }
    kxBaseObject *building = nullptr, *storey = nullptr, *space = nullptr, *wall = nullptr, *rel1 = nullptr,
                 *rel2 = nullptr;
};

TEST_F(VisitTest, AnObjectBeingVisitedIsNeitherEnteredNorWalkedThrough) {
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
}

TEST_F(BaseObjectTest, DestroyMarksTheObjectAsFreed) {
    kxBaseObject object{};
    uint32_t counter = 7;
    kx::baseobject_init(&object, KXIFCVERSION_IFC_4, &counter, model_->model_manager);
    EXPECT_EQ(object.validity_mask, i_VALIDITY_MASK_VALUE);
    EXPECT_EQ(object.object_id, 7u);
    EXPECT_EQ(counter, 8u);
    EXPECT_EQ(object.retain_count, 1u);
    EXPECT_EQ(object.output_file_id, 4294967295u);
    object.retain_count = 0;
    kx::baseobject_destroy(&object);
    EXPECT_EQ(object.validity_mask, 111111111u);

    // Any later use is recognised and reported.
    expect_reports();
    EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(&object), kxBFALSE);
    EXPECT_TRUE(asserts().saw("base_object->validity_mask == i_VALIDITY_MASK_VALUE"));
}

}  // namespace
