// The merger on the real files of ../shared/ifc: a file split in two by
// storeys merges back into its original structure. Then the relationship
// helpers, which the merger builds on, the C++ layer, and the merger on small
// files. Then the units model conversor on models built through the public
// interface: scales of SI prefixes and units, handlers and the default
// conversion, conversion-based and derived units, values that state their own
// unit, integer measures, monetary values, and what is left alone; and the
// conversion handles beneath it.
#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/aggregate.h"
#include "services/unitconversion.h"
#include "support/ptrarray.h"
#include "support/wstring.h"
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
        EXPECT_EQ(diagnostics.problems[0].line, c.line);
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

int32_t unit_type(const std::string &name) {
    return kxtest::enum_member(kxIfcUnitEnum_has_value, kxIfcUnitEnum_to_string, name);
}
int32_t derived_type(const std::string &name) {
    return kxtest::enum_member(kxIfcDerivedUnitEnum_has_value, kxIfcDerivedUnitEnum_to_string, name);
}
int32_t prefix(const std::string &name) {
    return kxtest::enum_member(kxIfcSIPrefix_has_value, kxIfcSIPrefix_to_string, name);
}
int32_t si_name(const std::string &name) {
    return kxtest::enum_member(kxIfcSIUnitName_has_value, kxIfcSIUnitName_to_string, name);
}

double times_thousand(double value) { return value * 1000.0; }
double plus_one(double value) { return value + 1.0; }
double times_ten(double value) { return value * 10.0; }
double to_cents(double value, const kxWChar *currency) {
    return narrow(currency) == "EUR" ? value * 100.0 : -1.0;
}

constexpr kxIfcVersion_t kReleases[] = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

class UnitsModelConversorTest : public kxtest::ModelFixture {
protected:
    void TearDown() override {
        if (conversor_ != nullptr) kxUnitsModelConversor_free(&conversor_);
        ModelFixture::TearDown();
    }
    kxUnitsModelConversor *conversor() {
        if (conversor_ == nullptr) conversor_ = kxUnitsModelConversor_new();
        return conversor_;
    }
    void convert_by_default() {
        kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(conversor());
        convert();
    }
    void convert() { kxUnitsModelConversor_apply_conversion(conversor(), model_); }
    // A new model of the release and no conversor yet.
    void fresh(kxIfcVersion_t release) {
        if (conversor_ != nullptr) kxUnitsModelConversor_free(&conversor_);
        model(release);
    }
    // An IfcValue holding the measure.
    template <typename T>
    kxBaseObject *value(void (*set)(kxIfcValue *, T), T measure) {
        kxBaseObject *select = make(kxIfcValue_class());
        set(select, measure);
        return select;
    }

    // ---- units ----

    kxBaseObject *si_unit(const std::string &type, const char *si_prefix, const std::string &name) {
        kxBaseObject *unit = make(kxIfcSIUnit_class());
        kxIfcSIUnit_set_UnitType(unit, unit_type(type));
        if (si_prefix != nullptr) kxIfcSIUnit_set_Prefix(unit, prefix(si_prefix));
        kxIfcSIUnit_set_Name(unit, si_name(name));
        return unit;
    }
    // An IfcUnit select holding the unit.
    kxBaseObject *unit_select(kxBaseObject *unit) {
        kxBaseObject *select = make(kxIfcUnit_class());
        if (kxBaseObject_dontuse_is_object_kind_of(unit, kxIfcNamedUnit_class()))
            kxIfcUnit_set_kxIfcNamedUnit(select, unit);
        else if (kxBaseObject_dontuse_is_object_kind_of(unit, kxIfcDerivedUnit_class()))
            kxIfcUnit_set_kxIfcDerivedUnit(select, unit);
        else
            kxIfcUnit_set_kxIfcMonetaryUnit(select, unit);
        return select;
    }
    kxBaseObject *assign(std::initializer_list<kxBaseObject *> units) {
        kxBaseObject *assignment = make(kxIfcUnitAssignment_class());
        kxSetIfcUnit *set = kxSetIfcUnit_new();
        for (kxBaseObject *unit : units) kxSetIfcUnit_append_element(set, unit_select(unit));
        kxIfcUnitAssignment_set_Units(assignment, set);
        return assignment;
    }
    // A conversion-based unit: factor units of the base unit.
    kxBaseObject *conversion_based(const std::string &type, const char16_t *name, double factor, kxBaseObject *base,
                                   const kxClass_t *klass = kxIfcConversionBasedUnit_class()) {
        kxBaseObject *unit = make(klass);
        kxIfcNamedUnit_set_UnitType(unit, unit_type(type));
        kxIfcConversionBasedUnit_set_Name(unit, name);
        kxBaseObject *measure = make(kxIfcMeasureWithUnit_class());
        kxIfcMeasureWithUnit_set_ValueComponent(measure, value(kxIfcValue_set_kxIfcReal, factor));
        kxIfcMeasureWithUnit_set_UnitComponent(measure, unit_select(base));
        kxIfcConversionBasedUnit_set_ConversionFactor(unit, measure);
        return unit;
    }
    kxBaseObject *derived(const std::string &type, std::initializer_list<std::pair<kxBaseObject *, int32_t>> elements) {
        kxBaseObject *unit = make(kxIfcDerivedUnit_class());
        kxIfcDerivedUnit_set_UnitType(unit, derived_type(type));
        kxSetIfcDerivedUnitElement *set = kxSetIfcDerivedUnitElement_new();
        for (const auto &[named, exponent] : elements) {
            kxBaseObject *element = make(kxIfcDerivedUnitElement_class());
            kxIfcDerivedUnitElement_set_Unit(element, named);
            kxIfcDerivedUnitElement_set_Exponent(element, exponent);
            kxSetIfcDerivedUnitElement_append_element(set, element);
        }
        kxIfcDerivedUnit_set_Elements(unit, set);
        return unit;
    }

