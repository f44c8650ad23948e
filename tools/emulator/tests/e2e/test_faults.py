#!/usr/bin/env python3
"""Faults in the middle of a write (the kit: tools/emulator/faultkit.py); power
cuts at every moment have their own sweep (test_power_cuts.py).
Each case runs in a fresh emulated instrument without the self-test image."""

import glob
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import unittest
from unittest import mock

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", ".."))
import faultkit as kit  # noqa: E402
from station import TMUX, Station, read_results  # noqa: E402
from test_upload_journal import upload_program  # noqa: E402


def results_lines(serial):
    return (["Front Panel Test Log", "~" * 20, "", "Tests Started: <time>", f"Serial No: {serial}"]
            + [f"FAIL!! - {name}" for name in kit.PLAN[3:]]
            + [f"Not Run - {name}" for name in kit.PLAN])


class WriteFaults(unittest.TestCase):
    """The journal's disk full (a small tmpfs of its own), or failing; the
    results file failing to reach the disk before its upload is recorded."""

    def run_with(self, prefix, serial, before_key=None, key="u"):
        """One run left through the menu's `key`; the station, once ended."""
        # The prefix is for this run only: a later subtest starts unprefixed.
        with mock.patch.dict(os.environ, FPT_PROGRAM=prefix + os.environ["FPT_PROGRAM"]):
            st = kit.QuickStation()
        self.addCleanup(st.close)
        st.to_menu(serial)
        if before_key:
            before_key()
        st.type(key)
        return st

    def upload_unrecorded(self, reason, prefix="", before_upload=None):
        before = kit.journal_text()
        st = self.run_with(prefix, "W1", before_upload)
        self.assertEqual(st.wait_exit(), 0)
        self.assertEqual(kit.journal_text(), before)  # cut back, no line cut short
        self.assertRegex(st.text(), f"{kit.JOURNAL}: {reason}")

    def test_disk_full_while_journal_written(self):
        kit.seed_journal(4096 - 40)  # the next line needs a block of its own
        self.addCleanup(os.unlink, kit.FILLER)
        self.upload_unrecorded("No space left on device", before_upload=kit.fill_disk)

    def test_journal_io_error(self):
        self.upload_unrecorded("Input/output error", prefix=kit.failing_sync("fdatasync"))

    def test_results_disk_error_told_after_the_screen(self):
        """A sync that failed once (EIO), or a full disk freed again before
        the end: the results stay incomplete, said on the plain terminal at
        (U)pload as at (Q)uit, with exit status 3; front_panel_upload sends
        such a file only when told to."""
        self.addCleanup(lambda: os.path.exists(kit.FILLER) and os.unlink(kit.FILLER))
        kit.seed_journal(1000)  # room in its last block for the mark
        # T2: the first line's sync fails and so does the cut-back after it:
        # that line stays, and nothing may be written after it.
        cases = (("E0", "u", kit.failing_sync("fsync"), None, "Input/output error"),
                 ("T2", "q", kit.failing_sync("fsync-file,ftruncate"), None, "Input/output error"),
                 ("F1", "q", "", lambda: os.unlink(kit.FILLER), "No space left on device"))
        for serial, key, prefix, before_key, reason in cases:
            with self.subTest(serial=serial):
                if not prefix:
                    kit.fill_disk()
                st = self.run_with(prefix, serial, before_key, key)
                self.assertEqual(st.wait_exit(), 3)
                [path] = glob.glob(f"{kit.RESULTS_DIR}/front_panel_test_{serial}-*.txt")
                with open(path) as kept:  # refused from the first line on
                    self.assertEqual(kept.read(), "Front Panel Test Log\n" if serial == "T2" else "")
                upload = " and is not uploaded" if key == "u" else ""
                expected = results_lines(serial)[:5] + [f"Not Run - {n}" for n in kit.PLAN]
                lacks = "\n".join(map(re.escape, expected)).replace(
                    "<time>", r"\d\d:\d\d \d\d/\d\d/\d{4}")
                self.assertRegex(st.text(), re.escape(
                    f"The results file {path} is incomplete ({reason}): it is not the board's"
                    f" results{upload}.\nWhat it lacks:\n") + lacks + "\n")
                self.assertNotIn((os.path.basename(path), 204), kit.received())
                refused = upload_program(path)
                self.assertEqual(refused.returncode, 1)
                self.assertIn("marked incomplete by front_panel_test", refused.stdout)
                sent = upload_program("--incomplete", path)
                self.assertEqual(sent.returncode, 0, sent.stdout + sent.stderr)
                self.assertEqual(kit.received()[-1:], [(os.path.basename(path), 204)])
                with open(path) as mine, open(kit.stored(f"/CV084/{serial}/front_panel_test/",
                                                         path)) as theirs:
                    self.assertEqual(mine.read(), theirs.read())


