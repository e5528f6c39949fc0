// Aggregates: instance aggregates hold one retain per occurrence, value
// aggregates own their strings and copies, nested lists own their inner
// lists, and aggregate defined types forward to their element aggregates.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/engines.h"
#include "support/parseparlist.h"
#include "kxifc_coretypes.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

using kxtest::narrow;

class AggregatesTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }
    static uint32_t retains(const kxBaseObject *instance) { return instance->retain_count; }
    using Texts = std::vector<std::string>;
    static Texts labels_of(const kxArrIfcLabel *labels) {
        Texts texts;
        for (uint32_t i = 0; i < kxArrIfcLabel_count(labels); i++)
            texts.push_back(narrow(kxtest::text_of(kxArrIfcLabel_get(labels, i)).c_str()));
        return texts;
    }
    static std::vector<double> reals_of(const kxArrReal *reals) {
        std::vector<double> values;
        for (uint32_t i = 0; i < kxArrReal_count(reals); i++) values.push_back(kxArrReal_get(reals, i));
        return values;
    }
};

TEST_F(AggregatesTest, InstanceAggregatesHoldOneRetainPerOccurrenceAndNestedListsOwnTheirInnerLists) {
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcSlab_class());
    const uint32_t a0 = retains(a), b0 = retains(b);

    kxSetIfcObjectDefinition *set = kxSetIfcObjectDefinition_new();
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(kxSetIfcObjectDefinition_count(set), 0u);
    kxSetIfcObjectDefinition_append_element(set, a);
    kxSetIfcObjectDefinition_append_element(set, b);
    kxSetIfcObjectDefinition_append_element(set, a);  // the same instance again: stored again
    EXPECT_EQ(kxSetIfcObjectDefinition_count(set), 3u);
    EXPECT_EQ(retains(a), a0 + 2);
    EXPECT_EQ(retains(b), b0 + 1);

    // Removal releases once and takes out only the first position.
    kxSetIfcObjectDefinition_remove_element(set, a);
    ASSERT_EQ(kxSetIfcObjectDefinition_count(set), 2u);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 0), b);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 1), a);
    EXPECT_EQ(retains(a), a0 + 1);
    EXPECT_EQ(retains(b), b0 + 1);

    // An instance that is not there: nothing happens.
    kxBaseObject *absent = make(kxIfcBeam_class());
    const uint32_t absent0 = retains(absent);
    kxSetIfcObjectDefinition_remove_element(set, absent);
    kxSetIfcObjectDefinition_delete_element(set, absent);
    EXPECT_EQ(kxSetIfcObjectDefinition_count(set), 2u);
    EXPECT_EQ(retains(absent), absent0);

    // The other name behaves alike.
    kxSetIfcObjectDefinition_delete_element(set, b);
    ASSERT_EQ(kxSetIfcObjectDefinition_count(set), 1u);
    EXPECT_EQ(kxSetIfcObjectDefinition_get_element(set, 0), a);
    EXPECT_EQ(retains(b), b0);

    kxSetIfcObjectDefinition_free(&set);
    EXPECT_EQ(set, nullptr);
    EXPECT_EQ(retains(a), a0);

    // Setting over an occupied position retains the new element and keeps the old retain.
    kxBaseObject *old_element = make(kxIfcCartesianPoint_class());
    kxBaseObject *new_element = make(kxIfcCartesianPoint_class());
    const uint32_t old0 = retains(old_element), new0 = retains(new_element);
    kxListIfcCartesianPoint *list = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(list, old_element);
    EXPECT_EQ(retains(old_element), old0 + 1);

    kxListIfcCartesianPoint_set_element(list, 0, new_element);
    EXPECT_EQ(kxListIfcCartesianPoint_count(list), 1u);
    EXPECT_EQ(kxListIfcCartesianPoint_get_element(list, 0), new_element);
    EXPECT_EQ(retains(new_element), new0 + 1);
    EXPECT_EQ(retains(old_element), old0 + 1) << "the replaced element is not released, by contract";

    // The caller owns that retain now: give it back so the model frees cleanly.
    kxBaseObject *held = old_element;
    kx::baseobject_release(&held);
    EXPECT_EQ(retains(old_element), old0);

    // Setting the element already there adds a retain as well.
    kxListIfcCartesianPoint_set_element(list, 0, new_element);
    EXPECT_EQ(retains(new_element), new0 + 2);
    held = new_element;
    kx::baseobject_release(&held);

    kxListIfcCartesianPoint_free(&list);
    EXPECT_EQ(retains(new_element), new0);

    kxBaseObject *p = make(kxIfcCartesianPoint_class());
    kxBaseObject *q = make(kxIfcCartesianPoint_class());
    const uint32_t p0 = retains(p), q0 = retains(q);

    kxListListIfcCartesianPoint *rows = kxListListIfcCartesianPoint_new();
    for (int row = 0; row < 2; row++) {
        kxListIfcCartesianPoint *inner = kxListIfcCartesianPoint_new();
        kxListIfcCartesianPoint_append_element(inner, p);
        kxListIfcCartesianPoint_append_element(inner, q);
        kxListListIfcCartesianPoint_append_element(rows, inner);
    }
    EXPECT_EQ(kxListListIfcCartesianPoint_count(rows), 2u);
    EXPECT_EQ(kxListIfcCartesianPoint_get_element(kxListListIfcCartesianPoint_get_element(rows, 1), 1), q);
    EXPECT_EQ(retains(p), p0 + 2);

    // Replacing an inner list frees the one it replaces.
    kxListIfcCartesianPoint *replacement = kxListIfcCartesianPoint_new();
    kxListIfcCartesianPoint_append_element(replacement, q);
    kxListListIfcCartesianPoint_set_element(rows, 0, replacement);
    EXPECT_EQ(kxListListIfcCartesianPoint_get_element(rows, 0), replacement);
    EXPECT_EQ(retains(p), p0 + 1);
    EXPECT_EQ(retains(q), q0 + 2);

    // Removing an inner list frees it.
    kxListListIfcCartesianPoint_remove_element(rows, 1);
    EXPECT_EQ(kxListListIfcCartesianPoint_count(rows), 1u);
    EXPECT_EQ(retains(p), p0);

    // Freeing the outer list frees every inner one and releases their elements.
    kxListListIfcCartesianPoint_free(&rows);
    EXPECT_EQ(rows, nullptr);
    EXPECT_EQ(retains(q), q0);

    // Nested lists of values likewise (the fixture checks the memory).
    kxListListIfcLengthMeasure *grid = kxListListIfcLengthMeasure_new();
    for (int row = 0; row < 3; row++) {
        kxArrIfcLengthMeasure *inner = kxArrIfcLengthMeasure_new();
        for (int column = 0; column < 4; column++) kxArrIfcLengthMeasure_add(inner, row * 10.0 + column);
        kxListListIfcLengthMeasure_append_element(grid, inner);
    }
    EXPECT_EQ(kxArrIfcLengthMeasure_get(kxListListIfcLengthMeasure_get_element(grid, 2), 3), 23.0);
    kxListListIfcLengthMeasure_free(&grid);
    EXPECT_EQ(grid, nullptr);
}

