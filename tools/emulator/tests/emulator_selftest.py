#!/usr/bin/env python3
"""Checks the emulated instrument's devices the way the program uses them.

Runs inside the emulated instrument (run-in-emulator.sh). Talks to every
device node through the kernel interfaces only, and to the emulator's
control socket to work the panel.
"""

import errno
import fcntl
import mmap
import os
import select
import socket
import struct
import sys
import syslog
import termios
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), ".."))
import cv084emu  # noqa: E402

EVIOCGRAB = 0x40044590  # _IOW('E', 0x90, int)
EVENT = struct.Struct("llHHi")  # the host's struct input_event
EV_SYN, EV_KEY, EV_REL, EV_MSC = 0, 1, 2, 4
REL_WHEEL = 8
KEYBOARD = "/dev/input/cv084_fp_keyboard"
MOUSE = "/dev/input/cv084_fp_mouse"


def read_events(fd, timeout=2.0):
    """Every record waiting now, after waiting for the first one."""
    deadline = time.monotonic() + timeout
    data = b""
    while True:
        try:
            chunk = os.read(fd, EVENT.size * 16)
            if not chunk:
                break
            data += chunk
            continue
        except BlockingIOError:
            if data or time.monotonic() > deadline:
                break
            time.sleep(0.01)
    return unpack(data)


def unpack(data):
    assert len(data) % EVENT.size == 0, f"partial record: {len(data)} bytes"
    return [EVENT.unpack_from(data, i)[2:] for i in range(0, len(data), EVENT.size)]


def open_panel_line():
    """Opens the serial line and sets it up the way the program does."""
    fd = os.open("/dev/cv084_app", os.O_RDWR | os.O_NOCTTY | os.O_SYNC)
    attrs = termios.tcgetattr(fd)
    attrs[0] &= ~termios.IGNBRK
    attrs[1] = 0
    attrs[3] = 0
    attrs[6][termios.VMIN] = 0
    attrs[6][termios.VTIME] = 0
    termios.tcsetattr(fd, termios.TCSANOW, attrs)
    return fd


def read_lines(fd, count, timeout=2.0):
    deadline = time.monotonic() + timeout
    data = b""
    while data.count(b"\n") < count and time.monotonic() < deadline:
        chunk = os.read(fd, 32)
        if chunk:
            data += chunk
        else:
            time.sleep(0.01)
    return data.decode("latin-1").split("\n")[:-1]


