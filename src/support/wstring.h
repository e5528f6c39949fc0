// WideString: a heap-owned, NUL-terminated string of UTF-16 code units
// (char16_t), with exactly one holder. NULL means "absent" wherever an
// operation's name says optional. All memory comes from tracked memory.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace kx {

using WideString = char16_t *;

WideString wstr_new_empty();
WideString wstr_copy(const char16_t *text);
WideString wstr_copy_optional(const char16_t *text);  // NULL gives NULL
// A copy of the first `length` code units.
WideString wstr_copy_n(const char16_t *text, size_t length);
void wstr_destroy(WideString *holder);                // asserts a string is held
void wstr_destroy_optional(WideString *holder);       // accepts a NULL string

uint32_t wstr_length(const char16_t *text);
bool wstr_equal(const char16_t *a, const char16_t *b);
// The comparison used for type names, enumeration literals and keywords:
// ASCII letters compare without regard to case.
bool wstr_equal_nocase(const char16_t *a, const char16_t *b);
int wstr_compare_nocase(const char16_t *a, const char16_t *b);
int wstr_compare(const char16_t *a, const char16_t *b);  // case-sensitive

// *holder grows by `tail` in place (the holder may change).
void wstr_concat(WideString *holder, const char16_t *tail);
void wstr_to_upper(char16_t *text);  // ASCII letters, in place
bool wstr_is_blank(const char16_t *text);  // empty or only blanks/tabs/line ends
// Whether `word` occurs in `text` as a substring.
bool wstr_find_word(const char16_t *text, const char16_t *word);
// Every occurrence of `what` in *holder replaced by `by`.
void wstr_replace_all(WideString *holder, const char16_t *what, const char16_t *by);

// Narrow text in the 8-bit code page (ISO-8859-1: one byte, one code unit).
WideString wstr_from_narrow(const char *text);
WideString wstr_from_narrow_n(const char *text, size_t length);
// UTF-8 text; invalid sequences become U+FFFD.
WideString wstr_from_utf8(const char *text);
// New tracked UTF-8 copy (surrogate pairs joined, lone surrogates U+FFFD);
// free with mem_free.
char *wstr_to_utf8(const char16_t *text);

// printf-style formatting into a new WideString. Conversions: %s (a
// char16_t string), %hs (a narrow char string), %c (a code unit), %hc (a
// narrow character), %d %i %u %x %X %o (int), %ld %lu %lx %lX (32-bit, as the
// interface's "long"), %lld %llu (64-bit), %zu, %f %F %e %E %g %G %a (double;
// %Lf etc. long double), %p, %%, with flags, width and precision (also "*")
// as printf has them. Narrow text is ISO-8859-1. A conversion it does not
// know is reported (empty text) and copied as it stands.
WideString wstr_format(const char16_t *format, ...);
WideString wstr_vformat(const char16_t *format, va_list args);

}  // namespace kx
