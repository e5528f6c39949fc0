// Files named by WideString paths (handed to the system as UTF-8), and
// printf-style output to open files.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "support/types.h"
#include "support/wstring.h"

namespace kx {

// fopen modes ("rb", "wb", "w", ...). NULL when the file cannot be opened.
FILE *file_open(const char16_t *name, const char *mode);
// Closes the file and leaves the holder NULL; FALSO when closing failed
// (for example a write that could not be flushed).
kx_bool16 file_close(FILE **file);
// Size in bytes; 0 when the file does not exist.
uint64_t file_length(const char16_t *name);
// Whether a file (not a directory) of that name exists.
kx_bool16 file_exists(const char16_t *name);
// Whether a regular file of that name exists (not a directory, device or
// pipe, which a reader could wait on for ever).
kx_bool16 file_is_regular(const char16_t *name);
kx_bool16 file_rename(const char16_t *old_name, const char16_t *new_name);
// Deletes the file when present; quiet otherwise.
void file_delete_if_exists(const char16_t *name);
// Deletes the file; a failure is reported as a failed check and gives FALSO.
kx_bool16 file_delete_checked(const char16_t *name);
// directory + '/' + name, without doubling a '/' the directory ends with;
// an empty directory gives a copy of the name.
WideString file_join_path(const char16_t *directory, const char16_t *name);
// Splits a path at its last '/': the directory (without the trailing '/',
// "/" for the root, empty when the path has none) and the base name, without
// its extension (from the last '.') unless keep_extension is CIERTO. Either
// output address may be NULL when that part is not wanted.
void file_split_path(const char16_t *path, WideString *directory, WideString *base_name,
                     kx_bool16 keep_extension);

// printf-style output; the number of bytes written, negative on failure.
int file_printf(FILE *file, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Same with a wide format and the conversions of wstr_format; the text is
// written as UTF-8.
int file_printf_wide(FILE *file, const char16_t *format, ...);
int file_vprintf_wide(FILE *file, const char16_t *format, va_list args);

}  // namespace kx
