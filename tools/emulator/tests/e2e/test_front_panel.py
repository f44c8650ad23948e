#!/usr/bin/env python3
"""front_panel_test end to end, as an operator runs it on the emulated
instrument: keys on the terminal, buttons, knob and jack on the panel.

Each case is started by CTest in a fresh emulated instrument; the
instrument's start-up options (design, jack) are given to the launcher and
repeated here through EXPECT_* variables.
"""

import fcntl
import filecmp
import glob
import os
import re
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from station import (BUTTON_LABELS, COLOURS, RGB, STATE_DIR, Station,  # noqa: E402
                      read_results, repository_requests)

SERIAL = "A12345"
PLAN = ["Shaft Encoder Tests", "Button Tests", "Headphone Jack Detection Test",
        "Speaker Output Test", "Headphone Output Test"]
PASSED = "PASSED: Test Completed"
NOT_RUN = ["Not Run"] * 5
VOLUME_STEP = 41943
TONE_CLOCK = 202500000


def period_for(frequency):
    return TONE_CLOCK // frequency - 1


def pitch_frequency(index):
    return int(256.0 * pow(1.0594630943592953, index))


def place(*items):
    """One screen row from (column, text) pairs, as curses draws it."""
    row = [" "] * 80
    for col, text in items:
        row[col:col + len(text)] = list(text)
    return "".join(row[:80]).rstrip()


SHORT_LABELS = ["CalvBtn", "F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9", "F10", "Down",
                "Left", "Up", "Right", "OK", "ShftEnc"]


def buttons_row(row, pushed=None, text="Push"):
    """Row 5 + n of the debug display: three buttons, at columns 4, 23 and 41."""
    items = []
    for k, col in enumerate((4, 23, 41)):
        index = (row - 5) * 3 + k
        if index < 17:
            state = text if index == pushed else ""
            items.append((col, "%-7s : %-4s" % (SHORT_LABELS[index], state)))
    return place(*items)


def audio_row(headphones, speaker, jack):
    return place((0, "(H)eadphones: On " if headphones else "(H)eadphones: Off"),
                 (18, "(S)peaker: On " if speaker else "(S)peaker: Off"),
                 (35, "Headphones: " + jack))


def colours_row(current):
    plain = ["  white  ", " yellow  ", "  cyan   ", "  green  ", " magenta ", "   red   ",
             "  blue   ", "  black  "]
    bold = ["[ WHITE ]", "[YELLOW ]", "[ CYAN  ]", "[ GREEN ]", "[MAGENTA]", "[  RED  ]",
            "[ BLUE  ]", "[ BLACK ]"]
    return place(*[(2 + 9 * i, bold[i] if i == current else plain[i]) for i in range(8)])


def device_row(path, tx, rx):
    return place((4, "%-28s  : TX(%8d) RX(%8d)" % (path, tx, rx)))


def result_lines(states):
    return [f"{s} - {name}" for s, name in zip(states, PLAN)]


