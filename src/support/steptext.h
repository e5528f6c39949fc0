// The full text rules of exchange-file values, for the lossless mode:
// strings decoded by every directive of ISO 10303-21 and encoded so that
// they read back identically, reals in their shortest exact form.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kxifc_files.h"

namespace kx {

// The first problem met while decoding a string, and how many there were.
struct StringIssue {
    kxReadCode code = 0;      // KX_READ_MALFORMED_ESCAPE or KX_READ_NUL_IN_STRING
    uint32_t offset = 0;      // code units into the string's text
    uint32_t count = 0;
    bool warnings_wanted = true;  // else only what loses data is looked for
};

// Decodes the text between a string's quotes ('' still doubled): "\\",
// "\X\hh", "\X2\...\X0\" and "\X4\...\X0\" groups of any length, "\S\c"
// under the code page of the last "\Px\" (A to I: ISO 8859-1 to 9). A
// malformed directive is kept literally and a NUL is dropped; both are noted.
char16_t *step_decode_string(const char16_t *text, size_t length, StringIssue *issue);

// The characters a code unit below 0x80 takes in an encoded string:
// printable ASCII one, "'" and "\" two (doubled), control characters 12
// (a \X2\hhhh\X0\ group of their own). Both text modes encode by it.
inline constexpr auto kStepAsciiWidths = [] {
    std::array<uint8_t, 128> widths{};
    for (uint32_t c = 0; c < 128; c++) widths[c] = c < 0x20 || c > 0x7E ? 12 : 1;
    widths['\''] = 2;
    widths['\\'] = 2;
    return widths;
}();

// Copies the leading code units of the text that are written as themselves
// (printable ASCII but "'" and "\") as bytes, eight at a time where the
// processor allows, and returns how many it copied: at most `length`, and
// perhaps fewer than the whole run (the encoders go on from there).
size_t step_copy_plain_prefix(const char16_t *text, size_t length, char *out);

// Room `step_encode_string` needs for a text of `units` code units.
inline size_t step_encoded_bound(size_t units) { return units * 12 + 2; }
// Writes the text encoded, without quotes: printable ASCII as itself ("'"
// and "\" doubled), every run of other code units as one "\X2\...\X0\"
// group. Returns the bytes written. Char is char or char16_t.
template <typename Char>
size_t step_encode_string(const char16_t *text, Char *out);

// Room `step_format_real_shortest` needs.
constexpr size_t kShortestRealSize = 40;
// The shortest text that reads back to the same finite double, as a STEP
// real: always a ".", an exponent "E" with its sign ("1.E-09", "-0.",
// "5.00000001012284", "1.7976931348623157E+308"). Returns its length.
uint32_t step_format_real_shortest(double value, char *out);

}  // namespace kx
