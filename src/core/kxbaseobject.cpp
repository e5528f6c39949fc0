#define KX_UNIT "kxbaseobject"
#include "core/baseobject.h"

#include <vector>

#include "kxifc_model.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/threads.h"
#include "support/wstring.h"

namespace kx {

bool baseobject_check(const kxBaseObject *base_object) {
    kx_assert_not_null(base_object);
    if (base_object == nullptr) return false;
    kx_assert(base_object->validity_mask == i_VALIDITY_MASK_VALUE);
    return base_object->validity_mask == i_VALIDITY_MASK_VALUE;
}

void baseobject_init(kxBaseObject *base_object, kxIfcVersion_t version, uint32_t *object_id_counter,
                     kxIfcModelMngr_t *model_manager) {
    kx_assert_not_null(base_object);
    if (base_object == nullptr) return;
    base_object->validity_mask = i_VALIDITY_MASK_VALUE;
    base_object->object_id = object_id_counter != nullptr ? (*object_id_counter)++ : 0;
    base_object->object_class = nullptr;
    base_object->model_manager = model_manager;
    base_object->retain_count = 1;
    base_object->output_file_id = ULONG_MAX32;
    base_object->flags = 0;
    base_object->ifc_version = static_cast<uint16_t>(version);
    base_object->reserved = 0;
}

void baseobject_set_class_data(kxBaseObject *base_object, const kxClass_t *klass) {
    if (!baseobject_check(base_object)) return;
    kx_assert(base_object->object_class == NULL);
    kx_assert_text((base_object->flags & OBJECT_CLASS_SET) == 0,
                   "base_object->unique_class_ids_parent_classes == NULL");
    kx_assert(base_object->model_manager != NULL);
    base_object->object_class = klass;
    base_object->flags |= OBJECT_CLASS_SET;
}

void baseobject_retain(kxBaseObject *base_object) {
    if (base_object == nullptr) return;
    if (!baseobject_check(base_object)) return;
    shared_count_add(&base_object->retain_count);
}

void baseobject_release(kxBaseObject **base_object) {
    kx_assert_not_null(base_object);
    if (base_object == nullptr || *base_object == nullptr) return;
    kxBaseObject *object = *base_object;
    if (!baseobject_check(object)) {
        *base_object = nullptr;
        return;
    }
    const ObjectHooks *hooks = object->object_class != nullptr ? object->object_class->hooks : nullptr;
    kx_assert_text(hooks != nullptr && hooks->free_object != nullptr,
                   "((*base_object)->func_free_object) != NULL");
    kx_assert((*base_object)->retain_count > 0);
    if (object->retain_count > 0) object->retain_count--;
    if (object->retain_count == 0 && hooks != nullptr && hooks->free_object != nullptr) {
        hooks->free_object(base_object);
        kx_assert(*base_object == NULL);
    }
    *base_object = nullptr;
}

kx_bool16 baseobject_is_last_reference(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return FALSO;
    kx_assert(base_object->retain_count > 0);
    return base_object->retain_count == 1 ? CIERTO : FALSO;
}

void baseobject_destroy(kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return;
    kx_assert(base_object->retain_count == 0);
    base_object->validity_mask = i_VALIDITY_MASK_FREED;
}

const kxClass_t *baseobject_class(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return nullptr;
    return base_object->object_class;
}

const ClassRelease *baseobject_class_release(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object) || base_object->object_class == nullptr) return nullptr;
    return class_release(base_object->object_class, base_object->ifc_version);
}

kx_bool16 baseobject_is_of_class(const kxBaseObject *base_object, const kxClass_t *klass) {
    if (!baseobject_check(base_object)) return FALSO;
    kx_assert_not_null(klass);
    if (klass == nullptr || base_object->object_class == nullptr) return FALSO;
    return class_is_same(base_object->object_class, klass);
}

kx_bool16 baseobject_is_kind_of(const kxBaseObject *base_object, const kxClass_t *klass) {
    if (baseobject_is_of_class(base_object, klass)) return CIERTO;
    const ClassRelease *release = baseobject_class_release(base_object);
    if (release == nullptr || klass == nullptr) return FALSO;
    for (uint32_t i = 0; i < release->num_ancestors; i++)
        if (release->ancestors[i] == klass->unique_class_id) return CIERTO;
    return FALSO;
}

