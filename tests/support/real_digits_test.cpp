// The digits of reals: the rounded and the shortest digits agree with the
// standard library's on values where the quick scaling decides and on
// values where it must not (halves, seventeen-digit values, extremes).
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "support/realtext.h"
#include "test_support.h"

namespace {

// "-125e-3": the sign, the digits and the exponent of the first digit.
std::string digits_text(bool negative, const std::string &digits, int exponent) {
    std::string text = negative ? "-" : "";
    text.append(digits).append("e").append(std::to_string(exponent));
    return text;
}

std::string digits_text(const kx::DecimalDigits &decimal) {
    return digits_text(decimal.negative, std::string(decimal.digits, decimal.count), decimal.exponent);
}

// The library's scientific text as digits without trailing zeros and an exponent.
std::string reference(const char *text_end, const char *text) {
    std::string digits;
    const char *c = text;
    bool negative = false;
    if (*c == '-') {
        negative = true;
        c++;
    }
    for (; c < text_end && *c != 'e'; c++)
        if (*c != '.') digits += *c;
    while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
    int exponent = 0;
    if (c < text_end) std::from_chars(c[1] == '+' ? c + 2 : c + 1, text_end, exponent);
    return digits_text(negative, digits, exponent);
}

std::string reference_shortest(double value) {
    char text[64];
    return reference(std::to_chars(text, text + 64, value, std::chars_format::scientific).ptr, text);
}

std::string reference_rounded(double value, int significant) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", significant - 1, value);
    return reference(text + std::char_traits<char>::length(text), text);
}

TEST(RealDigitsTest, AgreeWithTheStandardLibrary) {
    std::mt19937_64 random(11);
    std::vector<double> values = {1.0, 0.1, 0.5, 2.5, 1e15, 1e15 - 1, 1e-5, 9.999999999e-5, 123456789.5,
                                  0.30000000000000004, 1e22, 1e23, 5e-324, 1.7976931348623157e308, -0.0};
    for (int i = 0; i < 100000; i++) {
        values.push_back(std::bit_cast<double>(random()));
        // Short decimals of every length, and their neighbours.
        const int digits = 1 + static_cast<int>(random() % 17);
        char text[48];
        std::snprintf(text, sizeof text, "%llue%d",
                      static_cast<unsigned long long>(random() % static_cast<uint64_t>(std::pow(10.0, digits))),
                      static_cast<int>(random() % 50) - 30);
        const double value = std::strtod(text, nullptr);
        values.insert(values.end(), {value, std::nextafter(value, 1e300), std::nextafter(value, -1e300)});
        // Exact halves at the tenth digit.
        values.push_back(static_cast<double>(random() % 100000000000ull) + 0.5);
    }
    for (double value : values) {
        if (!std::isfinite(value)) continue;
        kx::DecimalDigits decimal;
        kx::decimal_shortest(value, &decimal);
        ASSERT_EQ(digits_text(decimal), reference_shortest(value));
        for (int significant : {10, 12, 15}) {
            kx::decimal_round(value, significant, &decimal);
            ASSERT_EQ(digits_text(decimal), reference_rounded(value, significant)) << significant;
        }
    }
}

}  // namespace
