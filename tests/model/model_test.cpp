// The model: numbering, creation per release, class queries, traversal,
// freeing of instances and of the model, header ownership and inverse
// queries.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "model/model.h"
#include "model/modelmngr.h"
#include "model/objtable.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "kxifc_header.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

using kxtest::append_reference;
using kxtest::set_reference;
using kxtest::elements;

using ModelTest = kxtest::ModelFixture;
using List = std::vector<kxBaseObject *>;

constexpr kxIfcVersion_t kReleases[] = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

int32_t filter_by_map(kxBaseObject *instance, void *filter_data) {
    const auto &answers = *static_cast<std::map<kxBaseObject *, int32_t> *>(filter_data);
    return answers.at(instance);
}

// The instances a visit offers; each call sets the stop flag to `stop`.
std::vector<kxBaseObject *> visit(kxIfcModel *model, int32_t stop) {
    struct Log {
        std::vector<kxBaseObject *> calls;
        int32_t stop;
    } log{{}, stop};
    kxIfcModel_dontuse_visit_model(model, &log, [](kxBaseObject *instance, void *data, int32_t *stop_flag) {
        static_cast<Log *>(data)->calls.push_back(instance);
        *stop_flag = static_cast<Log *>(data)->stop;
    });
    return log.calls;
}

TEST_F(ModelTest, FilterKeepsOnlyAnAnswerOfExactlyOneAndVisitsStopOnRequest) {
    model(KXIFCVERSION_IFC_4);
    std::map<kxBaseObject *, int32_t> answers;
    std::vector<kxBaseObject *> walls, kept;
    const int32_t replies[] = {1, 2, 0, -1, 1, 3};
    for (int32_t reply : replies) {
        kxBaseObject *wall = make(kxIfcWall_class());
        walls.push_back(wall);
        answers[wall] = reply;
        if (reply == 1) kept.push_back(wall);
    }
    make(kxIfcBeam_class());  // of another class: never offered to the filter
    EXPECT_EQ(elements(kxIfcModel_dontuse_get_filtered_objects_of_class(model_, kxIfcWall_class(), &filter_by_map,
                                                                         &answers)),
              kept);
    EXPECT_EQ(elements(kxIfcModel_dontuse_get_filtered_objects_of_class(model_, kxIfcWall_class(), nullptr,
                                                                         nullptr)),
              walls);

    // A visit stops on request; visited flags persist until cleared.
    model(KXIFCVERSION_IFC_2X3);
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcBeam_class());
    kxBaseObject *c = make(kxIfcPerson_class());
    EXPECT_EQ(visit(model_, 1), (List{a}));
    kxBaseObject_dontuse_mark_as_visited(c);
    EXPECT_EQ(visit(model_, 0), (List{b})) << "only what is not visited yet";
    EXPECT_TRUE(visit(model_, 0).empty());
    kxIfcModel_clear_objects_visited_mask(model_);
    EXPECT_EQ(visit(model_, 2), (List{a, b, c})) << "only exactly 1 stops";
}

// Inverse queries scan the referring class and its subclasses, in creation
// order, through single references and through aggregates, each referring
// instance once.
TEST_F(ModelTest, InverseRelationsFindReferringInstancesOrAnEmptyArray) {
    for (kxIfcVersion_t version : kReleases) {
        model(version);
        kxBaseObject *building = make(kxIfcBuilding_class());
        kxBaseObject *storey = make(kxIfcBuildingStorey_class());
        kxBaseObject *space = make(kxIfcSpace_class());
        // Created before the aggregation, so that creation order differs
        // from the order of the classes.
        kxBaseObject *nests = make(kxIfcRelNests_class());
        kxBaseObject *aggregates = make(kxIfcRelAggregates_class());
        kxBaseObject *other = make(kxIfcRelAggregates_class());
        set_reference(nests, u"RelatingObject", building);
        append_reference(nests, u"RelatedObjects", space);
        append_reference(nests, u"RelatedObjects", space);  // listed twice, found once
        set_reference(aggregates, u"RelatingObject", building);
        append_reference(aggregates, u"RelatedObjects", storey);
        set_reference(other, u"RelatingObject", storey);
        append_reference(other, u"RelatedObjects", space);

        const kxClass_t *decomposes = kxIfcRelDecomposes_class();
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(building, decomposes, u"RelatingObject")),
                  (List{nests, aggregates}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(building, kxIfcRelAggregates_class(), u"RelatingObject")),
                  (List{aggregates}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(space, decomposes, u"RelatedObjects")),
                  (List{nests, other}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(storey, decomposes, u"RelatedObjects")),
                  (List{aggregates}));

        const kxClass_t *containment = kxIfcRelContainedInSpatialStructure_class();
        for (kxArrayST *none : {kx::modelmngr_inverse_relation_of(space, decomposes, u"RelatingObject"),
                                kx::modelmngr_inverse_relation_of(building, containment, u"RelatingStructure")}) {
            ASSERT_NE(none, nullptr);
            EXPECT_EQ(kxArrayST_dontuse_count(none), 0u);
            kxArrayST_dontuse_free(&none, nullptr);
        }
    }
}

