#!/usr/bin/env bash
# Installs, idempotently and without questions, every Debian package this
# project needs to build, test and run its emulated instrument.
set -euo pipefail

PACKAGES=(
    build-essential cmake ninja-build pkg-config git ccache
    qtbase5-dev libqt5network5
    libspdlog-dev libfmt-dev
    libssl-dev openssl ca-certificates
    libncurses-dev
    libgtest-dev libgmock-dev
    # the libFuzzer harnesses (scripts/fuzz.sh)
    clang libclang-rt-14-dev
    # the emulated instrument and the end-to-end tests
    libfuse3-dev fuse3 bubblewrap tmux python3 util-linux procps iproute2
)

missing=()
for pkg in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done

if ((${#missing[@]} == 0)); then
    exit 0
fi

SUDO=()
if [[ $(id -u) -ne 0 ]]; then
    SUDO=(sudo)
fi
echo "setup: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
"${SUDO[@]}" apt-get update -qq
"${SUDO[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
