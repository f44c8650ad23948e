"""Power cuts struck into a recorded session of the test station: the results
folder served by cv084-powercut-fs (a disk that keeps only what was synced),
one scripted session recorded once, then replayed and cut after every change
of the disk and every store in the repository, with seeded random parts of
what was not synced; each cut
remounted and recovered the way the factory recovers (front_panel_upload).

Runs inside the emulated instrument, driven by the end-to-end power-cut test
(tests/e2e/test_power_cuts.py). FPT_POWERCUT_SEED there draws other moments.
"""

import base64
import hashlib
import os
import random
import shutil
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
import faultkit as kit  # noqa: E402

WORK = "/tmp/powercut"
NEXUS = os.path.join(kit.STATE_DIR, "nexus")
JOURNAL_NAME = os.path.basename(kit.JOURNAL)


def sha256(data):
    return hashlib.sha256(data).hexdigest()


class Folder:
    """The results folder on the power-cut disk while it is mounted."""

    def __init__(self, trace=None, start_from=None):
        ready = os.path.join(WORK, "ready")
        if os.path.exists(ready):
            os.unlink(ready)
        command = [os.environ["FPT_POWERCUT_FS"], "--ready", ready]
        command += ["--trace", trace] if trace else []
        command += ["--from", start_from] if start_from else []
        self.trace = trace
        self.process = subprocess.Popen(command + [kit.RESULTS_DIR])
        deadline = time.monotonic() + 10
        while not os.path.exists(ready):
            if self.process.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("cv084-powercut-fs did not mount the results folder")
            time.sleep(0.005)

    def fail_next_sync(self):
        self.process.send_signal(signal.SIGUSR1)

    def promise(self):
        """The operator acts on what the programs showed: from now on every
        line written so far must survive a cut. Returns once it is traced."""
        promised = self.promises() + 1
        # Sent again until seen: one that lands while a request is being
        # served is only kept at the next, which may never come.
        while self.promises() < promised:
            self.process.send_signal(signal.SIGUSR2)
            time.sleep(0.002)

    def promises(self):
        with open(self.trace) as trace:
            return sum(1 for line in trace if line.endswith(" M\n"))

    def unmount(self):
        self.process.terminate()
        if self.process.wait(timeout=10) != 0:
            raise RuntimeError("cv084-powercut-fs did not end cleanly")


class Recording:
    """One session: what the disk saw (the trace), what the repository
    stored and when, what the operator was told."""

    def __init__(self, trace, stores, told):
        self.ops = []  # (time ns, kind) per change of the disk, in order
        with open(trace) as lines:
            for line in lines:
                stamp, kind = line.split(" ", 2)[:2]
                self.ops.append((int(stamp), kind))
        self.trace = trace
        self.stores = stores  # (time ns, repository path, bytes), in order
        self.told = told  # (time ns, message), what said a file was sent


def stored_assets(since=0):
    """Every asset the repository stored, from the `since`th request on."""
    stores = []
    for request in kit.repository_requests()[since:]:
        if request["status"] != 204:
            continue
        fields = {p["name"]: base64.b64decode(p["body_base64"]) for p in request["parts"]}
        where = (fields["raw.directory"].decode() + "/"
                 + fields["raw.asset1.filename"].decode())
        stores.append((request["time_ns"], "/".join(s for s in where.split("/") if s),
                       fields["raw.asset1"]))
    return stores


def record(session):
    """Runs session(folder) on the power-cut disk and returns its Recording;
    session returns the operator's messages (time ns, text) that claim a send."""
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(WORK)
    trace = os.path.join(WORK, "trace")
    with open(os.path.join(kit.STATE_DIR, "nexus-requests.jsonl"), "a"):
        pass
    folder = Folder(trace=trace)
    try:
        told = session(folder)
    finally:
        folder.unmount()
    return Recording(trace, stored_assets(), told)


def cut_states(recording, prefixes, seed):
    """The cuts: after every change of the disk (every sync among them) and
    after every store in the repository; each losing everything unsynced,
    keeping all of it (the program killed there), and keeping `prefixes`
    seeded random prefixes of it. A cut is (changes applied, assets stored,
    seed, or "-" for none kept, "+" for all)."""
    rng = random.Random(seed)
    times = [t for t, _ in recording.ops]
    store_times = [t for t, _, _ in recording.stores]
    moments = {(k, sum(1 for s in store_times if k and s <= times[k - 1]))
               for k in range(len(times) + 1)}
    moments |= {(sum(1 for t in times if t <= s), j + 1) for j, s in enumerate(store_times)}
    return sorted((k, stores, variant) for k, stores in moments
                  for variant in ["-", "+"] + [str(rng.randrange(2**32)) for _ in range(prefixes)])


def replay(recording, states):
    """Cuts the recorded trace at each state; the folder of each cut."""
    cuts = os.path.join(WORK, "cuts")
    dirs = []
    with open(cuts, "w") as out:
        for n, (changes, _, seed) in enumerate(states):
            dirs.append(os.path.join(WORK, f"state{n:04d}"))
            out.write(f"{changes} {seed} {dirs[-1]}\n")
    subprocess.run([os.environ["FPT_POWERCUT_FS"], "--replay", recording.trace, "--cuts", cuts],
                   check=True)
    return dirs


def restore_repository(stores):
    """The repository's storage as it stood after these stores."""
    shutil.rmtree(NEXUS, ignore_errors=True)
    os.makedirs(NEXUS)
    for _, where, data in stores:
        path = os.path.join(NEXUS, where)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as out:
            out.write(data)


def repository_sha(where):
    path = os.path.join(NEXUS, where)
    if not os.path.exists(path):
        return None
    with open(path, "rb") as f:
        return sha256(f.read())


def recover(disk, named=()):
    """Starts the instrument again on what the cut left in `disk`, runs
    front_panel_upload FILE for each file named (what it said of each), then
    front_panel_upload once; its result, and the folder afterwards."""
    folder = Folder(start_from=disk)
    try:
        said = [subprocess.run([os.environ["FPT_UPLOAD_PROGRAM"],
                                os.path.join(kit.RESULTS_DIR, name)], capture_output=True,
                               text=True, timeout=120).stdout for name in named]
        sent = subprocess.run([os.environ["FPT_UPLOAD_PROGRAM"]], capture_output=True,
                              text=True, timeout=120)
        after = {}
        for name in os.listdir(kit.RESULTS_DIR):
            with open(os.path.join(kit.RESULTS_DIR, name), "rb") as f:
                after[name] = f.read()
    finally:
        folder.unmount()
    return said, sent, after
