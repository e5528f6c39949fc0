#!/usr/bin/env bash
# Measures this checkout against an earlier revision in the same run: builds
# the revision's library in a temporary worktree, compiles the current
# step benchmark against both libraries, runs them alternately (this
# checkout on one thread and on two) and prints the median of each measure
# with the ratio to the revision's (below 1: less time or memory).
#
# Each timed run follows an untimed run of the same program (KX_WARM=0 turns
# that off), so that every build starts from the memory the system has just
# freed. A virtual machine that hands freed memory back to its host makes
# the first touch of memory that stayed free for a few seconds cost far more
# than reading the file; without the warm-up, the build that runs after the
# one freeing the least memory pays for it.
#
# Usage: bench/compare_builds.sh REVISION FILE.ifc...   (KX_RUNS runs each, default 3)
set -euo pipefail
revision=$1
shift
runs=${KX_RUNS:-3}
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/kxifc_compare_XXXXXX)
trap 'git -C "$root" worktree remove --force "$work/old" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

build_bench() {  # source tree, build dir, output binary, extra compiler flags (both link as a whole program)
    cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_TESTS=OFF > /dev/null
    cmake --build "$2" --target kxifcmodel_static > /dev/null
    g++ -std=c++20 -O2 -flto=auto ${4:-} -I"$1/include" -I"$1/src" -I"$2/generated/include" "$root/bench/step_bench.cpp" \
        "$2/src/libkxifcmodel.a" -o "$3" -pthread
}

git -C "$root" worktree add --detach "$work/old" "$revision" > /dev/null
build_bench "$work/old" "$work/old-build" "$work/bench-old"
build_bench "$root" "$work/new-build" "$work/bench-new" -DKX_BENCH_THREADS

# The seconds (or MiB) of one measure in every run of a build, sorted.
values() { grep -h "^$1" "$work"/$2.* | awk -v f="$3" '{print $f}' | sort -g; }
median() { values "$1" "$2" "$3" | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.3f", a / b}'; }

# One timed run (output to $1), after the warm-up run.
timed() {
    local output=$1
    shift
    [ "${KX_WARM:-1}" = 0 ] || "$@" > /dev/null
    "$@" > "$output"
}

for file in "$@"; do
    # Alternating runs: the revision, this checkout on one thread, on two.
    rm -f "$work"/old.* "$work"/new.* "$work"/two.*
    for ((i = 0; i < runs; i++)); do
        timed "$work/old.$i" "$work/bench-old" "$file"
        timed "$work/new.$i" "$work/bench-new" "$file" 0 1
        timed "$work/two.$i" "$work/bench-new" "$file" 0 2
    done
    echo "$(basename "$file"): median of $runs runs"
    printf "%-22s %12s %12s %8s %12s %8s\n" measure "${revision:0:12}" "1 thread" ratio "2 threads" ratio
    for measure in "read:2" "write:2" "free:2" "model memory:3" "model memory:11"; do
        name=${measure%%:*}
        field=${measure##*:}
        old=$(median "$name" old "$field")
        new=$(median "$name" new "$field")
        two=$(median "$name" two "$field")
        label=$name
        [ "$measure" = "model memory:11" ] && label="peak RSS (MiB)"
        [ "$measure" = "model memory:3" ] && label="model memory (MiB)"
        printf '%-22s %12s %12s %8s %12s %8s\n' "$label" "$old" "$new" "$(ratio "$new" "$old")" "$two" "$(ratio "$two" "$old")"
    done
done
