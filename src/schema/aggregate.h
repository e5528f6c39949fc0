// Aggregate storage: a small handle over a growable array of 8-byte cells.
// What a cell holds (a value, an owned string, a retained instance, an owned
// inner aggregate, an owned binary cell) is told by the aggregate's type in
// the schema tables, which every freeing or copying operation is given.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"

struct kxBaseObject;
struct kxAggregate;

union kxAggregateCell {
    double real;
    int32_t integer;
    char16_t *string;
    kxBaseObject *object;
    kxAggregate *aggregate;
    kxBinary *binary;
};

// The cells either follow the handle in the same block (an aggregate made
// whole, as the reader makes them) or live in a block of their own once the
// aggregate grows.
struct kxAggregate {
    kxAggregateCell *items;
    uint32_t count;
    uint32_t capacity;
};

namespace kx {
// A new cell at the end of the aggregate (its content is the caller's to set).
kxAggregateCell *aggregate_append_cell(kxAggregate *array_of_elements);
// A new aggregate holding these cells (taken over as they are), in one block.
kxAggregate *aggregate_from_cells(const kxAggregateCell *cells, uint32_t count);
}  // namespace kx