class InputDevices(unittest.TestCase):
    def setUp(self):
        self.emu = cv084emu.Emulator()
        self.fds = []

    def tearDown(self):
        for fd in self.fds:
            os.close(fd)
        self.emu.close()

    def open_input(self, path, nonblocking=True):
        fd = os.open(path, os.O_RDONLY | os.O_NOCTTY)
        self.fds.append(fd)
        if nonblocking:
            fcntl.fcntl(fd, fcntl.F_SETFL, os.O_NONBLOCK)
        return fd

    def test_value_form_grab_then_nonblocking_reads_whole_records(self):
        fd = self.open_input(KEYBOARD, nonblocking=False)
        fcntl.ioctl(fd, EVIOCGRAB, 1)  # the value form, as on a real evdev node
        fcntl.fcntl(fd, fcntl.F_SETFL, os.O_NONBLOCK)
        with self.assertRaises(BlockingIOError):
            os.read(fd, 32)
        self.assertTrue(self.emu.state()["keyboard"]["grabbed"])
        self.emu.press("f3", 50)
        events = read_events(fd)
        keys = [e for e in events if e[0] == EV_KEY]
        self.assertEqual(keys, [(EV_KEY, 61, 1), (EV_KEY, 61, 0)])
        # every event is followed by its SYN_REPORT
        for i, e in enumerate(events):
            if e[0] == EV_KEY:
                self.assertEqual(events[i + 1], (EV_SYN, 0, 0))
        with self.assertRaises(BlockingIOError):
            os.read(fd, 32)

    def test_read_smaller_than_a_record_is_refused(self):
        fd = self.open_input(KEYBOARD)
        self.emu.press("up", 20)
        time.sleep(0.1)
        with self.assertRaises(OSError) as err:
            os.read(fd, EVENT.size - 1)
        self.assertEqual(err.exception.errno, errno.EINVAL)

    def test_second_grabber_gets_ebusy_until_the_first_closes(self):
        first = os.open(MOUSE, os.O_RDONLY)
        second = self.open_input(MOUSE, nonblocking=False)
        fcntl.ioctl(first, EVIOCGRAB, 1)
        with self.assertRaises(OSError) as err:
            fcntl.ioctl(second, EVIOCGRAB, 1)
        self.assertEqual(err.exception.errno, errno.EBUSY)
        os.close(first)
        fcntl.ioctl(second, EVIOCGRAB, 1)
        fcntl.ioctl(second, EVIOCGRAB, 0)

    def test_grab_keeps_events_from_other_readers(self):
        grabber = self.open_input(KEYBOARD)
        other = self.open_input(KEYBOARD)
        fcntl.ioctl(grabber, EVIOCGRAB, 1)
        self.emu.press("ok", 20)
        self.assertIn((EV_KEY, 132, 1), read_events(grabber))
        with self.assertRaises(BlockingIOError):
            os.read(other, EVENT.size)
        fcntl.ioctl(grabber, EVIOCGRAB, 0)
        self.emu.press("ok", 20)
        self.assertIn((EV_KEY, 132, 1), read_events(other))

    def test_knob_detents_are_wheel_events_clockwise_negative(self):
        fd = self.open_input(MOUSE)
        self.emu.turn(2, 10)
        self.emu.turn(-1, 10)
        wheel = [e for e in read_events(fd) if e[0] == EV_REL]
        self.assertEqual(wheel, [(EV_REL, REL_WHEEL, -1)] * 2 + [(EV_REL, REL_WHEEL, 1)])

    def test_blocking_read_waits_for_an_event_and_poll_wakes(self):
        fd = self.open_input(KEYBOARD, nonblocking=False)
        poller = select.poll()
        poller.register(fd, select.POLLIN)
        self.assertEqual(poller.poll(50), [])
        pid = os.fork()
        if pid == 0:
            time.sleep(0.2)
            with cv084emu.Emulator() as emu:
                emu.press("knob", 20)
            os._exit(0)
        began = time.monotonic()
        data = os.read(fd, EVENT.size * 3)  # blocks until the press arrives
        waited = time.monotonic() - began
        os.waitpid(pid, 0)
        self.assertGreater(waited, 0.1)
        self.assertIn((EV_KEY, 113, 1), unpack(data))
        # the release is waiting now, and poll says so
        time.sleep(0.1)
        self.assertTrue(poller.poll(1000))

    def test_every_button_has_its_key_code(self):
        codes = [125, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 108, 105, 103, 106, 132, 113]
        fd = self.open_input(KEYBOARD)
        for name in cv084emu.BUTTONS:
            self.emu.press(name, 5)
        got = [e[1] for e in read_events(fd) if e[0] == EV_KEY and e[2] == 1]
        self.assertEqual(got, codes)

    def test_hold_with_repeat_sends_value_two_until_release(self):
        fd = self.open_input(KEYBOARD)
        self.emu.hold("left", repeat=True)
        self.assertEqual(self.emu.state()["held"], ["left"])
        time.sleep(0.4)
        self.emu.release("left")
        values = [e[2] for e in read_events(fd) if e[0] == EV_KEY]
        self.assertEqual(values[0], 1)
        self.assertEqual(values[-1], 0)
        self.assertGreaterEqual(values.count(2), 2)
        self.assertEqual(self.emu.state()["held"], [])


