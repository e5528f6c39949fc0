#define KX_UNIT "kxrecordio"
// Reading records from parser parameters and writing them as instance
// lines, for entities and select values alike, driven by the schema tables:
// an entity's attributes are read and written in its release's order, each
// by the storage kind of its slot.
#include <cstring>

#include "core/baseobject.h"
#include "core/coretypes.h"
#include "core/coretypes_io.h"
#include "kxifc_coretypes.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "schema/select.h"
#include "support/parseparlist.h"
#include "support/writedata.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace kx {
namespace {

// ---------------------------------------------------------------------------
// Writing

bool is_simple_kind(uint8_t kind) { return kind <= SLOT_ENUM; }

void write_reference(kxIfcWriteData *output, const kxBaseObject *instance) {
    kx_assert(instance->output_file_id != ULONG_MAX32);
    kxIfcWriteData_write_reference(output, instance->output_file_id);
}

void write_binary(kxIfcWriteData *output, const kxBinary &value) { coretype_write_binary(output, value); }

void write_aggregate(kxIfcWriteData *output, const kxAggregate *aggregate, uint32_t aggregate_index);

// Writes a select value: an instance as a reference, any other member as a
// typed value NAME(value).
void write_select(kxIfcWriteData *output, const kxBaseObject *instance) {
    const kxSelectObject *select = reinterpret_cast<const kxSelectObject *>(instance);
    const SelectInfo *info = instance->object_class->select;
    if (select->type == 0 || select->type > info->num_members) {
        kxIfcWriteData_write_unset(output);
        return;
    }
    const SelectMember &member = info->members[select->type - 1];
    const kxSelectValue &value = select->value;
    if (member.kind == SLOT_ENTITY) {
        if (value.object != nullptr)
            write_reference(output, value.object);
        else
            kxIfcWriteData_write_unset(output);
        return;
    }
    // Type names are written in upper case; a defined type has its own.
    char16_t enum_name[128];
    const char16_t *type_name = nullptr;
    char16_t *long_enum_name = nullptr;
    if (member.kind == SLOT_ENUM) {
        const EnumInfo &info_enum = g_enums[member.type_ref];
        const uint32_t length = wstr_length(info_enum.name);
        char16_t *upper = enum_name;
        if (length < 128)
            std::memcpy(enum_name, info_enum.name, (length + 1) * sizeof(char16_t));
        else
            upper = long_enum_name = wstr_copy(info_enum.name);
        wstr_to_upper(upper);
        type_name = upper;
        kxIfcWriteData_begin_named_value(output, type_name);
        const char16_t *literal = enum_has_value(info_enum, value.integer) ? enum_to_literal(info_enum, value.integer) : nullptr;
        if (literal != nullptr)
            kxIfcWriteData_write_literal(output, literal);
        else
            kxIfcWriteData_write_unset(output);
    } else {
        const DefinedTypeInfo &defined = g_defined_types[member.type_ref];
        type_name = defined.upper_name;
        kxIfcWriteData_begin_named_value(output, type_name);
        switch (member.kind) {
        case SLOT_STRING: coretype_write_string(output, value.string); break;
        case SLOT_REAL: coretype_write_real(output, value.real); break;
        case SLOT_INTEGER: coretype_write_integer(output, value.integer); break;
        case SLOT_BOOLEAN: coretype_write_boolean(output, value.integer); break;
        case SLOT_LOGICAL: coretype_write_logical(output, value.integer); break;
        case SLOT_BINARY: write_binary(output, value.binary); break;
        case SLOT_AGGREGATE:
            if (value.aggregate != nullptr)
                write_aggregate(output, value.aggregate, defined.type_ref);
            else
                kxIfcWriteData_write_unset(output);
            break;
        default: kx_assert_unreachable(); break;
        }
    }
    kxIfcWriteData_end_typed_value(output, type_name);
    if (long_enum_name != nullptr) wstr_destroy(&long_enum_name);
}

void write_cell(kxIfcWriteData *output, const kxAggregateCell &cell, const AggregateInfo &info) {
    switch (info.element_kind) {
    case SLOT_STRING: coretype_write_string(output, cell.string); break;
    case SLOT_REAL: coretype_write_real(output, cell.real); break;
    case SLOT_INTEGER: coretype_write_integer(output, cell.integer); break;
    case SLOT_BOOLEAN: coretype_write_boolean(output, cell.integer); break;
    case SLOT_LOGICAL: coretype_write_logical(output, cell.integer); break;
    case SLOT_BINARY:
        if (cell.binary != nullptr) write_binary(output, *cell.binary);
        break;
    case SLOT_ENUM: {
        const EnumInfo &enum_info = g_enums[info.element_ref];
        if (enum_has_value(enum_info, cell.integer))
            kxIfcWriteData_write_literal(output, enum_to_literal(enum_info, cell.integer));
        else
            kxIfcWriteData_write_unset(output);
        break;
    }
    case SLOT_ENTITY:
        if (cell.object != nullptr)
            write_reference(output, cell.object);
        else
            kxIfcWriteData_write_unset(output);
        break;
    case SLOT_SELECT:
        if (cell.object != nullptr)
            write_select(output, cell.object);
        else
            kxIfcWriteData_write_unset(output);
        break;
    case SLOT_AGGREGATE:
        if (cell.aggregate != nullptr)
            write_aggregate(output, cell.aggregate, info.element_ref);
        else
            kxIfcWriteData_write_unset(output);
        break;
    default: kx_assert_unreachable(); break;
    }
}

void write_aggregate(kxIfcWriteData *output, const kxAggregate *aggregate, uint32_t aggregate_index) {
    const AggregateInfo &info = g_aggregates[aggregate_index];
    kxIfcWriteData_begin_parameters(output);
    for (uint32_t i = 0; i < aggregate->count; i++) write_cell(output, aggregate->items[i], info);
    kxIfcWriteData_end_list(output);
}

// Whether the slot holds a value; writes it when it does.
bool write_slot_value(kxIfcWriteData *output, kxBaseObject *instance, const AttrRef &attr, const SlotInfo &slot) {
    switch (slot.kind) {
    case SLOT_STRING: {
        const char16_t *text = record_slot<char16_t *>(instance, attr.offset);
        if (text == nullptr) return false;
        kxIfcWriteData_write_string(output, text);
        return true;
    }
    case SLOT_REAL: {
        const double value = record_slot<double>(instance, attr.offset);
        if (real_is_undefined(value)) return false;
        kxIfcWriteData_write_real(output, value);
        return true;
    }
    case SLOT_INTEGER: {
        const int32_t value = record_slot<int32_t>(instance, attr.offset);
        if (value == kIntegerUndefined) return false;
        kxIfcWriteData_write_integer(output, value);
        return true;
    }
    case SLOT_BOOLEAN: {
        const int32_t value = record_slot<int32_t>(instance, attr.offset);
        if (value == kBooleanUndefined) return false;
        coretype_write_boolean(output, value);
        return true;
    }
    case SLOT_LOGICAL: {
        const int32_t value = record_slot<int32_t>(instance, attr.offset);
        if (value == kLogicalUndefined) return false;
        coretype_write_logical(output, value);
        return true;
    }
    case SLOT_BINARY: {
        const kxBinary &value = record_slot<kxBinary>(instance, attr.offset);
        if (value.num_bits == 0) return false;
        write_binary(output, value);
        return true;
    }
    case SLOT_ENUM: {
        const EnumInfo &info = g_enums[slot.type_ref];
        const int32_t value = record_slot<int32_t>(instance, attr.offset);
        if (!enum_has_value(info, value)) return false;
        kxIfcWriteData_write_literal(output, enum_to_literal(info, value));
        return true;
    }
    case SLOT_ENTITY: {
        const kxBaseObject *referenced = record_slot<kxBaseObject *>(instance, attr.offset);
        if (referenced == nullptr) return false;
        write_reference(output, referenced);
        return true;
    }
    case SLOT_SELECT: {
        const kxBaseObject *select = record_slot<kxBaseObject *>(instance, attr.offset);
        if (select == nullptr || reinterpret_cast<const kxSelectObject *>(select)->type == 0) return false;
        write_select(output, select);
        return true;
    }
    case SLOT_AGGREGATE: {
        const kxAggregate *aggregate = record_slot<kxAggregate *>(instance, attr.offset);
        if (aggregate == nullptr) return false;
        write_aggregate(output, aggregate, slot.type_ref);
        return true;
    }
    default:
        kx_assert_unreachable();
        return false;
    }
}

// An unset attribute: "*" when redeclared as derived for this class or (in
// the fixed text form) when mandatory and of a simple type; "$" otherwise.
void write_empty(kxIfcWriteData *output, const AttrRef &attr, const SlotInfo &slot) {
    const bool fixed_form = !kxIfcWriteData_is_lossless(output);
    if (attr.derived || (fixed_form && !attr.optional && is_simple_kind(slot.kind)))
        kxIfcWriteData_write_derived(output);
    else
        kxIfcWriteData_write_unset(output);
}

}  // namespace

