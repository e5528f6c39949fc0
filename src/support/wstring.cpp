#define KX_UNIT "kxwstring"
#include "support/wstring.h"

#include <cstdio>
#include <cstring>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

WideString alloc_units(size_t units) {
    return static_cast<WideString>(mem_alloc((units + 1) * sizeof(char16_t)));
}

size_t length_of(const char16_t *text) {
    size_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}

char16_t ascii_upper(char16_t c) { return (c >= u'a' && c <= u'z') ? char16_t(c - 32) : c; }

bool is_blank_unit(char16_t c) {
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f';
}

// Index of the first occurrence of `word` in `text` at or after `from`, or
// SIZE_MAX. An empty word is found at `from`.
size_t find_from(const char16_t *text, size_t text_length, const char16_t *word,
                 size_t word_length, size_t from) {
    if (word_length > text_length) return SIZE_MAX;
    for (size_t i = from; i + word_length <= text_length; ++i) {
        if (std::memcmp(text + i, word, word_length * sizeof(char16_t)) == 0) return i;
    }
    return SIZE_MAX;
}

// A growable run of code units in tracked memory; the finished buffer is
// handed over as a WideString.
class UnitBuffer {
public:
    explicit UnitBuffer(size_t capacity = 32) : capacity_(capacity) { data_ = alloc_units(capacity_); }
    ~UnitBuffer() { mem_free(data_); }
    UnitBuffer(const UnitBuffer &) = delete;
    UnitBuffer &operator=(const UnitBuffer &) = delete;

    void push(char16_t unit) {
        reserve(1);
        data_[size_++] = unit;
    }
    void push(const char16_t *units, size_t count) {
        reserve(count);
        std::memcpy(data_ + size_, units, count * sizeof(char16_t));
        size_ += count;
    }
    void push_ascii(const char *text, size_t count) {
        reserve(count);
        for (size_t i = 0; i < count; ++i) data_[size_++] = static_cast<unsigned char>(text[i]);
    }
    void push_repeated(char16_t unit, size_t count) {
        reserve(count);
        for (size_t i = 0; i < count; ++i) data_[size_++] = unit;
    }
    WideString release() {
        data_[size_] = 0;
        return mem_take(&data_);
    }

private:
    void reserve(size_t extra) {
        if (size_ + extra <= capacity_) return;
        size_t wanted = capacity_ * 2;
        if (wanted < size_ + extra) wanted = size_ + extra;
        data_ = static_cast<WideString>(mem_realloc(data_, (wanted + 1) * sizeof(char16_t)));
        capacity_ = wanted;
    }

    WideString data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_;
};

}  // namespace

WideString wstr_new_empty() {
    WideString text = alloc_units(0);
    text[0] = 0;
    return text;
}

WideString wstr_copy_n(const char16_t *text, size_t length) {
    kx_assert_not_null(text);
    if (text == nullptr) return nullptr;
    WideString copy = alloc_units(length);
    std::memcpy(copy, text, length * sizeof(char16_t));
    copy[length] = 0;
    return copy;
}

WideString wstr_copy(const char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return nullptr;
    return wstr_copy_n(text, length_of(text));
}

WideString wstr_copy_optional(const char16_t *text) {
    return text == nullptr ? nullptr : wstr_copy_n(text, length_of(text));
}

void wstr_destroy(WideString *holder) {
    kx_assert_not_null(holder);
    if (holder == nullptr) return;
    kx_assert_not_null(*holder);
    mem_free_and_clear(holder);
}

void wstr_destroy_optional(WideString *holder) {
    kx_assert_not_null(holder);
    if (holder == nullptr) return;
    mem_free_and_clear(holder);
}

uint32_t wstr_length(const char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return 0;
    return static_cast<uint32_t>(length_of(text));
}

// The comparisons treat a NULL string (already reported) as ordering before
// every string and equal only to another NULL.
int wstr_compare(const char16_t *a, const char16_t *b) {
    kx_assert_not_null(a);
    kx_assert_not_null(b);
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return int(*a) - int(*b);
}

