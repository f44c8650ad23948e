#!/usr/bin/env bash
# build.sh <build-dir> [extra cmake args...]: configure (once) and build.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD_DIR=$1
shift
if [[ ! -f "$BUILD_DIR/build.ninja" ]]; then
    cmake -S "$ROOT" -B "$BUILD_DIR" -G Ninja "$@" >/dev/null
fi
cmake --build "$BUILD_DIR" -j "$(nproc)"
