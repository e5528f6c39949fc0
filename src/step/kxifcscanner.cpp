#define KX_UNIT "kxifcscanner"
#include "step/scanner.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "support/realtext.h"

namespace kx {
namespace {

// Character classes, one table look-up each.
enum : uint8_t { DIGIT = 1, LETTER = 2, WORD = 4, HEX = 8 };

constexpr std::array<uint8_t, 256> make_classes() {
    std::array<uint8_t, 256> classes{};
    for (int c = '0'; c <= '9'; c++) classes[c] = DIGIT | WORD | HEX;
    for (int c = 'A'; c <= 'Z'; c++) classes[c] = LETTER | WORD | (c <= 'F' ? HEX : 0);
    for (int c = 'a'; c <= 'z'; c++) classes[c] = LETTER | WORD | (c <= 'f' ? HEX : 0);
    classes['_'] = WORD;
    return classes;
}
constexpr std::array<uint8_t, 256> kClasses = make_classes();

inline bool is(char c, uint8_t wanted) { return (kClasses[static_cast<unsigned char>(c)] & wanted) != 0; }
inline bool is_digit(char c) { return is(c, DIGIT); }
inline bool is_letter(char c) { return is(c, LETTER); }
inline bool is_word_char(char c) { return is(c, WORD); }
inline bool is_hex_digit(char c) { return is(c, HEX); }
inline char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

bool equal_nocase(const char *text, size_t length, const char *word) {
    const size_t word_length = std::strlen(word);
    if (length != word_length) return false;
    for (size_t i = 0; i < length; i++)
        if (upper(text[i]) != word[i]) return false;
    return true;
}

// Whether the text at p starts with `word` (letters compared without case).
bool starts_with_nocase(const char *p, const char *end, const char *word) {
    for (; *word != '\0'; word++, p++)
        if (p >= end || upper(*p) != *word) return false;
    return true;
}

void new_line(Scanner *scanner, const char *next) {
    scanner->line++;
    scanner->line_start = next;
}

// Skips blanks, line ends and comments. A carriage return counts as a line
// end of its own, except directly before a line feed.
void skip_space(Scanner *scanner) {
    const char *p = scanner->cursor;
    const char *end = scanner->end;
    while (p < end) {
        const char c = *p;
        if (c == ' ' || c == '\t') {
            p++;
        } else if (c == '\n') {
            new_line(scanner, ++p);
        } else if (c == '\r') {
            p++;
            if (p < end && *p == '\n') p++;
            new_line(scanner, p);
        } else if (c == '/' && p + 1 < end && p[1] == '*') {
            p += 2;
            while (p < end && !(*p == '*' && p + 1 < end && p[1] == '/')) {
                if (*p == '\n') new_line(scanner, p + 1);
                p++;
            }
            p = p < end ? p + 2 : end;  // end of input inside a comment ends it
        } else {
            break;
        }
    }
    scanner->cursor = p;
}

const double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                               1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr auto kWholePowers = [] {  // 10^0 to 10^19, every power a uint64_t holds
    std::array<uint64_t, 20> powers{};
    powers[0] = 1;
    for (size_t i = 1; i < powers.size(); i++) powers[i] = powers[i - 1] * 10;
    return powers;
}();

// Digits are read eight at a time from a word holding eight bytes of text,
// the first byte in its lowest bits (as the writer lays them out).

uint64_t text_word(const char *p) {
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    return word;
}

// How many of a word's bytes, from its first, are decimal digits. A byte
// below '0' borrows from the bytes after it, and a byte above '9' carries
// into them, but never into the bytes before it, so the first flag is right.
size_t leading_digits(uint64_t word) {
    const uint64_t offsets = word - kEightZeroDigits;
    const uint64_t flags = (offsets | (offsets + 0x7676767676767676ull)) & 0x8080808080808080ull;
    return flags == 0 ? 8 : static_cast<size_t>(std::countr_zero(flags)) / 8;
}

// The value of a word's first `count` bytes (1 to 8), all digits: shifted so
// that they are the last digits of eight, then combined in pairs, fours, eight.
uint64_t leading_digits_value(uint64_t word, size_t count) {
    uint64_t digits = (word - kEightZeroDigits) << (8 * (8 - count));
    digits = digits * 10 + (digits >> 8);
    digits = ((digits & 0x000000FF000000FFull) * (100 + (1000000ull << 32)) +
              ((digits >> 16) & 0x000000FF000000FFull) * (1 + (10000ull << 32))) >> 32;
    return digits;
}

// A run of decimal digits: where it stops, and its value when it has at
// most 19 digits (longer runs wrap around).
struct DigitRun {
    const char *stop;
    uint64_t value;
};

[[gnu::always_inline]] inline DigitRun scan_digits(const char *p, const char *end) {
    uint64_t value = 0;
    for (; end - p >= 8; p += 8) {
        const uint64_t word = text_word(p);
        const size_t count = leading_digits(word);
        if (count == 0) return {p, value};
        value = value * kWholePowers[count] + leading_digits_value(word, count);
        if (count < 8) return {p + count, value};
    }
    for (; p < end && is_digit(*p); p++) value = value * 10 + static_cast<uint64_t>(*p - '0');
    return {p, value};
}

size_t run_length(const char *start, const DigitRun &run) { return static_cast<size_t>(run.stop - start); }

// A real through the standard conversion (no leading '+' there), for what
// the fast path cannot convert exactly.
double standard_real_value(const char *text, size_t length) {
    const char *start = text;
    const char *stop = text + length;
    if (start < stop && *start == '+') start++;
    double value = 0.0;
    if (std::from_chars(start, stop, value).ec == std::errc::result_out_of_range) {
        // Beyond the range of a double: infinity or zero, as strtod gives.
        char copy[512];
        const size_t n = std::min(static_cast<size_t>(stop - start), sizeof copy - 1);
        std::memcpy(copy, start, n);
        copy[n] = '\0';
        value = std::strtod(copy, nullptr);
    }
    return value;
}

// The explicit exponent of a real, its magnitude capped (far beyond any
// double's range), starting after the 'E'; *stop stays put when it has no digits.
int scan_exponent(const char *p, const char *end, const char **stop) {
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
    const char *digits_start = p;
    int exponent = 0;
    for (; p < end && is_digit(*p); p++)
        if (exponent < 100000) exponent = exponent * 10 + (*p - '0');
    if (p > digits_start) *stop = p;
    return negative ? -exponent : exponent;
}

// Scans a number starting at p, an integer or a real (sign, digits, point,
// digits, exponent; longest match), computing its value in the same pass.
// Returns its length (0 when there is none).
size_t scan_number(const char *p, const char *end, bool *is_real, double *real) {
    const char *q = p;
    bool negative = false;
    if (q < end && (*q == '+' || *q == '-')) negative = *q++ == '-';
    const DigitRun integral = scan_digits(q, end);
    const size_t integral_digits = run_length(q, integral);
    q = integral.stop;
    DigitRun fraction{q, 0};
    size_t fraction_digits = 0;
    *is_real = false;
    if (q < end && *q == '.') {
        fraction = scan_digits(q + 1, end);
        fraction_digits = run_length(q + 1, fraction);
        if (integral_digits > 0 || fraction_digits > 0) {
            q = fraction.stop;
            *is_real = true;
        }
    }
    int exponent = 0;
    if ((integral_digits > 0 || *is_real) && q < end && (*q == 'E' || *q == 'e')) {
        const char *exponent_stop = q;
        exponent = scan_exponent(q + 1, end, &exponent_stop);
        if (exponent_stop != q) {
            q = exponent_stop;
            *is_real = true;
        }
    }
    const size_t length = static_cast<size_t>(q - p);
    if (!*is_real) return length;
    if (integral_digits + fraction_digits <= 19) {
        const uint64_t mantissa = integral.value * kWholePowers[fraction_digits] + fraction.value;
        exponent -= static_cast<int>(fraction_digits);
        if (mantissa <= (1ull << 53) && exponent >= -22 && exponent <= 22) {
            // One exact operation: the common case, exactly and fast.
            double value = static_cast<double>(mantissa);
            value = exponent < 0 ? value / kExactPowers[-exponent] : value * kExactPowers[exponent];
            *real = negative ? -value : value;
            return length;
        }
    }
    *real = standard_real_value(p, length);
    return length;
}

// The end of a run of name characters ([A-Za-z0-9_]), sixteen bytes a step.
const char *skip_word_chars(const char *p, const char *end) {
#if defined(__SSE2__)
    for (; end - p >= 16; p += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i folded = _mm_or_si128(bytes, _mm_set1_epi8(0x20));  // letters to lower case
        auto within = [](__m128i v, char low, char high) {
            return _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(low - 1))),
                                 _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(high + 1))));
        };
        const __m128i word = _mm_or_si128(_mm_or_si128(within(folded, 'a', 'z'), within(bytes, '0', '9')),
                                          _mm_cmpeq_epi8(bytes, _mm_set1_epi8('_')));
        const unsigned others = ~static_cast<unsigned>(_mm_movemask_epi8(word)) & 0xFFFFu;
        if (others != 0) return p + std::countr_zero(others);
    }
