// The parameter list the parser builds for each instance line: walking it,
// running past its end, error marks, saved states for select alternatives,
// and unresolved references.
#include <string>

#include "support/memory.h"
#include "support/parseparlist.h"
#include "support/rbtree.h"
#include "support/wstring.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

using kxtest::text_of;

class ParameterListTest : public kxtest::ParameterListFixture {
protected:
    void add_literal(const char16_t *text, uint32_t line = 1, uint32_t column = 1) {
        char16_t *copy = kx::wstr_copy(text);
        kxParseParList_append(list, kxParserParam_literal(&copy, line, column));
    }
    void add_string(const char16_t *text) {
        char16_t *copy = kx::wstr_copy(text);
        kxParseParList_append(list, kxParserParam_string(&copy, 1, 1));
    }
    kxParserParam *next() {
        kxParserParam *parameter = nullptr;
        EXPECT_TRUE(kxParseParList_next(list, &parameter));
        return parameter;
    }
    // The mark left on a parameter: "<type>: <message>", or "".
    static std::u16string mark(const kxParserParam *parameter) {
        if (!parameter->has_error) return u"";
        return text_of(parameter->expected_type) + u": " + text_of(parameter->message);
    }
};

// Stand-ins for instances: only their addresses are used.
kxBaseObject *fake_instance(int &storage) { return reinterpret_cast<kxBaseObject *>(&storage); }

// ---- walking the list ----

TEST_F(ParameterListTest, EveryKindComesBackInFileOrderAndBackStepsOntoTheLastTaken) {
    int wall = 0;
    char16_t *name = kx::wstr_copy(u"IFCLABEL");
    kxParseParList_append(list, kxParserParam_nested_begin(3, 10));
    kxParseParList_append(list, kxParserParam_null(3, 11));
    kxParseParList_append(list, kxParserParam_derived(3, 13));
    kxParseParList_append(list, kxParserParam_integer(-42, 3, 15));
    kxParseParList_append(list, kxParserParam_real(2.5, 3, 19));
    add_literal(u".NOTDEFINED.", 3, 23);
    kxParseParList_append(list, kxParserParam_reference(17, fake_instance(wall), 3, 36));
    kxParseParList_append(list, kxParserParam_typed_name(&name, 3, 40));
    EXPECT_EQ(name, nullptr);  // taken over
    add_string(u"Wall 'A'");
    kxParseParList_append(list, kxParserParam_nested_end(4, 1));
    ASSERT_EQ(kxParseParList_count(list), 10u);

    kxParserParam *p = next();
    EXPECT_TRUE(kxParserParam_is_nested_begin(p) && p->line == 3u && p->column == 10u);
    EXPECT_TRUE(kxParserParam_is_null_or_derived(next()));
    EXPECT_TRUE(kxParserParam_is_null_or_derived(next()));
    p = next();
    EXPECT_TRUE(kxParserParam_is_integer(p));
    EXPECT_EQ(kxParserParam_get_integer(p), -42);
    p = next();
    EXPECT_TRUE(kxParserParam_is_real(p) && !kxParserParam_is_integer(p));
    EXPECT_EQ(kxParserParam_get_real(p), 2.5);
    EXPECT_EQ(text_of(kxParserParam_get_literal(next())), u".NOTDEFINED.");
    p = next();
    EXPECT_EQ(kxParserParam_get_instance(p), fake_instance(wall));
    EXPECT_EQ(p->value.reference.file_id, 17u);
    EXPECT_EQ(text_of(kxParserParam_get_typed_name(next())), u"IFCLABEL");
    p = next();
    EXPECT_TRUE(kxParserParam_is_string(p));
    EXPECT_EQ(text_of(kxParserParam_get_string(p)), u"Wall 'A'");
    EXPECT_TRUE(kxParseParList_has_more(list));
    p = next();
    EXPECT_TRUE(kxParserParam_is_nested_end(p));
    EXPECT_FALSE(kxParseParList_has_more(list));
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(kxParseParList_get(list, 9), p);
    kxParseParList_append(list, kxParserParam_integer(1, 1, 1));
    kxParseParList_append(list, kxParserParam_integer(2, 1, 3));
    kxParserParam *first = next();
    kxParseParList_back(list, first);
    EXPECT_EQ(next(), first);
    EXPECT_EQ(kxParserParam_get_integer(next()), 2);

    // Asking past the end flags too few parameters.
    EXPECT_FALSE(kxParseParList_next(list, &p));
    EXPECT_EQ(p, nullptr);
    EXPECT_TRUE(kxParseParList_has_errors(list));
}

