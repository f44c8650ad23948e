"""An operator at the test station: the program in a terminal (tmux), the
emulated front panel under their hands (the emulator's control socket).

Runs inside the emulated instrument (run-in-emulator.sh).
"""

import glob
import json
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", ".."))
import cv084emu  # noqa: E402

TMUX = ["tmux", "-L", "fpt-e2e"]
RESULTS_DIR = "/home/transfer/log"
STATE_DIR = os.environ.get("CV084_EMU_STATE", "/run/cv084-emu/state")
COLOURS = ["WHITE", "YELLOW", "CYAN", "GREEN", "MAGENTA", "RED", "BLUE", "BLACK"]
RGB = ["ffffff", "ffff00", "00ffff", "00ff00", "ff00ff", "ff0000", "0000ff", "000000"]
BUTTON_LABELS = ["Calvento", "F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9", "F10",
                 "Down", "Left", "Up", "Right", "OK", "Shaft Encoder"]


class ScreenTimeout(AssertionError):
    pass


class Station:
    """One run of front_panel_test in an 80x24 terminal."""

    def __init__(self, *args, timeout=10.0):
        self.timeout = timeout
        self.emu = cv084emu.Emulator()
        self.traffic_start = self.emu.traffic()["next"]
        subprocess.run(TMUX + ["kill-server"], stderr=subprocess.DEVNULL)
        # The operator's shell runs the program and notes its exit status.
        self.status_file = "/tmp/fpt-e2e.status"
        if os.path.exists(self.status_file):
            os.unlink(self.status_file)
        cmd = " ".join([os.environ["FPT_PROGRAM"]] + [f"'{a}'" for a in args])
        cmd = f"sh -c \"{cmd}; echo \\$? > {self.status_file}.new; mv {self.status_file}.new {self.status_file}\""
        # The pane must stay after the program ends, so that its last words
        # and exit status can be read: set before the program starts.
        conf = "/tmp/fpt-e2e.tmux.conf"
        with open(conf, "w") as f:
            f.write("set -g remain-on-exit on\nset -g default-terminal screen\n")
        # A server just told to end may still take the new session and exit
        # under it ("server exited unexpectedly"): then start it again.
        for attempt in range(3):
            started = subprocess.run(TMUX + ["-f", conf, "new-session", "-d", "-s", "fpt", "-x",
                                             "80", "-y", "24", cmd], check=attempt == 2)
            if started.returncode == 0:
                break
            time.sleep(0.2)

    def close(self):
        subprocess.run(TMUX + ["kill-server"], stderr=subprocess.DEVNULL)
        self.emu.close()

    @staticmethod
    def under_qemu_user():
        """The armhf leg's packaged ARM programs, which run under qemu-user."""
        return os.environ.get("FPT_UNDER_QEMU_USER") == "1"

    # --- the terminal ----------------------------------------------------
    def screen(self):
        out = subprocess.run(TMUX + ["capture-pane", "-p", "-t", "fpt"], check=True,
                             capture_output=True, text=True).stdout
        rows = out.split("\n")[:24]
        return [r.rstrip() for r in rows] + [""] * (24 - len(rows))

    def dump(self):
        return "\n".join(f"{i:2d}|{r}" for i, r in enumerate(self.screen()))

    def wait_for(self, text, row=None, timeout=None, regex=False):
        """Waits until `text` is on the screen (on `row` if given); returns the screen."""
        deadline = time.monotonic() + (timeout or self.timeout)
        while True:
            screen = self.screen()
            rows = [screen[row]] if row is not None else screen
            for r in rows:
                if (re.search(text, r) if regex else text in r):
                    return screen
            if time.monotonic() > deadline:
                raise ScreenTimeout(f"waited for {text!r} on row {row}:\n{self.dump()}")
            time.sleep(0.05)

    def wait_until(self, predicate, what, timeout=5.0):
        """Waits until predicate() holds; on time-out reports the panel and the screen."""
        deadline = time.monotonic() + timeout
        while not predicate():
            if time.monotonic() > deadline:
                raise ScreenTimeout(f"{what}; state {self.emu.state()}\n{self.dump()}")
            time.sleep(0.05)

    def wait_row(self, n, exact, timeout=None):
        """Waits until row n reads exactly `exact` (trailing blanks ignored)."""
        deadline = time.monotonic() + (timeout or self.timeout)
        while self.screen()[n] != exact.rstrip():
            if time.monotonic() > deadline:
                raise ScreenTimeout(f"row {n}: wanted {exact!r}:\n{self.dump()}")
            time.sleep(0.05)

    def type(self, text):
        subprocess.run(TMUX + ["send-keys", "-t", "fpt", "-l", text], check=True)
        # tmux writes keys to the terminal on its next turn: once it has answered
        # again they are there, ahead of whatever the panel does next.
        self.screen()

    def key(self, name):
        subprocess.run(TMUX + ["send-keys", "-t", "fpt", name], check=True)

    def wait_exit(self, timeout=None):
        """The program's exit status (128 + n: ended by signal n), once it has ended."""
        deadline = time.monotonic() + (timeout or self.timeout)
        while not os.path.exists(self.status_file):
            if time.monotonic() > deadline:
                raise ScreenTimeout(f"program still running:\n{self.dump()}")
            time.sleep(0.05)
        with open(self.status_file) as f:
            return int(f.read())

    # --- the operator's routines -------------------------------------------
    def enter_serial(self, serial, kept=None, answer="y"):
        """Types a line at the serial number prompt; the program repeats the number it kept."""
        self.wait_row(14, " " * 10 + "Enter CV084 PCB Serial No:")
        self.type(serial)
        self.key("Enter")
        # Cut at the screen's right edge, not wrapped onto the next row.
        self.wait_row(16, (" " * 10 + f'You Entered "{kept or serial}"')[:80])
        self.wait_row(17, "")
        self.wait_row(18, " " * 10 + "Is that correct? (Y/n):")
        self.type(answer)

    def wait_idle(self):
        """Gives the program time for a few of its 100 ms key polls."""
        time.sleep(0.4)

    def led(self, index):
        return self.emu.state()["leds"][index]

    # --- the results ---------------------------------------------------------
    def results_files(self):
        return sorted(glob.glob(os.path.join(RESULTS_DIR, "front_panel_test_*.txt")))


def repository_requests():
    """Every request the test repository answered, in order (its record)."""
    path = os.path.join(STATE_DIR, "nexus-requests.jsonl")
    if not os.path.exists(path):
        return []
    with open(path) as f:
        return [json.loads(line) for line in f if line.strip()]


def read_results(path):
    """The file's lines, with the start time checked and masked."""
    with open(path, encoding="utf-8") as f:
        text = f.read()
    assert text.endswith("\n"), "results file does not end with a newline"
    lines = text.split("\n")[:-1]
    if len(lines) >= 4:
        assert re.fullmatch(r"Tests Started: \d\d:\d\d \d\d/\d\d/\d{4}", lines[3]), lines[3]
        lines[3] = "Tests Started: <time>"
    return lines
