// The model merger: small files written by the tests (so they choose every
// GlobalId) are merged and the result inspected.
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

std::vector<kxBaseObject *> all_of(kxIfcModel *model, const kxClass_t *klass) {
    return elements(kxIfcModel_dontuse_get_objects_by_class(model, klass));
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

    // A file of the text in the test's directory; its name.
    std::u16string write_file(const std::string &name, const std::string &text) {
        return wide(dir_.write(name + ".ifc", text));
    }
    std::u16string main_file() { return write_file("main", storey_file("STA", "main storey", "0.", "WALLA", "main wall")); }
};

// A secondary file of the other release is not merged, nor one whose
// instances would run the main model out of ids (its last id is near 2^32);
// a name added twice is listed once.
TEST_F(ModelMergerTest, SecondaryOfOtherReleaseOrBeyondTheIdsLeftIsListedAsNotMerged) {
    const std::u16string main = main_file();
    std::string text = storey_file("STA", "main storey", "0.", "WALLA", "main wall");
    text.insert(text.rfind("ENDSEC;"), "#4294967290= IFCCARTESIANPOINT((0.,0.));\n");  // select values run out of ids
    const std::u16string crowded = write_file("crowded", text);
    const std::u16string old_file = write_file("old", kxtest::step_file("#1= IFCCARTESIANPOINT((0.,0.));\n", "IFC2X3"));
    for (const auto &[main, secondary] : {std::pair{main, old_file}, std::pair{crowded, main}}) {
        kxArrString *not_merged = nullptr;
        kxIfcModel *model = merge(main, {secondary, secondary}, nullptr, &not_merged);  // listed once
        ASSERT_NE(model, nullptr);
        ASSERT_NE(not_merged, nullptr);
        ASSERT_EQ(kxArrString_count(not_merged), 1u);
        EXPECT_EQ(std::u16string(kxArrString_get(not_merged, 0)), secondary);
        kxArrString_free(&not_merged);
        kxIfcModel_free(&model);
    }
}

TEST_F(ModelMergerTest, StoreysOfOneGlobalIdBecomeTheLowerHoldingTheProductsOfBoth) {
    // The same GlobalId, lower.
    const std::u16string second = write_file("second", storey_file("STA", "lower storey", "-1.", "WALLB", "second wall"));
    kxIfcModel *model = merge(main_file(), {second}, nullptr, nullptr);
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

}  // namespace
