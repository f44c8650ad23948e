#!/usr/bin/env bash
# benchmark.sh [--build-dir DIR]: front_panel_test's start-up time, button
# to LED latency, key to panel line latency, knob and key taken in arrival
# order, idle CPU and terminal output, peak memory, and how soon a signal ends
# an upload's try (a repository that never answers), measured on the emulated
# instrument. Takes about three minutes.
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
BUILD_DIR=${FPT_BUILD_DIR:-$ROOT/build/release}
if [[ ${1:-} == --build-dir ]]; then
    BUILD_DIR=$2
    shift 2
fi
BUILD_DIR=$(cd "$BUILD_DIR" && pwd)
exec "$HERE/run-in-emulator.sh" --build-dir "$BUILD_DIR" --nexus-mode hang -- \
    python3 "$HERE/bench/benchmark.py" "$BUILD_DIR/app/front_panel_test" "$@"