TEST_F(AggregatesTest, ValueAggregatesOwnTheirStringsAndCopiesAreIndependent) {
    char16_t text[] = u"first";
    kxArrIfcLabel *labels = kxArrIfcLabel_new();
    kxArrIfcLabel_add(labels, text);
    kxArrIfcLabel_add(labels, u"second");
    kxArrIfcLabel_add(labels, nullptr);  // an undefined label is kept as such
    text[0] = u'F';                      // the caller's text is not the stored one
    EXPECT_EQ(labels_of(labels), (Texts{"first", "second", "<null>"}));
    EXPECT_NE(kxArrIfcLabel_get(labels, 0), text);
    kxArrIfcLabel_set(labels, 1, text);
    text[0] = u'X';
    EXPECT_EQ(narrow(kxArrIfcLabel_get(labels, 1)), "First");
    // Setting an element to its own stored text keeps it intact.
    kxArrIfcLabel_set(labels, 1, kxArrIfcLabel_get(labels, 1));
    kxArrIfcLabel *copy = kxArrIfcLabel_copy(labels);
    EXPECT_EQ(labels_of(copy), (Texts{"first", "First", "<null>"}));
    EXPECT_NE(kxArrIfcLabel_get(copy, 0), kxArrIfcLabel_get(labels, 0));
    kxArrIfcLabel_set(copy, 0, u"changed");
    EXPECT_EQ(narrow(kxArrIfcLabel_get(labels, 0)), "first");
    kxArrIfcLabel_remove(labels, 0);
    EXPECT_EQ(labels_of(labels), (Texts{"First", "<null>"}));
    EXPECT_EQ(labels_of(copy), (Texts{"changed", "First", "<null>"}));
    kxArrIfcLabel_free(&labels);
    kxArrIfcLabel_free(&copy);
    EXPECT_EQ(labels, nullptr);

    // Copies of value aggregates are independent.
    kxArrReal *reals = kxArrReal_new();
    kxArrReal_add(reals, 1.5);
    kxArrReal_add(reals, -2.25);
    kxArrReal *real_copy = kxArrReal_copy(reals);
    kxArrReal_set(real_copy, 0, 9.0);
    kxArrReal_add(real_copy, 3.0);
    kxArrReal_remove(reals, 1);
    EXPECT_EQ(reals_of(reals), (std::vector<double>{1.5}));
    EXPECT_EQ(reals_of(real_copy), (std::vector<double>{9.0, -2.25, 3.0}));
    kxArrReal_free(&reals);
    kxArrReal_free(&real_copy);

    // Binary elements live in cells of their own, duplicated by a copy.
    char bits[] = "1011";
    kxArrBinary *binaries = kxArrBinary_new();
    kxArrBinary_add(binaries, kxBinary{bits, 4});
    bits[0] = '0';
    kxArrBinary *binary_copy = kxArrBinary_copy(binaries);
    const kxBinary original = kxArrBinary_get(binaries, 0), copied = kxArrBinary_get(binary_copy, 0);
    ASSERT_EQ(original.num_bits, 4u);
    ASSERT_EQ(copied.num_bits, 4u);
    EXPECT_EQ(std::string(original.contents, 4), "1011");
    EXPECT_NE(original.contents, copied.contents);
    EXPECT_NE(original.contents, bits);
    kxArrBinary_set(binary_copy, 0, kxBinary{bits, 2});
    EXPECT_EQ(std::string(kxArrBinary_get(binaries, 0).contents, 4), "1011");
    EXPECT_EQ(kxArrBinary_get(binary_copy, 0).num_bits, 2u);
    kxArrBinary_free(&binaries);
    kxArrBinary_free(&binary_copy);

    // A defined type over an integer list forwards to its elements.
    kxIfcArcIndex *arc = kxIfcArcIndex_new();
    for (int32_t index : {1, 2, 3}) kxIfcArcIndex_append_element(arc, index);
    kxIfcArcIndex_set_element(arc, 1, 7);
    kxIfcArcIndex_remove_element(arc, 0);
    EXPECT_EQ(kxIfcArcIndex_get_element(arc, 0), 7);
    kxIfcArcIndex_free(&arc);
}

