#!/usr/bin/env python3
"""front_panel_yield against the test repository over TLS, on a generated line.

The figures are checked against a count made here, from the stored files
themselves, never with the program's code. FPT_YIELD_PROGRAM names the
program under test.
"""

import collections
import contextlib
import datetime
import json
import os
import re
import shutil
import sqlite3
import ssl
import subprocess
import sys
import tempfile
import threading
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "nexus_server"))
import headless_chromium  # noqa: E402
import nexus_server  # noqa: E402
import yield_corpus  # noqa: E402

PROGRAM = os.environ.get("FPT_YIELD_PROGRAM", "")
UPLOAD = b"fpt-upload:" + b"u" * 40
READER, READER_PASSWORD = "fpt-yield", "r3ad-0nly:pw"
STATES = ("PASSED ", "FAIL!! ", "Not Run", "*ERROR*")
KEPT = re.compile(r"CV084/([^/]+)/front_panel_test/([^/]+)")
STARTED = re.compile(r"Tests Started: (\d\d):(\d\d) (\d\d)/(\d\d)/(\d{4})$")


def read_runs(storage, meta_file):
    """Every kept asset as a run, or its path among the unreadable ones."""
    meta = {}
    with open(meta_file, encoding="utf-8") as source:
        for line in source:
            entry = json.loads(line)
            meta[entry["path"]] = entry
    runs, unreadable = [], []
    for folder, _, names in os.walk(storage):
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), storage)
            if not KEPT.fullmatch(path):
                continue
            with open(os.path.join(folder, name), "rb") as source:
                lines = source.read().decode("utf-8", "replace").split("\n")
            started = [STARTED.match(line) for line in lines]
            started = [m for m in started if m]
            serials = [line[len("Serial No: "):] for line in lines if line.startswith("Serial No: ")]
            if not started or not serials:
                unreadable.append(path)
                continue
            hour, minute, day, month, year = map(int, started[0].groups())
            results = [(line[:7], line[10:]) for line in lines
                       if line[:7] in STATES and line[7:10] == " - "]
            runs.append({"path": path, "serial": serials[0],
                         "started": datetime.datetime(year, month, day, hour, minute),
                         "results": results,
                         "passed": bool(results) and all(s == "PASSED " for s, _ in results),
                         "ip": meta.get(path, {}).get("uploaderIp"),
                         "uploader": meta.get(path, {}).get("uploader")})
    return runs, sorted(unreadable)


def expected_figures(storage, meta_file, since=None, until=None):
    runs, unreadable = read_runs(storage, meta_file)
    runs.sort(key=lambda run: (run["started"], run["path"]))

    def chosen(day):
        return (since is None or day >= since) and (until is None or day <= until)

    boards = collections.defaultdict(list)
    for run in runs:
        if run["serial"] != "Unassigned":
            boards[run["serial"]].append(run)
    boards = {serial: board for serial, board in boards.items()
              if chosen(board[0]["started"].date())}
    selected = [run for board in boards.values() for run in board]
    selected += [run for run in runs if run["serial"] == "Unassigned" and chosen(run["started"].date())]
    selected.sort(key=lambda run: (run["started"], run["path"]))

    def share(group):
        return sum(board[0]["passed"] for board in group) / len(group) if group else None

    days = collections.defaultdict(lambda: {"boards": [], "runs": 0})
    for board in boards.values():
        days[board[0]["started"].date()]["boards"].append(board)
        for run in board:
            days[run["started"].date()]["runs"] += 1
    stations = collections.defaultdict(lambda: {"boards": [], "runs": 0, "uploader": None})
    for board in boards.values():
        stations[board[0]["ip"] or "station unknown"]["boards"].append(board)
    for run in selected:
        station = stations[run["ip"] or "station unknown"]
        station["runs"] += 1
        station["uploader"] = run["uploader"]

    def tally(state):
        count = collections.Counter(name for run in selected for s, name in run["results"] if s == state)
        return dict(count)

    return {
        "runs": len(selected),
        "boards": len(boards),
        "unassigned_runs": sum(run["serial"] == "Unassigned" for run in selected),
        "incomplete_runs": sum(not run["results"] for run in selected),
        "first_pass_yield": share(list(boards.values())),
        "final_yield": (sum(board[-1]["passed"] for board in boards.values()) / len(boards)
                        if boards else None),
        "failures": tally("FAIL!! "),
        "not_run": tally("Not Run"),
        "retests": dict(collections.Counter(str(len(board) - 1) for board in boards.values())),
        "days": [{"date": day.isoformat(), "boards": len(entry["boards"]), "runs": entry["runs"],
                  "first_pass_yield": share(entry["boards"])}
                 for day, entry in sorted(days.items())],
        "unreadable": unreadable,
        "stations": {ip: {"uploader": entry["uploader"], "boards": len(entry["boards"]),
                          "first_pass_yield": share(entry["boards"]), "runs": entry["runs"]}
                     for ip, entry in stations.items()},
    }