class OperatorCase(unittest.TestCase):
    args = ()

    def setUp(self):
        # Cases that share one instrument start from an empty results folder.
        for old in glob.glob("/home/transfer/log/front_panel_test_*"):
            os.unlink(old)
        self.uploads_before = len(self.uploads())
        self.st = Station(*self.args)

    def tearDown(self):
        self.st.close()

    # --- helpers, each one screen of the program ---------------------------
    def turn(self, detents, interval_ms=150):
        """Turns the knob, then waits until the program has read every detent,
        so that a key typed next is not taken before the last of them."""
        self.st.emu.turn(detents, interval_ms)
        self.st.wait_until(lambda: self.st.emu.state()["mouse"]["queued"] == 0, "detents read")

    def leds_all(self, rgb):
        return all(led == rgb for led in self.st.emu.state()["leds"])

    def summary(self, name, result):
        st = self.st
        st.wait_row(0, name)
        st.wait_row(2, "  " + result)
        st.wait_row(21, "    Press Any Key to continue :")
        st.type("x")

    def menu(self, states, names=PLAN):
        st = self.st
        st.wait_row(0, "Select Front Panel Test")
        for i, (state, name) in enumerate(zip(states, names)):
            st.wait_row(i + 2, f"  {i + 1}) {state} - {name}")
        st.wait_row(21, "      Selection, (Q)uit, (U)pload and quit :")

    def shaft_encoder_turns(self):
        st = self.st
        st.wait_row(0, "Shaft Encoder Tests")
        st.wait_row(21, "     (M)enu, (D)ebug, (Q)uit:")
        steps = [(t - 1, t, "Clockwise", 1) for t in range(1, 8)]
        steps += [(t + 1, t, "Anticlockwise", -1) for t in range(6, -1, -1)]
        for start, target, way, detent in steps:
            st.wait_row(6, f"  1. Turn the Shaft Encoder One Step *{way}* from"
                           f" *{COLOURS[start]}* to *{COLOURS[target]}*")
            # Outside the button tests no button is lit last, so the colour
            # goes to every LED at once.
            self.st.wait_until(lambda: self.leds_all(RGB[start]), f"all LEDs {COLOURS[start]}")
            self.turn(detent)
        self.st.wait_until(lambda: self.leds_all(RGB[0]), "all LEDs back to white")
        st.wait_row(19, "    Do all of the LEDs light up and do the colours change uniformly?")
        st.wait_row(21, "     (Y)es (N)o :")

    def press_button(self, index):
        st = self.st
        label = BUTTON_LABELS[index]
        st.wait_row(0, f'"{label}" Button Test')
        st.wait_row(5, f'  1. Press and release "*{label}*" button')
        st.wait_row(6, "  3. Check that all LEDs light up" if index == 16 else
                    "  3. Check that it's LED lights up")
        st.wait_row(21, "     (M)enu, (D)ebug, (Q)uit:")
        st.emu.press(index)

    def check_button_led(self, index):
        if index == 16:  # the knob's number means every LED
            self.st.wait_until(lambda: self.leds_all("ffffff"), "knob lights every LED")
            return
        self.st.wait_until(lambda: self.st.led(index) == "ffffff", f"LED {index} white")
        if index > 0:
            self.st.wait_until(lambda: self.st.led(index - 1) == "000000", f"LED {index - 1} off")

    def buttons_pass(self, first=0):
        for index in range(first, 17):
            self.press_button(index)
            self.check_button_led(index)

    def confirm_leds(self, answer):
        st = self.st
        st.wait_row(0, "Confirm the LED behaviour")
        st.wait_row(2, "  1. Did the LED's light up as expected?")
        st.wait_row(19, "    (M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o:")
        st.type(answer)

    def plug_step(self, plug):
        st = self.st
        st.wait_row(0, "Headphone Jack Detection Test")
        st.wait_row(2, "     This test is to ensure that the headphone presence can be correctly")
        st.wait_row(3, "     identifed.")
        st.wait_row(5, "  1. Plug the Headphones into the Headphone Jack" if plug else
                    "  1. Unplug the Headphones from the Headphone Jack")
        st.wait_row(19, "    Press (Y) to continue")
        st.wait_row(21, "    (M)enu, (D)ebug, (Q)uit - (Y)es:")
        # The jack and the answer together: the answer is judged with the
        # panel's report that came with it.
        st.emu.jack(plug)
        st.type("y")

    def audio_screen(self, name, routing):
        st = self.st
        st.wait_row(0, name)
        st.wait_row(19, "    Can you hear an audio output?")
        st.wait_row(21, "    (M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o:")
        # Only the chosen output, silent, at the top pitch (index 48, 4096 Hz).
        self.routing_is(routing)
        tone = st.emu.state()["tone"]
        self.assertEqual(tone["volume_raw"], 0)
        self.assertEqual(tone["period"], period_for(4096))
        self.assertEqual(tone["high"], int(float(period_for(4096)) * 0.5))

    def volume_is(self, percent):
        raw = (VOLUME_STEP * percent) & 0x3FFFFF
        self.st.wait_until(lambda: self.st.emu.state()["tone"]["volume_raw"] == raw,
                        f"volume register {raw} ({percent} %)")

    def pitch_is(self, index):
        period = period_for(pitch_frequency(index))
        self.st.wait_until(lambda: self.st.emu.state()["tone"]["period"] == period,
                        f"tone period {period} (pitch {index})")

    def from_menu(self, choice=None):
        """Leaves the first test for the menu, with nothing run yet, and picks `choice`."""
        self.st.enter_serial(SERIAL)
        self.st.wait_row(0, "Shaft Encoder Tests")
        self.st.type("m")
        self.menu(NOT_RUN)
        if choice:
            self.st.type(choice)

    def routing_is(self, routing):
        self.st.wait_until(lambda: self.st.emu.state()["routing"] == routing, f"routing {routing}")

    def finish(self, status, serial=SERIAL):
        self.assertEqual(self.st.wait_exit(), status, self.st.dump())
        files = self.st.results_files()
        self.assertEqual(len(files), 1, files)
        self.assertRegex(files[0], rf"^/home/transfer/log/front_panel_test_{serial}"
                                   r"-\d{8}-\d{6}\.txt$")
        return files[0]

    def results_are(self, path, states=None, before=(), serial=SERIAL):
        lines = list(before) + (result_lines(states) if states else [])
        header = ["Front Panel Test Log", "~" * 20, "", "Tests Started: <time>",
                  f"Serial No: {serial}"]
        self.assertEqual(read_results(path), header + lines)

    def ends_without_results(self, quiet=False):
        self.results_are(self.finish(255))
        if quiet:
            self.assertEqual(self.uploads(), [])
            self.panel_left_dark_and_quiet()

    def panel_left_dark_and_quiet(self):
        # The manager's destructor turns every LED and both outputs off.
        self.st.wait_until(lambda: self.leds_all("000000"), "every LED off at exit")
        self.assertEqual(self.st.emu.state()["routing"], 0)

    def uploads(self):
        return repository_requests()[getattr(self, "uploads_before", 0):]




