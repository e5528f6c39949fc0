// The merger on the real files of ../shared/ifc: a file split in two by
// storeys merges back into its original structure. Then the relationship
// helpers, which the merger builds on, the C++ layer, and the merger on small
// files.
#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/aggregate.h"
#include "kxifcmodel.h"
#include "kxifcmodel.hpp"
#include "model_fixture.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

using Instances = std::vector<kx::Instance>;

std::string guid_of(kx::Instance instance) { return kx::to_utf8(kxIfcRoot_get_GlobalId(instance.get())); }

std::optional<kx::Model> read_clean(const std::string &path) { return kx::Model::read(path, {true, 0}, nullptr); }

std::vector<kxBaseObject *> all_of(kxIfcModel *model, const kxClass_t *klass) {
    return kxtest::elements(kxIfcModel_dontuse_get_objects_by_class(model, klass));
}

// ---- spatial structure -----------------------------------------------------

Instances contained_in(kx::Instance structure) {
    Instances result;
    for (kx::Instance relationship :
         kx::InstanceRange(kxIfcSpatialElement_inverse_relation_ContainsElements(structure.get())))
        for (kx::Instance element : kx::elements(kxIfcRelContainedInSpatialStructure_get_RelatedElements(
                                                     relationship.get()),
                                                 kxSetIfcProduct_count, kxSetIfcProduct_get_element))
            result.push_back(element);
    return result;
}

Instances parts_of(kx::Instance whole) {
    Instances result;
    for (kx::Instance relationship :
         kx::InstanceRange(kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(whole.get())))
        for (kx::Instance part :
             kx::elements(kxIfcRelAggregates_get_RelatedObjects_v4(relationship.get()), kxSetIfcObjectDefinition_count,
                          kxSetIfcObjectDefinition_get_element))
            result.push_back(part);
    return result;
}

// The storey, what it contains and what all of these are made of.
void collect_storey(kx::Instance object, std::set<kxBaseObject *> &collected) {
    if (!object || !collected.insert(object.get()).second) return;
    for (kx::Instance part : parts_of(object)) collect_storey(part, collected);
    if (object.is_a("IfcSpatialElement"))
        for (kx::Instance element : contained_in(object)) collect_storey(element, collected);
}

// ---- splitting -----------------------------------------------------------

// Whether the relationship refers to a dropped instance, also through a
// select value it holds.
struct RefersTo {
    const std::set<kxBaseObject *> *dropped;
    bool found = false;
};
void check_reference(kxBaseObject **reference, void *context) {
    auto *refers = static_cast<RefersTo *>(context);
    if (*reference == nullptr) return;
    if (refers->dropped->count(*reference) != 0) refers->found = true;
    if (!kxClass_is_entity(kx::baseobject_class(*reference)))
        (*reference)->object_class->hooks->for_each_reference(*reference, &check_reference, context);
}

// Drops a reference. A select value is listed by the model too and outlives
// its holder, so it lets go of its member first.
void clear_reference(kxBaseObject **reference, void *context) {
    if (*reference != nullptr && !kxClass_is_entity(kx::baseobject_class(*reference)))
        (*reference)->object_class->hooks->for_each_reference(*reference, &clear_reference, context);
    kx::baseobject_release(reference);
}

// Keeps the storeys whose index has the given parity: the other storeys,
// what they contain and every relationship that refers to any of them
// leave the model; the kept storeys are aggregated under the building again.
void keep_storeys(kx::Model &model, int parity) {
    const kx::InstanceRange storeys = model.by_type("IfcBuildingStorey");
    std::set<kxBaseObject *> dropped;
    for (uint32_t i = 0; i < storeys.size(); ++i)
        if (static_cast<int>(i % 2) != parity) collect_storey(storeys[i], dropped);
    std::vector<kxBaseObject *> relationships;
    for (kx::Instance relationship : model.by_type("IfcRelationship")) {
        RefersTo refers{&dropped};
        relationship.get()->object_class->hooks->for_each_reference(relationship.get(), &check_reference, &refers);
        if (refers.found) relationships.push_back(relationship.get());
    }
    // Relationships may refer to each other (space boundaries do): their
    // references go first, so that none keeps another alive.
    for (kxBaseObject *relationship : relationships)
        relationship->object_class->hooks->for_each_reference(relationship, &clear_reference, nullptr);
    for (kxBaseObject *relationship : relationships) kxIfcModel_dontuse_free_object(model.get(), &relationship);
    for (kxBaseObject *instance : dropped) kxIfcModel_dontuse_free_object(model.get(), &instance);
    const kx::Instance building = model.by_type("IfcBuilding")[0];
    for (kx::Instance storey : model.by_type("IfcBuildingStorey"))
        kxRelCommon_append_rel_aggregates(nullptr, building.get(), storey.get(), model.get());
}

