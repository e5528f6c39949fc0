// Moving every instance of one model into another.
#include "kxifcmodel.h"
#include "model/model.h"
#include "model_fixture.h"

namespace {

class ModelMoveTest : public kxtest::ModelFixture {};

TEST_F(ModelMoveTest, EveryInstanceMovesAndTheSourceEndsEmpty) {
    kxIfcModel *target = model(KXIFCVERSION_IFC_4);
    kxIfcModel *source = model(KXIFCVERSION_IFC_4);
    kxBaseObject *kept = kxIfcModel_dontuse_new_object(target, kxIfcWall_class());
    kxBaseObject *wall = kxIfcModel_dontuse_new_object(source, kxIfcWall_class());
    kxBaseObject *placement = kxIfcModel_dontuse_new_object(source, kxIfcLocalPlacement_class());
    kxIfcProduct_set_ObjectPlacement(wall, placement);
    kx::model_move_all_instances(source, target);
    EXPECT_EQ(kxIfcModel_count_objects(source), 0u);
    EXPECT_EQ(kxIfcModel_count_objects(target), 3u);
    EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(source, kxIfcWall_class()), nullptr);
    const std::vector<kxBaseObject *> walls = kxtest::elements(kxIfcModel_dontuse_get_objects_by_class(target, kxIfcWall_class()));
    EXPECT_EQ(walls, (std::vector<kxBaseObject *>{kept, wall}));
    EXPECT_TRUE(kx::baseobject_has_been_moved(wall));
    EXPECT_TRUE(kx::baseobject_has_been_moved(placement));
    EXPECT_FALSE(kx::baseobject_has_been_moved(kept));
    // Inverse queries of a moved instance now look into the target.
    EXPECT_EQ(kxtest::elements(kxIfcLocalPlacement_inverse_relation_PlacesObject(placement)).size(), 1u);
}

TEST_F(ModelMoveTest, MovingAModelIntoItselfIsReported) {
    expect_reports();
    kxIfcModel *same = model(KXIFCVERSION_IFC_4);
    kxIfcModel_dontuse_new_object(same, kxIfcWall_class());
    kx::model_move_all_instances(same, same);
    EXPECT_TRUE(asserts().saw("ifc_model1 != ifc_model2"));
    EXPECT_EQ(kxIfcModel_count_objects(same), 1u);
}

}  // namespace
