#!/usr/bin/env bash
# First process of the emulated instrument's namespace; started by
# run-in-emulator.sh, never by hand. Lays out the controller's filesystem
# (private /dev, /run, /tmp, /home/transfer, board-id straps under
# /sys/class/gpio, hosts and trusted CA under /etc), starts the emulator and
# the test repository server, runs the command and returns its status.
# Everything here dies with the namespace.
set -euo pipefail

BUILD_DIR=$1 STATE_DIR=$2 DESIGN=$3 JACK=$4 NEXUS=$5 NEXUS_MODE=$6 INPUT_RECORD=$7
RESULTS_TMPFS=$8
shift 8
[[ ${1:-} == -- ]] && shift
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
RUN=/run/cv084-emu

# /run first: the host's state directory may live under /tmp, which is
# replaced below.
mount -t tmpfs -o mode=755 cv084-run /run
mkdir -p $RUN/state
mount --bind "$STATE_DIR" $RUN/state
mkdir -p $RUN/state/transfer/log $RUN/state/nexus
ip link set lo up

# /dev: a tmpfs with the host's few ordinary nodes and its pty instance, so
# that new nodes (the panel's serial line, the register window, the input
# devices, /dev/log) appear here only.
mkdir -p $RUN/hostdev
mount --rbind /dev $RUN/hostdev
mount -t tmpfs -o mode=755,nosuid cv084-dev /dev
for node in null zero full random urandom tty fuse; do
    touch /dev/$node
    mount --bind $RUN/hostdev/$node /dev/$node
done
mkdir -p /dev/pts /dev/shm /dev/input
mount --bind $RUN/hostdev/pts /dev/pts
mount -t tmpfs -o mode=1777,nosuid,nodev cv084-shm /dev/shm
ln -s pts/ptmx /dev/ptmx
ln -s /proc/self/fd /dev/fd
ln -s /proc/self/fd/0 /dev/stdin
ln -s /proc/self/fd/1 /dev/stdout
ln -s /proc/self/fd/2 /dev/stderr
umount -l $RUN/hostdev

# The repository and its build may themselves live under /tmp or /home (a CI
# clone can): keep them reachable at the same paths once those are replaced.
kept=()
for dir in "$ROOT" "$BUILD_DIR"; do
    case $dir in /tmp/* | /home/*) kept+=("$dir") ;; esac
done
for i in "${!kept[@]}"; do
    mkdir -p $RUN/kept/$i
    mount --bind "${kept[$i]}" $RUN/kept/$i
done
mount -t tmpfs -o mode=1777 cv084-tmp /tmp
mount -t tmpfs -o mode=755 cv084-home /home
for i in "${!kept[@]}"; do
    mkdir -p "${kept[$i]}"
    mount --bind $RUN/kept/$i "${kept[$i]}"
done
mkdir -p /home/transfer
mount --bind $RUN/state/transfer /home/transfer
if [[ -n $RESULTS_TMPFS ]]; then
    # A small disk of its own, so that a test can fill it.
    mount -t tmpfs -o size="$RESULTS_TMPFS",mode=755 cv084-results /home/transfer/log
fi

# sysfs has no GPIO class here: an overlay lets the emulator export the
# board-id strap lines.
mkdir -p $RUN/sysclass/upper $RUN/sysclass/work
mount -t overlay cv084-sysclass \
    -o lowerdir=/sys/class,upperdir=$RUN/sysclass/upper,workdir=$RUN/sysclass/work /sys/class

# /etc: the repository's host name, and the device bridge preloaded into
# every process of the instrument.
mkdir -p $RUN/etc/upper $RUN/etc/work
printf '127.0.0.1\tlocalhost\n::1\tlocalhost\n127.0.0.1\tnexus.cv084.test\n' \
    >$RUN/etc/upper/hosts
echo "$BUILD_DIR/tools/emulator/libcv084-device-bridge.so" >$RUN/etc/upper/ld.so.preload
mount -t overlay cv084-etc -o lowerdir=/etc,upperdir=$RUN/etc/upper,workdir=$RUN/etc/work /etc

emulator_args=(--design "$DESIGN" --jack "$JACK" --state-dir $RUN/state --run-dir $RUN
    --ready-file $RUN/ready ${INPUT_RECORD:+--input-record "$INPUT_RECORD"})
"$BUILD_DIR/tools/emulator/cv084-emulator" "${emulator_args[@]}" &
emulator=$!

nexus=
if ((NEXUS)) && [[ -f $ROOT/tools/nexus_server/nexus_server.py && -f $BUILD_DIR/nexus-test-credential ]]; then
    # A fresh CA for every run, trusted through the system store only here.
    "$ROOT/tools/nexus_server/make_test_pki.sh" $RUN/pki >/dev/null
    mkdir -p $RUN/certs
    cp $RUN/pki/ca.crt $RUN/certs/cv084-test-ca.pem
    cp $RUN/pki/ca.crt $RUN/certs/ca-certificates.crt
    openssl rehash $RUN/certs 2>/dev/null || ln -s cv084-test-ca.pem \
        "$RUN/certs/$(openssl x509 -hash -noout -in $RUN/pki/ca.crt).0"
    mount --bind $RUN/certs /etc/ssl/certs
    python3 "$ROOT/tools/nexus_server/nexus_server.py" --host 127.0.0.1 --port 443 \
        --cert $RUN/pki/server.crt --key $RUN/pki/server.key \
        --credential-file "$BUILD_DIR/nexus-test-credential" \
        --storage-dir $RUN/state/nexus --record-file $RUN/state/nexus-requests.jsonl \
        --mode "$NEXUS_MODE" \
        >$RUN/state/nexus-server.log 2>&1 &
    nexus=$!
fi

for _ in $(seq 200); do
    [[ -f $RUN/ready ]] && break
    if ! kill -0 $emulator 2>/dev/null; then
        echo "run-in-emulator: the emulator failed to start" >&2
        exit 3
    fi
    sleep 0.05
done
if [[ -n $nexus ]]; then
    for _ in $(seq 200); do
        grep -q listening $RUN/state/nexus-server.log 2>/dev/null && break
        sleep 0.05
    done
fi

export PATH="$HERE:$PATH"
export CV084_EMU_RUN=$RUN CV084_EMU_STATE=$RUN/state
status=0
"$@" || status=$?

kill -TERM $emulator ${nexus:+$nexus} 2>/dev/null || true
wait 2>/dev/null || true
exit $status
