// Test helpers that reach into entity records through the class tables:
// find an attribute by name, read or write its slot, set references the way
// the generated setters do, find a concrete class of a release; and what the
// writer prints, caught in memory.
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

// Whether instances of the class can be made in the release: a concrete
// entity there.
inline bool is_concrete(const kxClass_t *klass, uint32_t release) {
    return klass != nullptr && klass->is_entity && kx::class_release(klass, release) != nullptr &&
           !kx::class_is_abstract(klass, static_cast<kxIfcVersion_t>(release));
}

// The class itself when it is concrete in the release, else its first
// concrete subtype there; NULL when there is none.
inline const kxClass_t *concrete_kind_of(const kxClass_t *klass, uint32_t release) {
    if (klass == nullptr || is_concrete(klass, release)) return klass;
    for (uint32_t id = 0; id < kx::g_num_classes; id++) {
        if (!is_concrete(kx::g_classes[id], release)) continue;
        const kx::ClassRelease *data = kx::class_release(kx::g_classes[id], release);
        for (uint32_t i = 0; i < data->num_ancestors; i++)
            if (data->ancestors[i] == klass->unique_class_id) return kx::g_classes[id];
    }
    return nullptr;
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
