// The model merger: files built and written by the library itself (so the
// tests choose every GlobalId) are merged and the result inspected.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "kxifcmodel.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

using kxtest::elements;
using kxtest::narrow;
using kxtest::wide;

// A 22-character GlobalId made of the tag, padded with '0'.
std::u16string guid(const std::string &tag) {
    std::string text = tag;
    text.resize(22, '0');
    return wide(text);
}

struct StoreySpec {
    std::string guid;
    std::string name;
    double z;
    std::string wall_guid;  // empty: no wall
    std::string wall_name;
};

struct FileSpec {
    kxIfcVersion_t release = KXIFCVERSION_IFC_4;
    std::string project = "PRJ";
    std::string site = "SITE";
    std::string building = "BLD";
    double building_x = 0.0;
    std::vector<StoreySpec> storeys;
};

// Builds an IFC4 (or IFC2X3) model of a project, a site, a building and its
// storeys, each storey containing one wall, and writes it as <dir>/<name>.ifc.
class FileBuilder {
public:
    explicit FileBuilder(kxIfcVersion_t release) : model_(kxIfcModel_new()) { kxIfcModel_set_version(model_, release); }
    ~FileBuilder() { kxIfcModel_free(&model_); }

    kxBaseObject *rooted(const kxClass_t *klass, const std::string &tag, const std::string &name) {
        kxBaseObject *instance = kxIfcModel_dontuse_new_object(model_, klass);
        kxIfcRoot_set_GlobalId(instance, guid(tag).c_str());
        kxIfcRoot_set_Name(instance, wide(name).c_str());
        return instance;
    }

    kxBaseObject *placement(kxBaseObject *relative_to, double x, double y, double z) {
        kxBaseObject *point = kxIfcModel_dontuse_new_object(model_, kxIfcCartesianPoint_class());
        kxArrIfcLengthMeasure *coordinates = kxArrIfcLengthMeasure_new();
        kxArrIfcLengthMeasure_add(coordinates, x);
        kxArrIfcLengthMeasure_add(coordinates, y);
        kxArrIfcLengthMeasure_add(coordinates, z);
        kxIfcCartesianPoint_set_Coordinates(point, coordinates);
        kxBaseObject *axes = kxIfcModel_dontuse_new_object(model_, kxIfcAxis2Placement3D_class());
        kxIfcAxis2Placement3D_set_Location(axes, point);
        kxBaseObject *select = kxIfcModel_dontuse_new_object(model_, kxIfcAxis2Placement_class());
        kxIfcAxis2Placement_set_kxIfcAxis2Placement3D(select, axes);
        kxBaseObject *local = kxIfcModel_dontuse_new_object(model_, kxIfcLocalPlacement_class());
        if (relative_to != nullptr) kxIfcLocalPlacement_set_PlacementRelTo(local, relative_to);
        kxIfcLocalPlacement_set_RelativePlacement(local, select);
        return local;
    }

    void aggregate(kxBaseObject *relating, kxBaseObject *related, const std::string &tag) {
        kxBaseObject *relation = rooted(kxIfcRelAggregates_class(), tag, "");
        kxSetIfcObjectDefinition *set = kxSetIfcObjectDefinition_new();
        kxSetIfcObjectDefinition_append_element(set, related);
        if (kxIfcModel_ifc_version(model_) == KXIFCVERSION_IFC_4) {
            kxIfcRelAggregates_set_RelatedObjects_v4(relation, set);
            kxIfcRelAggregates_set_RelatingObject_v4(relation, relating);
        } else {
            kxSetIfcObjectDefinition_free(&set);
            kxSetIfcObjectDefinition *old_set = kxSetIfcObjectDefinition_new();
            kxSetIfcObjectDefinition_append_element(old_set, related);
            kxIfcRelAggregates_set_RelatedObjects_v2x3(relation, old_set);
            kxIfcRelAggregates_set_RelatingObject_v2x3(relation, relating);
        }
    }

