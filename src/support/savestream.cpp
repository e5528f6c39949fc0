#define KX_UNIT "kxsavestream"
#include "support/savestream.h"

#include <cstdio>
#include <cstring>

#include "support/assert.h"
#include "support/files.h"
#include "support/memory.h"

namespace kx {

struct SaveStream {
    FILE *file;
    bool writing;
    bool error;
    uint64_t unread;  // bytes left to read (reading streams)
};

namespace {

constexpr uint32_t ABSENT_STRING = ULONG_MAX32;

bool can_write(SaveStream *stream) {
    kx_assert_not_null(stream);
    if (stream == nullptr) return false;
    kx_assert(stream->writing);
    if (!stream->writing) stream->error = true;
    return !stream->error;
}

bool can_read(SaveStream *stream) {
    kx_assert_not_null(stream);
    if (stream == nullptr) return false;
    kx_assert(!stream->writing);
    if (stream->writing) stream->error = true;
    return !stream->error;
}

void write_bytes(SaveStream *stream, const void *bytes, size_t size) {
    if (std::fwrite(bytes, 1, size, stream->file) != size) stream->error = true;
}

// Reads exactly `size` bytes or marks the stream in error.
bool read_bytes(SaveStream *stream, void *bytes, size_t size) {
    if (size > stream->unread || std::fread(bytes, 1, size, stream->file) != size) {
        stream->error = true;
        stream->unread = 0;
        return false;
    }
    stream->unread -= size;
    return true;
}

void put_ulong(uint8_t *bytes, uint32_t value) {
    for (int i = 0; i < 4; i++) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t get_ulong(const uint8_t *bytes) {
    uint32_t value = 0;
    for (int i = 0; i < 4; i++) value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    return value;
}

}  // namespace

SaveStream *savestream_register_binary_file(const char16_t *name, const char *mode) {
    kx_assert_not_null(name);
    kx_assert_not_null(mode);
    if (name == nullptr || mode == nullptr) return nullptr;
    const bool writing = std::strcmp(mode, "wb") == 0;
    kx_assert(writing || std::strcmp(mode, "rb") == 0);
    FILE *file = file_open(name, writing ? "wb" : "rb");
    if (file == nullptr) return nullptr;
    SaveStream *stream = mem_new_zeroed<SaveStream>();
    stream->file = file;
    stream->writing = writing;
    if (!writing) {
        long size = -1;
        if (std::fseek(file, 0, SEEK_END) == 0) size = std::ftell(file);
        if (size < 0 || std::fseek(file, 0, SEEK_SET) != 0) {
            stream->error = true;
            size = 0;
        }
        stream->unread = static_cast<uint64_t>(size);
    }
    return stream;
}

void savestream_write_byte(SaveStream *stream, uint8_t value) {
    if (can_write(stream)) write_bytes(stream, &value, 1);
}

uint8_t savestream_read_byte(SaveStream *stream) {
    uint8_t value = 0;
    if (can_read(stream) && !read_bytes(stream, &value, 1)) value = 0;
    return value;
}

void savestream_write_ulong(SaveStream *stream, uint32_t value) {
    if (!can_write(stream)) return;
    uint8_t bytes[4];
    put_ulong(bytes, value);
    write_bytes(stream, bytes, sizeof bytes);
}

uint32_t savestream_read_ulong(SaveStream *stream) {
    uint8_t bytes[4];
    if (!can_read(stream) || !read_bytes(stream, bytes, sizeof bytes)) return 0;
    return get_ulong(bytes);
}

void savestream_write_string(SaveStream *stream, const char16_t *text) {
    if (!can_write(stream)) return;
    if (text == nullptr) {
        savestream_write_ulong(stream, ABSENT_STRING);
        return;
    }
    const uint32_t length = wstr_length(text);
    savestream_write_ulong(stream, length);
    uint8_t chunk[512];
    uint32_t done = 0;
    while (done < length) {
        uint32_t units = length - done;
        if (units > sizeof chunk / 2) units = sizeof chunk / 2;
        for (uint32_t i = 0; i < units; i++) {
            chunk[2 * i] = static_cast<uint8_t>(text[done + i] & 0xFF);
            chunk[2 * i + 1] = static_cast<uint8_t>(text[done + i] >> 8);
        }
        write_bytes(stream, chunk, 2 * static_cast<size_t>(units));
        done += units;
    }
}

WideString savestream_read_string(SaveStream *stream) {
    if (!can_read(stream)) return nullptr;
    const uint32_t length = savestream_read_ulong(stream);
    if (stream->error || length == ABSENT_STRING) return nullptr;
    if (2 * static_cast<uint64_t>(length) > stream->unread) {
        stream->error = true;
        stream->unread = 0;
        return nullptr;
    }
    const size_t byte_count = 2 * static_cast<size_t>(length);
    uint8_t *bytes = static_cast<uint8_t *>(mem_alloc(byte_count));
    WideString text = nullptr;
    if (read_bytes(stream, bytes, byte_count)) {
        text = static_cast<WideString>(mem_alloc((static_cast<size_t>(length) + 1) * sizeof(char16_t)));
        for (uint32_t i = 0; i < length; i++)
            text[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
        text[length] = u'\0';
    }
    mem_free(bytes);
    return text;
}

void savestream_write_ordered_map(SaveStream *stream, OrderedPtrMap *map,
                                  SaveStreamWriteFn write_element) {
    kx_assert_not_null(map);
    kx_assert_not_null(write_element);
    if (!can_write(stream) || map == nullptr || write_element == nullptr) return;
    const uint32_t count = orderedmap_count(map);
    savestream_write_ulong(stream, count);
    for (uint32_t i = 0; i < count && !stream->error; i++)
        if (!write_element(stream, orderedmap_get(map, i))) stream->error = true;
}

OrderedPtrMap *savestream_read_ordered_map(SaveStream *stream, SaveStreamReadFn read_element,
                                           KeyFn key, CopyFn copy, DestroyFn destroy) {
    kx_assert_not_null(read_element);
    OrderedPtrMap *map = orderedmap_create(key, copy, destroy);
    if (!can_read(stream) || read_element == nullptr) return map;
    const uint32_t count = savestream_read_ulong(stream);
    // Every element takes at least one byte: a larger count is corrupt.
    if (!stream->error && count > stream->unread) {
        stream->error = true;
        stream->unread = 0;
    }
    for (uint32_t i = 0; i < count && !stream->error; i++) {
        void *element = read_element(stream);
        if (element == nullptr) {
            stream->error = true;
        } else if (stream->error) {
            if (destroy != nullptr) destroy(&element);
        } else {
            orderedmap_insert(map, element);
        }
    }
    if (stream->error && orderedmap_count(map) > 0) {
        orderedmap_destroy(&map);
        map = orderedmap_create(key, copy, destroy);
    }
    return map;
}

kx_bool16 savestream_has_error(const SaveStream *stream) {
    kx_assert_not_null(stream);
    if (stream == nullptr) return CIERTO;
    return stream->error ? CIERTO : FALSO;
}

kx_bool16 savestream_free(SaveStream **stream) {
    kx_assert_not_null(stream);
    if (stream == nullptr) return FALSO;
    kx_assert_not_null(*stream);
    if (*stream == nullptr) return FALSO;
    SaveStream *self = *stream;
    bool ok = !self->error;
    if (!file_close(&self->file)) ok = false;
    mem_free_and_clear(stream);
    return ok ? CIERTO : FALSO;
}

}  // namespace kx
