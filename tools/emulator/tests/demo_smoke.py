#!/usr/bin/env python3
"""The demo's two panes work together: typed keys reach the program through
the virtual panel, panel keys turn the knob and plug the headphones, and the
panel shows what the program did.

Runs inside the emulated instrument; usage: demo_smoke.py PROGRAM
"""

import os
import subprocess
import sys
import time
import unittest

HERE = os.path.dirname(os.path.realpath(__file__))
TMUX = ["tmux", "-L", "cv084-demo"]


def pane(target):
    return subprocess.run(TMUX + ["capture-pane", "-p", "-t", target], capture_output=True,
                          text=True).stdout


def keys(*k):
    subprocess.run(TMUX + ["send-keys", "-t", "demo:0.1"] + list(k), check=True)


def wait(target, text, timeout=10):
    deadline = time.monotonic() + timeout
    while text not in pane(target):
        if time.monotonic() > deadline:
            raise AssertionError(f"{text!r} not on {target}:\n{pane(target)}")
        time.sleep(0.05)


class DemoSmoke(unittest.TestCase):
    def test_panel_drives_the_program(self):
        env = dict(os.environ, DEMO_DETACHED="1", TERM="screen")
        subprocess.run([os.path.join(HERE, "..", "demo-session.sh"), sys.argv[1]], check=True,
                       env=env)
        try:
            wait("demo:0.0", "Enter CV084 PCB Serial No:")
            wait("demo:0.1", "CV084 front panel (emulated)")
            keys("-l", "DEMO1")
            keys("Enter")
            wait("demo:0.0", 'You Entered "DEMO1"')
            keys("-l", "y")
            wait("demo:0.0", "from *WHITE* to *YELLOW*")
            keys("PPage")  # one detent clockwise
            wait("demo:0.0", "from *YELLOW* to *CYAN*")
            wait("demo:0.1", "> knob clockwise")
            keys("F11")
            wait("demo:0.1", "headphones IN")
            keys("-l", "d")  # forwarded: the program's debug display
            wait("demo:0.0", "Headphones: In")
            keys("F3")
            wait("demo:0.1", "> pressed F3")
            keys("C-x")  # ends the demo
            deadline = time.monotonic() + 5
            while subprocess.run(TMUX + ["has-session"], stderr=subprocess.DEVNULL).returncode == 0:
                self.assertLess(time.monotonic(), deadline, "demo still running after Ctrl+X")
                time.sleep(0.05)
        finally:
            subprocess.run(TMUX + ["kill-server"], stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