int wstr_compare_nocase(const char16_t *a, const char16_t *b) {
    kx_assert_not_null(a);
    kx_assert_not_null(b);
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    while (*a != 0 && ascii_upper(*a) == ascii_upper(*b)) {
        ++a;
        ++b;
    }
    return int(ascii_upper(*a)) - int(ascii_upper(*b));
}

bool wstr_equal(const char16_t *a, const char16_t *b) { return wstr_compare(a, b) == 0; }

bool wstr_equal_nocase(const char16_t *a, const char16_t *b) {
    return wstr_compare_nocase(a, b) == 0;
}

void wstr_concat(WideString *holder, const char16_t *tail) {
    kx_assert_not_null(holder);
    kx_assert_not_null(tail);
    if (holder == nullptr || tail == nullptr) return;
    kx_assert_not_null(*holder);
    if (*holder == nullptr) {
        *holder = wstr_copy(tail);
        return;
    }
    const size_t head_length = length_of(*holder);
    const size_t tail_length = length_of(tail);
    // `tail` may point into the held string, which realloc may move.
    const bool inside = tail >= *holder && tail <= *holder + head_length;
    const size_t offset = inside ? size_t(tail - *holder) : 0;
    WideString grown = static_cast<WideString>(
        mem_realloc(*holder, (head_length + tail_length + 1) * sizeof(char16_t)));
    const char16_t *source = inside ? grown + offset : tail;
    std::memmove(grown + head_length, source, tail_length * sizeof(char16_t));
    grown[head_length + tail_length] = 0;
    *holder = grown;
}

void wstr_to_upper(char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return;
    for (; *text != 0; ++text) *text = ascii_upper(*text);
}

bool wstr_is_blank(const char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return true;
    for (; *text != 0; ++text)
        if (!is_blank_unit(*text)) return false;
    return true;
}

bool wstr_find_word(const char16_t *text, const char16_t *word) {
    kx_assert_not_null(text);
    kx_assert_not_null(word);
    if (text == nullptr || word == nullptr) return false;
    return find_from(text, length_of(text), word, length_of(word), 0) != SIZE_MAX;
}

void wstr_replace_all(WideString *holder, const char16_t *what, const char16_t *by) {
    kx_assert_not_null(holder);
    kx_assert_not_null(what);
    kx_assert_not_null(by);
    if (holder == nullptr || what == nullptr || by == nullptr) return;
    kx_assert_not_null(*holder);
    if (*holder == nullptr) return;
    const size_t what_length = length_of(what);
    if (what_length == 0) return;  // nothing to look for
    const char16_t *text = *holder;
    const size_t text_length = length_of(text);
    const size_t by_length = length_of(by);
    size_t found = find_from(text, text_length, what, what_length, 0);
    if (found == SIZE_MAX) return;
    UnitBuffer out(text_length + 1);
    size_t done = 0;
    while (found != SIZE_MAX) {
        out.push(text + done, found - done);
        out.push(by, by_length);
        done = found + what_length;
        found = find_from(text, text_length, what, what_length, done);
    }
    out.push(text + done, text_length - done);
    WideString replaced = out.release();
    mem_free(*holder);
    *holder = replaced;
}

WideString wstr_from_narrow_n(const char *text, size_t length) {
    kx_assert_not_null(text);
    if (text == nullptr) return nullptr;
    WideString wide = alloc_units(length);
    for (size_t i = 0; i < length; ++i) wide[i] = static_cast<unsigned char>(text[i]);
    wide[length] = 0;
    return wide;
}

WideString wstr_from_narrow(const char *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return nullptr;
    return wstr_from_narrow_n(text, std::strlen(text));
}

