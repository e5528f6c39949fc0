// The exported entity accessors one rule at a time, told on IfcWall and
// IfcRelAggregates: release-bound accessors, the ownership rules of the
// setters, reading a reference of the wrong type, how empty attributes are
// written, and calls on the wrong instance.
#include <cstring>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "schema/engines.h"
#include "support/parseparlist.h"
#include "support/wstring.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

using kxtest::live_blocks;
using kxtest::narrow;
using kxtest::written_line;

class EntityAccessorsTest : public kxtest::ModelFixture {};

// ---- release-bound accessors ----

TEST_F(EntityAccessorsTest, AccessorOfTheOtherReleaseReadsUndefinedAndStoresNothing) {
    kxBaseObject *wall = make(model(KXIFCVERSION_IFC_2X3), kxIfcWall_class());
    const std::vector<char> before(reinterpret_cast<char *>(wall),
                                   reinterpret_cast<char *>(wall) + wall->object_class->record_size);
    kxIfcWall_set_PredefinedType_v4(wall, 1);
    EXPECT_EQ(kxIfcWall_get_PredefinedType_v4(wall), 0);
    EXPECT_EQ(kxIfcWall_PredefinedType_has_value_v4(wall), kxBFALSE);
    EXPECT_EQ(std::memcmp(before.data(), wall, before.size()), 0) << "the record changed";

    // The same accessor on an IFC4 wall stores.
    kxBaseObject *wall4 = make(model(KXIFCVERSION_IFC_4), kxIfcWall_class());
    kxIfcWall_set_PredefinedType_v4(wall4, 1);
    EXPECT_EQ(kxIfcWall_get_PredefinedType_v4(wall4), 1);
    EXPECT_EQ(kxIfcWall_PredefinedType_has_value_v4(wall4), kxBTRUE);
}

TEST_F(EntityAccessorsTest, RelAggregatesKeepsOneSlotPerReleaseForItsRelatingObject) {
    // RelatingObject is inherited in IFC2X3 and declared by IfcRelAggregates
    // itself in IFC4: two slots, each read and written in its own release.
    const kxClass_t *klass = kxIfcRelAggregates_class();
    uint32_t slots[2] = {kx::NO_INDEX, kx::NO_INDEX};
    uint32_t offsets[2] = {0, 0};
    for (uint32_t release = 0; release < 2; release++) {
        const kx::ClassRelease *attrs = kx::class_release(klass, release);
        for (uint32_t i = 0; i < attrs->num_attrs; i++) {
            if (narrow(kx::g_slots[attrs->attrs[i].slot].name) != "RelatingObject") continue;
            slots[release] = attrs->attrs[i].slot;
            offsets[release] = attrs->attrs[i].offset;
        }
    }
    ASSERT_NE(slots[0], kx::NO_INDEX);
    ASSERT_NE(slots[1], kx::NO_INDEX);
    EXPECT_NE(slots[0], slots[1]);
    EXPECT_NE(offsets[0], offsets[1]);
    EXPECT_EQ(narrow(kx::g_slots[slots[0]].qualified_name), "kxIfcRelDecomposes.RelatingObject");
    EXPECT_EQ(narrow(kx::g_slots[slots[1]].qualified_name), "kxIfcRelAggregates.RelatingObject");

    for (kxIfcVersion_t release : {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4}) {
        kxIfcModel *m = model(release);
        kxBaseObject *relation = make(m, klass);
        kxBaseObject *building = make(m, kxIfcBuilding_class());
        const bool is_2x3 = release == KXIFCVERSION_IFC_2X3;
        if (is_2x3)
            kxIfcRelAggregates_set_RelatingObject_v2x3(relation, building);
        else
            kxIfcRelAggregates_set_RelatingObject_v4(relation, building);
        EXPECT_EQ(kxIfcRelAggregates_get_RelatingObject_v2x3(relation), is_2x3 ? building : nullptr);
        EXPECT_EQ(kxIfcRelAggregates_get_RelatingObject_v4(relation), is_2x3 ? nullptr : building);
        EXPECT_EQ(*reinterpret_cast<kxBaseObject **>(reinterpret_cast<char *>(relation) + offsets[release]), building);
        EXPECT_EQ(*reinterpret_cast<kxBaseObject **>(reinterpret_cast<char *>(relation) + offsets[1 - release]), nullptr);
        EXPECT_EQ(written_line(relation),
                  std::string("#") + id(relation) + "= IFCRELAGGREGATES(*,$,$,$,#" + id(building) + ",$);\n");
    }
}

