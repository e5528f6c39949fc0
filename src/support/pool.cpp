#define KX_UNIT "kxpool"
#include "support/pool.h"

#include <cstring>

#include "support/assert.h"
#include "support/memory.h"
#include "support/poison.h"

namespace kx {
namespace {

constexpr uintptr_t kSegmentSize = 256 * 1024;  // slabs are aligned to at least this
constexpr uint32_t kFirstSlabSegments = 1;
// Slabs stay small enough that the unused end of a pool's last one (a read
// on several threads fills a pool for each part) costs little memory.
constexpr uint32_t kLargestSlabSegments = 16;  // 4 MiB
constexpr uint32_t kGranule = 8;
constexpr uint32_t kSizeClasses = kPoolLargestBlock / kGranule + 1;
// A freed block keeps its first word (a record's dead mask) and links the
// free list through its second.
constexpr size_t kLinkOffset = 8;
constexpr uint32_t kSmallestBlock = 2 * kLinkOffset;

// The head of every segment; the first segment of a slab also links the
// pool's slabs.
struct Segment {
    Pool *pool;
    Segment *next_slab;
    uint32_t segments;  // in this slab
};

uint32_t rounded(uint32_t size) {
    size = size < kSmallestBlock ? kSmallestBlock : size;
    return (size + kGranule - 1) / kGranule * kGranule;
}

constexpr uint32_t kSegmentHead = (sizeof(Segment) + kGranule - 1) / kGranule * kGranule;

void *&link_of(void *block) { return *reinterpret_cast<void **>(static_cast<char *>(block) + kLinkOffset); }

Segment *segment_of(const void *block) {
    return reinterpret_cast<Segment *>(reinterpret_cast<uintptr_t>(block) & ~(kSegmentSize - 1));
}

}  // namespace

struct Pool {
    Segment *slabs;
    char *cursor;
    char *limit;        // of the current segment
    char *slab_end;
    uint32_t next_slab_segments;
    uint64_t live;
    bool released;
    void *free_lists[kSizeClasses];
};

namespace {

void destroy(Pool *pool) {
    for (Segment *slab = pool->slabs; slab != nullptr;) {
        Segment *next = slab->next_slab;
        KX_UNPOISON(slab, slab->segments * kSegmentSize);
        mem_free(slab);
        slab = next;
    }
    mem_free(pool);
}

void set_segment_owner(Segment *slab, Pool *pool) {
    for (uint32_t i = 0; i < slab->segments; i++)
        reinterpret_cast<Segment *>(reinterpret_cast<char *>(slab) + i * kSegmentSize)->pool = pool;
}

// A segment is faulted in as it is started, so the pages the kernel has
// just cleared are still in the cache when its blocks are first written.
void start_segment(Pool *pool, char *segment) {
    mem_populate(segment, kSegmentSize);
    pool->cursor = segment + kSegmentHead;
    pool->limit = segment + kSegmentSize;
}

void add_slab(Pool *pool) {
    const uint32_t segments = pool->next_slab_segments;
    const size_t bytes = segments * kSegmentSize;
    // Slabs of a huge page or more start on one, so that every page of them can be huge.
    const size_t alignment = bytes >= kHugePageSize ? kHugePageSize : kSegmentSize;
    Segment *slab = static_cast<Segment *>(mem_aligned_alloc(alignment, bytes));  // zeroed
    KX_POISON(slab, bytes);
    for (uint32_t i = 0; i < segments; i++)
        KX_UNPOISON(reinterpret_cast<char *>(slab) + i * kSegmentSize, kSegmentHead);
    slab->next_slab = pool->slabs;
    slab->segments = segments;
    set_segment_owner(slab, pool);
    pool->slabs = slab;
    pool->slab_end = reinterpret_cast<char *>(slab) + bytes;
    pool->next_slab_segments = segments < kLargestSlabSegments ? 2 * segments : segments;
    start_segment(pool, reinterpret_cast<char *>(slab));
}

// Room for `size` more bytes: the rest of this segment, the next segment of
// the slab, or a new slab.
void make_room(Pool *pool, uint32_t size) {
    if (pool->cursor != nullptr && pool->limit - pool->cursor >= static_cast<ptrdiff_t>(size)) return;
    if (pool->cursor != nullptr && pool->limit < pool->slab_end)
        start_segment(pool, pool->limit);
    else
        add_slab(pool);
}

}  // namespace

Pool *pool_new() {
    Pool *pool = mem_new_zeroed<Pool>();
    pool->next_slab_segments = kFirstSlabSegments;
    return pool;
}

void *pool_alloc(Pool *pool, uint32_t size) {
    kx_assert_not_null(pool);
    kx_assert(size <= kPoolLargestBlock);
    if (pool == nullptr || size > kPoolLargestBlock) return nullptr;
    const uint32_t place = rounded(size);
    void *block = pool->free_lists[place / kGranule];
    if (block != nullptr) {
        KX_UNPOISON(block, place);
        pool->free_lists[place / kGranule] = link_of(block);
        KX_POISON(block, place);
        KX_UNPOISON(block, size);
        std::memset(block, 0, size);
    } else {
        make_room(pool, place);
        block = pool->cursor;
        pool->cursor += place;
        KX_UNPOISON(block, size);
    }
    pool->live++;
    return block;
}

void pool_free(void *block, uint32_t size) {
    if (block == nullptr) return;
    const uint32_t place = rounded(size);
    Pool *pool = segment_of(block)->pool;
    if (!pool->released) {  // a released pool makes no more blocks
        KX_UNPOISON(block, place);
        link_of(block) = pool->free_lists[place / kGranule];
        pool->free_lists[place / kGranule] = block;
    }
    KX_POISON(block, place);
    kx_assert(pool->live > 0);
    if (--pool->live == 0 && pool->released) destroy(pool);
}

void pool_release(Pool **pool) {
    kx_assert_not_null(pool);
    if (pool == nullptr || *pool == nullptr) return;
    Pool *released = mem_take(pool);
    released->released = true;
    if (released->live == 0) destroy(released);
}

void pool_adopt(Pool *pool, Pool **other) {
    Pool *adopted = mem_take(other);
    if (adopted == nullptr) return;
    while (adopted->slabs != nullptr) {
        Segment *slab = adopted->slabs;
        adopted->slabs = slab->next_slab;
        set_segment_owner(slab, pool);
        slab->next_slab = pool->slabs;
        pool->slabs = slab;
    }
    // Its free places are left unused: they are the few a thread freed.
    pool->live += adopted->live;
    mem_free(adopted);
}

}  // namespace kx