// The exported entity accessors one rule at a time, told on a few classes:
// the ownership rules of the setters, how empty attributes are written, and
// calls on the wrong instance.
using kxtest::live_blocks;
using kxtest::written_line;

class EntityAccessorsTest : public kxtest::ModelFixture {};

// The same value given again is kept; a new one is taken (retained or
// copied) before the old one is let go; NULL lets go.
TEST_F(EntityAccessorsTest, SettersTakeTheNewValueFirstAndEmptyAttributesAreWrittenDerivedOrUnset) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *wall = make(m, kxIfcWall_class());
    kxBaseObject *history = make(m, kxIfcOwnerHistory_class());
    kxBaseObject *other = make(m, kxIfcOwnerHistory_class());
    const uint32_t alone = history->retain_count;
    kxIfcWall_set_OwnerHistory(wall, history);
    kxIfcWall_set_OwnerHistory(wall, history);
    EXPECT_EQ(history->retain_count, alone + 1);
    kxIfcWall_set_OwnerHistory(wall, other);
    EXPECT_EQ(history->retain_count, alone);
    EXPECT_EQ(other->retain_count, alone + 1);
    kxIfcWall_set_OwnerHistory(wall, nullptr);
    EXPECT_EQ(other->retain_count, alone);

    const int64_t empty = live_blocks();
    char16_t name[] = u"Wall";
    kxIfcWall_set_Name(wall, name);
    name[0] = u'B';  // the caller's text is not shared
    kxIfcWall_set_Name(wall, kxIfcWall_get_Name(wall));
    EXPECT_EQ(narrow(kxIfcWall_get_Name(wall)), "Wall");
    EXPECT_EQ(live_blocks(), empty + 1);
    kxIfcWall_set_Name(wall, nullptr);
    EXPECT_EQ(kxIfcWall_Name_has_value(wall), kxBFALSE);
    EXPECT_EQ(live_blocks(), empty);

    // Empty mandatory values are written "*", empty optional ones and
    // references "$"; attributes a subtype redeclares as derived are "*".
    for (kxIfcVersion_t release : {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4}) {
        kxIfcModel *in_release = model(release);
        kxBaseObject *unset_wall = make(in_release, kxIfcWall_class());
        const std::string wall_tail = release == KXIFCVERSION_IFC_4 ? "$,$,$,$,$,$,$,$);\n" : "$,$,$,$,$,$,$);\n";
        EXPECT_EQ(written_line(unset_wall), std::string("#") + id(unset_wall) + "= IFCWALL(*," + wall_tail);
        kxBaseObject *sub = make(in_release, kxIfcGeometricRepresentationSubContext_class());
        kxBaseObject *context = make(in_release, kxIfcGeometricRepresentationContext_class());
        EXPECT_EQ(written_line(context), std::string("#") + id(context) + "= IFCGEOMETRICREPRESENTATIONCONTEXT($,$,*,$,$,$);\n");
        kxIfcGeometricRepresentationSubContext_set_ParentContext(sub, context);
        EXPECT_EQ(written_line(sub),
                  std::string("#") + id(sub) + "= IFCGEOMETRICREPRESENTATIONSUBCONTEXT($,$,*,*,*,*,#" + id(context) + ",$,*,$);\n");
    }
}