// ---- setter ownership ----

TEST_F(EntityAccessorsTest, ReferenceSetterRetainsTheNewBeforeReleasingTheOld) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall = make(m, kxIfcWall_class());
    kxBaseObject *history = make(m, kxIfcOwnerHistory_class());
    const uint32_t alone = history->retain_count;
    kxIfcWall_set_OwnerHistory(wall, history);
    EXPECT_EQ(history->retain_count, alone + 1);
    EXPECT_EQ(kxIfcWall_OwnerHistory_has_value(wall), kxBTRUE);

    // The very instance again: one retain still, and it lives.
    kxIfcWall_set_OwnerHistory(wall, history);
    EXPECT_EQ(history->retain_count, alone + 1);
    EXPECT_EQ(kxIfcWall_get_OwnerHistory(wall), history);

    // Another one takes the place; the first gets its retain back.
    kxBaseObject *other = make(m, kxIfcOwnerHistory_class());
    kxIfcWall_set_OwnerHistory(wall, other);
    EXPECT_EQ(history->retain_count, alone);
    EXPECT_EQ(other->retain_count, alone + 1);

    kxIfcWall_set_OwnerHistory(wall, nullptr);
    EXPECT_EQ(other->retain_count, alone);
    EXPECT_EQ(kxIfcWall_OwnerHistory_has_value(wall), kxBFALSE);
}

TEST_F(EntityAccessorsTest, StringSetterCopiesKeepsItsOwnTextAndNullFrees) {
    kxBaseObject *wall = make(model(KXIFCVERSION_IFC_4), kxIfcWall_class());
    const int64_t empty = live_blocks();
    char16_t name[] = u"Wall";
    kxIfcWall_set_Name(wall, name);
    const kxWChar *stored = kxIfcWall_get_Name(wall);
    EXPECT_NE(stored, name);
    EXPECT_EQ(narrow(stored), "Wall");
    EXPECT_EQ(live_blocks(), empty + 1);
    name[0] = u'B';
    EXPECT_EQ(narrow(kxIfcWall_get_Name(wall)), "Wall") << "the caller's text is not shared";

    // The text the instance holds, given back to it: kept as it is.
    kxIfcWall_set_Name(wall, stored);
    EXPECT_EQ(narrow(kxIfcWall_get_Name(wall)), "Wall");
    EXPECT_EQ(live_blocks(), empty + 1);

    kxIfcWall_set_Name(wall, nullptr);
    EXPECT_EQ(kxIfcWall_get_Name(wall), nullptr);
    EXPECT_EQ(kxIfcWall_Name_has_value(wall), kxBFALSE);
    EXPECT_EQ(live_blocks(), empty);
}

TEST_F(EntityAccessorsTest, AggregateSetterTakesTheAggregateOverAndKeepsTheOneItHolds) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *relation = make(m, kxIfcRelAggregates_class());
    kxBaseObject *slab = make(m, kxIfcSlab_class());
    kxSetIfcObjectDefinition *set = kxSetIfcObjectDefinition_new();
    kxSetIfcObjectDefinition_append_element(set, slab);
    kxIfcRelAggregates_set_RelatedObjects_v4(relation, set);
    EXPECT_EQ(kxIfcRelAggregates_get_RelatedObjects_v4(relation), set) << "taken over, not copied";

    const int64_t blocks = live_blocks();
    const uint32_t slab_retains = slab->retain_count;
    kxIfcRelAggregates_set_RelatedObjects_v4(relation, set);
    EXPECT_EQ(kxIfcRelAggregates_get_RelatedObjects_v4(relation), set);
    EXPECT_EQ(live_blocks(), blocks) << "neither freed nor copied";
    EXPECT_EQ(slab->retain_count, slab_retains);
    ASSERT_EQ(kxSetIfcObjectDefinition_count(set), 1u);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 0), slab);

    // A different aggregate frees the one held, releasing its elements.
    kxIfcRelAggregates_set_RelatedObjects_v4(relation, kxSetIfcObjectDefinition_new());
    EXPECT_EQ(slab->retain_count, slab_retains - 1);
    EXPECT_EQ(kxSetIfcObjectDefinition_count(kxIfcRelAggregates_get_RelatedObjects_v4(relation)), 0u);
}

// ---- reading ----

