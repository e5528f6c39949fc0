// Aggregate storage: a small handle over a growable array of 8-byte cells.
// What a cell holds (a value, an owned string, a retained instance, an owned
// inner aggregate, an owned binary cell) is told by the aggregate's type in
// the schema tables, which every freeing or copying operation is given.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"

struct kxBaseObject;
struct kxAggregate;
struct kxIfcModelMngr_t;

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
    uint32_t capacity : 31;
    uint32_t held : 1;  // an instance, a select value or an outer aggregate owns it
};

namespace kx {
// A new cell at the end of the aggregate (its content is the caller's to set).
kxAggregateCell *aggregate_append_cell(kxAggregate *array_of_elements);
// A new aggregate holding these cells (taken over as they are), in one block,
// held by whatever the reader stores it in.
kxAggregate *aggregate_from_cells(const kxAggregateCell *cells, uint32_t count);
// Marks an aggregate as owned by the holder it is being given to; false
// (and reported) when something owns it already, for then both would free it.
bool aggregate_take_holder(kxAggregate *aggregate);
// Whether every instance the aggregate holds (nested aggregates included)
// belongs to the model of that manager.
bool aggregate_objects_in_model(const kxAggregate *aggregate, uint32_t aggregate_index,
                                const kxIfcModelMngr_t *model_manager);
}  // namespace kx
