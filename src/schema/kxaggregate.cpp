#define KX_UNIT "kxaggregate"
#include "schema/aggregate.h"

#include <cstring>

#include "core/baseobject.h"
#include "core/coretypes.h"
#include "kxifc_coretypes.h"
#include "schema/engines.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace kx {
namespace {

bool check_aggregate(const kxAggregate *array_of_elements) {
    kx_assert_not_null(array_of_elements);
    return array_of_elements != nullptr;
}

// The cell at an index, or NULL (reported) when the index is out of range.
kxAggregateCell *cell_at(const kxAggregate *array_of_elements, uint32_t index) {
    if (!check_aggregate(array_of_elements)) return nullptr;
    kx_assert(index < array_of_elements->count);
    return index < array_of_elements->count ? &array_of_elements->items[index] : nullptr;
}

}  // namespace

// Whether the cells live in the handle's own block.
inline bool cells_are_inline(const kxAggregate *aggregate) {
    return aggregate->items == reinterpret_cast<const kxAggregateCell *>(aggregate + 1);
}

kxAggregateCell *aggregate_append_cell(kxAggregate *array_of_elements) {
    if (array_of_elements->count == array_of_elements->capacity) {
        const uint32_t capacity = array_of_elements->capacity < 2 ? 4 : array_of_elements->capacity * 2;
        if (cells_are_inline(array_of_elements)) {
            kxAggregateCell *cells = static_cast<kxAggregateCell *>(mem_alloc(capacity * sizeof(kxAggregateCell)));
            std::memcpy(cells, array_of_elements->items, array_of_elements->count * sizeof(kxAggregateCell));
            array_of_elements->items = cells;
        } else {
            array_of_elements->items = static_cast<kxAggregateCell *>(
                mem_realloc(array_of_elements->items, capacity * sizeof(kxAggregateCell)));
        }
        array_of_elements->capacity = capacity;
    }
    return &array_of_elements->items[array_of_elements->count++];
}

kxAggregate *aggregate_from_cells(const kxAggregateCell *cells, uint32_t count) {
    kxAggregate *aggregate = nullptr;
    if (count == 0) {
        aggregate = aggregate_new();
    } else {
        kx_assert(count < 0x80000000u);
        aggregate = static_cast<kxAggregate *>(mem_alloc(sizeof(kxAggregate) + count * sizeof(kxAggregateCell)));
        aggregate->items = reinterpret_cast<kxAggregateCell *>(aggregate + 1);
        aggregate->count = count;
        aggregate->capacity = count;
        aggregate->held = 0;
        std::memcpy(aggregate->items, cells, count * sizeof(kxAggregateCell));
    }
    aggregate->held = 1;
    return aggregate;
}

bool aggregate_take_holder(kxAggregate *aggregate) {
    if (aggregate == nullptr) return true;
    kx_assert_text(aggregate->held == 0, "the aggregate is not held by another instance or aggregate");
    if (aggregate->held != 0) return false;
    aggregate->held = 1;
    return true;
}

namespace {

uint8_t element_kind_of(uint32_t aggregate_index) {
    kx_assert(aggregate_index < g_num_aggregates);
    return aggregate_index < g_num_aggregates ? g_aggregates[aggregate_index].element_kind : uint8_t{SLOT_REAL};
}

kxBinary *new_binary_cell(kxBinary value) {
    kxBinary *cell = mem_new_zeroed<kxBinary>();
    *cell = kxIfcCoreTypes_copy_binary(value);
    return cell;
}

// Releases or frees what one cell owns.
void free_cell(kxAggregateCell &cell, uint8_t kind, uint32_t aggregate_index) {
    switch (kind) {
    case SLOT_STRING:
        wstr_destroy_optional(&cell.string);
        break;
    case SLOT_ENTITY:
    case SLOT_SELECT:
        baseobject_release(&cell.object);
        break;
    case SLOT_AGGREGATE:
        if (cell.aggregate != nullptr) aggregate_free(&cell.aggregate, g_aggregates[aggregate_index].element_ref);
        break;
    case SLOT_BINARY:
        if (cell.binary != nullptr) {
            kxIfcCoreTypes_free_binary(cell.binary);
            mem_free_and_clear(&cell.binary);
        }
        break;
    default:
        break;
    }
}

}  // namespace