TEST_F(EntityAccessorsTest, ReferenceOfTheWrongTypeIsReportedAndLeavesTheSlotEmpty) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *point = make(m, kxIfcCartesianPoint_class());
    kxBaseObject *wall = make(m, kxIfcWall_class());
    const uint32_t point_retains = point->retain_count, wall_retains = wall->retain_count;

    kxParseParList *list = kxParseParList_new(KXIFCVERSION_IFC_4, nullptr, nullptr);
    char16_t *guid = kx::wstr_copy(u"0123456789012345678901");
    kxParseParList_append(list, kxParserParam_string(&guid, 1, 1));
    for (int i = 0; i < 3; i++) kxParseParList_append(list, kxParserParam_null(1, 2));
    kxParseParList_append(list, kxParserParam_reference(7, point, 1, 3));  // RelatingObject
    kxParseParList_append(list, kxParserParam_nested_begin(1, 4));        // RelatedObjects
    kxParseParList_append(list, kxParserParam_reference(8, wall, 1, 5));
    kxParseParList_append(list, kxParserParam_nested_end(1, 6));

    kxBaseObject *relation = make(m, kxIfcRelAggregates_class());
    kx::entity_init_from_parse(relation, list);
    EXPECT_EQ(kxIfcRelAggregates_get_RelatingObject_v4(relation), nullptr);
    EXPECT_EQ(point->retain_count, point_retains);
    EXPECT_EQ(narrow(kxIfcRelAggregates_get_GlobalId(relation)), "0123456789012345678901");
    ASSERT_NE(kxIfcRelAggregates_get_RelatedObjects_v4(relation), nullptr);
    EXPECT_EQ(kxSetIfcObjectDefinition_count(kxIfcRelAggregates_get_RelatedObjects_v4(relation)), 1u);
    EXPECT_EQ(wall->retain_count, wall_retains + 1);

    EXPECT_TRUE(kxParseParList_has_errors(list));
    for (uint32_t i = 0; i < kxParseParList_count(list); i++) {
        const kxParserParam *parameter = kxParseParList_get(list, i);
        EXPECT_EQ(parameter->has_error != 0, i == 4) << "parameter " << i;
    }
    const kxParserParam *wrong = kxParseParList_get(list, 4);
    EXPECT_EQ(narrow(wrong->expected_type), "kxIfcObjectDefinition");
    EXPECT_EQ(narrow(wrong->message), "RelatingObject");
    kxParseParList_free(&list);
}

// ---- writing empty attributes ----

TEST_F(EntityAccessorsTest, EmptyMandatoryValuesAreWrittenDerivedAndEmptyOptionalOnesUnset) {
    // GlobalId is mandatory: "*"; the rest of an empty wall is "$", the
    // mandatory OwnerHistory of IFC2X3 included (references are "$" unless
    // redeclared as derived).
    kxBaseObject *wall4 = make(model(KXIFCVERSION_IFC_4), kxIfcWall_class());
    EXPECT_EQ(written_line(wall4), std::string("#") + id(wall4) + "= IFCWALL(*,$,$,$,$,$,$,$,$);\n");
    kxBaseObject *wall2 = make(model(KXIFCVERSION_IFC_2X3), kxIfcWall_class());
    EXPECT_EQ(written_line(wall2), std::string("#") + id(wall2) + "= IFCWALL(*,$,$,$,$,$,$,$);\n");

    kxIfcWall_set_GlobalId(wall4, u"2O2Fr$t4X7Zf8NOew3FLOH");
    kxIfcWall_set_Name(wall4, u"Wall \u00e9");
    kxIfcWall_set_PredefinedType_v4(wall4, 1);
    ASSERT_EQ(narrow(kxIfcWallTypeEnum_to_string(1)), "STANDARD");
    EXPECT_EQ(written_line(wall4),
              std::string("#") + id(wall4) + "= IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',$,'Wall \\X2\\00E9\\X0\\',$,$,$,$,$,.STANDARD.);\n");
}

