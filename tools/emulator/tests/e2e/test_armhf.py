#!/usr/bin/env python3
"""The armhf front_panel_test, under qemu-user, in an emulated instrument
whose input nodes serve 16-byte records as the controller's 32-bit kernel
does: a record read at any other size, or decoded at the wrong offsets,
loses the button press and its LED stays dark.

FPT_PROGRAM is the whole command: qemu-arm, its options and the program.
"""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from station import Station  # noqa: E402

WHITE = "ffffff"
DARK = "000000"


class Armhf(unittest.TestCase):
    def test_button_press_lights_its_led(self):
        # Emulated, the program starts and polls several times slower.
        st = Station(timeout=30.0)
        self.addCleanup(st.close)
        st.enter_serial("A12345")
        st.wait_row(0, "Shaft Encoder Tests")
        st.type("m")
        st.wait_row(0, "Select Front Panel Test")
        st.type("2")
        st.wait_row(5, '  1. Press and release "*Calvento*" button')
        st.emu.press("calvento")
        # Until a button is pressed every LED shows the colour; then only its own.
        st.wait_until(lambda: (st.led(0), st.led(1)) == (WHITE, DARK), "LED 0 alone lit", 10)
        # Down and up both seen: the test passes and the next one asks for F1.
        st.wait_row(5, '  1. Press and release "*F1*" button')
        st.type("q")
        self.assertEqual(st.wait_exit(), 255)


if __name__ == "__main__":
    unittest.main(verbosity=2)
