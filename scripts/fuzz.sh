#!/usr/bin/env bash
# fuzz.sh [seconds]: builds the libFuzzer harnesses (<module>/fuzz) with clang
# in build/fuzz and runs each for the given time (default 20 s) from its
# committed seeds, one per core at a time, printing one line per harness:
#   fuzz <name>: <N> runs, <C> crashes
# A crash's input is kept in build/fuzz/crashes/; add it to the harness's
# corpus once the fault is fixed. Exits 1 when any harness crashed.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"
SECONDS_EACH=${1:-20}
BUILD=build/fuzz

# Warnings are checked by the gcc builds; clang's own must not stop fuzzing.
FPT_BUILD_TARGETS=fuzzers scripts/build.sh $BUILD -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 -DFPT_FUZZ=ON \
    -DFPT_BUILD_TESTS=OFF -DFPT_WARNINGS_AS_ERRORS=OFF >/dev/null

# One harness per core at a time; each is single-threaded.
fuzz_one() {
    local seeds=$1 name binary work log
    name=$(basename "$seeds")
    binary=$(find $BUILD -type f -name "$name" -perm -u+x | head -n 1)
    work=$BUILD/corpus/$name
    mkdir -p "$work" $BUILD/crashes $BUILD/logs
    rm -f "$BUILD/crashes/$name-"*
    log=$BUILD/logs/$name.log
    # New inputs go to the work corpus; the committed seeds are only read.
    # A hang counts as a crash; the program's own messages are not wanted.
    "$binary" -max_total_time="$SECONDS_EACH" -timeout=10 -use_value_profile=1 \
        -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$BUILD/crashes/$name-" \
        "$work" "$seeds" >"$log" 2>&1 || true
}

mapfile -t harnesses < <(find . -path './build*' -prune -o -type d -path '*/fuzz/corpus/*' -print | sort)
parallel=$(nproc)
for ((i = 0; i < ${#harnesses[@]}; i += parallel)); do
    for seeds in "${harnesses[@]:i:parallel}"; do
        fuzz_one "$seeds" &
    done
    wait
done

status=0
for seeds in "${harnesses[@]}"; do
    name=$(basename "$seeds")
    log=$BUILD/logs/$name.log
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    crashes=$(find $BUILD/crashes -name "$name-*" | wc -l)
    echo "fuzz $name: ${runs:-0} runs, $crashes crashes"
    if ((crashes > 0)) || [[ -z $runs ]]; then
        sed -n '/ERROR\|SUMMARY\|deadly\|#[0-9]* 0x/p' "$log" | head -n 20 >&2
        status=1
    fi
done
exit $status