// Decodes UTF-8 by the Unicode "maximal subpart" practice: every byte that
// cannot start a sequence, and every sequence cut short, gives one U+FFFD,
// and decoding resumes at the first byte that did not fit.
WideString wstr_from_utf8(const char *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return nullptr;
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    const size_t length = std::strlen(text);
    UnitBuffer out(length + 1);
    size_t i = 0;
    while (i < length) {
        const unsigned char lead = bytes[i];
        if (lead < 0x80) {
            out.push(lead);
            ++i;
            continue;
        }
        uint32_t code = 0;
        size_t needed = 0;
        unsigned char low = 0x80, high = 0xBF;  // range of the second byte
        if (lead >= 0xC2 && lead <= 0xDF) {
            needed = 1;
            code = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            needed = 2;
            code = lead & 0x0F;
            if (lead == 0xE0) low = 0xA0;   // no overlong forms
            if (lead == 0xED) high = 0x9F;  // no encoded surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            needed = 3;
            code = lead & 0x07;
            if (lead == 0xF0) low = 0x90;   // no overlong forms
            if (lead == 0xF4) high = 0x8F;  // nothing beyond U+10FFFF
        } else {
            out.push(kReplacement);  // stray continuation byte, C0, C1, F5..FF
            ++i;
            continue;
        }
        ++i;
        bool complete = true;
        for (size_t k = 0; k < needed; ++k, ++i) {
            const unsigned char next = i < length ? bytes[i] : 0;
            const unsigned char min = k == 0 ? low : 0x80;
            const unsigned char max = k == 0 ? high : 0xBF;
            if (next < min || next > max) {
                complete = false;
                break;
            }
            code = (code << 6) | (next & 0x3F);
        }
        if (!complete) {
            out.push(kReplacement);
        } else if (code >= 0x10000) {
            code -= 0x10000;
            out.push(char16_t(0xD800 + (code >> 10)));
            out.push(char16_t(0xDC00 + (code & 0x3FF)));
        } else {
            out.push(char16_t(code));
        }
    }
    return out.release();
}