    // ---- values ----

    kxBaseObject *length_value(double length) { return value(kxIfcValue_set_kxIfcLengthMeasure, length); }
    kxBaseObject *single_value(kxBaseObject *value, kxBaseObject *unit = nullptr) {
        kxBaseObject *property = make(kxIfcPropertySingleValue_class());
        kxIfcPropertySingleValue_set_Name(property, u"Value");
        kxIfcPropertySingleValue_set_NominalValue(property, value);
        if (unit != nullptr) kxIfcPropertySingleValue_set_Unit(property, unit_select(unit));
        return property;
    }
    kxBaseObject *point(std::initializer_list<double> coordinates) {
        kxBaseObject *instance = make(kxIfcCartesianPoint_class());
        kxArrIfcLengthMeasure *list = kxArrIfcLengthMeasure_new();
        for (double coordinate : coordinates) kxArrIfcLengthMeasure_add(list, coordinate);
        kxIfcCartesianPoint_set_Coordinates(instance, list);
        return instance;
    }
    std::vector<double> coordinates(kxBaseObject *instance) {
        std::vector<double> result;
        const kxArrIfcLengthMeasure *list = kxIfcCartesianPoint_get_Coordinates(instance);
        for (uint32_t i = 0; i < kxArrIfcLengthMeasure_count(list); i++)
            result.push_back(kxArrIfcLengthMeasure_get(list, i));
        return result;
    }
    kxBaseObject *extrusion(double depth) {
        kxBaseObject *instance = make(kxIfcExtrudedAreaSolid_class());
        kxIfcExtrudedAreaSolid_set_Depth(instance, depth);
        return instance;
    }
    kxListIfcValue *length_list(std::initializer_list<double> values) {
        kxListIfcValue *list = kxListIfcValue_new();
        for (double value : values) kxListIfcValue_append_element(list, length_value(value));
        return list;
    }
    static double length_at(const kxListIfcValue *list, uint32_t index) {
        return kxIfcValue_get_kxIfcLengthMeasure(kxListIfcValue_get_element(list, index));
    }
    static double nominal_length(kxBaseObject *property) {
        return kxIfcValue_get_kxIfcLengthMeasure(kxIfcPropertySingleValue_get_NominalValue(property));
    }

    // How many instances of model_ are not marked visited (this marks them).
    uint32_t unvisited_instances() {
        uint32_t count = 0;
        kxIfcModel_dontuse_visit_model(model_, &count, [](kxBaseObject *, void *counter, int32_t *) {
            ++*static_cast<uint32_t *>(counter);
        });
        return count;
    }

    kxUnitsModelConversor *conversor_ = nullptr;
};

// ---- the default conversion of the assignment's units ----

