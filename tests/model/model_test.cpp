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
using kxtest::find_attribute;
using kxtest::set_reference;
using kxtest::slot_at;
using kxtest::elements;

class ModelTest : public kxtest::LibraryTest {
protected:
    void TearDown() override {
        if (model_ != nullptr) kxIfcModel_free(&model_);
        kxtest::LibraryTest::TearDown();
    }
    kxIfcModel *new_model(kxIfcVersion_t version) {
        if (model_ != nullptr) kxIfcModel_free(&model_);
        model_ = kxIfcModel_new();
        kxIfcModel_set_version(model_, version);
        return model_;
    }
    kxBaseObject *make(const kxClass_t *klass) { return kxIfcModel_dontuse_new_object(model_, klass); }
    kxIfcModel *model_ = nullptr;
};

constexpr kxIfcVersion_t kReleases[] = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

int32_t filter_by_map(kxBaseObject *instance, void *filter_data) {
    const auto &answers = *static_cast<std::map<kxBaseObject *, int32_t> *>(filter_data);
    return answers.at(instance);
}

TEST_F(ModelTest, FilterKeepsOnlyAnAnswerOfExactlyOne) {
    new_model(KXIFCVERSION_IFC_4);
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
}

struct VisitLog {
    std::vector<kxBaseObject *> calls;
    size_t stop_after = SIZE_MAX;  // set the stop flag on that call (1-based)
};

void log_visit(kxBaseObject *instance, void *user_data, int32_t *stop) {
    VisitLog *log = static_cast<VisitLog *>(user_data);
    log->calls.push_back(instance);
    if (log->calls.size() == log->stop_after) *stop = 1;
}

void stop_with_two(kxBaseObject *, void *user_data, int32_t *stop) {
    ++*static_cast<int *>(user_data);
    *stop = 2;  // only exactly 1 stops
}

TEST_F(ModelTest, VisitStopsOnRequestAndVisitedFlagsPersistUntilCleared) {
    new_model(KXIFCVERSION_IFC_2X3);
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcBeam_class());
    kxBaseObject *c = make(kxIfcPerson_class());
    using List = std::vector<kxBaseObject *>;

    VisitLog once;
    once.stop_after = 1;
    kxIfcModel_dontuse_visit_model(model_, &once, &log_visit);
    EXPECT_EQ(once.calls, (List{a}));
    EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(a), kxBTRUE);
    EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(b), kxBFALSE);

    // Flags persist: the next visit offers only what is not visited yet.
    kxBaseObject_dontuse_mark_as_visited(c);
    VisitLog rest;
    kxIfcModel_dontuse_visit_model(model_, &rest, &log_visit);
    EXPECT_EQ(rest.calls, (List{b}));
    VisitLog none;
    kxIfcModel_dontuse_visit_model(model_, &none, &log_visit);
    EXPECT_TRUE(none.calls.empty());

    kxIfcModel_clear_objects_visited_mask(model_);
    for (kxBaseObject *o : {a, b, c}) EXPECT_EQ(kxBaseObject_dontuse_has_been_visited(o), kxBFALSE);
    int calls = 0;
    kxIfcModel_dontuse_visit_model(model_, &calls, &stop_with_two);
    EXPECT_EQ(calls, 3);
}

// Inverse queries scan the referring class and its subclasses, in creation
// order, through single references and through aggregates, each referring
// instance once.
TEST_F(ModelTest, InverseRelationsFindReferringInstancesOrAnEmptyArray) {
    for (kxIfcVersion_t version : kReleases) {
        new_model(version);
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
        using List = std::vector<kxBaseObject *>;

        const kxClass_t *decomposes = kxIfcRelDecomposes_class();
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(building, decomposes, u"RelatingObject")),
                  (List{nests, aggregates}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(building, kxIfcRelAggregates_class(), u"RelatingObject")),
                  (List{aggregates}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(space, decomposes, u"RelatedObjects")),
                  (List{nests, other}));
        EXPECT_EQ(elements(kx::modelmngr_inverse_relation_of(storey, decomposes, u"RelatedObjects")),
                  (List{aggregates}));

        kxArrayST *none = kx::modelmngr_inverse_relation_of(space, decomposes, u"RelatingObject");
        ASSERT_NE(none, nullptr);
        EXPECT_EQ(kxArrayST_dontuse_count(none), 0u);
        kxArrayST_dontuse_free(&none, nullptr);
        none = kx::modelmngr_inverse_relation_of(building, kxIfcRelContainedInSpatialStructure_class(),
                                                 u"RelatingStructure");
        ASSERT_NE(none, nullptr);
        EXPECT_EQ(kxArrayST_dontuse_count(none), 0u);
        kxArrayST_dontuse_free(&none, nullptr);
    }
}

TEST_F(ModelTest, CreatingBeforeTheReleaseIsSetIsReportedAndGivesNothing) {
    expect_reports();
    model_ = kxIfcModel_new();
    EXPECT_EQ(make(kxIfcWall_class()), nullptr);
    EXPECT_TRUE(asserts().saw("ifc_model->ifc_version != ifc_version_not_defined"));
    EXPECT_EQ(kxIfcModel_count_objects(model_), 0u);
}

