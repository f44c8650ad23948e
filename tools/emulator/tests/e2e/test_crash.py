#!/usr/bin/env python3
"""A crash while the screen is up (a signal sent to the program, as a fault
would raise it): the operator's terminal is given back as the shell had it,
and the shell learns how the program ended."""

import os
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from station import TMUX, Station  # noqa: E402

STTY = "/tmp/fpt-crash.stty"


def descendants(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as f:
        return [pid] + [d for child in f.read().split() for d in descendants(int(child))]


class CrashWhileScreenUp(unittest.TestCase):
    def test_terminal_given_back(self):
        # The shell notes the terminal's mode once the program has ended.
        program = os.environ["FPT_PROGRAM"]
        os.environ["FPT_PROGRAM"] = f"ulimit -c 0; {program}; s=\\$?; stty -a >{STTY}; (exit \\$s)"
        try:
            st = Station()
        finally:
            os.environ["FPT_PROGRAM"] = program
        self.addCleanup(st.close)
        st.enter_serial("A12345")
        st.wait_row(0, "Shaft Encoder Tests")
        pane = subprocess.run(TMUX + ["display", "-p", "-t", "fpt", "#{pane_pid}"], check=True,
                              capture_output=True, text=True).stdout
        [pid] = [p for p in descendants(int(pane))
                 if os.readlink(f"/proc/{p}/exe") == os.path.realpath(program)]
        os.kill(pid, signal.SIGSEGV)
        self.assertEqual(st.wait_exit(), 128 + signal.SIGSEGV)
        flags = subprocess.run(TMUX + ["display", "-p", "-t", "fpt", "#{alternate_on} #{keypad_flag}"],
                               check=True, capture_output=True, text=True).stdout
        self.assertEqual(flags, "0 0\n")  # the shell's own screen, keypad in its own mode
        with open(STTY) as f:
            mode = f.read().split()
        self.assertTrue({"icanon", "echo", "icrnl"} <= set(mode), mode)


if __name__ == "__main__":
    unittest.main()
