#define KX_UNIT "kxclass"
#include "core/class.h"

#include "kxifc_model.h"
#include "support/assert.h"
#include "support/wstring.h"

namespace kx {

uint32_t class_unique_id(const kxClass_t *klass) {
    kx_assert_not_null(klass);
    return klass != nullptr ? klass->unique_class_id : NO_INDEX;
}

kx_bool16 class_is_same(const kxClass_t *klass1, const kxClass_t *klass2) {
    kx_assert_not_null(klass1);
    kx_assert_not_null(klass2);
    if (klass1 == nullptr || klass2 == nullptr) return FALSO;
    return klass1->unique_class_id == klass2->unique_class_id ? CIERTO : FALSO;
}

kx_bool16 class_has_id(const kxClass_t *klass, uint32_t unique_class_id) {
    kx_assert_not_null(klass);
    return klass != nullptr && klass->unique_class_id == unique_class_id ? CIERTO : FALSO;
}

kx_bool16 class_is_abstract(const kxClass_t *klass, kxIfcVersion_t ifc_version) {
    kx_assert_not_null(klass);
    kx_assert(ifc_version < (enum kxIfcVersion_t)KXCLASS_MAX_IFC_VERSIONS);
    if (klass == nullptr || ifc_version >= KXCLASS_MAX_IFC_VERSIONS) return FALSO;
    return klass->is_abstract[ifc_version];
}

const char16_t *class_ifc_name(const kxClass_t *klass) {
    kx_assert_not_null(klass);
    return klass != nullptr ? klass->ifc_name : nullptr;
}

kxBaseObject *class_new_instance(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                                 kxIfcModelMngr_t *model_manager) {
    kx_assert_not_null(klass);
    if (klass == nullptr) return nullptr;
    kx_assert_not_null(klass->func_new);
    return klass->func_new != nullptr ? klass->func_new(klass, version, object_id_counter, model_manager) : nullptr;
}

void class_process_inverse_relation(const kxClass_t *klass, kxBaseObject *candidate, const char16_t *attribute,
                                    const kxBaseObject *target, kxArrayST *result) {
    kx_assert_not_null(klass);
    if (klass != nullptr && klass->func_process_inverse_relation != nullptr)
        klass->func_process_inverse_relation(candidate, attribute, target, result);
}

void class_init_from_parse(const kxClass_t *klass, kxBaseObject *instance, kxParseParList *parameters) {
    kx_assert_not_null(klass);
    if (klass == nullptr) return;
    kx_assert_not_null(klass->func_init_from_parse);
    if (klass->func_init_from_parse != nullptr) klass->func_init_from_parse(instance, parameters);
}

uint32_t class_slot_offset(const kxClass_t *klass, const SlotInfo &slot) {
    for (uint32_t i = 0; i < klass->num_relocations; i++)
        if (klass->relocations[i].declarer == slot.declarer)
            return static_cast<uint32_t>(static_cast<int32_t>(slot.offset) + klass->relocations[i].shift);
    return slot.offset;
}

}  // namespace kx

using namespace kx;

extern "C" {

KX_API uint32_t kxClass_unique_id(const kxClass_t *klass) { return class_unique_id(klass); }
KX_API const kxWChar *kxClass_ifc_name(const kxClass_t *klass) { return class_ifc_name(klass); }

KX_API kxBool kxClass_is_entity(const kxClass_t *klass) {
    kx_assert_not_null(klass);
    return klass != nullptr ? klass->is_entity : kxBFALSE;
}

KX_API kxBool kxClass_is_abstract(const kxClass_t *klass, kxIfcVersion_t ifc_version) {
    return class_is_abstract(klass, ifc_version);
}

KX_API kxBool kxClass_exists_in_version(const kxClass_t *klass, kxIfcVersion_t ifc_version) {
    kx_assert_not_null(klass);
    return klass != nullptr && class_release(klass, ifc_version) != nullptr ? kxBTRUE : kxBFALSE;
}

KX_API const kxClass_t *kxClass_find_by_name(const kxWChar *ifc_name) {
    if (ifc_name == nullptr) return nullptr;
    // The keywords are sorted without regard to case: a binary search.
    uint32_t low = 0, high = g_num_keywords;
    while (low < high) {
        const uint32_t middle = (low + high) / 2;
        const int order = wstr_compare_nocase(g_keywords[middle], ifc_name);
        if (order == 0) {
            const uint32_t class_id = g_keyword_class_ids[middle];
            return class_id != NO_INDEX ? g_classes[class_id] : nullptr;
        }
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return nullptr;
}

}  // extern "C"