// ---- placements ---------------------------------------------------------------

// Rigid frame: columns x, y, z of the rotation, then the origin.
using Frame = std::array<std::array<double, 3>, 4>;

std::array<double, 3> ratios(kx::Instance direction, std::array<double, 3> fallback) {
    const kxArrIfcReal *values = direction ? kxIfcDirection_get_DirectionRatios_v4(direction.get()) : nullptr;
    if (values == nullptr) return fallback;
    std::array<double, 3> result{0, 0, 0};
    for (uint32_t i = 0; i < 3 && i < kxArrIfcReal_count(values); ++i) result[i] = kxArrIfcReal_get(values, i);
    const double length = std::sqrt(result[0] * result[0] + result[1] * result[1] + result[2] * result[2]);
    for (double &value : result) value /= length;
    return result;
}

std::array<double, 3> cross(const std::array<double, 3> &a, const std::array<double, 3> &b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Frame local_frame(kx::Instance placement) {
    const kxIfcAxis2Placement *select = kxIfcLocalPlacement_get_RelativePlacement(placement.get());
    const kx::Instance axes(select != nullptr ? kxIfcAxis2Placement_get_kxIfcAxis2Placement3D(select) : nullptr);
    Frame frame{};
    const std::array<double, 3> z = ratios(kx::Instance(kxIfcAxis2Placement3D_get_Axis(axes.get())), {0, 0, 1});
    const std::array<double, 3> reference =
        ratios(kx::Instance(kxIfcAxis2Placement3D_get_RefDirection(axes.get())), {1, 0, 0});
    const std::array<double, 3> y = cross(z, reference);
    const double y_length = std::sqrt(y[0] * y[0] + y[1] * y[1] + y[2] * y[2]);
    frame[1] = {y[0] / y_length, y[1] / y_length, y[2] / y_length};
    frame[0] = cross(frame[1], z);
    frame[2] = z;
    const kxArrIfcLengthMeasure *location =
        kxIfcCartesianPoint_get_Coordinates(kxIfcAxis2Placement3D_get_Location(axes.get()));
    for (uint32_t i = 0; i < 3 && location != nullptr && i < kxArrIfcLengthMeasure_count(location); ++i)
        frame[3][i] = kxArrIfcLengthMeasure_get(location, i);
    return frame;
}

// outer * inner: the inner frame expressed in the outer one's space.
Frame compose(const Frame &outer, const Frame &inner) {
    Frame result{};
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 3; ++row) {
            double value = column == 3 ? outer[3][row] : 0.0;
            for (int k = 0; k < 3; ++k) value += outer[k][row] * inner[column][k];
            result[column][row] = value;
        }
    return result;
}

