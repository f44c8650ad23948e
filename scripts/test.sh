#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test: once in the normal
# build (and makes its Debian package), on armhf under qemu-user (the armhf
# package's programs), on armhf once more on the instrument's own 32-bit
# kernel in a virtual machine (what qemu-user cannot run), and once more
# under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
cd "$ROOT"

scripts/setup.sh

status=0
rm -f build/release/power-cuts.summary
scripts/build.sh build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
# The sanitizer build is made meanwhile, at the lowest priority: it takes
# only the CPU that the tests below leave idle while they wait on the
# emulated instrument, and never slows them.
mkdir -p build/asan
nice -n 19 scripts/build.sh build/asan -DCMAKE_BUILD_TYPE=Debug -DFPT_SANITIZE=ON \
    >build/asan/build.log 2>&1 &
asan_build=$!
# The end-to-end cases spend most of their time waiting on the emulated
# instrument, so twice as many run as there are cores.
(cd build/release && ctest --output-on-failure -j "$((2 * $(nproc)))") || status=1
# The bench stations' package, made from the programs just tested.
scripts/package.sh "$(dpkg --print-architecture)" build/release || status=1
rm -f build/armhf/summary
scripts/armhf.sh build/release || status=1
scripts/armhf-kernel.sh build/armhf || status=1
scripts/fuzz.sh 10 || status=1

# The sanitizer pass repeats the unit tests; the end-to-end ones already ran.
if wait $asan_build; then
    (cd build/asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        ctest --output-on-failure -j "$(nproc)" -L unit) || status=1
else
    tail -n 50 build/asan/build.log
    echo "asan: the sanitizer build failed"
    status=1
fi

# The log closes with the counts of the instrument's CPU, then what the
# power-cut sweep checked.
cat build/armhf/summary 2>/dev/null || echo "armhf: the leg did not finish"
cat build/release/power-cuts.summary 2>/dev/null || echo "power cuts: the sweep did not finish"

exit $status
