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
// Parses hexadecimal digits (either case). A character that is not one is
// reported and ends the number; digits past 32 bits shift out the top.
uint32_t number_hex_to_ulong(const char16_t *text);
// A pointer's value folded to 32 bits, for use as a key.
uint32_t number_pointer_to_ulong(const void *pointer);

}  // namespace kx
