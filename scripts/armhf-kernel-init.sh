#!/bin/busybox sh
# First process of the armhf kernel leg's virtual machine, /init of the
# initramfs that scripts/armhf-kernel.sh makes; never run by hand. Lays out
# the instrument's controller, runs every armhf unit test program, the crash
# case and the operator's flow on the packaged program, and reports each on
# the console for the host to count:
#   kernel-leg: unit NAME exit=N passed=N failed=N skipped=N
#   PASS CASE / FAIL CASE: why
# then "kernel-leg: done", and powers the machine off.
/bin/busybox mkdir -p /bin /proc /sys /dev /tmp /run /root
/bin/busybox --install -s /bin
export PATH=/bin:/usr/bin HOME=/root
mount -t devtmpfs devtmpfs /dev
# The kernel found no console in the initramfs to give this process.
exec </dev/console >/dev/console 2>&1
# Only the results on the console from here: no kernel messages between them.
dmesg -n 1
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mkdir -p /dev/pts /dev/shm
mount -t devpts -o ptmxmode=0666 devpts /dev/pts
mount -t tmpfs -o mode=1777 tmpfs /tmp
mount -t tmpfs -o mode=1777 tmpfs /dev/shm
mount -t tmpfs -o mode=755 tmpfs /run
ulimit -c 0
# Programs and tests may talk to themselves over the loopback.
ip link set lo up

# The panel's buttons and knob are uinput devices read through evdev.
for module in /modules/*.ko; do
    insmod "$module" || echo "kernel-leg: cannot load $module"
done

echo "kernel-leg: first test at $(cut -d' ' -f1 /proc/uptime) s"

# ---- the unit tests ---------------------------------------------------------
count() {
    sed -n "s/^\[$1\] \([0-9]*\) tests\{0,1\}[ .,].*/\1/p" "$2" | head -n1
}
# LANE: runs every other program of the list (the machine has two CPUs),
# each in its own folder of the build, as CTest does.
unit_lane() {
    log=/tmp/unit-$1.log
    n=0
    while read -r tests program; do
        n=$((n + 1))
        [ $((n % 2)) = "$1" ] || continue
        (cd "${program%/*}" && exec timeout -s KILL 300 "$program") >$log 2>&1
        status=$?
        ran=$(count ========== $log) passed=$(count '  PASSED  ' $log) skipped=$(count '  SKIPPED ' $log)
        failed=$((${ran:-0} - ${passed:-0} - ${skipped:-0}))
        [ "$status" = 0 ] && [ -z "$skipped" ] || cat $log
        echo "kernel-leg: unit $program exit=$status passed=${passed:-0} failed=${failed:-0} skipped=${skipped:-0}"
    done </tests/expected
}
unit_lane 0 &
unit_lane 1
wait

# ---- the controller around the program -------------------------------------
# Laid out only now: the unit tests expect a machine without an instrument.
mkdir -p /home/transfer/log
# Board-id straps: a VyP baseboard (65), its mezzanine (1), the CV084 front
# panel (5), power share 1; each group's lines most significant first.
mount -t tmpfs -o mode=755 tmpfs /sys/class/gpio
straps() {
    value=$1
    shift
    bit=$(($# - 1))
    for line in "$@"; do
        mkdir -p /sys/class/gpio/gpio$line
        echo $(((value >> bit) & 1)) >/sys/class/gpio/gpio$line/value
        echo in >/sys/class/gpio/gpio$line/direction
        bit=$((bit - 1))
    done
}
straps 65 127 126 125 124 123 122 121
straps 1 508 507 506 505 504
straps 5 502 501 500 499 498 497 496
straps 1 113 116 115 114
# The FPGA's 8 MiB register window, as the self-test image leaves it: the
# firmware word (design 11, version 1.3, bytes swapped), its build, and the
# AXI I2C engine idle with its last phase acknowledged. Words little-endian.
dd if=/dev/zero of=/run/xdma0_user bs=1M count=8 2>/dev/null
word() {
    printf "$2" | dd of=/run/xdma0_user bs=1 seek=$(($1 * 4)) conv=notrunc 2>/dev/null
}
word 0x10 '\001\003\013\000'
word 0x11 '\026\013\351\007'
word 0x2a '\000\010\000\000'
ln -s /run/xdma0_user /dev/xdma0_user

# ---- the packaged program -----------------------------------------------------
for signal in @CRASH_SIGNALS@; do
    timeout -s KILL 120 cv084-machine-operator crash "$signal" /usr/bin/front_panel_test ||
        echo "kernel-leg: crash case $signal ended with $?"
done
timeout -s KILL 120 cv084-machine-operator flow /usr/bin/front_panel_test ||
    echo "kernel-leg: flow ended with $?"

echo "kernel-leg: done"
poweroff -f