class FullPlan(OperatorCase):
    """With the self-test image, or with -x and no image (FPT_ARGS=-x)."""
    args = tuple(os.environ.get("FPT_ARGS", "").split())

    def test_whole_plan_passes_and_is_uploaded(self):
        st = self.st
        image = not self.args
        # The serial number as the operator enters it: 80 characters are kept
        # of the 81 typed, and they name the results file, its "Serial No:"
        # line and the repository folder.
        serial = "0123456789" * 8
        for typed, kept, answer in (("", "Unassigned", "n"), ("  W1 W2", "W1", "N"),
                                    (serial + "9", serial, "y")):
            st.enter_serial(typed, kept, answer)
        # The panel was set up: its line ended, version and jack asked, outputs off, all
        # LEDs off, full brightness.
        self.st.wait_until(lambda: st.emu.state()["brightness"] == 255, "brightness 255")
        sent = [l["text"] for l in st.emu.traffic(st.traffic_start)["lines"] if l["dir"] == "host"]
        self.assertEqual(sent[:6], ["", "V", "H", "A0", "Lff000000", "Bff"])
        state = st.emu.state()
        self.assertTrue(state["keyboard"]["grabbed"])
        self.assertTrue(state["mouse"]["grabbed"])
        # Stamped on the clock the keys are, which no time step moves. An ARM
        # build under qemu-user cannot ask (qemu knows no evdev request).
        if not st.under_qemu_user():
            self.assertEqual([state[d]["clock"] for d in ("keyboard", "mouse")],
                             ["monotonic"] * 2)

        self.shaft_encoder_turns()
        st.type("y")
        self.summary("Shaft Encoder Tests", PASSED)
        self.buttons_pass()
        self.confirm_leds("y")
        self.summary("Button Tests", PASSED)
        self.plug_step(True)
        self.plug_step(False)
        self.summary("Headphone Jack Detection Test", PASSED)
        for name, routing, volume in (("Speaker Output Test", 1, 5),
                                      ("Headphone Output Test", 2, 3)):
            if image:
                self.audio_screen(name, routing)
                self.turn(volume)
                self.volume_is(volume)
                st.type("y")
            # Without the image a stand-in logs the failure, once each.
            self.summary(name, PASSED if image else "Test Not Run")

        audio = ["PASSED "] * 2 if image else ["Not Run"] * 2
        self.menu(["PASSED "] * 3 + audio)
        st.type("u")
        path = self.finish(0, serial)
        self.assertIn(f"Log filename: {path}", "".join(st.screen()))
        self.assertNotIn("Nexus Upload Failed", "\n".join(st.screen()))
        self.results_are(path, ["PASSED "] * 3 + audio, before=[] if image else [
            "FAIL!! - Speaker Output Test", "FAIL!! - Headphone Output Test"], serial=serial)
        self.panel_left_dark_and_quiet()
        if not image:  # the tone generator and the volume were never touched
            tone = st.emu.state()["tone"]
            self.assertEqual((tone["volume_raw"], tone["high"], tone["period"]), (0, 0, 0))

        self.assertEqual([r["status"] for r in self.uploads()], [204])
        stored = os.path.join(STATE_DIR, "nexus", "CV084", serial, "front_panel_test",
                              os.path.basename(path))
        self.assertTrue(filecmp.cmp(path, stored, shallow=False))

        # The program set its logger up under the results folder's "vyapp"
        # identity (its facility and line format are the logging tests' own).
        logged = [l for l in st.emu.syslog()["lines"] if "/home/transfer/log/vyapp: [" in l]
        self.assertTrue(logged)


