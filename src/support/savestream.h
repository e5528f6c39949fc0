// SaveStream: a binary file written or read in the stream's own form:
// bytes, little-endian 32-bit numbers, strings (a count of UTF-16 units,
// 0xFFFFFFFF for an absent string, then the units) and ordered maps (a count
// of elements, then each element as its writer put it). Reading never
// trusts the file: a short or corrupt stream makes reads give 0, NULL or an
// empty map and sets the stream's error flag, which stays set.
#pragma once

#include <cstdint>

#include "support/ptrmap.h"
#include "support/types.h"
#include "support/wstring.h"

namespace kx {

struct SaveStream;

// Writes one element; gives FALSO when it could not.
using SaveStreamWriteFn = kx_bool16 (*)(SaveStream *stream, const void *element);
// Reads one element and returns it (new), or NULL when the stream holds no
// valid element. An element must take at least one byte in the stream.
using SaveStreamReadFn = void *(*)(SaveStream *stream);

// Opens the file for writing (mode "wb") or reading (mode "rb"). NULL when
// the file cannot be opened.
SaveStream *savestream_register_binary_file(const char16_t *name, const char *mode);

void savestream_write_byte(SaveStream *stream, uint8_t value);
uint8_t savestream_read_byte(SaveStream *stream);
void savestream_write_ulong(SaveStream *stream, uint32_t value);
uint32_t savestream_read_ulong(SaveStream *stream);
// NULL is written as an absent string and read back as NULL.
void savestream_write_string(SaveStream *stream, const char16_t *text);
WideString savestream_read_string(SaveStream *stream);

// Writes every element in key order through the writer.
void savestream_write_ordered_map(SaveStream *stream, OrderedPtrMap *map,
                                  SaveStreamWriteFn write_element);
// A new map (with the given callbacks) filled with the elements read back.
// On a corrupt stream the map is empty and the error flag set.
OrderedPtrMap *savestream_read_ordered_map(SaveStream *stream, SaveStreamReadFn read_element,
                                           KeyFn key, CopyFn copy, DestroyFn destroy);

// Whether a read or write went wrong so far.
kx_bool16 savestream_has_error(const SaveStream *stream);
// Closes the file and frees the stream; FALSO when anything went wrong
// (including flushing on close).
kx_bool16 savestream_free(SaveStream **stream);

}  // namespace kx
