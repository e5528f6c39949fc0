// Class descriptors and the constant schema tables they point to.
//
// Every entity and select type has one constant kxClass_t. Entity records
// are described by tables rather than code: a record is the base object
// followed by attribute slots, and per release a class lists its attributes
// in read/write order with their byte offsets. Small generic engines
// (entity.cpp, select.cpp, aggregate.cpp) create, free, read, write and
// visit any record from these tables.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"
#include "support/types.h"

struct kxBaseObject;
struct kxIfcModelMngr_t;
struct kxParseParList;
struct kxIfcWriteData;
struct kxArrayST;

namespace kx {

constexpr uint32_t KXCLASS_MAX_IFC_VERSIONS = 20;
constexpr uint32_t NUM_RELEASES = 2;
constexpr uint32_t NO_INDEX = 0xFFFFFFFFu;

// How a slot (or an aggregate element, or a select member) stores its value.
enum SlotKind : uint8_t {
    SLOT_STRING,     // owned WideString, NULL when unset
    SLOT_REAL,       // double, undefined = largest finite double
    SLOT_INTEGER,    // int32, undefined = 2147483647
    SLOT_BOOLEAN,    // int32, undefined = -1
    SLOT_LOGICAL,    // int32, undefined = -2
    SLOT_BINARY,     // kxBinary, undefined = {NULL, 0}
    SLOT_ENUM,       // int32 member number, undefined = 0
    SLOT_ENTITY,     // retained instance, NULL when unset
    SLOT_SELECT,     // retained select object, NULL when unset
    SLOT_AGGREGATE,  // owned aggregate, NULL when unset
};

// Release bits.
constexpr uint8_t IN_IFC2X3 = 1;
constexpr uint8_t IN_IFC4 = 2;

// One attribute slot, shared by every class whose record holds it.
struct SlotInfo {
    uint16_t offset;        // byte offset in a record of the declaring entity
    uint8_t kind;           // SlotKind
    uint8_t releases;       // release bits of the attribute this slot serves
    uint32_t type_ref;      // enum index, class id or aggregate index by kind
    uint32_t declarer;      // class id of the declaring entity
    uint32_t declarer_end;  // the declarer's subtypes on the primary tree end here
    uint32_t value_type;    // the defined type of a simple value (IfcLengthMeasure...), or NO_INDEX
    const char16_t *name;   // "RelatingObject"
    const char16_t *qualified_name;  // "kxIfcRelDecomposes.RelatingObject"
};

// One attribute of a class in one release, in read/write order.
struct AttrRef {
    uint16_t slot;          // index into the slot table
    uint16_t offset;        // byte offset in a record of this class
    uint8_t optional;
    uint8_t derived;        // redeclared as derived for this class: written "*"
    uint16_t reserved;
};

// One slot of a class's record (both releases), for init, free and visit.
struct RecordSlot {
    uint16_t offset;
    uint8_t kind;
    uint8_t reserved;
    uint32_t type_ref;
};

// A supertype of the other release that is not on the class's primary
// chain of supertypes (supertype chains differ between releases): where the
// record holds its attributes relative to that supertype's own record.
struct Relocation {
    uint32_t declarer;      // class id of the supertype
    int32_t shift;          // bytes to add to the slot's own offset
};

// What a class is in one release.
struct ClassRelease {
    uint32_t version;
    uint32_t num_ancestors;
    const uint32_t *ancestors;          // class ids, root first
    const AttrRef *attrs;
    uint32_t num_attrs;
    uint32_t num_derived;
    const char16_t *const *derived_names;  // "kxIfcActor.TheActor" style
    int32_t predefined_type_attr;        // index in attrs, or -1
    uint32_t reserved;
};

// An enumeration: member 0 is "undefined"; members follow from 1.
struct EnumInfo {
    const char16_t *name;               // "IfcWallTypeEnum"
    const char16_t *type_name;          // "kxIfcWallTypeEnum"
    const char *unit_label;             // "kxifcwalltypeenum (KXIFCMODEL.DLL)"
    uint32_t num_values;                // members + 1
    const char16_t *const *names;       // "UNDEFINED", "STANDARD" ...
    const char16_t *const *literals;    // ".KX_UNDEFINED.", ".STANDARD." ...
    const uint8_t *releases;            // release bits per value (0 for value 0)
};

// A defined type (TYPE x = ...): its storage and its typed-value name.
struct DefinedTypeInfo {
    const char16_t *name;               // "IfcLengthMeasure"
    const char16_t *upper_name;         // "IFCLENGTHMEASURE"
    uint8_t kind;                       // SlotKind of a value
    uint8_t releases;
    uint8_t unit_kind;                  // UnitKind: which unit a measure's values are in
    uint8_t unit_type;                  // its IfcUnitEnum or IfcDerivedUnitEnum member
    uint32_t type_ref;                  // aggregate index for aggregate types
};

// The kind of unit a measure type's values are expressed in.
enum UnitKind : uint8_t {
    UNIT_NONE = 0,       // not a measure with a unit (counts, ratios, text...)
    UNIT_NAMED = 1,      // an IfcUnitEnum unit type
    UNIT_DERIVED = 2,    // an IfcDerivedUnitEnum unit type
    UNIT_MONETARY = 3,   // the currency of the model
};

// An aggregate type: its container and what its elements are.
struct AggregateInfo {
    const char16_t *type_name;          // "kxSetIfcObjectDefinition"
    const char16_t *keyword;            // "SetIfcObjectDefinition"
    const char16_t *description;        // "Collection of IfcObjectDefinition"
    uint8_t container;                  // 0 list, 1 set, 2 array
    uint8_t element_kind;               // SlotKind
    uint16_t reserved;
    uint32_t element_ref;               // class id, enum index, inner aggregate index, defined type index
};

// A member of a select type, numbered from 1 in table order.
struct SelectMember {
    uint8_t kind;                       // SLOT_ENTITY for entities, else the value's storage
    uint8_t releases;
    uint16_t reserved;
    uint32_t type_ref;                  // class id (entities) or defined type index
};

struct SelectInfo {
    const SelectMember *members;
    uint32_t num_members;
};

// Called with the address of every slot or aggregate cell of an instance
// that holds another instance (traversal, moving, teardown).
using ReferenceFn = void (*)(kxBaseObject **reference, void *context);

// Per-object operations, shared by all classes of one kind (entities or
// selects); the base object reaches them through its class.
struct ObjectHooks {
    void (*free_object)(kxBaseObject **instance);
    void (*write_object)(kxBaseObject *instance, kxIfcWriteData *output);
    kx_bool16 (*is_equal)(const kxBaseObject *a, const kxBaseObject *b);  // may be NULL
    // Every reference the instance holds in its release's attributes.
    void (*for_each_reference)(kxBaseObject *instance, ReferenceFn function, void *context);
    char16_t *(*predefined_type_string)(const kxBaseObject *instance);
};

}  // namespace kx