class ButtonRetry(OperatorCase):
    def test_button_failed_retried_and_rerun_from_menu(self):
        st = self.st
        self.from_menu("2")
        # Calvento expected, F5 pressed: the test fails and offers a retry.
        st.wait_row(5, '  1. Press and release "*Calvento*" button')
        st.emu.press("f5")
        st.wait_row(19, '    ERROR: "Calvento" was not the last button pressed')
        st.wait_row(21, "     (M)enu, (D)ebug, (R)etry or (Q)uit :")
        st.type("r")
        self.press_button(0)
        self.check_button_led(0)
        # F1 passes; F2 is held with F3: a second button fails it too.
        self.press_button(1)
        st.wait_row(5, '  1. Press and release "*F2*" button')
        st.emu.hold("f2")
        st.wait_idle()
        st.emu.press("f3")
        st.emu.release("f2")
        st.wait_row(19, '    ERROR: "F2" was not the last button pressed')
        st.type("m")
        # Left mid-way: the group is not completed.
        self.menu(NOT_RUN)
        # From the menu the group starts again at its first button; after it
        # the next incomplete test follows.
        for answer, result, state in (("n", "FAILED: 1 failed out of 18", "FAIL!! "),
                                      ("y", PASSED, "PASSED ")):
            st.type("2")
            self.buttons_pass()
            self.confirm_leds(answer)
            self.summary("Button Tests", result)
            st.wait_row(0, "Headphone Jack Detection Test")
            st.type("m")
            self.menu(["Not Run", state, "Not Run", "Not Run", "Not Run"])
        st.type("q")
        self.results_are(self.finish(0), ["Not Run", "PASSED ", "Not Run", "Not Run", "Not Run"])
        self.assertEqual(self.uploads(), [])
        self.panel_left_dark_and_quiet()


