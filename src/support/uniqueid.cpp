#define KX_UNIT "kxuniqueid"
#include "support/uniqueid.h"

#include <atomic>

#include "support/assert.h"

namespace kx {
namespace {

// The one piece of process-wide mutable state the library keeps.
std::atomic<uint32_t> g_last_id{0};

}  // namespace

uint32_t uniqueid_new() {
    uint32_t id = g_last_id.fetch_add(1, std::memory_order_relaxed) + 1;
    // After 2^32 - 1 ids the counter wraps; 0 stays reserved for "no id".
    while (id == 0) id = g_last_id.fetch_add(1, std::memory_order_relaxed) + 1;
    return id;
}

}  // namespace kx
