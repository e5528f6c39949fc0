// Tracked memory: every block the library allocates goes through these
// functions, which keep process-wide counters of live blocks and bytes so a
// test (or a host) can check that everything allocated was freed. A block
// comes from the heap, or from a pool (see pool.h) while its thread has one
// (MemPoolScope); a word in front of it says which, and its size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace kx {

struct Pool;

// Allocation never returns NULL: running out of memory aborts the process.
void *mem_alloc(size_t size);
void *mem_calloc(size_t count, size_t element_size);
void *mem_realloc(void *block, size_t new_size);
// The same for a block whose bytes past `old_size` must read as zero after
// growing (a mapped block's new pages already do).
void *mem_realloc_zeroed(void *block, size_t old_size, size_t new_size);
// The size of the huge pages the system may back a mapping with: only the
// whole, aligned stretches of this size of a mapping can have them.
constexpr size_t kHugePageSize = 2 * 1024 * 1024;
// Blocks are aligned to 8 bytes; this one to `alignment` (a power of two,
// at least 16), never from a pool, its bytes zero.
void *mem_aligned_alloc(size_t alignment, size_t size);
// Faults in a range of a block at once (page aligned), rather than a page
// at a time as it is first written.
void mem_populate(void *start, size_t bytes);
// Frees a block made by the functions above (NULL is accepted).
void mem_free(void *block);

// Frees the block the holder points to and leaves the holder NULL.
template <typename T>
inline void mem_free_and_clear(T **holder) {
    mem_free(const_cast<void *>(static_cast<const void *>(*holder)));
    *holder = nullptr;
}

// Calls destroy(holder) when *holder is not NULL.
template <typename T>
inline void mem_destroy_optional(T **holder, void (*destroy)(T **)) {
    if (*holder != nullptr) destroy(holder);
}

// Moves ownership out of a holder: returns the pointer and clears the holder.
template <typename T>
inline T *mem_take(T **holder) {
    T *value = *holder;
    *holder = nullptr;
    return value;
}

// Allocates one zeroed T, or n zeroed Ts.
template <typename T>
inline T *mem_new_zeroed(size_t n = 1) {
    return static_cast<T *>(mem_calloc(n, sizeof(T)));
}

// While alive, the calling thread's allocations are tallied privately and
// added to the process-wide counters when it ends: threads of a parallel
// section allocate without contending for the counters.
class MemTallyScope {
public:
    MemTallyScope();
    ~MemTallyScope();
    MemTallyScope(const MemTallyScope &) = delete;
    MemTallyScope &operator=(const MemTallyScope &) = delete;

    int64_t blocks = 0;
    int64_t bytes = 0;
    int64_t allocations = 0;

private:
    MemTallyScope *outer_;
};

// While alive, the calling thread's small blocks come from `pool` (NULL:
// from the heap). A read fills its model this way: one pool's slabs instead
// of millions of heap blocks. A block may be freed on any thread, later;
// two threads never use one pool at once.
class MemPoolScope {
public:
    explicit MemPoolScope(Pool *pool);
    ~MemPoolScope();
    MemPoolScope(const MemPoolScope &) = delete;
    MemPoolScope &operator=(const MemPoolScope &) = delete;

private:
    Pool *outer_;
};

// The calling thread's pool, or NULL.
Pool *mem_pool();

struct MemUsage {
    int64_t live_blocks;
    int64_t live_bytes;
    int64_t peak_bytes;
    int64_t total_allocations;
};
MemUsage mem_usage();

// A standard allocator over tracked memory, so std containers are counted.
template <typename T>
struct TrackedAllocator {
    using value_type = T;
    TrackedAllocator() noexcept = default;
    template <typename U>
    TrackedAllocator(const TrackedAllocator<U> &) noexcept {}
    T *allocate(size_t n) { return static_cast<T *>(mem_alloc(n * sizeof(T))); }
    void deallocate(T *p, size_t) noexcept { mem_free(p); }
    template <typename U>
    bool operator==(const TrackedAllocator<U> &) const noexcept { return true; }
};

// A vector over tracked memory.
template <typename T>
using TrackedVector = std::vector<T, TrackedAllocator<T>>;

}  // namespace kx
