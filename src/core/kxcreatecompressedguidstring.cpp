#define KX_UNIT "kxcreatecompressedguidstring"
#include "kxifc_guid.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>

#include "core/guid.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace kx {
namespace {

constexpr char kAlphabet[] =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$";
static_assert(sizeof kAlphabet == 65);

// Fills `size` bytes from the kernel's random source; false if it fails.
bool fill_random(unsigned char *bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got = getrandom(bytes + done, size - done, 0);
        if (got < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += size_t(got);
    }
    return true;
}

}  // namespace

bool guid_generate(Guid *guid) {
    kx_assert_not_null(guid);
    if (guid == nullptr) return false;
    unsigned char bytes[sizeof(Guid)] = {};
    if (!fill_random(bytes, sizeof bytes)) {
        std::memset(guid, 0, sizeof *guid);
        return false;
    }
    std::memcpy(&guid->data1, bytes, 4);
    std::memcpy(&guid->data2, bytes + 4, 2);
    std::memcpy(&guid->data3, bytes + 6, 2);
    std::memcpy(guid->data4, bytes + 8, 8);
    guid->data3 = uint16_t((guid->data3 & 0x0FFF) | 0x4000);  // version 4
    guid->data4[0] = uint8_t((guid->data4[0] & 0x3F) | 0x80);   // variant 10
    return true;
}

bool guid_is_zero(const Guid &guid) {
    if (guid.data1 != 0 || guid.data2 != 0 || guid.data3 != 0) return false;
    for (uint8_t byte : guid.data4)
        if (byte != 0) return false;
    return true;
}

bool guid_write_digits(uint32_t value, uint32_t digit_count, char *out) {
    if (digit_count > 4) return false;
    for (uint32_t i = digit_count; i > 0; --i) {
        out[i - 1] = kAlphabet[value % 64];
        value /= 64;
    }
    return value == 0;
}

bool guid_encode_compressed(const Guid &guid, char *out, size_t out_size) {
    if (out == nullptr || out_size < kCompressedGuidBufferSize) return false;
    const uint32_t d4[8] = {guid.data4[0], guid.data4[1], guid.data4[2], guid.data4[3],
                            guid.data4[4], guid.data4[5], guid.data4[6], guid.data4[7]};
    const uint32_t parts[6] = {
        guid.data1 >> 24,
        guid.data1 & 0xFFFFFFu,
        (uint32_t(guid.data2) << 8) + (uint32_t(guid.data3) >> 8),
        ((uint32_t(guid.data3) & 0xFFu) << 16) + (d4[0] << 8) + d4[1],
        (d4[2] << 16) + (d4[3] << 8) + d4[4],
        (d4[5] << 16) + (d4[6] << 8) + d4[7],
    };
    if (!guid_write_digits(parts[0], 2, out)) return false;
    for (size_t i = 1; i < 6; ++i)
        if (!guid_write_digits(parts[i], 4, out + 2 + (i - 1) * 4)) return false;
    out[kCompressedGuidLength] = 0;
    return true;
}

}  // namespace kx

extern "C" KX_API kxWChar *kxCreateCompressedGuidString_Create(void) {
    char *text = static_cast<char *>(kx::mem_alloc(kx::kCompressedGuidBufferSize));
    kx::Guid guid{};
    kx::guid_generate(&guid);  // an all-zero GUID tells the failure
    kxWChar *result = nullptr;
    if (!kx::guid_is_zero(guid) &&
        kx::guid_encode_compressed(guid, text, kx::kCompressedGuidBufferSize))
        result = kx::wstr_from_narrow(text);
    kx::mem_free_and_clear(&text);
    return result;
}
