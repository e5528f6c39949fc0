#define KX_UNIT "kxparseparlist"
#include "support/parseparlist.h"

#include "support/assert.h"
#include "support/memory.h"
#include "support/rbtree.h"
#include "support/wstring.h"

namespace {

// Most instance lines have a few dozen parameters at most; the list grows
// by doubling and keeps its storage from one line to the next.
constexpr uint32_t kInitialCapacity = 32;
constexpr uint32_t kInitialSavedCapacity = 8;

struct SavedState {
    uint32_t cursor;
    kx_bool16 incorrect_number_of_parameters;
    kx_bool16 there_are_incorrect_parameters;
};

}  // namespace

struct kxParseParList {
    kxIfcVersion_t version;
    kxCreateObjectFn create_object;
    void *create_context;
    kxParserParam *parameters;  // by value, in file order
    uint32_t count;
    uint32_t capacity;
    uint32_t cursor;  // index of the next parameter to consume
    kx_bool16 allow_unresolved;
    kx_bool16 incorrect_number_of_parameters;
    kx_bool16 there_are_incorrect_parameters;
    SavedState *saved;
    uint32_t saved_count;
    uint32_t saved_capacity;
};

namespace {

void clear_error_mark(kxParserParam *parameter) {
    parameter->has_error = FALSO;
    kx::wstr_destroy_optional(&parameter->expected_type);
    kx::wstr_destroy_optional(&parameter->message);
}

void free_parameters(kxParseParList *parameter_list) {
    for (uint32_t i = 0; i < parameter_list->count; i++)
        kxParserParam_free_contents(&parameter_list->parameters[i]);
    parameter_list->count = 0;
}

}  // namespace

kxParseParList *kxParseParList_new(kxIfcVersion_t version, kxCreateObjectFn create_object, void *context) {
    kxParseParList *parameter_list = kx::mem_new_zeroed<kxParseParList>();
    parameter_list->version = version;
    parameter_list->create_object = create_object;
    parameter_list->create_context = context;
    parameter_list->parameters = kx::mem_new_zeroed<kxParserParam>(kInitialCapacity);
    parameter_list->capacity = kInitialCapacity;
    parameter_list->allow_unresolved = FALSO;
    parameter_list->incorrect_number_of_parameters = FALSO;
    parameter_list->there_are_incorrect_parameters = FALSO;
    return parameter_list;
}

void kxParseParList_free(kxParseParList **parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr || *parameter_list == nullptr) return;
    kxParseParList *list = *parameter_list;
    free_parameters(list);
    kx::mem_free_and_clear(&list->parameters);
    kx::mem_free_and_clear(&list->saved);
    kx::mem_free_and_clear(parameter_list);
}

void kxParseParList_clear(kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return;
    free_parameters(parameter_list);
    parameter_list->cursor = 0;
    parameter_list->incorrect_number_of_parameters = FALSO;
    parameter_list->there_are_incorrect_parameters = FALSO;
    parameter_list->saved_count = 0;
}

kxIfcVersion_t kxParseParList_version(const kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return ifc_version_not_defined;
    return parameter_list->version;
}

kxBaseObject *kxParseParList_create_object(kxParseParList *parameter_list, const kxClass_t *klass) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return nullptr;
    kx_assert_not_null(parameter_list->create_object);
    if (parameter_list->create_object == nullptr) return nullptr;
    return parameter_list->create_object(parameter_list->create_context, klass);
}

void kxParseParList_append(kxParseParList *parameter_list, kxParserParam parameter) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) {
        kxParserParam_free_contents(&parameter);
        return;
    }
    kx_assert(parameter_list->incorrect_number_of_parameters == FALSO);
    kx_assert(parameter_list->there_are_incorrect_parameters == FALSO);
    if (parameter_list->count == parameter_list->capacity) [[unlikely]] {
        const uint32_t capacity = parameter_list->capacity * 2;
        parameter_list->parameters = static_cast<kxParserParam *>(
            kx::mem_realloc(parameter_list->parameters, sizeof(kxParserParam) * capacity));
        parameter_list->capacity = capacity;
    }
    parameter_list->parameters[parameter_list->count++] = parameter;
}

uint32_t kxParseParList_count(const kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return 0;
    return parameter_list->count;
}

kxParserParam *kxParseParList_get(kxParseParList *parameter_list, uint32_t index) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return nullptr;
    kx_assert(index < parameter_list->count);
    if (index >= parameter_list->count) return nullptr;
    return &parameter_list->parameters[index];
}

kx_bool16 kxParseParList_has_more(const kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return FALSO;
    return parameter_list->cursor < parameter_list->count ? CIERTO : FALSO;
}

kx_bool16 kxParseParList_next(kxParseParList *parameter_list, kxParserParam **parameter) {
    kx_assert_not_null(parameter_list);
    kx_assert_not_null(parameter);
    if (parameter_list == nullptr || parameter == nullptr) return FALSO;
    if (parameter_list->cursor >= parameter_list->count) {
        parameter_list->incorrect_number_of_parameters = CIERTO;
        *parameter = nullptr;
        return FALSO;
    }
    *parameter = &parameter_list->parameters[parameter_list->cursor++];
    return CIERTO;
}

void kxParseParList_back(kxParseParList *parameter_list, const kxParserParam *parameter) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return;
    kx_assert(parameter_list->cursor > 0);
    if (parameter_list->cursor == 0) return;
    parameter_list->cursor--;
    kx_assert(&parameter_list->parameters[parameter_list->cursor] == parameter);
}