bool aggregate_objects_in_model(const kxAggregate *aggregate, uint32_t aggregate_index,
                                const kxIfcModelMngr_t *model_manager) {
    if (aggregate == nullptr) return true;
    const uint8_t kind = element_kind_of(aggregate_index);
    for (uint32_t i = 0; i < aggregate->count; i++) {
        const kxAggregateCell &cell = aggregate->items[i];
        if ((kind == SLOT_ENTITY || kind == SLOT_SELECT) && cell.object != nullptr &&
            baseobject_model_manager(cell.object) != model_manager)
            return false;
        if (kind == SLOT_AGGREGATE &&
            !aggregate_objects_in_model(cell.aggregate, g_aggregates[aggregate_index].element_ref, model_manager))
            return false;
    }
    return true;
}


kxAggregate *aggregate_new() { return mem_new_zeroed<kxAggregate>(); }

kxAggregate *aggregate_copy(const kxAggregate *array_of_elements, uint32_t aggregate_index) {
    if (!check_aggregate(array_of_elements)) return nullptr;
    const uint8_t kind = element_kind_of(aggregate_index);
    kxAggregate *copy = aggregate_new();
    for (uint32_t i = 0; i < array_of_elements->count; i++) {
        const kxAggregateCell &from = array_of_elements->items[i];
        kxAggregateCell *to = aggregate_append_cell(copy);
        switch (kind) {
        case SLOT_STRING:
            to->string = wstr_copy_optional(from.string);
            break;
        case SLOT_ENTITY:
        case SLOT_SELECT:
            baseobject_retain(from.object);
            *to = from;
            break;
        case SLOT_AGGREGATE:
            to->aggregate = from.aggregate != nullptr
                                ? aggregate_copy(from.aggregate, g_aggregates[aggregate_index].element_ref)
                                : nullptr;
            break;
        case SLOT_BINARY:
            to->binary = from.binary != nullptr ? new_binary_cell(*from.binary) : nullptr;
            break;
        default:
            *to = from;
            break;
        }
    }
    return copy;
}

void aggregate_free(kxAggregate **array_of_elements, uint32_t aggregate_index) {
    kx_assert_not_null(array_of_elements);
    if (array_of_elements == nullptr) return;
    kx_assert_not_null(*array_of_elements);
    kxAggregate *aggregate = *array_of_elements;
    if (aggregate == nullptr) return;
    const uint8_t kind = element_kind_of(aggregate_index);
    for (uint32_t i = 0; i < aggregate->count; i++) free_cell(aggregate->items[i], kind, aggregate_index);
    if (!cells_are_inline(aggregate)) mem_free(aggregate->items);
    mem_free_and_clear(array_of_elements);
}

uint32_t aggregate_count(const kxAggregate *array_of_elements) {
    return check_aggregate(array_of_elements) ? array_of_elements->count : 0;
}

void aggregate_remove_index(kxAggregate *array_of_elements, uint32_t index, uint32_t aggregate_index) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    if (cell == nullptr) return;
    free_cell(*cell, element_kind_of(aggregate_index), aggregate_index);
    std::memmove(cell, cell + 1, (array_of_elements->count - index - 1) * sizeof(kxAggregateCell));
    array_of_elements->count--;
}

kxBaseObject *aggregate_get_object(const kxAggregate *array_of_elements, uint32_t index) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    return cell != nullptr ? cell->object : nullptr;
}

void aggregate_set_object(kxAggregate *array_of_elements, uint32_t index, kxBaseObject *element, uint32_t) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    if (cell == nullptr) return;
    baseobject_retain(element);
    cell->object = element;  // the element replaced keeps its retain, by contract
}

void aggregate_append_object(kxAggregate *array_of_elements, kxBaseObject *element, uint32_t) {
    if (!check_aggregate(array_of_elements)) return;
    baseobject_retain(element);
    aggregate_append_cell(array_of_elements)->object = element;
}

