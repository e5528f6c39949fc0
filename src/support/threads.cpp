#define KX_UNIT "kxthreads"
#include "support/threads.h"

#include <thread>

namespace kx {

std::atomic<uint32_t> g_parallel_sections{0};

uint32_t threads_available() {
    const unsigned cores = std::thread::hardware_concurrency();
    return cores > 0 ? cores : 1;
}

}  // namespace kx