#endif
    while (p < end && is_word_char(*p)) p++;
    return p;
}

// The number of an entity name "#digits", saturated at the largest 32-bit
// value (leading zeros do not count towards it).
uint32_t entity_number(const char *digits_start, const DigitRun &digits) {
    if (run_length(digits_start, digits) <= 19)
        return static_cast<uint32_t>(std::min<uint64_t>(digits.value, 0xFFFFFFFFu));
    uint64_t number = 0;
    for (const char *p = digits_start; p < digits.stop && number <= 0xFFFFFFFFull; p++)
        number = number * 10 + static_cast<uint64_t>(*p - '0');
    return static_cast<uint32_t>(std::min<uint64_t>(number, 0xFFFFFFFFu));
}

TokenKind keyword_or_type_name(const char *text, size_t length) {
    switch (upper(text[0])) {
    case 'H': return equal_nocase(text, length, "HEADER") ? TOKEN_HEADER : TOKEN_TYPE_NAME;
    case 'E': return equal_nocase(text, length, "ENDSEC") ? TOKEN_ENDSECTION : TOKEN_TYPE_NAME;
    case 'D': return equal_nocase(text, length, "DATA") ? TOKEN_DATA : TOKEN_TYPE_NAME;
    case 'F':
        if (equal_nocase(text, length, "FILE_DESCRIPTION")) return TOKEN_FILE_DESCRIPTION;
        if (equal_nocase(text, length, "FILE_NAME")) return TOKEN_FILE_NAME;
        if (equal_nocase(text, length, "FILE_SCHEMA")) return TOKEN_FILE_SCHEMA;
        return TOKEN_TYPE_NAME;
    default: return TOKEN_TYPE_NAME;
    }
}
}  // namespace

