// The base object: the head of every instance (entities and select values).
// A pointer to an instance is a pointer to its base object. The class-level
// data (ancestors, attribute tables, hooks) lives in the constant class
// descriptor, so the head stays small: 40 bytes.
#pragma once

#include <cstdint>

#include "core/class.h"
#include "support/ptrarray.h"
#include "support/types.h"

struct kxIfcModelMngr_t;
struct kxIfcWriteData;

constexpr uint32_t i_VALIDITY_MASK_VALUE = 123456789u;
constexpr uint32_t i_VALIDITY_MASK_FREED = 111111111u;

struct kxBaseObject {
    uint32_t validity_mask;              // i_VALIDITY_MASK_VALUE while alive
    uint32_t object_id;                  // unique number from the model's counter
    const kxClass_t *object_class;       // most derived class; NULL until set up
    kxIfcModelMngr_t *model_manager;
    uint32_t retain_count;
    uint32_t output_file_id;             // #n in a file; ULONG_MAX32 when none
    uint16_t flags;                      // OBJECT_* bits below
    uint16_t ifc_version;                // release the object was created for
    uint32_t reserved;
};

namespace kx {

constexpr uint16_t OBJECT_WRITTEN = 1;         // record started in the output
constexpr uint16_t OBJECT_BEING_VISITED = 2;
constexpr uint16_t OBJECT_VISITED = 4;
constexpr uint16_t OBJECT_MOVED = 8;           // moved to another model
constexpr uint16_t OBJECT_CLASS_SET = 16;      // class data set (once)

// Set-up and lifetime.
void baseobject_init(kxBaseObject *base_object, kxIfcVersion_t version, uint32_t *object_id_counter,
                     kxIfcModelMngr_t *model_manager);
void baseobject_set_class_data(kxBaseObject *base_object, const kxClass_t *klass);
void baseobject_retain(kxBaseObject *base_object);
void baseobject_release(kxBaseObject **base_object);
kx_bool16 baseobject_is_last_reference(const kxBaseObject *base_object);
void baseobject_destroy(kxBaseObject *base_object);

// Checks every operation starts with; reports and returns false when the
// object is NULL or not alive.
bool baseobject_check(const kxBaseObject *base_object);

// Class and kind.
const kxClass_t *baseobject_class(const kxBaseObject *base_object);
const ClassRelease *baseobject_class_release(const kxBaseObject *base_object);
kx_bool16 baseobject_is_of_class(const kxBaseObject *base_object, const kxClass_t *klass);
kx_bool16 baseobject_is_kind_of(const kxBaseObject *base_object, const kxClass_t *klass);
kxBaseObject *baseobject_cast(kxBaseObject *base_object, const kxClass_t *klass);
kxIfcVersion_t baseobject_version(const kxBaseObject *base_object);
kxIfcModelMngr_t *baseobject_model_manager(const kxBaseObject *base_object);
void baseobject_set_model_manager(kxBaseObject *base_object, kxIfcModelMngr_t *model_manager);
const uint32_t *baseobject_ancestor_ids(const kxBaseObject *base_object, uint32_t *size_self_derived_attr_ids);
kx_bool16 baseobject_is_equal(const kxBaseObject *a, const kxBaseObject *b);
kx_bool16 baseobject_is_same(const kxBaseObject *a, const kxBaseObject *b);

// Output identifiers and writing.
uint32_t baseobject_output_file_id(const kxBaseObject *base_object);
void baseobject_set_output_file_id(kxBaseObject *base_object, uint32_t output_file_id);
int baseobject_compare_output_file_id(const kxBaseObject *a, const kxBaseObject *b);
int baseobject_compare_with_output_file_id(const kxBaseObject *base_object, const uint32_t *output_file_id);
kx_bool16 baseobject_has_been_written(const kxBaseObject *base_object);
void baseobject_clear_written_flag(kxBaseObject *base_object);
void baseobject_write_object(kxBaseObject *base_object, kxIfcWriteData *write_data);
void baseobject_begin_record(kxBaseObject *base_object, kxIfcWriteData *write_data);
void baseobject_write_reference(const kxBaseObject *base_object, kxIfcWriteData *write_data);
void baseobject_init_from_parse(kxBaseObject *base_object, kxParseParList *parameters);

// Derived attributes: whether the qualified name ("kxIfcRoot.OwnerHistory")
// is written as derived for this object.
kx_bool16 baseobject_is_derived_attribute(const kxBaseObject *base_object, const char16_t *qualified_name);

// Traversal.
void baseobject_visit(kxBaseObject *base_object, void *visitor_argument);
kx_bool16 baseobject_has_been_visited(const kxBaseObject *base_object);
void baseobject_mark_as_visited(kxBaseObject *base_object);
void baseobject_clear_visited_flag(kxBaseObject *base_object);
kx_bool16 baseobject_is_being_visited(const kxBaseObject *base_object);
void baseobject_mark_as_being_visited(kxBaseObject *base_object);
void baseobject_clear_being_visited_flag(kxBaseObject *base_object);

// Moving to another model.
void baseobject_renew_object_id(kxBaseObject *base_object, uint32_t *object_id_counter);
void baseobject_mark_as_moved(kxBaseObject *base_object);
void baseobject_clear_moved(kxBaseObject *base_object);
kx_bool16 baseobject_has_been_moved(const kxBaseObject *base_object);
// Marks the object and every instance it reaches that is not moved yet as
// moved, and hands each to move (with context), referenced instances before
// the ones referring to them; the model moves them.
using MoveInstanceFn = void (*)(kxBaseObject *instance, void *context);
void baseobject_move_reachable(kxBaseObject *base_object, MoveInstanceFn move, void *context);

// Lets go of every instance of a list that holds one reference to each (a
// model's, or a failed read's) and destroys the list. In list order, each
// instance drops its references and then the list's: an instance is freed
// only once it has dropped its own, so freeing never recurses along chains
// of references. An instance held elsewhere survives.
void baseobject_release_all(PtrArray **objects);

char16_t *baseobject_predefined_type_string(const kxBaseObject *base_object);

}  // namespace kx
