#define KX_UNIT "kxrecordpool"
#include "core/recordpool.h"

#include <cstring>

#include "support/assert.h"
#include "support/memory.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
// Freed records are poisoned, so the address sanitizer still catches any use
// of an instance after it was freed, as it would for a heap block.
#define KX_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define KX_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define KX_POISON(address, size) ((void)(address), (void)(size))
#define KX_UNPOISON(address, size) ((void)(address), (void)(size))
#endif

namespace kx {
namespace {

constexpr uintptr_t kChunkSize = 256 * 1024;  // also the chunks' alignment
constexpr uint32_t kGranule = 8;
constexpr uint32_t kLargestRecord = 1024;
constexpr uint32_t kSizeClasses = kLargestRecord / kGranule + 1;
// A freed record keeps its first word (the dead mask) and links the free
// list through its second.
constexpr size_t kLinkOffset = 8;

struct Chunk {
    RecordPool *pool;
    Chunk *next;
};

uint32_t rounded(uint32_t size) { return (size + kGranule - 1) / kGranule * kGranule; }

void *&link_of(void *record) { return *reinterpret_cast<void **>(static_cast<char *>(record) + kLinkOffset); }

}  // namespace

struct RecordPool {
    Chunk *chunks;
    char *cursor;
    char *limit;
    uint64_t live;
    bool released;
    void *free_lists[kSizeClasses];
};

namespace {

void destroy(RecordPool *pool) {
    for (Chunk *chunk = pool->chunks; chunk != nullptr;) {
        KX_UNPOISON(chunk, kChunkSize);
        Chunk *next = chunk->next;
        mem_free(chunk);
        chunk = next;
    }
    mem_free(pool);
}

void add_chunk(RecordPool *pool) {
    Chunk *chunk = static_cast<Chunk *>(mem_aligned_alloc(kChunkSize, kChunkSize));
    chunk->pool = pool;
    chunk->next = pool->chunks;
    pool->chunks = chunk;
    pool->cursor = reinterpret_cast<char *>(chunk) + rounded(sizeof(Chunk));
    pool->limit = reinterpret_cast<char *>(chunk) + kChunkSize;
}

}  // namespace

RecordPool *recordpool_new() { return mem_new_zeroed<RecordPool>(); }

void *recordpool_alloc(RecordPool *pool, uint32_t size) {
    kx_assert_not_null(pool);
    size = rounded(size < 2 * kLinkOffset ? 2 * kLinkOffset : size);
    kx_assert(size <= kLargestRecord);
    if (pool == nullptr || size > kLargestRecord) return nullptr;
    void *record = pool->free_lists[size / kGranule];
    if (record != nullptr) {
        KX_UNPOISON(record, size);
        pool->free_lists[size / kGranule] = link_of(record);
    } else {
        if (pool->cursor == nullptr || pool->limit - pool->cursor < static_cast<ptrdiff_t>(size)) add_chunk(pool);
        record = pool->cursor;
        pool->cursor += size;
    }
    std::memset(record, 0, size);
    pool->live++;
    return record;
}

void recordpool_free(void *record, uint32_t size) {
    if (record == nullptr) return;
    size = rounded(size < 2 * kLinkOffset ? 2 * kLinkOffset : size);
    Chunk *chunk = reinterpret_cast<Chunk *>(reinterpret_cast<uintptr_t>(record) & ~(kChunkSize - 1));
    RecordPool *pool = chunk->pool;
    link_of(record) = pool->free_lists[size / kGranule];
    pool->free_lists[size / kGranule] = record;
    KX_POISON(record, size);
    kx_assert(pool->live > 0);
    if (--pool->live == 0 && pool->released) destroy(pool);
}

void recordpool_release(RecordPool **pool) {
    kx_assert_not_null(pool);
    if (pool == nullptr || *pool == nullptr) return;
    RecordPool *released = mem_take(pool);
    released->released = true;
    if (released->live == 0) destroy(released);
}

}  // namespace kx
