// Calls that would corrupt a model are refused with a report and change
// nothing: a reference into another model, one aggregate given to two
// owners, a release changed under existing instances, ids run out.
#include <string>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class ApiMisuseTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        kxtest::LibraryTest::SetUp();
        expect_reports();
        for (kxIfcModel *&model : models_) {
            model = kxIfcModel_new();
            kxIfcModel_set_version(model, KXIFCVERSION_IFC_4);
        }
    }
    void TearDown() override {
        for (kxIfcModel *&model : models_) kxIfcModel_free(&model);
        kxtest::LibraryTest::TearDown();
    }
    kxBaseObject *make(int model, const kxClass_t *klass) { return kxIfcModel_dontuse_new_object(models_[model], klass); }
    // Whether a report naming the condition came while `call` ran.
    template <typename Call>
    bool refused(const std::string &condition, Call call) {
        asserts().clear();
        call();
        return asserts().saw(condition);
    }
    kxIfcModel *models_[2] = {nullptr, nullptr};
};

TEST_F(ApiMisuseTest, RefusedCallsChangeNothing) {
    kxBaseObject *wall = make(0, kxIfcWall_class());
    kxBaseObject *foreign_placement = make(1, kxIfcLocalPlacement_class());
    EXPECT_TRUE(refused("the value belongs to the instance's model",
                        [&] { kxIfcWall_set_ObjectPlacement(wall, foreign_placement); }));
    EXPECT_EQ(kxIfcWall_get_ObjectPlacement(wall), nullptr);

    kxListIfcCartesianPoint *foreign_points = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(foreign_points, make(1, kxIfcCartesianPoint_class()));
    kxBaseObject *polyline = make(0, kxIfcPolyline_class());
    EXPECT_TRUE(refused("every instance of the aggregate belongs to the instance's model",
                        [&] { kxIfcPolyline_set_Points(polyline, foreign_points); }));
    EXPECT_EQ(kxIfcPolyline_get_Points(polyline), nullptr);
    kxListIfcCartesianPoint_free(&foreign_points);

    kxListIfcCartesianPoint *points = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(points, make(0, kxIfcCartesianPoint_class()));
    kxIfcPolyline_set_Points(polyline, points);
    kxBaseObject *other_polyline = make(0, kxIfcPolyline_class());
    EXPECT_TRUE(refused("the aggregate is not held by another instance or aggregate",
                        [&] { kxIfcPolyline_set_Points(other_polyline, points); }));
    EXPECT_EQ(kxIfcPolyline_get_Points(other_polyline), nullptr);  // freeing both models frees it once

    EXPECT_TRUE(refused("kxIfcModel_count_objects(ifc_model) == 0",
                        [&] { kxIfcModel_set_version(models_[0], KXIFCVERSION_IFC_2X3); }));
    EXPECT_EQ(kxIfcModel_ifc_version(models_[0]), KXIFCVERSION_IFC_4);
}

TEST_F(ApiMisuseTest, IdsDoNotWrapAround) {
    kxtest::TempDirectory directory("kxifc_ids");
    const std::string path = directory.write(
        "high.ifc",
        "ISO-10303-21;\nHEADER;\nFILE_DESCRIPTION((''),'2;1');\nFILE_NAME('','',(''),(''),'','','');\n"
        "FILE_SCHEMA(('IFC4'));\nENDSEC;\nDATA;\n#4294967294= IFCCARTESIANPOINT((0.,0.));\nENDSEC;\n"
        "END-ISO-10303-21;\n");
    kxWChar *name = kxWideString_new_from_utf8(path.c_str());
    kxIfcModel *model = kxIfcModel_read_from_step_file(name, 0, nullptr);
    kxWideString_free(&name);
    ASSERT_NE(model, nullptr);
    EXPECT_TRUE(refused("ifc_model->output_id_counter < ULONG_MAX",
                        [&] { EXPECT_EQ(kxIfcModel_dontuse_new_object(model, kxIfcCartesianPoint_class()), nullptr); }));
    EXPECT_EQ(kxIfcModel_count_objects(model), 1u);
    kxIfcModel_free(&model);
}

}  // namespace
