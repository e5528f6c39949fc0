#define KX_UNIT "kxparserparam"
#include "support/parseparlist.h"

#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace {

kxParserParam make_parameter(kxParserParamKind kind, uint32_t line, uint32_t column) {
    kxParserParam parameter;
    parameter.kind = kind;
    parameter.line = line;
    parameter.column = column;
    parameter.has_error = FALSO;
    parameter.value.reference.file_id = 0;
    parameter.value.reference.instance = nullptr;
    parameter.expected_type = nullptr;
    parameter.message = nullptr;
    return parameter;
}

// Takes the text over from its holder; a missing text is reported and
// stands as an empty one, so the getters never hand out NULL.
kxParserParam make_text_parameter(kxParserParamKind kind, char16_t **text, uint32_t line, uint32_t column) {
    kxParserParam parameter = make_parameter(kind, line, column);
    kx_assert_not_null(text);
    if (text == nullptr) {
        parameter.value.text = kx::wstr_new_empty();
        return parameter;
    }
    kx_assert_not_null(*text);
    parameter.value.text = *text != nullptr ? kx::mem_take(text) : kx::wstr_new_empty();
    return parameter;
}

}  // namespace

kxParserParam kxParserParam_null(uint32_t line, uint32_t column) {
    return make_parameter(i_TYPE_NULL, line, column);
}

kxParserParam kxParserParam_derived(uint32_t line, uint32_t column) {
    return make_parameter(i_TYPE_DERIVED, line, column);
}

kxParserParam kxParserParam_integer(int32_t value, uint32_t line, uint32_t column) {
    kxParserParam parameter = make_parameter(i_TYPE_INTEGER, line, column);
    parameter.value.integer = value;
    return parameter;
}

kxParserParam kxParserParam_real(double value, uint32_t line, uint32_t column) {
    kxParserParam parameter = make_parameter(i_TYPE_REAL, line, column);
    parameter.value.real = value;
    return parameter;
}

kxParserParam kxParserParam_literal(char16_t **text, uint32_t line, uint32_t column) {
    return make_text_parameter(i_TYPE_LITERAL, text, line, column);
}

kxParserParam kxParserParam_reference(uint32_t file_id, kxBaseObject *instance, uint32_t line, uint32_t column) {
    kxParserParam parameter = make_parameter(i_TYPE_REFERENCE, line, column);
    parameter.value.reference.file_id = file_id;
    parameter.value.reference.instance = instance;
    return parameter;
}

kxParserParam kxParserParam_string(char16_t **text, uint32_t line, uint32_t column) {
    return make_text_parameter(i_TYPE_STRING, text, line, column);
}

kxParserParam kxParserParam_typed_name(char16_t **upper_name, uint32_t line, uint32_t column) {
    return make_text_parameter(i_TYPE_TYPED_NAME, upper_name, line, column);
}

kxParserParam kxParserParam_nested_begin(uint32_t line, uint32_t column) {
    return make_parameter(i_TYPE_NESTED_BEGIN, line, column);
}

kxParserParam kxParserParam_nested_end(uint32_t line, uint32_t column) {
    return make_parameter(i_TYPE_NESTED_END, line, column);
}

// The predicates accept NULL after reporting it and answer false; the
// getters report a parameter of another kind and give a neutral value
// (0, 0.0 or NULL) instead of reading the wrong member.

kx_bool16 kxParserParam_is_null_or_derived(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_NULL || parameter->kind == i_TYPE_DERIVED ? CIERTO : FALSO;
}

kx_bool16 kxParserParam_is_integer(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_INTEGER ? CIERTO : FALSO;
}

int32_t kxParserParam_get_integer(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return 0;
    kx_assert(parameter->kind == i_TYPE_INTEGER);
    return parameter->kind == i_TYPE_INTEGER ? parameter->value.integer : 0;
}

kx_bool16 kxParserParam_is_real(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_REAL ? CIERTO : FALSO;
}

double kxParserParam_get_real(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return 0.0;
    kx_assert(parameter->kind == i_TYPE_REAL);
    return parameter->kind == i_TYPE_REAL ? parameter->value.real : 0.0;
}

kx_bool16 kxParserParam_is_literal(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_LITERAL ? CIERTO : FALSO;
}

const char16_t *kxParserParam_get_literal(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return nullptr;
    kx_assert(parameter->kind == i_TYPE_LITERAL);
    return parameter->kind == i_TYPE_LITERAL ? parameter->value.text : nullptr;
}

kx_bool16 kxParserParam_is_reference(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_REFERENCE ? CIERTO : FALSO;
}

kxBaseObject *kxParserParam_get_instance(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return nullptr;
    kx_assert(parameter->kind == i_TYPE_REFERENCE);
    return parameter->kind == i_TYPE_REFERENCE ? parameter->value.reference.instance : nullptr;
}

kx_bool16 kxParserParam_is_string(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_STRING ? CIERTO : FALSO;
}

const char16_t *kxParserParam_get_string(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return nullptr;
    kx_assert(parameter->kind == i_TYPE_STRING);
    return parameter->kind == i_TYPE_STRING ? parameter->value.text : nullptr;
}

kx_bool16 kxParserParam_is_typed_name(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_TYPED_NAME ? CIERTO : FALSO;
}

const char16_t *kxParserParam_get_typed_name(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return nullptr;
    kx_assert(parameter->kind == i_TYPE_TYPED_NAME);
    return parameter->kind == i_TYPE_TYPED_NAME ? parameter->value.text : nullptr;
}

kx_bool16 kxParserParam_is_nested_begin(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_NESTED_BEGIN ? CIERTO : FALSO;
}

kx_bool16 kxParserParam_is_nested_end(const kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return FALSO;
    return parameter->kind == i_TYPE_NESTED_END ? CIERTO : FALSO;
}

void kxParserParam_free_contents(kxParserParam *parameter) {
    kx_assert_not_null(parameter);
    if (parameter == nullptr) return;
    switch (parameter->kind) {
        case i_TYPE_LITERAL:
        case i_TYPE_STRING:
        case i_TYPE_TYPED_NAME: kx::wstr_destroy_optional(&parameter->value.text); break;
        default: break;
    }
    kx::wstr_destroy_optional(&parameter->expected_type);
    kx::wstr_destroy_optional(&parameter->message);
    parameter->has_error = FALSO;
}
