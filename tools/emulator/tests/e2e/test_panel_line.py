#!/usr/bin/env python3
"""The panel is the board under test: bytes a faulty micro-controller sends
must neither freeze the station nor be changed on their way in.

The emulated panel line comes up as a tty device does, with XON/XOFF flow
control and CR-to-LF translation on; the program has to switch them off.
"""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from station import Station  # noqa: E402

STDERR = "/tmp/fpt-panel-line.stderr"


class PanelLineCase(unittest.TestCase):
    def setUp(self):
        # The program's standard error into a file, away from the curses
        # screen: Station starts the program through sh, which redirects it.
        program = os.environ["FPT_PROGRAM"]
        os.environ["FPT_PROGRAM"] = f"{program} 2>{STDERR}"
        try:
            self.st = Station()
        finally:
            os.environ["FPT_PROGRAM"] = program
        self.st.enter_serial("A12345")
        self.st.wait_row(0, "Shaft Encoder Tests")

    def tearDown(self):
        self.st.close()

    def stderr(self):
        with open(STDERR, encoding="utf-8", newline="") as f:
            return f.read()


class Xoff(PanelLineCase):
    def test_button_still_lights_its_led_after_xoff(self):
        st = self.st
        st.type("m")
        st.wait_row(0, "Select Front Panel Test")
        st.type("2")
        st.wait_row(5, '  1. Press and release "*Calvento*" button')
        st.emu.press("calvento")
        st.wait_row(5, '  1. Press and release "*F1*" button')
        self.st.wait_until(lambda: st.led(0) == "ffffff", "LED 0 white")
        st.emu.serial_raw(b"\x13")
        st.wait_idle()
        st.emu.press("f1")
        self.st.wait_until(lambda: st.led(1) == "ffffff" and st.led(0) == "000000",
                        "LED 1 white, LED 0 off")
        st.wait_row(5, '  1. Press and release "*F2*" button')

class CarriageReturn(PanelLineCase):
    def test_carriage_return_stays_part_of_the_line(self):
        self.st.emu.serial_raw(b"OKAY\r\n")
        report = 'bool FrontPanelComms::processReceivedLine(const QString&): "OKAY\r" Unexpected\n'
        self.st.wait_until(lambda: report in self.stderr(), f"{report!r} on stderr")


if __name__ == "__main__":
    unittest.main()
