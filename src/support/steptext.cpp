#define KX_UNIT "kxsteptext"
#include "support/steptext.h"

#include <charconv>
#include <cmath>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "support/memory.h"
#include "support/realtext.h"

namespace kx {

namespace {

#include "codepages.inc"

constexpr char kHexDigits[] = "0123456789ABCDEF";

int hex_digit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    return -1;
}

// The value of `count` hex digits at text[at], or -1.
int64_t hex_value(const char16_t *text, size_t length, size_t at, int count) {
    if (at + count > length) return -1;
    int64_t value = 0;
    for (int i = 0; i < count; i++) {
        const int digit = hex_digit(text[at + i]);
        if (digit < 0) return -1;
        value = value * 16 + digit;
    }
    return value;
}

// Whether text[at...] spells the directive (letters in either case).
bool spells(const char16_t *text, size_t length, size_t at, const char *directive) {
    for (; *directive != 0; directive++, at++) {
        if (at >= length) return false;
        char16_t c = text[at];
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
        if (c != static_cast<unsigned char>(*directive)) return false;
    }
    return true;
}

class Decoder {
public:
    Decoder(const char16_t *text, size_t length, StringIssue *issue)
        : in_(text), length_(length), issue_(issue),
          out_(static_cast<char16_t *>(mem_alloc((length + 1) * sizeof(char16_t)))) {}

    char16_t *run() {
        size_t i = 0;
        while (i < length_) {
            const char16_t c = in_[i];
            if (c == u'\'') {
                put(c, i);
                i += (i + 1 < length_ && in_[i + 1] == u'\'') ? 2 : 1;
            } else if (c == u'\\') {
                i = directive(i);
            } else {
                put(c, i);
                i++;
            }
        }
        out_[count_] = 0;
        return out_;
    }

private:
    void note(kxReadCode code, size_t at) {
        if (issue_ == nullptr) return;
        if (issue_->count++ == 0) {
            issue_->code = code;
            issue_->offset = static_cast<uint32_t>(at);
        }
    }

    void put(char32_t c, size_t at) {
        if (c == 0) {
            note(KX_READ_NUL_IN_STRING, at);
        } else if (c > 0xFFFF) {
            out_[count_++] = static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out_[count_++] = static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out_[count_++] = static_cast<char16_t>(c);
        }
    }

    // A "\X2\" or "\X4\" group from `at` (just after its head): runs of
    // `digits` hex digits up to "\X0\". Returns the index after the group,
    // or 0 when it is malformed (nothing is then put).
    size_t group(size_t at, int digits, size_t start) {
        const size_t first = count_;
        size_t i = at;
        for (;;) {
            if (spells(in_, length_, i, "\\X0\\")) break;
            const int64_t value = hex_value(in_, length_, i, digits);
            // A \X4\ group holds code points; each takes two units at most.
            if (value < 0 || value > 0x10FFFF || (digits == 8 && value >= 0xD800 && value <= 0xDFFF)) {
                count_ = first;
                return 0;
            }
            put(static_cast<char32_t>(value), start);
            i += digits;
        }
        if (i == at) return 0;  // an empty group
        return i + 4;
    }

    // The directive at in_[at] == '\'; returns the index after it.
    size_t directive(size_t at) {
        if (at + 1 < length_ && in_[at + 1] == u'\\') {
            put(u'\\', at);
            return at + 2;
        }
        if (spells(in_, length_, at, "\\X\\")) {
            const int64_t value = hex_value(in_, length_, at + 3, 2);
            if (value >= 0) {
                put(static_cast<char32_t>(value), at);
                return at + 5;
            }
        } else if (spells(in_, length_, at, "\\X2\\") || spells(in_, length_, at, "\\X4\\")) {
            const size_t next = group(at + 4, in_[at + 2] == u'2' ? 4 : 8, at);
            if (next != 0) return next;
        } else if (spells(in_, length_, at, "\\S\\") && at + 3 < length_ && in_[at + 3] >= 0x20 &&
                   in_[at + 3] <= 0x7E) {
            const char16_t c = kIso8859UpperHalves[code_page_][in_[at + 3]];
            if (c != 0xFFFF) {
                put(c, at);
                return at + 4;
            }
        } else if (spells(in_, length_, at, "\\P") && at + 3 < length_ && in_[at + 3] == u'\\') {
            const char16_t page = in_[at + 2] >= u'a' ? static_cast<char16_t>(in_[at + 2] - 32) : in_[at + 2];
            if (page >= u'A' && page <= u'I') {
                code_page_ = page - u'A';
                return at + 4;
            }
        }
        note(KX_READ_MALFORMED_ESCAPE, at);
        put(u'\\', at);
        return at + 1;
    }