kxBaseObject *baseobject_cast(kxBaseObject *base_object, const kxClass_t *klass) {
    return baseobject_is_kind_of(base_object, klass) ? base_object : nullptr;
}

kxIfcVersion_t baseobject_version(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return ifc_version_not_defined;
    return static_cast<kxIfcVersion_t>(base_object->ifc_version);
}

kxIfcModelMngr_t *baseobject_model_manager(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return nullptr;
    return base_object->model_manager;
}

void baseobject_set_model_manager(kxBaseObject *base_object, kxIfcModelMngr_t *model_manager) {
    if (!baseobject_check(base_object)) return;
    kx_assert_not_null(model_manager);
    base_object->model_manager = model_manager;
}

const uint32_t *baseobject_ancestor_ids(const kxBaseObject *base_object, uint32_t *size_self_derived_attr_ids) {
    kx_assert_not_null(size_self_derived_attr_ids);
    const ClassRelease *release = baseobject_class_release(base_object);
    if (size_self_derived_attr_ids != nullptr)
        *size_self_derived_attr_ids = release != nullptr ? release->num_ancestors : 0;
    return release != nullptr ? release->ancestors : nullptr;
}

kx_bool16 baseobject_is_same(const kxBaseObject *a, const kxBaseObject *b) { return a == b ? CIERTO : FALSO; }

kx_bool16 baseobject_is_equal(const kxBaseObject *a, const kxBaseObject *b) {
    if (a == b) return CIERTO;
    if (!baseobject_check(a) || !baseobject_check(b)) return FALSO;
    const ObjectHooks *hooks_a = a->object_class->hooks;
    const ObjectHooks *hooks_b = b->object_class->hooks;
    if (hooks_a->is_equal != nullptr && hooks_a->is_equal(a, b)) return CIERTO;
    if (hooks_b->is_equal != nullptr && hooks_b->is_equal(b, a)) return CIERTO;
    return FALSO;
}

uint32_t baseobject_output_file_id(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return ULONG_MAX32;
    return base_object->output_file_id;
}

void baseobject_set_output_file_id(kxBaseObject *base_object, uint32_t output_file_id) {
    if (!baseobject_check(base_object)) return;
    base_object->output_file_id = output_file_id;
}

