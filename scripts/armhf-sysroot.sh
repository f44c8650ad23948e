#!/usr/bin/env bash
# armhf-sysroot.sh [DIR]: makes, once, the root of the instrument's
# controller (Debian 12 armhf) that the cross build compiles and links
# against and that qemu-user runs the armhf programs in (qemu-arm -L DIR).
# Prints DIR. Reuses DIR when it is complete for the same package list.
#
# armhf-sysroot.sh --machine [DIR]: the same for what the armhf virtual
# machine boots (scripts/armhf-kernel.sh): Debian 12's armmp kernel with its
# modules, a static busybox and the terminal descriptions (default DIR:
# armhf-machine in the cache).
#
# Made from the main and updates suites only, with a private apt
# configuration: the host's dpkg is not touched (no foreign architecture is
# added), so the armhf libraries never have to match the versions of the
# host's own (security-suite) ones. The packages are unpacked with dpkg -x.
set -euo pipefail

MACHINE=0
if [[ ${1:-} == --machine ]]; then
    MACHINE=1
    shift
fi
CACHE=${FPT_ARMHF_CACHE:-/var/cache/front_panel_test}
SYSROOT=${1:-$CACHE/armhf-sysroot}
((MACHINE == 0)) || SYSROOT=${1:-$CACHE/armhf-machine}
MIRROR=${FPT_ARMHF_MIRROR:-http://deb.debian.org/debian}
SUITES=(bookworm bookworm-updates)
KEYRING=/usr/share/keyrings/debian-archive-keyring.gpg

# Libraries the product and its unit tests link, with everything they need
# at run time.
WITH_DEPENDENCIES=(
    libc6-dev libstdc++6 libqt5core5a libqt5network5
    libspdlog-dev libfmt-dev libssl-dev libncurses-dev
    libgtest-dev libgmock-dev
)
# Qt's headers and CMake files. Its CMake files insist that qmake, moc and
# rcc exist, although this project runs none of them; their own
# dependencies (GL, X11, the armhf tool chain) are not needed.
FILES_ONLY=(qtbase5-dev qtbase5-dev-tools qt5-qmake qt5-qmake-bin)
# The machine: the kernel's metapackage names the current kernel package,
# fetched alone (its own dependencies only matter to an installed system).
KERNEL=linux-image-armmp
if ((MACHINE)); then
    WITH_DEPENDENCIES=()
    FILES_ONLY=(busybox-static ncurses-base "$KERNEL")
fi

# The layout of what is made: 2 adds DEBIAN/ (see below).
LAYOUT=2
stamp=$(printf '%s\n' "$LAYOUT" "$MIRROR" "${SUITES[@]}" "${WITH_DEPENDENCIES[@]}" -- "${FILES_ONLY[@]}" |
    sha256sum | cut -c1-16)
if [[ -f $SYSROOT/.fpt-sysroot && $(cat "$SYSROOT/.fpt-sysroot") == "$stamp" ]]; then
    echo "$SYSROOT"
    exit 0
fi

fail() {
    echo "armhf-sysroot: $*" >&2
    exit 1
}
[[ -r $KEYRING ]] || fail "no Debian archive keyring at $KEYRING (package debian-archive-keyring)"
mkdir -p "$CACHE" || fail "cannot create $CACHE"

# One maker at a time; a second caller waits and then finds it made.
exec {lock}>"$CACHE/armhf-sysroot.lock"
flock "$lock"
if [[ -f $SYSROOT/.fpt-sysroot && $(cat "$SYSROOT/.fpt-sysroot") == "$stamp" ]]; then
    echo "$SYSROOT"
    exit 0
fi
echo "armhf-sysroot: making $SYSROOT from $MIRROR (${SUITES[*]})" >&2

APT=$CACHE/armhf-apt
# The machine's packages are kept apart from the root's: each is made from
# its own.
ARCHIVES=$APT/archives
((MACHINE == 0)) || ARCHIVES=$APT/machine-archives
mkdir -p "$APT"/{lists/partial,archives/partial,etc/sources.list.d,etc/preferences.d} "$ARCHIVES"
: >"$APT/status"
for suite in "${SUITES[@]}"; do
    echo "deb [arch=armhf signed-by=$KEYRING] $MIRROR $suite main"
done >"$APT/etc/sources.list"
cat >"$APT/apt.conf" <<EOF
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
Dir::State "$APT";
Dir::State::Lists "$APT/lists";
Dir::State::status "$APT/status";
Dir::Cache "$APT";
Dir::Cache::Archives "$APT/archives";
Dir::Etc::SourceList "$APT/etc/sources.list";
Dir::Etc::SourceParts "$APT/etc/sources.list.d";
Dir::Etc::Preferences "$APT/etc/preferences";
Dir::Etc::PreferencesParts "$APT/etc/preferences.d";
Debug::NoLocking "true";
EOF
export APT_CONFIG=$APT/apt.conf

log=$APT/last-run.log
# Names what could not be fetched (apt's "Failed to fetch URL ..." lines).
fetch() {
    local what=$1
    shift
    if ! "$@" >"$log" 2>&1; then
        grep -E '^(E|W): ' "$log" | sed 's/^/armhf-sysroot:   /' >&2 || true
        fail "could not fetch $what from $MIRROR; see $log"
    fi
    if grep -q '^[EW]: Failed to fetch' "$log"; then
        grep '^[EW]: Failed to fetch' "$log" | sed 's/^/armhf-sysroot:   /' >&2
        fail "could not fetch $what from $MIRROR"
    fi
}
fetch "the armhf package indexes of ${SUITES[*]}" apt-get update
if ((${#WITH_DEPENDENCIES[@]} > 0)); then
    fetch "armhf packages ${WITH_DEPENDENCIES[*]} and their dependencies" \
        apt-get install --download-only --yes "${WITH_DEPENDENCIES[@]}"
fi
if ((MACHINE)); then
    kernel=$(apt-cache depends "$KERNEL" | sed -n 's/^ *Depends: \(linux-image-[0-9][^ ]*\)$/\1/p' | head -n1)
    [[ -n $kernel ]] || fail "$KERNEL names no kernel package"
    FILES_ONLY=("${FILES_ONLY[@]/#$KERNEL/$kernel}")
fi
(cd "$ARCHIVES" && fetch "armhf packages ${FILES_ONLY[*]}" apt-get download "${FILES_ONLY[@]}")

staging=$SYSROOT.new
rm -rf "$staging"
mkdir -p "$staging"
# DEBIAN/shlibs and DEBIAN/symbols gather those of every package, so that
# dpkg-shlibdeps (-S) resolves an armhf program's libraries to the packages
# and versions an instrument needs, as it does from the host's own dpkg.
mkdir -p "$staging/DEBIAN"
control=$staging.control
for deb in "$ARCHIVES"/*.deb; do
    dpkg -x "$deb" "$staging"
    rm -rf "$control"
    dpkg-deb -e "$deb" "$control"
    for kind in shlibs symbols; do
        if [[ -f $control/$kind ]]; then
            cat "$control/$kind" >>"$staging/DEBIAN/$kind"
        fi
    done
done
rm -rf "$control"
# Packages link their libraries absolutely (/lib/...); inside a sysroot
# those links must stay inside it.
find "$staging" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$staging$target")" "$link"
done
# qemu-arm -L looks up the guest's paths here first: an empty preload list
# keeps the guest off the host's, which names host-architecture libraries.
mkdir -p "$staging/etc"
: >"$staging/etc/ld.so.preload"
echo "$stamp" >"$staging/.fpt-sysroot"
# Swapped in by renames, so that a build using the old root loses it only
# for that instant.
rm -rf "$SYSROOT.old"
if [[ -e $SYSROOT ]]; then
    mv "$SYSROOT" "$SYSROOT.old"
fi
mv "$staging" "$SYSROOT"
rm -rf "$SYSROOT.old"
rm -f "$ARCHIVES"/*.deb
echo "$SYSROOT"