class SelfTestImageMissing(OperatorCase):
    def test_refused_without_x(self):
        st = self.st
        status = st.wait_exit()
        screen = st.screen()
        at = screen.index("ERROR: You dont have the appropriate FPGA test bit file loaded")
        self.assertEqual(screen[at + 1:at + 4], ["You can load the bit file by running...",
                                                 "program_fpga_selftest.sh", ""])
        self.assertEqual(status, 1)
        self.assertEqual(st.results_files(), [])
        tone = st.emu.state()["tone"]
        self.assertEqual((tone["volume_raw"], tone["period"]), (0, 0))


class HeadphoneJack(OperatorCase):
    def test_jack_test_from_the_starting_state(self):
        st = self.st
        jack_in = os.environ.get("EXPECT_JACK", "out") == "in"
        self.from_menu("3")
        if not jack_in:
            # Answering before plugging in is caught, and retried.
            st.wait_row(5, "  1. Plug the Headphones into the Headphone Jack")
            st.wait_row(19, "    Press (Y) to continue")
            st.type("y")
            st.wait_row(19, "    ERROR: Headphones appear to be connected?")
            st.wait_row(21, "    (M)enu, (D)ebug, (Q)uit (R)etry :")
            st.type("r")
        self.plug_step(not jack_in)
        self.plug_step(jack_in)
        self.summary("Headphone Jack Detection Test", PASSED)


class AudioTests(OperatorCase):
    def test_knob_and_keys_move_volume_and_pitch(self):
        st = self.st
        self.from_menu("4")
        self.audio_screen("Speaker Output Test", 1)
        # Volume clamps at 0; pitch index 1 is 271 Hz (256 x 2^(1/12),
        # truncated) and clamps at 0 (256 Hz).
        for detents, interval, volume in ((10, 150, 10), (-3, 150, 7), (-9, 60, 0), (7, 60, 7)):
            self.turn(detents, interval)
            self.volume_is(volume)
        st.type("p")  # the knob now sets the pitch, from index 48, from its next detent on
        for detents, interval, pitch in ((-12, 60, 36), (-35, 40, 1), (-5, 40, 0)):
            self.turn(detents, interval)
            self.pitch_is(pitch)
        self.volume_is(7)
        st.type("v")  # back to the volume, from where it was
        self.turn(2)
        self.volume_is(9)
        self.pitch_is(0)
        # The headphones join the speaker; "s" toggles the speaker.
        for key, routing in (("h", 3), ("s", 2), ("s", 3)):
            st.type(key)
            self.routing_is(routing)
        st.type("y")
        self.summary("Speaker Output Test", PASSED)
        # The next test sets up afresh: headphones only, silent, top pitch.
        self.audio_screen("Headphone Output Test", 2)
        self.turn(4)
        self.volume_is(4)
        # "n" ends the whole run at once: no result lines at all.
        st.type("n")
        self.ends_without_results(quiet=True)


class StartFailure(OperatorCase):
    """No results folder, no panel serial device, or an input device that another station
    holds (EXPECT_MISSING: folder, panel, keyboard or mouse)."""
    missing = os.environ.get("EXPECT_MISSING")
    args = ("-f", "/no/dir/out.txt") if missing == "folder" else ()

    def setUp(self):
        if self.missing == "panel":
            subprocess.run(["umount", "/dev/cv084_app"], check=True)
            os.unlink("/dev/cv084_app")
        elif self.missing != "folder":
            held = os.open(f"/dev/input/cv084_fp_{self.missing}", os.O_RDONLY)
            fcntl.ioctl(held, 0x40044590, 1)  # EVIOCGRAB: the program's own grab gets EBUSY
            self.addCleanup(os.close, held)
        super().setUp()

    def test_reason_stays_on_the_plain_terminal(self):
        if self.args:
            # Keys from /dev/null: refused at once, not a screen that waits
            # (or spins) for ever.
            refused = subprocess.run([os.environ["FPT_PROGRAM"]], stdin=subprocess.DEVNULL,
                                     capture_output=True, text=True, timeout=60)
            self.assertEqual((refused.returncode, refused.stderr),
                             (1, "front_panel_test: standard input is not a terminal; run it on "
                                 "the operator's terminal.\n"))
        self.st.enter_serial(SERIAL)
        self.assertEqual(self.st.wait_exit(), 255)
        screen = "\n".join(self.st.screen())
        if self.args:
            self.assertIn("Couldn't open the log file /no/dir/out.txtLog filename: /no/dir/out.txt",
                          screen)
        else:
            reason = ("FrontPanelComs::openPort() failed: No such file or directory"
                      if self.missing == "panel" else
                      "front_panel_test unable to grab: Device or resource busy")
            self.assertIn(f"{reason}\nLog filename: {self.st.results_files()[0]}", screen)


