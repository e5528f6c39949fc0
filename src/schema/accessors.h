// The engine behind the generated attribute accessors. Every exported
// kx<Entity>_get_/set_/_has_value function is one call into these, naming
// the attribute's slot, the releases in which the accessor applies and the
// entity it belongs to (for reports). The fast path (right release, right
// class) is inline; everything else is out of line.
#pragma once

#include <cstdint>

#include "core/baseobject.h"
#include "core/class.h"
#include "core/coretypes.h"
#include "kxifc_defs.h"

struct kxAggregate;

namespace kx {

// The address of the slot in the instance, or NULL when the accessor does
// not apply: an instance of the other release (silently), or a NULL, freed or
// unrelated instance, or an unknown release (each reported).
char *attr_address_slow(const kxBaseObject *instance, uint32_t slot_index, uint8_t releases, uint32_t entity_id);

inline char *attr_address(const kxBaseObject *instance, uint32_t slot_index, uint8_t releases, uint32_t entity_id) {
    const SlotInfo &slot = g_slots[slot_index];
    if (instance != nullptr && instance->validity_mask == i_VALIDITY_MASK_VALUE && instance->ifc_version < 2 &&
        ((releases >> instance->ifc_version) & 1) != 0 &&
        instance->object_class->unique_class_id - slot.declarer < slot.declarer_end - slot.declarer)
        return const_cast<char *>(reinterpret_cast<const char *>(instance)) + slot.offset;
    return attr_address_slow(instance, slot_index, releases, entity_id);
}

template <typename T>
inline T attr_get(const kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, T undefined) {
    const char *address = attr_address(instance, slot, releases, entity_id);
    return address != nullptr ? *reinterpret_cast<const T *>(address) : undefined;
}

template <typename T>
inline void attr_set_plain(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, T value) {
    char *address = attr_address(instance, slot, releases, entity_id);
    if (address != nullptr) *reinterpret_cast<T *>(address) = value;
}

// has-value tests by storage kind.
kxBool attr_has_value(const kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id);

// Getters (borrowed values) and setters with their ownership rules.
inline const char16_t *attr_get_string(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<const char16_t *>(i, s, r, e, nullptr);
}
inline double attr_get_real(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<double>(i, s, r, e, kRealUndefined);
}
inline int32_t attr_get_integer(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<int32_t>(i, s, r, e, kIntegerUndefined);
}
inline int32_t attr_get_boolean(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<int32_t>(i, s, r, e, kBooleanUndefined);
}
inline int32_t attr_get_logical(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<int32_t>(i, s, r, e, kLogicalUndefined);
}
inline int32_t attr_get_enum(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<int32_t>(i, s, r, e, 0);
}
inline kxBinary attr_get_binary(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<kxBinary>(i, s, r, e, kxBinary{nullptr, 0});
}
inline kxBaseObject *attr_get_object(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<kxBaseObject *>(i, s, r, e, nullptr);
}
inline kxAggregate *attr_get_aggregate(const kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e) {
    return attr_get<kxAggregate *>(i, s, r, e, nullptr);
}

inline void attr_set_real(kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e, double v) { attr_set_plain(i, s, r, e, v); }
inline void attr_set_integer(kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e, int32_t v) { attr_set_plain(i, s, r, e, v); }
inline void attr_set_boolean(kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e, int32_t v) { attr_set_plain(i, s, r, e, v); }
inline void attr_set_logical(kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e, int32_t v) { attr_set_plain(i, s, r, e, v); }
inline void attr_set_enum(kxBaseObject *i, uint32_t s, uint8_t r, uint32_t e, int32_t v) { attr_set_plain(i, s, r, e, v); }
// A copy of the text replaces the one held (NULL clears).
void attr_set_string(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, const char16_t *value);
// A copy of the bits replaces those held.
void attr_set_binary(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, kxBinary value);
// The new instance is retained before the old one is released.
void attr_set_object(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, kxBaseObject *value);
// The instance takes the aggregate over; the one held before is freed.
void attr_set_aggregate(kxBaseObject *instance, uint32_t slot, uint8_t releases, uint32_t entity_id, kxAggregate *value);

// Type tests of the generated kx<Entity>_dontuse_is_typeof / _cast_to.
kxBool entity_is_typeof(const kxBaseObject *instance, const kxClass_t *klass, uint32_t entity_id);
kxBaseObject *entity_cast_to(kxBaseObject *instance, const kxClass_t *klass, uint32_t entity_id);

// Inverse relations: a new array of the instances of the relating class
// whose attribute refers to the instance, for the instance's release (an
// empty array where the release has no such inverse: relating id NO_INDEX).
kxArrayST *entity_inverse(const kxBaseObject *instance, uint32_t entity_id, uint32_t relating_2x3,
                          const char16_t *attribute_2x3, uint32_t relating_4, const char16_t *attribute_4);

// Select values.
uint32_t select_get_type(const kxBaseObject *select, uint32_t select_id);
kxBaseObject *select_get_object(const kxBaseObject *select, uint32_t select_id);
const char16_t *select_get_string(const kxBaseObject *select, uint32_t select_id);
double select_get_real(const kxBaseObject *select, uint32_t select_id);
int32_t select_get_integer(const kxBaseObject *select, uint32_t select_id);
kxBinary select_get_binary(const kxBaseObject *select, uint32_t select_id);
kxAggregate *select_get_aggregate(const kxBaseObject *select, uint32_t select_id);
// Instance members: retain the new one, clear another member held, release
// the instance held when the same member is held, store.
void select_set_object(kxBaseObject *select, uint32_t select_id, uint32_t code, kxBaseObject *value);
// Owned members (text, bits, aggregates): clear another member held, free the
// own previous value, store a copy (the aggregate itself).
void select_set_string(kxBaseObject *select, uint32_t select_id, uint32_t code, const char16_t *value);
void select_set_binary(kxBaseObject *select, uint32_t select_id, uint32_t code, kxBinary value);
void select_set_aggregate(kxBaseObject *select, uint32_t select_id, uint32_t code, kxAggregate *value);
// Plain members (numbers, booleans, enumerations): store the value and the
// code, leaving whatever was held before as it is.
void select_set_real(kxBaseObject *select, uint32_t select_id, uint32_t code, double value);
void select_set_integer(kxBaseObject *select, uint32_t select_id, uint32_t code, int32_t value);

}  // namespace kx
