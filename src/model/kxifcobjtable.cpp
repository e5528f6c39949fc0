#define KX_UNIT "kxifcobjtable"
#include "model/objtable.h"

#include <algorithm>

#include "core/baseobject.h"
#include "core/class.h"
#include "core/typelibrary.h"
#include "support/assert.h"
#include "support/memory.h"

namespace kx {
namespace {

PtrArray *as_array(kxArrayST *array) { return reinterpret_cast<PtrArray *>(array); }

// Sorts the elements appended since `start` by creation order.
void order_by_creation(kxArrayST *result, uint32_t start) {
    PtrArray *array = as_array(result);
    std::sort(reinterpret_cast<kxBaseObject **>(array->items) + start,
              reinterpret_cast<kxBaseObject **>(array->items) + array->count,
              [](const kxBaseObject *a, const kxBaseObject *b) { return a->object_id < b->object_id; });
}

}  // namespace

kxIfcObjTable_t *objtable_new(const kxClass_t *klass, uint32_t) {
    kxIfcObjTable_t *object_table = mem_new_zeroed<kxIfcObjTable_t>();
    object_table->klass = klass;
    object_table->objects = ptrarray_create(0);
    return object_table;
}

void objtable_free(kxIfcObjTable_t **object_table) {
    kx_assert_not_null(object_table);
    if (object_table == nullptr) return;
    kx_assert_not_null(*object_table);
    if (*object_table == nullptr) return;
    ptrarray_destroy(&(*object_table)->objects, nullptr);
    mem_free_and_clear(object_table);
}

void objtable_add(kxIfcObjTable_t *object_table, kxBaseObject *base_object) {
    kx_assert_not_null(object_table);
    if (object_table == nullptr) return;
    const bool of_the_class = baseobject_is_kind_of(base_object, object_table->klass) == CIERTO;
    kx_assert_text(of_the_class, "kxBaseObject_is_kind_of(base_object, object_table->klass) == CIERTO");
    // Whoever walks the table takes its instances for the table's class.
    if (of_the_class) ptrarray_append(object_table->objects, base_object);
}

void objtable_remove(kxIfcObjTable_t *object_table, kxBaseObject *base_object) {
    kx_assert_not_null(object_table);
    if (object_table == nullptr) return;
    kx_assert_text(baseobject_is_kind_of(base_object, object_table->klass) == CIERTO,
                   "kxBaseObject_is_kind_of(base_object, object_table->klass) == CIERTO");
    uint32_t idx = ULONG_MAX32;
    const uint32_t count = ptrarray_count(object_table->objects);
    // Newest first: instances are most often removed soon after creation.
    for (uint32_t i = count; i-- > 0;) {
        if (baseobject_is_equal(static_cast<kxBaseObject *>(ptrarray_get(object_table->objects, i)), base_object)) {
            idx = i;
            break;
        }
    }
    kx_assert_text(idx != ULONG_MAX32, "idx != ULONG_MAX");
    if (idx != ULONG_MAX32) ptrarray_remove(object_table->objects, idx);
}

kxBaseObject *objtable_first(const kxIfcObjTable_t *object_table) {
    kx_assert_not_null(object_table);
    if (object_table == nullptr || ptrarray_count(object_table->objects) == 0) return nullptr;
    return static_cast<kxBaseObject *>(ptrarray_get(object_table->objects, 0));
}

void objtable_all(const kxIfcObjTable_t *object_table, kxArrayST *result) {
    objtable_filtered(object_table, nullptr, nullptr, result);
}

void objtable_filtered(const kxIfcObjTable_t *object_table, ObjectFilterFn filter, void *filter_data,
                       kxArrayST *result) {
    kx_assert_not_null(object_table);
    if (object_table == nullptr) return;
    const uint32_t count = ptrarray_count(object_table->objects);
    for (uint32_t i = 0; i < count; i++) {
        kxBaseObject *instance = static_cast<kxBaseObject *>(object_table->objects->items[i]);
        if (filter == nullptr || filter(instance, filter_data) == 1) ptrarray_append(as_array(result), instance);
    }
}

void objtable_process_inverse_relation(const kxIfcObjTable_t *object_table, const char16_t *attribute,
                                       const kxBaseObject *target, kxArrayST *result) {
    kx_assert_not_null(object_table);
    if (object_table == nullptr) return;
    const uint32_t count = ptrarray_count(object_table->objects);
    for (uint32_t i = 0; i < count; i++) {
        kxBaseObject *candidate = static_cast<kxBaseObject *>(object_table->objects->items[i]);
        class_process_inverse_relation(candidate->object_class, candidate, attribute, target, result);
    }
}

PtrArray *objtables_new() {
    PtrArray *classes = typelibrary_all_classes();
    const uint32_t num_classes = ptrarray_count(classes);
    kx_assert(num_classes > 0);
    PtrArray *object_tables = ptrarray_create_with_capacity(0, num_classes);
    for (uint32_t i = 0; i < num_classes; i++) ptrarray_append(object_tables, nullptr);
    for (uint32_t i = 0; i < num_classes; i++) {
        const kxClass_t *klass = static_cast<const kxClass_t *>(ptrarray_get(classes, i));
        ptrarray_set(object_tables, klass->unique_class_id, objtable_new(klass, 0x10000));
    }
    ptrarray_destroy_const(&classes);
    return object_tables;
}

void objtables_free(PtrArray **object_tables) {
    ptrarray_destroy(object_tables, callback<DestroyFn, &objtable_free>());
}

void objtables_add_instance(PtrArray *object_tables, kxBaseObject *base_object) {
    // The table is chosen by the instance's own class: no kind test needed.
    kxIfcObjTable_t *table =
        static_cast<kxIfcObjTable_t *>(ptrarray_get(object_tables, base_object->object_class->unique_class_id));
    if (table != nullptr) ptrarray_append(table->objects, base_object);
}

void objtables_merge(PtrArray *into, PtrArray **from) {
    const uint32_t count = ptrarray_count(*from);
    for (uint32_t id = 0; id < count; id++) {
        auto *table = static_cast<kxIfcObjTable_t *>((*from)->items[id]);
        ptrarray_append_all(static_cast<kxIfcObjTable_t *>(into->items[id])->objects, table->objects);
        ptrarray_clear(table->objects);  // one table's room at a time is held twice
    }
    objtables_free(from);
}

void objtables_remove_instance(PtrArray *object_tables, kxBaseObject *base_object) {
    objtable_remove(
        static_cast<kxIfcObjTable_t *>(ptrarray_get(object_tables, base_object->object_class->unique_class_id)),
        base_object);
}


// Calls the function on the table of every class whose instances are kind
// of the class in the release.
template <typename Function>
static void for_each_kind_table(const PtrArray *object_tables, const kxClass_t *klass, uint32_t version,
                                Function function) {
    const uint32_t count = ptrarray_count(object_tables);
    for (uint32_t id = 0; id < count; id++) {
        const kxIfcObjTable_t *table = static_cast<const kxIfcObjTable_t *>(object_tables->items[id]);
        if (table->objects->count != 0 && class_is_kind_of(table->klass, klass, version)) function(table);
    }
}

void objtables_collect(const PtrArray *object_tables, const kxClass_t *klass, uint32_t version,
                       ObjectFilterFn filter, void *filter_data, kxArrayST *result) {
    const uint32_t start = ptrarray_count(as_array(result));
    uint32_t tables = 0;
    for_each_kind_table(object_tables, klass, version, [&](const kxIfcObjTable_t *table) {
        objtable_filtered(table, filter, filter_data, result);
        tables++;
    });
    if (tables > 1) order_by_creation(result, start);
}

kxBaseObject *objtables_first(const PtrArray *object_tables, const kxClass_t *klass, uint32_t version) {
    kxBaseObject *oldest = nullptr;
    for_each_kind_table(object_tables, klass, version, [&](const kxIfcObjTable_t *table) {
        kxBaseObject *first = objtable_first(table);
        if (oldest == nullptr || first->object_id < oldest->object_id) oldest = first;
    });
    return oldest;
}

void objtables_process_inverse_relation(const PtrArray *object_tables, uint32_t referring_class_id, uint32_t version,
                                        const char16_t *attribute, const kxBaseObject *target, kxArrayST *result) {
    kx_assert(referring_class_id < g_num_classes);
    if (referring_class_id >= g_num_classes) return;
    const uint32_t start = ptrarray_count(as_array(result));
    for_each_kind_table(object_tables, g_classes[referring_class_id], version, [&](const kxIfcObjTable_t *table) {
        objtable_process_inverse_relation(table, attribute, target, result);
    });
    order_by_creation(result, start);
}

}  // namespace kx