    void build(const FileSpec &spec) {
        const bool ifc4 = spec.release == KXIFCVERSION_IFC_4;
        kxBaseObject *project = rooted(kxIfcProject_class(), spec.project, "project");
        kxBaseObject *units = kxIfcModel_dontuse_new_object(model_, kxIfcUnitAssignment_class());
        kxBaseObject *unit = kxIfcModel_dontuse_new_object(model_, kxIfcSIUnit_class());
        using kxtest::enum_member;
        kxIfcSIUnit_set_UnitType(unit, enum_member(kxIfcUnitEnum_has_value, kxIfcUnitEnum_to_string, "LENGTHUNIT"));
        kxIfcSIUnit_set_Name(unit, enum_member(kxIfcSIUnitName_has_value, kxIfcSIUnitName_to_string, "METRE"));
        kxBaseObject *unit_select = kxIfcModel_dontuse_new_object(model_, kxIfcUnit_class());
        kxIfcUnit_set_kxIfcNamedUnit(unit_select, unit);
        kxSetIfcUnit *unit_set = kxSetIfcUnit_new();
        kxSetIfcUnit_append_element(unit_set, unit_select);
        kxIfcUnitAssignment_set_Units(units, unit_set);
        if (ifc4)
            kxIfcProject_set_UnitsInContext_v4(project, units);
        else
            kxIfcProject_set_UnitsInContext_v2x3(project, units);
        if (!ifc4) return;
        kxBaseObject *site = rooted(kxIfcSite_class(), spec.site, "site");
        kxBaseObject *site_placement = placement(nullptr, 0, 0, 0);
        kxIfcProduct_set_ObjectPlacement(site, site_placement);
        kxBaseObject *building = rooted(kxIfcBuilding_class(), spec.building, "building");
        kxBaseObject *building_placement = placement(site_placement, spec.building_x, 0, 0);
        kxIfcProduct_set_ObjectPlacement(building, building_placement);
        aggregate(project, site, spec.project + "A");
        aggregate(site, building, spec.site + "A");
        for (const StoreySpec &s : spec.storeys) {
            kxBaseObject *storey = rooted(kxIfcBuildingStorey_class(), s.guid, s.name);
            kxBaseObject *storey_placement = placement(building_placement, 0, 0, s.z);
            kxIfcProduct_set_ObjectPlacement(storey, storey_placement);
            aggregate(building, storey, s.name + "A");
            if (s.wall_guid.empty()) continue;
            kxBaseObject *wall = rooted(kxIfcWall_class(), s.wall_guid, s.wall_name);
            kxIfcProduct_set_ObjectPlacement(wall, placement(storey_placement, 1, 0, 0));
            kxBaseObject *containment = rooted(kxIfcRelContainedInSpatialStructure_class(), s.name + "C", "");
            kxSetIfcProduct *walls = kxSetIfcProduct_new();
            kxSetIfcProduct_append_element(walls, wall);
            kxIfcRelContainedInSpatialStructure_set_RelatedElements(containment, walls);
            kxIfcRelContainedInSpatialStructure_set_RelatingStructure_v4(containment, storey);
        }
    }

    void write(const kxtest::TempDirectory &dir, const std::string &name) {
        kxIfcModel_export_model_to_file(model_, wide(name).c_str(), wide(dir.path()).c_str());
    }

private:
    kxIfcModel *model_;
};

std::u16string write_file(const kxtest::TempDirectory &dir, const std::string &name, const FileSpec &spec) {
    FileBuilder builder(spec.release);
    builder.build(spec);
    builder.write(dir, name);
    return wide(dir.file(name + ".ifc"));
}

std::vector<kxBaseObject *> all_of(kxIfcModel *model, const kxClass_t *klass) {
    return elements(kxIfcModel_dontuse_get_objects_by_class(model, klass));
}

kxBaseObject *find_named(kxIfcModel *model, const kxClass_t *klass, const std::string &name) {
    for (kxBaseObject *object : all_of(model, klass))
        if (narrow(kxIfcRoot_get_Name(object)) == name) return object;
    return nullptr;
}

class ModelMergerTest : public kxtest::LibraryTest {
protected:
    kxtest::TempDirectory dir_{"kx_merger"};

    // Merges the files; the model (or NULL) and the list of files not merged.
    kxIfcModel *merge(const std::u16string &main_file, const std::vector<std::u16string> &secondaries,
                      const std::u16string *table, kxArrString **not_merged, kxBool *result = nullptr) {
        kxIfcModelMerger *merger = kxIfcModelMerger_new(main_file.c_str());
        for (const std::u16string &name : secondaries) kxIfcModelMerger_add_secondary_model(merger, name.c_str());
        kxIfcModel *model = nullptr;
        const kxBool merged =
            kxIfcModelMerger_merge_models(merger, table != nullptr ? table->c_str() : nullptr, &model, not_merged);
        if (result != nullptr) *result = merged;
        kxIfcModelMerger_free(&merger);
        EXPECT_EQ(merger, nullptr);
        return model;
    }
};

FileSpec main_spec() {
    FileSpec spec;
    spec.storeys = {{"STA", "main storey", 0.0, "WALLA", "main wall"}};
    return spec;
}

