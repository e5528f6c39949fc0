// The in-band undefined values of the six EXPRESS base types, for the
// library's own code (the exported kxIfcCoreTypes_* functions are built on
// these).
#pragma once

#include <bit>
#include <cstdint>
#include <limits>

#include "kxifc_defs.h"

namespace kx {

constexpr kxBoolean kBooleanUndefined = -1;
constexpr int32_t kIntegerUndefined = std::numeric_limits<int32_t>::max();
constexpr uint64_t kRealUndefinedBits = 0x7FEFFFFFFFFFFFFFull;
constexpr double kRealUndefined = std::numeric_limits<double>::max();
static_assert(std::bit_cast<uint64_t>(kRealUndefined) == kRealUndefinedBits);

constexpr kxLogical kLogicalTrue = 1;
constexpr kxLogical kLogicalFalse = 0;
constexpr kxLogical kLogicalUnknown = -1;
constexpr kxLogical kLogicalUndefined = -2;

// Only the exact bit pattern counts: NaN and the infinities are values.
constexpr bool real_is_undefined(double value) {
    return std::bit_cast<uint64_t>(value) == kRealUndefinedBits;
}

}  // namespace kx
