// Parser parameters: the values of one instance line as a flat list in file
// order, nested lists and typed values marked by begin and end items, with a
// cursor the init functions of the classes consume attribute by attribute.
// Type mismatches are recorded in the parameters themselves; the state of
// the cursor and the error flags can be saved and restored to try the
// alternatives of a select.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"
#include "support/types.h"

struct kxBaseObject;
struct kxClass_t;
struct kxIfcModelMngr_t;

namespace kx {
struct RbTree;

// An element of the #id tree the parser keeps: the file id first (the key
// the tree orders by), then the instance created for that line.
struct IdTreeEntry {
    uint32_t file_id;
    kxBaseObject *instance;
};
}  // namespace kx

enum kxParserParamKind : uint32_t {
    i_TYPE_NULL = 0,          // "$"
    i_TYPE_DERIVED = 1,       // "*"
    i_TYPE_INTEGER = 2,
    i_TYPE_REAL = 3,
    i_TYPE_LITERAL = 4,       // enumeration, boolean or binary token text, as read (".T.", "\"0F\"")
    i_TYPE_REFERENCE = 5,     // "#n": file id and the instance, once resolved
    i_TYPE_STRING = 6,        // string without quotes, escapes decoded
    i_TYPE_TYPED_NAME = 7,    // the name that opens a typed value: IFCLABEL in IFCLABEL('x')
    i_TYPE_NESTED_BEGIN = 8,  // "(" of a list or typed value
    i_TYPE_NESTED_END = 9,    // ")"
};

struct kxParserParam {
    kxParserParamKind kind;
    uint32_t line;
    uint32_t column;
    kx_bool16 has_error;
    union {
        int32_t integer;
        double real;
        char16_t *text;                   // owned: LITERAL, STRING, TYPED_NAME (upper case)
        struct {
            uint32_t file_id;
            kxBaseObject *instance;       // NULL until resolved
        } reference;
    } value;
    char16_t *expected_type;              // owned, set with the first error
    char16_t *message;                    // owned, set with the first error
};

struct kxParseParList;

// Creates a value object (a select) through whatever owns the instances
// being read: a model, or a parser building one.
using kxCreateObjectFn = kxBaseObject *(*)(void *context, const kxClass_t *klass);

// Constructors: each returns a parameter by value; the list takes it over.
kxParserParam kxParserParam_null(uint32_t line, uint32_t column);
kxParserParam kxParserParam_derived(uint32_t line, uint32_t column);
kxParserParam kxParserParam_integer(int32_t value, uint32_t line, uint32_t column);
kxParserParam kxParserParam_real(double value, uint32_t line, uint32_t column);
kxParserParam kxParserParam_literal(char16_t **text, uint32_t line, uint32_t column);
kxParserParam kxParserParam_reference(uint32_t file_id, kxBaseObject *instance, uint32_t line, uint32_t column);
kxParserParam kxParserParam_string(char16_t **text, uint32_t line, uint32_t column);
kxParserParam kxParserParam_typed_name(char16_t **upper_name, uint32_t line, uint32_t column);
kxParserParam kxParserParam_nested_begin(uint32_t line, uint32_t column);
kxParserParam kxParserParam_nested_end(uint32_t line, uint32_t column);
// Frees the texts a parameter owns (its value text and error marks) and
// leaves it without them; for a parameter never handed to a list.
void kxParserParam_free_contents(kxParserParam *parameter);

// Queries; each get asserts the kind.
kx_bool16 kxParserParam_is_null_or_derived(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_integer(const kxParserParam *parameter);
int32_t kxParserParam_get_integer(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_real(const kxParserParam *parameter);
double kxParserParam_get_real(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_literal(const kxParserParam *parameter);
const char16_t *kxParserParam_get_literal(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_reference(const kxParserParam *parameter);
kxBaseObject *kxParserParam_get_instance(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_string(const kxParserParam *parameter);
const char16_t *kxParserParam_get_string(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_typed_name(const kxParserParam *parameter);
const char16_t *kxParserParam_get_typed_name(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_nested_begin(const kxParserParam *parameter);
kx_bool16 kxParserParam_is_nested_end(const kxParserParam *parameter);

// The list. `create_object` (with its context) makes select objects while
// init functions run; version is the release being read.
kxParseParList *kxParseParList_new(kxIfcVersion_t version, kxCreateObjectFn create_object, void *context);
void kxParseParList_free(kxParseParList **parameter_list);
// Empties the list for the next line, keeping its storage.
void kxParseParList_clear(kxParseParList *parameter_list);
kxIfcVersion_t kxParseParList_version(const kxParseParList *parameter_list);
kxBaseObject *kxParseParList_create_object(kxParseParList *parameter_list, const kxClass_t *klass);
void kxParseParList_append(kxParseParList *parameter_list, kxParserParam parameter);
uint32_t kxParseParList_count(const kxParseParList *parameter_list);
kxParserParam *kxParseParList_get(kxParseParList *parameter_list, uint32_t index);
kx_bool16 kxParseParList_has_more(const kxParseParList *parameter_list);
// The next parameter and true; at the end, NULL and false (and the list
// remembers that too few parameters were given).
kx_bool16 kxParseParList_next(kxParseParList *parameter_list, kxParserParam **parameter);
void kxParseParList_back(kxParseParList *parameter_list, const kxParserParam *parameter);
kx_bool16 kxParseParList_next_nested_begin(kxParseParList *parameter_list, const char16_t *type_name,
                                           const char16_t *attribute_name, kx_bool16 optional,
                                           kxParserParam **parameter);
void kxParseParList_mark_error(kxParseParList *parameter_list, kxParserParam *parameter, const char16_t *type_name,
                               const char16_t *message);
// Unresolved references pass without error (single-pass reading).
void kxParseParList_set_allow_unresolved(kxParseParList *parameter_list, kx_bool16 allow);
uint32_t kxParseParList_save_state(kxParseParList *parameter_list);
void kxParseParList_restore_state(kxParseParList *parameter_list, uint32_t position);
kx_bool16 kxParseParList_has_errors(const kxParseParList *parameter_list);
// The cursor, and the index just after the value that starts at `index`
// (a nested group or a typed value taken whole).
uint32_t kxParseParList_cursor(const kxParseParList *parameter_list);
void kxParseParList_set_cursor(kxParseParList *parameter_list, uint32_t cursor);
uint32_t kxParseParList_value_end(const kxParseParList *parameter_list, uint32_t index);
void kxParseParList_resolve_references(kxParseParList *parameter_list, const kx::RbTree *id_tree);
