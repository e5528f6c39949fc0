// The model manager: what every instance points to instead of its model. An
// opaque owner (a model, or a parser building one) and the callbacks through
// which instances ask for inverse relations or are moved to another model.
#pragma once

#include <cstdint>

struct kxBaseObject;
struct kxArrayST;
struct kxClass_t;

namespace kx {
struct Pool;
}

using kxProcessInverseRelationFn = void (*)(void *owner, uint32_t referring_class_id,
                                            const char16_t *attribute, const kxBaseObject *target,
                                            kxArrayST *result);
using kxParserHookFn = void (*)(void *owner, void *argument);
using kxMoveToOtherModelFn = void (*)(kxBaseObject *instance, void *other_owner);

struct kxIfcModelMngr_t {
    void *owner;
    kxProcessInverseRelationFn func_process_inverse_relation;
    kxParserHookFn parser_hook_1;
    kxParserHookFn parser_hook_2;
    kxParserHookFn parser_hook_3;
    kxMoveToOtherModelFn func_move_to_other_model;
    kx::Pool *pool;  // the records of the owner's instances, and the blocks a read makes for them
};

namespace kx {

kxIfcModelMngr_t *modelmngr_new(void *owner, kxProcessInverseRelationFn process_inverse_relation,
                                kxParserHookFn hook_1, kxParserHookFn hook_2, kxParserHookFn hook_3,
                                kxMoveToOtherModelFn move_to_other_model);
void modelmngr_free(kxIfcModelMngr_t **model_manager);
// A new kxArrayST (owned by the caller) filled by the owner's inverse query.
kxArrayST *modelmngr_inverse_relation(const kxIfcModelMngr_t *model_manager, uint32_t referring_class_id,
                                      const char16_t *attribute, const kxBaseObject *target);
// The same for the model manager of the target, by referring class.
kxArrayST *modelmngr_inverse_relation_of(const kxBaseObject *target, const kxClass_t *referring_class,
                                         const char16_t *attribute);
void modelmngr_call_parser_hook_2(const kxIfcModelMngr_t *model_manager, void *argument);
void modelmngr_move_to_other_model(const kxIfcModelMngr_t *model_manager, kxBaseObject *instance,
                                   const kxIfcModelMngr_t *other_model_manager);

}  // namespace kx