def comparable(figures):
    """The contract's keys, yields rounded, unreadable paths without the
    leading slash that some listings give."""
    def rounded(value):
        return None if value is None else round(value, 9)
    out = {key: figures[key] for key in ("runs", "boards", "unassigned_runs", "incomplete_runs",
                                         "failures", "not_run", "retests")}
    out["first_pass_yield"] = rounded(figures["first_pass_yield"])
    out["final_yield"] = rounded(figures["final_yield"])
    out["days"] = [dict(day, first_pass_yield=rounded(day["first_pass_yield"]))
                   for day in figures["days"]]
    out["unreadable"] = sorted(path.lstrip("/") for path in figures["unreadable"])
    out["stations"] = {ip: dict(entry, first_pass_yield=rounded(entry["first_pass_yield"]))
                       for ip, entry in figures["stations"].items()}
    return out


def serve(storage, meta, pki):
    """The test repository on STORAGE, in this process, on a free port."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(os.path.join(pki, "server.crt"), os.path.join(pki, "server.key"))
    nexus_server.Handler.log_message = lambda *_: None  # a line per request drowns the failures
    server = nexus_server.RepositoryServer(("127.0.0.1", 0), context, UPLOAD, storage, "", "normal",
                                           (READER + ":" + READER_PASSWORD).encode(), meta)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


def run_program(server, pki, cache, home, *args, env=()):
    environment = {k: v for k, v in os.environ.items()
                   if k not in ("FPT_YIELD_PASSWORD", "XDG_CACHE_HOME")}
    environment.update({"HOME": home, **dict(env)})
    command = [PROGRAM, "--repository", "https://localhost:%d" % server.server_address[1],
               "--cacert", os.path.join(pki, "ca.crt"), "--cache", cache, *args]
    return subprocess.run(command, env=environment, capture_output=True, text=True, timeout=180)


@unittest.skipUnless(PROGRAM, "FPT_YIELD_PROGRAM names no program")
class YieldAgainstRepository(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # One line's repository and one first sync of it, which every test
        # starts from with copies of its own.
        cls.shared = tempfile.TemporaryDirectory(prefix="fpt-yield-")
        cls.pki = cls.shared.name
        subprocess.run([os.path.join(HERE, "..", "nexus_server", "make_test_pki.sh"), cls.pki],
                       check=True, stdout=subprocess.DEVNULL)
        cls.storage0 = os.path.join(cls.pki, "storage")
        cls.meta0 = os.path.join(cls.pki, "assets.jsonl")
        yield_corpus.generate(cls.storage0, cls.meta0, files=400, stations=3, days=25,
                              first_day=datetime.date(2026, 3, 2), seed=7)
        cls.home = os.path.join(cls.pki, "home")
        os.makedirs(cls.home)
        with open(os.path.join(cls.home, ".netrc"), "w", encoding="utf-8") as netrc:
            netrc.write("machine localhost login %s password %s\n"
                        % (READER, READER_PASSWORD))
        os.chmod(os.path.join(cls.home, ".netrc"), 0o600)
        cls.cache0 = os.path.join(cls.pki, "cache")
        server = serve(cls.storage0, cls.meta0, cls.pki)
        try:
            cls.first_sync = run_program(server, cls.pki, cls.cache0, cls.home, "--json", "-")
        finally:
            server.shutdown()
            server.server_close()

    @classmethod
    def tearDownClass(cls):
        cls.shared.cleanup()

    def setUp(self):
        self.assertEqual(self.first_sync.returncode, 0, self.first_sync.stderr)
        work = tempfile.TemporaryDirectory(prefix="fpt-yield-")
        self.addCleanup(work.cleanup)
        self.work = work.name
        self.storage = shutil.copytree(self.storage0, os.path.join(self.work, "storage"))
        self.meta = shutil.copy(self.meta0, os.path.join(self.work, "assets.jsonl"))
        self.cache = shutil.copytree(self.cache0, os.path.join(self.work, "cache"))
        self.server = serve(self.storage, self.meta, self.pki)
        self.addCleanup(lambda: (self.server.shutdown(), self.server.server_close()))

    def run_program(self, *args, home=None, env=()):
        return run_program(self.server, self.pki, self.cache, home or self.home, *args, env=env)

    def figures(self, *args):
        done = self.run_program("--json", "-", *args)
        self.assertEqual(done.returncode, 0, done.stderr)
        return comparable(json.loads(done.stdout))

    def grow(self, seed, first_day):
        before = set(self.server.index.items)
        yield_corpus.generate(self.storage, self.meta, files=60, stations=3, days=2,
                              first_day=first_day, seed=seed)
        self.server.rescan()
        return {self.server.index.items[key]["relative"]
                for key in set(self.server.index.items) - before}

    def test_figures_and_date_selection_match_an_independent_count(self):
        expected = expected_figures(self.storage, self.meta)
        # The corpus holds every case the figures must get right.
        self.assertTrue(expected["unassigned_runs"] and expected["incomplete_runs"]
                        and len(expected["retests"]) > 2 and "" in expected["not_run"]
                        and expected["unreadable"] and "station unknown" in expected["stations"]
                        and len(expected["stations"]) >= 3, expected)
        self.assertEqual(comparable(json.loads(self.first_sync.stdout)), comparable(expected))
        since, until = datetime.date(2026, 3, 5), datetime.date(2026, 3, 9)
        self.assertEqual(self.figures("--since", since.isoformat(), "--until", until.isoformat()),
                         comparable(expected_figures(self.storage, self.meta, since, until)))

    def test_refresh_downloads_only_new_and_changed_results(self):
        self.server.downloads.clear()
        new = self.grow(8, datetime.date(2026, 3, 20))
        # A results file uploaded again with other contents (same name).
        changed = next(run for run in read_runs(self.storage, self.meta)[0] if run["results"])
        with open(os.path.join(self.storage, changed["path"]), "a", encoding="utf-8") as out:
            out.write("PASSED  - Button Tests\n")
        # A cached file the repository now says another station uploaded:
        # its run moves there without being downloaded again.
        moved = next(run for run in read_runs(self.storage, self.meta)[0]
                     if run["results"] and run["path"] != changed["path"])
        with open(self.meta, "a", encoding="utf-8") as out:
            out.write(json.dumps({"path": moved["path"], "uploader": "fpt-upload-line-b",
                                  "uploaderIp": "10.9.9.9"}) + "\n")
        self.server.rescan()
        self.assertEqual(self.figures(), comparable(expected_figures(self.storage, self.meta)))
        wanted = {path for path in new if KEPT.fullmatch(path)} | {changed["path"]}
        self.assertEqual(self.server.downloads, collections.Counter(wanted))

    def test_listing_cut_off_fails_clearly_then_the_next_run_completes(self):
        self.grow(9, datetime.date(2026, 3, 20))
        self.server.cut(after_pages=3)
        done = self.run_program("--json", "-")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"^[^\n]*cannot reach[^\n]*\n?$")
        self.server.restore()
        self.assertEqual(self.figures(), comparable(expected_figures(self.storage, self.meta)))
        self.assertEqual(max(self.server.downloads.values()), 1, "an asset fetched twice")

    def test_refused_accounts_are_named_and_leave_the_cache_intact_for_offline(self):
        bare = os.path.join(self.work, "bare-home")
        os.makedirs(bare)
        for user, password in [(READER, "wrong"), ("fpt-upload", UPLOAD.decode()[len("fpt-upload:"):])]:
            with self.subTest(user=user):
                done = self.run_program("--user", user, "--json", "-", home=bare,
                                        env={"FPT_YIELD_PASSWORD": password})
                self.assertEqual(done.returncode, 1)
                self.assertRegex(done.stderr, r"^[^\n]*%s[^\n]*\n?$" % re.escape(user))
        # Intact: the cache alone gives the figures whole, with no account
        # and nothing asked of the repository.
        pages = self.server.pages
        done = self.run_program("--offline", "--json", "-", home=bare)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(comparable(json.loads(done.stdout)),
                         comparable(expected_figures(self.storage, self.meta)))
        self.assertEqual((self.server.pages, self.server.downloads), (pages, {}))
        # Without a cache there is nothing to report, not an empty line.
        done = run_program(self.server, self.pki, os.path.join(self.work, "none"), bare,
                           "--offline")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"^front_panel_yield: no cache in [^\n]*\n$")
        # A cache another version made is left for it whole: started again
        # here, it would report a line that never tested a board.
        cache_file = os.path.join(self.cache, "cache.sqlite")
        with contextlib.closing(sqlite3.connect(cache_file)) as db, db:
            db.execute("PRAGMA user_version=0")
            rows = db.execute("SELECT COUNT(*) FROM asset").fetchone()
        self.assertGreater(rows[0], 0)
        done = self.run_program("--offline", "--json", "-", home=bare)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"^[^\n]*another version[^\n]*--offline[^\n]*\n$")
        with contextlib.closing(sqlite3.connect(cache_file)) as db:
            self.assertEqual(db.execute("SELECT COUNT(*) FROM asset").fetchone(), rows)

    def test_page_renders_its_charts_in_chromium_without_console_errors(self):
        page = os.path.join(self.work, "yield.html")
        done = self.run_program("--html", page)
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(page, encoding="utf-8") as source:
            html = source.read()
        self.assertNotRegex(html, r"(?i)<script|\b(src|href)\s*=\s*[\"']?(https?:|//|file:)|url\(")
        self.assertLessEqual(len(html.encode()), 1 << 20)
        blank = os.path.join(self.work, "charts-emptied.html")
        with open(blank, "w", encoding="utf-8") as out:
            out.write(re.sub(r"(<svg\b[^>]*>).*?(</svg>)", r"\1\2", html, flags=re.S))
        with headless_chromium.Browser(os.path.join(self.work, "chromium-profile")) as browser:
            shot, messages = browser.render("file://" + page, scale=0.25)
            emptied, _ = browser.render("file://" + blank, scale=0.25)
        self.assertEqual(messages, [])
        # The charts draw what their empty frames do not.
        shot, emptied = headless_chromium.pixels(shot), headless_chromium.pixels(emptied)
        differing = sum(a != b for a, b in zip(shot, emptied))
        self.assertGreater(differing, len(shot) // 200, "the charts drew nothing")


if __name__ == "__main__":
    unittest.main()
