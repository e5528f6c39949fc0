#define KX_UNIT "kxifcmodelmngr"
#include "model/modelmngr.h"

#include "core/baseobject.h"
#include "core/class.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/pool.h"
#include "support/ptrarray.h"

namespace kx {

kxIfcModelMngr_t *modelmngr_new(void *owner, kxProcessInverseRelationFn process_inverse_relation,
                                kxParserHookFn hook_1, kxParserHookFn hook_2, kxParserHookFn hook_3,
                                kxMoveToOtherModelFn move_to_other_model) {
    kxIfcModelMngr_t *model_manager = mem_new_zeroed<kxIfcModelMngr_t>();
    *model_manager = {owner, process_inverse_relation, hook_1, hook_2, hook_3, move_to_other_model, pool_new()};
    return model_manager;
}

void modelmngr_free(kxIfcModelMngr_t **model_manager) {
    kx_assert_not_null(model_manager);
    if (model_manager == nullptr) return;
    kx_assert_not_null(*model_manager);
    if (*model_manager == nullptr) return;
    // Records still alive (held elsewhere) keep the pool until they go.
    pool_release(&(*model_manager)->pool);
    mem_free_and_clear(model_manager);
}

kxArrayST *modelmngr_inverse_relation(const kxIfcModelMngr_t *model_manager, uint32_t referring_class_id,
                                      const char16_t *attribute, const kxBaseObject *target) {
    kxArrayST *result = reinterpret_cast<kxArrayST *>(ptrarray_create(0));
    kx_assert_not_null(model_manager);
    if (model_manager == nullptr) return result;
    kx_assert_not_null(model_manager->func_process_inverse_relation);
    if (model_manager->func_process_inverse_relation != nullptr)
        model_manager->func_process_inverse_relation(model_manager->owner, referring_class_id, attribute,
                                                     target, result);
    return result;
}

kxArrayST *modelmngr_inverse_relation_of(const kxBaseObject *target, const kxClass_t *referring_class,
                                         const char16_t *attribute) {
    if (!baseobject_check(target) || referring_class == nullptr) return nullptr;
    return modelmngr_inverse_relation(target->model_manager, referring_class->unique_class_id, attribute, target);
}

void modelmngr_call_parser_hook_2(const kxIfcModelMngr_t *model_manager, void *argument) {
    kx_assert_not_null(model_manager);
    if (model_manager != nullptr && model_manager->parser_hook_2 != nullptr)
        model_manager->parser_hook_2(model_manager->owner, argument);
}

void modelmngr_move_to_other_model(const kxIfcModelMngr_t *model_manager, kxBaseObject *instance,
                                   const kxIfcModelMngr_t *other_model_manager) {
    kx_assert_not_null(model_manager);
    kx_assert_not_null(other_model_manager);
    if (model_manager == nullptr || other_model_manager == nullptr) return;
    kx_assert_not_null(model_manager->func_move_to_other_model);
    if (model_manager->func_move_to_other_model != nullptr)
        model_manager->func_move_to_other_model(instance, other_model_manager->owner);
}

}  // namespace kx