// A secondary file of the other release is not merged, nor one whose
// instances would run the main model out of ids (its last id is near 2^32).
TEST_F(ModelMergerTest, SecondaryOfOtherReleaseOrBeyondTheIdsLeftIsListedAsNotMerged) {
    const std::u16string main_file = write_file(dir_, "main", main_spec());
    std::string text = kxtest::read_file(dir_.file("main.ifc"));
    text.insert(text.rfind("ENDSEC;"), "#4294967290= IFCCARTESIANPOINT((0.,0.,0.));\n");
    const std::u16string crowded_file = wide(dir_.write("crowded.ifc", text));
    FileSpec old_spec;
    old_spec.release = KXIFCVERSION_IFC_2X3;
    const std::u16string old_file = write_file(dir_, "old", old_spec);
    for (const auto &[main, secondary] : {std::pair{main_file, old_file}, std::pair{crowded_file, main_file}}) {
        kxArrString *not_merged = nullptr;
        kxIfcModel *model = merge(main, {secondary}, nullptr, &not_merged);
        ASSERT_NE(model, nullptr);
        ASSERT_NE(not_merged, nullptr);
        ASSERT_EQ(kxArrString_count(not_merged), 1u);
        EXPECT_EQ(std::u16string(kxArrString_get(not_merged, 0)), secondary);
        kxArrString_free(&not_merged);
        kxIfcModel_free(&model);
    }
}

TEST_F(ModelMergerTest, SameSecondaryNameAddedTwiceIsListedOnce) {
    const std::u16string main_file = write_file(dir_, "main", main_spec());
    const std::u16string missing = wide(dir_.file("missing.ifc"));
    kxArrString *not_merged = nullptr;
    kxIfcModel *model = merge(main_file, {missing, missing}, nullptr, &not_merged);
    ASSERT_NE(model, nullptr);
    ASSERT_NE(not_merged, nullptr);
    EXPECT_EQ(kxArrString_count(not_merged), 1u);
    kxArrString_free(&not_merged);
    kxIfcModel_free(&model);
}

TEST_F(ModelMergerTest, StoreysOfOneGlobalIdBecomeTheLowerHoldingTheProductsOfBoth) {
    const std::u16string main_file = write_file(dir_, "main", main_spec());
    FileSpec second;
    second.storeys = {{"STA", "lower storey", -1.0, "WALLB", "second wall"}};  // same GlobalId, lower
    const std::u16string second_file = write_file(dir_, "second", second);
    kxIfcModel *model = merge(main_file, {second_file}, nullptr, nullptr);
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

    kxIfcModel_export_model_to_file(model, u"merged", wide(dir_.path()).c_str());
    kxBool errors = kxBTRUE;
    kxIfcModel *again = kxIfcModel_read_from_step_file(wide(dir_.file("merged.ifc")).c_str(), 0, &errors);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(errors, kxBFALSE);
    kxIfcModel_free(&again);
    kxIfcModel_free(&model);
}

TEST_F(ModelMergerTest, FreeWithNullHolderIsReported) {
    expect_reports();
    kxIfcModelMerger *merger = nullptr;
    kxIfcModelMerger_free(&merger);
    EXPECT_TRUE(asserts().saw("(*model_merger) != NULL"));
    kxIfcModel *model = nullptr;
    EXPECT_EQ(kxIfcModelMerger_merge_models(nullptr, nullptr, &model, nullptr), kxBFALSE);
    EXPECT_TRUE(asserts().saw("(model_merger) != NULL"));
}

TEST_F(ModelMergerTest, CollidingGlobalIdIsReplacedTheSameWayWithTheSameTable) {
    const std::u16string main_file = write_file(dir_, "main", main_spec());
    FileSpec second;
    second.storeys = {{"STB", "second storey", 3.0, "WALLA", "second wall"}};  // the main wall's GlobalId
    const std::u16string second_file = write_file(dir_, "second", second);
    const std::u16string table = wide(dir_.file("table.bin"));

    std::u16string first_id;
    for (int round = 0; round < 2; round++) {
        kxIfcModel *model = merge(main_file, {second_file}, &table, nullptr);
        ASSERT_NE(model, nullptr);
        kxBaseObject *main_wall = find_named(model, kxIfcWall_class(), "main wall");
        kxBaseObject *second_wall = find_named(model, kxIfcWall_class(), "second wall");
        ASSERT_NE(main_wall, nullptr);
        ASSERT_NE(second_wall, nullptr);
        EXPECT_EQ(std::u16string(kxIfcRoot_get_GlobalId(main_wall)), guid("WALLA"));
        const std::u16string id = kxIfcRoot_get_GlobalId(second_wall);
        EXPECT_NE(id, guid("WALLA"));
        EXPECT_EQ(id.size(), 22u);
        if (round == 0)
            first_id = id;
        else
            EXPECT_EQ(id, first_id);
        kxIfcModel_free(&model);
    }
}

}  // namespace
