#define KX_UNIT "kxmemory"
#include "support/memory.h"

#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "kxifc_diagnostics.h"

namespace kx {
namespace {

// Process-wide diagnostic counters (relaxed atomics: they only count).
std::atomic<int64_t> g_live_blocks{0};
std::atomic<int64_t> g_live_bytes{0};
std::atomic<int64_t> g_peak_bytes{0};
std::atomic<int64_t> g_total_allocations{0};

void count_new_block(void *block) {
    const int64_t size = static_cast<int64_t>(malloc_usable_size(block));
    g_live_blocks.fetch_add(1, std::memory_order_relaxed);
    g_total_allocations.fetch_add(1, std::memory_order_relaxed);
    const int64_t now = g_live_bytes.fetch_add(size, std::memory_order_relaxed) + size;
    int64_t peak = g_peak_bytes.load(std::memory_order_relaxed);
    while (now > peak && !g_peak_bytes.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
}

void count_freed_block(void *block) {
    const int64_t size = static_cast<int64_t>(malloc_usable_size(block));
    g_live_blocks.fetch_sub(1, std::memory_order_relaxed);
    g_live_bytes.fetch_sub(size, std::memory_order_relaxed);
}

[[noreturn]] void out_of_memory(size_t size) {
    std::fprintf(stderr, "kxifcmodel: out of memory allocating %zu bytes\n", size);
    std::abort();
}

}  // namespace

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

void *mem_realloc(void *block, size_t new_size) {
    if (block == nullptr) return mem_alloc(new_size);
    count_freed_block(block);
    void *moved = std::realloc(block, new_size == 0 ? 1 : new_size);
    if (moved == nullptr) out_of_memory(new_size);
    count_new_block(moved);
    g_total_allocations.fetch_sub(1, std::memory_order_relaxed);
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
