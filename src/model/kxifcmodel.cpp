#define KX_UNIT "kxifcmodel"
#include "kxifc_files.h"
#include "model/model.h"

#include "core/baseobject.h"
#include "core/class.h"
#include "model/header.h"
#include "model/modelmngr.h"
#include "model/objtable.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/pool.h"

namespace kx {
namespace {

void model_inverse_query(void *owner, uint32_t referring_class_id, const char16_t *attribute,
                         const kxBaseObject *target, kxArrayST *result) {
    const kxIfcModel *model = static_cast<const kxIfcModel *>(owner);
    objtables_process_inverse_relation(model->object_tables, referring_class_id, model->ifc_version, attribute,
                                       target, result);
}

// Takes an instance into the model: numbered, listed, entered in its table.
void model_take_instance(kxIfcModel *model, kxBaseObject *instance) {
    ptrarray_append(model->objects, instance);
    objtables_add_instance(model->object_tables, instance);
}

// Moves an instance of another model into this one (the other model's list
// and tables let go of it without releasing it).
void model_move_instance(kxBaseObject *instance, void *other_owner) {
    kxIfcModel *target = static_cast<kxIfcModel *>(other_owner);
    baseobject_renew_object_id(instance, &target->object_id_counter);
    baseobject_set_model_manager(instance, target->model_manager);
    model_take_instance(target, instance);
}

kxIfcModel *model_alloc() {
    kxIfcModel *model = mem_new_zeroed<kxIfcModel>();
    model->model_manager = modelmngr_new(model, &model_inverse_query, nullptr, nullptr, nullptr, &model_move_instance);
    return model;
}

bool check_model(const kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    return ifc_model != nullptr;
}

kxArrayST *new_result() { return reinterpret_cast<kxArrayST *>(ptrarray_create(0)); }

}  // namespace

kxIfcModel *model_new_from_parts(kxIfcHeader **header, kxIfcVersion_t version, uint32_t object_id_counter,
                                 uint32_t output_id_counter, PtrArray **objects, PtrArray **object_tables,
                                 kxIfcModelMngr_t **model_manager, const PtrArray *value_objects) {
    kxIfcModel *model = mem_new_zeroed<kxIfcModel>();
    kx_assert(model != NULL);
    // The instances already point at the reader's manager: it becomes the
    // model's, so no instance needs touching again.
    model->model_manager = mem_take(model_manager);
    kxIfcModelMngr_t *manager = model->model_manager;
    manager->owner = model;
    manager->func_process_inverse_relation = &model_inverse_query;
    manager->parser_hook_1 = manager->parser_hook_2 = manager->parser_hook_3 = nullptr;
    manager->func_move_to_other_model = &model_move_instance;
    model->header = mem_take(header);
    model->ifc_version = version;
    model->object_id_counter = object_id_counter;
    model->output_id_counter = output_id_counter;
    model->objects = mem_take(objects);
    model->object_tables = mem_take(object_tables);
    // Value objects made while reading get the numbers after the file's ids,
    // in the order they were made.
    const uint32_t count = ptrarray_count(value_objects);
    for (uint32_t i = 0; i < count; i++) {
        kxBaseObject *instance = static_cast<kxBaseObject *>(value_objects->items[i]);
        kx_assert_text(kxClass_is_entity(instance->object_class) == FALSO,
                       "kxClass_is_entity(kxBaseObject_class(base_object)) == FALSO");
        if (instance->output_file_id == ULONG_MAX32 && model->output_id_counter != ULONG_MAX32)
            instance->output_file_id = model->output_id_counter++;
    }
    return model;
}

void model_move_all_instances(kxIfcModel *source, kxIfcModel *target) {
    if (!check_model(source) || !check_model(target)) return;
    kx_assert_text(source != target, "ifc_model1 != ifc_model2");
    if (source == target) return;
    const auto move = [](kxBaseObject *instance, void *target_manager) {
        modelmngr_move_to_other_model(instance->model_manager, instance,
                                      static_cast<const kxIfcModelMngr_t *>(target_manager));
    };
    const uint32_t count = ptrarray_count(source->objects);
    for (uint32_t i = 0; i < count; i++)
        baseobject_move_reachable(static_cast<kxBaseObject *>(source->objects->items[i]), move,
                                  target->model_manager);
    // The target took over the source's references: the source lets go of
    // them without releasing.
    ptrarray_shrink(&source->objects, 0, nullptr);
    const uint32_t num_tables = ptrarray_count(source->object_tables);
    for (uint32_t i = 0; i < num_tables; i++) {
        kxIfcObjTable_t *table = static_cast<kxIfcObjTable_t *>(source->object_tables->items[i]);
        if (table != nullptr) ptrarray_shrink(&table->objects, 0, nullptr);
    }
}

}  // namespace kx