// One object table: a non-owning list of instances of a class and its kinds.
std::vector<kxBaseObject *> listed(const kxIfcObjTable_t *object_table) {
    kxArrayST *array = kxArrayST_dontuse_new(nullptr);
    kx::objtable_all(object_table, array);
    return kxtest::elements(array);
}

// A table takes instances of its class and its subtypes, keeps their order
// through removals, and reports another class or an unlisted instance.
TEST_F(ModelTest, ObjectTablesAddAndRemoveKeepTheOrderAndReportStrangers) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxBaseObject *c = make(kxIfcWallStandardCase_class());
    kxBaseObject *unlisted = make(kxIfcWall_class());
    kxBaseObject *beam = make(kxIfcBeam_class());
    kxIfcObjTable_t *walls = kx::objtable_new(kxIfcWall_class(), 0x10000);
    EXPECT_EQ(kx::objtable_first(walls), nullptr);
    for (kxBaseObject *o : {a, b, c}) kx::objtable_add(walls, o);
    EXPECT_EQ(listed(walls), (List{a, b, c}));
    kx::objtable_remove(walls, b);
    EXPECT_EQ(listed(walls), (List{a, c}));
    kx::objtable_remove(walls, a);
    EXPECT_EQ(listed(walls), (List{c}));
    expect_each_reported({
        {"idx != ULONG_MAX", [&] { kx::objtable_remove(walls, unlisted); }},
        {"kxBaseObject_is_kind_of(base_object, object_table->klass) == CIERTO", [&] { kx::objtable_add(walls, beam); }},
    });
    EXPECT_EQ(listed(walls), (List{c}));  // the beam was left out
    kx::objtable_free(&walls);
}

