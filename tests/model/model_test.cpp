// The model: numbering, creation per release, class queries, traversal,
// freeing of instances and of the model, header ownership and inverse
// queries.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "kxifc_header.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "model/model.h"
#include "model/modelmngr.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "model_fixture.h"
#include "test_support.h"

#include "record_helpers.h"

using kxtest::append_reference;
using kxtest::find_attribute;
using kxtest::set_reference;
using kxtest::slot_at;

namespace {

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
// order, through single references and through aggregates.
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
    EXPECT_TRUE(asserts().saw("(ifc_model) != NULL"));
    asserts().clear();
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

TEST_F(ModelTest, AnInstanceRetainedElsewhereOutlivesItsModel) {
    new_model(KXIFCVERSION_IFC_2X3);
    kxBaseObject *building = make(kxIfcBuilding_class());
    kxBaseObject *rel = make(kxIfcRelAggregates_class());
    set_reference(rel, u"RelatingObject", building);
    kx::baseobject_retain(rel);
    kxIfcModel_free(&model_);
    // The references between instances went first, then the model's own.
    ASSERT_EQ(rel->validity_mask, i_VALIDITY_MASK_VALUE);
    EXPECT_EQ(rel->retain_count, 1u);
    EXPECT_EQ(slot_at<kxBaseObject *>(rel, *find_attribute(rel, u"RelatingObject")), nullptr);
    kx::baseobject_release(&rel);
    EXPECT_EQ(rel, nullptr);
}

}  // namespace