char *wstr_to_utf8(const char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return nullptr;
    const size_t length = length_of(text);
    // At most three bytes per code unit (a pair takes four bytes for two units).
    char *out = static_cast<char *>(mem_alloc(length * 3 + 1));
    size_t n = 0;
    for (size_t i = 0; i < length; ++i) {
        uint32_t code = text[i];
        if (code >= 0xD800 && code <= 0xDBFF && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            code = 0x10000 + ((code - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (code >= 0xD800 && code <= 0xDFFF) {
            code = kReplacement;
        }
        if (code < 0x80) {
            out[n++] = char(code);
        } else if (code < 0x800) {
            out[n++] = char(0xC0 | (code >> 6));
            out[n++] = char(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out[n++] = char(0xE0 | (code >> 12));
            out[n++] = char(0x80 | ((code >> 6) & 0x3F));
            out[n++] = char(0x80 | (code & 0x3F));
        } else {
            out[n++] = char(0xF0 | (code >> 18));
            out[n++] = char(0x80 | ((code >> 12) & 0x3F));
            out[n++] = char(0x80 | ((code >> 6) & 0x3F));
            out[n++] = char(0x80 | (code & 0x3F));
        }
    }
    out[n] = 0;
    return out;
}

// ---------------------------------------------------------------------------
// Formatting

namespace {

enum class Length { none, hh, h, l, ll, z, j, t, L };

struct Spec {
    char flags[8] = {};  // subset of "-+ #0", NUL-terminated
    bool left = false;
    int width = -1;      // -1: none
    int precision = -1;  // -1: none
    Length length = Length::none;
    char conversion = 0;
};

void add_flag(Spec &spec, char flag) {
    if (std::strchr(spec.flags, flag) != nullptr) return;
    const size_t n = std::strlen(spec.flags);
    if (n + 1 < sizeof spec.flags) spec.flags[n] = flag;
    if (flag == '-') spec.left = true;
}

// Reads the digits at *p into a non-negative int (saturating).
int read_number(const char16_t *&p) {
    int value = 0;
    while (*p >= u'0' && *p <= u'9') {
        if (value < 100000000) value = value * 10 + (*p - u'0');
        ++p;
    }
    return value;
}

// Pads `units` to the spec's width with blanks.
void push_padded(UnitBuffer &out, const Spec &spec, const char16_t *units, size_t count) {
    const size_t width = spec.width > 0 ? size_t(spec.width) : 0;
    const size_t pad = width > count ? width - count : 0;
    if (!spec.left) out.push_repeated(u' ', pad);
    out.push(units, count);
    if (spec.left) out.push_repeated(u' ', pad);
}

// Runs snprintf on the rebuilt narrow spec ("%<flags><width>.<precision>"
// followed by `tail`) and appends the ASCII result.
template <typename T>
void push_converted(UnitBuffer &out, const Spec &spec, const char *tail, T value) {
    char narrow_spec[48];
    int n = std::snprintf(narrow_spec, sizeof narrow_spec, "%%%s", spec.flags);
    if (spec.width >= 0) n += std::snprintf(narrow_spec + n, sizeof narrow_spec - n, "%d", spec.width);
    if (spec.precision >= 0)
        n += std::snprintf(narrow_spec + n, sizeof narrow_spec - n, ".%d", spec.precision);
    std::snprintf(narrow_spec + n, sizeof narrow_spec - n, "%s", tail);

    char small[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int needed = std::snprintf(small, sizeof small, narrow_spec, value);
    if (needed < 0) return;
    if (size_t(needed) < sizeof small) {
        out.push_ascii(small, size_t(needed));
        return;
    }
    char *large = static_cast<char *>(mem_alloc(size_t(needed) + 1));
    std::snprintf(large, size_t(needed) + 1, narrow_spec, value);
#pragma GCC diagnostic pop
    out.push_ascii(large, size_t(needed));
    mem_free(large);
}

long long read_signed(va_list *args, Length length) {
    switch (length) {
        case Length::hh: return static_cast<signed char>(va_arg(*args, int));
        case Length::h: return static_cast<short>(va_arg(*args, int));
        case Length::l: return va_arg(*args, int32_t);  // the interface's 32-bit long
        case Length::ll: return va_arg(*args, long long);
        case Length::z: return va_arg(*args, ptrdiff_t);  // the signed size_t
        case Length::j: return static_cast<long long>(va_arg(*args, intmax_t));
        case Length::t: return va_arg(*args, ptrdiff_t);
        default: return va_arg(*args, int);
    }
}

unsigned long long read_unsigned(va_list *args, Length length) {
    switch (length) {
        case Length::hh: return static_cast<unsigned char>(va_arg(*args, unsigned int));
        case Length::h: return static_cast<unsigned short>(va_arg(*args, unsigned int));
        case Length::l: return va_arg(*args, uint32_t);  // the interface's 32-bit long
        case Length::ll: return va_arg(*args, unsigned long long);
        case Length::z: return va_arg(*args, size_t);
        case Length::j: return static_cast<unsigned long long>(va_arg(*args, uintmax_t));
        case Length::t: return static_cast<unsigned long long>(va_arg(*args, ptrdiff_t));
        default: return va_arg(*args, unsigned int);
    }
}

void format_string(UnitBuffer &out, const Spec &spec, va_list *args) {
    size_t limit = spec.precision >= 0 ? size_t(spec.precision) : SIZE_MAX;
    if (spec.length == Length::h || spec.length == Length::hh) {
        const char *text = va_arg(*args, const char *);
        if (text == nullptr) text = "(null)";
        size_t count = 0;
        while (count < limit && text[count] != 0) ++count;
        const size_t width = spec.width > 0 ? size_t(spec.width) : 0;
        const size_t pad = width > count ? width - count : 0;
        if (!spec.left) out.push_repeated(u' ', pad);
        out.push_ascii(text, count);  // ISO-8859-1: one byte, one code unit
        if (spec.left) out.push_repeated(u' ', pad);
        return;
    }
    const char16_t *text = va_arg(*args, const char16_t *);
    if (text == nullptr) text = u"(null)";
    size_t count = 0;
    while (count < limit && text[count] != 0) ++count;
    push_padded(out, spec, text, count);
}

// Formats one conversion; `p` points just past the '%'. Returns the position
// after the conversion.
const char16_t *format_one(UnitBuffer &out, const char16_t *percent, va_list *args) {
    const char16_t *p = percent + 1;
    Spec spec;
    for (;; ++p) {
        if (*p == u'-' || *p == u'+' || *p == u' ' || *p == u'#' || *p == u'0')
            add_flag(spec, char(*p));
        else
            break;
    }
    if (*p == u'*') {
        int width = va_arg(*args, int);
        if (width < 0) {
            add_flag(spec, '-');
            width = width == INT32_MIN ? INT32_MAX : -width;
        }
        spec.width = width;
        ++p;
    } else if (*p >= u'1' && *p <= u'9') {
        spec.width = read_number(p);
    }
    if (*p == u'.') {
        ++p;
        if (*p == u'*') {
            const int precision = va_arg(*args, int);
            spec.precision = precision < 0 ? -1 : precision;
            ++p;
        } else {
            spec.precision = read_number(p);
        }
    }
    switch (*p) {
        case u'h':
            ++p;
            if (*p == u'h') {
                spec.length = Length::hh;
                ++p;
            } else {
                spec.length = Length::h;
            }
            break;
        case u'l':
            ++p;
            if (*p == u'l') {
                spec.length = Length::ll;
                ++p;
            } else {
                spec.length = Length::l;
            }
            break;
        case u'z': spec.length = Length::z; ++p; break;
        case u'j': spec.length = Length::j; ++p; break;
        case u't': spec.length = Length::t; ++p; break;
        case u'L': spec.length = Length::L; ++p; break;
        default: break;
    }
    spec.conversion = *p < 0x80 ? char(*p) : '?';
    switch (*p) {
        case u'%':
            out.push(u'%');
            break;
        case u'd':
        case u'i':
            push_converted(out, spec, "lld", read_signed(args, spec.length));
            break;
        case u'u':
        case u'x':
        case u'X':
        case u'o': {
            const char tail[4] = {'l', 'l', spec.conversion, 0};
            push_converted(out, spec, tail, read_unsigned(args, spec.length));
            break;
        }
        case u'f':
        case u'F':
        case u'e':
        case u'E':
        case u'g':
        case u'G':
        case u'a':
        case u'A':
            if (spec.length == Length::L) {
                const char tail[3] = {'L', spec.conversion, 0};
                push_converted(out, spec, tail, va_arg(*args, long double));
            } else {
                const char tail[2] = {spec.conversion, 0};
                push_converted(out, spec, tail, va_arg(*args, double));
            }
            break;
        case u'c': {
            // %hc is a narrow (ISO-8859-1) character, %c a code unit.
            const int value = va_arg(*args, int);
            const char16_t unit = (spec.length == Length::h || spec.length == Length::hh)
                                      ? char16_t(static_cast<unsigned char>(value))
                                      : static_cast<char16_t>(value);
            push_padded(out, spec, &unit, 1);
            break;
        }
        case u's':
            format_string(out, spec, args);
            break;
        case u'p':
            push_converted(out, spec, "p", va_arg(*args, void *));
            break;
        default:
            // Not a conversion this formatter knows (or the format ended):
            // the text is kept as it stands.
            kx_assert_unreachable();
            if (*p == 0) {
                out.push(percent, size_t(p - percent));
                return p;
            }
            out.push(percent, size_t(p - percent) + 1);
            break;
    }
    return p + 1;
}

}  // namespace

WideString wstr_vformat(const char16_t *format, va_list args) {
    kx_assert_not_null(format);
    if (format == nullptr) return nullptr;
    va_list rest;
    va_copy(rest, args);
    UnitBuffer out(length_of(format) + 16);
    const char16_t *p = format;
    while (*p != 0) {
        const char16_t *percent = p;
        while (*percent != 0 && *percent != u'%') ++percent;
        out.push(p, size_t(percent - p));
        if (*percent == 0) break;
        p = format_one(out, percent, &rest);
    }
    va_end(rest);
    return out.release();
}

WideString wstr_format(const char16_t *format, ...) {
    va_list args;
    va_start(args, format);
    WideString text = wstr_vformat(format, args);
    va_end(args);
    return text;
}

}  // namespace kx