void scanner_init(Scanner *scanner, const char *text, size_t length) {
    scanner->begin = text;
    scanner->cursor = text;
    scanner->end = text + length;
    scanner->line = 1;
    scanner->line_start = text;
    scanner->origin = 0;
}

void scanner_seek(Scanner *scanner, const char *position, uint32_t line) {
    scanner->cursor = position;
    scanner->line = line;
    const char *start = position;
    while (start > scanner->begin && start[-1] != '\n' && start[-1] != '\r') start--;
    scanner->line_start = start;
}

Token scanner_next_token(Scanner *scanner) {
    skip_space(scanner);
    const char *p = scanner->cursor;
    const char *end = scanner->end;
    Token token{TOKEN_END, p, 0, scanner->line, static_cast<uint32_t>(p - scanner->line_start) + 1, 0, 0, 0.0};
    if (p >= end) return token;
    const char c = *p;
    const char *q = p + 1;
    switch (c) {
    case '$': token.kind = TOKEN_NULL_VALUE; break;
    case '*': token.kind = TOKEN_DERIVED_VALUE; break;
    case '(': token.kind = TOKEN_BEGIN_PAR; break;
    case ')': token.kind = TOKEN_END_PAR; break;
    case ',': token.kind = TOKEN_COMMA; break;
    case '=': token.kind = TOKEN_EQUAL; break;
    case ';': token.kind = TOKEN_DOTCOMA; break;
    case '#': {
        const DigitRun digits = scan_digits(q, end);
        if (digits.stop == q) break;  // a lone '#'
        token.id = entity_number(q, digits);
        q = digits.stop;
        const char *r = q;
        while (r < end && (*r == ' ' || *r == '\t')) r++;
        token.kind = r < end && *r == '=' ? TOKEN_ENTITY_ID : TOKEN_ENTITY_REFERENCE;
        break;
    }
    case '\'': {
        // A string: any characters but a lone quote; '' stands for one quote.
        while (q < end) {
            // "\S\" takes the next character as it is, a quote included.
            if (*q == '\\' && end - q >= 4 && q[1] == 'S' && q[2] == '\\') {
                q += 4;
                continue;
            }
            if (*q == '\'') {
                if (q + 1 < end && q[1] == '\'') {
                    q += 2;
                    continue;
                }
                break;
            }
            if (*q == '\n') new_line(scanner, q + 1);
            q++;
        }
        if (q >= end) {
            q = p + 1;  // unterminated: an unexpected character
            break;
        }
        token.kind = TOKEN_STRING;
        token.text = p + 1;
        token.length = static_cast<size_t>(q - p - 1);
        scanner->cursor = q + 1;
        return token;
    }
    case '"': {
        while (q < end && is_hex_digit(*q)) q++;
        if (q > p + 1 && q < end && *q == '"') {
            token.kind = TOKEN_HEX;
            q++;
        } else {
            q = p + 1;
        }
        break;
    }
    case '.': {
        const char *r = q;
        while (r < end && is_word_char(*r)) r++;
        if (r > q && r < end && *r == '.') {
            const size_t inner = static_cast<size_t>(r - q);
            const char letter = upper(*q);
            token.kind = inner == 1 && (letter == 'T' || letter == 'F' || letter == 'U') ? TOKEN_BOOLEAN : TOKEN_ENUM;
            q = r + 1;
            break;
        }
        bool is_real = false;
        const size_t length = scan_number(p, end, &is_real, &token.real);
        if (is_real) {
            token.kind = TOKEN_REAL;
            q = p + length;
        }
        break;
    }
    default:
        if (is_digit(c) || c == '+' || c == '-') {
            bool is_real = false;
            q = p + scan_number(p, end, &is_real, &token.real);
            if (q == p) q = p + 1;  // a sign alone
            token.kind = is_real ? TOKEN_REAL : TOKEN_INT;
            if (!is_real) token.integer = scanner_integer_value(p, static_cast<size_t>(q - p));
        } else if (is_letter(c) || c == '_') {
            q = skip_word_chars(q, end);
            const size_t length = static_cast<size_t>(q - p);
            if (length == 3 && equal_nocase(p, length, "ISO") && starts_with_nocase(q, end, "-10303-21;")) {
                token.kind = TOKEN_BEGIN_ISO;
                q += 10;
            } else if (length == 3 && equal_nocase(p, length, "END") &&
                       starts_with_nocase(q, end, "-ISO-10303-21;")) {
                token.kind = TOKEN_END_ISO;
                q += 14;
            } else {
                token.kind = keyword_or_type_name(p, length);
            }
        }
        break;
    }
    if (token.kind == TOKEN_END) {
        token.length = 1;  // an unexpected character ends the token stream
        scanner->cursor = end;
        return token;
    }
    token.length = static_cast<size_t>(q - p);
    scanner->cursor = q;
    return token;
}

