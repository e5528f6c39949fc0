#define KX_UNIT "kxrealtext"
#include "support/realtext.h"

#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>

namespace kx {
namespace {

// The powers of ten a double holds exactly.
constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kMaxExactPower = 22;

// The nearest whole number to 0 <= x < 2^52, ties to even, as
// std::nearbyint gives it but without its library call: beside 2^52 a
// double has no fraction bits, so the addition itself rounds (in the
// current rounding mode, as nearbyint does) and the subtraction is exact.
inline double round_to_whole(double x) {
#if FLT_EVAL_METHOD == 0
    constexpr double kTwoToThe52 = 4503599627370496.0;
    return (x + kTwoToThe52) - kTwoToThe52;
#else
    return std::nearbyint(x);  // excess precision would round elsewhere
#endif
}

// The magnitude scaled to `significant` whole digits, rounded to an integer
// in floating point: magnitude x 10^scale rounds to `whole`, which has
// `significant` digits or is 10^significant. False when the scale needs a
// power of ten a double does not hold exactly.
struct Scaled {
    double product;  // magnitude x 10^scale, rounded once
    double whole;    // product rounded to an integer
    int scale;
};

bool scale_to_digits(double magnitude, int significant, Scaled *scaled) {
    // floor(log10(2^binary_exponent)) is the decimal exponent or one less.
    const int binary_exponent = static_cast<int>(std::bit_cast<uint64_t>(magnitude) >> 52) - 1023;
    const int estimate = (binary_exponent * 78913) >> 18;
    int scale = significant - 1 - estimate;
    if (scale < 0 || scale > kMaxExactPower) return false;
    double product = magnitude * kPowersOfTen[scale];
    if (product >= kPowersOfTen[significant]) {
        if (--scale < 0) return false;
        product = magnitude * kPowersOfTen[scale];
    }
    scaled->product = product;
    scaled->whole = round_to_whole(product);  // product < 10^15 < 2^52
    scaled->scale = scale;
    return true;
}

// 10^n for n from 0 to 19.
uint64_t power_of_ten(int n) {
    static constexpr uint64_t kPowers[] = {1ull,
                                           10ull,
                                           100ull,
                                           1000ull,
                                           10000ull,
                                           100000ull,
                                           1000000ull,
                                           10000000ull,
                                           100000000ull,
                                           1000000000ull,
                                           10000000000ull,
                                           100000000000ull,
                                           1000000000000ull,
                                           10000000000000ull,
                                           100000000000000ull,
                                           1000000000000000ull,
                                           10000000000000000ull,
                                           100000000000000000ull,
                                           1000000000000000000ull,
                                           10000000000000000000ull};
    return kPowers[n];
}

// The number of digits of a whole number that has at least `at_least`.
uint32_t digit_count(uint64_t whole, uint32_t at_least) {
    uint32_t count = at_least;
    while (count < 20 && whole >= power_of_ten(static_cast<int>(count))) count++;
    return count;
}

// The digits of whole x 10^-scale, a whole number of `count` digits (1 to
// 24), without its trailing zeros.
void set_whole_digits(uint64_t whole, uint32_t count, int scale, bool negative, DecimalDigits *out) {
    static_assert(sizeof out->digits == 24);
    out->exponent = static_cast<int>(count) - 1 - scale;
    out->negative = negative;
    if constexpr (std::endian::native != std::endian::little) {
        std::to_chars(out->digits, out->digits + sizeof out->digits, whole);
        while (count > 1 && out->digits[count - 1] == '0') count--;
        out->count = count;
        return;
    }
    // The digits in groups of eight, the lowest group last, each a word
    // whose bytes are its digits in reading order. The first group holds
    // fewer digits than eight: shifting its leading zeros out puts it at
    // the start, and every later group is stored right after the one before.
    const uint32_t groups = (count + 7) / 8;
    uint64_t group[3];
    group[groups - 1] = eight_digit_values(static_cast<uint32_t>(whole % 100000000));
    if (groups >= 2) group[groups - 2] = eight_digit_values(static_cast<uint32_t>(whole / 100000000 % 100000000));
    if (groups == 3) group[0] = eight_digit_values(static_cast<uint32_t>(whole / 10000000000000000ull));
    const uint32_t leading = 8 * groups - count;
    char *digits = out->digits;
    const uint64_t first = (group[0] | kEightZeroDigits) >> (8 * leading);
    std::memcpy(digits, &first, 8);
    for (uint32_t i = 1; i < groups; i++) {
        const uint64_t text = group[i] | kEightZeroDigits;
        std::memcpy(digits + 8 * i - leading, &text, 8);
    }
    // Trailing zero digits: the zero bytes at the high end of the last groups.
    uint32_t zeros = 0;
    for (uint32_t i = groups; i-- > 0;) {
        if (group[i] != 0) {
            zeros += static_cast<uint32_t>(std::countl_zero(group[i])) / 8;
            break;
        }
        zeros += 8;
    }
    out->count = zeros < count ? count - zeros : 1;
}

// Digits of a whole number below 2^53 with `scale`: whole x 10^-scale, of
// `significant` digits or rounded up to 10^significant.
void set_digits(double whole, int significant, int scale, bool negative, DecimalDigits *out) {
    const uint64_t integer = static_cast<uint64_t>(whole);
    set_whole_digits(integer, digit_count(integer, static_cast<uint32_t>(significant)), scale, negative, out);
}

// Reads "d.ddde+XX" as written by std::to_chars in scientific form.
void parse_scientific(const char *text, const char *end, bool negative, DecimalDigits *out) {
    uint32_t count = 0;
    const char *c = text;
    for (; c < end && *c != 'e'; c++)
        if (*c != '.') out->digits[count++] = *c;
    int exponent = 0;
    if (c < end) {
        c++;
        if (*c == '+') c++;
        std::from_chars(c, end, exponent);
    }
    while (count > 1 && out->digits[count - 1] == '0') count--;
    out->count = count;
    out->exponent = exponent;
    out->negative = negative;
}

#ifdef __SIZEOF_INT128__
__extension__ typedef unsigned __int128 Uint128;

// Which of two multiples of `step` is nearer to x = whole + fraction / 2^shift
// (0 <= fraction < 2^shift), the lower one being whole - offset with
// offset < step: -1 lower, 1 upper, 0 a tie.
int nearer_multiple(uint64_t offset, uint64_t step, Uint128 fraction, int shift) {
    // The lower one is nearer when 2 x (offset + fraction / 2^shift) < step.
    if (2 * offset + 2 <= step) return -1;
    if (2 * offset > step) return 1;
    if (2 * offset == step) return fraction == 0 ? 0 : 1;
    const Uint128 half = Uint128{1} << (shift - 1);  // 2 offset + 1 == step
    return fraction < half ? -1 : (fraction > half ? 1 : 0);
}

// The shortest digits by exact integer arithmetic, for doubles from 1e-6 up
// to 2^53 that need sixteen or seventeen digits: every decimal between the
// midpoints to the neighbouring doubles reads back to this one (the
// midpoints themselves when the mantissa is even). The value scaled to
// seventeen whole digits, and those midpoints, are exact 128-bit integers
// over a power of two. False where it does not apply or meets a tie.
bool shortest_exact(double magnitude, bool negative, DecimalDigits *out) {
    const uint64_t bits = std::bit_cast<uint64_t>(magnitude);
    const int biased_exponent = static_cast<int>(bits >> 52);
    const uint64_t fraction_bits = bits & ((uint64_t{1} << 52) - 1);
    // A power of two has a nearer neighbour below: left to the library.
    if (fraction_bits == 0 || biased_exponent == 0) return false;
    const uint64_t mantissa = fraction_bits | (uint64_t{1} << 52);
    const int shift = 1 - (biased_exponent - 1075);  // magnitude = 2 mantissa / 2^shift
    constexpr int kDigits = 17;
    const int binary_exponent = biased_exponent - 1023;
    const int scale = kDigits - 1 - ((binary_exponent * 78913) >> 18);  // at most one too many
    // 10^scale below 2^74 keeps the products below 2^128.
    if (shift <= 0 || shift >= 100 || scale < 0 || scale > 22) return false;
    // Midpoints and value in units of 10^-scale, times 2^shift.
    const int first_factor = scale < 19 ? scale : 19;
    const Uint128 power = static_cast<Uint128>(power_of_ten(first_factor)) * power_of_ten(scale - first_factor);
    const Uint128 lower = (2 * mantissa - 1) * power;
    const Uint128 upper = (2 * mantissa + 1) * power;
    const Uint128 value = 2 * mantissa * power;
    const Uint128 remainder_mask = (Uint128{1} << shift) - 1;
    const bool inclusive = (mantissa & 1) == 0;
    uint64_t low = static_cast<uint64_t>(lower >> shift);
    if ((lower & remainder_mask) != 0 || !inclusive) low++;
    uint64_t high = static_cast<uint64_t>(upper >> shift);
    if ((upper & remainder_mask) == 0 && !inclusive) high--;
    const uint64_t whole = static_cast<uint64_t>(value >> shift);
    // The widest step of which a multiple lies between the midpoints.
    uint64_t step = 1;
    int zeros = 0;
    while (zeros < kDigits && (high / (step * 10)) * (step * 10) >= low) {
        step *= 10;
        zeros++;
    }
    const uint64_t below = (whole / step) * step;
    const int nearer = nearer_multiple(whole - below, step, value & remainder_mask, shift);
    if (nearer == 0) return false;
    uint64_t chosen = nearer < 0 ? below : below + step;
    if (chosen < low) chosen += step;
    if (chosen > high) chosen -= step;
    if (chosen < low || chosen > high) return false;
    set_whole_digits(chosen, digit_count(chosen, kDigits - 1), scale, negative, out);
    return true;
}
#endif

void set_zero(bool negative, DecimalDigits *out) {
    out->digits[0] = '0';
    out->count = 1;
    out->exponent = 0;
    out->negative = negative;
}

}  // namespace

void decimal_round(double value, int significant, DecimalDigits *out) {
    const bool negative = std::signbit(value);
    const double magnitude = std::fabs(value);
    if (magnitude == 0.0) return set_zero(negative, out);
    // Scaled in floating point, the product is off the exact one by at most
    // half a unit in its last place; away from a half it rounds the same.
    Scaled scaled;
    if (significant <= 15 && std::isnormal(magnitude) && scale_to_digits(magnitude, significant, &scaled)) {
        // 0.5 minus the distance to the nearest whole number: exact, and the
        // same as |product - floor(product) - 0.5|.
        const double distance_from_half = 0.5 - std::fabs(scaled.product - scaled.whole);
        if (distance_from_half > scaled.product * 4.5e-16)
            return set_digits(scaled.whole, significant, scaled.scale, negative, out);
    }
    char text[48];
    const char *end =
        std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific, significant - 1).ptr;
    parse_scientific(text, end, negative, out);
}

