// Number helpers: rounding, hexadecimal text, pointers as keys.
#pragma once

#include <cstdint>

#include "support/types.h"

namespace kx {

// The value rounded to `decimals` decimal places (negative: to tens,
// hundreds...), halves away from zero. A value seen in decimal as ending in 5
// rounds away from zero even when its binary form lies a hair below the half.
// Values too large to have such decimals come back unchanged.
double number_round_decimals(double value, int32_t decimals);
// The nearest long, halves away from zero; clamped to the long range, NaN
// gives 0.
int32_t number_round_to_long(double value);
// The nearest whole number to a value below 2^52 in magnitude, halves away
// from zero: std::round without its library call, for the paths that
// format every real of a file. The truncation and the fraction it leaves
// are exact.
inline double number_round_small(double value) {
    const double truncated = static_cast<double>(static_cast<int64_t>(value));
    const double fraction = value - truncated;
    if (fraction >= 0.5) return truncated + 1.0;
    if (fraction <= -0.5) return truncated - 1.0;
    return truncated;
}
// Parses hexadecimal digits (either case). A character that is not one is
// reported and ends the number; digits past 32 bits shift out the top.
uint32_t number_hex_to_ulong(const char16_t *text);
// A pointer's value folded to 32 bits, for use as a key.
uint32_t number_pointer_to_ulong(const void *pointer);

}  // namespace kx
