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
    std::vector<kxBaseObject *> by_class(const kxClass_t *klass) {
        return elements(kxIfcModel_dontuse_get_objects_by_class(model_, klass));
    }
    kxIfcModel *model_ = nullptr;
};

constexpr kxIfcVersion_t kReleases[] = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

TEST_F(ModelTest, ANewModelHasNoReleaseNoInstancesAnEmptyHeaderAndNumbersFromOne) {
    kxIfcModel *model = kxIfcModel_new();
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(static_cast<uint32_t>(kxIfcModel_ifc_version(model)), 65535u);
    EXPECT_EQ(kxIfcModel_count_objects(model), 0u);
    ASSERT_NE(kxIfcModel_get_header(model), nullptr);
    EXPECT_EQ(kxIfcHeader_author_fields_count(kxIfcModel_get_header(model)), 0u);
    kxIfcModel_set_version(model, KXIFCVERSION_IFC_2X3);
    EXPECT_EQ(kxIfcModel_ifc_version(model), KXIFCVERSION_IFC_2X3);
    kxBaseObject *first = kxIfcModel_dontuse_new_object(model, kxIfcWall_class());
    kxBaseObject *second = kxIfcModel_dontuse_new_object(model, kxIfcOrganization_class());
    kxBaseObject *third = kxIfcModel_dontuse_new_object(model, kxIfcWall_class());
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(first), 1u);
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(second), 2u);
    EXPECT_EQ(kxBaseObject_dontuse_object_output_file_id(third), 3u);
    EXPECT_EQ(kxIfcModel_count_objects(model), 3u);
    kxIfcModel_free(&model);
    EXPECT_EQ(model, nullptr);
}

TEST_F(ModelTest, AbstractClassesGiveNoInstanceInTheReleaseWhereTheyAreAbstract) {
    struct Case {
        const kxClass_t *klass;
        bool created[2];  // IFC2X3, IFC4
    };
    const Case cases[] = {
        {kxIfcBoundedCurve_class(), {false, false}},
        {kxIfcAddress_class(), {false, false}},
        {kxIfcAppliedValue_class(), {false, true}},
        {kxIfcAnnotationOccurrence_class(), {false, false}},  // abstract in IFC2X3, absent in IFC4
        {kxIfc2DCompositeCurve_class(), {true, false}},       // absent in IFC4
        {kxIfcWall_class(), {true, true}},
    };
    for (int r = 0; r < 2; r++) {
        new_model(kReleases[r]);
        for (const Case &c : cases) {
            kxBaseObject *instance = make(c.klass);
            EXPECT_EQ(instance != nullptr, c.created[r]) << "release " << r << " class " << kxClass_unique_id(c.klass);
        }
    }
}

TEST_F(ModelTest, ClassQueriesListKindsOldestFirst) {
    for (kxIfcVersion_t version : kReleases) {
        new_model(version);
        kxBaseObject *beam = make(kxIfcBeam_class());
        kxBaseObject *wall = make(kxIfcWall_class());
        kxBaseObject *standard = make(kxIfcWallStandardCase_class());
        kxBaseObject *person = make(kxIfcPerson_class());
        kxBaseObject *wall2 = make(kxIfcWall_class());

        EXPECT_EQ(by_class(kxIfcProduct_class()), (std::vector<kxBaseObject *>{beam, wall, standard, wall2}));
        EXPECT_EQ(by_class(kxIfcWall_class()), (std::vector<kxBaseObject *>{wall, standard, wall2}));
        EXPECT_EQ(by_class(kxIfcWallStandardCase_class()), (std::vector<kxBaseObject *>{standard}));
        EXPECT_EQ(by_class(kxIfcBeam_class()), (std::vector<kxBaseObject *>{beam}));
        EXPECT_EQ(by_class(kxIfcPerson_class()), (std::vector<kxBaseObject *>{person}));
        EXPECT_TRUE(by_class(kxIfcColumn_class()).empty());
        EXPECT_TRUE(by_class(kxIfcRoot_class()).size() == 4u);

        EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcElement_class()), beam);
        EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcWall_class()), wall);
        EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcWallStandardCase_class()), standard);
        EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcColumn_class()), nullptr);
    }
}

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