void decimal_shortest(double value, DecimalDigits *out) {
    const bool negative = std::signbit(value);
    const double magnitude = std::fabs(value);
    if (magnitude == 0.0) return set_zero(negative, out);
    // Two different decimals of at most 15 digits never read back to the
    // same double, so one of them that does is the shortest there is. The
    // check is exact: the whole number and the power of ten are exact
    // doubles and their quotient is rounded once, as reading it would be.
    constexpr int kUniqueDigits = 15;
    Scaled scaled;
    if (std::isnormal(magnitude) && scale_to_digits(magnitude, kUniqueDigits, &scaled) &&
        scaled.whole / kPowersOfTen[scaled.scale] == magnitude)
        return set_digits(scaled.whole, kUniqueDigits, scaled.scale, negative, out);
#ifdef __SIZEOF_INT128__
    if (shortest_exact(magnitude, negative, out)) return;
#endif
    char text[48];
    const char *end = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific).ptr;
    parse_scientific(text, end, negative, out);
}

namespace {

// Digits and runs of zeros go out eight bytes at a time, which inlines to
// a few stores where a call to memcpy or memset would cost more than the
// copy: up to seven bytes past the end are written over.
char *put_digits(char *out, const char *digits, int32_t count) {
    for (int32_t i = 0; i < count; i += 8) std::memcpy(out + i, digits + i, 8);
    return out + count;
}

char *put_zeros(char *out, int32_t count) {
    for (int32_t i = 0; i < count; i += 8) std::memcpy(out + i, "00000000", 8);
    return out + count;
}

}  // namespace

