/*
 * kxifc_diagnostics.h: where the library's assertion reports go, and how much
 * memory it holds. Compiles as C11 and as C++.
 */
#ifndef KXIFC_DIAGNOSTICS_H
#define KXIFC_DIAGNOSTICS_H

#include "kxifc_defs.h"

KX_EXTERN_C_BEGIN

/* Receives one failed check: the condition text as written in the source,
 * the source label ("<unit> (KXIFCMODEL.DLL)") and the line. The library goes
 * on after every report. */
typedef void (*kxAssertSink)(void *user_data, const char *condition, const char *source,
                             uint32_t line);

/* Installs a sink for assertion reports; NULL restores the default, which
 * writes one line per report to stderr. */
KX_API void kxDiagnostics_set_assert_sink(kxAssertSink sink, void *user_data);

/* Number of failed checks reported since the process started. */
KX_API uint64_t kxDiagnostics_assert_count(void);

/* Live blocks and bytes of the library's tracked memory (process-wide). */
KX_API void kxMemory_get_usage(int64_t *live_blocks, int64_t *live_bytes);

KX_EXTERN_C_END

#endif
