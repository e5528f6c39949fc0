// Moving every instance of one model into another.
#include "kxifcmodel.h"
#include "model/model.h"
#include "model_fixture.h"

namespace {

class ModelMoveTest : public kxtest::ModelFixture {};

TEST_F(ModelMoveTest, MovingAModelIntoItselfIsReported) {
    expect_reports();
    kxIfcModel *same = model(KXIFCVERSION_IFC_4);
    kxIfcModel_dontuse_new_object(same, kxIfcWall_class());
    kx::model_move_all_instances(same, same);
    EXPECT_TRUE(asserts().saw("ifc_model1 != ifc_model2"));
    EXPECT_EQ(kxIfcModel_count_objects(same), 1u);
}

}  // namespace