// Misuse is reported. Calls that would corrupt a model are refused and
// change nothing: a reference into another model, one aggregate given to two
// owners, a release changed under existing instances, ids run out.
TEST_F(ModelTest, MisuseIsReportedAndRefusedCallsChangeNothing) {
    kxIfcModel *unset = kxIfcModel_new();  // no release yet
    kxIfcModel *nothing = nullptr;
    const std::string path =
        dir().write("high.ifc", kxtest::step_file("#4294967294= IFCCARTESIANPOINT((0.,0.));\n"));
    kxIfcModel *high = kxIfcModel_read_from_step_file(kxtest::wide(path).c_str(), 0, nullptr);
    kxIfcModel *other = model(KXIFCVERSION_IFC_4);
    kxIfcModel *home = model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *foreign_placement = make(other, kxIfcLocalPlacement_class());
    kxListIfcCartesianPoint *foreign_points = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(foreign_points, make(other, kxIfcCartesianPoint_class()));
    kxBaseObject *polyline = make(kxIfcPolyline_class());
    kxListIfcCartesianPoint *points = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(points, make(kxIfcCartesianPoint_class()));
    kxIfcPolyline_set_Points(polyline, points);
    kxBaseObject *other_polyline = make(kxIfcPolyline_class());
    expect_each_reported({
        {"ifc_model->ifc_version != ifc_version_not_defined",
         [&] { EXPECT_EQ(kxIfcModel_dontuse_new_object(unset, kxIfcWall_class()), nullptr); }},
        {"(ifc_model) != NULL", [] { EXPECT_EQ(kxIfcModel_count_objects(nullptr), 0u); }},
        {"(*ifc_model) != NULL", [&] { kxIfcModel_free(&nothing); }},
        {"ifc_model1 != ifc_model2", [&] { kx::model_move_all_instances(home, home); }},
        {"ifc_model->output_id_counter < ULONG_MAX",
         [&] { EXPECT_EQ(kxIfcModel_dontuse_new_object(high, kxIfcCartesianPoint_class()), nullptr); }},
        {"the value belongs to the instance's model", [&] { kxIfcWall_set_ObjectPlacement(wall, foreign_placement); }},
        {"every instance of the aggregate belongs to the instance's model",
         [&] { kxIfcPolyline_set_Points(other_polyline, foreign_points); }},
        {"the aggregate is not held by another instance or aggregate",
         [&] { kxIfcPolyline_set_Points(other_polyline, points); }},
        {"kxIfcModel_count_objects(ifc_model) == 0", [&] { kxIfcModel_set_version(home, KXIFCVERSION_IFC_2X3); }},
    });
    EXPECT_EQ(kxIfcModel_count_objects(unset), 0u);
    EXPECT_EQ(kxIfcModel_count_objects(high), 1u);
    EXPECT_EQ(kxIfcModel_count_objects(home), 4u);
    EXPECT_EQ(kxIfcWall_get_ObjectPlacement(wall), nullptr);
    EXPECT_EQ(kxIfcPolyline_get_Points(other_polyline), nullptr);  // freeing the model frees the points once
    EXPECT_EQ(kxIfcModel_ifc_version(home), KXIFCVERSION_IFC_4);
    kxListIfcCartesianPoint_free(&foreign_points);
    kxIfcModel_free(&unset);
    kxIfcModel_free(&high);
}

// ---- the head of every instance ----

// rel1 relates the building to the storey, rel2 the storey to the space and
// the building; the wall is reached by nothing.
TEST_F(ModelTest, AnObjectBeingVisitedIsSkippedAndHeadsAreNumbered) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *building = make(kxIfcBuilding_class());
    kxBaseObject *storey = make(kxIfcBuildingStorey_class());
    kxBaseObject *space = make(kxIfcSpace_class());
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *rel1 = make(kxIfcRelAggregates_class());
    kxBaseObject *rel2 = make(kxIfcRelAggregates_class());
    set_reference(rel1, u"RelatingObject", building);
    append_reference(rel1, u"RelatedObjects", storey);
    set_reference(rel2, u"RelatingObject", storey);
    append_reference(rel2, u"RelatedObjects", space);
    append_reference(rel2, u"RelatedObjects", building);
    const auto visited = [&] {
        std::vector<bool> result;
        for (kxBaseObject *o : {building, storey, space, wall, rel1, rel2})
            result.push_back(kxBaseObject_dontuse_has_been_visited(o) == kxBTRUE);
        return result;
    };
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

    // A new head takes the next object id and no output id; a destroyed one is
    // marked, and any later use is reported. A NULL object is released quietly,
    // and its output id is all ones.
    kxBaseObject object{};
    uint32_t counter = 7;
    kx::baseobject_init(&object, KXIFCVERSION_IFC_4, &counter, model_->model_manager);
    EXPECT_EQ(object.object_id, 7u);
    EXPECT_EQ(counter, 8u);
    EXPECT_EQ(object.retain_count, 1u);
    EXPECT_EQ(object.output_file_id, 4294967295u);
    object.retain_count = 0;
    kx::baseobject_destroy(&object);
    EXPECT_EQ(object.validity_mask, 111111111u);
    kxBaseObject *nothing = nullptr;
    kx::baseobject_release(&nothing);
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(nullptr), 4294967295u);
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(building), 1u);
    expect_each_reported({
        {"base_object->validity_mask == i_VALIDITY_MASK_VALUE",
         [&] { EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(&object), kxBFALSE); }},
        {"(base_object) != NULL", [] { kx::baseobject_release(nullptr); }},
    });
}

}  // namespace