TEST_F(UnitsModelConversorTest, MilliMetreModelDividesEveryLengthBy1000AndModelWithoutUnitsIsLeftAlone) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        // The first length unit wins; an absorbed dose unit (the first
        // measure type of the tables) must not reach a plain REAL list.
        assign({si_unit("ABSORBEDDOSEUNIT", "MILLI", "GRAY"), si_unit("LENGTHUNIT", "MILLI", "METRE"),
                si_unit("LENGTHUNIT", "CENTI", "METRE")});
        kxBaseObject *corner = point({1000.0, 2500.0, -500.0});
        kxBaseObject *solid = extrusion(3000.0);
        kxBaseObject *unset_depth = make(kxIfcExtrudedAreaSolid_class());
        kxBaseObject *property = single_value(length_value(2500.0));
        kxBaseObject *ratio = value(kxIfcValue_set_kxIfcReal, 1000.0);
        kxBaseObject *count = value(kxIfcValue_set_kxIfcCountMeasure, 1000.0);
        kxBaseObject *angle = value(kxIfcValue_set_kxIfcPlaneAngleMeasure, 90.0);
        kxBaseObject *direction = make(kxIfcDirection_class());
        kxArrReal *ratios = kxArrReal_new();
        kxArrReal_add(ratios, 1000.0);
        if (release == KXIFCVERSION_IFC_2X3)
            kxIfcDirection_set_DirectionRatios_v2x3(direction, ratios);
        else
            kxArrReal_free(&ratios);

        convert_by_default();

        EXPECT_EQ(coordinates(corner), (std::vector<double>{1.0, 2.5, -0.5}));
        EXPECT_DOUBLE_EQ(kxIfcExtrudedAreaSolid_get_Depth(solid), 3.0);
        EXPECT_EQ(kxIfcExtrudedAreaSolid_Depth_has_value(unset_depth), kxBFALSE) << "unset values stay unset";
        EXPECT_DOUBLE_EQ(nominal_length(property), 2.5);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcReal(ratio), 1000.0) << "a value without a unit";
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcCountMeasure(count), 1000.0);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcPlaneAngleMeasure(angle), 90.0) << "no angle unit is assigned";
        if (release == KXIFCVERSION_IFC_2X3) {
            EXPECT_DOUBLE_EQ(kxArrReal_get(kxIfcDirection_get_DirectionRatios_v2x3(direction), 0), 1000.0);
        }

        // A model without units (in IFC4 an assignment without any) is left
        // unchanged, even with a handler and a value that states its unit.
        fresh(release);
        if (release == KXIFCVERSION_IFC_4) make(kxIfcUnitAssignment_class());
        corner = point({1000.0, 2000.0});
        property = single_value(length_value(2500.0), si_unit("LENGTHUNIT", "MILLI", "METRE"));
        kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), nullptr, &times_thousand);
        convert_by_default();
        EXPECT_EQ(coordinates(corner), (std::vector<double>{1000.0, 2000.0}));
        EXPECT_DOUBLE_EQ(nominal_length(property), 2500.0);
    }
}

// ---- handlers ----

TEST_F(UnitsModelConversorTest, ContextDependentUnitsTakeOnlyTheHandlerOfTheirNameAndMisusedHandlersAreReported) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *unit = make(kxIfcContextDependentUnit_class());
    kxIfcContextDependentUnit_set_UnitType(unit, unit_type("LENGTHUNIT"));
    kxIfcContextDependentUnit_set_Name(unit, u"Module");
    // Without a default conversion a derived unit without handler is left alone.
    assign({unit, derived("MASSDENSITYUNIT", {{si_unit("MASSUNIT", nullptr, "GRAM"), 1}})});
    kxBaseObject *solid = extrusion(3.0);
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), nullptr, &plus_one);
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), u"module", &times_thousand);
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), u"Module", &times_ten);
    convert();
    EXPECT_DOUBLE_EQ(kxIfcExtrudedAreaSolid_get_Depth(solid), 30.0) << "identity, then the handler of that name";

    expect_reports();
    kxUnitsModelConversor_append_named_unit_handler(conversor(), 0, nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("kxIfcUnitEnum_has_value(named_unit_type) == kxBTRUE"));
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("USERDEFINED"), nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("named_unit_user_defined_name != NULL"));
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), nullptr, nullptr);
    EXPECT_TRUE(asserts().saw("(named_unit_handler) != NULL"));
    kxUnitsModelConversor_append_derived_unit_handler(conversor(), 0, nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("kxIfcDerivedUnitEnum_has_value(derived_unit_type) == kxBTRUE"));
    kxUnitsModelConversor_append_derived_unit_handler(conversor(), derived_type("USERDEFINED"), nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("derived_unit_user_defined_name != NULL"));
    kxUnitsModelConversor_append_derived_unit_handler(conversor(), derived_type("MASSDENSITYUNIT"), nullptr, nullptr);
    EXPECT_TRUE(reported("(derived_unit_handler) != NULL"));
    kxUnitsModelConversor_apply_conversion(conversor(), nullptr);
    EXPECT_TRUE(asserts().saw("(ifc_model) != NULL"));
    kxUnitsModelConversor_apply_conversion(nullptr, nullptr);
    kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(nullptr);
    kxUnitsModelConversor_set_monetary_unit_handler(nullptr, &to_cents);
    EXPECT_TRUE(asserts().saw("(units_handler) != NULL"));
    kxUnitsModelConversor *none = nullptr;
    kxUnitsModelConversor_free(&none);
    kxUnitsModelConversor_free(nullptr);
}

// ---- conversion-based and derived units ----