// ---- calls on the wrong instance ----

// An accessor called on an instance of an unrelated class, on NULL, or on
// an instance of an unknown release is reported, gives the undefined value
// and stores nothing; so are calls on a missing aggregate or with an index
// out of range.
TEST_F(EntityAccessorsTest, MisuseIsReportedAndChangesNothing) {
    kxIfcModel *m = model(KXIFCVERSION_IFC_4);
    kxBaseObject *point = make(m, kxIfcCartesianPoint_class());
    kxBaseObject *wall = make(m, kxIfcWall_class());
    kxSetIfcObjectDefinition *empty = nullptr;
    kxArrReal *reals = kxArrReal_new();
    kxArrReal_add(reals, 1.0);
    const std::vector<char> before(reinterpret_cast<char *>(point),
                                   reinterpret_cast<char *>(point) + point->object_class->record_size);
    const std::string unrelated = "kxBaseObject_dontuse_is_object_kind_of(instance, klass) == kxBTRUE";
    wall->ifc_version = 7;
    expect_each_reported({
        {unrelated, [&] { EXPECT_EQ(kxIfcWall_get_Name(point), nullptr); }},
        {unrelated, [&] { EXPECT_EQ(kxIfcWall_Name_has_value(point), kxBFALSE); }},
        {unrelated, [&] { kxIfcWall_set_Name(point, u"not a wall"); }},
        {unrelated, [&] { kxIfcWall_set_OwnerHistory(point, point); }},
        {unrelated, [&] { EXPECT_EQ(kxIfcWall_get_PredefinedType_v4(point), 0); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_get_Name(nullptr), nullptr); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_Name_has_value(nullptr), kxBFALSE); }},
        {"(instance) != NULL", [] { kxIfcWall_set_Name(nullptr, u"x"); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_get_OwnerHistory(nullptr), nullptr); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcRelAggregates_get_RelatedObjects_v4(nullptr), nullptr); }},
        {"(instance) != NULL", [] { EXPECT_EQ(kxIfcWall_inverse_relation_ContainedInStructure(nullptr), nullptr); }},
        {"", [&] { kxIfcWall_set_Name(wall, u"x"); }},
        {"", [&] { EXPECT_EQ(kxIfcWall_get_Name(wall), nullptr); }},
        {"", [&] { EXPECT_EQ(kxIfcWall_inverse_relation_ContainedInStructure(wall), nullptr); }},
        {"(array_of_elements) != NULL", [] { EXPECT_EQ(kxSetIfcObjectDefinition_count(nullptr), 0u); }},
        {"(*array_of_elements) != NULL", [&] { kxSetIfcObjectDefinition_free(&empty); }},
        {"(array_of_elements) != NULL", [] { kxIfcComplexNumber_append_element(nullptr, 1.0); }},
        {"index < array_of_elements->count",
         [&] { EXPECT_FALSE(kxIfcCoreTypes_real_has_value(kxArrReal_get(reals, 5))); }},
        {"index < array_of_elements->count", [&] { kxArrReal_set(reals, 5, 2.0); }},  // nothing stored
        {"index < array_of_elements->count", [&] { kxArrReal_remove(reals, 5); }},
    });
    EXPECT_EQ(std::memcmp(before.data(), point, before.size()), 0) << "the point changed";
    wall->ifc_version = KXIFCVERSION_IFC_4;
    EXPECT_EQ(kxIfcWall_Name_has_value(wall), kxBFALSE);
    EXPECT_EQ(kxArrReal_count(reals), 1u);
    EXPECT_EQ(kxArrReal_get(reals, 0), 1.0);
    kxArrReal_free(&reals);
}

}  // namespace
