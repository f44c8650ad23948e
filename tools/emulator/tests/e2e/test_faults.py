#!/usr/bin/env python3
"""Faults in the middle of a write (the kit: tools/emulator/faultkit.py); power
cuts at every moment have their own sweep (test_power_cuts.py).
Each case runs in a fresh emulated instrument without the self-test image."""

import glob
import os
import resource
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", ".."))
import faultkit as kit  # noqa: E402
from station import TMUX, Station, read_results  # noqa: E402


def results_lines(serial):
    return (["Front Panel Test Log", "~" * 20, "", "Tests Started: <time>", f"Serial No: {serial}"]
            + [f"FAIL!! - {name}" for name in kit.PLAN[3:]]
            + [f"Not Run - {name}" for name in kit.PLAN])


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

class CrashWhileScreenUp(unittest.TestCase):
    """The shell gets its screen and terminal mode back, then what the program
    held back, and the signal ends the program."""

    def test_terminal_given_back_with_what_was_held(self):
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        program = os.environ["FPT_PROGRAM"]
        self.addCleanup(os.environ.__setitem__, "FPT_PROGRAM", program)
        # The shell shows the terminal's mode once the program has ended.
        os.environ["FPT_PROGRAM"] = f"{program}; s=\\$?; stty -a; (exit \\$s)"
        for crash in (signal.SIGABRT, signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE):
            with self.subTest(signal=crash.name):
                st = Station()
                self.addCleanup(st.close)
                st.enter_serial("C1")
                st.wait_for(kit.PLAN[0], row=0)
                pid = kit.QuickStation.program_pid(st)
                # Stopped, so that a diagnostic written now is still held when it crashes.
                os.kill(pid, signal.SIGSTOP)
                with open(f"/proc/{pid}/fd/2", "a") as stderr:
                    stderr.write("last words\n")
                os.kill(pid, crash)
                os.kill(pid, signal.SIGCONT)
                self.assertEqual(st.wait_exit(), 128 + crash)
                pane = subprocess.run(TMUX + ["display", "-p", "-t", "fpt",
                                              "#{alternate_on} #{keypad_flag}"], check=True,
                                      capture_output=True, text=True).stdout.split()
                self.assertEqual(pane, ["0", "0"])
                text = "\n".join(st.screen())
                self.assertLess(text.index("last words"), text.index("speed "))
                self.assertTrue({"icanon", "echo"} <= set(text.split()), text)
                st.close()

if __name__ == "__main__":
    unittest.main()
