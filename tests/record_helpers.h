// Test helpers that reach into entity records through the class tables:
// find an attribute by name, read or write its slot, set references the way
// the generated setters do.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/engines.h"

namespace kxtest {

// The text as narrow ASCII (for messages and comparisons).
inline std::string narrow(const kxWChar *text) {
    std::string result;
    for (; text != nullptr && *text != 0; text++) result.push_back(static_cast<char>(*text));
    return result;
}

// The attribute of the instance's class in its release with that name.
inline const kx::AttrRef *find_attribute(const kxBaseObject *instance, const std::u16string &name) {
    const kx::ClassRelease *release = kx::baseobject_class_release(instance);
    if (release == nullptr) return nullptr;
    for (uint32_t i = 0; i < release->num_attrs; i++)
        if (name == kx::g_slots[release->attrs[i].slot].name) return &release->attrs[i];
    return nullptr;
}

template <typename T>
T &slot_at(kxBaseObject *instance, const kx::AttrRef &attr) {
    return *reinterpret_cast<T *>(reinterpret_cast<char *>(instance) + attr.offset);
}

// Sets a single-reference attribute the way a setter does: the new target
// is retained before the old one is released.
inline void set_reference(kxBaseObject *owner, const std::u16string &name, kxBaseObject *target) {
    const kx::AttrRef *attr = find_attribute(owner, name);
    ASSERT_NE(attr, nullptr);
    ASSERT_EQ(kx::g_slots[attr->slot].kind, kx::SLOT_ENTITY);
    kx::baseobject_retain(target);
    kxBaseObject *&slot = slot_at<kxBaseObject *>(owner, *attr);
    kx::baseobject_release(&slot);
    slot = target;
}

// Appends an instance to an aggregate attribute (created when unset).
inline void append_reference(kxBaseObject *owner, const std::u16string &name, kxBaseObject *target) {
    const kx::AttrRef *attr = find_attribute(owner, name);
    ASSERT_NE(attr, nullptr);
    const kx::SlotInfo &slot = kx::g_slots[attr->slot];
    ASSERT_EQ(slot.kind, kx::SLOT_AGGREGATE);
    kxAggregate *&aggregate = slot_at<kxAggregate *>(owner, *attr);
    if (aggregate == nullptr) aggregate = kx::aggregate_new();
    kx::aggregate_append_object(aggregate, target, slot.type_ref);
}

}  // namespace kxtest
