#!/usr/bin/env bash
# Builds the library and runs the whole test suite in three builds: an
# optimised gcc build, gcc with AddressSanitizer and UndefinedBehaviorSanitizer,
# and clang with the same plus its check of calls through function pointers;
# then fuzzes the reader for a while. Ends with one verdict line:
# "check: N passed, N failed".
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${KX_JOBS:-$(nproc)}
fuzz_seconds=${KX_FUZZ_SECONDS:-120}
passed=0
failed=0

launcher=()
export CCACHE_BASEDIR="$root"  # paths inside the checkout hash alike in every clone
if command -v ccache > /dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# Adds a ctest summary ("97% tests passed, 3 tests failed out of 100") to
# the totals, and says why each skipped test was skipped.
count_results() {
    local dir=$1 log=$2 line total failures
    line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
    if [ -z "$line" ]; then
        failed=$((failed + 1))
        return
    fi
    failures=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<< "$line")
    total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<< "$line")
    passed=$((passed + total - failures))
    failed=$((failed + failures))
    grep -h -A1 ': Skipped$' "$dir/Testing/Temporary/LastTest.log" 2>/dev/null | grep -v -e '^--$' -e ': Skipped$' |
        sort | uniq -c | sed 's/^ */skipped: /'
}

run_variant() {
    local dir=$1
    shift
    echo "== $(basename "$dir")"
    if ! cmake -S "$root" -B "$dir" -G Ninja "${launcher[@]}" "$@" > "$dir.configure.log" 2>&1 ||
       ! cmake --build "$dir" -j "$jobs"; then
        cat "$dir.configure.log" 2> /dev/null
        echo "$(basename "$dir"): the build failed"
        failed=$((failed + 1))
        return
    fi
    ctest --test-dir "$dir" --output-on-failure -j "$jobs" 2>&1 | tee "$dir.ctest.log"
    count_results "$dir" "$dir.ctest.log"
}

run_variant "$root/build-check" -DCMAKE_BUILD_TYPE=Release
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_variant "$root/build-check-asan" -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=ON -DCMAKE_CXX_FLAGS=-O1
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 CC=clang CXX=clang++ \
    run_variant "$root/build-check-clang" -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=ON -DCMAKE_CXX_FLAGS=-O1
if [ -x "$root/scripts/fuzz.sh" ]; then
    echo "== fuzzing the reader for ${fuzz_seconds} s"
    if "$root/scripts/fuzz.sh" "$fuzz_seconds"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
fi

echo "check: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
