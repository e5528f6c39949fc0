// 128-bit GUIDs and their 22-character compressed encoding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kx {

// The platform layout of a GUID.
struct Guid {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
};
static_assert(sizeof(Guid) == 16);

// Length of the compressed form and the buffer size it needs (with the NUL).
constexpr size_t kCompressedGuidLength = 22;
constexpr size_t kCompressedGuidBufferSize = 23;

// Fills `guid` with a random version-4 GUID. On failure returns false and
// leaves `guid` all zero.
bool guid_generate(Guid *guid);

bool guid_is_zero(const Guid &guid);

// Writes `value` as `digit_count` base-64 digits of the compressed alphabet,
// most significant first, into out[0..digit_count-1] (no NUL). Refuses
// (false) for more than 4 digits or when the value does not fit.
bool guid_write_digits(uint32_t value, uint32_t digit_count, char *out);

// Writes the 22-character compressed form and a NUL into `out`. Refuses
// (false) when out_size is below 23 or a digit write refuses.
bool guid_encode_compressed(const Guid &guid, char *out, size_t out_size);

}  // namespace kx
