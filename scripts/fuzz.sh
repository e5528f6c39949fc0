#!/usr/bin/env bash
# Builds the reader's fuzzer with clang (AddressSanitizer, UndefinedBehavior-
# Sanitizer with its check of calls through function pointers, libFuzzer) and
# runs it for SECONDS (default 120) on the hand-made seeds of tests/fuzz/seeds
# and the sample files of ../shared/ifc cut small. Fails on any finding; the
# input that found it is left in build-fuzz/found/: keep it as a regression in
# tests/fuzz/regressions/.
#
# Usage: scripts/fuzz.sh [SECONDS]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-120}
dir="$root/build-fuzz"
launcher=()
export CCACHE_BASEDIR="$root"  # paths inside the checkout hash alike in every clone
if command -v ccache > /dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=Debug \
    -DKX_SANITIZE=ON -DKX_FUZZ=ON -DKX_BUILD_TESTS=OFF "-DCMAKE_CXX_FLAGS=-O1 -fsanitize=fuzzer-no-link" > /dev/null
cmake --build "$dir" --target read_fuzzer

# The seeds: the hand-made files, the regressions, and the first 16 KB of
# every sample file, cut at a line end and closed.
corpus="$dir/corpus"
rm -rf "$corpus" "$dir/found"
mkdir -p "$corpus" "$dir/found"
cp "$root"/tests/fuzz/seeds/* "$corpus"/
cp "$root"/tests/fuzz/regressions/* "$corpus"/ 2> /dev/null || true
shared="$root/../shared/ifc"
if [ -d "$shared" ]; then
    for file in "$shared"/*.ifc; do
        head -c 16384 "$file" | sed '$d' > "$corpus/$(basename "$file")"
        printf 'ENDSEC;\nEND-ISO-10303-21;\n' >> "$corpus/$(basename "$file")"
    done
fi

ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    "$dir/tests/fuzz/read_fuzzer" "$corpus" -dict="$root/tests/fuzz/step.dict" -max_len=65536 \
    -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=20 -artifact_prefix="$dir/found/" \
    -print_final_stats=1 2>&1 | grep -v -e "^#[0-9]*	\(NEW\|REDUCE\|pulse\)" -e "# Uses: " | tail -n 20
status=${PIPESTATUS[0]}
if [ "$status" -ne 0 ]; then
    echo "fuzz: finding kept in $dir/found/ (keep it in tests/fuzz/regressions/)"
    exit 1
fi
echo "fuzz: no finding in ${seconds} s"
