#!/usr/bin/env python3
"""Opens a page in Debian's chromium, headless, and tells what it showed.

usage: headless_chromium.py PAGE [--png FILE] [--scale S] [--width PX] [--height PX]

Writes the whole page's screenshot to FILE and prints each console error
and uncaught exception of the page, and each chart text drawn (partly)
outside its chart, where the browser cuts it off, one a line; exits 1 when
there was any.
The chromium is driven over the DevTools protocol on a pipe, with a new
empty profile, no network of its own (no QUIC, no background fetches, no
component updates, no sync) and no sandbox (it runs as root in CI).
"""

import argparse
import base64
import fcntl
import json
import os
import select
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

# Run by the browser on the loaded page (which has no script of its own):
# the chart texts whose box, as laid out, leaves their chart's.
CUT_OFF_TEXTS = """Array.from(document.querySelectorAll('svg text')).filter(text => {
    const chart = text.ownerSVGElement.getBoundingClientRect();
    const box = text.getBoundingClientRect();
    return box.left < chart.left - 0.5 || box.right > chart.right + 0.5 ||
        box.top < chart.top - 0.5 || box.bottom > chart.bottom + 0.5;
}).map(text => 'chart text cut off: ' + text.textContent)"""


def pixels(data):
    """The RGB pixels of a PNG of 8-bit RGB or RGBA (what chromium writes),
    row by row, decoded with zlib alone."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    pos, idat = 8, b""
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        pos += 12 + length
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
        elif kind == b"IDAT":
            idat += body
    assert depth == 8 and colour in (2, 6), "PNG of depth %d, colour type %d" % (depth, colour)
    step = 3 if colour == 2 else 4
    raw, stride = zlib.decompress(idat), width * step
    previous, rows = bytearray(stride), []
    for row in range(height):
        kind = raw[row * (stride + 1)]
        line = bytearray(raw[row * (stride + 1) + 1:(row + 1) * (stride + 1)])
        for i in range(stride):
            left = line[i - step] if i >= step else 0
            up, corner = previous[i], previous[i - step] if i >= step else 0
            if kind == 1:
                line[i] = (line[i] + left) & 255
            elif kind == 2:
                line[i] = (line[i] + up) & 255
            elif kind == 3:
                line[i] = (line[i] + (left + up) // 2) & 255
            elif kind == 4:
                guess = left + up - corner
                near = min((abs(guess - left), 0, left), (abs(guess - up), 1, up),
                           (abs(guess - corner), 2, corner))[2]
                line[i] = (line[i] + near) & 255
        rows.append(bytes(line))
        previous = line
    return [bytes(row[i:i + 3]) for row in rows for i in range(0, stride, step)]


class Browser:
    """Debian's chromium, headless, driven over the DevTools protocol on a
    pipe (fd 3 to it, fd 4 from it, messages ended by NUL)."""

    FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--remote-debugging-pipe"]

    def __init__(self, profile):
        self.profile = profile
        self.pending, self.events, self.next_id = b"", [], 0

    def __enter__(self):
        chromium = shutil.which("chromium")
        if not chromium:
            raise AssertionError("chromium is not installed (scripts/setup.sh installs it)")
        to_r, self.to_w = os.pipe()
        self.from_r, from_w = os.pipe()

        def on_fds_3_and_4():
            high_r = fcntl.fcntl(to_r, fcntl.F_DUPFD, 10)
            high_w = fcntl.fcntl(from_w, fcntl.F_DUPFD, 10)
            os.dup2(high_r, 3)
            os.dup2(high_w, 4)

        self.process = subprocess.Popen([chromium, *self.FLAGS, "--user-data-dir=" + self.profile],
                                        pass_fds=(3, 4), preexec_fn=on_fds_3_and_4,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        os.close(to_r)
        os.close(from_w)
        return self

    def __exit__(self, *_):
        try:
            self.send("Browser.close")
        except (OSError, AssertionError):
            pass
        try:
            self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        os.close(self.to_w)
        os.close(self.from_r)

    def receive(self):
        while b"\0" not in self.pending:
            ready, _, _ = select.select([self.from_r], [], [], 60)
            chunk = os.read(self.from_r, 1 << 20) if ready else b""
            assert chunk, "chromium stopped answering"
            self.pending += chunk
        message, _, self.pending = self.pending.partition(b"\0")
        return json.loads(message)

    def send(self, method, params=None, session=None):
        self.next_id += 1
        message = {"id": self.next_id, "method": method, "params": params or {}}
        if session:
            message["sessionId"] = session
        os.write(self.to_w, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.next_id:
                assert "error" not in answer, (method, answer)
                return answer["result"]
            self.events.append(answer)

    def wait_for(self, method):
        while not any(event.get("method") == method for event in self.events):
            self.events.append(self.receive())

    def render(self, url, scale=1.0, width=1200, height=8000):
        """The page's screenshot (PNG, at most HEIGHT pixels of it from the
        top) at SCALE, and its console's errors, uncaught exceptions and cut
        off chart texts."""
        target = self.send("Target.createTarget", {"url": "about:blank"})["targetId"]
        session = self.send("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
        for domain in ("Runtime", "Log", "Page"):
            self.send(domain + ".enable", session=session)
        self.send("Emulation.setDeviceMetricsOverride",
                  {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False}, session)
        self.events = []
        self.send("Page.navigate", {"url": url}, session)
        self.wait_for("Page.loadEventFired")
        size = self.send("Page.getLayoutMetrics", session=session)["cssContentSize"]
        shot = self.send("Page.captureScreenshot",
                         {"format": "png", "captureBeyondViewport": True,
                          "clip": {"x": 0, "y": 0, "width": size["width"],
                                   "height": min(size["height"], height), "scale": scale}},
                         session)
        errors = []
        for event in self.events:
            method, params = event.get("method"), event.get("params", {})
            if method == "Runtime.exceptionThrown":
                errors.append(params["exceptionDetails"].get("text"))
            elif method == "Runtime.consoleAPICalled" and params.get("type") in ("error", "assert"):
                errors.append(params.get("args"))
            elif method == "Log.entryAdded" and params["entry"].get("level") == "error":
                errors.append(params["entry"].get("text"))
        errors += self.send("Runtime.evaluate", {"expression": CUT_OFF_TEXTS, "returnByValue": True},
                            session)["result"]["value"]
        self.send("Target.closeTarget", {"targetId": target})
        return base64.b64decode(shot["data"]), errors


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("page")
    parser.add_argument("--png", default="")
    parser.add_argument("--scale", type=float, default=1.0)
    parser.add_argument("--width", type=int, default=1200)
    parser.add_argument("--height", type=int, default=8000, help="at most this much of the page")
    args = parser.parse_args(argv)
    with tempfile.TemporaryDirectory(prefix="chromium-profile-") as profile:
        with Browser(profile) as browser:
            shot, errors = browser.render("file://" + os.path.abspath(args.page), args.scale,
                                          args.width, args.height)
    if args.png:
        with open(args.png, "wb") as out:
            out.write(shot)
    for error in errors:
        print(error)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
