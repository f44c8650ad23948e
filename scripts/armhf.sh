#!/usr/bin/env bash
# armhf.sh [host-build-dir]: the test leg of the instrument's own CPU.
# Cross-builds the product and its unit tests for armhf (build/armhf), runs
# every unit test under qemu-user, makes the armhf package
# (scripts/package.sh), unpacks it and runs every end-to-end case with its
# programs under qemu-user in the emulated instrument, whose emulator and
# test repository come from the host build (default build/release). Closes
# with "armhf e2e: N passed, N failed" and "armhf: N passed, N failed,
# N skipped" (the unit tests), also kept in build/armhf/summary; any failure
# to set up, build, package or run fails the leg. What qemu-user cannot run
# is run by the kernel leg (scripts/armhf-kernel.sh), on an ARM kernel.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"
HOST_BUILD=$(realpath -m "${1:-build/release}")
BUILD=build/armhf

# Tests that only a kernel can pass, not qemu-user 7.2: each pattern (a
# CTest regular expression, unit tests and end-to-end cases alike) is named
# with the reason, and the tests it matches are counted as skipped here.
QEMU_CANNOT=(
    "^CredentialBlockGenerator\\.|QProcess starts children with clone(CLONE_PIDFD), which qemu-user refuses; run in the kernel leg (scripts/armhf-kernel.sh)"
    "^e2e_crash_gives_back_the_terminal$|qemu-user takes a SIGSEGV or SIGFPE sent by kill(2) for a fault of its own and dies of SIGSEGV, so the program's crash handler never runs; run in the kernel leg (scripts/armhf-kernel.sh)"
)
# A death test re-executes its ARM test program. In a user and mount
# namespace of its own (Linux 6.7 and later) the leg mounts a private
# binfmt_misc whose "arm" entry hands ARM programs to qemu-arm, opened once
# (F) so that it is found whatever the namespace; the host's is not touched.
ARM_MAGIC='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
ARM_MASK='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
with_arm_binfmt() {
    # The re-executed program finds the armhf libraries through the prefix.
    QEMU_LD_PREFIX=$("$ROOT/scripts/armhf-sysroot.sh") unshare --user --map-root-user --mount -- sh -c '
        mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc &&
        printf "%s\n" ":arm:M::$1:$2:/usr/bin/qemu-arm:F" >/proc/sys/fs/binfmt_misc/register &&
        shift 2 && exec "$@"' with-arm-binfmt "$ARM_MAGIC" "$ARM_MASK" "$@"
}

fail() {
    echo "armhf: $*" >&2
    exit 1
}
# The armhf programs upload to the host build's test repository, so they
# are provisioned with its credential.
mkdir -p "$BUILD"
if ! cmp -s "$HOST_BUILD/nexus-test-credential" "$BUILD/nexus-test-credential"; then
    install -m 0600 "$HOST_BUILD/nexus-test-credential" "$BUILD/nexus-test-credential" ||
        fail "the host build $HOST_BUILD has no test credential"
fi
scripts/armhf-build.sh "$BUILD" -DFPT_EMULATOR_HOST_BUILD_DIR="$HOST_BUILD" ||
    fail "the cross build failed"
FPT_BUILD_TARGETS="cv084-emulator cv084-device-bridge" scripts/build.sh "$HOST_BUILD" >/dev/null ||
    fail "the host build of the emulator failed"
scripts/package.sh armhf "$BUILD" || fail "the armhf package could not be made"
dpkg-deb -x "$BUILD"/package/front-panel-test_*_armhf.deb "$BUILD/package/root"

excluded=()
for entry in "${QEMU_CANNOT[@]}"; do
    echo "armhf: not run under qemu-user: ${entry%%|*}: ${entry#*|}"
    excluded+=("${entry%%|*}")
done
exclude=$(IFS='|' && echo "${excluded[*]}")

# run_ctest LABEL JOBS [WRAPPER...]: runs the label's tests but the excluded
# ones (under WRAPPER); sets passed, failed and skipped.
status=0
run_ctest() {
    local log=$BUILD/armhf-ctest-$1.log summary total label=$1 jobs=$2
    shift 2
    skipped=$(cd "$BUILD" && ctest -N -L "^$label\$" -R "$exclude" | grep -c ' Test *#' || true)
    (cd "$BUILD" && "$@" ctest --output-on-failure -j "$jobs" -L "^$label\$" -E "$exclude") 2>&1 |
        tee "$log" || status=1
    summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" || true)
    [[ -n $summary ]] || fail "ctest ran no $label test"
    read -r total failed < <(sed -E 's/.*, ([0-9]+) tests? failed out of ([0-9]+).*/\2 \1/' <<<"$summary")
    ((total > 0)) || fail "ctest ran no $label test"
    passed=$((total - failed))
}
run_ctest unit "$(nproc)" with_arm_binfmt
unit="armhf: $passed passed, $failed failed, $skipped skipped"
# Each case is mostly waiting on qemu and the emulated panel: more run at
# once than there are cores.
run_ctest e2e "$((2 * $(nproc)))"
e2e="armhf e2e: $passed passed, $failed failed"
((skipped == 0)) || e2e+=", $skipped skipped"
printf '%s\n' "$e2e" "$unit" | tee "$BUILD/summary"
exit $status
