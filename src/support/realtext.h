// Reals as decimal digits and as the text of an exchange file. Both text
// modes take their digits here (rounded to a number of significant digits,
// or the fewest that read back exactly) and lay them out through one
// function, plain or with an exponent. Internal to the library.
#pragma once

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace kx {

// The eight decimal digits of a number below 10^8, leading zeros
// included, as the bytes of a word (digit values, not yet characters), by
// a few multiplications on all of them at once: the number is split in two
// halves of four digits, each of them in two pairs, each of those in two
// digits, every split a multiply-and-shift division in its own lane of the
// word (exact for the ranges each lane holds). Lanes are laid out so that
// the bytes of the word, lowest first, are the digits in reading order.
inline uint64_t eight_digit_values(uint32_t value) {
    const uint64_t halves = (value / 10000) | (static_cast<uint64_t>(value % 10000) << 32);
    const uint64_t hundreds = ((halves * 10486) >> 20) & 0x0000007F0000007Full;  // lane / 100
    const uint64_t pairs = hundreds | ((halves - hundreds * 100) << 16);
    const uint64_t tens = ((pairs * 103) >> 10) & 0x000F000F000F000Full;  // lane / 10
    return tens | ((pairs - tens * 10) << 8);
}

constexpr uint64_t kEightZeroDigits = 0x3030303030303030ull;  // '0' in each byte

// Writes the decimal digits of a whole number and returns their end. Up to
// eight bytes past the end may be written over: `out` needs room for 10.
inline char *put_decimal(uint32_t value, char *out) {
    if (std::endian::native != std::endian::little || value >= 100000000)
        return std::to_chars(out, out + 10, value).ptr;
    // Leading zero digits are the zero bytes at the low end of the word.
    const uint64_t digits = eight_digit_values(value);
    const int leading = digits == 0 ? 7 : std::countr_zero(digits) / 8;
    const uint64_t text = (digits | kEightZeroDigits) >> (8 * leading);
    std::memcpy(out, &text, 8);
    return out + 8 - leading;
}

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
// "1.E+20"). Returns the characters written; up to seven bytes past them
// may be written over (kDecimalTextSize and kShortestRealSize leave room).
uint32_t decimal_put(const DecimalDigits &decimal, bool plain, char *out);

}  // namespace kx