TEST_F(UnitsModelConversorTest, ConversionOffsetIsAddedAfterTheFactorAndRecursionStops) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *fahrenheit =
        conversion_based("THERMODYNAMICTEMPERATUREUNIT", u"DEGREE FAHRENHEIT", 5.0 / 9.0,
                         si_unit("THERMODYNAMICTEMPERATUREUNIT", nullptr, "KELVIN"),
                         kxIfcConversionBasedUnitWithOffset_class());
    kxIfcConversionBasedUnitWithOffset_set_ConversionOffset_v4(fahrenheit, 255.37222222222223);
    assign({fahrenheit});
    kxBaseObject *temperature = value(kxIfcValue_set_kxIfcThermodynamicTemperatureMeasure, 32.0);
    single_value(temperature);
    convert_by_default();
    EXPECT_NEAR(kxIfcValue_get_kxIfcThermodynamicTemperatureMeasure(temperature), 273.15, 1e-9);

    // Units that define themselves stop at the recursion limit.
    expect_reports();
    fresh(KXIFCVERSION_IFC_4);
    kxBaseObject *odd = conversion_based("LENGTHUNIT", u"ODD", 1.0, si_unit("LENGTHUNIT", nullptr, "METRE"));
    kxIfcMeasureWithUnit_set_UnitComponent(kxIfcConversionBasedUnit_get_ConversionFactor(odd), unit_select(odd));
    assign({odd});
    kxBaseObject *solid = extrusion(5.0);
    convert_by_default();
    EXPECT_TRUE(asserts().saw("recursion_level < 100"));
    EXPECT_TRUE(asserts().saw("did_get_conversion_to_base_handle == CIERTO"));
    EXPECT_DOUBLE_EQ(kxIfcExtrudedAreaSolid_get_Depth(solid), 5.0);
}

TEST_F(UnitsModelConversorTest, DerivedUnitsComposeTheirElementsAndTruncateIntegers) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        // g/cm3: 1 g/cm3 = 1000 kg/m3.
        kxBaseObject *density = derived("MASSDENSITYUNIT", {{si_unit("MASSUNIT", nullptr, "GRAM"), 1},
                                                             {si_unit("LENGTHUNIT", "CENTI", "METRE"), -3}});
        // mm/s.
        kxBaseObject *velocity = derived("LINEARVELOCITYUNIT", {{si_unit("LENGTHUNIT", "MILLI", "METRE"), 1},
                                                                 {si_unit("TIMEUNIT", nullptr, "SECOND"), -1}});
        // A count per tenth of a second: 29 of them are 2.9 per second, and
        // integer measures are truncated toward zero.
        kxBaseObject *rate = derived("INTEGERCOUNTRATEUNIT", {{si_unit("FREQUENCYUNIT", "DECI", "HERTZ"), 1}});
        assign({density, velocity, rate});
        kxBaseObject *mass_density = value(kxIfcValue_set_kxIfcMassDensityMeasure, 2.5);
        kxBaseObject *speed = value(kxIfcValue_set_kxIfcLinearVelocityMeasure, 1500.0);
        kxBaseObject *positive = value(kxIfcValue_set_kxIfcIntegerCountRateMeasure, 29);
        kxBaseObject *negative = value(kxIfcValue_set_kxIfcIntegerCountRateMeasure, -29);
        kxBaseObject *whole = value(kxIfcValue_set_kxIfcIntegerCountRateMeasure, 30);
        single_value(positive);
        kxUnitsModelConversor_append_derived_unit_handler(conversor(), derived_type("LINEARVELOCITYUNIT"), nullptr,
                                                          &times_ten);
        convert_by_default();
        EXPECT_NEAR(kxIfcValue_get_kxIfcMassDensityMeasure(mass_density), 2500.0, 1e-9);
        EXPECT_NEAR(kxIfcValue_get_kxIfcLinearVelocityMeasure(speed), 15.0, 1e-12) << "1.5 m/s, then the handler";
        EXPECT_EQ(kxIfcValue_get_kxIfcIntegerCountRateMeasure(positive), 2) << "2.9 becomes 2, not 3";
        EXPECT_EQ(kxIfcValue_get_kxIfcIntegerCountRateMeasure(negative), -2);
        EXPECT_EQ(kxIfcValue_get_kxIfcIntegerCountRateMeasure(whole), 3);
    }
}

// ---- values that state their own unit ----

