#!/usr/bin/env bash
# armhf-kernel.sh [armhf-build-dir]: the test leg of the instrument's own
# kernel. Boots Debian 12's armmp kernel (32-bit ARM) in qemu-system-arm with
# an initramfs made from the armhf sysroot, and runs there what qemu-user
# cannot show: every armhf unit test (death tests and the exclusive grab
# included), the crash case on the packaged program, and an operator's flow
# whose buttons and knob are uinput devices of that kernel. Needs the armhf
# build and its unpacked package (scripts/armhf.sh, default build/armhf).
# Closes with "armhf kernel: N passed, N failed, N skipped", also appended
# to build/armhf/summary; the machine's console is kept in
# build/armhf/kernel-console.log when the leg fails.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"
BUILD=$(realpath -m "${1:-build/armhf}")
WORK=$BUILD/machine
CONSOLE=$BUILD/kernel-console.log
# A machine that says nothing for this long has hung.
SILENCE_LIMIT=90
# The crash signals whose handler must give the terminal back.
CRASH_SIGNALS="ABRT SEGV BUS FPE"

fail() {
    echo "armhf kernel: $*" >&2
    exit 1
}
scripts/setup.sh --build-only qemu-system-arm cpio >&2
sysroot=$(scripts/armhf-sysroot.sh)
machine=$(scripts/armhf-sysroot.sh --machine)
programs=$BUILD/package/root
[[ -x $programs/usr/bin/front_panel_test ]] || fail "no unpacked armhf package in $programs (scripts/armhf.sh)"
[[ -x $BUILD/tools/machine_operator/cv084-machine-operator ]] || fail "$BUILD is not an armhf build"
kernel=$(ls "$machine"/boot/vmlinuz-*-armmp | head -n1)
modules=$machine/lib/modules/${kernel##*/vmlinuz-}/kernel

# The unit test programs run under qemu-arm by CTest, each with the number
# of its tests that CTest knows: a program that runs fewer in the machine
# has skipped some.
(cd "$BUILD" && ctest --show-only=json-v1 -L '^unit$') >"$WORK.tests.json"
mapfile -t unit_programs < <(python3 - "$WORK.tests.json" <<'EOF'
import collections, json, os, sys
counts = collections.Counter()
for test in json.load(open(sys.argv[1]))["tests"]:
    command = test.get("command") or []
    if len(command) > 3 and os.path.basename(command[0]) == "qemu-arm":
        counts[command[3]] += 1
for program, count in sorted(counts.items()):
    print(count, program)
EOF
)
((${#unit_programs[@]} > 0)) || fail "the armhf build has no unit test programs"

# ---- the initramfs --------------------------------------------------------
rm -rf "$WORK" && mkdir -p "$WORK"/root/{bin,usr/lib/arm-linux-gnueabihf,usr/share,tests,modules}
stage=$WORK/root
ln -s usr/lib "$stage/lib"
cp "$machine/bin/busybox" "$stage/bin/busybox"
cp -a "$machine/lib/terminfo" "$stage/usr/share/terminfo"
cp -a "$programs/." "$stage/"
cp "$BUILD/tools/machine_operator/cv084-machine-operator" "$stage/bin/"
for module in input/misc/uinput input/evdev; do
    cp "$modules/drivers/$module.ko" "$stage/modules/"
done
# Each test program at its path in the build, run in its folder as CTest
# does, with the build's files it names (the credential block generator,
# the test credential) at theirs.
: >"$WORK/expected"
for entry in "${unit_programs[@]}"; do
    program=${entry#* }
    echo "${entry%% *} $program" >>"$WORK/expected"
    for file in "$program" $(strings -n 8 "$program" | grep -o "^$ROOT/[^ \"]*" | sort -u); do
        if [[ -f $file ]]; then
            mkdir -p "$stage${file%/*}"
            cp "$file" "$stage$file"
        fi
    done
done
cp "$WORK/expected" "$stage/tests/expected"
# Debug information of this build's programs is not needed to run, and
# would double the image (the sysroot's libraries come without).
find "$stage$ROOT" "$stage/usr/bin" "$stage/bin" -type f -perm -u+x ! -name busybox -exec sh -c \
    'for f; do head -c4 "$f" | grep -q ELF && arm-linux-gnueabihf-strip --strip-debug "$f"; done' strip {} +

# The shared libraries every program needs, from the sysroot.
libdirs=("$sysroot/lib/arm-linux-gnueabihf" "$sysroot/usr/lib/arm-linux-gnueabihf")
declare -A copied=()
mapfile -t pending < <(find "$stage" -type f -perm -u+x ! -name busybox)
while ((${#pending[@]} > 0)); do
    file=${pending[-1]}
    unset 'pending[-1]'
    [[ -f $file && ! -L $file ]] && head -c4 "$file" | grep -q ELF || continue
    for lib in $(arm-linux-gnueabihf-readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        [[ -z ${copied[$lib]:-} ]] || continue
        copied[$lib]=1
        found=
        for dir in "${libdirs[@]}"; do
            [[ -e $dir/$lib ]] && found=$dir/$lib && break
        done
        [[ -n $found ]] || fail "$lib, needed by ${file##*/}, is not in the sysroot"
        cp -L "$found" "$stage/usr/lib/arm-linux-gnueabihf/$lib"
        pending+=("$stage/usr/lib/arm-linux-gnueabihf/$lib")
    done
done
cp -L "$sysroot/lib/ld-linux-armhf.so.3" "$stage/usr/lib/ld-linux-armhf.so.3"
cp scripts/armhf-kernel-init.sh "$stage/init"
sed -i "s/@CRASH_SIGNALS@/$CRASH_SIGNALS/" "$stage/init"
chmod 755 "$stage/init"
(cd "$stage" && find . -print0 | LC_ALL=C sort -z | cpio --null -o -H newc --quiet) >"$WORK/initramfs.cpio"

# ---- the machine ----------------------------------------------------------
# panic=-1 and -no-reboot: a kernel that panics (or an init that dies) ends
# the machine at once instead of hanging or booting again.
rm -f "$CONSOLE"
started=$(date +%s)
qemu-system-arm -M virt -cpu cortex-a15 -smp 2 -accel tcg,thread=multi -m 1024 \
    -nographic -no-reboot -nic none -kernel "$kernel" -initrd "$WORK/initramfs.cpio" \
    -append 'console=ttyAMA0 quiet loglevel=3 rdinit=/init panic=-1' \
    </dev/null >"$CONSOLE" 2>&1 &
qemu=$!
trap 'kill $qemu 2>/dev/null || true' EXIT
# The watchdog: the machine must keep talking.
last_size=-1
last_change=$started
first_test=
while kill -0 $qemu 2>/dev/null; do
    sleep 1
    now=$(date +%s)
    size=$(stat -c %s "$CONSOLE")
    if ((size != last_size)); then
        last_size=$size
        last_change=$now
    fi
    if [[ -z $first_test ]] && grep -q '^kernel-leg: first test' "$CONSOLE"; then
        first_test=$((now - started))
        echo "armhf kernel: booted to the first test in ${first_test} s"
    fi
    if ((now - last_change > SILENCE_LIMIT)); then
        kill $qemu 2>/dev/null || true
        echo "armhf kernel: the machine said nothing for $SILENCE_LIMIT s" >&2
        break
    fi
done
wait $qemu 2>/dev/null || true
trap - EXIT
tr -d '\r' <"$CONSOLE" >"$CONSOLE.tmp" && mv "$CONSOLE.tmp" "$CONSOLE"

# ---- the results ----------------------------------------------------------
passed=0 failed=0 skipped=0
while read -r _ _ name ran ok bad skip; do
    ran=${ran#exit=} ok=${ok#passed=} bad=${bad#failed=} skip=${skip#skipped=}
    passed=$((passed + ok)) failed=$((failed + bad)) skipped=$((skipped + skip))
    expected=$(awk -v n="$name" '$2 == n {print $1}' "$WORK/expected")
    if ((ok + bad + skip != expected)); then
        echo "armhf kernel: $name ran $((ok + bad + skip)) of its $expected tests (exit $ran)" >&2
        failed=$((failed + 1))
    elif ((ran != 0 && bad == 0)); then
        echo "armhf kernel: $name passed its tests but ended with $ran" >&2
        failed=$((failed + 1))
    fi
done < <(grep '^kernel-leg: unit ' "$CONSOLE" || true)
reported=$(grep -c '^kernel-leg: unit ' "$CONSOLE" || true)
if ((reported != ${#unit_programs[@]})); then
    echo "armhf kernel: $reported of ${#unit_programs[@]} unit test programs reported" >&2
    failed=$((failed + ${#unit_programs[@]} - reported))
fi
cases=$(grep -cE '^(PASS|FAIL) ' "$CONSOLE" || true)
passed=$((passed + $(grep -c '^PASS ' "$CONSOLE" || true)))
failed=$((failed + $(grep -c '^FAIL ' "$CONSOLE" || true)))
expected_cases=$(($(wc -w <<<"$CRASH_SIGNALS") + 1))
if ((cases != expected_cases)); then
    echo "armhf kernel: $cases of the $expected_cases program cases reported" >&2
    failed=$((failed + expected_cases - cases))
fi
if ! grep -q '^kernel-leg: done' "$CONSOLE"; then
    echo "armhf kernel: the machine stopped before the end" >&2
    ((failed > 0)) || failed=1
fi
echo "armhf kernel: whole leg $(($(date +%s) - started)) s in the machine"
line="armhf kernel: $passed passed, $failed failed, $skipped skipped"
echo "$line" | tee -a "$BUILD/summary"
if ((failed > 0 || skipped > 0)); then
    echo "armhf kernel: the machine's console is in $CONSOLE" >&2
    exit 1
fi
rm -f "$CONSOLE"