// The magnitude of an integer text, saturated just past the 32-bit range
// (2147483649), and whether it is negative.
int64_t integer_magnitude(const char *text, size_t length, bool *negative) {
    size_t i = 0;
    *negative = false;
    if (i < length && (text[i] == '+' || text[i] == '-')) *negative = text[i++] == '-';
    int64_t value = 0;
    for (; i < length && is_digit(text[i]) && value <= 2147483648ll; i++) value = value * 10 + (text[i] - '0');
    return value > 2147483649ll ? 2147483649ll : value;
}

int32_t scanner_integer_value(const char *text, size_t length) {
    bool negative = false;
    const int64_t magnitude = integer_magnitude(text, length, &negative);
    if (negative) return magnitude >= 2147483648ll ? INT32_MIN : static_cast<int32_t>(-magnitude);
    return magnitude >= 2147483647ll ? INT32_MAX : static_cast<int32_t>(magnitude);
}

bool scanner_integer_fits(const char *text, size_t length) {
    bool negative = false;
    return integer_magnitude(text, length, &negative) <= (negative ? 2147483648ll : 2147483647ll);
}

double scanner_real_value(const char *text, size_t length) {
    bool is_real = false;
    double value = 0.0;
    scan_number(text, text + length, &is_real, &value);
    if (is_real || scanner_integer_fits(text, length)) return is_real ? value : scanner_integer_value(text, length);
    // A whole number beyond 32 bits: its exact double.
    if (length > 0 && text[0] == '+') text++, length--;
    std::from_chars(text, text + length, value);
    return value;
}

}  // namespace kx
