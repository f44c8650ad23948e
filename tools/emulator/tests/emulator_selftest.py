#!/usr/bin/env python3
"""Checks that the emulated devices keep the kernel's rules where the
program's end-to-end runs would not notice a difference: the value-form grab,
whole records only, one grabber at a time, blocking reads and poll wake-ups,
and a panel that ignores malformed commands.

Runs inside the emulated instrument (run-in-emulator.sh).
"""

import errno
import fcntl
import os
import select
import struct
import sys
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



class PanelSerialLine(unittest.TestCase):
    def setUp(self):
        self.emu = cv084emu.Emulator()
        self.fd = open_panel_line()
        self.start = self.emu.traffic()["next"]

    def tearDown(self):
        os.close(self.fd)
        self.emu.jack(False)
        self.emu.close()

    def test_malformed_commands_get_no_answer_and_are_marked(self):
        os.write(self.fd, b"L3ff00\nB800\nA4\nLFF0000FF\nX\n")
        time.sleep(0.2)
        self.assertEqual(os.read(self.fd, 64), b"")
        lines = self.emu.traffic(self.start)["lines"]
        self.assertEqual([(l["text"], l["ok"]) for l in lines],
                         [("L3ff00", False), ("B800", False), ("A4", False),
                          ("LFF0000FF", False), ("X", False)])



if __name__ == "__main__":
    unittest.main(verbosity=2)
