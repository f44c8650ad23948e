#!/usr/bin/env python3
"""Generates the artifact repository of a production line, for the yield report.

Writes, into the test repository's storage folder, the results files that a
line of test stations would have uploaded over a range of days, exactly as
front_panel_test writes them, with what real repositories also hold:

  - retests (a board failed, repaired, tested again, at any station, the same
    day or later), and boards tested again after a pass;
  - failures, "*ERROR*" states, runs uploaded before every test ran
    ("Not Run", the shaft encoder test's empty name among them);
  - runs without the FPGA's self-test image, whose audio tests wrote
    "FAIL!! - name" while running;
  - incomplete files (the header, no result lines);
  - files in a board's folder that are no results file (notes, scope
    captures, a file cut off before its header);
  - "Unassigned" runs (the operator entered no serial number);
  - assets of other boards and other programs, and deeper folders.

Stations differ by address (uploaderIp); a few assets predate the
repository's recording of uploaders and carry neither field. The uploader
and address of each asset go to a JSON-lines file for nexus_server.py's
--assets-meta. The same seed gives the same corpus; a second batch with
--first-day after the first one's last day grows the same repository.

usage: yield_corpus.py --storage DIR --meta FILE [--files N] [--stations S]
                       [--days D] [--first-day YYYY-MM-DD] [--seed N]
"""

import argparse
import datetime
import json
import os
import random
import sys

PLAN = ["Shaft Encoder Tests", "Button Tests", "Headphone Jack Detection Test",
        "Speaker Output Test", "Headphone Output Test"]
AUDIO = PLAN[3:]
START_OF_SHIFT = 6 * 60  # minutes after midnight


def results_text(serial, started, lines, results):
    """A results file as front_panel_test writes it: header, lines written
    during the run, then one result line per top-level test."""
    text = "Front Panel Test Log\n~~~~~~~~~~~~~~~~~~~~\n\n"
    text += started.strftime("Tests Started: %H:%M %d/%m/%Y\n")
    text += "Serial No: %s\n" % serial
    text += "".join(lines)
    text += "".join("%s - %s\n" % (state, name) for state, name in results)
    return text


def run_outcome(rng):
    """Lines written during the run and result lines, for a run drawn by how
    often each kind occurs on a line."""
    draw = rng.random()
    if draw < 0.78:
        return [], [("PASSED ", name) for name in PLAN]
    if draw < 0.90:
        failing = set(rng.sample(PLAN, rng.choice((1, 1, 1, 2))))
        return [], [("FAIL!! " if name in failing else "PASSED ", name) for name in PLAN]
    if draw < 0.94:
        # Uploaded before the end: the tests not reached stay "Not Run", and
        # the shaft encoder test has no name until it has run once.
        reached = rng.randrange(0, len(PLAN))
        results = []
        for position, name in enumerate(PLAN):
            if position < reached:
                results.append(("PASSED ", name))
            else:
                results.append(("Not Run", "" if position == 0 else name))
        return [], results
    if draw < 0.955:
        broken = rng.choice(PLAN)
        return [], [("*ERROR*" if name == broken else "PASSED ", name) for name in PLAN]
    if draw < 0.98:
        # No self-test image: each audio test logs its failure while running
        # and keeps the state "Not Run".
        lines = ["FAIL!! - %s\n" % name for name in AUDIO]
        return lines, [("Not Run" if name in AUDIO else "PASSED ", name) for name in PLAN]
    # Quit before the end: the header and perhaps what the tests logged.
    return (["FAIL!! - %s\n" % AUDIO[0]] if rng.random() < 0.5 else []), []


def unreadable_asset(rng, serial, started):
    stamp = started.strftime("%Y%m%d-%H%M%S")
    kind = rng.randrange(4)
    if kind == 0:
        return "notes.txt", b"Board reworked: R12 replaced, retest tomorrow\n"
    if kind == 1:
        return "scope_%s.png" % stamp, bytes(rng.randrange(256) for _ in range(300))
    if kind == 2:
        return "front_panel_test_%s-%s.txt" % (serial, stamp), b""
    return ("front_panel_test_%s-%s.txt" % (serial, stamp),
            b"Front Panel Test Log\n~~~~~~~~~~~~~~~~~~~~\n\n")


class Corpus:
    def __init__(self, storage, meta, seed):
        self.storage = storage
        self.meta = meta
        self.rng = random.Random(seed)
        self.seed = seed
        self.written = set()

    def write(self, path, data, station):
        target = os.path.join(self.storage, *path.split("/"))
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as out:
            out.write(data)
        self.written.add(path)
        if station is not None:
            self.meta.write(json.dumps({"path": path, "uploader": station[0],
                                        "uploaderIp": station[1]}) + "\n")

    def unique(self, folder, serial, started):
        """The default results file name, a second later when two stations
        uploaded an "Unassigned" run in the same second."""
        stamp = started
        while True:
            path = "%s/front_panel_test_%s-%s.txt" % (folder, serial, stamp.strftime("%Y%m%d-%H%M%S"))
            if path not in self.written and not os.path.exists(os.path.join(self.storage, path)):
                return path
            stamp += datetime.timedelta(seconds=1)