using namespace kx;

extern "C" {

KX_API kxIfcModel *kxIfcModel_new(void) {
    kxIfcModel *model = model_alloc();
    model->header = kxIfcHeader_new_empty_header();
    model->ifc_version = ifc_version_not_defined;
    model->object_id_counter = 0;
    model->output_id_counter = 1;
    model->objects = ptrarray_create(0);
    model->object_tables = objtables_new();
    return model;
}

KX_API void kxIfcModel_set_version(kxIfcModel *ifc_model, kxIfcVersion_t ifc_version) {
    if (!check_model(ifc_model)) return;
    // Instances are laid out for the release they were made in: once there
    // are some, the release stays.
    const bool settable = ifc_model->ifc_version == ifc_version || ptrarray_count(ifc_model->objects) == 0;
    kx_assert_text(settable, "kxIfcModel_count_objects(ifc_model) == 0");
    if (settable) ifc_model->ifc_version = ifc_version;
}

KX_API kxIfcVersion_t kxIfcModel_ifc_version(const kxIfcModel *ifc_model) {
    return check_model(ifc_model) ? ifc_model->ifc_version : ifc_version_not_defined;
}

KX_API uint32_t kxIfcModel_count_objects(const kxIfcModel *ifc_model) {
    return check_model(ifc_model) ? ptrarray_count(ifc_model->objects) : 0;
}

KX_API void kxIfcModel_set_text_mode(kxIfcModel *ifc_model, kxTextMode text_mode) {
    kx_assert(text_mode == KX_TEXT_MODE_SPEC || text_mode == KX_TEXT_MODE_LOSSLESS);
    if (check_model(ifc_model) && (text_mode == KX_TEXT_MODE_SPEC || text_mode == KX_TEXT_MODE_LOSSLESS))
        ifc_model->text_mode = text_mode;
}

KX_API kxTextMode kxIfcModel_text_mode(const kxIfcModel *ifc_model) {
    return check_model(ifc_model) ? ifc_model->text_mode : KX_TEXT_MODE_SPEC;
}

KX_API void kxIfcModel_free(kxIfcModel **ifc_model) {
    kx_assert_not_null(ifc_model);
    if (ifc_model == nullptr) return;
    kx_assert_not_null(*ifc_model);
    kxIfcModel *model = *ifc_model;
    if (model == nullptr) return;
    header_destroy(&model->header);
    // The pool is let go first: what is freed into it then is only counted.
    pool_release(&model->model_manager->pool);
    baseobject_release_all(&model->objects);
    objtables_free(&model->object_tables);
    modelmngr_free(&model->model_manager);
    mem_free_and_clear(ifc_model);
}

KX_API kxBaseObject *kxIfcModel_dontuse_new_object(kxIfcModel *ifc_model, const kxClass_t *klass) {
    if (!check_model(ifc_model)) return nullptr;
    kx_assert(ifc_model->ifc_version != ifc_version_not_defined);
    kx_assert_not_null(klass);
    if (klass == nullptr) return nullptr;
    if (ifc_model->ifc_version < KXCLASS_MAX_IFC_VERSIONS && class_is_abstract(klass, ifc_model->ifc_version))
        return nullptr;
    // Ids go up to 4294967294 (the largest is the "no id" mark); a model read
    // from a file holding that id has none left for new instances.
    kx_assert_text(ifc_model->output_id_counter != ULONG_MAX32, "ifc_model->output_id_counter < ULONG_MAX");
    if (ifc_model->output_id_counter == ULONG_MAX32) return nullptr;
    kxBaseObject *instance =
        class_new_instance(klass, ifc_model->ifc_version, &ifc_model->object_id_counter, ifc_model->model_manager);
    if (instance == nullptr) return nullptr;
    instance->output_file_id = ifc_model->output_id_counter++;
    model_take_instance(ifc_model, instance);
    return instance;
}

KX_API void kxIfcModel_dontuse_free_object(kxIfcModel *ifc_model, kxBaseObject **base_object) {
    if (!check_model(ifc_model)) return;
    kx_assert_not_null(base_object);
    if (base_object == nullptr || *base_object == nullptr) return;
    kxBaseObject *instance = *base_object;
    uint32_t idx = ULONG_MAX32;
    for (uint32_t i = ptrarray_count(ifc_model->objects); i-- > 0;) {
        if (ifc_model->objects->items[i] == instance) {
            idx = i;
            break;
        }
    }
    kx_assert_text(idx != ULONG_MAX32, "idx != ULONG_MAX");
    // An instance another holder still retains stays listed, and the model
    // keeps its reference too: the list never points at a freed instance.
    // Once the other holders have let go, freeing it again removes it.
    if (idx != ULONG_MAX32 && baseobject_is_last_reference(instance)) {
        objtables_remove_instance(ifc_model->object_tables, instance);
        ptrarray_remove_and_destroy(&ifc_model->objects, idx, callback<DestroyFn, &baseobject_release>());
    }
    *base_object = nullptr;
}

KX_API kxBaseObject *kxIfcModel_dontuse_get_first_occurrence_of_class(const kxIfcModel *ifc_model,
                                                                      const kxClass_t *klass) {
    if (!check_model(ifc_model) || klass == nullptr) return nullptr;
    return objtables_first(ifc_model->object_tables, klass, ifc_model->ifc_version);
}

KX_API kxArrayST *kxIfcModel_dontuse_get_objects_by_class(const kxIfcModel *ifc_model, const kxClass_t *klass) {
    return kxIfcModel_dontuse_get_filtered_objects_of_class(ifc_model, klass, nullptr, nullptr);
}

KX_API kxArrayST *kxIfcModel_dontuse_get_filtered_objects_of_class(const kxIfcModel *ifc_model,
                                                                   const kxClass_t *klass,
                                                                   kxIfcModelFilterFn filter, void *filter_data) {
    kxArrayST *result = new_result();
    if (!check_model(ifc_model)) return result;
    kx_assert_not_null(klass);
    if (klass != nullptr)
        objtables_collect(ifc_model->object_tables, klass, ifc_model->ifc_version, filter, filter_data, result);
    return result;
}

KX_API void kxIfcModel_clear_objects_visited_mask(kxIfcModel *ifc_model) {
    if (!check_model(ifc_model)) return;
    const uint32_t count = ptrarray_count(ifc_model->objects);
    for (uint32_t i = 0; i < count; i++)
        baseobject_clear_visited_flag(static_cast<kxBaseObject *>(ifc_model->objects->items[i]));
}

KX_API void kxIfcModel_dontuse_visit_model(kxIfcModel *ifc_model, void *user_data, kxIfcModelVisitorFn visitor) {
    if (!check_model(ifc_model)) return;
    kx_assert_text(visitor != nullptr, "(func_visitor) != NULL");
    if (visitor == nullptr) return;
    int32_t stop = 0;
    // The visitor may free instances, so the count is read on every turn.
    for (uint32_t i = 0; i < ptrarray_count(ifc_model->objects); i++) {
        kxBaseObject *instance = static_cast<kxBaseObject *>(ifc_model->objects->items[i]);
        if (!baseobject_has_been_visited(instance)) {
            visitor(instance, user_data, &stop);
            if (i < ptrarray_count(ifc_model->objects) && ifc_model->objects->items[i] == instance)
                baseobject_mark_as_visited(instance);
        }
        if (stop == 1) break;
    }
}

KX_API void kxIfcModel_set_header(kxIfcModel *ifc_model, kxIfcHeader **header) {
    if (!check_model(ifc_model)) return;
    kx_assert_not_null(header);
    if (header == nullptr) return;
    if (ifc_model->header != nullptr) header_destroy(&ifc_model->header);
    ifc_model->header = mem_take(header);
}

KX_API kxIfcHeader *kxIfcModel_get_header(const kxIfcModel *ifc_model) {
    return check_model(ifc_model) ? ifc_model->header : nullptr;
}

}  // extern "C"
