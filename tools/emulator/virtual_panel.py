#!/usr/bin/env python3
"""The emulated CV084 front panel, drawn in a terminal beside front_panel_test.

Keys on this pane work the panel; every other key goes on to the program's
pane, so the whole plan can be worked from here:

  F1..F10 (or Alt+1..Alt+0)   the panel's F1..F10 buttons
  arrow keys                  Down, Left, Up, Right
  Home (or Alt+l)             the Calvento logo button
  End (or Alt+o)              OK
  Insert (or Alt+k)           push the shaft encoder knob
  PgUp / PgDn (or Alt+. / Alt+,)  turn the knob one detent clockwise / anticlockwise
  F11 (or Alt+j)              plug / unplug the headphones
  Ctrl+X                      end the demo

usage: virtual_panel.py [--program-pane TARGET]
"""

import argparse
import curses
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
import cv084emu  # noqa: E402

LABELS = ["Calvento", "F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9", "F10",
          "Down", "Left", "Up", "Right", "OK", "Knob"]
CURSES_COLOURS = {"ffffff": curses.COLOR_WHITE, "ffff00": curses.COLOR_YELLOW,
                  "00ffff": curses.COLOR_CYAN, "00ff00": curses.COLOR_GREEN,
                  "ff00ff": curses.COLOR_MAGENTA, "ff0000": curses.COLOR_RED,
                  "0000ff": curses.COLOR_BLUE}
ALT_KEYS = {ord("1"): 1, ord("2"): 2, ord("3"): 3, ord("4"): 4, ord("5"): 5, ord("6"): 6,
            ord("7"): 7, ord("8"): 8, ord("9"): 9, ord("0"): 10, ord("l"): 0, ord("o"): 15,
            ord("k"): 16}


class Panel:
    def __init__(self, screen, emu, program_pane):
        self.screen = screen
        self.emu = emu
        self.program_pane = program_pane
        self.state = emu.state()
        self.message = "ready"
        curses.start_color()
        curses.use_default_colors()
        self.pairs = {}
        for n, (rgb, colour) in enumerate(CURSES_COLOURS.items(), start=1):
            curses.init_pair(n, curses.COLOR_BLACK, colour)
            self.pairs[rgb] = curses.color_pair(n)
        screen.timeout(100)
        screen.keypad(True)
        curses.curs_set(0)

    # --- drawing -------------------------------------------------------------
    def led(self, y, x, index):
        rgb = self.state["leds"][index]
        label = f" {LABELS[index]:^8} "
        if rgb in self.pairs:
            self.screen.addstr(y, x, label, self.pairs[rgb] | curses.A_BOLD)
        else:  # off, unset, or a colour the terminal cannot show
            self.screen.addstr(y, x, label, curses.A_DIM if rgb in (None, "000000") else 0)

    def draw(self):
        s = self.state
        scr = self.screen
        scr.erase()
        try:
            scr.addstr(0, 0, "CV084 front panel (emulated)", curses.A_BOLD)
            self.led(2, 0, 0)
            for i in range(1, 11):
                row, col = divmod(i - 1, 4)
                self.led(4 + row, col * 11, i)
            self.led(8, 11, 13)
            self.led(9, 0, 12)
            self.led(9, 22, 14)
            self.led(10, 11, 11)
            self.led(9, 11, 15)
            self.led(12, 11, 16)
            routing = cv084emu.ROUTING_NAMES.get(s["routing"], str(s["routing"]))
            t = s["tone"]
            lines = [
                f"brightness {s['brightness']:>4}   routing {routing}",
                f"headphones {'IN' if s['jack'] == 'in' else 'out'}"
                f"   held {' '.join(s['held']) or '-'}",
                f"tone {t['frequency_hz']:8.1f} Hz   volume {t['volume_percent']:5.1f} %",
                f"FPGA design {s['design']}   serial {s['serial']['from_host_bytes']} B in,"
                f" {s['serial']['to_host_bytes']} B out",
                "",
                "F1-F10 Alt+1..0  arrows  Home=logo End=OK",
                "Ins=knob PgUp/PgDn=turn F11=jack ^X=end",
                f"> {self.message}",
            ]
            for n, text in enumerate(lines):
                scr.addstr(14 + n, 0, text[:curses.COLS - 1])
        except curses.error:
            pass  # a pane too small for the whole panel shows what fits
        scr.refresh()

    # --- keys ------------------------------------------------------------------
    def act(self, what, fn):
        try:
            fn()
            self.message = what
        except (OSError, cv084emu.EmulatorError) as e:
            self.message = f"{what}: {e}"

    def press(self, index):
        self.act(f"pressed {LABELS[index]}", lambda: self.emu.press(index))

    def turn(self, detents):
        way = "clockwise" if detents > 0 else "anticlockwise"
        self.act(f"knob {way}", lambda: self.emu.turn(detents, 20))

    def toggle_jack(self):
        plugged = self.state["jack"] != "in"
        self.act("headphones " + ("plugged in" if plugged else "unplugged"),
                 lambda: self.emu.jack(plugged))

    def forward(self, key):
        """Any other key is the operator typing to the program."""
        if self.program_pane is None:
            return
        names = {10: "Enter", 13: "Enter", curses.KEY_ENTER: "Enter", 27: "Escape",
                 curses.KEY_BACKSPACE: "BSpace", 127: "BSpace", 8: "BSpace", 9: "Tab"}
        if key in names:
            args = [names[key]]
        elif 32 <= key < 127:
            args = ["-l", chr(key)]
        else:
            return
        subprocess.run(["tmux", "send-keys", "-t", self.program_pane] + args,
                       stderr=subprocess.DEVNULL)

    def handle(self, key):
        if curses.KEY_F1 <= key <= curses.KEY_F10:
            self.press(key - curses.KEY_F1 + 1)
        elif key == curses.KEY_F11:
            self.toggle_jack()
        elif key in (curses.KEY_DOWN, curses.KEY_LEFT, curses.KEY_UP, curses.KEY_RIGHT):
            self.press({curses.KEY_DOWN: 11, curses.KEY_LEFT: 12, curses.KEY_UP: 13,
                        curses.KEY_RIGHT: 14}[key])
        elif key == curses.KEY_HOME:
            self.press(0)
        elif key == curses.KEY_END:
            self.press(15)
        elif key == curses.KEY_IC:
            self.press(16)
        elif key == curses.KEY_PPAGE:
            self.turn(1)
        elif key == curses.KEY_NPAGE:
            self.turn(-1)
        elif key == 27:  # Alt+key arrives as Escape and the key
            self.screen.timeout(30)
            second = self.screen.getch()
            self.screen.timeout(100)
            if second in ALT_KEYS:
                self.press(ALT_KEYS[second])
            elif second == ord("j"):
                self.toggle_jack()
            elif second == ord("."):
                self.turn(1)
            elif second == ord(","):
                self.turn(-1)
            elif second == -1:
                self.forward(27)
        elif key == 24:  # Ctrl+X
            return False
        elif key != -1:
            self.forward(key)
        return True

    def run(self):
        while True:
            try:
                self.state = self.emu.state()
            except (OSError, cv084emu.EmulatorError) as e:
                self.message = f"emulator gone: {e}"
                self.draw()
                time.sleep(1)
                return
            self.draw()
            if not self.handle(self.screen.getch()):
                return


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--program-pane", default=None,
                   help="tmux target of the program's pane, for forwarding keys")
    args = p.parse_args()
    with cv084emu.Emulator() as emu:
        curses.wrapper(lambda scr: Panel(scr, emu, args.program_pane).run())


if __name__ == "__main__":
    main()