class DebugDisplay(OperatorCase):
    def test_debug_display_follows_the_panel_live(self):
        st = self.st
        st.enter_serial(SERIAL)
        st.wait_row(0, "Shaft Encoder Tests")
        st.type("d")
        st.wait_row(0, "Front Panel Test App - ARM Version : V1.4.0   FPGA  Version : F0.9.2")
        st.wait_for(r"^    /dev/cv084_app {16}: TX\( +[1-9]\d*\) RX\( +[1-9]\d*\)$", row=1,
                    regex=True)
        st.wait_row(2, device_row("/dev/input/cv084_fp_keyboard", 0, 0))
        st.wait_row(3, device_row("/dev/input/cv084_fp_mouse", 0, 0))
        for row in range(5, 11):
            st.wait_row(row, buttons_row(row))
        st.wait_row(12, audio_row(False, False, "Out"))
        st.wait_row(15, colours_row(0))
        st.wait_row(21, "    Press (Y) to return to tests :")
        # Unexpected lines are reported on the terminal under the screen; the
        # display must be whole again on the next frame, not scrolled.
        received = int(re.search(r"RX\( *(\d+)\)", st.screen()[1]).group(1))
        st.emu.serial_raw(b"ok\nOKAY\n")
        st.wait_for(rf"RX\( *{received + 8}\)$", row=1, regex=True)
        st.wait_row(0, "Front Panel Test App - ARM Version : V1.4.0   FPGA  Version : F0.9.2")
        st.wait_row(21, "    Press (Y) to return to tests :")

        st.emu.hold("f3")
        st.wait_row(6, buttons_row(6, pushed=3))
        st.emu.release("f3")
        st.wait_row(6, buttons_row(6))
        # press, release: each a key event and its SYN_REPORT, plus the scan codes
        st.wait_for(r"cv084_fp_keyboard  : TX\(       0\) RX\( +[1-9]\d*\)", row=2, regex=True)
        st.emu.hold("knob", repeat=True)
        st.wait_row(10, buttons_row(10, pushed=16, text="Auto"))
        st.emu.release("knob")
        st.wait_row(10, buttons_row(10))

        for plugged, shown in ((True, "In"), (False, "Out")):
            st.emu.jack(plugged)
            st.wait_row(12, audio_row(False, False, shown))
        for key, row, routing in (("h", audio_row(True, False, "Out"), 2),
                                  ("s", audio_row(True, True, "Out"), 3)):
            st.type(key)
            st.wait_row(12, row)
            self.routing_is(routing)

        self.turn(2)
        st.wait_row(15, colours_row(2))
        self.st.wait_until(lambda: self.leds_all(RGB[2]), "every LED cyan")
        st.type("v")
        self.turn(4)
        st.wait_for(r" \(V\)olume:   4 ", row=14, regex=True)
        self.volume_is(4)
        st.wait_row(15, colours_row(2))  # the colour stays while the knob sets the volume

        st.type("y")
        st.wait_row(0, "Shaft Encoder Tests")
        # Back on the test display: the test starts again, from white.
        st.wait_row(6, "  1. Turn the Shaft Encoder One Step *Clockwise* from *WHITE* to *YELLOW*")
        st.type("q")
        self.assertEqual(st.wait_exit(), 255)


if __name__ == "__main__":
    unittest.main(verbosity=2)