// Each value is converted once, under its own unit where it states one: every
// kind of property, quantities, measures with unit, time series and table
// columns; a value without a unit of its own takes the model's.
TEST_F(UnitsModelConversorTest, ValuesWithTheirOwnUnitConvertUnderIt) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        assign({si_unit("LENGTHUNIT", "MILLI", "METRE"), si_unit("TIMEUNIT", nullptr, "SECOND")});
        kxBaseObject *in_metres = single_value(length_value(2.5), si_unit("LENGTHUNIT", nullptr, "METRE"));
        kxBaseObject *in_centimetres = single_value(length_value(250.0), si_unit("LENGTHUNIT", "CENTI", "METRE"));
        kxBaseObject *quantity = make(kxIfcQuantityLength_class());
        kxIfcQuantityLength_set_LengthValue(quantity, 250.0);
        kxIfcQuantityLength_set_Unit(quantity, si_unit("LENGTHUNIT", "CENTI", "METRE"));
        kxBaseObject *global = make(kxIfcQuantityLength_class());
        kxIfcQuantityLength_set_LengthValue(global, 250.0);
        kxBaseObject *measure = make(kxIfcMeasureWithUnit_class());
        kxBaseObject *value = length_value(25.0);
        kxIfcMeasureWithUnit_set_ValueComponent(measure, value);
        kxIfcMeasureWithUnit_set_UnitComponent(measure, unit_select(si_unit("LENGTHUNIT", "DECI", "METRE")));

        kxBaseObject *bounded = make(kxIfcPropertyBoundedValue_class());
        kxBaseObject *upper = length_value(3000.0);
        kxBaseObject *lower = length_value(1000.0);
        kxIfcPropertyBoundedValue_set_UpperBoundValue(bounded, upper);
        kxIfcPropertyBoundedValue_set_LowerBoundValue(bounded, lower);
        kxIfcPropertyBoundedValue_set_Unit(bounded, unit_select(si_unit("LENGTHUNIT", "MILLI", "METRE")));
        kxBaseObject *enumeration = make(kxIfcPropertyEnumeration_class());
        kxIfcPropertyEnumeration_set_Name(enumeration, u"Sizes");
        kxIfcPropertyEnumeration_set_EnumerationValues(enumeration, length_list({100.0, 200.0}));
        kxIfcPropertyEnumeration_set_Unit(enumeration, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));
        kxBaseObject *list = make(kxIfcPropertyListValue_class());
        kxIfcPropertyListValue_set_ListValues(list, length_list({10.0, 20.0}));
        kxIfcPropertyListValue_set_Unit(list, unit_select(si_unit("LENGTHUNIT", "DECI", "METRE")));
        kxBaseObject *table = make(kxIfcPropertyTableValue_class());
        kxIfcPropertyTableValue_set_DefiningValues(table, length_list({1000.0}));
        kxIfcPropertyTableValue_set_DefinedValues(table, length_list({100.0}));
        kxIfcPropertyTableValue_set_DefiningUnit(table, unit_select(si_unit("LENGTHUNIT", "MILLI", "METRE")));
        kxIfcPropertyTableValue_set_DefinedUnit(table, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));

        kxBaseObject *series = make(kxIfcRegularTimeSeries_class());
        kxIfcRegularTimeSeries_set_TimeStep(series, 60.0);
        kxIfcRegularTimeSeries_set_Unit(series, unit_select(si_unit("LENGTHUNIT", "MILLI", "METRE")));
        kxBaseObject *sample = make(kxIfcTimeSeriesValue_class());
        kxIfcTimeSeriesValue_set_ListValues(sample, length_list({1500.0}));
        kxListIfcTimeSeriesValue *samples = kxListIfcTimeSeriesValue_new();
        kxListIfcTimeSeriesValue_append_element(samples, sample);
        kxIfcRegularTimeSeries_set_Values(series, samples);
        kxBaseObject *irregular = make(kxIfcIrregularTimeSeries_class());
        kxIfcIrregularTimeSeries_set_Unit(irregular, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));
        kxBaseObject *irregular_sample = make(kxIfcIrregularTimeSeriesValue_class());
        kxIfcIrregularTimeSeriesValue_set_ListValues(irregular_sample, length_list({150.0}));
        kxListIfcIrregularTimeSeriesValue *irregular_samples = kxListIfcIrregularTimeSeriesValue_new();
        kxListIfcIrregularTimeSeriesValue_append_element(irregular_samples, irregular_sample);
        kxIfcIrregularTimeSeries_set_Values(irregular, irregular_samples);

        // Table columns with a unit convert their cells in full rows (IFC4).
        kxBaseObject *full = nullptr, *short_row = nullptr;
        if (release == KXIFCVERSION_IFC_4) {
            kxListIfcTableColumn *columns = kxListIfcTableColumn_new();
            kxBaseObject *with_unit = make(kxIfcTableColumn_class());
            kxIfcTableColumn_set_Unit_v4(with_unit, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));
            kxListIfcTableColumn_append_element(columns, with_unit);
            kxListIfcTableColumn_append_element(columns, make(kxIfcTableColumn_class()));
            kxBaseObject *cells = make(kxIfcTable_class());
            kxIfcTable_set_Columns_v4(cells, columns);
            kxListIfcTableRow *rows = kxListIfcTableRow_new();
            full = make(kxIfcTableRow_class());
            kxIfcTableRow_set_RowCells(full, length_list({150.0, 2000.0}));
            short_row = make(kxIfcTableRow_class());
            kxIfcTableRow_set_RowCells(short_row, length_list({3000.0}));
            kxListIfcTableRow_append_element(rows, full);
            kxListIfcTableRow_append_element(rows, short_row);
            kxIfcTable_set_Rows(cells, rows);
        }

        convert_by_default();

        EXPECT_DOUBLE_EQ(kxIfcQuantityLength_get_LengthValue(quantity), 2.5);
        EXPECT_DOUBLE_EQ(kxIfcQuantityLength_get_LengthValue(global), 0.25);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcLengthMeasure(value), 2.5);
        EXPECT_DOUBLE_EQ(nominal_length(in_metres), 2.5);
        EXPECT_DOUBLE_EQ(nominal_length(in_centimetres), 2.5);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcLengthMeasure(upper), 3.0);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcLengthMeasure(lower), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyEnumeration_get_EnumerationValues(enumeration), 1), 2.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyListValue_get_ListValues(list), 0), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyTableValue_get_DefiningValues(table), 0), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyTableValue_get_DefinedValues(table), 0), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcTimeSeriesValue_get_ListValues(sample), 0), 1.5);
        EXPECT_DOUBLE_EQ(kxIfcRegularTimeSeries_get_TimeStep(series), 0.06) << "under the series' unit, as it is";
        EXPECT_DOUBLE_EQ(length_at(kxIfcIrregularTimeSeriesValue_get_ListValues(irregular_sample), 0), 1.5);
        if (full != nullptr) {
            EXPECT_DOUBLE_EQ(length_at(kxIfcTableRow_get_RowCells(full), 0), 1.5) << "under the column's unit";
            EXPECT_DOUBLE_EQ(length_at(kxIfcTableRow_get_RowCells(full), 1), 2.0) << "no unit: the model's unit";
            EXPECT_DOUBLE_EQ(length_at(kxIfcTableRow_get_RowCells(short_row), 0), 3.0) << "not a full row";
        }
        EXPECT_EQ(unvisited_instances(), kxIfcModel_count_objects(model_)) << "no visited mark is left";
    }
}

