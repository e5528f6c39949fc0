#define KX_UNIT "kxifctext"
#include "kxifc_text.h"

#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

extern "C" KX_API kxWChar *kxWideString_new_from_utf8(const char *text) {
    return text == nullptr ? nullptr : kx::wstr_from_utf8(text);
}

extern "C" KX_API char *kxWideString_to_utf8(const kxWChar *text) {
    return text == nullptr ? nullptr : kx::wstr_to_utf8(text);
}

extern "C" KX_API void kxWideString_free(kxWChar **holder) {
    if (holder != nullptr) kx::wstr_destroy_optional(holder);
}

extern "C" KX_API void kxUtf8String_free(char **holder) {
    if (holder != nullptr) kx::mem_free_and_clear(holder);
}

extern "C" KX_API uint32_t kxWideString_length(const kxWChar *text) {
    return text == nullptr ? 0 : kx::wstr_length(text);
}
