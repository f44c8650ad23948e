#!/usr/bin/env python3
"""Faults that strike in the middle of a write: the program killed at random
moments of a run and its upload, a results folder that fills up, a journal
whose disk reports I/O errors. Each case runs in a fresh emulated instrument,
started without the self-test image so that the audio tests' stand-ins write
their failure lines into the results mid-run."""

import base64
import errno
import glob
import os
import random
import signal
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from station import RESULTS_DIR, STATE_DIR, TMUX, Station, read_results  # noqa: E402
from test_upload_journal import JOURNAL, requests, upload_program  # noqa: E402

PLAN = ["Shaft Encoder Tests", "Button Tests", "Headphone Jack Detection Test",
        "Speaker Output Test", "Headphone Output Test"]


def results_lines(serial):
    return (["Front Panel Test Log", "~" * 20, "", "Tests Started: <time>", f"Serial No: {serial}"]
            + [f"FAIL!! - {name}" for name in PLAN[3:]] + [f"Not Run - {name}" for name in PLAN])


class Killed(Exception):
    pass


class QuickStation(Station):
    """An operator who answers each screen as soon as it is up, and stops as
    soon as the program has been killed."""

    killed = False

    def screen(self):
        if self.killed:
            raise Killed()
        return super().screen()

    def program_pid(self):
        shell = subprocess.run(TMUX + ["display", "-p", "-t", "fpt", "#{pane_pid}"],
                               capture_output=True, text=True, check=True).stdout.strip()
        while True:
            with open(f"/proc/{shell}/task/{shell}/children") as children:
                pids = children.read().split()
            if pids:
                return int(pids[0])
            time.sleep(0.001)

    def whole_run(self, serial):
        """Serial number, the stand-ins run from the menu, back round to the
        first test, then (U)pload."""
        self.enter_serial(serial)
        for answer in ("m", "4"):
            self.wait_for(PLAN[0] if answer == "m" else "Selection, (Q)uit", timeout=30)
            self.type(answer)
        for name in PLAN[3:]:
            self.wait_for(name, row=0)
            self.wait_for("Press Any Key", row=21)
            self.type("x")
        self.wait_for(PLAN[0], row=0)
        self.type("m")
        self.wait_for("Selection, (Q)uit", row=21)
        self.type("u")


def journal_records():
    """Every line of the journal split in its fields; every line must be whole."""
    if not os.path.exists(JOURNAL):
        return []
    with open(JOURNAL, "rb") as f:
        text = f.read().decode()
    assert text == "" or text.endswith("\n"), f"journal line cut short: {text!r}"
    records = [line.split("\t") for line in text.splitlines()]
    for r in records:
        assert len(r) == 6 and r[0] in ("requested", "uploaded") and len(r[5]) == 64, r
    return records


def repository_busy():
    """The repository still serves a connection (established or closing) on port 443."""
    with open("/proc/net/tcp") as f:
        return any(r[1].endswith(":01BB") and r[3] in ("01", "08")
                   for r in (line.split() for line in f.readlines()[1:]))


