#define KX_UNIT "kxaccessors"
#include "schema/accessors.h"

#include "kxifc_coretypes.h"
#include "model/modelmngr.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "schema/select.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/ptrarray.h"
#include "support/wstring.h"

namespace kx {
namespace {

// Reports on behalf of the generated unit of the type the call belongs to.
void report(const char *condition, uint32_t type_id) {
    assert_report(condition, type_id < g_num_classes ? g_classes[type_id]->unit_label : KX_SOURCE_LABEL, __LINE__);
}

bool instance_is_alive(const kxBaseObject *instance, uint32_t type_id) {
    if (instance == nullptr) {
        report("(instance) != NULL", type_id);
        return false;
    }
    if (instance->validity_mask != i_VALIDITY_MASK_VALUE) {
        report("base_object->validity_mask == i_VALIDITY_MASK_VALUE", type_id);
        return false;
    }
    return true;
}

// The release of a live instance applies to the accessor; an unknown
// release is a fault of its own.
bool release_applies(const kxBaseObject *instance, uint8_t releases, uint32_t type_id) {
    if (instance->ifc_version >= NUM_RELEASES) {
        report("", type_id);
        return false;
    }
    return ((releases >> instance->ifc_version) & 1) != 0;
}

kxSelectObject *as_select(const kxBaseObject *select, uint32_t select_id) {
    if (!instance_is_alive(select, select_id)) return nullptr;
    if (select->object_class->unique_class_id != select_id) {
        report("kxBaseObject_dontuse_is_object_of_class(instance, klass) == kxBTRUE", select_id);
        return nullptr;
    }
    return const_cast<kxSelectObject *>(reinterpret_cast<const kxSelectObject *>(select));
}

const SelectMember *select_member(const kxSelectObject *select, uint32_t code) {
    const SelectInfo *info = select->base.object_class->select;
    if (code == 0 || code > info->num_members) {
        assert_report("", select->base.object_class->unit_label, __LINE__);
        return nullptr;
    }
    return &info->members[code - 1];
}

}  // namespace

char *attr_address_slow(const kxBaseObject *instance, uint32_t slot_index, uint8_t releases, uint32_t entity_id) {
    if (!instance_is_alive(instance, entity_id) || !release_applies(instance, releases, entity_id)) return nullptr;
    const SlotInfo &slot = g_slots[slot_index];
    const kxClass_t *klass = instance->object_class;
    if (klass->unique_class_id - slot.declarer < slot.declarer_end - slot.declarer)
        return const_cast<char *>(reinterpret_cast<const char *>(instance)) + slot.offset;
    for (uint32_t i = 0; i < klass->num_relocations; i++)
        if (klass->relocations[i].declarer == slot.declarer)
            return const_cast<char *>(reinterpret_cast<const char *>(instance)) + slot.offset +
                   klass->relocations[i].shift;
    report("kxBaseObject_dontuse_is_object_kind_of(instance, klass) == kxBTRUE", entity_id);
    return nullptr;
}

kxBool attr_has_value(const kxBaseObject *instance, uint32_t slot_index, uint8_t releases, uint32_t entity_id) {
    const char *address = attr_address(instance, slot_index, releases, entity_id);
    if (address == nullptr) return kxBFALSE;
    const SlotInfo &slot = g_slots[slot_index];
    switch (slot.kind) {
    case SLOT_STRING: return *reinterpret_cast<char16_t *const *>(address) != nullptr;
    case SLOT_REAL: return !real_is_undefined(*reinterpret_cast<const double *>(address));
    case SLOT_INTEGER: return *reinterpret_cast<const int32_t *>(address) != kIntegerUndefined;
    case SLOT_BOOLEAN: return kxIfcCoreTypes_boolean_has_value(*reinterpret_cast<const int32_t *>(address));
    case SLOT_LOGICAL: return kxIfcCoreTypes_logical_has_value(*reinterpret_cast<const int32_t *>(address));
    case SLOT_BINARY: return reinterpret_cast<const kxBinary *>(address)->num_bits != 0;
    case SLOT_ENUM: return enum_has_value(g_enums[slot.type_ref], *reinterpret_cast<const int32_t *>(address));
    case SLOT_ENTITY:
    case SLOT_SELECT: return *reinterpret_cast<kxBaseObject *const *>(address) != nullptr;
    case SLOT_AGGREGATE: return *reinterpret_cast<kxAggregate *const *>(address) != nullptr;
    default: report("", entity_id); return kxBFALSE;
    }
}

void attr_set_string(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id,
                     const char16_t *value) {
    char *address = attr_address(instance, slot, releases, entity_id);
    if (address == nullptr) return;
    char16_t *&stored = *reinterpret_cast<char16_t **>(address);
    // Setting the text already held keeps it: nothing to free or copy.
    if (value == stored) return;
    char16_t *copy = wstr_copy_optional(value);
    wstr_destroy_optional(&stored);
    stored = copy;
}

void attr_set_binary(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, kxBinary value) {
    char *address = attr_address(instance, slot, releases, entity_id);
    if (address == nullptr) return;
    kxBinary &stored = *reinterpret_cast<kxBinary *>(address);
    if (value.contents == stored.contents && value.num_bits == stored.num_bits) return;
    kxBinary copy = kxIfcCoreTypes_copy_binary(value);
    kxIfcCoreTypes_free_binary(&stored);
    stored = copy;
}

// A reference may only join instances of one model: once the other model
// is freed it would point at nothing, and its id means nothing in this one.
bool in_same_model(const kxBaseObject *instance, const kxBaseObject *value, uint32_t type_id) {
    if (value == nullptr || baseobject_model_manager(value) == baseobject_model_manager(instance)) return true;
    report("the value belongs to the instance's model", type_id);
    return false;
}

void attr_set_object(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id,
                     kxBaseObject *value) {
    char *address = attr_address(instance, slot, releases, entity_id);
    if (address == nullptr) return;
    // A value of another class would be misread by every later use of the
    // slot: it is reported and refused.
    const SlotInfo &info = g_slots[slot];
    if (value != nullptr && (!instance_is_alive(value, entity_id) ||
                             !(info.kind == SLOT_SELECT ? baseobject_is_of_class(value, g_classes[info.type_ref])
                                                        : baseobject_is_kind_of(value, g_classes[info.type_ref])))) {
        report("kxBaseObject_dontuse_is_object_kind_of(value, klass) == kxBTRUE", entity_id);
        return;
    }
    if (!in_same_model(instance, value, entity_id)) return;
    kxBaseObject *&stored = *reinterpret_cast<kxBaseObject **>(address);
    baseobject_retain(value);
    baseobject_release(&stored);
    stored = value;
}

void attr_set_aggregate(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id,
                        kxAggregate *value) {
    char *address = attr_address(instance, slot, releases, entity_id);
    if (address == nullptr) return;
    kxAggregate *&stored = *reinterpret_cast<kxAggregate **>(address);
    if (stored == value) return;
    if (!aggregate_objects_in_model(value, g_slots[slot].type_ref, baseobject_model_manager(instance))) {
        report("every instance of the aggregate belongs to the instance's model", entity_id);
        return;
    }
    if (!aggregate_take_holder(value)) return;
    if (stored != nullptr) aggregate_free(&stored, g_slots[slot].type_ref);
    stored = value;
}

kxBool entity_is_typeof(const kxBaseObject *instance, const kxClass_t *klass, uint32_t entity_id) {
    if (!instance_is_alive(instance, entity_id)) return kxBFALSE;
    return baseobject_is_kind_of(instance, klass);
}

kxBaseObject *entity_cast_to(kxBaseObject *instance, const kxClass_t *klass, uint32_t entity_id) {
    return entity_is_typeof(instance, klass, entity_id) ? instance : nullptr;
}

kxArrayST *entity_inverse(const kxBaseObject *instance, uint32_t entity_id, uint32_t relating_2x3,
                          const char16_t *attribute_2x3, uint32_t relating_4, const char16_t *attribute_4) {
    if (!instance_is_alive(instance, entity_id)) return nullptr;
    uint32_t relating = NO_INDEX;
    const char16_t *attribute = nullptr;
    switch (instance->ifc_version) {
    case KXIFCVERSION_IFC_2X3: relating = relating_2x3; attribute = attribute_2x3; break;
    case KXIFCVERSION_IFC_4: relating = relating_4; attribute = attribute_4; break;
    default: report("", entity_id); return nullptr;
    }
    if (relating == NO_INDEX) return reinterpret_cast<kxArrayST *>(ptrarray_create(0));
    return modelmngr_inverse_relation(instance->model_manager, relating, attribute, instance);
}

uint32_t select_get_type(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->type : 0;
}

kxBaseObject *select_get_object(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->value.object : nullptr;
}

const char16_t *select_get_string(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->value.string : nullptr;
}

double select_get_real(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->value.real : kRealUndefined;
}

int32_t select_get_integer(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->value.integer : kIntegerUndefined;
}

kxBinary select_get_binary(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->value.binary : kxBinary{nullptr, 0};
}

kxAggregate *select_get_aggregate(const kxBaseObject *select, uint32_t select_id) {
    const kxSelectObject *object = as_select(select, select_id);
    return object != nullptr ? object->value.aggregate : nullptr;
}

void select_set_object(kxBaseObject *select, uint32_t select_id, uint32_t code, kxBaseObject *value) {
    kxSelectObject *object = as_select(select, select_id);
    if (object == nullptr || select_member(object, code) == nullptr || !in_same_model(select, value, select_id)) return;
    baseobject_retain(value);
    if (object->type != code)
        select_clear(object);
    else
        baseobject_release(&object->value.object);
    object->value.object = value;
    object->type = code;
}

// Owned members: another member held is cleared, the own previous value freed.
static kxSelectObject *prepare_owned_member(kxBaseObject *select, uint32_t select_id, uint32_t code) {
    kxSelectObject *object = as_select(select, select_id);
    if (object == nullptr || select_member(object, code) == nullptr) return nullptr;
    select_clear(object);
    return object;
}

void select_set_string(kxBaseObject *select, uint32_t select_id, uint32_t code, const char16_t *value) {
    char16_t *copy = wstr_copy_optional(value);
    kxSelectObject *object = prepare_owned_member(select, select_id, code);
    if (object == nullptr) {
        wstr_destroy_optional(&copy);
        return;
    }
    object->value.string = copy;
    object->type = code;
}

void select_set_binary(kxBaseObject *select, uint32_t select_id, uint32_t code, kxBinary value) {
    kxBinary copy = kxIfcCoreTypes_copy_binary(value);
    kxSelectObject *object = prepare_owned_member(select, select_id, code);
    if (object == nullptr) {
        kxIfcCoreTypes_free_binary(&copy);
        return;
    }
    object->value.binary = copy;
    object->type = code;
}

void select_set_aggregate(kxBaseObject *select, uint32_t select_id, uint32_t code, kxAggregate *value) {
    kxSelectObject *object = as_select(select, select_id);
    if (object == nullptr || select_member(object, code) == nullptr) return;
    if ((object->type == code && object->value.aggregate == value) || !aggregate_take_holder(value)) return;
    select_clear(object);
    object->value.aggregate = value;
    object->type = code;
}

void select_set_real(kxBaseObject *select, uint32_t select_id, uint32_t code, double value) {
    kxSelectObject *object = as_select(select, select_id);
    if (object == nullptr || select_member(object, code) == nullptr) return;
    object->value.real = value;
    object->type = code;
}

void select_set_integer(kxBaseObject *select, uint32_t select_id, uint32_t code, int32_t value) {
    kxSelectObject *object = as_select(select, select_id);
    if (object == nullptr || select_member(object, code) == nullptr) return;
    object->value.integer = value;
    object->type = code;
}

}  // namespace kx
