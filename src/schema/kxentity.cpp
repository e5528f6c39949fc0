#define KX_UNIT "kxentity"
// The generic engine of entity records: creation with every slot undefined,
// freeing of what the slots own, traversal and inverse look-up, all driven by
// the class tables.
#include <cstring>

#include "core/baseobject.h"
#include "core/coretypes.h"
#include "model/modelmngr.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/pool.h"
#include "support/ptrarray.h"
#include "support/wstring.h"

namespace kx {
namespace {

void set_undefined(kxBaseObject *instance, const RecordSlot &slot) {
    switch (slot.kind) {
    case SLOT_REAL:
        record_slot<double>(instance, slot.offset) = kRealUndefined;
        break;
    case SLOT_INTEGER:
        record_slot<int32_t>(instance, slot.offset) = kIntegerUndefined;
        break;
    case SLOT_BOOLEAN:
        record_slot<int32_t>(instance, slot.offset) = kBooleanUndefined;
        break;
    case SLOT_LOGICAL:
        record_slot<int32_t>(instance, slot.offset) = kLogicalUndefined;
        break;
    default:  // strings, references, aggregates, binaries, enumerations: all zero
        break;
    }
}

void free_slot(kxBaseObject *instance, const RecordSlot &slot) {
    switch (slot.kind) {
    case SLOT_STRING:
        wstr_destroy_optional(&record_slot<char16_t *>(instance, slot.offset));
        break;
    case SLOT_ENTITY:
    case SLOT_SELECT:
        baseobject_release(&record_slot<kxBaseObject *>(instance, slot.offset));
        break;
    case SLOT_AGGREGATE: {
        kxAggregate *&aggregate = record_slot<kxAggregate *>(instance, slot.offset);
        if (aggregate != nullptr) aggregate_free(&aggregate, slot.type_ref);
        break;
    }
    case SLOT_BINARY: {
        kxBinary &binary = record_slot<kxBinary>(instance, slot.offset);
        mem_free(binary.contents);
        binary = kxBinary{nullptr, 0};
        break;
    }
    default:
        break;
    }
}

void entity_free_object(kxBaseObject **instance) {
    kx_assert_not_null(instance);
    if (instance == nullptr) return;
    kx_assert_not_null(*instance);
    kxBaseObject *object = *instance;
    if (object == nullptr) return;
    const kxClass_t *klass = object->object_class;
    for (uint32_t i = 0; i < klass->num_record_slots; i++) free_slot(object, klass->record_slots[i]);
    record_free(instance, klass->record_size);
}

// Whether an aggregate (of instances, possibly nested) holds the target.
bool aggregate_holds(const kxAggregate *aggregate, uint32_t aggregate_index, const kxBaseObject *target) {
    const AggregateInfo &info = g_aggregates[aggregate_index];
    for (uint32_t i = 0; i < aggregate->count; i++) {
        const kxAggregateCell &cell = aggregate->items[i];
        if (info.element_kind == SLOT_AGGREGATE) {
            if (cell.aggregate != nullptr && aggregate_holds(cell.aggregate, info.element_ref, target)) return true;
        } else if (info.element_kind == SLOT_ENTITY || info.element_kind == SLOT_SELECT) {
            if (cell.object == target) return true;
            if (info.element_kind == SLOT_SELECT && cell.object != nullptr && select_refers_to(cell.object, target))
                return true;
        }
    }
    return false;
}

void entity_for_each_reference(kxBaseObject *instance, ReferenceFn function, void *context) {
    const ClassRelease *release = baseobject_class_release(instance);
    if (release == nullptr) return;
    for (uint32_t i = 0; i < release->num_attrs; i++) {
        const AttrRef &attr = release->attrs[i];
        const SlotInfo &slot = g_slots[attr.slot];
        if (slot.kind == SLOT_ENTITY || slot.kind == SLOT_SELECT) {
            kxBaseObject *&referenced = record_slot<kxBaseObject *>(instance, attr.offset);
            if (referenced != nullptr) function(&referenced, context);
        } else if (slot.kind == SLOT_AGGREGATE) {
            kxAggregate *aggregate = record_slot<kxAggregate *>(instance, attr.offset);
            if (aggregate != nullptr) aggregate_for_each_reference(aggregate, slot.type_ref, function, context);
        }
    }
}

char16_t *entity_predefined_type_string(const kxBaseObject *instance) {
    const ClassRelease *release = baseobject_class_release(instance);
    if (release == nullptr || release->predefined_type_attr < 0) return nullptr;
    const AttrRef &attr = release->attrs[release->predefined_type_attr];
    const int32_t value = record_slot<int32_t>(const_cast<kxBaseObject *>(instance), attr.offset);
    return const_cast<char16_t *>(enum_to_string(g_enums[g_slots[attr.slot].type_ref], value));
}

}  // namespace

void aggregate_for_each_reference(kxAggregate *aggregate, uint32_t aggregate_index, ReferenceFn function,
                                  void *context) {
    const AggregateInfo &info = g_aggregates[aggregate_index];
    for (uint32_t i = 0; i < aggregate->count; i++) {
        kxAggregateCell &cell = aggregate->items[i];
        if (info.element_kind == SLOT_AGGREGATE) {
            if (cell.aggregate != nullptr) aggregate_for_each_reference(cell.aggregate, info.element_ref, function, context);
        } else if ((info.element_kind == SLOT_ENTITY || info.element_kind == SLOT_SELECT) && cell.object != nullptr) {
            function(&cell.object, context);
        }
    }
}

const ObjectHooks entity_hooks = {
    &entity_free_object, &entity_write_object, nullptr, &entity_for_each_reference, &entity_predefined_type_string,
};

void entity_reset_record(kxBaseObject *instance) {
    const kxClass_t *klass = instance->object_class;
    for (uint32_t i = 0; i < klass->num_record_slots; i++) {
        free_slot(instance, klass->record_slots[i]);
        set_undefined(instance, klass->record_slots[i]);
    }
}

kxBaseObject *record_new(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                         kxIfcModelMngr_t *model_manager, uint32_t size) {
    if (version != KXIFCVERSION_IFC_2X3 && version != KXIFCVERSION_IFC_4) {
        kx_assert_unreachable();
        return nullptr;
    }
    if (class_release(klass, version) == nullptr) return nullptr;
    kx_assert_not_null(model_manager);
    if (model_manager == nullptr) return nullptr;
    // A read makes its records in the pool of the thread that reads them.
    Pool *pool = mem_pool() != nullptr ? mem_pool() : model_manager->pool;
    kxBaseObject *instance = static_cast<kxBaseObject *>(pool_alloc(pool, size));
    baseobject_init(instance, version, object_id_counter, model_manager);
    return instance;
}

void record_free(kxBaseObject **instance, uint32_t size) {
    baseobject_destroy(*instance);
    pool_free(*instance, size);
    *instance = nullptr;
}

kxBaseObject *entity_new(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                         kxIfcModelMngr_t *model_manager) {
    kxBaseObject *instance = record_new(klass, version, object_id_counter, model_manager, klass->record_size);
    if (instance == nullptr) return nullptr;
    for (uint32_t i = 0; i < klass->num_record_slots; i++) set_undefined(instance, klass->record_slots[i]);
    baseobject_set_class_data(instance, klass);
    return instance;
}

void entity_process_inverse_relation(kxBaseObject *candidate, const char16_t *attribute,
                                     const kxBaseObject *target, kxArrayST *result) {
    const ClassRelease *release = baseobject_class_release(candidate);
    if (release == nullptr) return;
    // The most derived declaration of the name decides, as a supertype's
    // attribute of the same name is hidden by it.
    for (uint32_t i = release->num_attrs; i-- > 0;) {
        const AttrRef &attr = release->attrs[i];
        const SlotInfo &slot = g_slots[attr.slot];
        if (!wstr_equal_nocase(slot.name, attribute)) continue;
        bool refers = false;
        if (slot.kind == SLOT_ENTITY) {
            refers = record_slot<kxBaseObject *>(candidate, attr.offset) == target;
        } else if (slot.kind == SLOT_SELECT) {
            kxBaseObject *select = record_slot<kxBaseObject *>(candidate, attr.offset);
            refers = select != nullptr && select_refers_to(select, target);
        } else if (slot.kind == SLOT_AGGREGATE) {
            kxAggregate *aggregate = record_slot<kxAggregate *>(candidate, attr.offset);
            refers = aggregate != nullptr && aggregate_holds(aggregate, slot.type_ref, target);
        }
        if (refers) ptrarray_append(reinterpret_cast<PtrArray *>(result), candidate);
        return;
    }
}

}  // namespace kx