void entity_write_object(kxBaseObject *instance, kxIfcWriteData *output) {
    if (!baseobject_check(instance)) return;
    if (kxIfcWriteData_is_writing_nested(output)) {
        write_reference(output, instance);
        return;
    }
    const ClassRelease *release = baseobject_class_release(instance);
    if (release == nullptr) return;
    const kxClass_t *klass = instance->object_class;
    kxIfcWriteData_begin_instance(output, klass->upper_name, klass->unique_class_id, instance->output_file_id);
    for (uint32_t i = 0; i < release->num_attrs; i++) {
        const AttrRef &attr = release->attrs[i];
        const SlotInfo &slot = g_slots[attr.slot];
        if (!write_slot_value(output, instance, attr, slot)) write_empty(output, attr, slot);
    }
    kx_assert_text((instance->flags & OBJECT_WRITTEN) == 0, "base_object->has_been_written_to_output == FALSO");
    kxIfcWriteData_end_instance(output);
    instance->flags |= OBJECT_WRITTEN;
}

void select_write_object(kxBaseObject *instance, kxIfcWriteData *output) {
    if (!baseobject_check(instance)) return;
    write_select(output, instance);
}

// ---------------------------------------------------------------------------
// Reading

namespace {

// Skips the rest of a nested group whose begin was just consumed.
void skip_group(kxParseParList *list) {
    uint32_t depth = 1;
    kxParserParam *parameter = nullptr;
    while (depth > 0 && kxParseParList_next(list, &parameter)) {
        if (kxParserParam_is_nested_begin(parameter)) depth++;
        if (kxParserParam_is_nested_end(parameter)) depth--;
    }
}

// Skips one parameter: a value, or a whole group.
void skip_value(kxParseParList *list, kxParserParam *parameter) {
    if (kxParserParam_is_typed_name(parameter)) {
        kxParserParam *begin = nullptr;
        if (kxParseParList_next(list, &begin) && kxParserParam_is_nested_begin(begin)) skip_group(list);
    } else if (kxParserParam_is_nested_begin(parameter)) {
        skip_group(list);
    }
}

kxBaseObject *read_select(kxParseParList *list, kxParserParam *parameter, uint32_t select_class_id,
                          const char16_t *attribute_name);
bool read_aggregate(kxParseParList *list, kxParserParam *parameter, uint32_t aggregate_index,
                    const char16_t *attribute_name, kxAggregate **result);

// An instance reference of the declared class (or a subclass); a mismatch is
// reported and gives NULL. Unresolved references give NULL too (reported
// unless the list lets them pass).
kxBaseObject *read_reference(kxParseParList *list, kxParserParam *parameter, uint32_t class_id,
                             const char16_t *attribute_name) {
    const kxClass_t *klass = g_classes[class_id];
    if (!kxParserParam_is_reference(parameter)) {
        kxParseParList_mark_error(list, parameter, klass->type_name, attribute_name);
        skip_value(list, parameter);
        return nullptr;
    }
    kxBaseObject *instance = kxParserParam_get_instance(parameter);
    if (instance == nullptr || !baseobject_is_kind_of(instance, klass)) {
        kxParseParList_mark_error(list, parameter, klass->type_name, attribute_name);
        return nullptr;
    }
    baseobject_retain(instance);
    return instance;
}

int32_t read_enum(kxParseParList *list, kxParserParam *parameter, uint32_t enum_index, const char16_t *attribute_name) {
    const EnumInfo &info = g_enums[enum_index];
    if (!kxParserParam_is_literal(parameter)) {
        kxParseParList_mark_error(list, parameter, info.type_name, attribute_name);
        skip_value(list, parameter);
        return 0;
    }
    const int32_t value = enum_from_literal(info, kxParserParam_get_literal(parameter));
    if (value == 0 || !enum_is_member_of_release(info, value, kxParseParList_version(list)))
        kxParseParList_mark_error(list, parameter, info.type_name, attribute_name);
    return value;
}

// Reads one aggregate element into a cell; false when the element was
// rejected (and reported).
bool read_cell(kxParseParList *list, kxParserParam *parameter, const AggregateInfo &info,
               const char16_t *attribute_name, kxAggregateCell *cell) {
    std::memset(cell, 0, sizeof(*cell));
    switch (info.element_kind) {
    case SLOT_STRING: return coretype_read_string(list, parameter, attribute_name, &cell->string);
    case SLOT_REAL: return coretype_read_real(list, parameter, attribute_name, &cell->real);
    case SLOT_INTEGER: return coretype_read_integer(list, parameter, attribute_name, &cell->integer);
    case SLOT_BOOLEAN: return coretype_read_boolean(list, parameter, attribute_name, &cell->integer);
    case SLOT_LOGICAL: return coretype_read_logical(list, parameter, attribute_name, &cell->integer);
    case SLOT_BINARY: {
        kxBinary value{nullptr, 0};
        if (!coretype_read_binary(list, parameter, attribute_name, &value)) return false;
        cell->binary = mem_new_zeroed<kxBinary>();
        *cell->binary = value;
        return true;
    }
    case SLOT_ENUM:
        cell->integer = read_enum(list, parameter, info.element_ref, attribute_name);
        return cell->integer != 0;
    case SLOT_ENTITY:
        cell->object = read_reference(list, parameter, info.element_ref, attribute_name);
        return cell->object != nullptr;
    case SLOT_SELECT:
        cell->object = read_select(list, parameter, info.element_ref, attribute_name);
        return cell->object != nullptr;
    case SLOT_AGGREGATE:
        return read_aggregate(list, parameter, info.element_ref, attribute_name, &cell->aggregate);
    default:
        kx_assert_unreachable();
        return false;
    }
}

// Reads a list "( ... )" whose begin is `parameter` into a new aggregate.
bool read_aggregate(kxParseParList *list, kxParserParam *parameter, uint32_t aggregate_index,
                    const char16_t *attribute_name, kxAggregate **result) {
    const AggregateInfo &info = g_aggregates[aggregate_index];
    if (!kxParserParam_is_nested_begin(parameter)) {
        kxParseParList_mark_error(list, parameter, info.type_name, attribute_name);
        skip_value(list, parameter);
        return false;
    }
    kxAggregate *aggregate = aggregate_new();
    kxParserParam *element = nullptr;
    while (kxParseParList_next(list, &element) && !kxParserParam_is_nested_end(element)) {
        kxAggregateCell cell;
        if (read_cell(list, element, info, attribute_name, &cell)) *aggregate_append_cell(aggregate) = cell;
    }
    *result = aggregate;
    return true;
}

// The member of a select that a parameter fits: an instance member the
// referenced instance is kind of, or the value member the typed name names.
// Whether a schema name, compared in upper case, equals an upper-case name.
bool same_upper_name(const char16_t *name, const char16_t *upper_name) {
    for (; *name != 0; name++, upper_name++) {
        const char16_t c = *name >= u'a' && *name <= u'z' ? static_cast<char16_t>(*name - 32) : *name;
        if (c != *upper_name) return false;
    }
    return *upper_name == 0;
}

uint32_t select_member_for(const SelectInfo &info, kxParserParam *parameter, uint32_t version) {
    const uint8_t release_bit = static_cast<uint8_t>(1u << version);
    // Typed names reach the list in upper case.
    const char16_t *typed_name = kxParserParam_is_typed_name(parameter) ? kxParserParam_get_typed_name(parameter) : nullptr;
    for (uint32_t code = 1; code <= info.num_members; code++) {
        const SelectMember &member = info.members[code - 1];
        if ((member.releases & release_bit) == 0) continue;
        if (kxParserParam_is_reference(parameter)) {
            kxBaseObject *instance = kxParserParam_get_instance(parameter);
            if (member.kind == SLOT_ENTITY && instance != nullptr &&
                baseobject_is_kind_of(instance, g_classes[member.type_ref]))
                return code;
        } else if (typed_name != nullptr && member.kind != SLOT_ENTITY) {
            const char16_t *name =
                member.kind == SLOT_ENUM ? g_enums[member.type_ref].name : g_defined_types[member.type_ref].upper_name;
            if (same_upper_name(name, typed_name)) return code;
        }
    }
    return 0;
}

// Reads the value of a typed member "NAME(value)" after its name.
bool read_typed_member(kxParseParList *list, const SelectMember &member, const char16_t *attribute_name,
                       kxSelectValue *value) {
    kxParserParam *begin = nullptr;
    if (!kxParseParList_next(list, &begin) || !kxParserParam_is_nested_begin(begin)) return false;
    kxParserParam *parameter = nullptr;
    if (!kxParseParList_next(list, &parameter)) return false;
    bool ok = false;
    switch (member.kind) {
    case SLOT_STRING: ok = coretype_read_string(list, parameter, attribute_name, &value->string); break;
    case SLOT_REAL: ok = coretype_read_real(list, parameter, attribute_name, &value->real); break;
    case SLOT_INTEGER: ok = coretype_read_integer(list, parameter, attribute_name, &value->integer); break;
    case SLOT_BOOLEAN: ok = coretype_read_boolean(list, parameter, attribute_name, &value->integer); break;
    case SLOT_LOGICAL: ok = coretype_read_logical(list, parameter, attribute_name, &value->integer); break;
    case SLOT_BINARY: ok = coretype_read_binary(list, parameter, attribute_name, &value->binary); break;
    case SLOT_ENUM:
        value->integer = read_enum(list, parameter, member.type_ref, attribute_name);
        ok = value->integer != 0;
        break;
    case SLOT_AGGREGATE:
        ok = read_aggregate(list, parameter, g_defined_types[member.type_ref].type_ref, attribute_name,
                            &value->aggregate);
        break;
    default: kx_assert_unreachable(); break;
    }
    kxParserParam *end = nullptr;
    if (!kxParseParList_next(list, &end) || !kxParserParam_is_nested_end(end)) {
        kxParseParList_mark_error(list, end != nullptr ? end : parameter, u"", u"Expected nested entity end");
        ok = false;
    }
    return ok;
}

void free_select_value(const SelectMember &member, kxSelectValue *value) {
    if (member.kind == SLOT_STRING) wstr_destroy_optional(&value->string);
    if (member.kind == SLOT_BINARY) mem_free(value->binary.contents);
    if (member.kind == SLOT_AGGREGATE && value->aggregate != nullptr)
        aggregate_free(&value->aggregate, g_defined_types[member.type_ref].type_ref);
}

// A new select value for the parameter, made through the list's creator, or
// NULL (reported "Incorrect type, expected 'kx<Select>'").
kxBaseObject *read_select(kxParseParList *list, kxParserParam *parameter, uint32_t select_class_id,
                          const char16_t *) {
    const kxClass_t *klass = g_classes[select_class_id];
    const SelectInfo &info = *klass->select;
    const uint32_t code = select_member_for(info, parameter, kxParseParList_version(list));
    if (code == 0) {
        char16_t *message = wstr_format(u"Incorrect type, expected '%s'", klass->type_name);
        kxParseParList_mark_error(list, parameter, klass->type_name, message);
        wstr_destroy(&message);
        skip_value(list, parameter);
        return nullptr;
    }
    const SelectMember &member = info.members[code - 1];
    kxSelectValue value{};
    if (member.kind == SLOT_ENTITY) {
        value.object = kxParserParam_get_instance(parameter);
    } else if (!read_typed_member(list, member, klass->type_name, &value)) {
        free_select_value(member, &value);
        return nullptr;
    }
    kxBaseObject *instance = kxParseParList_create_object(list, klass);
    if (instance == nullptr) {
        free_select_value(member, &value);
        return nullptr;
    }
    kxSelectObject *select = reinterpret_cast<kxSelectObject *>(instance);
    if (member.kind == SLOT_ENTITY) baseobject_retain(value.object);
    select->value = value;
    select->type = code;
    // The creator handed us a new instance and keeps its own reference in
    // the list of instances; the attribute holds one more.
    baseobject_retain(instance);
    return instance;
}

// Reads one attribute into its slot.
void read_attribute(kxParseParList *list, kxBaseObject *instance, const AttrRef &attr, const SlotInfo &slot) {
    kxParserParam *parameter = nullptr;
    if (!kxParseParList_next(list, &parameter)) return;
    if (kxParserParam_is_null_or_derived(parameter)) return;
    const char16_t *name = slot.name;
    switch (slot.kind) {
    case SLOT_STRING: coretype_read_string(list, parameter, name, &record_slot<char16_t *>(instance, attr.offset)); break;
    case SLOT_REAL: coretype_read_real(list, parameter, name, &record_slot<double>(instance, attr.offset)); break;
    case SLOT_INTEGER: coretype_read_integer(list, parameter, name, &record_slot<int32_t>(instance, attr.offset)); break;
    case SLOT_BOOLEAN: coretype_read_boolean(list, parameter, name, &record_slot<int32_t>(instance, attr.offset)); break;
    case SLOT_LOGICAL: coretype_read_logical(list, parameter, name, &record_slot<int32_t>(instance, attr.offset)); break;
    case SLOT_BINARY: coretype_read_binary(list, parameter, name, &record_slot<kxBinary>(instance, attr.offset)); break;
    case SLOT_ENUM: record_slot<int32_t>(instance, attr.offset) = read_enum(list, parameter, slot.type_ref, name); break;
    case SLOT_ENTITY:
        record_slot<kxBaseObject *>(instance, attr.offset) = read_reference(list, parameter, slot.type_ref, name);
        break;
    case SLOT_SELECT:
        record_slot<kxBaseObject *>(instance, attr.offset) = read_select(list, parameter, slot.type_ref, name);
        break;
    case SLOT_AGGREGATE:
        read_aggregate(list, parameter, slot.type_ref, name, &record_slot<kxAggregate *>(instance, attr.offset));
        break;
    default: kx_assert_unreachable(); break;
    }
}

}  // namespace

void entity_init_from_parse(kxBaseObject *instance, kxParseParList *parameters) {
    kx_assert_not_null(parameters);
    const ClassRelease *release = baseobject_class_release(instance);
    if (release == nullptr || parameters == nullptr) return;
    // Each attribute takes exactly one value of the line, whatever went
    // wrong inside the one before: a bad value costs its own attribute only.
    for (uint32_t i = 0; i < release->num_attrs; i++) {
        const uint32_t start = kxParseParList_cursor(parameters);
        kxParserParam *next = kxParseParList_count(parameters) > start ? kxParseParList_get(parameters, start) : nullptr;
        if (next == nullptr || kxParserParam_is_nested_end(next)) {
            if (next != nullptr) kxParseParList_mark_error(parameters, next, u"", u"Too few attributes");
            return;
        }
        read_attribute(parameters, instance, release->attrs[i], g_slots[release->attrs[i].slot]);
        kxParseParList_set_cursor(parameters, kxParseParList_value_end(parameters, start));
    }
}

}  // namespace kx