class ShellStation(kit.QuickStation):
    """In the operator's shell, which shows the terminal's mode once the
    program has ended; `prefix` goes before the program."""

    def __init__(self, prefix=""):
        command = f"{prefix}{os.environ['FPT_PROGRAM']} -x; s=\\$?; stty -a; (exit \\$s)"
        with mock.patch.dict(os.environ, FPT_PROGRAM=command):
            Station.__init__(self, timeout=30)


class SignalCase(unittest.TestCase):
    def end_by_signal(self, sig, moment, serial, held=False):
        """Sends `sig` at `moment` of a run: the program ends by it and gives
        the shell its screen, keypad and terminal mode back (and, if `held`,
        a diagnostic written just before, after them); the screen."""
        # A disk slow to sync, so that the signal lands among the result lines.
        st = ShellStation(kit.slow_sync(200) if moment == "results" else "")
        self.addCleanup(st.close)
        if moment == "serial":
            st.wait_row(14, " " * 10 + "Enter CV084 PCB Serial No:")
        elif moment == "test":
            st.enter_serial(serial)
            st.wait_for(kit.PLAN[0], row=0)
        else:
            st.to_menu(serial)
        if moment in ("results", "upload"):
            st.type("u")
            [path] = glob.glob(f"{kit.RESULTS_DIR}/front_panel_test_{serial}-*.txt")
        if moment == "results":
            line = f"Not Run - {kit.PLAN[0]}\n".encode()
            st.wait_until(lambda: line in pathlib.Path(path).read_bytes(), "a result line")
        elif moment == "upload":
            st.wait_until(lambda: len(kit.received()) > self.sent, "the first try sent")
        pid = st.program_pid()
        if held:  # stopped, so that what is written now is still held when the signal comes
            os.kill(pid, signal.SIGSTOP)
            with open(f"/proc/{pid}/fd/2", "a") as stderr:
                stderr.write("last words\n")
        os.kill(pid, sig)
        if held:
            os.kill(pid, signal.SIGCONT)
        self.assertEqual(st.wait_exit(timeout=5), 128 + sig)
        pane = subprocess.run(TMUX + ["display", "-p", "-t", "fpt", "#{alternate_on}#{keypad_flag}"],
                              check=True, capture_output=True, text=True).stdout
        self.assertEqual(pane, "00\n")
        text = "\n".join(st.screen())
        self.assertTrue({"icanon", "echo"} <= set(text.split()), text)
        if held:
            self.assertLess(text.index("last words"), text.index("speed "))
        return st


class CrashWhileScreenUp(SignalCase):
    """A crash while a test is up, the operator's Ctrl-\\ among them."""

    def test_terminal_given_back_with_what_was_held(self):
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        for crash in (signal.SIGABRT, signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE,
                      signal.SIGQUIT, signal.SIGILL, signal.SIGTRAP, signal.SIGSYS):
            with self.subTest(signal=crash.name):
                self.end_by_signal(crash, "test", "C1", held=True).close()


class EndedBySignal(SignalCase):
    """SIGINT, SIGTERM and SIGHUP at each stage of a run, each signal on the
    screen and after it, all three during the upload: only whole lines in
    the results, and an upload that did not finish pending in the journal
    without a further try. The repository never answers."""

    CASES = [(signal.SIGINT, "serial"), (signal.SIGTERM, "test"), (signal.SIGHUP, "menu"),
             (signal.SIGHUP, "results"), (signal.SIGINT, "upload"), (signal.SIGTERM, "upload"),
             (signal.SIGHUP, "upload")]

    def test_signal_at_each_moment(self):
        for sig, moment in self.CASES:
            with self.subTest(signal=sig.name, moment=moment):
                serial, self.sent = f"S{sig:d}{moment}", len(kit.received())
                st = self.end_by_signal(sig, moment, serial)
                files = glob.glob(f"{kit.RESULTS_DIR}/front_panel_test_{serial}-*.txt")
                self.assertEqual(len(files), moment != "serial")
                events = [r[0] for r in kit.journal_records() if r[3] in files]
                lines = results_lines(serial)[:5]
                if moment in ("results", "upload"):
                    lines += [f"Not Run - {name}" for name in kit.PLAN]
                    self.assertEqual(len(kit.received()), self.sent + (moment == "upload"))
                    self.assertIn(f"Upload interrupted by signal {sig:d} ({signal.strsignal(sig)})"
                                  f"\nThe results stay in {files[0]}; send them later with: "
                                  f"front_panel_upload {files[0]}\n", st.text())
                for path in files:
                    self.assertEqual(read_results(path), lines)
                self.assertEqual(events, ["requested"] if len(lines) > 5 else [])
                st.close()


if __name__ == "__main__":
    unittest.main()
