#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each for a fixed time on its corpus; fails on the
# first crash, leak or undefined behaviour (the input that caused it is left in <build>/crashes/).
# Usage: run.sh <build folder> [seconds per target]
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
OUT=$1
SECONDS_PER_TARGET=${2:-20}

CC=clang CXX=clang++ cmake -S "$HERE" -B "$OUT" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$OUT" -j "$(nproc 2>/dev/null || echo 2)"

mkdir -p "$OUT/crashes"
for exe in "$OUT"/fuzz_*; do
    [ -x "$exe" ] && [ -f "$exe" ] || continue
    name=${exe##*/fuzz_}
    corpus="$HERE/corpus/$name"
    [ -d "$corpus" ] || { echo "no seed corpus for fuzz_$name in $corpus" >&2; exit 1; }
    # New inputs go to a scratch folder; the repository's corpus is only read.
    scratch="$OUT/found/$name"
    mkdir -p "$scratch"
    echo "== fuzz $name (${SECONDS_PER_TARGET} s)"
    if ! "$exe" -max_total_time="$SECONDS_PER_TARGET" -print_final_stats=1 \
        -artifact_prefix="$OUT/crashes/$name-" "$scratch" "$corpus" >"$OUT/$name.log" 2>&1; then
        tail -n 60 "$OUT/$name.log"
        exit 1
    fi
    grep -E "^(Done|stat::number_of_executed_units)" "$OUT/$name.log" || true
done
