// The exchange-file form of reals: zero below 1e-08, whole numbers as "n.",
// ten significant digits inside the 32-bit range, "%.1f" or twelve digits
// outside it, and always a decimal point.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

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

TEST_F(RealFormatTest, TinyValuesAndNegativeZeroAreZero) {
    EXPECT_EQ(format(0.0), "0.");
    EXPECT_EQ(format(-0.0), "0.");
    EXPECT_EQ(format(1e-9), "0.");
    EXPECT_EQ(format(-1e-9), "0.");
    EXPECT_EQ(format(9.9e-9), "0.");
    // 1e-08 itself is not below the limit.
    EXPECT_EQ(format(1e-8), "1.E-08");
}

TEST_F(RealFormatTest, WholeNumbersInsideTheLongRangeEndWithADot) {
    EXPECT_EQ(format(2.0), "2.");
    EXPECT_EQ(format(-120.0), "-120.");
    EXPECT_EQ(format(2500.0), "2500.");
    EXPECT_EQ(format(3.000000000001), "3.");  // within 1e-08 of 3
    EXPECT_EQ(format(-2.999999999999), "-3.");
    EXPECT_EQ(format(2147483647.0), "2147483647.");
    EXPECT_EQ(format(-2147483648.0), "-2147483648.");
}

TEST_F(RealFormatTest, FractionsInsideTheLongRangeTakeTenDigits) {
    EXPECT_EQ(format(-0.5), "-0.5");
    EXPECT_EQ(format(2.5), "2.5");
    EXPECT_EQ(format(0.1), "0.1");
    EXPECT_EQ(format(1.0 / 3.0), "0.3333333333");
    EXPECT_EQ(format(123456789.123), "123456789.1");
    EXPECT_EQ(format(3.00000002), "3.00000002");
    EXPECT_EQ(format(2147483646.7), "2147483647.");  // ten digits, then the point added
    EXPECT_EQ(format(1.23456789e-7), "1.23456789E-07");
    // glibc prints two exponent digits (the spelled-out form on a runtime
    // with three would be "1.E-005").
    EXPECT_EQ(format(1e-5), "1.E-05");
    EXPECT_EQ(format(-2.5e-7), "-2.5E-07");
}

TEST_F(RealFormatTest, ValuesOutsideTheLongRange) {
    EXPECT_EQ(format(1.0e20), "100000000000000000000.0");  // every double that large is whole
    EXPECT_EQ(format(-1.5e20), "-150000000000000000000.0");
    EXPECT_EQ(format(4294967296.0), "4294967296.0");
    EXPECT_EQ(format(2147483648.0), "2147483648.0");
    EXPECT_EQ(format(-2147483649.0), "-2147483649.0");
    EXPECT_EQ(format(3000000000.04), "3000000000.0");  // within 0.10001 of a whole number
    EXPECT_EQ(format(3000000000.1), "3000000000.1");
    EXPECT_EQ(format(3000000000.5), "3000000000.5");    // twelve digits
    EXPECT_EQ(format(-3000000000.25), "-3000000000.25");
    // Twelve significant digits drop the half; %G then leaves no point and
    // the completion puts one before the exponent.
    EXPECT_EQ(format(1e15 + 0.5), "1.E+15");
    EXPECT_EQ(format(1234567890123.5), "1.23456789012E+12");
}

TEST_F(RealFormatTest, HugeAndInfiniteValues) {
    const std::string text = format(1e300);
    ASSERT_EQ(text.size(), 303u);
    EXPECT_EQ(text.substr(0, 4), "1000");
    EXPECT_EQ(text.substr(text.size() - 2), ".0");
    const std::string largest = format(std::numeric_limits<double>::max());
    EXPECT_EQ(largest.size(), 311u);
    EXPECT_EQ(largest.substr(0, 6), "179769");
    EXPECT_EQ(format(std::numeric_limits<double>::infinity()), "INF.");
    EXPECT_EQ(format(-std::numeric_limits<double>::infinity()), "-INF.");
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
