#define KX_UNIT "kxassert"
#include "support/assert.h"

#include <atomic>
#include <cstdio>

#include "kxifc_diagnostics.h"

namespace kx {
namespace {

// The sink is diagnostic configuration set by the host or a test harness.
std::atomic<kxAssertSink> g_sink{nullptr};
std::atomic<void *> g_sink_user{nullptr};
std::atomic<uint64_t> g_report_count{0};

void report_to_stderr(const char *condition, const char *source, uint32_t line) {
    std::fprintf(stderr, "kxifcmodel: assertion failed: \"%s\" in %s, line %u\n", condition,
                 source, line);
}

}  // namespace

int32_t assert_report(const char *condition, const char *source, uint32_t line) {
    g_report_count.fetch_add(1, std::memory_order_relaxed);
    kxAssertSink sink = g_sink.load(std::memory_order_acquire);
    if (sink != nullptr)
        sink(g_sink_user.load(std::memory_order_acquire), condition, source, line);
    else
        report_to_stderr(condition, source, line);
    return 0;
}

}  // namespace kx

extern "C" KX_API void kxDiagnostics_set_assert_sink(kxAssertSink sink, void *user_data) {
    kx::g_sink_user.store(user_data, std::memory_order_release);
    kx::g_sink.store(sink, std::memory_order_release);
}

extern "C" KX_API uint64_t kxDiagnostics_assert_count(void) {
    return kx::g_report_count.load(std::memory_order_relaxed);
}
