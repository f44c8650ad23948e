#!/usr/bin/env bash
# The emulated instrument must leave nothing running when its launcher ends
# normally, is terminated, or is killed outright; and it passes on the
# command's exit status.
# usage: leaves_nothing_behind.sh BUILD_DIR
set -uo pipefail
BUILD_DIR=$1
LAUNCHER=$(cd "$(dirname "$0")/.." && pwd)/run-in-emulator.sh
failures=0

fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# Processes whose command line mentions $1, other than this script.
survivors() {
    local pid
    for cmdline in /proc/[0-9]*/cmdline; do
        pid=${cmdline#/proc/}
        pid=${pid%/cmdline}
        [[ $pid == "$$" ]] && continue
        if tr '\0' ' ' <"$cmdline" 2>/dev/null | grep -qF -- "$1"; then
            echo "$pid: $(tr '\0' ' ' <"$cmdline")"
        fi
    done
}

check_gone() { # label marker
    local left
    for _ in $(seq 50); do
        left=$(survivors "$2")
        [[ -z $left ]] && return 0
        sleep 0.1
    done
    fail "$1: still running: $left"
}

# 1. exit status passes through
"$LAUNCHER" --build-dir "$BUILD_DIR" --no-nexus -- bash -c 'exit 7'
status=$?
[[ $status -eq 7 ]] || fail "exit status: got $status, wanted 7"

# 2. and 3. a long command, with the launcher terminated or killed
for signal in TERM KILL; do
    state=$(mktemp -d)
    marker="cv084-leftover-check-$signal-$$"
    "$LAUNCHER" --build-dir "$BUILD_DIR" --no-nexus --state-dir "$state" -- \
        bash -c "touch /run/cv084-emu/state/started; exec -a $marker sleep 600" &
    launcher=$!
    for _ in $(seq 100); do
        [[ -f $state/started ]] && break
        sleep 0.1
    done
    [[ -f $state/started ]] || fail "$signal: the command never started"
    [[ -n $(survivors "$marker") ]] || fail "$signal: the marker process is not visible"
    kill -"$signal" "$launcher"
    wait "$launcher" 2>/dev/null
    check_gone "$signal (command)" "$marker"
    check_gone "$signal (namespace)" "$state"
    rm -rf "$state"
done

if ((failures)); then
    echo "$failures failed"
    exit 1
fi
echo "leaves_nothing_behind: 3 passed, 0 failed"
