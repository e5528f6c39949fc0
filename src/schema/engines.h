// The generic engines behind the generated schema tables: entity records,
// select values, enumerations and aggregates. Generated code only calls
// these; all behaviour lives here.
#pragma once

#include <cstdint>

#include "core/class.h"
#include "kxifc_defs.h"

struct kxBaseObject;
struct kxIfcModelMngr_t;
struct kxParseParList;
struct kxArrayST;
struct kxAggregate;
struct kxIfcWriteData;

namespace kx {

// The slot at a byte offset of a record.
template <typename T>
inline T &record_slot(kxBaseObject *instance, uint32_t offset) {
    return *reinterpret_cast<T *>(reinterpret_cast<char *>(instance) + offset);
}

// ---- records (entities and select values alike) ------------------------
// A new zeroed record of `size` bytes from the manager's pool with its base
// object initialised (class data not set yet), or NULL where the class does
// not exist in the release (an unknown release is reported).
kxBaseObject *record_new(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                         kxIfcModelMngr_t *model_manager, uint32_t size);
// Marks the record dead, returns it to its pool and clears the holder.
void record_free(kxBaseObject **instance, uint32_t size);

// ---- entities --------------------------------------------------------------
extern const ObjectHooks entity_hooks;
// A new record of the class for the release with every slot undefined, or
// NULL where the class does not exist in that release.
kxBaseObject *entity_new(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                         kxIfcModelMngr_t *model_manager);
void entity_init_from_parse(kxBaseObject *instance, kxParseParList *parameters);
// Frees what every slot holds and sets each back to its undefined value.
void entity_reset_record(kxBaseObject *instance);
// Writes the record as an instance line, or only a reference to it while
// another instance's parameters are being collected.
void entity_write_object(kxBaseObject *instance, kxIfcWriteData *output);
void entity_process_inverse_relation(kxBaseObject *candidate, const char16_t *attribute,
                                     const kxBaseObject *target, kxArrayST *result);

// ---- selects ---------------------------------------------------------------
extern const ObjectHooks select_hooks;
kxBaseObject *select_new(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                         kxIfcModelMngr_t *model_manager);
// Whether the select holds exactly this instance.
bool select_refers_to(const kxBaseObject *select, const kxBaseObject *target);
// Writes the member held: a reference, or a typed value NAME(value).
void select_write_object(kxBaseObject *instance, kxIfcWriteData *output);

// ---- enumerations ----------------------------------------------------------
kxBool enum_has_value(const EnumInfo &info, int32_t value);
const char16_t *enum_to_string(const EnumInfo &info, int32_t value);
const char16_t *enum_to_literal(const EnumInfo &info, int32_t value);
// Member whose dotted literal equals the text ignoring case, or 0.
int32_t enum_from_literal(const EnumInfo &info, const char16_t *literal);
kx_bool16 enum_is_member_of_release(const EnumInfo &info, int32_t value, uint32_t version);

// ---- aggregates ------------------------------------------------------------
kxAggregate *aggregate_new();
kxAggregate *aggregate_copy(const kxAggregate *array_of_elements, uint32_t aggregate_index);
// Frees the aggregate and what it owns: strings, binaries, inner aggregates;
// instance elements are released once per occurrence.
void aggregate_free(kxAggregate **array_of_elements, uint32_t aggregate_index);
uint32_t aggregate_count(const kxAggregate *array_of_elements);
void aggregate_remove_index(kxAggregate *array_of_elements, uint32_t index, uint32_t aggregate_index);

// Instance elements (each occurrence holds one retain).
kxBaseObject *aggregate_get_object(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_object(kxAggregate *array_of_elements, uint32_t index, kxBaseObject *element,
                          uint32_t aggregate_index);
void aggregate_append_object(kxAggregate *array_of_elements, kxBaseObject *element, uint32_t aggregate_index);
void aggregate_remove_object(kxAggregate *array_of_elements, kxBaseObject *element);
// Calls the function on every instance cell of the aggregate, nested levels too.
void aggregate_for_each_reference(kxAggregate *aggregate, uint32_t aggregate_index, ReferenceFn function,
                                  void *context);

// Inner aggregates of nested lists (owned by the outer one).
kxAggregate *aggregate_get_aggregate(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_aggregate(kxAggregate *array_of_elements, uint32_t index, kxAggregate *element,
                             uint32_t aggregate_index);
void aggregate_append_aggregate(kxAggregate *array_of_elements, kxAggregate *element, uint32_t aggregate_index);

// Values.
double aggregate_get_real(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_real(kxAggregate *array_of_elements, uint32_t index, double value);
void aggregate_add_real(kxAggregate *array_of_elements, double value);
int32_t aggregate_get_integer(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_integer(kxAggregate *array_of_elements, uint32_t index, int32_t value);
void aggregate_add_integer(kxAggregate *array_of_elements, int32_t value);
int32_t aggregate_get_boolean(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_boolean(kxAggregate *array_of_elements, uint32_t index, int32_t value);
void aggregate_add_boolean(kxAggregate *array_of_elements, int32_t value);
int32_t aggregate_get_logical(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_logical(kxAggregate *array_of_elements, uint32_t index, int32_t value);
void aggregate_add_logical(kxAggregate *array_of_elements, int32_t value);
int32_t aggregate_get_enum(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_enum(kxAggregate *array_of_elements, uint32_t index, int32_t value);
void aggregate_add_enum(kxAggregate *array_of_elements, int32_t value);
const char16_t *aggregate_get_string(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_string(kxAggregate *array_of_elements, uint32_t index, const char16_t *value);
void aggregate_add_string(kxAggregate *array_of_elements, const char16_t *value);
kxBinary aggregate_get_binary(const kxAggregate *array_of_elements, uint32_t index);
void aggregate_set_binary(kxAggregate *array_of_elements, uint32_t index, kxBinary value);
void aggregate_add_binary(kxAggregate *array_of_elements, kxBinary value);

}  // namespace kx