TEST_F(ModelTest, FreeingTheLastReferenceRemovesTheInstanceFromQueries) {
    new_model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall1 = make(kxIfcWall_class());
    kxBaseObject *wall2 = make(kxIfcWallStandardCase_class());
    kxBaseObject *holder = wall1;
    kxIfcModel_dontuse_free_object(model_, &holder);
    EXPECT_EQ(holder, nullptr);
    EXPECT_EQ(kxIfcModel_count_objects(model_), 1u);
    EXPECT_EQ(by_class(kxIfcWall_class()), (std::vector<kxBaseObject *>{wall2}));
    EXPECT_EQ(by_class(kxIfcBuildingElement_class()), (std::vector<kxBaseObject *>{wall2}));
    EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcRoot_class()), wall2);

    holder = wall2;
    kxIfcModel_dontuse_free_object(model_, &holder);
    EXPECT_EQ(kxIfcModel_count_objects(model_), 0u);
    EXPECT_TRUE(by_class(kxIfcRoot_class()).empty());
    EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcWall_class()), nullptr);
}

// When another holder still retains the instance, freeing it through the
// model leaves it listed and counted, with the model's reference kept; once
// the other holder has let go, freeing it again removes it.
TEST_F(ModelTest, FreeingAnInstanceRetainedElsewhereKeepsItListed) {
    new_model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *beam = make(kxIfcBeam_class());
    kx::baseobject_retain(wall);  // as a relationship helper would
    kxBaseObject *holder = wall;
    kxIfcModel_dontuse_free_object(model_, &holder);
    EXPECT_EQ(holder, nullptr);
    EXPECT_EQ(wall->validity_mask, i_VALIDITY_MASK_VALUE);
    EXPECT_EQ(wall->retain_count, 2u);
    EXPECT_EQ(kxIfcModel_count_objects(model_), 2u);
    EXPECT_EQ(by_class(kxIfcBuildingElement_class()), (std::vector<kxBaseObject *>{wall, beam}));
    EXPECT_EQ(kxIfcModel_dontuse_get_first_occurrence_of_class(model_, kxIfcWall_class()), wall);

    kxBaseObject *other_holder = wall;
    kx::baseobject_release(&other_holder);  // still listed, and alive
    EXPECT_EQ(wall->validity_mask, i_VALIDITY_MASK_VALUE);
    holder = wall;
    kxIfcModel_dontuse_free_object(model_, &holder);
    EXPECT_EQ(kxIfcModel_count_objects(model_), 1u);
    EXPECT_EQ(by_class(kxIfcBuildingElement_class()), (std::vector<kxBaseObject *>{beam}));
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

TEST_F(ModelTest, SetHeaderTakesTheNewHeaderOverAndFreesTheOld) {
    new_model(KXIFCVERSION_IFC_4);
    kxIfcHeader *header = kxIfcHeader_new_empty_header();
    kxIfcHeader_add_to_author(header, u"Ann");
    kxIfcHeader *const given = header;
    kxIfcModel_set_header(model_, &header);
    EXPECT_EQ(header, nullptr);
    ASSERT_EQ(kxIfcModel_get_header(model_), given);
    EXPECT_EQ(kxIfcHeader_author_fields_count(kxIfcModel_get_header(model_)), 1u);
    // Replacing it again frees this one; the fixture checks memory.
    kxIfcHeader *another = kxIfcHeader_new_empty_header();
    kxIfcModel_set_header(model_, &another);
    EXPECT_EQ(another, nullptr);
    EXPECT_EQ(kxIfcHeader_author_fields_count(kxIfcModel_get_header(model_)), 0u);
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

}  // namespace