kx_bool16 kxParseParList_next_nested_begin(kxParseParList *parameter_list, const char16_t *type_name,
                                           const char16_t *attribute_name, kx_bool16 optional,
                                           kxParserParam **parameter) {
    kx_assert_not_null(parameter_list);
    kx_assert_not_null(parameter);
    if (parameter_list == nullptr || parameter == nullptr) return FALSO;
    if (!kxParseParList_next(parameter_list, parameter)) return FALSO;
    kxParserParam *found = *parameter;
    switch (found->kind) {
        case i_TYPE_NESTED_BEGIN: return CIERTO;
        case i_TYPE_NULL:
        case i_TYPE_DERIVED:
            if (!optional) {
                kx::WideString message =
                    kx::wstr_format(u"Non optional %s", attribute_name != nullptr ? attribute_name : u"");
                kxParseParList_mark_error(parameter_list, found, type_name, message);
                kx::wstr_destroy(&message);
            }
            return FALSO;
        default: kxParseParList_mark_error(parameter_list, found, type_name, attribute_name); return FALSO;
    }
}

void kxParseParList_mark_error(kxParseParList *parameter_list, kxParserParam *parameter, const char16_t *type_name,
                               const char16_t *message) {
    kx_assert_not_null(parameter_list);
    kx_assert_not_null(parameter);
    if (parameter_list == nullptr || parameter == nullptr) return;
    // A forward reference is resolved once every instance exists.
    if (parameter->kind == i_TYPE_REFERENCE && parameter->value.reference.instance == nullptr &&
        parameter_list->allow_unresolved)
        return;
    parameter_list->there_are_incorrect_parameters = CIERTO;
    if (parameter->has_error) return;
    parameter->has_error = CIERTO;
    parameter->expected_type = kx::wstr_copy_optional(type_name);
    parameter->message = kx::wstr_copy_optional(message);
}

void kxParseParList_set_allow_unresolved(kxParseParList *parameter_list, kx_bool16 allow) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return;
    parameter_list->allow_unresolved = allow ? CIERTO : FALSO;
}

uint32_t kxParseParList_save_state(kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return 0;
    if (parameter_list->saved_count == parameter_list->saved_capacity) {
        const uint32_t capacity =
            parameter_list->saved_capacity == 0 ? kInitialSavedCapacity : parameter_list->saved_capacity * 2;
        parameter_list->saved =
            static_cast<SavedState *>(kx::mem_realloc(parameter_list->saved, sizeof(SavedState) * capacity));
        parameter_list->saved_capacity = capacity;
    }
    parameter_list->saved[parameter_list->saved_count] =
        SavedState{parameter_list->cursor, parameter_list->incorrect_number_of_parameters,
                   parameter_list->there_are_incorrect_parameters};
    return parameter_list->saved_count++;
}

void kxParseParList_restore_state(kxParseParList *parameter_list, uint32_t position) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return;
    kx_assert(position < parameter_list->saved_count);
    if (position >= parameter_list->saved_count) return;
    const SavedState &state = parameter_list->saved[position];
    parameter_list->cursor = state.cursor;
    parameter_list->incorrect_number_of_parameters = state.incorrect_number_of_parameters;
    parameter_list->there_are_incorrect_parameters = state.there_are_incorrect_parameters;
    for (uint32_t i = state.cursor; i < parameter_list->count; i++) {
        kxParserParam *parameter = &parameter_list->parameters[i];
        if (parameter->has_error) clear_error_mark(parameter);
    }
    parameter_list->saved_count = position;
}

kx_bool16 kxParseParList_has_errors(const kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return FALSO;
    if (parameter_list->incorrect_number_of_parameters) return CIERTO;
    return parameter_list->there_are_incorrect_parameters ? CIERTO : FALSO;
}

void kxParseParList_resolve_references(kxParseParList *parameter_list, const kx::RbTree *id_tree) {
    kx_assert_not_null(parameter_list);
    kx_assert_not_null(id_tree);
    if (parameter_list == nullptr || id_tree == nullptr) return;
    for (uint32_t i = 0; i < parameter_list->count; i++) {
        kxParserParam *parameter = &parameter_list->parameters[i];
        if (parameter->kind != i_TYPE_REFERENCE || parameter->value.reference.instance != nullptr) continue;
        const auto *entry = static_cast<const kx::IdTreeEntry *>(
            kx::rbtree_get(id_tree, parameter->value.reference.file_id, kx::ulong_compare));
        if (entry != nullptr) parameter->value.reference.instance = entry->instance;
    }
}

uint32_t kxParseParList_cursor(const kxParseParList *parameter_list) {
    kx_assert_not_null(parameter_list);
    return parameter_list != nullptr ? parameter_list->cursor : 0;
}

void kxParseParList_set_cursor(kxParseParList *parameter_list, uint32_t cursor) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr) return;
    kx_assert(cursor <= parameter_list->count);
    parameter_list->cursor = cursor <= parameter_list->count ? cursor : parameter_list->count;
}

uint32_t kxParseParList_value_end(const kxParseParList *parameter_list, uint32_t index) {
    kx_assert_not_null(parameter_list);
    if (parameter_list == nullptr || index >= parameter_list->count) return index;
    const kxParserParam *items = parameter_list->parameters;
    uint32_t i = index;
    if (items[i].kind == i_TYPE_TYPED_NAME) i++;
    if (i >= parameter_list->count || items[i].kind != i_TYPE_NESTED_BEGIN) return i + 1;
    uint32_t depth = 0;
    for (; i < parameter_list->count; i++) {
        if (items[i].kind == i_TYPE_NESTED_BEGIN) depth++;
        if (items[i].kind == i_TYPE_NESTED_END && --depth == 0) return i + 1;
    }
    return parameter_list->count;
}
