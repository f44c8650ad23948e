#!/usr/bin/env bash
# Installs what is needed, builds, and starts front_panel_test against the
# emulated instrument, with a virtual front panel beside it (two tmux panes).
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"
scripts/setup.sh
# Only the programs: a first demo does not wait for the tests to build.
FPT_BUILD_TARGETS=demo_programs scripts/build.sh build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
exec tools/emulator/demo.sh --build-dir build/release "$@"