uint32_t decimal_put(const DecimalDigits &decimal, bool plain, char *out) {
    static_assert(sizeof decimal.digits >= 17 + 7);  // reads stay inside the digits
    char *c = out;
    if (decimal.negative) *c++ = '-';
    const char *digits = decimal.digits;
    const int32_t count = static_cast<int32_t>(decimal.count);
    const int32_t exponent = decimal.exponent;
    if (!plain) {
        *c++ = digits[0];
        *c++ = '.';
        c = put_digits(c, digits + 1, count - 1);
        *c++ = 'E';
        *c++ = exponent < 0 ? '-' : '+';
        const int32_t magnitude = exponent < 0 ? -exponent : exponent;
        if (magnitude < 10) *c++ = '0';
        c = std::to_chars(c, c + 4, magnitude).ptr;
    } else if (exponent < 0) {
        *c++ = '0';
        *c++ = '.';
        c = put_zeros(c, -exponent - 1);
        c = put_digits(c, digits, count);
    } else {
        const int32_t whole_digits = exponent + 1;
        if (count <= whole_digits) {
            c = put_digits(c, digits, count);
            c = put_zeros(c, whole_digits - count);
            *c++ = '.';
        } else {
            c = put_digits(c, digits, whole_digits);
            *c++ = '.';
            c = put_digits(c, digits + whole_digits, count - whole_digits);
        }
    }
    return static_cast<uint32_t>(c - out);
}

}  // namespace kx