class PanelSerialLine(unittest.TestCase):
    def setUp(self):
        self.emu = cv084emu.Emulator()
        self.fd = open_panel_line()
        self.start = self.emu.traffic()["next"]

    def tearDown(self):
        os.close(self.fd)
        self.emu.jack(False)
        self.emu.close()

    def test_version_and_jack_queries(self):
        os.write(self.fd, b"V\nH\n")
        self.assertEqual(read_lines(self.fd, 3), ["V1.4.0", "F0.9.2", "H0"])

    def test_commands_are_acknowledged_and_kept(self):
        os.write(self.fd, b"L0300ff00\nB80\nA3\nLff0000ff\nL0fffffff\n")
        self.assertEqual(read_lines(self.fd, 5), ["OK"] * 5)
        s = self.emu.state()
        self.assertEqual(s["leds"][15], "ffffff")
        self.assertEqual(s["leds"][3], "0000ff")
        self.assertEqual(s["leds"][0], "0000ff")
        self.assertEqual(s["brightness"], 0x80)
        self.assertEqual(s["routing"], 3)

    def test_malformed_commands_get_no_answer_and_are_marked(self):
        os.write(self.fd, b"L3ff00\nB800\nA4\nLFF0000FF\nX\n")
        time.sleep(0.2)
        self.assertEqual(os.read(self.fd, 64), b"")
        lines = self.emu.traffic(self.start)["lines"]
        self.assertEqual([(l["text"], l["ok"]) for l in lines],
                         [("L3ff00", False), ("B800", False), ("A4", False),
                          ("LFF0000FF", False), ("X", False)])

    def test_jack_changes_are_reported_unprompted(self):
        self.emu.jack(True)
        self.emu.jack(True)  # no change, no report
        self.emu.jack(False)
        self.assertEqual(read_lines(self.fd, 2), ["H1", "H0"])
        self.assertEqual(self.emu.state()["jack"], "out")

    def test_traffic_records_both_directions_in_order(self):
        os.write(self.fd, b"A1\n")
        read_lines(self.fd, 1)
        lines = self.emu.traffic(self.start)["lines"]
        self.assertEqual([(l["dir"], l["text"]) for l in lines],
                         [("host", "A1"), ("panel", "OK")])
        self.assertLessEqual(lines[0]["t_us"], lines[1]["t_us"])


class RegisterWindowAndPlatform(unittest.TestCase):
    def test_window_is_8_mib_with_the_self_test_design(self):
        design = int(os.environ.get("EXPECT_DESIGN", "11"))
        fd = os.open("/dev/xdma0_user", os.O_RDWR | os.O_SYNC)
        try:
            m = mmap.mmap(fd, 0x800000, mmap.MAP_SHARED, mmap.PROT_READ | mmap.PROT_WRITE)
            word = struct.unpack_from("<I", m, 0x10 * 4)[0]
            self.assertEqual((word >> 16) & 0x7FFF, design)
            self.assertEqual(((word & 0xFF) << 8) | ((word >> 8) & 0xFF), 0x0103)
            # what SelfTestFPGAComms writes for volume 50 and a 256 Hz tone
            struct.pack_into("<I", m, 7 * 4, (41943 * 50) & 0x3FFFFF)
            struct.pack_into("<I", m, 8 * 4, 395507)
            struct.pack_into("<I", m, 9 * 4, 791014)
            time.sleep(0.05)
            with cv084emu.Emulator() as emu:
                tone = emu.state()["tone"]
                self.assertAlmostEqual(tone["volume_percent"], 50.0)
                self.assertEqual(round(tone["frequency_hz"]), 256)
                self.assertEqual(emu.tones()["tones"][-1]["period"], 791014)
            m.close()
        finally:
            os.close(fd)

    def test_board_id_straps_describe_a_vyp_instrument(self):
        def group(lines):
            value = 0
            for n in lines:
                with open(f"/sys/class/gpio/gpio{n}/value") as f:
                    value = value << 1 | (int(f.read(9)) != 0)
            return value
        self.assertGreater(group([127, 126, 125, 124, 123, 122, 121]), 63)  # CV079
        self.assertGreater(group([502, 501, 500, 499, 498, 497, 496]), 4)   # CV084
        self.assertGreaterEqual(group([508, 507, 506, 505, 504]), 0)
        self.assertGreaterEqual(group([113, 116, 115, 114]), 0)

    def test_pcie_driver_file_is_readable(self):
        with open("/proc/calv_pcie") as f:
            self.assertEqual(len(f.read().split()), 5)

    def test_syslog_reaches_the_capture(self):
        with cv084emu.Emulator() as emu:
            start = emu.syslog()["next"]
            syslog.openlog("/home/transfer/log/vyapp", 0, syslog.LOG_USER)
            syslog.syslog(syslog.LOG_ERR, "emulator self-test line")
            syslog.closelog()
            time.sleep(0.1)
            lines = emu.syslog(start)["lines"]
        self.assertEqual(len(lines), 1)
        self.assertRegex(lines[0], r"^<11>.*/home/transfer/log/vyapp: emulator self-test line$")

    def test_results_directory_is_writable(self):
        path = "/home/transfer/log/selftest.txt"
        with open(path, "w") as f:
            f.write("x\n")
        os.unlink(path)

    def test_repository_host_name_is_local(self):
        self.assertEqual(socket.gethostbyname("nexus.cv084.test"), "127.0.0.1")


if __name__ == "__main__":
    unittest.main(verbosity=2)