static int compare_ids(uint32_t a, uint32_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

int baseobject_compare_output_file_id(const kxBaseObject *a, const kxBaseObject *b) {
    if (!baseobject_check(a) || !baseobject_check(b)) return 0;
    return compare_ids(a->output_file_id, b->output_file_id);
}

int baseobject_compare_with_output_file_id(const kxBaseObject *base_object, const uint32_t *output_file_id) {
    kx_assert_not_null(output_file_id);
    if (!baseobject_check(base_object) || output_file_id == nullptr) return 0;
    return compare_ids(base_object->output_file_id, *output_file_id);
}

kx_bool16 baseobject_has_been_written(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return FALSO;
    if ((base_object->flags & OBJECT_WRITTEN) == 0) return FALSO;
    kx_assert(base_object->output_file_id != ULONG_MAX32);
    return CIERTO;
}

void baseobject_clear_written_flag(kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return;
    base_object->flags &= static_cast<uint16_t>(~OBJECT_WRITTEN);
}

void baseobject_write_object(kxBaseObject *base_object, kxIfcWriteData *write_data) {
    if (!baseobject_check(base_object)) return;
    const ObjectHooks *hooks = base_object->object_class->hooks;
    kx_assert_text(hooks->write_object != nullptr, "(base_object->func_write_object) != NULL");
    if (hooks->write_object != nullptr) hooks->write_object(base_object, write_data);
}

void baseobject_init_from_parse(kxBaseObject *base_object, kxParseParList *parameters) {
    if (!baseobject_check(base_object)) return;
    kx_assert_text((base_object->flags & OBJECT_WRITTEN) == 0,
                   "base_object->has_been_written_to_output == FALSO");
    kx_assert(base_object->output_file_id != ULONG_MAX32);
    class_init_from_parse(base_object->object_class, base_object, parameters);
}

kx_bool16 baseobject_is_derived_attribute(const kxBaseObject *base_object, const char16_t *qualified_name) {
    const ClassRelease *release = baseobject_class_release(base_object);
    if (release == nullptr || release->derived_names == nullptr) return FALSO;
    for (uint32_t i = 0; i < release->num_derived; i++)
        if (wstr_equal_nocase(release->derived_names[i], qualified_name)) return CIERTO;
    return FALSO;
}

namespace {

using ObjectStack = std::vector<kxBaseObject *, TrackedAllocator<kxBaseObject *>>;

void push_unvisited(kxBaseObject **reference, void *context) {
    if (((*reference)->flags & (OBJECT_VISITED | OBJECT_BEING_VISITED)) == 0)
        static_cast<ObjectStack *>(context)->push_back(*reference);
}

}  // namespace

// Marks every instance reachable from the object as visited. The walk keeps
// its own stack rather than recursing, so no chain of references in a file
// can exhaust the call stack.
void baseobject_visit(kxBaseObject *base_object, void *) {
    if (!baseobject_check(base_object)) return;
    if (base_object->flags & (OBJECT_VISITED | OBJECT_BEING_VISITED)) return;
    ObjectStack stack{base_object};
    while (!stack.empty()) {
        kxBaseObject *object = stack.back();
        stack.pop_back();
        if (object->flags & (OBJECT_VISITED | OBJECT_BEING_VISITED)) continue;
        object->flags |= OBJECT_VISITED;
        object->object_class->hooks->for_each_reference(object, &push_unvisited, &stack);
    }
}

static kx_bool16 has_flag(const kxBaseObject *base_object, uint16_t flag) {
    if (!baseobject_check(base_object)) return FALSO;
    return (base_object->flags & flag) != 0 ? CIERTO : FALSO;
}

static void set_flag(kxBaseObject *base_object, uint16_t flag, bool on) {
    if (!baseobject_check(base_object)) return;
    if (on)
        base_object->flags |= flag;
    else
        base_object->flags &= static_cast<uint16_t>(~flag);
}

kx_bool16 baseobject_has_been_visited(const kxBaseObject *o) { return has_flag(o, OBJECT_VISITED); }
void baseobject_mark_as_visited(kxBaseObject *o) { set_flag(o, OBJECT_VISITED, true); }
void baseobject_clear_visited_flag(kxBaseObject *o) { set_flag(o, OBJECT_VISITED, false); }
kx_bool16 baseobject_is_being_visited(const kxBaseObject *o) { return has_flag(o, OBJECT_BEING_VISITED); }
void baseobject_mark_as_being_visited(kxBaseObject *o) { set_flag(o, OBJECT_BEING_VISITED, true); }
void baseobject_clear_being_visited_flag(kxBaseObject *o) { set_flag(o, OBJECT_BEING_VISITED, false); }

void baseobject_renew_object_id(kxBaseObject *base_object, uint32_t *object_id_counter) {
    if (!baseobject_check(base_object)) return;
    kx_assert_not_null(object_id_counter);
    if (object_id_counter != nullptr) base_object->object_id = (*object_id_counter)++;
}

void baseobject_mark_as_moved(kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return;
    kx_assert_text((base_object->flags & OBJECT_MOVED) == 0,
                   "base_object->has_been_moved_to_other_model == FALSO");
    base_object->flags |= OBJECT_MOVED;
}

void baseobject_clear_moved(kxBaseObject *o) { set_flag(o, OBJECT_MOVED, false); }
kx_bool16 baseobject_has_been_moved(const kxBaseObject *o) { return has_flag(o, OBJECT_MOVED); }

namespace {

struct MoveStep {
    kxBaseObject *object;
    bool references_pushed;
};
using MoveStack = std::vector<MoveStep, TrackedAllocator<MoveStep>>;

void push_unmoved(kxBaseObject **reference, void *context) {
    if (((*reference)->flags & OBJECT_MOVED) == 0) static_cast<MoveStack *>(context)->push_back({*reference, false});
}

}  // namespace

// Iterative, like the visit.
void baseobject_move_reachable(kxBaseObject *base_object, MoveInstanceFn move, void *context) {
    if (!baseobject_check(base_object)) return;
    if (base_object->flags & OBJECT_MOVED) return;
    MoveStack stack{{base_object, false}};
    while (!stack.empty()) {
        MoveStep step = stack.back();
        stack.pop_back();
        kxBaseObject *object = step.object;
        if (step.references_pushed) {
            move(object, context);
            continue;
        }
        if (object->flags & OBJECT_MOVED) continue;
        object->flags |= OBJECT_MOVED;
        stack.push_back({object, true});
        object->object_class->hooks->for_each_reference(object, &push_unmoved, &stack);
    }
}

namespace {

void release_reference(kxBaseObject **reference, void *) { baseobject_release(reference); }

}  // namespace

// Each instance drops its references, then the list's hold on it. The walk
// goes from the last instance to the first: files mostly refer back to
// earlier lines, so by its turn an instance is mostly held by the list
// alone, and freeing it drops its references in the same walk over its
// slots.
void baseobject_release_all(PtrArray **objects) {
    for (uint32_t i = ptrarray_count(*objects); i-- > 0;) {
        kxBaseObject **instance = reinterpret_cast<kxBaseObject **>(&(*objects)->items[i]);
        if (!baseobject_check(*instance)) continue;
        if ((*instance)->retain_count > 1)
            (*instance)->object_class->hooks->for_each_reference(*instance, &release_reference, nullptr);
        baseobject_release(instance);
    }
    ptrarray_destroy(objects, nullptr);
}

char16_t *baseobject_predefined_type_string(const kxBaseObject *base_object) {
    if (!baseobject_check(base_object)) return nullptr;
    const ObjectHooks *hooks = base_object->object_class->hooks;
    kx_assert_text(hooks->predefined_type_string != nullptr,
                   "(base_object->func_predefined_type_string) != NULL");
    return hooks->predefined_type_string != nullptr ? hooks->predefined_type_string(base_object) : nullptr;
}

}  // namespace kx

