// The exported entity accessors one rule at a time, told on a few classes:
// the ownership rules of the setters, how empty attributes are written, and
// calls on the wrong instance.
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