TEST_F(ParameterListTest, MisuseIsReported) {
    kxParseParList_append(list, kxParserParam_integer(1, 1, 1));
    kxParseParList_append(list, kxParserParam_real(1.0, 1, 3));
    kxParserParam *first = nullptr, *second = nullptr;
    expect_each_reported({
        {"parameter_list->cursor > 0", [&] { kxParseParList_back(list, nullptr); }},  // nothing taken yet
        {"&parameter_list->parameters[parameter_list->cursor] == parameter",
         [&] {
             first = next();
             second = next();
             kxParseParList_back(list, first);  // the cursor stands on the second
         }},
        {"parameter->kind == i_TYPE_REAL", [&] { EXPECT_EQ(kxParserParam_get_real(first), 0.0); }},
        {"parameter->kind == i_TYPE_LITERAL", [&] { EXPECT_EQ(kxParserParam_get_literal(second), nullptr); }},
        {"index < parameter_list->count", [&] { EXPECT_EQ(kxParseParList_get(list, 2), nullptr); }},
        {"(parameter) != NULL", [] { EXPECT_FALSE(kxParserParam_is_integer(nullptr)); }},
        {"(parameter_list) != NULL", [] { EXPECT_EQ(kxParseParList_count(nullptr), 0u); }},
    });
}

// ---- nested begins and error marks ----

TEST_F(ParameterListTest, NestedBeginOrWhyNot) {
    kxParseParList_append(list, kxParserParam_nested_begin(1, 1));
    kxParseParList_append(list, kxParserParam_null(1, 2));
    kxParseParList_append(list, kxParserParam_derived(1, 4));
    kxParseParList_append(list, kxParserParam_integer(7, 1, 6));

    kxParserParam *parameter = nullptr;
    EXPECT_TRUE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", FALSO, &parameter));
    EXPECT_TRUE(kxParserParam_is_nested_begin(parameter));
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // "$" for an optional attribute: no list, no error.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_TRUE(kxParserParam_is_null_or_derived(parameter));
    EXPECT_EQ(mark(parameter), u"");
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // "*" where the attribute must be given.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxListIfcLengthMeasure", u"Coordinates", FALSO, &parameter));
    EXPECT_EQ(mark(parameter), u"kxListIfcLengthMeasure: Non optional Coordinates");
    EXPECT_TRUE(kxParseParList_has_errors(list));

    // Another kind of value is marked with the attribute's name, optional or not.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_EQ(mark(parameter), u"kxSetIfcLabel: Names");
    // Past the end: no list.
    EXPECT_FALSE(kxParseParList_next_nested_begin(list, u"kxSetIfcLabel", u"Names", CIERTO, &parameter));
    EXPECT_EQ(parameter, nullptr);
}

TEST_F(ParameterListTest, MarkedTwiceKeepsTheFirstMarkAndAppendingAfterErrorsIsReported) {
    expect_reports();
    kxParseParList_append(list, kxParserParam_integer(7, 1, 1));
    kxParserParam *parameter = next();
    kxParseParList_mark_error(list, parameter, u"double", u"Radius");
    kxParseParList_mark_error(list, parameter, u"kxIfcLabel", u"Name");
    EXPECT_EQ(mark(parameter), u"double: Radius");
    EXPECT_TRUE(kxParseParList_has_errors(list));
    // Appending after errors, and after running past the end, is reported.
    kxParserParam *none = nullptr;
    kxParseParList_next(list, &none);
    add_literal(u".T.");  // appended all the same
    EXPECT_TRUE(asserts().saw("parameter_list->incorrect_number_of_parameters == FALSO"));
    EXPECT_TRUE(asserts().saw("parameter_list->there_are_incorrect_parameters == FALSO"));
    EXPECT_EQ(kxParseParList_count(list), 2u);
}

// ---- saved states ----

