#!/usr/bin/env bash
# Installs what is needed, builds, and starts front_panel_test.
# Until the emulated instrument lands this can only show the program's usage.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"
scripts/setup.sh
scripts/build.sh build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
if [[ -x build/release/app/front_panel_test ]]; then
    build/release/app/front_panel_test -h || true
else
    echo "front_panel_test is not built yet: the application has not landed." >&2
fi
