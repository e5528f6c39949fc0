#define KX_UNIT "kxmemory"
#include "support/memory.h"

#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "kxifc_diagnostics.h"
#include "support/threads.h"

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

void count_block(void *block, int64_t sign) {
    const int64_t size = static_cast<int64_t>(malloc_usable_size(block));
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

void count_new_block(void *block) { count_block(block, 1); }
void count_freed_block(void *block) { count_block(block, -1); }

[[noreturn]] void out_of_memory(size_t size) {
    std::fprintf(stderr, "kxifcmodel: out of memory allocating %zu bytes\n", size);
    std::abort();
}

}  // namespace

MemTallyScope::MemTallyScope() : outer_(t_tally) { t_tally = this; }

MemTallyScope::~MemTallyScope() {
    t_tally = outer_;
    g_live_blocks.fetch_add(blocks, std::memory_order_relaxed);
    g_total_allocations.fetch_add(allocations, std::memory_order_relaxed);
    note_peak(g_live_bytes.fetch_add(bytes, std::memory_order_relaxed) + bytes);
}

void *mem_alloc(size_t size) {
    void *block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) out_of_memory(size);
    count_new_block(block);
    return block;
}

void *mem_calloc(size_t count, size_t element_size) {
    void *block = std::calloc(count == 0 ? 1 : count, element_size == 0 ? 1 : element_size);
    if (block == nullptr) out_of_memory(count * element_size);
    count_new_block(block);
    return block;
}

void *mem_aligned_alloc(size_t alignment, size_t size) {
    void *block = nullptr;
    if (posix_memalign(&block, alignment, size == 0 ? 1 : size) != 0 || block == nullptr) out_of_memory(size);
    count_new_block(block);
    return block;
}

void *mem_realloc(void *block, size_t new_size) {
    if (block == nullptr) return mem_alloc(new_size);
    count_freed_block(block);
    void *moved = std::realloc(block, new_size == 0 ? 1 : new_size);
    if (moved == nullptr) out_of_memory(new_size);
    count_new_block(moved);
    bump(g_total_allocations, -1);
    return moved;
}

void mem_free(void *block) {
    if (block == nullptr) return;
    count_freed_block(block);
    std::free(block);
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