using namespace kx;

extern "C" {

KX_API uint32_t kxBaseObject_dontuse_object_output_file_id(const kxBaseObject *base_object) {
    if (base_object == nullptr) return ULONG_MAX32;
    if (!baseobject_check(base_object)) return ULONG_MAX32;
    kx_assert(base_object->output_file_id != ULONG_MAX32);
    return base_object->output_file_id;
}

KX_API kxBool kxBaseObject_dontuse_is_object_of_class(const kxBaseObject *base_object, const kxClass_t *klass) {
    return baseobject_is_of_class(base_object, klass);
}

KX_API kxBool kxBaseObject_dontuse_is_object_kind_of(const kxBaseObject *base_object, const kxClass_t *klass) {
    return baseobject_is_kind_of(base_object, klass);
}

KX_API kxBool kxBaseObject_dontuse_has_been_visited(const kxBaseObject *o) { return baseobject_has_been_visited(o); }
KX_API void kxBaseObject_dontuse_mark_as_visited(kxBaseObject *o) { baseobject_mark_as_visited(o); }
KX_API void kxBaseObject_dontuse_clear_visited_flag(kxBaseObject *o) { baseobject_clear_visited_flag(o); }
KX_API kxBool kxBaseObject_dontuse_is_being_visited(const kxBaseObject *o) { return baseobject_is_being_visited(o); }
KX_API void kxBaseObject_dontuse_mark_as_being_visited(kxBaseObject *o) { baseobject_mark_as_being_visited(o); }
KX_API void kxBaseObject_dontuse_clear_being_visited_flag(kxBaseObject *o) {
    baseobject_clear_being_visited_flag(o);
}

KX_API const kxWChar *kxBaseObject_dontuse_get_ifc_class_name(const kxBaseObject *base_object) {
    const kxClass_t *klass = baseobject_class(base_object);
    return klass != nullptr ? klass->ifc_name : nullptr;
}

KX_API kxWChar *kxBaseObject_dontuse_predefined_type_string(const kxBaseObject *base_object) {
    return baseobject_predefined_type_string(base_object);
}

}  // extern "C"
