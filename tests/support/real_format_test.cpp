// The exchange-file form of reals: zero below 1e-08, whole numbers as "n.",
// ten significant digits inside the 32-bit range, "%.1f" or twelve digits
// outside it, and always a decimal point.
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>

#include "support/writedata.h"
#include "support/memory.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

using RealFormatTest = kxtest::LibraryTest;

std::string format(double value) {
    char16_t *text = kxIfcWriteData_format_real(value);
    char *utf8 = kx::wstr_to_utf8(text);
    std::string result(utf8);
    kx::mem_free(utf8);
    kx::wstr_destroy(&text);
    return result;
}

const std::pair<double, const char *> kFormats[] = {
    // Tiny values and negative zero are zero; 1e-08 itself is not below the
    // limit.
    {0.0, "0."}, {-0.0, "0."}, {1e-9, "0."}, {-1e-9, "0."}, {9.9e-9, "0."}, {1e-8, "1.E-08"},
    // Whole numbers inside the 32-bit range (or within 1e-08 of one) end
    // with a dot.
    {2.0, "2."}, {-120.0, "-120."}, {2500.0, "2500."}, {3.000000000001, "3."}, {-2.999999999999, "-3."},
    {2147483647.0, "2147483647."}, {-2147483648.0, "-2147483648."},
    // Fractions inside the range take ten digits, then the point is added;
    // glibc prints two exponent digits.
    {-0.5, "-0.5"}, {2.5, "2.5"}, {0.1, "0.1"}, {1.0 / 3.0, "0.3333333333"}, {123456789.123, "123456789.1"},
    {3.00000002, "3.00000002"}, {2147483646.7, "2147483647."}, {1.23456789e-7, "1.23456789E-07"},
    {1e-5, "1.E-05"}, {-2.5e-7, "-2.5E-07"},
    // Outside the range: "%.1f" within 0.10001 of a whole number (every
    // double that large is whole), else twelve digits; when those drop the
    // half, %G leaves no point and one goes before the exponent.
    {1.0e20, "100000000000000000000.0"}, {-1.5e20, "-150000000000000000000.0"}, {4294967296.0, "4294967296.0"},
    {2147483648.0, "2147483648.0"}, {-2147483649.0, "-2147483649.0"}, {3000000000.04, "3000000000.0"},
    {3000000000.1, "3000000000.1"}, {3000000000.5, "3000000000.5"}, {-3000000000.25, "-3000000000.25"},
    {1e15 + 0.5, "1.E+15"}, {1234567890123.5, "1.23456789012E+12"},
    {std::numeric_limits<double>::infinity(), "INF."}, {-std::numeric_limits<double>::infinity(), "-INF."},
};

TEST_F(RealFormatTest, EachRangeHasItsForm) {
    for (const auto &[value, text] : kFormats) EXPECT_EQ(format(value), text) << value;
    const std::string huge = format(1e300);
    ASSERT_EQ(huge.size(), 303u);
    EXPECT_EQ(huge.substr(0, 4), "1000");
    EXPECT_EQ(huge.substr(huge.size() - 2), ".0");
    const std::string largest = format(std::numeric_limits<double>::max());
    EXPECT_EQ(largest.size(), 311u);
    EXPECT_EQ(largest.substr(0, 6), "179769");
}

// The ten- and twelve-digit forms are those of printf's %.10G / %.12G in
// the "C" locale, completed with a point.
std::string printf_reference(double value, int precision) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*G", precision, value);
    std::string result(text);
    const size_t point = result.find('.');
    const size_t exponent = result.find('E');
    if (point != std::string::npos && (exponent == std::string::npos || point < exponent))
        return result;
    if (exponent != std::string::npos) return result.insert(exponent, 1, '.');
    return result + ".";
}

TEST_F(RealFormatTest, MatchesPrintfGeneralForm) {
    uint64_t state = 0x9E3779B97F4A7C15ull;
    auto next = [&state]() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    for (int i = 0; i < 20000; i++) {
        // Mantissas with fractions over many magnitudes, both signs.
        const double mantissa = static_cast<double>(next() % 1000000007ull) / 1000000007.0 + 0.01;
        const int exponent = static_cast<int>(next() % 30) - 12;
        const double value = (next() & 1 ? -1.0 : 1.0) * mantissa * std::pow(10.0, exponent);
        if (std::fabs(value) < 1e-8) continue;
        if (std::fabs(value) <= 2147483647.0) {
            if (std::fabs(std::round(value) - value) < 1e-8) continue;
            ASSERT_EQ(format(value), printf_reference(value, 10)) << value;
        } else if (std::fabs(std::round(value) - value) >= 0.10001) {
            ASSERT_EQ(format(value), printf_reference(value, 12)) << value;
        }
    }
}

}  // namespace
