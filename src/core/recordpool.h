// The record pool of a model: instance records are carved from large
// aligned chunks instead of one heap block each, and a freed record's place
// is reused by the next record of the same size. A record finds its pool
// from its own address (the chunk's header), so it can be freed after its
// model is gone: the pool lives until the model has given it up and its
// last record is freed.
#pragma once

#include <cstdint>

namespace kx {

struct RecordPool;

RecordPool *recordpool_new();
// A new zeroed record of `size` bytes (at most a few hundred).
void *recordpool_alloc(RecordPool *pool, uint32_t size);
// Frees a record made by recordpool_alloc with the same size.
void recordpool_free(void *record, uint32_t size);
// The owner lets go of the pool: it is destroyed now, or with its last record.
void recordpool_release(RecordPool **pool);

}  // namespace kx