Frame global_frame(kx::Instance product) {
    Frame frame{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    kx::Instance placement(kxIfcProduct_get_ObjectPlacement(product.get()));
    for (int depth = 0; placement.is_a("IfcLocalPlacement") && depth < 100; ++depth) {
        frame = compose(local_frame(placement), frame);
        placement = kx::Instance(kxIfcLocalPlacement_get_PlacementRelTo(placement.get()));
    }
    return frame;
}

// GlobalId -> global frame of the storeys and of what they contain.
std::map<std::string, Frame> placed_products(const kx::Model &model) {
    std::map<std::string, Frame> result;
    for (kx::Instance storey : model.by_type("IfcBuildingStorey")) {
        result[guid_of(storey)] = global_frame(storey);
        for (kx::Instance element : contained_in(storey)) result[guid_of(element)] = global_frame(element);
    }
    return result;
}

std::vector<std::string> all_guids(const kx::Model &model) {
    std::vector<std::string> result;
    for (kx::Instance rooted : model.by_type("IfcRoot")) result.push_back(guid_of(rooted));
    return result;
}

// ---- merging ----------------------------------------------------------------

// Merges the files (with the GlobalId table when one is named); the model or
// NULL, and the files not merged where the caller asks for them.
kxIfcModel *merge(const std::u16string &main, const std::vector<std::u16string> &secondaries,
                  kxArrString **not_merged, const std::u16string &table = u"") {
    kxIfcModelMerger *merger = kxIfcModelMerger_new(main.c_str());
    for (const std::u16string &name : secondaries) kxIfcModelMerger_add_secondary_model(merger, name.c_str());
    kxIfcModel *model = nullptr;
    kxIfcModelMerger_merge_models(merger, table.empty() ? nullptr : table.c_str(), &model, not_merged);
    kxIfcModelMerger_free(&merger);
    EXPECT_EQ(merger, nullptr);
    return model;
}

// The merge of the two halves with the table, when every file was merged.
std::optional<kx::Model> merge_halves(const kxtest::TempDirectory &directory) {
    kxArrString *not_merged = nullptr;
    kx::Model merged(merge(kxtest::wide(directory.file("half0.ifc")), {kxtest::wide(directory.file("half1.ifc"))},
                           &not_merged, kxtest::wide(directory.file("table.txt"))));
    const bool all_merged = not_merged == nullptr || kxArrString_count(not_merged) == 0;
    if (not_merged != nullptr) kxArrString_free(&not_merged);
    if (!merged || !all_merged) return std::nullopt;
    return merged;
}

class ServicesOnRealFilesTest : public kxtest::LibraryTest {};

TEST_F(ServicesOnRealFilesTest, FileSplitByStoreysMergesBackIntoItsStructureAndPlaces) {
    for (const char *name : {"ISSUE_171_IfcSurfaceCurveSweptAreaSolid.ifc", "AC20-FZK-Haus.ifc"}) {
        SCOPED_TRACE(name);
        const std::string path = kxtest::shared_path(std::string("ifc/") + name);
        if (path.empty()) GTEST_SKIP() << "shared data missing: " << name;
        kxtest::TempDirectory directory("kx_split_merge");
        for (int parity = 0; parity < 2; ++parity) {
            std::optional<kx::Model> half = read_clean(path);
            ASSERT_TRUE(half);
            keep_storeys(*half, parity);
            ASSERT_EQ(half->write(directory.file("half" + std::to_string(parity))), KX_EXPORT_OK);
        }
        const std::optional<kx::Model> original = read_clean(path);
        const std::optional<kx::Model> merged = merge_halves(directory);
        ASSERT_TRUE(original && merged);

        for (const char *type : {"IfcProject", "IfcSite", "IfcBuilding"}) EXPECT_EQ(merged->by_type(type).size(), 1u) << type;
        const std::vector<std::string> guids = all_guids(*merged);
        EXPECT_EQ(std::set<std::string>(guids.begin(), guids.end()).size(), guids.size()) << "GlobalIds repeat";

        const std::map<std::string, Frame> expected = placed_products(*original);
        const std::map<std::string, Frame> actual = placed_products(*merged);
        ASSERT_EQ(actual.size(), expected.size());
        for (const auto &[guid, frame] : expected) {
            const auto found = actual.find(guid);
            ASSERT_NE(found, actual.end()) << guid << " is missing";
            for (int column = 0; column < 4; ++column)
                for (int row = 0; row < 3; ++row)
                    ASSERT_NEAR(found->second[column][row], frame[column][row], 1e-9) << guid;
        }
        const std::optional<kx::Model> again = merge_halves(directory);
        ASSERT_TRUE(again);
        EXPECT_EQ(all_guids(*again), guids);
    }
}

// Relationship helpers: reuse or creation of each relationship, in both
// releases.
class RelationshipHelpersTest : public kxtest::ModelFixture {
protected:
    std::vector<kxBaseObject *> all(const kxClass_t *klass) { return all_of(model_, klass); }
    // The number of instances the aggregate attribute of that name holds.
    static uint32_t held(kxBaseObject *instance, const char16_t *attribute) {
        const kx::AttrRef *attr = kxtest::find_attribute(instance, attribute);
        const kxAggregate *aggregate = attr != nullptr ? kxtest::slot_at<kxAggregate *>(instance, *attr) : nullptr;
        return aggregate != nullptr ? aggregate->count : 0;
    }
};

// Aggregation reuses the relationship of the same name (case counts, and no
// name is a name of its own); a property set reuses its relationship, which
// in IFC2X3 leaves out a type object, there no IfcObject; typing, containment,
// reference and covering reuse the first relationship.
TEST_F(RelationshipHelpersTest, ReusingHelpersReuseTheirRelationshipAndOthersMakeANewOne) {
    for (kxIfcVersion_t version : {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4}) {
        model(version);
        kxBaseObject *building = make(kxIfcBuilding_class());
        const char16_t *const names[] = {u"Levels", u"Levels", u"levels", nullptr, nullptr};
        for (const char16_t *name : names)
            kxRelCommon_append_rel_aggregates(name, building, make(kxIfcBuildingStorey_class()), model_);
        std::vector<uint32_t> related;
        for (kxBaseObject *relation : all(kxIfcRelAggregates_class()))
            related.push_back(held(relation, u"RelatedObjects"));
        EXPECT_EQ(related, (std::vector<uint32_t>{2, 1, 2}));

        kxBaseObject *pset = make(kxIfcPropertySet_class());
        kxIfcRelDefinesByProperties *relation = nullptr, *again = nullptr;
        kxRelCommon_append_rel_defines_by_properties(pset, make(kxIfcWallType_class()), model_, &relation);
        kxRelCommon_append_rel_defines_by_properties(pset, make(kxIfcWall_class()), model_, &again);
        EXPECT_EQ(again, relation);
        EXPECT_EQ(held(relation, u"RelatedObjects"), version == KXIFCVERSION_IFC_4 ? 2u : 1u);

        kxBaseObject *type = make(kxIfcWallType_class());
        kxBaseObject *storey = make(kxIfcBuildingStorey_class());
        kxBaseObject *walls[2] = {make(kxIfcWall_class()), make(kxIfcWall_class())};
        kxBaseObject *coverings[2] = {make(kxIfcCovering_class()), make(kxIfcCovering_class())};
        for (kxBaseObject *wall : walls) {
            kxRelCommon_append_rel_defines_by_type(type, wall, model_);
            kxRelCommon_append_rel_contained_in_spatial_structure(storey, wall, model_);
            kxRelCommon_append_rel_referenced_in_spatial_structure(wall, storey, model_);
        }
        for (kxBaseObject *covering : coverings)
            kxRelCommon_append_rel_covers_bldg_elements(walls[0], covering, model_);
        const std::pair<const kxClass_t *, const char16_t *> reusing[] = {
            {kxIfcRelDefinesByType_class(), u"RelatedObjects"},
            {kxIfcRelContainedInSpatialStructure_class(), u"RelatedElements"},
            {kxIfcRelReferencedInSpatialStructure_class(), u"RelatedElements"},
            {kxIfcRelCoversBldgElements_class(), u"RelatedCoverings"}};
        for (const auto &[klass, attribute] : reusing) {
            const std::vector<kxBaseObject *> relations = all(klass);
            ASSERT_EQ(relations.size(), 1u) << kxtest::narrow(klass->ifc_name);
            EXPECT_EQ(held(relations[0], attribute), 2u) << kxtest::narrow(klass->ifc_name);
        }
        const std::vector<kxBaseObject *> contained =
            kxtest::elements(kxIfcWall_inverse_relation_ContainedInStructure(walls[1]));
        ASSERT_EQ(contained.size(), 1u);
        EXPECT_EQ(contained[0], all(kxIfcRelContainedInSpatialStructure_class())[0]);
        const kx::AttrRef *relating = kxtest::find_attribute(contained[0], u"RelatingStructure");
        ASSERT_NE(relating, nullptr);
        EXPECT_EQ(kxtest::slot_at<kxBaseObject *>(contained[0], *relating), storey);
    }

    model(KXIFCVERSION_IFC_4);
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxIfcRelConnectsElements *first = nullptr, *second = nullptr;
    kxRelCommon_append_rel_connects_elements(u"Joint", a, b, model_, &first);
    kxRelCommon_append_rel_connects_elements(u"Joint", a, b, model_, &second);
    EXPECT_NE(first, second);
    EXPECT_EQ(all(kxIfcRelConnectsElements_class()).size(), 2u);
    kxSetIfcElement *realizing = kxSetIfcElement_new();
    kxSetIfcElement_append_element(realizing, make(kxIfcBeam_class()));
    kxRelCommon_append_rel_connects_with_realizing_elements(nullptr, a, b, realizing, model_, nullptr);
    EXPECT_EQ(all(kxIfcRelConnectsWithRealizingElements_class()).size(), 1u);

    for (int i = 0; i < 2; i++) {
        kxSetIfcObjectDefinition *members = kxSetIfcObjectDefinition_new();
        kxSetIfcObjectDefinition_append_element(members, a);
        kxRelCommon_append_rel_assigns_to_group(members, i == 0 ? u"Zone" : nullptr, model_);
    }
    const std::vector<kxBaseObject *> groups = all(kxIfcGroup_class());
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(all(kxIfcRelAssignsToGroup_class()).size(), 2u);
    EXPECT_EQ(kxIfcGroup_ObjectType_has_value(groups[0]), kxBTRUE);
    EXPECT_EQ(kxIfcGroup_ObjectType_has_value(groups[1]), kxBFALSE);

    kxSetIfcObjectDefinition *assigned = kxSetIfcObjectDefinition_new();
    kxSetIfcObjectDefinition_append_element(assigned, b);
    kxRelCommon_append_rel_assigns_to_product(u"Host", assigned, a, model_);
    kxBaseObject *assignment = all(kxIfcRelAssignsToProduct_class())[0];
    kxBaseObject *product = kxIfcRelAssignsToProduct_get_RelatingProduct_v4(assignment);
    ASSERT_NE(product, nullptr);
    EXPECT_EQ(kxIfcProductSelect_get_kxIfcProduct(product), a);
}

// The C++ layer: reads with diagnostics as values, owning ranges, UTF-8 and
// UTF-16 texts, writing and reading back.
class FacadeTest : public kxtest::LibraryTest {};

struct ReadCase {
    const char *name;
    const char *data;  // nullptr: no file at all
    bool readable;
    kxReadCode code;   // the first problem's code, 0: clean
    uint32_t line;
};

TEST_F(FacadeTest, ReadGivesTheModelOrNothingAndTheProblemsAsValues) {
    const ReadCase cases[] = {
        {"clean", "#1=IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',$,'W',$,$,$,$,$,$);\n", true, 0, 0},
        {"dangling", "#1=IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',#9,'W',$,$,$,$,$,$);\n", true,
         KX_READ_UNDEFINED_REFERENCE, 8},
        {"syntax", "#1=IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',,,;\n", false, KX_READ_SYNTAX_ERROR, 8},
        {"missing", nullptr, false, KX_READ_UNREADABLE_FILE, 0},
    };
    expect_reports();
    for (const ReadCase &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = c.data != nullptr
                                     ? dir().write(std::string(c.name) + ".ifc",
                                                       kxtest::step_file(c.data))
                                     : dir().file("missing.ifc");
        kx::ReadDiagnostics diagnostics;
        const std::optional<kx::Model> model = kx::Model::read(path, {}, &diagnostics);
        EXPECT_EQ(model.has_value(), c.readable);
        EXPECT_EQ(diagnostics.clean(), c.code == 0);
        if (c.code == 0) continue;
        ASSERT_FALSE(diagnostics.problems.empty());
        EXPECT_EQ(diagnostics.problems[0].code, c.code) << diagnostics.problems[0].message;
        EXPECT_EQ(diagnostics.problems[0].code_name(), kxReadCode_name(c.code));
        if (c.line != 0) {
            EXPECT_EQ(diagnostics.problems[0].line, c.line);
        }
        EXPECT_FALSE(diagnostics.problems[0].message.empty());
    }
}

TEST_F(FacadeTest, BuiltModelWritesAndReadsBackThroughRangesAndTexts) {
    const std::string name = "Wand \xC3\xA4 \xE6\x9D\xB1 \xF0\x9F\x8F\xA0";  // a, a CJK sign, an emoji
    {
        kx::Model model = kx::Model::create(KXIFCVERSION_IFC_4);
        EXPECT_FALSE(model.create("IfcBuildingElement"));  // abstract
        EXPECT_FALSE(model.create("IfcNoSuchThing"));
        const kx::Instance storey = model.create("IfcBuildingStorey");
        for (int i = 0; i < 2; ++i) {
            const kx::Instance wall = model.create(kxIfcWall_class());
            kxIfcWall_set_Name(wall.get(), kx::WideText(name));
            kxRelCommon_append_rel_contained_in_spatial_structure(storey.get(), wall.get(), model.get());
        }
        kx::Model moved = std::move(model);
        EXPECT_FALSE(model);
        EXPECT_EQ(moved.write(dir().file("house.IFC")), KX_EXPORT_OK);  // written as house.ifc
    }
    const std::optional<kx::Model> model = kx::Model::read(dir().file("house.ifc"), {true, 0}, nullptr);
    ASSERT_TRUE(model);
    EXPECT_EQ(kxIfcModel_text_mode(model->get()), KX_TEXT_MODE_LOSSLESS);
    kx::InstanceRange walls = model->by_type(u"ifcbuildingelement");  // subtypes, any case
    ASSERT_EQ(walls.size(), 2u);
    for (kx::Instance wall : walls) {
        EXPECT_EQ(wall.class_name_u16(), u"IfcWall");
        EXPECT_TRUE(wall.is_a(u"IFCWALL"));
        EXPECT_FALSE(wall.is_a("IfcSlab"));
        EXPECT_EQ(kx::to_u16string(kxIfcWall_get_Name(wall.get())), u"Wand \u00e4 \u6771 \U0001F3E0");
    }
    EXPECT_LT(walls[0].id(), walls[1].id());
    // Each wall sees the one containment through its inverse.
    const kx::InstanceRange storeys = model->instances_of(kxIfcBuildingStorey_class());
    kx::InstanceRange containments(kxIfcSpatialStructureElement_inverse_relation_ContainsElements(storeys[0].get()));
    ASSERT_EQ(containments.size(), 1u);
    for (kx::Instance wall : walls)
        EXPECT_EQ(kx::InstanceRange(kxIfcElement_inverse_relation_ContainedInStructure(wall.get())).to_vector(),
                  containments.to_vector());
}

// The model merger: small files written by the tests (so they choose every
// GlobalId) are merged and the result inspected.
using kxtest::elements;
using kxtest::narrow;
using kxtest::wide;

// A 22-character GlobalId made of the tag, padded with '0'.
std::string guid(const std::string &tag) {
    std::string text = tag;
    text.resize(22, '0');
    return text;
}

// An IFC4 file of a project in metres, a site, a building and one storey at
// height z holding one wall; the tags make the GlobalIds.
std::string storey_file(const std::string &storey, const std::string &storey_name, const std::string &z,
                        const std::string &wall, const std::string &wall_name) {
    return kxtest::step_file("#1= IFCPROJECT('" + guid("PRJ") + "',$,'project',$,$,$,$,$,#2);\n"
                            "#2= IFCUNITASSIGNMENT((#3));\n#3= IFCSIUNIT(*,.LENGTHUNIT.,$,.METRE.);\n"
                            "#4= IFCCARTESIANPOINT((0.,0.,0.));\n#5= IFCAXIS2PLACEMENT3D(#4,$,$);\n"
                            "#6= IFCLOCALPLACEMENT($,#5);\n#8= IFCLOCALPLACEMENT(#6,#5);\n"
                            "#7= IFCSITE('" + guid("SITE") + "',$,'site',$,$,#6,$,$,.ELEMENT.,$,$,$,$,$);\n"
                            "#9= IFCBUILDING('" + guid("BLD") + "',$,'building',$,$,#8,$,$,.ELEMENT.,$,$,$);\n"
                            "#10= IFCCARTESIANPOINT((0.,0.," + z + "));\n#11= IFCAXIS2PLACEMENT3D(#10,$,$);\n"
                            "#12= IFCLOCALPLACEMENT(#8,#11);\n"
                            "#13= IFCBUILDINGSTOREY('" + guid(storey) + "',$,'" + storey_name +
                            "',$,$,#12,$,$,.ELEMENT.,$);\n"
                            "#14= IFCRELAGGREGATES('" + guid("PRJA") + "',$,$,$,#1,(#7));\n"
                            "#15= IFCRELAGGREGATES('" + guid("SITEA") + "',$,$,$,#7,(#9));\n"
                            "#16= IFCRELAGGREGATES('" + guid(storey_name.substr(0, 4) + "A") + "',$,$,$,#9,(#13));\n"
                            "#17= IFCWALL('" + guid(wall) + "',$,'" + wall_name + "',$,$,#18,$,$,$);\n"
                            "#18= IFCLOCALPLACEMENT(#12,#5);\n"
                            "#19= IFCRELCONTAINEDINSPATIALSTRUCTURE('" + guid(storey_name.substr(0, 4) + "C") +
                            "',$,$,$,(#17),#13);\n");
}

class ModelMergerTest : public kxtest::LibraryTest {
protected:
    // A file of the text in the test's directory; its name.
    std::u16string write_file(const std::string &name, const std::string &text) {
        return wide(dir().write(name + ".ifc", text));
    }
    std::u16string main_file() { return write_file("main", storey_file("STA", "main storey", "0.", "WALLA", "main wall")); }
};

// A secondary file of the other release is not merged, nor one whose
// instances would run the main model out of ids (its last id is near 2^32);
// a name added twice is listed once. Misuse is reported.
TEST_F(ModelMergerTest, SecondaryOfOtherReleaseOrBeyondTheIdsLeftIsListedAsNotMerged) {
    const std::u16string main = main_file();
    std::string text = storey_file("STA", "main storey", "0.", "WALLA", "main wall");
    text.insert(text.rfind("ENDSEC;"), "#4294967290= IFCCARTESIANPOINT((0.,0.));\n");  // select values run out of ids
    const std::u16string crowded = write_file("crowded", text);
    const std::u16string old_file = write_file("old", kxtest::step_file("#1= IFCCARTESIANPOINT((0.,0.));\n", "IFC2X3"));
    for (const auto &[main, secondary] : {std::pair{main, old_file}, std::pair{crowded, main}}) {
        kxArrString *not_merged = nullptr;
        kxIfcModel *model = merge(main, {secondary, secondary}, &not_merged);  // listed once
        ASSERT_NE(model, nullptr);
        ASSERT_NE(not_merged, nullptr);
        ASSERT_EQ(kxArrString_count(not_merged), 1u);
        EXPECT_EQ(std::u16string(kxArrString_get(not_merged, 0)), secondary);
        kxArrString_free(&not_merged);
        kxIfcModel_free(&model);
    }
    kxIfcModelMerger *merger = nullptr;
    kxIfcModel *model = nullptr;
    expect_each_reported({
        {"(*model_merger) != NULL", [&] { kxIfcModelMerger_free(&merger); }},
        {"(model_merger) != NULL",
         [&] { EXPECT_EQ(kxIfcModelMerger_merge_models(nullptr, nullptr, &model, nullptr), kxBFALSE); }},
    });
}

TEST_F(ModelMergerTest, StoreysOfOneGlobalIdBecomeTheLowerHoldingTheProductsOfBoth) {
    // The same GlobalId, lower.
    const std::u16string second = write_file("second", storey_file("STA", "lower storey", "-1.", "WALLB", "second wall"));
    kxIfcModel *model = merge(main_file(), {second}, nullptr);
    ASSERT_NE(model, nullptr);
    const std::vector<kxBaseObject *> storeys = all_of(model, kxIfcBuildingStorey_class());
    ASSERT_EQ(storeys.size(), 1u);
    EXPECT_EQ(narrow(kxIfcRoot_get_Name(storeys[0])), "lower storey");

    std::vector<std::string> contained;
    for (kxBaseObject *relation : all_of(model, kxIfcRelContainedInSpatialStructure_class())) {
        EXPECT_EQ(kxIfcRelContainedInSpatialStructure_get_RelatingStructure_v4(relation), storeys[0]);
        kxSetIfcProduct *products = kxIfcRelContainedInSpatialStructure_get_RelatedElements(relation);
        for (uint32_t i = 0; i < kxSetIfcProduct_count(products); i++)
            contained.push_back(narrow(kxIfcRoot_get_Name(kxSetIfcProduct_get_element(products, i))));
    }
    std::sort(contained.begin(), contained.end());
    EXPECT_EQ(contained, (std::vector<std::string>{"main wall", "second wall"}));

    // The building aggregates the one storey once.
    const std::vector<kxBaseObject *> buildings = all_of(model, kxIfcBuilding_class());
    ASSERT_EQ(buildings.size(), 1u);
    EXPECT_EQ(elements(kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(buildings[0])).size(), 1u);
    EXPECT_EQ(elements(kxIfcObjectDefinition_inverse_relation_Decomposes_v4(storeys[0])).size(), 1u);

    kxIfcModel_export_model_to_file(model, u"merged", wide(dir().path()).c_str());
    kxBool errors = kxBTRUE;
    kxIfcModel *again = kxIfcModel_read_from_step_file(wide(dir().file("merged.ifc")).c_str(), 0, &errors);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(errors, kxBFALSE);
    kxIfcModel_free(&again);
    kxIfcModel_free(&model);
}

}  // namespace
