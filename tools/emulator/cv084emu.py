"""Client of the emulated CV084 instrument's control socket.

Used by `emuctl`, the virtual panel, the end-to-end tests and the
benchmark. Every request is one line; every answer is one JSON line.
"""

import json
import os
import socket

RUN_DIR = os.environ.get("CV084_EMU_RUN", "/run/cv084-emu")

BUTTONS = ["calvento", "f1", "f2", "f3", "f4", "f5", "f6", "f7", "f8", "f9", "f10",
           "down", "left", "up", "right", "ok", "knob"]

COLOUR_NAMES = {0xFFFFFF: "white", 0xFFFF00: "yellow", 0x00FFFF: "cyan", 0x00FF00: "green",
                0xFF00FF: "magenta", 0xFF0000: "red", 0x0000FF: "blue", 0x000000: "off"}

ROUTING_NAMES = {0: "off", 1: "speaker", 2: "headphones", 3: "speaker+headphones", -1: "unset"}


class EmulatorError(RuntimeError):
    pass


class Emulator:
    def __init__(self, path=None, timeout=30.0):
        self.path = path or os.path.join(RUN_DIR, "control.sock")
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(timeout)
        self.sock.connect(self.path)
        self.buf = b""

    def close(self):
        self.sock.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def request(self, *words):
        self.sock.sendall((" ".join(str(w) for w in words) + "\n").encode())
        while b"\n" not in self.buf:
            chunk = self.sock.recv(1 << 20)
            if not chunk:
                raise EmulatorError("emulator closed the control connection")
            self.buf += chunk
        line, _, self.buf = self.buf.partition(b"\n")
        answer = json.loads(line)
        if not answer.get("ok"):
            raise EmulatorError(answer.get("error", "request failed"))
        return answer

    # The panel, as an operator works it.
    def press(self, button, ms=250):
        """Returns when the button is up again, with the time it went down
        (monotonic microseconds, the clock of the serial traffic)."""
        return self.request("press", button, ms)["down_us"]

    def hold(self, button, repeat=False):
        return self.request("hold", button, *(["repeat"] if repeat else []))["down_us"]

    def release(self, button):
        self.request("release", button)

    def turn(self, detents, interval_ms=150):
        """Positive: clockwise, one detent every interval_ms."""
        self.request("turn", detents, interval_ms)

    def jack(self, plugged):
        self.request("jack", "in" if plugged else "out")

    def serial_raw(self, data):
        """The panel's micro-controller sends `data` (bytes) as they are."""
        self.request("serial-raw", data.hex())

    # What the panel and the FPGA were told.
    def state(self):
        return self.request("state")

    def traffic(self, start=0):
        return self.request("traffic", start)

    def tones(self, start=0):
        return self.request("tones", start)

    def syslog(self, start=0):
        return self.request("syslog", start)


def colour_name(hex_text):
    if hex_text is None:
        return "unset"
    return COLOUR_NAMES.get(int(hex_text, 16), "#" + hex_text)
