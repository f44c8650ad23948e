#!/usr/bin/env python3
"""Faults in the middle of a write (the kit: tools/emulator/faultkit.py).
Each case runs in a fresh emulated instrument without the self-test image."""

import glob
import os
import pathlib
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


class KilledMidWrite(unittest.TestCase):
    def test_every_kill_leaves_whole_lines_and_exactly_the_pending_uploads(self):
        moments = kit.kill_moments(50, int(os.environ.get("FPT_KILL_SEED", "19")))
        for k, moment in enumerate(moments):
            with self.subTest(kill=k, moment=f"{moment:.3f}"):
                kit.run_killed_at(f"K{k:02d}", moment)
                self.check_and_send_pending(f"K{k:02d}")

    def check_and_send_pending(self, serial):
        for path in glob.glob(f"{kit.RESULTS_DIR}/front_panel_test_{serial}-*.txt"):
            lines = read_results(path) if os.path.getsize(path) else []
            self.assertEqual(lines, results_lines(serial)[:len(lines)], path)
        text, pending = kit.journal_text(), {}
        self.assertTrue(text == "" or text.endswith("\n"), "journal line cut short")
        for event, _, target, path, _, sha in kit.journal_records():
            self.assertTrue(event in ("requested", "uploaded") and len(sha) == 64, event)
            if event == "requested":  # only whole results are offered for upload
                lines = read_results(path)
                self.assertEqual(lines, results_lines(lines[4][len("Serial No: "):]))
                pending[path] = target
            else:
                pending.pop(path, None)
                with open(path) as mine, open(kit.stored(target, path)) as theirs:
                    self.assertEqual(mine.read(), theirs.read(), "recorded as uploaded")
        kit.wait_repository_idle()  # a killed upload's request may still be being taken
        before = len(kit.received())
        sent = upload_program()
        self.assertEqual(sent.returncode, 0, sent.stderr)
        self.assertNotIn("skipped", sent.stderr)  # no damaged journal line
        self.assertEqual(sorted(kit.received()[before:]),
                         sorted((os.path.basename(p), 204) for p in pending))


class WriteFaults(unittest.TestCase):
    """The journal's disk full (a small tmpfs of its own), or failing; the
    results file failing to reach the disk before its upload is recorded."""

    def upload_unrecorded(self, reason, failing=kit.JOURNAL, prefix="", before_upload=None):
        before = kit.journal_text()
        self.addCleanup(os.environ.__setitem__, "FPT_PROGRAM", os.environ["FPT_PROGRAM"])
        os.environ["FPT_PROGRAM"] = prefix + os.environ["FPT_PROGRAM"]
        st = kit.QuickStation()
        self.addCleanup(st.close)
        st.to_menu("W1")
        if before_upload:
            before_upload()
        st.type("u")
        self.assertEqual(st.wait_exit(), 0)
        self.assertEqual(kit.journal_text(), before)  # cut back, no line cut short
        self.assertRegex(st.text(), f"{failing}: {reason}")

    def test_disk_full_while_journal_written(self):
        kit.seed_journal(4096 - 40)  # the next line needs a block of its own
        self.addCleanup(os.unlink, kit.FILLER)
        self.upload_unrecorded("No space left on device", before_upload=kit.fill_disk)

    def test_journal_io_error(self):
        self.upload_unrecorded("Input/output error", prefix=kit.failing_sync("fdatasync"))

    def test_results_io_error(self):  # no record of results the disk may not hold
        self.upload_unrecorded("Input/output error", r"/front_panel_test_W1-\d{8}-\d{6}\.txt",
                               kit.failing_sync("fsync"))

    def test_disk_full_while_results_written(self):
        # Full from the first line on; freed before (U)pload, or not.
        self.addCleanup(lambda: os.path.exists(kit.FILLER) and os.unlink(kit.FILLER))
        for serial in ("F0", "F1"):
            with self.subTest(serial=serial):
                kit.fill_disk()
                st = kit.QuickStation()
                self.addCleanup(st.close)
                st.to_menu(serial)
                [path] = glob.glob(f"{kit.RESULTS_DIR}/front_panel_test_{serial}-*.txt")
                if serial == "F1":
                    os.unlink(kit.FILLER)
                st.type("u")
                self.assertEqual(st.wait_exit(), 0)
                if serial == "F1":  # the whole file, or nothing, goes out as the board's
                    self.assertEqual(read_results(path), results_lines(serial)[:5] + [
                        f"Not Run - {name}" for name in kit.PLAN])
                    self.assertEqual(kit.received()[-1:], [(os.path.basename(path), 204)])
                else:
                    self.assertIn(f"{path} is incomplete (No space left on device)", st.text())
                    self.assertNotIn(path, kit.journal_text())
                    self.assertNotIn((os.path.basename(path), 204), kit.received())
                    os.unlink(kit.FILLER)
                st.close()

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
