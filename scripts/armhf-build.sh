#!/usr/bin/env bash
# armhf-build.sh <build-dir> [extra cmake args...]: builds for the
# instrument's controller (Debian 12 armhf): installs the cross compiler and
# qemu-user, makes the armhf sysroot once (scripts/armhf-sysroot.sh), then
# configures (once) and builds like scripts/build.sh. Programs the build
# runs for itself (the credential block generator, test discovery) run
# under qemu-user.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD_DIR=$1
shift
"$ROOT/scripts/setup.sh" --build-only crossbuild-essential-armhf qemu-user debian-archive-keyring
sysroot=$("$ROOT/scripts/armhf-sysroot.sh")
exec "$ROOT/scripts/build.sh" "$BUILD_DIR" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/armhf-toolchain.cmake" \
    -DFPT_ARMHF_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
