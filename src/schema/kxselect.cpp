#define KX_UNIT "kxselect"
// The generic engine of select values: creation, clearing the member held,
// freeing, traversal and the "refers to" test of inverse look-ups.
#include "schema/select.h"

#include "schema/aggregate.h"
#include "schema/engines.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace kx {
namespace {

const SelectMember *member_of(const kxSelectObject *select, uint32_t code) {
    const SelectInfo *info = select->base.object_class->select;
    if (code == 0 || info == nullptr || code > info->num_members) return nullptr;
    return &info->members[code - 1];
}

void select_free_object(kxBaseObject **instance) {
    kx_assert_not_null(instance);
    if (instance == nullptr) return;
    kx_assert_not_null(*instance);
    if (*instance == nullptr) return;
    select_clear(reinterpret_cast<kxSelectObject *>(*instance));
    record_free(instance, sizeof(kxSelectObject));
}

void select_for_each_reference(kxBaseObject *instance, ReferenceFn function, void *context) {
    kxSelectObject *select = reinterpret_cast<kxSelectObject *>(instance);
    const SelectMember *member = member_of(select, select->type);
    if (member == nullptr) return;
    if (member->kind == SLOT_ENTITY && select->value.object != nullptr) function(&select->value.object, context);
    if (member->kind == SLOT_AGGREGATE && select->value.aggregate != nullptr)
        aggregate_for_each_reference(select->value.aggregate, g_defined_types[member->type_ref].type_ref, function,
                                     context);
}

char16_t *select_predefined_type_string(const kxBaseObject *) { return nullptr; }

}  // namespace

void select_clear(kxSelectObject *select) {
    const SelectMember *member = member_of(select, select->type);
    if (member != nullptr) {
        switch (member->kind) {
        case SLOT_ENTITY:
            baseobject_release(&select->value.object);
            break;
        case SLOT_STRING:
            wstr_destroy_optional(&select->value.string);
            break;
        case SLOT_AGGREGATE:
            if (select->value.aggregate != nullptr)
                aggregate_free(&select->value.aggregate, g_defined_types[member->type_ref].type_ref);
            break;
        case SLOT_BINARY:
            mem_free(select->value.binary.contents);
            break;
        default:
            break;
        }
    }
    select->value = kxSelectValue{};
    select->type = 0;
}

const ObjectHooks select_hooks = {
    &select_free_object, &select_write_object, nullptr, &select_for_each_reference, &select_predefined_type_string,
};

kxBaseObject *select_new(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                         kxIfcModelMngr_t *model_manager) {
    kxBaseObject *instance = record_new(klass, version, object_id_counter, model_manager, sizeof(kxSelectObject));
    if (instance != nullptr) baseobject_set_class_data(instance, klass);
    return instance;
}

bool select_refers_to(const kxBaseObject *instance, const kxBaseObject *target) {
    const kxSelectObject *select = reinterpret_cast<const kxSelectObject *>(instance);
    const SelectMember *member = member_of(select, select->type);
    return member != nullptr && member->kind == SLOT_ENTITY && select->value.object == target;
}

}  // namespace kx