// ---- monetary values ----

TEST_F(UnitsModelConversorTest, MonetaryValuesGoThroughTheMonetaryHandlerWithTheirCurrency) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        kxBaseObject *euro = make(kxIfcMonetaryUnit_class());
        if (release == KXIFCVERSION_IFC_4)
            kxIfcMonetaryUnit_set_Currency_v4(euro, u"EUR");
        else
            kxIfcMonetaryUnit_set_Currency_v2x3(
                euro, kxtest::enum_member(kxIfcCurrencyEnum_has_value, kxIfcCurrencyEnum_to_string, "EUR"));
        assign({euro});
        kxBaseObject *price = value(kxIfcValue_set_kxIfcMonetaryMeasure, 12.5);

        convert_by_default();
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcMonetaryMeasure(price), 12.5) << "the default leaves money alone";
        kxUnitsModelConversor_free(&conversor_);

        kxUnitsModelConversor_set_monetary_unit_handler(conversor(), &to_cents);
        convert();
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcMonetaryMeasure(price), 1250.0);
    }
}

// ---- files ----

// The lengths of one kind of slot in file order: extrusion depths.
std::vector<double> depths(kxIfcModel *ifc_model) {
    std::vector<double> result;
    kxArrayST *solids = kxIfcModel_dontuse_get_objects_by_class(ifc_model, kxIfcExtrudedAreaSolid_class());
    for (kxBaseObject *solid : kxtest::elements(solids))
        result.push_back(kxIfcExtrudedAreaSolid_get_Depth(solid));
    return result;
}

// The scale of the model's SI length unit to metres (its prefix), or 0 when
// its length unit is not an SI unit.
double si_length_scale(kxIfcModel *ifc_model) {
    kxBaseObject *assignment = kxIfcModel_dontuse_get_first_occurrence_of_class(ifc_model, kxIfcUnitAssignment_class());
    const kxSetIfcUnit *units = assignment != nullptr ? kxIfcUnitAssignment_get_Units(assignment) : nullptr;
    for (uint32_t i = 0; units != nullptr && i < kxSetIfcUnit_count(units); i++) {
        kxBaseObject *unit = kxIfcUnit_get_kxIfcNamedUnit(kxSetIfcUnit_get_element(units, i));
        if (unit == nullptr || kxIfcNamedUnit_get_UnitType(unit) != unit_type("LENGTHUNIT")) continue;
        if (!kxBaseObject_dontuse_is_object_kind_of(unit, kxIfcSIUnit_class())) return 0.0;
        if (kxIfcSIUnit_Prefix_has_value(unit) != kxBTRUE) return 1.0;
        const std::string name = narrow(kxIfcSIPrefix_to_string(kxIfcSIUnit_get_Prefix(unit)));
        return name == "MILLI" ? 1e-3 : name == "CENTI" ? 1e-2 : name == "DECI" ? 1e-1 : name == "KILO" ? 1e3 : 0.0;
    }
    return 0.0;
}

