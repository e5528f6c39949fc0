// Small shared vocabulary of the library's internals: the 32-bit "unsigned
// long" limit, the 16-bit boolean used in flags and predicates, and the
// callback shapes the containers take.
#pragma once

#include <cstdint>

// 16-bit boolean of flags and predicates.
using kx_bool16 = int16_t;
constexpr int16_t CIERTO = 1;
constexpr int16_t FALSO = 0;

namespace kx {

// The largest "unsigned long" (32 bits); also used as "no value" marker.
constexpr uint32_t ULONG_MAX32 = 4294967295u;

// Destroys the object the holder points to and leaves the holder NULL.
using DestroyFn = void (*)(void **holder);
// Returns a new copy of an element.
using CopyFn = void *(*)(const void *element);
// Whether an element matches a search key.
using MatchFn = kx_bool16 (*)(const void *element, const void *key);
// Orders two items: negative, 0 or positive.
using CompareFn = int (*)(const void *a, const void *b);
// Gives the unsigned-long key of an element.
using KeyFn = uint32_t (*)(const void *element);

// Compares two unsigned longs given by address: negative, 0 or positive.
int ulong_compare(const void *a, const void *b);

// A callback of the generic shape a container takes (Fn) that calls a typed
// function (such as `void thing_destroy(Thing **)`) with its arguments cast
// to the types that function takes: the function is always called through
// its own type. The container only ever passes pointers of the element's
// real type. Use: callback<DestroyFn, &thing_destroy>().
template <typename Fn, auto Target>
struct Callback;

template <typename R, typename... Args, auto Target>
struct Callback<R (*)(Args...), Target> {
    template <typename TargetR, typename... TargetArgs>
    static R forward(TargetR (*target)(TargetArgs...), Args... args) {
        return static_cast<R>(target(reinterpret_cast<TargetArgs>(args)...));
    }
    static R call(Args... args) { return forward(Target, args...); }
};

template <typename Fn, auto Target>
constexpr Fn callback() {
    return &Callback<Fn, Target>::call;
}

}  // namespace kx
