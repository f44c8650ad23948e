#!/usr/bin/env bash
# armhf.sh [host-build-dir]: the test leg of the instrument's own CPU.
# Cross-builds the product and its unit tests for armhf (build/armhf), runs
# every unit test under qemu-user, and runs the armhf program once in the
# emulated instrument, whose emulator comes from the host build (default
# build/release). Closes with "armhf: N passed, N failed, N skipped"; any
# failure to set up, build or run fails the leg.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"
HOST_BUILD=$(realpath -m "${1:-build/release}")
BUILD=build/armhf

# Tests that only a kernel can pass, not qemu-user 7.2: each pattern (a
# CTest regular expression) is named with the reason, and the tests it
# matches are counted as skipped.
QEMU_CANNOT=(
    "DeathTest\\.|a death test re-executes the test program, and qemu-user cannot execute an ARM program (no binfmt_misc)"
    "^EventDeviceCommsTest\\.InitializeFailuresAreReported$|qemu-user answers EVIOCGRAB, which it does not know, with ENOSYS where the kernel says ENOTTY"
    "^CredentialBlockGenerator\\.|QProcess starts children with clone(CLONE_PIDFD), which qemu-user refuses"
)

fail() {
    echo "armhf: $*" >&2
    exit 1
}
scripts/armhf-build.sh "$BUILD" -DFPT_EMULATOR_HOST_BUILD_DIR="$HOST_BUILD" ||
    fail "the cross build failed"
FPT_BUILD_TARGETS="cv084-emulator cv084-device-bridge" scripts/build.sh "$HOST_BUILD" >/dev/null ||
    fail "the host build of the emulator failed"

excluded=()
for entry in "${QEMU_CANNOT[@]}"; do
    echo "armhf: not run under qemu-user: ${entry%%|*}: ${entry#*|}"
    excluded+=("${entry%%|*}")
done
exclude=$(IFS='|' && echo "${excluded[*]}")
labels='^(unit|e2e)$'
skipped=$(cd "$BUILD" && ctest -N -L "$labels" -R "$exclude" | grep -c ' Test *#' || true)

log=$BUILD/armhf-ctest.log
status=0
(cd "$BUILD" && ctest --output-on-failure -j "$(nproc)" -L "$labels" -E "$exclude") 2>&1 |
    tee "$log" || status=1
summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" || true)
[[ -n $summary ]] || fail "ctest ran no test"
read -r total failed < <(sed -E 's/.*, ([0-9]+) tests? failed out of ([0-9]+).*/\2 \1/' <<<"$summary")
((total > 0)) || fail "ctest ran no test"
echo "armhf: $((total - failed)) passed, $failed failed, $skipped skipped"
exit $status
