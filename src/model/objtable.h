// Object tables: each model keeps one table per class listing the instances
// created exactly of that class, in creation order. A query for a class
// gathers the tables of every class that is kind of it in the model's
// release and orders the result by creation (object ids grow with it), so
// each instance is listed once whatever the depth of its class.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"
#include "support/ptrarray.h"
#include "support/types.h"

struct kxBaseObject;
struct kxClass_t;
struct kxArrayST;

struct kxIfcObjTable_t {
    const kxClass_t *klass;
    kx::PtrArray *objects;  // not owning
};

namespace kx {

using ObjectFilterFn = int32_t (*)(kxBaseObject *instance, void *filter_data);

kxIfcObjTable_t *objtable_new(const kxClass_t *klass, uint32_t growth_step);
void objtable_free(kxIfcObjTable_t **object_table);
void objtable_add(kxIfcObjTable_t *object_table, kxBaseObject *base_object);
void objtable_remove(kxIfcObjTable_t *object_table, kxBaseObject *base_object);
kxBaseObject *objtable_first(const kxIfcObjTable_t *object_table);
void objtable_all(const kxIfcObjTable_t *object_table, kxArrayST *result);
void objtable_filtered(const kxIfcObjTable_t *object_table, ObjectFilterFn filter, void *filter_data,
                       kxArrayST *result);
void objtable_process_inverse_relation(const kxIfcObjTable_t *object_table, const char16_t *attribute,
                                       const kxBaseObject *target, kxArrayST *result);

// The per-model set: one table per class, indexed by unique class id.
PtrArray *objtables_new();
void objtables_free(PtrArray **object_tables);
void objtables_add_instance(PtrArray *object_tables, kxBaseObject *base_object);
// Appends each table of `from` to the same class's table of `into`, then
// frees `from`.
void objtables_merge(PtrArray *into, PtrArray **from);
void objtables_remove_instance(PtrArray *object_tables, kxBaseObject *base_object);
// Instances of the class and its kinds, oldest first (filter may be NULL).
void objtables_collect(const PtrArray *object_tables, const kxClass_t *klass, uint32_t version,
                       ObjectFilterFn filter, void *filter_data, kxArrayST *result);
kxBaseObject *objtables_first(const PtrArray *object_tables, const kxClass_t *klass, uint32_t version);
// The instances of the referring class (and its kinds) whose attribute
// refers to the target, oldest first.
void objtables_process_inverse_relation(const PtrArray *object_tables, uint32_t referring_class_id, uint32_t version,
                                        const char16_t *attribute, const kxBaseObject *target, kxArrayST *result);

}  // namespace kx
