// A pool of small blocks carved from large slabs: the records of a model's
// instances, and the strings and lists a read makes for them. A freed
// block's place is reused by the next block of the same size. A block finds
// its pool from its own address (every 256 KiB of a slab starts with the
// pool's address), so it can be freed after its model is gone: the pool
// lives until its owner has let go of it and its last block is freed.
//
// Slabs double in size as the pool grows, up to a few MiB, and each 256 KiB
// segment is faulted in whole as the pool starts it: one call into the
// kernel instead of a page fault per 4 KiB, which is what most of the time
// of filling a large model went to.
#pragma once

#include <cstdint>

namespace kx {

struct Pool;

// The largest block a pool hands out.
constexpr uint32_t kPoolLargestBlock = 1024;

Pool *pool_new();
// A new zeroed block of `size` bytes (1 to kPoolLargestBlock), aligned to 8.
void *pool_alloc(Pool *pool, uint32_t size);
// Frees a block made by pool_alloc with the same size.
void pool_free(void *block, uint32_t size);
// The owner lets go of the pool: it is destroyed now, or with its last block.
void pool_release(Pool **pool);
// Takes over the slabs and live blocks of `other` (a pool that served one
// thread of a parallel section), which is destroyed and cleared.
void pool_adopt(Pool *pool, Pool **other);

}  // namespace kx
