/*
 * kxifc_text.h: conversions between the library's UTF-16 strings (kxWChar*)
 * and UTF-8 for hosts. Compiles as C11 and as C++.
 */
#ifndef KXIFC_TEXT_H
#define KXIFC_TEXT_H

#include "kxifc_defs.h"

KX_EXTERN_C_BEGIN

/* A new UTF-16 copy of a UTF-8 text (NULL for NULL). Invalid UTF-8 sequences
 * become U+FFFD. Free it with kxWideString_free. */
KX_API kxWChar *kxWideString_new_from_utf8(const char *text);

/* A new UTF-8 copy of a UTF-16 text (NULL for NULL). Surrogate pairs are
 * joined; a lone surrogate becomes U+FFFD. Free it with kxUtf8String_free. */
KX_API char *kxWideString_to_utf8(const kxWChar *text);

/* Frees a UTF-16 string made by the library (by this header, by a GUID or
 * core-type copy) and leaves the holder NULL. A NULL holder or string is
 * accepted. */
KX_API void kxWideString_free(kxWChar **holder);

/* Frees a UTF-8 string made by kxWideString_to_utf8 and leaves the holder
 * NULL. A NULL holder or string is accepted. */
KX_API void kxUtf8String_free(char **holder);

/* Number of UTF-16 code units before the terminating NUL (0 for NULL). */
KX_API uint32_t kxWideString_length(const kxWChar *text);

KX_EXTERN_C_END

#endif
