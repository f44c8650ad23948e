#!/usr/bin/env bash
# package.sh ARCH BUILD-DIR [extra cmake args...]: builds the two programs
# for ARCH (armhf for the instruments, or the host's own architecture) in
# BUILD-DIR, like scripts/armhf-build.sh or scripts/build.sh, and makes the
# Debian packages from them in BUILD-DIR/package/:
#   front-panel-test_VERSION_ARCH.deb        the programs, stripped, and their manual pages
#   front-panel-test-dbgsym_VERSION_ARCH.deb  their debug information
# and for amd64 also the engineer's workstation program, front_panel_yield:
#   front-panel-yield_VERSION_amd64.deb, front-panel-yield-dbgsym_VERSION_amd64.deb
# Every file of both is then scanned for a trace of the credential
# (scripts/scan-shipped.py) and the package checked by lintian; either
# finding anything fails the command.
#
# VERSION comes from git describe: the last vX.Y.Z tag and the commits
# since, or without a tag the project's version and the commit count,
# e.g. 6.1.2+412.g9e24272abc; ".dirty" follows when the checkout has
# uncommitted changes, and "~testrepo" when the build is provisioned for
# the project's own test repository, which no instrument can upload to.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
if (($# < 2)); then
    echo "usage: package.sh ARCH BUILD-DIR [extra cmake args...]" >&2
    exit 2
fi
ARCH=$1
BUILD_DIR=$2
shift 2
fail() {
    echo "package: $*" >&2
    exit 1
}

"$ROOT/scripts/setup.sh" --build-only
export FPT_BUILD_TARGETS="front_panel_test front_panel_upload"
# The yield report is for the engineers' amd64 workstations only.
debs=(front-panel-test)
if [[ $ARCH == amd64 ]]; then
    FPT_BUILD_TARGETS+=" front_panel_yield"
    debs+=(front-panel-yield)
fi
sysroot=
if [[ $ARCH == "$(dpkg --print-architecture)" ]]; then
    "$ROOT/scripts/build.sh" "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
elif [[ $ARCH == armhf ]]; then
    "$ROOT/scripts/armhf-build.sh" "$BUILD_DIR" "$@"
    sysroot=$("$ROOT/scripts/armhf-sysroot.sh")
else
    fail "ARCH is armhf or $(dpkg --print-architecture), not $ARCH"
fi
BUILD_DIR=$(cd "$BUILD_DIR" && pwd)
cached() {
    sed -n "s/^$1:[A-Z]*=//p" "$BUILD_DIR/CMakeCache.txt"
}

git=(git -C "$ROOT")
if described=$("${git[@]}" describe --tags --match 'v[0-9]*' --long --abbrev=10 --dirty=.dirty 2>/dev/null); then
    version=$(sed -E 's/^v([^-]+)-([0-9]+)-(g[0-9a-f]+)/\1+\2.\3/' <<<"$described")
elif described=$("${git[@]}" describe --always --abbrev=10 --dirty=.dirty); then
    base=$(sed -n 's/^project(front_panel_test VERSION \([0-9.]*\).*/\1/p' "$ROOT/CMakeLists.txt")
    version=$base+$("${git[@]}" rev-list --count HEAD).g$described
else
    fail "the version comes from git describe: $ROOT is no git checkout"
fi
if [[ $(cached FPT_NEXUS_TEST_REPOSITORY) == ON ]]; then
    version+="~testrepo"
    provisioning="TEST BUILD, not for instruments: uploads only to the test repository."
else
    provisioning="Uploads to $(cached FPT_NEXUS_BASE_URL)."
fi

# dpkg-buildpackage works on a copy of debian/, so that the checkout stays
# clean and the packages land beside it, in the build folder.
out=$BUILD_DIR/package
rm -rf "$out"
mkdir -p "$out/src"
cp -r "$ROOT/debian" "$out/src/"
maintainer=$(sed -n 's/^Maintainer: //p' "$ROOT/debian/control")
{
    echo "front-panel-test ($version) bookworm; urgency=medium"
    echo
    echo "  * Built from commit $("${git[@]}" rev-parse HEAD)."
    "${git[@]}" log -n 10 --format='%s' | cut -c1-72 | sed 's/^/  * /'
    echo
    echo " -- $maintainer  $("${git[@]}" log -1 --format=%aD)"
} >"$out/src/debian/changelog"

# The tests ran on the build tree already (nocheck); CC names the compiler
# the programs were built with.
gnu_type=$(dpkg-architecture -a"$ARCH" -qDEB_HOST_GNU_TYPE 2>/dev/null)
(cd "$out/src" && FPT_SOURCE_DIR=$ROOT FPT_BUILD_DIR=$BUILD_DIR FPT_SYSROOT=$sysroot \
    FPT_PROVISIONING=$provisioning DEB_BUILD_OPTIONS=nocheck CC=$gnu_type-gcc \
    dpkg-buildpackage -a"$ARCH" -b -d -nc --no-sign >"$out/dpkg-buildpackage.log" 2>&1) || {
    tail -n 30 "$out/dpkg-buildpackage.log" >&2
    fail "dpkg-buildpackage failed, see $out/dpkg-buildpackage.log"
}
shipped=()
for name in "${debs[@]}"; do
    deb=$out/${name}_${version}_$ARCH.deb
    dbgsym=$out/${name}-dbgsym_${version}_$ARCH.deb
    [[ -f $deb && -f $dbgsym ]] || fail "dpkg-buildpackage made no $deb and $dbgsym"
    shipped+=("$deb" "$dbgsym")
done

"$ROOT/scripts/scan-shipped.py" --provisioned "$BUILD_DIR/upload/generated/NexusProvisioned.inc" \
    --credential "$(cached FPT_NEXUS_CREDENTIAL_IN_USE)" "${shipped[@]}" ||
    fail "a package holds a trace of the credential"
# The -dbgsym packages are debhelper's own work and never go on an instrument.
for name in "${debs[@]}"; do
    deb=$out/${name}_${version}_$ARCH.deb
    lintian --fail-on error,warning "$deb" || fail "lintian found fault with $deb"
    echo "package: $deb"
done