class KilledMidWrite(unittest.TestCase):
    KILLS = 50

    def run_killed_at(self, serial, moment):
        """One run killed `moment` s after it started (None: never); its exit status."""
        st = QuickStation("-x", timeout=30)
        self.addCleanup(st.close)
        pid = st.program_pid()

        def kill():
            st.killed = True
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:  # it ended first
                pass
        timer = threading.Timer(moment, kill) if moment is not None else None
        if timer:
            timer.start()
        try:
            st.whole_run(serial)
        except Killed:
            pass
        status = st.wait_exit(timeout=60)
        if timer:
            timer.cancel()
            timer.join()
        return status

    def test_every_kill_leaves_whole_lines_and_exactly_the_pending_uploads(self):
        for serial in ("R0", "R1"):  # the second run's length, with every cache warm
            began = time.monotonic()
            self.assertEqual(self.run_killed_at(serial, None), 0)
            length = time.monotonic() - began
            self.assertEqual(self.results_and_pending(serial), [])
        seed = int(os.environ.get("FPT_KILL_SEED", "19"))
        print(f"run of {length:.2f} s; killed at {self.KILLS} moments, seed {seed}", flush=True)
        rng = random.Random(seed)
        pending = 0
        for k in range(self.KILLS):
            serial = f"K{k:02d}"
            moment = rng.uniform(0, length)
            with self.subTest(kill=k, moment=f"{moment:.3f}"):
                self.run_killed_at(serial, moment)
                pending += len(self.results_and_pending(serial))
        print(f"{pending} uploads sent later", flush=True)

    def results_and_pending(self, serial):
        """Checks the board's results and the journal after a run, sends what
        is pending with front_panel_upload and checks what the repository got."""
        while repository_busy():  # a killed upload's request is still being taken
            time.sleep(0.01)
        [*results] = glob.glob(os.path.join(RESULTS_DIR, f"front_panel_test_{serial}-*.txt"))
        self.assertLessEqual(len(results), 1)
        for path in results:
            lines = read_results(path) if os.path.getsize(path) else []
            self.assertEqual(lines, results_lines(serial)[:len(lines)], path)
        records = journal_records()
        open_requests = {}
        for event, _, target, path, size, sha in records:
            if event == "requested":
                open_requests[path] = (int(size), sha)
            else:
                open_requests.pop(path, None)
                stored = os.path.join(STATE_DIR, "nexus" + target, os.path.basename(path))
                self.assertTrue(os.path.exists(stored), f"recorded as uploaded, not stored: {path}")
                with open(path, "rb") as mine, open(stored, "rb") as theirs:
                    self.assertEqual(mine.read(), theirs.read(), "stored, not as recorded")
        for path in open_requests:  # only whole results are offered for upload
            self.assertEqual(read_results(path), results_lines(serial))
        before = len(requests())
        sent = upload_program()
        self.assertEqual(sent.returncode, 0, sent.stderr)
        self.assertNotIn("skipped", sent.stderr)  # no damaged journal line
        got = requests()[before:]
        names = sorted(p["body_base64"] for r in got for p in r["parts"]
                       if p["name"] == "raw.asset1.filename")
        self.assertEqual([r["status"] for r in got], [204] * len(got))
        self.assertEqual([base64.b64decode(n).decode() for n in names],
                         sorted(os.path.basename(p) for p in open_requests))
        self.assertEqual(journal_records()[len(records):],
                         [r for r in journal_records()[len(records):] if r[0] == "uploaded"])
        return list(open_requests)


def fill_disk():
    """Fills the results folder's disk to the last block."""
    with open(os.path.join(RESULTS_DIR, "filler"), "wb", buffering=0) as filler:
        try:
            while True:
                filler.write(bytes(4096))
        except OSError as error:
            assert error.errno == errno.ENOSPC, error


def seed_journal(size):
    """A journal of `size` bytes, every upload in it done."""
    line = "{}\t{}\t/CV084/S/front_panel_test/\t/home/transfer/log/old\t1\t" + "0" * 64 + "\n"
    pair = line.format("requested", "t") + line.format("uploaded", "t")
    pairs = size // len(pair) - 1
    padding = size - len(pair) * (pairs + 1)
    text = pair * pairs + line.format("requested", "t") + line.format("uploaded", "t" * (1 + padding))
    with open(JOURNAL, "w") as journal:
        journal.write(text)


class WriteFaults(unittest.TestCase):
    """The journal beside the results on a small disk of its own
    (--results-tmpfs): a failed write is cut back, said, and the run goes on."""

    def setUp(self):
        for old in glob.glob(os.path.join(RESULTS_DIR, "*")) + [JOURNAL]:
            if os.path.exists(old):
                os.unlink(old)

    def upload_unrecorded(self, serial, reason, program_prefix="", before_upload=lambda: None):
        if os.path.exists(JOURNAL):
            with open(JOURNAL) as journal:
                before = journal.read()
        else:
            before = ""
        if program_prefix:
            os.environ["FPT_PROGRAM"] = program_prefix + " " + os.environ["FPT_PROGRAM"]
        st = QuickStation("-x", timeout=30)
        self.addCleanup(st.close)
        st.enter_serial(serial)
        st.wait_for(PLAN[0], row=0)
        st.type("m")
        st.wait_for("Selection, (Q)uit", row=21)
        before_upload()
        st.type("u")
        self.assertEqual(st.wait_exit(), 0)
        with open(JOURNAL) as journal:
            self.assertEqual(journal.read(), before)
        text = subprocess.run(TMUX + ["capture-pane", "-p", "-J", "-t", "fpt"], check=True,
                              capture_output=True, text=True).stdout
        self.assertIn(f"{JOURNAL}: {reason}", text)

    def test_disk_full_while_journal_written(self):
        seed_journal(4096 - 40)  # the next line needs a block of its own
        self.upload_unrecorded("D2", "No space left on device", before_upload=fill_disk)

    def test_journal_io_error(self):
        self.upload_unrecorded(
            "E1", "Input/output error",
            "fiu-run -x -f '' -c 'enable name=posix/io/sync/fdatasync,failinfo=5'")


if __name__ == "__main__":
    unittest.main()