TEST_F(UnitsModelConversorTest, SampleFilesScaleEveryLengthByOneFactor) {
    const std::vector<std::string> files = kxtest::sample_files();
    if (files.empty()) GTEST_SKIP() << "no sample files";
    int checked = 0;
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        const std::u16string name = kxtest::wide(path);
        kxIfcModel *original = kxIfcModel_read_from_step_file(name.c_str(), 0, nullptr);
        kxIfcModel *converted = kxIfcModel_read_from_step_file(name.c_str(), 0, nullptr);
        ASSERT_NE(original, nullptr);
        ASSERT_NE(converted, nullptr);
        kxUnitsModelConversor *units = kxUnitsModelConversor_new();
        kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(units);
        kxUnitsModelConversor_append_named_unit_handler(units, unit_type("LENGTHUNIT"), nullptr, &times_thousand);
        kxUnitsModelConversor_apply_conversion(units, converted);
        kxUnitsModelConversor_free(&units);

        // Every depth is now in millimetres: one factor for all of them.
        const std::vector<double> before = depths(original);
        const std::vector<double> after = depths(converted);
        ASSERT_EQ(before.size(), after.size());
        double factor = 0.0;
        for (size_t i = 0; i < before.size(); i++) {
            if (before[i] == 0.0) continue;
            if (factor == 0.0) factor = after[i] / before[i];
            EXPECT_NEAR(after[i], before[i] * factor, std::fabs(before[i] * factor) * 1e-12);
        }
        const double expected = 1000.0 * si_length_scale(original);
        if (factor != 0.0 && expected > 0.0) {
            EXPECT_NEAR(factor, expected, expected * 1e-9);
            checked++;
        }
        kxIfcModel_free(&original);
        kxIfcModel_free(&converted);
    }
    EXPECT_GT(checked, 0) << "some file has extrusions in an SI length unit";
}

// Conversion handles (linear, composed, chained), unit conversions with
// their callbacks and ordering, and the manager that forwards to the
// conversor's callbacks.
using namespace kx;

class UnitConversionTest : public kxtest::LibraryTest {};

kxUnitConversionHandle *linear(double factor, double offset) {
    return unitconvhandle_new_linear(factor, offset, nullptr, nullptr);
}

