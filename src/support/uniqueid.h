// The process-wide source of unique 32-bit ids: every call gives a new id,
// also when called from several threads. 0 is never given.
#pragma once

#include <cstdint>

namespace kx {

uint32_t uniqueid_new();

}  // namespace kx
