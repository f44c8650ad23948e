#!/usr/bin/env bash
# build.sh <build-dir> [extra cmake args...]: configure (once) and build
# everything, or only $FPT_BUILD_TARGET when that is set.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD_DIR=$1
shift
# ccache, when present, keeps compiled objects across build folders and
# checkouts (paths are made relative to the checkout, so clones share hits).
# It lives under /var/cache, outside any checkout, so later CI runs on the
# same machine start warm.
export CCACHE_BASEDIR="$ROOT" CCACHE_NOHASHDIR=1
if [[ -z ${CCACHE_DIR:-} ]] && mkdir -p /var/cache/front_panel_test/ccache 2>/dev/null; then
    export CCACHE_DIR=/var/cache/front_panel_test/ccache
fi
launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
if [[ ! -f "$BUILD_DIR/build.ninja" ]]; then
    cmake -S "$ROOT" -B "$BUILD_DIR" -G Ninja "${launcher[@]}" "$@" >/dev/null
fi
cmake --build "$BUILD_DIR" -j "$(nproc)" ${FPT_BUILD_TARGET:+--target "$FPT_BUILD_TARGET"}
