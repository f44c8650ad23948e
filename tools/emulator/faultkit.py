"""Faults struck into front_panel_test in the emulated instrument, and what
they leave behind: a quick scripted run, the results folder's disk filled to
the last block, a journal seeded to a chosen size, a failing sync; the
journal, what the test repository received.

Runs inside the emulated instrument, driven by the end-to-end fault tests
(tests/e2e/test_faults.py) and the power-cut sweep (powercut/sweep.py).
"""

import base64
import errno
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "tests", "e2e"))
from station import RESULTS_DIR, STATE_DIR, TMUX, Station, repository_requests  # noqa: E402

JOURNAL = os.path.join(RESULTS_DIR, ".front_panel_test-uploads")
PLAN = ["Shaft Encoder Tests", "Button Tests", "Headphone Jack Detection Test",
        "Speaker Output Test", "Headphone Output Test"]
FILLER = os.path.join(RESULTS_DIR, "filler")
MENU_PROMPT = "Selection, (Q)uit"


class QuickStation(Station):
    """An operator who answers each screen as soon as it is up. Started with
    -x on an instrument without the self-test image, the audio tests'
    stand-ins write their failure lines into the results mid-run."""

    def __init__(self, *args):
        super().__init__("-x", *args, timeout=30)

    def text(self):
        """The terminal with wrapped lines joined."""
        return subprocess.run(TMUX + ["capture-pane", "-p", "-J", "-t", "fpt"], check=True,
                              capture_output=True, text=True).stdout

    def program_pid(self):
        # The pane's shell runs the program (or qemu with it) as its child.
        shell = subprocess.run(TMUX + ["display", "-p", "-t", "fpt", "#{pane_pid}"],
                               capture_output=True, text=True, check=True).stdout.strip()
        while True:
            with open(f"/proc/{shell}/task/{shell}/children") as children:
                pids = children.read().split()
            if pids:
                return int(pids[0])
            time.sleep(0.001)

    def to_menu(self, serial):
        self.enter_serial(serial)
        self.wait_for(PLAN[0], row=0)
        self.type("m")
        self.wait_for(MENU_PROMPT, row=21)

    def whole_run(self, serial, at_menu=None):
        """Every kind of write the program makes: the results' head, the
        stand-ins' failure lines (run from the menu), back round to the first
        test, then (U)pload: result lines, journal, repository, journal.
        at_menu() is called once the head is written."""
        self.to_menu(serial)
        if at_menu:
            at_menu()
        self.type("4")
        for name in PLAN[3:]:
            self.wait_for(name, row=0)
            self.wait_for("Press Any Key", row=21)
            self.type("x")
        self.wait_for(PLAN[0], row=0)
        self.type("m")
        self.wait_for(MENU_PROMPT, row=21)
        self.type("u")


def fill_disk():
    """Fills the results folder's disk to the last block."""
    with open(FILLER, "wb", buffering=0) as filler:
        try:
            while True:
                filler.write(bytes(4096))
        except OSError as error:
            if error.errno != errno.ENOSPC:
                raise


def seed_journal(size):
    """A journal of exactly `size` bytes in whole lines, every upload in it done."""
    line = "{}\t{}\t/CV084/S/front_panel_test/\t/home/transfer/log/old\t1\t" + "0" * 64 + "\n"
    pair = line.format("requested", "t") + line.format("uploaded", "t")
    pairs = size // len(pair) - 1
    padding = size - len(pair) * (pairs + 1)
    last = line.format("requested", "t") + line.format("uploaded", "t" * (1 + padding))
    text = pair * pairs + last
    with open(JOURNAL, "w") as journal:
        journal.write(text)


def failing_sync(call):
    """A prefix for the program's command: every `call` it makes (fsync,
    fdatasync, ftruncate, fsync-file; several separated by commas) fails with
    EIO (the build's libcv084-failing-sync preloaded)."""
    return f"env LD_PRELOAD={os.environ['FPT_FAILING_SYNC']} CV084_FAILING_SYNC={call} "


def slow_sync(ms):
    """A prefix for the program's command: every fsync and fdatasync it makes
    takes `ms` first, as on a slow disk."""
    return f"env LD_PRELOAD={os.environ['FPT_FAILING_SYNC']} CV084_SYNC_DELAY_MS={ms} "


def journal_text():
    if not os.path.exists(JOURNAL):
        return ""
    with open(JOURNAL) as journal:
        return journal.read()


def journal_records():
    """The journal's lines, each split in its six fields."""
    return [line.split("\t") for line in journal_text().splitlines()]


def received():
    """Every request the repository got: (file name, status)."""
    return [(next((base64.b64decode(p["body_base64"]).decode() for p in r["parts"]
                   if p["name"] == "raw.asset1.filename"), None), r["status"])
            for r in repository_requests()]


def stored(target_dir, path):
    """Where the repository keeps `path` uploaded into `target_dir`."""
    return os.path.join(STATE_DIR, "nexus" + target_dir, os.path.basename(path))