TEST_F(ParameterListTest, NestedSaveAndRestoreDropsTheLaterStates) {
    expect_reports();
    for (int32_t i = 0; i < 5; i++) kxParseParList_append(list, kxParserParam_integer(i, 1, 1));
    const uint32_t outer = kxParseParList_save_state(list);
    next();
    const uint32_t inner = kxParseParList_save_state(list);
    EXPECT_EQ(inner, outer + 1);
    kxParserParam *tried = next();
    kxParseParList_mark_error(list, tried, u"kxIfcLabel", u"Inner");

    kxParseParList_restore_state(list, inner);
    EXPECT_FALSE(tried->has_error);
    EXPECT_EQ(kxParserParam_get_integer(next()), 1);
    // The inner state is gone: a new save takes its place.
    EXPECT_EQ(kxParseParList_save_state(list), inner);
    kxParseParList_mark_error(list, next(), u"kxIfcText", u"Second try");

    kxParseParList_restore_state(list, outer);
    EXPECT_FALSE(kxParseParList_has_errors(list));
    EXPECT_EQ(kxParserParam_get_integer(next()), 0);
    EXPECT_EQ(kxParseParList_save_state(list), outer);
    kxParseParList_restore_state(list, outer);
    // Restoring drops the later states.
    EXPECT_EQ(kxParseParList_save_state(list), outer);
    EXPECT_EQ(kxParseParList_save_state(list), inner);
    kxParseParList_restore_state(list, outer);
    EXPECT_TRUE(asserts().reports().empty());
    kxParseParList_restore_state(list, inner);  // dropped with the outer one
    EXPECT_TRUE(asserts().saw("position < parameter_list->saved_count"));
}

// ---- references ----

TEST_F(ParameterListTest, UnresolvedReferencesPassWhenAllowedAndAreResolvedThroughTheIdTree) {
    int placement = 0;
    kxParseParList_set_allow_unresolved(list, CIERTO);
    kxParseParList_append(list, kxParserParam_reference(99, nullptr, 1, 1));
    kxParseParList_append(list, kxParserParam_reference(5, fake_instance(placement), 1, 5));
    kxParserParam *forward = next();
    kxParseParList_mark_error(list, forward, u"kxIfcObjectPlacement", u"ObjectPlacement");
    EXPECT_FALSE(forward->has_error);
    EXPECT_FALSE(kxParseParList_has_errors(list));

    // A resolved reference of the wrong class is marked all the same.
    kxParserParam *resolved = next();
    kxParseParList_mark_error(list, resolved, u"kxIfcProductRepresentation", u"Representation");
    EXPECT_TRUE(resolved->has_error);
    EXPECT_TRUE(kxParseParList_has_errors(list));

    // When the list does not allow them, an unresolved reference is an error.
    kxParseParList_clear(list);
    kxParseParList_set_allow_unresolved(list, FALSO);
    kxParseParList_append(list, kxParserParam_reference(99, nullptr, 1, 1));
    forward = next();
    kxParseParList_mark_error(list, forward, u"kxIfcObjectPlacement", u"ObjectPlacement");
    EXPECT_TRUE(forward->has_error);
    EXPECT_TRUE(kxParseParList_has_errors(list));

    int wall = 0, storey = 0, other = 0;
    kx::IdTreeEntry entries[] = {{12, fake_instance(wall)}, {30, fake_instance(storey)}, {7, nullptr}};
    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
    for (kx::IdTreeEntry &entry : entries) kx::rbtree_insert(tree, &entry);

    kxParseParList_clear(list);
    kxParseParList_set_allow_unresolved(list, CIERTO);
    kxParseParList_append(list, kxParserParam_nested_begin(1, 1));
    kxParseParList_append(list, kxParserParam_reference(30, nullptr, 1, 2));
    kxParseParList_append(list, kxParserParam_reference(12, fake_instance(other), 1, 6));  // kept
    kxParseParList_append(list, kxParserParam_reference(44, nullptr, 1, 10));             // no such line
    kxParseParList_append(list, kxParserParam_integer(12, 1, 14));                       // not a reference
    kxParseParList_append(list, kxParserParam_reference(12, nullptr, 1, 17));
    kxParseParList_append(list, kxParserParam_nested_end(1, 20));

    kxParseParList_resolve_references(list, tree);
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 1)), fake_instance(storey));
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 2)), fake_instance(other));
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 3)), nullptr);
    EXPECT_EQ(kxParserParam_get_integer(kxParseParList_get(list, 4)), 12);
    EXPECT_EQ(kxParserParam_get_instance(kxParseParList_get(list, 5)), fake_instance(wall));
    kx::rbtree_destroy(&tree);
}

}  // namespace
