#!/usr/bin/env bash
# Installs, idempotently and without questions, every Debian package this
# project needs to build, test and run its emulated instrument, and checks
# that the machine can host the emulated instrument.
# usage: setup.sh [--build-only] [extra packages...]
#   --build-only  skip the machine check (a build that runs no test)
set -euo pipefail

CHECK_MACHINE=1
if [[ ${1:-} == --build-only ]]; then
    CHECK_MACHINE=0
    shift
fi

PACKAGES=(
    build-essential cmake ninja-build pkg-config git ccache
    qtbase5-dev libqt5network5
    # front_panel_yield's cache (Qt's SQLite driver is a plugin, loaded at run time)
    libqt5sql5-sqlite
    libspdlog-dev libfmt-dev
    libssl-dev openssl ca-certificates
    libncurses-dev
    libgtest-dev libgmock-dev
    # the libFuzzer harnesses (scripts/fuzz.sh)
    clang libclang-rt-14-dev
    # the Debian packages (scripts/package.sh)
    dpkg-dev debhelper lintian
    # the emulated instrument and the end-to-end tests
    libfuse3-dev fuse3 bubblewrap tmux python3 util-linux procps iproute2
    # the yield report's page, opened headless by its tests
    chromium
    "$@"
)

missing=()
for pkg in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done

if ((${#missing[@]} > 0)); then
    SUDO=()
    if [[ $(id -u) -ne 0 ]]; then
        SUDO=(sudo)
    fi
    echo "setup: installing ${missing[*]}" >&2
    export DEBIAN_FRONTEND=noninteractive
    # Another build on this machine may be installing at the same time.
    apt=("${SUDO[@]}" apt-get -o DPkg::Lock::Timeout=600)
    "${apt[@]}" update -qq
    "${apt[@]}" install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The emulated instrument makes its mounts private (unshare) and its test
# repository is reached by name: without these, tests fail far from the cause.
if ((CHECK_MACHINE)); then
    lacks=()
    if ! mountpoint -q /; then
        lacks+=("/ is not a mount point, so unshare cannot change the root's mount propagation"
            "  (in a container or chroot: mount --bind / / first, or start it with its own root mount)")
    fi
    if ! getent hosts localhost >/dev/null; then
        lacks+=("\"localhost\" does not resolve: /etc/hosts needs \"127.0.0.1 localhost\"")
    fi
    if ((${#lacks[@]} > 0)); then
        echo "setup: this machine cannot host the emulated instrument:" >&2
        printf 'setup:   %s\n' "${lacks[@]}" >&2
        exit 1
    fi
fi
