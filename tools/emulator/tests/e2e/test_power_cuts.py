#!/usr/bin/env python3
"""Power cuts at every moment of a factory session (the kit:
tools/emulator/powercut/sweep.py): board A tested and its upload failing,
board B tested under the same results name with a results-file sync
failing, then front_panel_upload with the journal's sync failing. Each cut
is recovered with front_panel_upload and checked: no line lost that was
synced, or shown before a key was pressed; no open "requested" for a file
the disk does not hold whole; no "uploaded" or "uploaded to" without those
exact bytes in the repository; every request on the disk sent by one
front_panel_upload; no file marked incomplete sent when named to it."""

import os
import re
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", ".."))
import faultkit as kit  # noqa: E402
from powercut import sweep  # noqa: E402
from test_upload_journal import upload_program  # noqa: E402

RESULTS = os.path.join(kit.RESULTS_DIR, "cv084.txt")
PREFIXES = 16  # random prefixes of what is unsynced, per cut
CLAIM = re.compile(r"\d+ of \d+ (.*): uploaded to (/[^,\s]*)")


class Operator(kit.QuickStation):
    """Each key is pressed on what the screen shows: what the program wrote
    before is promised."""

    folder = None

    def type(self, text):
        self.folder.promise()
        super().type(text)


def session(folder):
    Operator.folder = folder
    for serial, at_menu in (("PA", None), ("PB", folder.fail_next_sync)):
        st = Operator("-f", RESULTS)
        try:
            st.whole_run(serial, at_menu)
            st.wait_exit(timeout=60)
        finally:
            st.close()
        folder.promise()  # the program has ended: the operator may switch off
    # Its "uploaded" line refused: the repository has the file, the journal
    # does not say so, and the line is taken back.
    folder.fail_next_sync()
    sent = upload_program()
    folder.promise()
    now = time.time_ns()
    return [(now, line, read(os.path.join(kit.RESULTS_DIR, CLAIM.match(line)[1])))
            for line in sent.stdout.splitlines() if CLAIM.match(line)]


def read(path):
    with open(path, "rb") as f:
        return f.read()


def journal(files):
    """The lines of the journal in `files` that its readers take, split in
    their fields: a line torn by a cut is skipped."""
    text = files.get(sweep.JOURNAL_NAME, b"")
    fields = [line.decode(errors="replace").split("\t") for line in text.split(b"\n")[:-1]]
    return [f for f in fields if len(f) == 6 and re.fullmatch("[0-9a-f]{64}", f[5])]


def marked_incomplete(records, files):
    """The files on the disk whose last record says they lack lines."""
    last = {os.path.basename(path): event for event, _, _, path, _, _ in records}
    return sorted(name for name, event in last.items() if event == "incomplete" and name in files)


def pending(records):
    open_requests = {}
    for event, _, target, path, _, sha in records:
        if event == "requested":
            open_requests[path] = (target, sha)
        elif event != "incomplete":
            open_requests.pop(path, None)
    return open_requests


def where(target, path):
    return "/".join(s for s in (target + "/" + os.path.basename(path)).split("/") if s)


def disk_of(state_dir):
    disk = os.path.join(state_dir, "disk")
    return {name: read(os.path.join(disk, name)) for name in os.listdir(disk)}


