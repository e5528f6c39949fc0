// Parallel sections: while some of the library's work runs on several
// threads at once (the second pass of a large read), shared counters such
// as instances' retain counts and the memory tallies take atomic or
// per-thread updates; outside them they take plain ones.
#pragma once

#include <atomic>
#include <cstdint>

namespace kx {

extern std::atomic<uint32_t> g_parallel_sections;

inline bool threads_parallel() { return g_parallel_sections.load(std::memory_order_relaxed) != 0; }

// Adds one to a count that other threads may add to at the same time.
inline void shared_count_add(uint32_t *count) {
    if (threads_parallel())
        std::atomic_ref<uint32_t>(*count).fetch_add(1, std::memory_order_relaxed);
    else
        ++*count;
}

// Marks a parallel section for its lifetime (made before the threads start,
// ended after they are joined).
class ParallelSection {
public:
    ParallelSection() { g_parallel_sections.fetch_add(1, std::memory_order_relaxed); }
    ~ParallelSection() { g_parallel_sections.fetch_sub(1, std::memory_order_relaxed); }
    ParallelSection(const ParallelSection &) = delete;
    ParallelSection &operator=(const ParallelSection &) = delete;
};

// The cores this machine offers (at least 1).
uint32_t threads_available();

}  // namespace kx