    const char16_t *in_;
    size_t length_;
    StringIssue *issue_;
    char16_t *out_;
    size_t count_ = 0;
    int code_page_ = 0;  // ISO 8859-1 until a \P directive
};

bool printable(char16_t c) { return c < 0x80 && kStepAsciiWidths[c] != 12; }

// Printable and neither "'" nor "\\": written as itself.
bool plain(char16_t c) { return c < 0x80 && kStepAsciiWidths[c] == 1; }

}  // namespace

char16_t *step_decode_string(const char16_t *text, size_t length, StringIssue *issue) {
    return Decoder(text, length, issue).run();
}

size_t step_copy_plain_prefix(const char16_t *text, size_t length, char *out) {
    size_t copied = 0;
#if defined(__SSE2__)
    // A unit is printable when unit - 0x20, unsigned, is at most 0x7E - 0x20:
    // the saturating subtraction of that bound leaves it zero.
    const __m128i space = _mm_set1_epi16(0x20);
    const __m128i printable_span = _mm_set1_epi16(0x7E - 0x20);
    const __m128i quote = _mm_set1_epi16('\'');
    const __m128i backslash = _mm_set1_epi16('\\');
    const __m128i zero = _mm_setzero_si128();
    for (; copied + 8 <= length; copied += 8) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + copied));
        const __m128i printable = _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(units, space), printable_span), zero);
        const __m128i doubled = _mm_or_si128(_mm_cmpeq_epi16(units, quote), _mm_cmpeq_epi16(units, backslash));
        if (_mm_movemask_epi8(_mm_andnot_si128(doubled, printable)) != 0xFFFF) break;
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + copied), _mm_packus_epi16(units, units));
    }
#else
    (void)text;
    (void)length;
    (void)out;
#endif
    return copied;
}

template <typename Char>
size_t step_encode_string(const char16_t *text, Char *out) {
    Char *o = out;
    for (const char16_t *c = text; *c != 0;) {
        while (plain(*c)) *o++ = static_cast<Char>(*c++);
        if (*c == 0) break;
        if (printable(*c)) {
            if (*c == u'\'' || *c == u'\\') *o++ = static_cast<Char>(*c);
            *o++ = static_cast<Char>(*c++);
            continue;
        }
        for (const char *head = "\\X2\\"; *head != 0; head++) *o++ = static_cast<Char>(*head);
        for (; *c != 0 && !printable(*c); c++)
            for (int shift = 12; shift >= 0; shift -= 4) *o++ = static_cast<Char>(kHexDigits[(*c >> shift) & 0xF]);
        for (const char *tail = "\\X0\\"; *tail != 0; tail++) *o++ = static_cast<Char>(*tail);
    }
    return static_cast<size_t>(o - out);
}

template size_t step_encode_string<char>(const char16_t *, char *);
template size_t step_encode_string<char16_t>(const char16_t *, char16_t *);

uint32_t step_format_real_shortest(double value, char *out) {
    // The longest form, "-d.ddddddddddddddddE-ddd", and the bytes past it
    // that decimal_put may write over.
    static_assert(kShortestRealSize >= 26 + 7);
    // Plain digits read best where they are not much longer than the
    // exponent form: from 1e-5 to 1e15.
    const double magnitude = std::fabs(value);
    const bool plain = magnitude == 0.0 || (magnitude >= 1e-5 && magnitude < 1e15);
    DecimalDigits decimal;
    decimal_shortest(value, &decimal);
    return decimal_put(decimal, plain, out);
}

}  // namespace kx
