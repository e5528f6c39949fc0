#define KX_UNIT "kxmemory"
#include "support/memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kxifc_diagnostics.h"
#include "support/poison.h"
#include "support/pool.h"
#include "support/threads.h"

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23  // Linux 5.14
#endif


namespace kx {
namespace {

// Process-wide diagnostic counters. They are updated with relaxed loads and
// stores rather than locked read-modify-writes: exact while one thread at a
// time uses the library (its contract), and never torn otherwise, at a
// fraction of the cost on a path every allocation takes. Threads of a
// parallel section keep tallies of their own instead.
std::atomic<int64_t> g_live_blocks{0};
std::atomic<int64_t> g_live_bytes{0};
std::atomic<int64_t> g_peak_bytes{0};
std::atomic<int64_t> g_total_allocations{0};

// The tally of the calling thread, inside a parallel section.
thread_local MemTallyScope *t_tally = nullptr;

inline int64_t bump(std::atomic<int64_t> &counter, int64_t delta) {
    if (threads_parallel()) return counter.fetch_add(delta, std::memory_order_relaxed) + delta;
    const int64_t value = counter.load(std::memory_order_relaxed) + delta;
    counter.store(value, std::memory_order_relaxed);
    return value;
}

void note_peak(int64_t now) {
    if (now > g_peak_bytes.load(std::memory_order_relaxed)) g_peak_bytes.store(now, std::memory_order_relaxed);
}

void count_block(int64_t sign, int64_t size) {
    if (threads_parallel() && t_tally != nullptr) {
        t_tally->blocks += sign;
        t_tally->bytes += sign * size;
        if (sign > 0) t_tally->allocations++;
        return;
    }
    bump(g_live_blocks, sign);
    if (sign > 0) bump(g_total_allocations, 1);
    const int64_t now = bump(g_live_bytes, sign * size);
    if (sign > 0) note_peak(now);
}

[[noreturn]] void out_of_memory(size_t size) {
    std::fprintf(stderr, "kxifcmodel: out of memory allocating %zu bytes\n", size);
    std::abort();
}

// The word in front of every block: its size above two bits that say where
// it came from.
enum BlockKind : uint64_t { HEAP_BLOCK = 0, POOL_BLOCK = 1, ALIGNED_BLOCK = 2, MAPPED_BLOCK = 3 };
constexpr size_t kHeader = sizeof(uint64_t);
constexpr size_t kLargestSize = SIZE_MAX / 4 - 4096;
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kRedZone = 16;  // poisoned after a pool block, as the heap would
#else
constexpr size_t kRedZone = 0;
#endif
// The largest block a pool serves; larger ones come from the heap.
constexpr size_t kLargestPooled = kPoolLargestBlock - kHeader - kRedZone;

// Blocks this large are mapped on their own, on huge pages where the system
// has them, faulted in whole when made or grown (a large array grows in
// steps of many pages, and a fault per page costs more than the kernel's
// filling them at once), and grown by remapping rather than copying. The
// leak checker does not look inside mappings, so sanitized builds keep them
// on the heap.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMapLargeBlocks = false;
#else
constexpr bool kMapLargeBlocks = true;
#endif
constexpr size_t kSmallestMapped = kMapLargeBlocks ? 256 * 1024 : SIZE_MAX;
constexpr size_t kPageSize = 4096;

// The pool of the calling thread (MemPoolScope).
thread_local Pool *t_pool = nullptr;

void *headed(void *place, size_t size, BlockKind kind) {
    uint64_t *word = static_cast<uint64_t *>(place);
    *word = static_cast<uint64_t>(size) << 2 | kind;
    return word + 1;
}

uint64_t header_of(const void *block) { return static_cast<const uint64_t *>(block)[-1]; }
size_t size_of(uint64_t header) { return static_cast<size_t>(header >> 2); }
BlockKind kind_of(uint64_t header) { return static_cast<BlockKind>(header & 3); }

// Pool blocks are counted as blocks; their bytes are counted with the slab.
void *pool_block(size_t size) {
    char *place = static_cast<char *>(pool_alloc(t_pool, static_cast<uint32_t>(kHeader + size + kRedZone)));
    if (kRedZone > 0) KX_POISON(place + kHeader + size, kRedZone);
    count_block(1, 0);
    return headed(place, size, POOL_BLOCK);
}

void *heap_block(void *place, size_t size) {
    if (place == nullptr) out_of_memory(size);
    count_block(1, static_cast<int64_t>(kHeader + size));
    return headed(place, size, HEAP_BLOCK);
}

size_t page_rounded(size_t bytes) { return (bytes + kPageSize - 1) & ~(kPageSize - 1); }

void *aligned_headed(void *place, size_t alignment, size_t size) {
    uint64_t *block = static_cast<uint64_t *>(place);
    block[-2] = alignment;
    block[-1] = static_cast<uint64_t>(size) << 2 | ALIGNED_BLOCK;
    return block;
}

// A model of a few hundred MB written once through 4 KiB pages spends more
// time on missing address translations than on anything else it does (in a
// virtual machine that keeps shadow page tables, each costs a trip to the
// host): mappings ask for huge pages where the system gives them on request.
void advise_huge_pages(void *start, size_t bytes) { madvise(start, bytes, MADV_HUGEPAGE); }

// `bytes` of fresh zeroed pages whose offset `lead` falls on a multiple of
// `alignment` (a power of two), or the end of the process. The room mapped
// to align them is given back.
char *map_pages(size_t bytes, size_t alignment, size_t lead) {
    const size_t slack = alignment > kPageSize ? alignment : 0;
    void *mapped = mmap(nullptr, bytes + slack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) out_of_memory(bytes);
    char *start = static_cast<char *>(mapped);
    if (slack == 0) return start;
    char *place = reinterpret_cast<char *>(((reinterpret_cast<uintptr_t>(start) + lead + alignment - 1) &
                                            ~static_cast<uintptr_t>(alignment - 1)) - lead);
    if (place > start) munmap(start, static_cast<size_t>(place - start));
    if (start + slack > place) munmap(place + bytes, static_cast<size_t>(start + slack - place));
    return place;
}

// Large blocks start on a huge page, so that all but their last stretch can
// be backed by huge pages.
size_t mapping_alignment(size_t bytes) { return bytes >= kHugePageSize ? kHugePageSize : kPageSize; }

// A mapped block; its pages read as zero.
void *mapped_block(size_t size) {
    const size_t bytes = page_rounded(kHeader + size);
    char *place = map_pages(bytes, mapping_alignment(bytes), 0);
    advise_huge_pages(place, bytes);
    mem_populate(place, bytes);
    count_block(1, static_cast<int64_t>(bytes));
    return headed(place, size, MAPPED_BLOCK);
}

// A block that grows past a huge page moves its pages to a fresh aligned
// place (the page tables move, the data does not), since the place after
// it may be taken and an unaligned one would lose the huge pages.
void *mapped_resize(void *block, size_t old_size, size_t new_size) {
    const size_t old_bytes = page_rounded(kHeader + old_size);
    const size_t new_bytes = page_rounded(kHeader + new_size);
    char *place = static_cast<char *>(block) - kHeader;
    void *moved = new_bytes <= old_bytes || new_bytes < kHugePageSize
                      ? mremap(place, old_bytes, new_bytes, MREMAP_MAYMOVE)
                      : mremap(place, old_bytes, new_bytes, MREMAP_MAYMOVE | MREMAP_FIXED,
                               map_pages(new_bytes, kHugePageSize, 0));
    if (moved == MAP_FAILED) out_of_memory(new_size);
    if (new_bytes > old_bytes) {
        advise_huge_pages(moved, new_bytes);
        mem_populate(static_cast<char *>(moved) + old_bytes, new_bytes - old_bytes);
    }
    count_block(-1, static_cast<int64_t>(old_bytes));
    count_block(1, static_cast<int64_t>(new_bytes));
    return headed(moved, new_size, MAPPED_BLOCK);
}

size_t checked(size_t size) {
    if (size > kLargestSize) out_of_memory(size);
    return size;
}

}  // namespace

MemTallyScope::MemTallyScope() : outer_(t_tally) { t_tally = this; }

MemTallyScope::~MemTallyScope() {
    t_tally = outer_;
    g_live_blocks.fetch_add(blocks, std::memory_order_relaxed);
    g_total_allocations.fetch_add(allocations, std::memory_order_relaxed);
    note_peak(g_live_bytes.fetch_add(bytes, std::memory_order_relaxed) + bytes);
}

void mem_populate(void *start, size_t bytes) {
    // Older kernels refuse: the pages then fault in as they are used.
    if (kMapLargeBlocks && bytes > 0) madvise(start, bytes, MADV_POPULATE_WRITE);
}

MemPoolScope::MemPoolScope(Pool *pool) : outer_(t_pool) { t_pool = pool; }

MemPoolScope::~MemPoolScope() { t_pool = outer_; }

Pool *mem_pool() { return t_pool; }

void *mem_alloc(size_t size) {
    if (t_pool != nullptr && size <= kLargestPooled) return pool_block(size);
    if (size >= kSmallestMapped) return mapped_block(checked(size));
    return heap_block(std::malloc(kHeader + checked(size)), size);
}

void *mem_calloc(size_t count, size_t element_size) {
    if (element_size != 0 && count > kLargestSize / element_size) out_of_memory(SIZE_MAX);
    const size_t size = count * element_size;
    if (t_pool != nullptr && size <= kLargestPooled) return pool_block(size);  // zeroed
    if (size >= kSmallestMapped) return mapped_block(checked(size));
    return heap_block(std::calloc(1, kHeader + size), size);
}

void *mem_aligned_alloc(size_t alignment, size_t size) {
    if (!kMapLargeBlocks) {
        void *place = nullptr;
        if (posix_memalign(&place, alignment, alignment + checked(size)) != 0 || place == nullptr)
            out_of_memory(size);
        count_block(1, static_cast<int64_t>(alignment + size));
        return aligned_headed(std::memset(static_cast<char *>(place) + alignment, 0, size), alignment, size);
    }
    // Mapped with a page in front for its header.
    const size_t bytes = page_rounded(checked(size));
    char *block = map_pages(kPageSize + bytes, alignment, kPageSize) + kPageSize;
    advise_huge_pages(block, bytes);
    count_block(1, static_cast<int64_t>(kPageSize + bytes));
    return aligned_headed(block, alignment, size);
}

void *mem_realloc(void *block, size_t new_size) {
    if (block == nullptr) return mem_alloc(new_size);
    const uint64_t header = header_of(block);
    const size_t old_size = size_of(header);
    if (kind_of(header) == HEAP_BLOCK && new_size < kSmallestMapped) {
        void *moved = std::realloc(static_cast<char *>(block) - kHeader, kHeader + checked(new_size));
        if (moved == nullptr) out_of_memory(new_size);
        count_block(-1, static_cast<int64_t>(kHeader + old_size));
        count_block(1, static_cast<int64_t>(kHeader + new_size));
        bump(g_total_allocations, -1);
        return headed(moved, new_size, HEAP_BLOCK);
    }
    if (kind_of(header) == MAPPED_BLOCK && new_size >= kSmallestMapped)
        return mapped_resize(block, old_size, checked(new_size));
    void *moved = mem_alloc(new_size);
    std::memcpy(moved, block, old_size < new_size ? old_size : new_size);
    mem_free(block);
    bump(g_total_allocations, -1);
    return moved;
}

void *mem_realloc_zeroed(void *block, size_t old_size, size_t new_size) {
    char *grown = static_cast<char *>(mem_realloc(block, new_size));
    if (new_size <= old_size) return grown;
    size_t end = new_size;
    // Pages a mapped block gained are new; only its old last page may hold
    // bytes from before it last shrank.
    if (kind_of(header_of(grown)) == MAPPED_BLOCK) end = std::min(new_size, page_rounded(kHeader + old_size) - kHeader);
    if (end > old_size) std::memset(grown + old_size, 0, end - old_size);
    return grown;
}

void mem_free(void *block) {
    if (block == nullptr) return;
    const uint64_t header = header_of(block);
    const size_t size = size_of(header);
    char *place = static_cast<char *>(block) - kHeader;
    switch (kind_of(header)) {
    case HEAP_BLOCK:
        count_block(-1, static_cast<int64_t>(kHeader + size));
        std::free(place);
        return;
    case POOL_BLOCK:
        count_block(-1, 0);
        pool_free(place, static_cast<uint32_t>(kHeader + size + kRedZone));
        return;
    case ALIGNED_BLOCK: {
        const size_t alignment = static_cast<const uint64_t *>(block)[-2];
        if (!kMapLargeBlocks) {
            count_block(-1, static_cast<int64_t>(alignment + size));
            std::free(static_cast<char *>(block) - alignment);
            return;
        }
        const size_t bytes = kPageSize + page_rounded(size);
        count_block(-1, static_cast<int64_t>(bytes));
        munmap(static_cast<char *>(block) - kPageSize, bytes);
        return;
    }
    case MAPPED_BLOCK: {
        const size_t bytes = page_rounded(kHeader + size);
        count_block(-1, static_cast<int64_t>(bytes));
        munmap(place, bytes);
        return;
    }
    }
}

MemUsage mem_usage() {
    return MemUsage{g_live_blocks.load(std::memory_order_relaxed),
                    g_live_bytes.load(std::memory_order_relaxed),
                    g_peak_bytes.load(std::memory_order_relaxed),
                    g_total_allocations.load(std::memory_order_relaxed)};
}

}  // namespace kx

extern "C" KX_API void kxMemory_get_usage(int64_t *live_blocks, int64_t *live_bytes) {
    const kx::MemUsage usage = kx::mem_usage();
    if (live_blocks != nullptr) *live_blocks = usage.live_blocks;
    if (live_bytes != nullptr) *live_bytes = usage.live_bytes;
}
