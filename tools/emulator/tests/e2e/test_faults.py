#!/usr/bin/env python3
"""Faults in the middle of a write (the kit: tools/emulator/faultkit.py); power
cuts at every moment have their own sweep (test_power_cuts.py).
Each case runs in a fresh emulated instrument without the self-test image."""

import glob
import os
import re
import resource
import signal
import subprocess
import sys
import unittest

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
        self.addCleanup(os.environ.__setitem__, "FPT_PROGRAM", os.environ["FPT_PROGRAM"])
        os.environ["FPT_PROGRAM"] = prefix + os.environ["FPT_PROGRAM"]
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
        cases = (("E0", "u", kit.failing_sync("fsync"), None, "Input/output error"),
                 ("F1", "q", "", lambda: os.unlink(kit.FILLER), "No space left on device"))
        for serial, key, prefix, before_key, reason in cases:
            with self.subTest(serial=serial):
                if not prefix:
                    kit.fill_disk()
                st = self.run_with(prefix, serial, before_key, key)
                self.assertEqual(st.wait_exit(), 3)
                [path] = glob.glob(f"{kit.RESULTS_DIR}/front_panel_test_{serial}-*.txt")
                self.assertEqual(os.path.getsize(path), 0)  # refused from the first line on
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