TEST_F(EntityAccessorsTest, AttributesRedeclaredAsDerivedAreWrittenDerivedWhenEmpty) {
    // CoordinateSpaceDimension, Precision, WorldCoordinateSystem and
    // TrueNorth are derived in a sub-context; the mandatory TargetView is
    // "*" as a mandatory value, the mandatory ParentContext "$".
    for (kxIfcVersion_t release : {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4}) {
        kxIfcModel *m = model(release);
        kxBaseObject *sub = make(m, kxIfcGeometricRepresentationSubContext_class());
        EXPECT_EQ(written_line(sub), std::string("#") + id(sub) + "= IFCGEOMETRICREPRESENTATIONSUBCONTEXT($,$,*,*,*,*,$,$,*,$);\n");

        // The plain context writes its empty mandatory attributes as any
        // entity does: the dimension "*", the placement "$".
        kxBaseObject *context = make(m, kxIfcGeometricRepresentationContext_class());
        EXPECT_EQ(written_line(context), std::string("#") + id(context) + "= IFCGEOMETRICREPRESENTATIONCONTEXT($,$,*,$,$,$);\n");

        // The derived attributes keep their accessors under the subtype.
        kxIfcGeometricRepresentationSubContext_set_ParentContext(sub, context);
        EXPECT_EQ(kxIfcGeometricRepresentationSubContext_get_ParentContext(sub), context);
        EXPECT_EQ(kxIfcGeometricRepresentationSubContext_WorldCoordinateSystem_has_value(sub), kxBFALSE);
        EXPECT_EQ(written_line(sub),
                  std::string("#") + id(sub) + "= IFCGEOMETRICREPRESENTATIONSUBCONTEXT($,$,*,*,*,*,#" + id(context) + ",$,*,$);\n");
    }
}

// ---- calls on the wrong instance ----

TEST_F(EntityAccessorsTest, AccessorOnAnUnrelatedInstanceIsReportedAndGivesUndefined) {
    expect_reports();
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *point = make(m, kxIfcCartesianPoint_class());
    const std::vector<char> before(reinterpret_cast<char *>(point),
                                   reinterpret_cast<char *>(point) + point->object_class->record_size);
    EXPECT_EQ(kxIfcWall_get_Name(point), nullptr);
    EXPECT_TRUE(asserts().saw("kxBaseObject_dontuse_is_object_kind_of(instance, klass) == kxBTRUE"));
    asserts().clear();
    EXPECT_EQ(kxIfcWall_Name_has_value(point), kxBFALSE);
    kxIfcWall_set_Name(point, u"not a wall");
    kxIfcWall_set_OwnerHistory(point, point);
    EXPECT_EQ(kxIfcWall_get_PredefinedType_v4(point), 0);
    EXPECT_EQ(asserts().reports().size(), 4u);
    for (const kxtest::AssertReport &report : asserts().reports())
        EXPECT_EQ(report.source, "kxifcwall (KXIFCMODEL.DLL)");
    EXPECT_EQ(std::memcmp(before.data(), point, before.size()), 0) << "the point changed";
}

TEST_F(EntityAccessorsTest, NullInstanceIsReportedOnEveryAccessor) {
    expect_reports();
    EXPECT_EQ(kxIfcWall_get_Name(nullptr), nullptr);
    EXPECT_EQ(kxIfcWall_Name_has_value(nullptr), kxBFALSE);
    kxIfcWall_set_Name(nullptr, u"x");
    EXPECT_EQ(kxIfcWall_get_OwnerHistory(nullptr), nullptr);
    EXPECT_EQ(kxIfcRelAggregates_get_RelatedObjects_v4(nullptr), nullptr);
    EXPECT_EQ(kxIfcWall_inverse_relation_ContainedInStructure(nullptr), nullptr);
    ASSERT_EQ(asserts().reports().size(), 6u);
    for (const kxtest::AssertReport &report : asserts().reports())
        EXPECT_EQ(report.condition, "(instance) != NULL");
}

TEST_F(EntityAccessorsTest, UnknownReleaseReachesTheDefaultBranchAndStoresNothing) {
    expect_reports();
    kxBaseObject *wall = make(model(KXIFCVERSION_IFC_4), kxIfcWall_class());
    wall->ifc_version = 7;
    kxIfcWall_set_Name(wall, u"x");
    EXPECT_EQ(kxIfcWall_get_Name(wall), nullptr);
    EXPECT_EQ(kxIfcWall_inverse_relation_ContainedInStructure(wall), nullptr);
    EXPECT_EQ(asserts().reports().size(), 3u);
    for (const kxtest::AssertReport &report : asserts().reports()) EXPECT_EQ(report.condition, "");
    wall->ifc_version = KXIFCVERSION_IFC_4;
    EXPECT_EQ(kxIfcWall_Name_has_value(wall), kxBFALSE);
}

}  // namespace