def stations_of(count, days, first_day):
    """(uploader, address) per station and day: one station's account is
    replaced half way, so a station's uploader is that of its latest run."""
    def station(index, day):
        account = "fpt-upload" if index % 7 else "fpt-upload-line%d" % (index // 7 + 1)
        if index == 1 and day >= first_day + datetime.timedelta(days=days // 2):
            account = "fpt-upload-2"
        return account, "10.84.%d.%d" % (index // 200, 10 + index % 200)
    return station


def generate(storage, meta_path, files=600, stations=3, days=20,
             first_day=datetime.date(2026, 1, 5), seed=1):
    """Writes about FILES assets under CV084/*/front_panel_test/ (results
    files and the odd unreadable one) plus a few in other folders."""
    os.makedirs(os.path.dirname(os.path.abspath(meta_path)), exist_ok=True)
    with open(meta_path, "a", encoding="utf-8") as meta:
        corpus = Corpus(storage, meta, seed)
        rng = corpus.rng
        station = stations_of(stations, days, first_day)
        # Every station's runs through the days, in time order over the line;
        # one station runs one board at a time, minutes apart.
        slots = []
        shifts = stations * days
        for shift in range(shifts):
            date = first_day + datetime.timedelta(days=shift // stations)
            index = shift % stations
            minute = START_OF_SHIFT + rng.randrange(0, 30)
            for _ in range(files * (shift + 1) // shifts - files * shift // shifts):
                slots.append((datetime.datetime.combine(date, datetime.time()) +
                              datetime.timedelta(minutes=minute, seconds=rng.randrange(60)), index))
                minute += rng.randrange(4, 40)
        slots.sort()
        pending = []  # boards waiting for a retest: (serial, time of last run)
        boards = 0
        for started, index in slots:
            where = station(index, started.date())
            if rng.random() < 0.03:
                where = None  # uploaded before the repository recorded uploaders
            ready = [entry for entry in pending if started - entry[1] > datetime.timedelta(minutes=10)]
            draw = rng.random()
            if draw < 0.005:
                serial = "P%02d%05d" % (seed % 100, rng.randrange(boards + 1))
                folder = "CV084/%s/front_panel_test" % serial
                name, data = unreadable_asset(rng, serial, started)
                corpus.write(folder + "/" + name, data, where)
                continue
            if draw < 0.015:
                other_folder(corpus, rng, seed, started, where)
                continue
            if draw < 0.035:
                serial = "Unassigned"
            elif ready and draw < 0.30:
                serial = ready[0][0]
                pending.remove(ready[0])
            else:
                boards += 1
                # A serial number is whatever the operator typed, URL-unsafe
                # characters included.
                serial = ("SN+%02d%04d" if boards % 97 == 0 else "P%02d%05d") % (seed % 100, boards)
            lines, results = run_outcome(rng)
            folder = "CV084/%s/front_panel_test" % serial
            path = corpus.unique(folder, serial, started - datetime.timedelta(seconds=rng.randrange(1, 9)))
            corpus.write(path, results_text(serial, started, lines, results).encode("utf-8"), where)
            passed = results and all(state == "PASSED " for state, _ in results)
            if serial != "Unassigned" and (not passed or rng.random() < 0.02) and rng.random() < 0.9:
                pending.append((serial, started))


def other_folder(corpus, rng, seed, started, where):
    """An asset the yield report must leave alone: another board, another
    program, or a folder below the results folder."""
    serial = "P%02d%05d" % (seed % 100, rng.randrange(100000))
    stamp = started.strftime("%Y%m%d-%H%M%S")
    text = results_text(serial, started, [], [("FAIL!! ", name) for name in PLAN]).encode()
    name = "front_panel_test_%s-%s.txt" % (serial, stamp)
    path = rng.choice(["CV085/%s/front_panel_test/%s", "CV084/%s/front_panel_upload/%s",
                       "CV084/%s/front_panel_test/old/%s", "cv084/%s/front_panel_test/%s"])
    corpus.write(path % (serial, name), text, where)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--storage", required=True, help="the test repository's storage folder")
    parser.add_argument("--meta", required=True, help="uploaders, JSON lines (appended to)")
    parser.add_argument("--files", type=int, default=600)
    parser.add_argument("--stations", type=int, default=3)
    parser.add_argument("--days", type=int, default=20)
    parser.add_argument("--first-day", type=datetime.date.fromisoformat,
                        default=datetime.date(2026, 1, 5))
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args(argv)
    if args.files < 1 or args.stations < 1 or args.days < 1:
        parser.error("--files, --stations and --days must be positive")
    generate(args.storage, args.meta, args.files, args.stations, args.days, args.first_day,
             args.seed)
    return 0


if __name__ == "__main__":
    sys.exit(main())
