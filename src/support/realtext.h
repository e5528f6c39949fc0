// Reals as decimal digits and as the text of an exchange file. Both text
// modes take their digits here (rounded to a number of significant digits,
// or the fewest that read back exactly) and lay them out through one
// function, plain or with an exponent. Internal to the library.
#pragma once

#include <cstdint>

namespace kx {

// Writes the decimal digits of a whole number and returns their end. Up to
// eight bytes past the end may be written over: `out` needs room for 10.
char *put_decimal(uint32_t value, char *out);

// A finite real as significant digits: d1.d2d3... x 10^exponent.
struct DecimalDigits {
    char digits[24];  // no trailing zeros; "0" for zero
    uint32_t count;
    int32_t exponent;
    bool negative;
};

// The value rounded to `significant` digits (1 to 17) the way printf's
// "%.*E" rounds it (to nearest, ties to even).
void decimal_round(double value, int significant, DecimalDigits *out);
// The fewest digits that read back to the same double, the nearest of them
// when several do (what std::to_chars gives).
void decimal_shortest(double value, DecimalDigits *out);

// Room decimal_put needs for any finite double in either layout.
constexpr uint32_t kDecimalTextSize = 340;
// Writes the digits as a real that always holds a point: plain ("-12.5",
// "0.001", "300.") or with an exponent of at least two digits ("1.5E-07",
// "1.E+20"). Returns the characters written.
uint32_t decimal_put(const DecimalDigits &decimal, bool plain, char *out);

}  // namespace kx