TEST_F(UnitConversionTest, HandlesApplyTheirPartsThenTheirBaseConversionsAreOrderedByUnitAndMisuseIsReported) {
    expect_reports();
    // With sub-handlers a linear handle ignores its own factor and offset.
    PtrArray *parts = ptrarray_create(0);
    ptrarray_append(parts, linear(3.0, 0.0));
    kxUnitConversionHandle *base = linear(1.0, 1.0);
    kxUnitConversionHandle *handle = unitconvhandle_new_linear(100.0, 50.0, &parts, &base);
    EXPECT_EQ(parts, nullptr);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(handle, 2.0), 7.0) << "2 x 3, then the base + 1";
    unitconvhandle_destroy(&handle);

    // A second base is reported, taken over all the same, and replaces the first.
    handle = linear(2.0, 0.0);
    kxUnitConversionHandle *first = linear(1.0, 1.0), *second = linear(100.0, 0.0);
    unitconvhandle_set_base(handle, &first);
    unitconvhandle_set_base(handle, &second);
    EXPECT_TRUE(reported("handle->base_conversion_handler == NULL"));
    EXPECT_EQ(second, nullptr);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(handle, 3.0), 600.0);
    unitconvhandle_destroy(&handle);

    // A composed handle of nothing leaves values alone.
    PtrArray *nothing = ptrarray_create(0);
    kxUnitConversionHandle *empty = unitconvhandle_new_composed(&nothing);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(empty, 4.0), 4.0);
    EXPECT_TRUE(reported("num_handlers > 0"));
    unitconvhandle_destroy(&empty);

    // Conversions are ordered by the identity of their unit. Misuse leaves values
    // as they are; an unknown or monetary type has no order, a default that must
    // not be reached (reported with no condition).
    kxUnitConversionHandle *h1 = linear(1.0, 0.0), *h2 = linear(1.0, 0.0), *h3 = linear(1.0, 0.0);
    kxUnitConversionHandle *h4 = linear(1.0, 0.0);
    kxUnitConversion *named = unitconversion_new_named(16, &h1, nullptr);
    kxUnitConversion *derived = unitconversion_new_derived(8, &h2, nullptr);
    kxUnitConversion *area = unitconversion_new_named(3, &h4, nullptr);
    kxUnitConversion *strange = unitconversion_new_named(1, &h3, nullptr);
    strange->type = 9;
    EXPECT_GT(unitconversion_compare(named, area), 0);
    EXPECT_LT(unitconversion_compare(area, named), 0);
    EXPECT_EQ(unitconversion_compare(named, named), 0);
    const uint32_t sixteen = 16, three = 3, eight = 8, nine = 9;
    EXPECT_EQ(unitconversion_compare_with_named_unit(named, &sixteen), 0);
    EXPECT_GT(unitconversion_compare_with_named_unit(named, &three), 0);
    EXPECT_EQ(unitconversion_compare_with_derived_unit(derived, &eight), 0);
    EXPECT_LT(unitconversion_compare_with_derived_unit(derived, &nine), 0);
    EXPECT_EQ(unitconversion_key(named), 16u);
    EXPECT_EQ(unitconversion_key(derived), 8u);
    WideString euro = wstr_copy(u"EUR"), dollar = wstr_copy(u"USD");
    kxUnitConversion *monetary = unitconversion_new_monetary(&euro, &to_cents);
    kxUnitConversion *without_callback = unitconversion_new_monetary(&dollar, nullptr);
    kxUnitConversion *without_handle = nullptr, *none = nullptr;
    kxUnitConversionHandle *no_handle = nullptr;
    kxUnitConvManager *manager = unitconvmngr_new(nullptr, nullptr, nullptr, nullptr), *no_manager = nullptr;
    double converted = 0.0;
    int32_t value = 7;
    expect_each_reported({
        {"(unit_handle_to_ifc_basic_unit) != NULL",
         [&] { without_handle = unitconversion_new_named(1, nullptr, nullptr); }},
        {"unit_conversion->func_custom_monetary_unit_handler != NULL",
         [&] { EXPECT_DOUBLE_EQ(unitconversion_apply(without_callback, 2.0), 2.0); }},
        {"", [&] { EXPECT_DOUBLE_EQ(unitconversion_apply(strange, 2.0), 2.0); }},
        {"(unit_conversion) != NULL", [&] { EXPECT_DOUBLE_EQ(unitconversion_apply(nullptr, 2.0), 2.0); }},
        {"(*unit_conversion) != NULL", [&] { unitconversion_destroy(&none); }},
        {"unit_id1->type == unit_id2->type", [&] { unitconversion_compare(named, derived); }},
        {"", [&] { unitconversion_compare(monetary, monetary); }},
        {"(unit_conversion2) != NULL", [&] { unitconversion_compare(named, nullptr); }},
        {"(unit_conversion1) != NULL", [&] { unitconversion_compare(nullptr, named); }},
        {"(ifc_si_unit_name) != NULL", [&] { unitconversion_compare_with_named_unit(named, nullptr); }},
        {"(ifc_derived_unit_enum) != NULL", [&] { unitconversion_compare_with_derived_unit(derived, nullptr); }},
        {"(handle) != NULL", [&] { EXPECT_DOUBLE_EQ(unitconvhandle_apply(nullptr, 4.0), 4.0); }},
        {"(*handle) != NULL", [&] { unitconvhandle_destroy(&no_handle); }},
        {"(handle) != NULL", [&] { unitconvhandle_destroy(nullptr); }},
        {"(manager->func_force_conversion_with_unit) != NULL",
         [&] { unitconvmngr_force_conversion_with_unit(manager, nullptr); }},
        {"(manager->func_apply_conversion_double) != NULL",
         [&] { unitconvmngr_apply_conversion_double(manager, 0, 2.5, &converted); }},
        {"(manager->func_apply_conversion_long) != NULL",
         [&] { unitconvmngr_apply_conversion_long(manager, 0, &value); }},
        {"(manager) != NULL", [&] { unitconvmngr_force_conversion_with_unit(nullptr, nullptr); }},
        {"(*manager) != NULL", [&] { unitconvmngr_destroy(&no_manager); }},
    });
    EXPECT_DOUBLE_EQ(unitconversion_apply(without_handle, 2.0), 2.0);
    EXPECT_DOUBLE_EQ(converted, 2.5);
    EXPECT_EQ(value, 7);
    for (kxUnitConversion **conversion :
         {&named, &derived, &area, &strange, &monetary, &without_callback, &without_handle})
        unitconversion_destroy(conversion);
    unitconvmngr_destroy(&manager);
}

}  // namespace