TEST_F(ModelTest, ANullModelIsReported) {
    expect_reports();
    EXPECT_EQ(kxIfcModel_count_objects(nullptr), 0u);
    EXPECT_TRUE(reported("(ifc_model) != NULL"));
    kxIfcModel *nothing = nullptr;
    kxIfcModel_free(&nothing);
    EXPECT_TRUE(asserts().saw("(*ifc_model) != NULL"));
}

TEST_F(ModelTest, MovingAModelIntoItselfIsReported) {
    expect_reports();
    new_model(KXIFCVERSION_IFC_4);
    make(kxIfcWall_class());
    kx::model_move_all_instances(model_, model_);
    EXPECT_TRUE(asserts().saw("ifc_model1 != ifc_model2"));
    EXPECT_EQ(kxIfcModel_count_objects(model_), 1u);
}

// One object table: a non-owning list of instances of a class and its kinds.
class ObjectTableTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }
    void TearDown() override {
        for (kxIfcObjTable_t *&table : tables_) kx::objtable_free(&table);
        ModelFixture::TearDown();
    }
    kxIfcObjTable_t *table(const kxClass_t *klass) {
        tables_.push_back(kx::objtable_new(klass, 0x10000));
        return tables_.back();
    }
    static std::vector<kxBaseObject *> listed(const kxIfcObjTable_t *object_table) {
        kxArrayST *array = kxArrayST_dontuse_new(nullptr);
        kx::objtable_all(object_table, array);
        return kxtest::elements(array);
    }
    std::vector<kxIfcObjTable_t *> tables_;
};

using List = std::vector<kxBaseObject *>;

TEST_F(ObjectTableTest, AddAcceptsKindsAndReportsOtherClasses) {
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *standard = make(kxIfcWallStandardCase_class());
    kxBaseObject *beam = make(kxIfcBeam_class());
    kxIfcObjTable_t *walls = table(kxIfcWall_class());
    EXPECT_EQ(kx::objtable_first(walls), nullptr);
    kx::objtable_add(walls, wall);
    kx::objtable_add(walls, standard);
    EXPECT_TRUE(asserts().reports().empty());
    EXPECT_EQ(listed(walls), (List{wall, standard}));
    EXPECT_EQ(kx::objtable_first(walls), wall);

    expect_reports();
    kx::objtable_add(walls, beam);
    EXPECT_TRUE(asserts().saw("kxBaseObject_is_kind_of(base_object, object_table->klass) == CIERTO"));
}

TEST_F(ObjectTableTest, RemoveKeepsTheOrderOfTheRestAndReportsAnUnlistedInstance) {
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxBaseObject *c = make(kxIfcWallStandardCase_class());
    kxBaseObject *d = make(kxIfcWall_class());
    kxIfcObjTable_t *walls = table(kxIfcWall_class());
    for (kxBaseObject *o : {a, b, c}) kx::objtable_add(walls, o);
    kx::objtable_remove(walls, b);
    EXPECT_EQ(listed(walls), (List{a, c}));
    kx::objtable_remove(walls, a);
    EXPECT_EQ(kx::objtable_first(walls), c);
    EXPECT_TRUE(asserts().reports().empty());

    expect_reports();
    kx::objtable_remove(walls, d);
    ASSERT_EQ(asserts().reports().size(), 1u);
    EXPECT_TRUE(asserts().saw("idx != ULONG_MAX"));
    EXPECT_EQ(listed(walls), (List{c}));
}

TEST_F(ObjectTableTest, MergeAppendsTheSecondTableAndEmptiesIt) {
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxBaseObject *c = make(kxIfcWallStandardCase_class());
    kxBaseObject *d = make(kxIfcWall_class());
    kxIfcObjTable_t *first = table(kxIfcWall_class());
    kxIfcObjTable_t *second = table(kxIfcWall_class());
    kx::objtable_add(first, b);
    kx::objtable_add(first, a);
    kx::objtable_add(second, d);
    kx::objtable_add(second, c);
    kx::objtable_merge(first, second);
    EXPECT_EQ(listed(first), (List{b, a, d, c}));
    EXPECT_TRUE(listed(second).empty());
    EXPECT_EQ(kx::objtable_first(second), nullptr);
    // The emptied table is still usable.
    kx::objtable_add(second, a);
    EXPECT_EQ(listed(second), (List{a}));
    // Merging an empty table changes nothing.
    kxIfcObjTable_t *empty = table(kxIfcWall_class());
    kx::objtable_merge(first, empty);
    EXPECT_EQ(listed(first), (List{b, a, d, c}));
}

// Calls that would corrupt a model are refused with a report and change
// nothing: a reference into another model, one aggregate given to two
// owners, a release changed under existing instances, ids run out.
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
    kxIfcModel *model = kxIfcModel_read_from_step_file(kxtest::wide(path).c_str(), 0, nullptr);
    ASSERT_NE(model, nullptr);
    EXPECT_TRUE(refused("ifc_model->output_id_counter < ULONG_MAX",
                        [&] { EXPECT_EQ(kxIfcModel_dontuse_new_object(model, kxIfcCartesianPoint_class()), nullptr); }));
    EXPECT_EQ(kxIfcModel_count_objects(model), 1u);
    kxIfcModel_free(&model);
}

}  // namespace
