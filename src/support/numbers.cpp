#define KX_UNIT "kxnumbers"
#include "support/numbers.h"

#include <cfloat>
#include <cmath>

#include "support/assert.h"

namespace kx {
namespace {

int hex_digit_value(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

}  // namespace

int ulong_compare(const void *a, const void *b) {
    kx_assert_not_null(a);
    kx_assert_not_null(b);
    if (a == nullptr || b == nullptr) return 0;
    const uint32_t left = *static_cast<const uint32_t *>(a);
    const uint32_t right = *static_cast<const uint32_t *>(b);
    return left < right ? -1 : (left > right ? 1 : 0);
}

double number_round_decimals(double value, int32_t decimals) {
    if (!std::isfinite(value)) return value;
    if (decimals > 300 || decimals < -300) return value;
    const double scale = std::pow(10.0, decimals);
    const double scaled = value * scale;
    // Beyond 2^52 a double has no fractional digits left to round.
    if (!std::isfinite(scaled) || std::fabs(scaled) >= 4503599627370496.0) return value;
    // Nudge by a few units in the last place so that 2.675 (stored as
    // 2.67499999...) rounds to 2.68 as it reads.
    const double nudge = std::fabs(scaled) * 4 * DBL_EPSILON;
    const double rounded = std::round(scaled + std::copysign(nudge, scaled));
    const double result = rounded / scale;
    return std::isfinite(result) ? result : value;
}

int32_t number_round_to_long(double value) {
    if (std::isnan(value)) return 0;
    // From 2^52 on every double is a whole number already.
    const double rounded = std::fabs(value) < 4503599627370496.0 ? number_round_small(value) : value;
    if (rounded >= 2147483647.0) return INT32_MAX;
    if (rounded <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(rounded);
}

uint32_t number_hex_to_ulong(const char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return 0;
    uint32_t value = 0;
    for (const char16_t *c = text; *c != u'\0'; c++) {
        const int digit = hex_digit_value(*c);
        const bool is_hex_digit = digit >= 0;
        kx_assert(is_hex_digit);
        if (!is_hex_digit) break;
        value = (value << 4) | static_cast<uint32_t>(digit);
    }
    return value;
}

uint32_t number_pointer_to_ulong(const void *pointer) {
    const uint64_t bits = reinterpret_cast<uintptr_t>(pointer);
    return static_cast<uint32_t>(bits ^ (bits >> 32));
}

}  // namespace kx
