// Assertions that report and go on. A failed check hands the condition text
// as written, the source label "<unit> (KXIFCMODEL.DLL)" and the line to the
// diagnostic sink (stderr by default), then execution continues as if the
// check had passed. Every source file defines KX_UNIT (its unit name, such as
// "kxifccoretypes") before including this header.
#pragma once

#include <cstdint>

namespace kx {
int32_t assert_report(const char *condition, const char *source, uint32_t line);
}

#define KX_SOURCE_LABEL KX_UNIT " (KXIFCMODEL.DLL)"

#define kx_assert(condition)                                                  \
    ((condition) ? (void)0                                                    \
                 : (void)::kx::assert_report(#condition, KX_SOURCE_LABEL, __LINE__))

// Same, with the reported text given explicitly.
#define kx_assert_text(condition, text)                                       \
    ((condition) ? (void)0 : (void)::kx::assert_report(text, KX_SOURCE_LABEL, __LINE__))

#define kx_assert_not_null(pointer)                                           \
    kx_assert_text((pointer) != nullptr, "(" #pointer ") != NULL")

// A default branch that must not be reached: reported with an empty text.
#define kx_assert_unreachable() ((void)::kx::assert_report("", KX_SOURCE_LABEL, __LINE__))
