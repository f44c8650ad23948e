#!/usr/bin/env bash
# run-in-emulator.sh [options] -- command [args...]
#
# Runs a command inside an emulated CV084 instrument: a private mount, PID
# and network namespace in which the panel's serial line, its input
# devices, the FPGA register window, the board-id straps, syslog and the
# test repository server sit at the paths the real controller has. The
# host is not touched; when the command ends, or this script is killed in
# any way, the namespace dies with everything mounted or started in it.
#
# Options:
#   --build-dir DIR   CMake build directory holding tools/emulator (default:
#                     $FPT_BUILD_DIR, else build/release in the repository)
#   --design N        FPGA firmware design in the register window (11, the
#                     self-test image, by default)
#   --jack in|out|unknown  headphone jack at start (default out; unknown: the
#                     panel's detector reports nothing until plugged)
#   --state-dir DIR   keep results, syslog and repository uploads here
#                     (default: a temporary directory, removed afterwards)
#   --input-record N  bytes per input event record: 16 for a 32-bit program
#                     (an armhf build under qemu-user), 24 for a 64-bit one
#                     (default: the emulator's own word size)
#   --no-nexus        do not start the test repository server
#   --nexus-mode M    the server's behaviour: normal, error500, hang, failN
#                     (the first N requests answered 500, then normal),
#                     slowN (N ms to store an upload, N ms more to answer),
#                     noredeploy (an asset already there is refused, 400) or
#                     noredeploy-noread (the same, and no asset can be read)
#   --results-tmpfs SIZE  the results folder is a tmpfs of SIZE (e.g. 64k),
#                     not kept in the state directory, that a test can fill
#
# Inside, `emuctl` (on PATH) works the panel; see `emuctl --help`.
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
BUILD_DIR=${FPT_BUILD_DIR:-$ROOT/build/release}
DESIGN=11
JACK=out
STATE_DIR=
NEXUS=1
NEXUS_MODE=normal
INPUT_RECORD=
RESULTS_TMPFS=

while (($#)); do
    case $1 in
    --build-dir) BUILD_DIR=$2; shift 2 ;;
    --design) DESIGN=$2; shift 2 ;;
    --jack) JACK=$2; shift 2 ;;
    --state-dir) STATE_DIR=$2; shift 2 ;;
    --input-record) INPUT_RECORD=$2; shift 2 ;;
    --no-nexus) NEXUS=0; shift ;;
    --nexus-mode) NEXUS_MODE=$2; shift 2 ;;
    --results-tmpfs) RESULTS_TMPFS=$2; shift 2 ;;
    --) shift; break ;;
    -h | --help) sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//'; exit 0 ;;
    *) echo "run-in-emulator: unknown option $1" >&2; exit 2 ;;
    esac
done
if (($# == 0)); then
    echo "usage: run-in-emulator.sh [options] -- command [args...]" >&2
    exit 2
fi
if [[ $(id -u) -ne 0 ]]; then
    echo "run-in-emulator: needs root (mount and network namespaces, FUSE)" >&2
    exit 2
fi
BUILD_DIR=$(cd "$BUILD_DIR" && pwd)
if [[ ! -x $BUILD_DIR/tools/emulator/cv084-emulator ]]; then
    echo "run-in-emulator: $BUILD_DIR/tools/emulator/cv084-emulator is not built" >&2
    exit 2
fi

KEEP_STATE=1
if [[ -z $STATE_DIR ]]; then
    STATE_DIR=$(mktemp -d "${TMPDIR:-/tmp}/cv084-emu.XXXXXX")
    KEEP_STATE=0
fi
mkdir -p "$STATE_DIR"
STATE_DIR=$(cd "$STATE_DIR" && pwd)

child=
cleanup() {
    # unshare --kill-child turns our SIGKILL into the namespace's death.
    if [[ -n $child ]]; then
        kill -KILL "$child" 2>/dev/null || true
        wait "$child" 2>/dev/null || true
    fi
    if ((KEEP_STATE == 0)); then
        rm -rf "$STATE_DIR"
    fi
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# setpriv: if this script dies even by SIGKILL, unshare gets SIGKILL too,
# and with it the namespace's first process and so every process in it.
exec {tty_in}<&0
setpriv --pdeathsig KILL -- \
    unshare --mount --net --pid --fork --kill-child --mount-proc --propagation private -- \
    "$HERE/ns-init.sh" "$BUILD_DIR" "$STATE_DIR" "$DESIGN" "$JACK" "$NEXUS" "$NEXUS_MODE" "$INPUT_RECORD" "$RESULTS_TMPFS" -- "$@" \
    <&"$tty_in" &
child=$!
status=0
wait "$child" || status=$?
child=
exit "$status"
