// Marks of the address sanitizer on memory the library hands out itself
// (pool blocks and their free places): a use of a freed or unallocated
// place is caught as it would be for a heap block. Nothing in other builds.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define KX_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define KX_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define KX_POISON(address, size) ((void)(address), (void)(size))
#define KX_UNPOISON(address, size) ((void)(address), (void)(size))
#endif
