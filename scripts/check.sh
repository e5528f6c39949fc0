#!/usr/bin/env bash
# Builds the library and runs the whole test suite twice: an optimised
# build, then one under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${KX_JOBS:-$(nproc)}

run_variant() {
    local dir=$1
    shift
    cmake -S "$root" -B "$dir" -G Ninja "$@"
    cmake --build "$dir" -j "$jobs"
    ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}

run_variant "$root/build-check" -DCMAKE_BUILD_TYPE=Release
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_variant "$root/build-check-asan" -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=ON -DCMAKE_CXX_FLAGS=-O1