void aggregate_remove_object(kxAggregate *array_of_elements, kxBaseObject *element) {
    if (!check_aggregate(array_of_elements)) return;
    for (uint32_t i = 0; i < array_of_elements->count; i++) {
        if (array_of_elements->items[i].object == element) {
            baseobject_release(&array_of_elements->items[i].object);
            std::memmove(&array_of_elements->items[i], &array_of_elements->items[i + 1],
                         (array_of_elements->count - i - 1) * sizeof(kxAggregateCell));
            array_of_elements->count--;
            return;
        }
    }
}

kxAggregate *aggregate_get_aggregate(const kxAggregate *array_of_elements, uint32_t index) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    return cell != nullptr ? cell->aggregate : nullptr;
}

void aggregate_set_aggregate(kxAggregate *array_of_elements, uint32_t index, kxAggregate *element,
                             uint32_t aggregate_index) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    if (cell == nullptr || cell->aggregate == element || !aggregate_take_holder(element)) return;
    free_cell(*cell, SLOT_AGGREGATE, aggregate_index);
    cell->aggregate = element;
}

void aggregate_append_aggregate(kxAggregate *array_of_elements, kxAggregate *element, uint32_t) {
    if (!check_aggregate(array_of_elements) || !aggregate_take_holder(element)) return;
    aggregate_append_cell(array_of_elements)->aggregate = element;
}

// Plain values: integers and reals are stored as they are.
#define KX_SCALAR_ACCESSORS(suffix, ctype, field, undefined)                               \
    ctype aggregate_get_##suffix(const kxAggregate *array_of_elements, uint32_t index) {   \
        kxAggregateCell *cell = cell_at(array_of_elements, index);                         \
        return cell != nullptr ? cell->field : (undefined);                               \
    }                                                                                      \
    void aggregate_set_##suffix(kxAggregate *array_of_elements, uint32_t index, ctype value) { \
        kxAggregateCell *cell = cell_at(array_of_elements, index);                         \
        if (cell != nullptr) cell->field = value;                                          \
    }                                                                                      \
    void aggregate_add_##suffix(kxAggregate *array_of_elements, ctype value) {             \
        if (check_aggregate(array_of_elements)) aggregate_append_cell(array_of_elements)->field = value; \
    }

KX_SCALAR_ACCESSORS(real, double, real, kRealUndefined)
KX_SCALAR_ACCESSORS(integer, int32_t, integer, kIntegerUndefined)
KX_SCALAR_ACCESSORS(boolean, int32_t, integer, kBooleanUndefined)
KX_SCALAR_ACCESSORS(logical, int32_t, integer, kLogicalUndefined)
KX_SCALAR_ACCESSORS(enum, int32_t, integer, 0)
#undef KX_SCALAR_ACCESSORS

const char16_t *aggregate_get_string(const kxAggregate *array_of_elements, uint32_t index) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    return cell != nullptr ? cell->string : nullptr;
}

void aggregate_set_string(kxAggregate *array_of_elements, uint32_t index, const char16_t *value) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    if (cell == nullptr || cell->string == value) return;
    wstr_destroy_optional(&cell->string);
    cell->string = wstr_copy_optional(value);
}

void aggregate_add_string(kxAggregate *array_of_elements, const char16_t *value) {
    if (check_aggregate(array_of_elements)) aggregate_append_cell(array_of_elements)->string = wstr_copy_optional(value);
}

kxBinary aggregate_get_binary(const kxAggregate *array_of_elements, uint32_t index) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    return cell != nullptr && cell->binary != nullptr ? *cell->binary : kxBinary{nullptr, 0};
}

void aggregate_set_binary(kxAggregate *array_of_elements, uint32_t index, kxBinary value) {
    kxAggregateCell *cell = cell_at(array_of_elements, index);
    if (cell == nullptr) return;
    kxBinary *replacement = new_binary_cell(value);
    free_cell(*cell, SLOT_BINARY, 0);
    cell->binary = replacement;
}

void aggregate_add_binary(kxAggregate *array_of_elements, kxBinary value) {
    if (check_aggregate(array_of_elements)) aggregate_append_cell(array_of_elements)->binary = new_binary_cell(value);
}

}  // namespace kx
