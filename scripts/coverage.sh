#!/usr/bin/env bash
# Builds the library and its tests with gcc's --coverage in build-coverage,
# runs the test suite, and prints the line and branch coverage of the
# hand-written library sources (src/; the generated sources live in the build
# tree and are left out). Branches that only throw, and those gcc marks
# unreachable, are not counted. The per-file table goes to
# build-coverage/coverage.txt (and coverage.json for comparing runs).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${KX_COVERAGE_DIR:-$root/build-coverage}
jobs=${KX_JOBS:-$(nproc)}

launcher=()
export CCACHE_BASEDIR="$root"
if command -v ccache > /dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

cmake -S "$root" -B "$build" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=Debug -DKX_COVERAGE=ON \
    -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ > "$build.configure.log"
# Counters add up across runs (and the test discovery after each link runs
# the tests too): start from zero, before building.
find "$build" -name '*.gcda' -delete 2> /dev/null || true
cmake --build "$build" -j "$jobs"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j "$jobs" --output-on-failure > "$build/ctest.log" || {
    cat "$build/ctest.log"
    exit 1
}
tail -n 3 "$build/ctest.log" | grep 'tests passed' || true

gcovr_options=(--root "$root" --filter "$root/src/" --exclude-throw-branches --exclude-unreachable-branches
               -j "$jobs" "$build")
gcovr "${gcovr_options[@]}" --json "$build/coverage.json" --txt "$build/coverage.txt" --print-summary
