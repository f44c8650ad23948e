#!/usr/bin/env bash
# demo.sh [--build-dir DIR] [--design N] [--jack in|out]
#
# front_panel_test against the emulated CV084 instrument, with a virtual
# front panel beside it: keys on the panel pane press the panel's buttons,
# turn the knob and plug the headphones; every other key goes to the
# program. Results files and what reached the test repository are kept in
# <build-dir>/demo-state afterwards.
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
BUILD_DIR=${FPT_BUILD_DIR:-$ROOT/build/release}
launcher_args=()
while (($#)); do
    case $1 in
    --build-dir) BUILD_DIR=$2; shift 2 ;;
    --design | --jack) launcher_args+=("$1" "$2"); shift 2 ;;
    *) echo "usage: demo.sh [--build-dir DIR] [--design N] [--jack in|out]" >&2; exit 2 ;;
    esac
done
BUILD_DIR=$(cd "$BUILD_DIR" && pwd)
if [[ ! -t 0 || ! -t 1 ]]; then
    echo "demo: needs an interactive terminal (it opens two tmux panes)" >&2
    exit 2
fi
if [[ $(id -u) -ne 0 ]]; then
    # Namespaces and FUSE mounts need root.
    exec sudo FPT_BUILD_DIR="$BUILD_DIR" "$0" "${launcher_args[@]}"
fi
if [[ ! -x $BUILD_DIR/app/front_panel_test ]]; then
    echo "demo: $BUILD_DIR/app/front_panel_test is not built" >&2
    exit 2
fi
STATE=$BUILD_DIR/demo-state
mkdir -p "$STATE"
"$HERE/run-in-emulator.sh" --build-dir "$BUILD_DIR" --state-dir "$STATE" "${launcher_args[@]}" -- \
    "$HERE/demo-session.sh" "$BUILD_DIR/app/front_panel_test"
echo "demo: results files are in $STATE/transfer/log, uploads in $STATE/nexus"
