#define KX_UNIT "kxfiles"
#include "support/files.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstring>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {
namespace {

// The path as the system wants it: tracked UTF-8, freed on scope exit.
class SystemPath {
public:
    explicit SystemPath(const char16_t *name) : text_(name ? wstr_to_utf8(name) : nullptr) {}
    ~SystemPath() { mem_free(text_); }
    SystemPath(const SystemPath &) = delete;
    SystemPath &operator=(const SystemPath &) = delete;
    const char *get() const { return text_; }
    bool ok() const { return text_ != nullptr; }

private:
    char *text_;
};

bool stat_file(const char16_t *name, struct stat *info) {
    SystemPath path(name);
    return path.ok() && stat(path.get(), info) == 0;
}

}  // namespace

FILE *file_open(const char16_t *name, const char *mode) {
    kx_assert_not_null(name);
    kx_assert_not_null(mode);
    if (name == nullptr || mode == nullptr) return nullptr;
    SystemPath path(name);
    return std::fopen(path.get(), mode);
}

kx_bool16 file_close(FILE **file) {
    kx_assert_not_null(file);
    if (file == nullptr) return FALSO;
    kx_assert_not_null(*file);
    if (*file == nullptr) return FALSO;
    const int result = std::fclose(*file);
    *file = nullptr;
    return result == 0 ? CIERTO : FALSO;
}

uint64_t file_length(const char16_t *name) {
    kx_assert_not_null(name);
    struct stat info;
    if (name == nullptr || !stat_file(name, &info) || S_ISDIR(info.st_mode)) return 0;
    return static_cast<uint64_t>(info.st_size);
}

kx_bool16 file_exists(const char16_t *name) {
    kx_assert_not_null(name);
    struct stat info;
    if (name == nullptr || !stat_file(name, &info)) return FALSO;
    return S_ISDIR(info.st_mode) ? FALSO : CIERTO;
}

kx_bool16 file_is_regular(const char16_t *name) {
    kx_assert_not_null(name);
    struct stat info;
    return name != nullptr && stat_file(name, &info) && S_ISREG(info.st_mode) ? CIERTO : FALSO;
}

kx_bool16 file_rename(const char16_t *old_name, const char16_t *new_name) {
    kx_assert_not_null(old_name);
    kx_assert_not_null(new_name);
    if (old_name == nullptr || new_name == nullptr) return FALSO;
    SystemPath from(old_name);
    SystemPath to(new_name);
    return std::rename(from.get(), to.get()) == 0 ? CIERTO : FALSO;
}

void file_delete_if_exists(const char16_t *name) {
    kx_assert_not_null(name);
    if (name == nullptr || !file_exists(name)) return;
    SystemPath path(name);
    std::remove(path.get());
}

kx_bool16 file_delete_checked(const char16_t *name) {
    kx_assert_not_null(name);
    if (name == nullptr) return FALSO;
    SystemPath path(name);
    const bool deleted = std::remove(path.get()) == 0;
    kx_assert(deleted);
    return deleted ? CIERTO : FALSO;
}

WideString file_join_path(const char16_t *directory, const char16_t *name) {
    kx_assert_not_null(directory);
    kx_assert_not_null(name);
    if (name == nullptr) return wstr_copy_optional(directory != nullptr ? directory : u"");
    if (directory == nullptr || directory[0] == u'\0') return wstr_copy(name);
    WideString path = wstr_copy(directory);
    const uint32_t length = wstr_length(path);
    const bool has_separator = path[length - 1] == u'/';
    const char16_t *tail = name;
    if (has_separator) {
        while (*tail == u'/') tail++;
    } else if (*tail != u'/') {
        wstr_concat(&path, u"/");
    }
    wstr_concat(&path, tail);
    return path;
}

void file_split_path(const char16_t *path, WideString *directory, WideString *base_name,
                     kx_bool16 keep_extension) {
    kx_assert_not_null(path);
    if (path == nullptr) path = u"";
    const uint32_t length = wstr_length(path);
    uint32_t slash = ULONG_MAX32;  // position of the last '/'
    for (uint32_t i = 0; i < length; i++)
        if (path[i] == u'/') slash = i;
    const uint32_t name_start = slash == ULONG_MAX32 ? 0 : slash + 1;
    if (directory != nullptr) {
        if (slash == ULONG_MAX32)
            *directory = wstr_new_empty();
        else
            *directory = wstr_copy_n(path, slash == 0 ? 1 : slash);
    }
    if (base_name != nullptr) {
        uint32_t name_end = length;
        if (!keep_extension) {
            // A leading dot (".profile") starts a name, not an extension.
            for (uint32_t i = length; i > name_start + 1; i--) {
                if (path[i - 1] == u'.') {
                    name_end = i - 1;
                    break;
                }
            }
        }
        *base_name = wstr_copy_n(path + name_start, name_end - name_start);
    }
}

int file_printf(FILE *file, const char *format, ...) {
    kx_assert_not_null(file);
    kx_assert_not_null(format);
    if (file == nullptr || format == nullptr) return -1;
    va_list args;
    va_start(args, format);
    const int written = std::vfprintf(file, format, args);
    va_end(args);
    return written;
}

int file_vprintf_wide(FILE *file, const char16_t *format, va_list args) {
    kx_assert_not_null(file);
    kx_assert_not_null(format);
    if (file == nullptr || format == nullptr) return -1;
    WideString text = wstr_vformat(format, args);
    char *bytes = wstr_to_utf8(text);
    const size_t length = std::strlen(bytes);
    const size_t written = std::fwrite(bytes, 1, length, file);
    mem_free(bytes);
    wstr_destroy(&text);
    return written == length ? static_cast<int>(written) : -1;
}

int file_printf_wide(FILE *file, const char16_t *format, ...) {
    va_list args;
    va_start(args, format);
    const int written = file_vprintf_wide(file, format, args);
    va_end(args);
    return written;
}

}  // namespace kx