// The constant descriptor of one class.
struct kxClass_t {
    uint32_t unique_class_id;           // dense, 0..959
    const char16_t *ifc_name;           // "IfcWall"
    const char16_t *type_name;          // "kxIfcWall"
    kx_bool16 is_entity;
    kx_bool16 is_abstract[kx::KXCLASS_MAX_IFC_VERSIONS];
    kxBaseObject *(*func_new)(const kxClass_t *klass, kxIfcVersion_t version, uint32_t *object_id_counter,
                              kxIfcModelMngr_t *model_manager);
    void (*func_init_from_parse)(kxBaseObject *instance, kxParseParList *parameters);
    void (*func_process_inverse_relation)(kxBaseObject *candidate, const char16_t *attribute,
                                          const kxBaseObject *target, kxArrayST *result);
    const kx::ObjectHooks *hooks;
    const kx::ClassRelease *releases[kx::NUM_RELEASES];  // NULL where the class does not exist
    const kx::RecordSlot *record_slots;
    uint32_t num_record_slots;
    uint32_t record_size;
    uint32_t subtree_end;               // the class's subtypes have ids in (id, subtree_end)
    uint32_t num_relocations;
    const kx::Relocation *relocations;
    const kx::SelectInfo *select;       // select types only
    const char16_t *upper_name;         // "IFCWALL"
    const char *unit_label;             // "kxifcwall (KXIFCMODEL.DLL)"
};

namespace kx {

// The generated schema tables.
extern const kxClass_t *const g_classes[];          // by unique_class_id
extern const uint32_t g_num_classes;
extern const SlotInfo g_slots[];
extern const uint32_t g_num_slots;
extern const EnumInfo g_enums[];
extern const uint32_t g_num_enums;
extern const DefinedTypeInfo g_defined_types[];
extern const uint32_t g_num_defined_types;
extern const AggregateInfo g_aggregates[];
extern const uint32_t g_num_aggregates;
// Every type keyword of both releases, sorted without regard to case, with
// the class id of entity and select types (NO_INDEX for the others).
extern const char16_t *const g_keywords[];
extern const uint32_t g_keyword_class_ids[];
extern const uint32_t g_num_keywords;
// Class ids in the order of their type names compared without case.
extern const uint32_t g_class_list_order[];

// Descriptor operations.
uint32_t class_unique_id(const kxClass_t *klass);
kx_bool16 class_is_same(const kxClass_t *klass1, const kxClass_t *klass2);
kx_bool16 class_has_id(const kxClass_t *klass, uint32_t unique_class_id);
kx_bool16 class_is_abstract(const kxClass_t *klass, kxIfcVersion_t version);
const char16_t *class_ifc_name(const kxClass_t *klass);
kxBaseObject *class_new_instance(const kxClass_t *klass, kxIfcVersion_t version,
                                 uint32_t *object_id_counter, kxIfcModelMngr_t *model_manager);
void class_process_inverse_relation(const kxClass_t *klass, kxBaseObject *candidate,
                                    const char16_t *attribute, const kxBaseObject *target,
                                    kxArrayST *result);
void class_init_from_parse(const kxClass_t *klass, kxBaseObject *instance,
                           kxParseParList *parameters);
// The class's data for a release, or NULL where it does not exist.
inline const ClassRelease *class_release(const kxClass_t *klass, uint32_t version) {
    return version < NUM_RELEASES ? klass->releases[version] : nullptr;
}
// Whether instances of `candidate` are kind of `klass` in the release.
inline bool class_is_kind_of(const kxClass_t *candidate, const kxClass_t *klass, uint32_t version) {
    if (candidate == klass) return true;
    const ClassRelease *release = class_release(candidate, version);
    if (release == nullptr) return false;
    for (uint32_t i = 0; i < release->num_ancestors; i++)
        if (release->ancestors[i] == klass->unique_class_id) return true;
    return false;
}
// Byte offset of a slot in a record of the given class.
uint32_t class_slot_offset(const kxClass_t *klass, const SlotInfo &slot);

}  // namespace kx
