// Test helpers that reach into entity records through the class tables:
// find an attribute by name, read or write its slot, set references the way
// the generated setters do; and what the writer prints, caught in memory.
// The text helpers (narrow, wide) come with test_support.h.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/baseobject.h"
#include "core/class.h"
#include "schema/engines.h"
#include "support/writedata.h"
#include "test_support.h"

namespace kxtest {

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

// What write(output) prints through a writer into memory.
template <typename Write>
std::string written_text(Write write) {
    char *buffer = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&buffer, &size);
    kxIfcWriteData *output = kxIfcWriteData_new(stream);
    write(output);
    kxIfcWriteData_free(&output);
    std::fclose(stream);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
}

// The instance line the entity writer prints; the written mark is cleared
// again, so the instance can be written once more.
inline std::string written_line(kxBaseObject *instance) {
    const std::string text =
        written_text([instance](kxIfcWriteData *output) { kx::entity_write_object(instance, output); });
    kx::baseobject_clear_written_flag(instance);
    return text;
}

}  // namespace kxtest