class PowerCuts(unittest.TestCase):
    def test_no_cut_loses_a_promised_line_or_claims_what_is_not_kept(self):
        seed = int(os.environ.get("FPT_POWERCUT_SEED", "24"))
        began = time.monotonic()
        recording = sweep.record(session)
        recorded = time.monotonic()
        found = {"lost": {}, "false claims": {}}  # finding -> states showing it

        def finding(kind, text, state):
            found[kind].setdefault(text, []).append(state)

        for stamp, line, content in recording.told:
            stored = [data for t, w, data in recording.stores
                      if t <= stamp and w == where(CLAIM.match(line)[2], CLAIM.match(line)[1])]
            if not stored or stored[-1] != content:
                finding("false claims", f"told {line!r} without those bytes stored", "recorded")

        states = sweep.cut_states(recording, PREFIXES, seed)
        recoveries, checked = {}, set()
        for state, state_dir in zip(states, sweep.replay(recording, states)):
            changes, stores, _ = state
            with open(os.path.join(state_dir, "lost")) as lost:
                lost_lines = lost.read().splitlines()
            files = disk_of(state_dir)
            # Many cuts leave the same disk: each different one is checked once.
            seen = (tuple(sorted(files.items())), stores, tuple(lost_lines))
            if seen in checked:
                continue
            checked.add(seen)
            for line in lost_lines:
                finding("lost", line, state)
            records = journal(files)
            waiting = pending(records)
            for path, (_, sha) in waiting.items():
                name = os.path.basename(path)
                if sweep.sha256(files.get(name, b"")) != sha:
                    finding("false claims", f"requested {name} not whole on the disk", state)
            for event, _, target, path, size, sha in records:
                name = os.path.basename(path)
                stored = [d for _, w, d in recording.stores[:stores] if w == where(target, path)]
                if event == "uploaded" and (not stored or sweep.sha256(stored[-1]) != sha):
                    finding("false claims", f"uploaded {name} not in the repository", state)
            marked = marked_incomplete(records, files)
            key = (files.get(sweep.JOURNAL_NAME), stores,
                   tuple(files.get(os.path.basename(p)) for p in sorted(waiting)),
                   tuple(files[name] for name in marked))
            if key not in recoveries:
                recoveries[key] = self.recover(state_dir, recording.stores[:stores], waiting,
                                               marked)
            for kind, text in recoveries[key]:
                finding(kind, text, state)

        for kind, findings in found.items():
            for text, where_seen in sorted(findings.items()):
                print(f"{kind}: {text} ({len(where_seen)} states, e.g. {where_seen[0]})")
        counts = {kind: len({s for seen in f.values() for s in seen}) for kind, f in found.items()}
        summary = (f"power cuts: {len(checked)} states checked, {counts['lost']} lost, "
                   f"{counts['false claims']} false claims")
        print(f"{len(recording.ops)} changes recorded in {recorded - began:.1f} s, cut "
              f"{len(states)} times; {len(recoveries)} recoveries; "
              f"{time.monotonic() - recorded:.1f} s; seed {seed}\n{summary}", flush=True)
        if os.environ.get("FPT_SUMMARY"):
            with open(os.environ["FPT_SUMMARY"], "w") as out:
                out.write(summary + "\n")
        self.assertGreaterEqual(len(checked), 200)
        self.assertEqual(counts, {"lost": 0, "false claims": 0})

    @staticmethod
    def recover(state_dir, stores, waiting, marked):
        """What one front_panel_upload on the cut's disk leaves wrong, and
        what it says of each file marked incomplete named to it."""
        sweep.restore_repository(stores)
        said, sent, after = sweep.recover(os.path.join(state_dir, "disk"), marked)
        wrong = [("false claims", f"front_panel_upload sent {name}, marked incomplete, as the "
                  "board's results") for name, out in zip(marked, said) if ": uploaded to " in out]
        for path, (target, sha) in sorted(waiting.items()):
            if sweep.repository_sha(where(target, path)) != sha:
                wrong.append(("lost", f"request for {os.path.basename(path)} to {target} not "
                              f"sent by front_panel_upload (exit {sent.returncode})"))
        for line in sent.stdout.splitlines():
            claim = CLAIM.match(line)
            if claim and sweep.repository_sha(where(claim[2], claim[1])) != sweep.sha256(
                    after.get(claim[1], b"")):
                wrong.append(("false claims", f"front_panel_upload told {line!r}"))
        for event, _, target, path, _, sha in journal(after):
            if event == "uploaded" and sweep.repository_sha(where(target, path)) != sha:
                wrong.append(("false claims", f"recovery recorded {os.path.basename(path)} "
                              "uploaded without its bytes in the repository"))
        return wrong


if __name__ == "__main__":
    unittest.main()
