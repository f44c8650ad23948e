#!/usr/bin/env python3
"""Results never stranded: a failed (U)pload is recorded in the upload journal
and front_panel_upload sends the file later. Each case runs in a fresh
emulated instrument whose repository fails in the way the case needs."""

import base64
import hashlib
import os
import re
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from station import RESULTS_DIR, STATE_DIR, TMUX, Station, repository_requests  # noqa: E402

SERIAL = "B2041"
TARGET = f"/CV084/{SERIAL}/front_panel_test/"
JOURNAL_NAME = ".front_panel_test-uploads"
JOURNAL = f"{RESULTS_DIR}/{JOURNAL_NAME}"
FAILED = "Nexus Upload Failed, are you connected to the network?"
CHANGED = "changed since its upload was requested, not sent (name the file to send it as it is now)"


def upload_program(*args, **options):
    return subprocess.run([os.environ["FPT_UPLOAD_PROGRAM"], *args], capture_output=True,
                          text=True, timeout=60, **options)


class UploadCase(unittest.TestCase):
    def operator_run(self, serial, key, *args):
        """One run of front_panel_test left at once through the menu's `key`."""
        st = Station(*args)
        self.addCleanup(st.close)
        st.enter_serial(serial)
        st.wait_row(0, "Shaft Encoder Tests")
        st.type("m")
        st.wait_row(21, "      Selection, (Q)uit, (U)pload and quit :")
        st.type(key)
        return st

    @staticmethod
    def terminal_text():
        """The terminal with wrapped lines joined, as the operator reads them."""
        return subprocess.run(TMUX + ["capture-pane", "-p", "-J", "-t", "fpt"], check=True,
                              capture_output=True, text=True).stdout

    def wait_text(self, text, timeout):
        deadline = time.monotonic() + timeout
        while text not in self.terminal_text():
            if time.monotonic() > deadline:
                self.fail(f"not within {timeout} s: {text!r}\n{self.terminal_text()}")
            time.sleep(0.05)

    def failed_upload(self, st, results, timeout):
        self.wait_text(FAILED, timeout)
        self.wait_text(f"{FAILED}\nThe results stay in {results}; send them later with:"
                       f" front_panel_upload {results}\n", 2)
        self.assertEqual(st.wait_exit(), 0)
        return results


class SentLater(UploadCase):
    """The repository fails front_panel_test's three tries, then works."""

    def test_failed_upload_is_sent_once_by_front_panel_upload(self):
        # Results written elsewhere (-f) are recorded in the journal beside them.
        os.makedirs(folder := "/home/transfer/elsewhere")
        journal, results, gone = (f"{folder}/{n}" for n in (JOURNAL_NAME, "r.txt", "gone.txt"))
        self.operator_run("Q7", "q", "-f", f"{folder}/q.txt").wait_exit()
        self.failed_upload(self.operator_run(SERIAL, "u", "-f", results), results, 30)
        self.assertEqual([r["status"] for r in repository_requests()], [500, 500, 500])

        # Only the (U)pload run is pending; the (Q)uit run never asked for one.
        listed = upload_program("--journal", journal, "--list")
        self.assertEqual(listed.returncode, 1)
        self.assertRegex(listed.stdout,
                         rf"^{re.escape(results)} -> {TARGET}, requested \S+\n1 pending\n$")

        with open(journal, "r+") as f:  # a second request, for a file since deleted
            f.write(f.read().replace(results, gone) + "uploaded\t2026")  # then a power cut
        with open(results, "a") as f:
            f.write("changed\n")
        held = upload_program("--journal", journal)
        self.assertEqual((held.returncode, held.stdout), (1, f"1 of 2 r.txt: {CHANGED}\n"
                                                         "2 of 2 gone.txt: missing\n"
                                                         "0 sent, 2 not sent\n"))
        self.assertIn(f"front_panel_upload: {journal} line 3: truncated, skipped", held.stderr)

        sent = upload_program(results)  # named: sent as it is now
        self.assertEqual(sent.stdout, f"1 of 1 r.txt: uploaded to {TARGET}\n1 sent, 0 not sent\n")
        [request] = repository_requests()[3:]
        self.assertEqual(request["status"], 204)
        parts = {p["name"]: base64.b64decode(p["body_base64"]) for p in request["parts"]}
        self.assertEqual(parts["raw.directory"].decode(), TARGET)
        with open(results, "rb") as f:
            self.assertEqual(parts["raw.asset1"], f.read())

        os.symlink(folder, linked := "/home/transfer/linked")  # the same folder, another way
        forgot = upload_program("--forget", f"{linked}/gone.txt")
        self.assertEqual(forgot.stdout, f"{gone}: forgotten, no longer pending\n")
        again = upload_program("--journal", journal)
        self.assertEqual((again.returncode, again.stdout), (0, "Nothing to send.\n"))
        self.assertEqual(len(repository_requests()), 4)

        for wrong in (["--bogus"], ["--journal"], ["--list", results]):
            wrong = upload_program(*wrong)
            self.assertEqual(wrong.returncode, 2)
            self.assertTrue(wrong.stderr.startswith("usage: front_panel_upload"), wrong.stderr)

        # An account that may read the journal but not write it still sends a
        # named file, and says that the send was not recorded.
        unrecorded = upload_program(results, user="nobody")
        self.assertEqual((unrecorded.returncode, unrecorded.stdout), (1, (
            f"1 of 1 r.txt: uploaded to {TARGET}, but not recorded ({journal}: Permission"
            " denied): still pending\n1 sent, 0 not sent\n")))
        self.assertEqual(len(repository_requests()), 5)

        os.chmod(journal, 0o600)  # an account that cannot read it is told so, not "0 pending"
        for args in (["--journal", journal, "--list"], [results]):
            no = upload_program(*args, user="nobody")
            self.assertEqual(no.returncode, 1)
            self.assertTrue(no.stderr.endswith(
                f"front_panel_upload: cannot read {journal}: Permission denied\n"), no.stderr)


class SilentRepository(UploadCase):
    """A repository that takes every request and never answers."""

    def test_operator_told_at_once_and_second_instance_busy(self):
        st = self.operator_run(SERIAL, "u")
        began = time.monotonic()
        [results] = st.results_files()
        self.wait_text(f"Uploading {results} to https://nexus.cv084.test ...", 2)
        # Never two uploads of one file at once.
        busy = upload_program(results)
        self.assertEqual((busy.returncode, busy.stdout), (1, (
            f"1 of 1 {os.path.basename(results)}: being sent by another program, not sent\n"
            "0 sent, 1 not sent\n")))
        self.failed_upload(st, results, 40)
        # Three attempts of 10 s each, then the failure.
        self.assertEqual(len(repository_requests()), 3)
        self.assertTrue(30.0 <= time.monotonic() - began < 42.0)

        first = subprocess.Popen([os.environ["FPT_UPLOAD_PROGRAM"]], stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)
        self.addCleanup(first.wait)
        self.addCleanup(first.kill)
        deadline = time.monotonic() + 10
        while len(repository_requests()) < 4:  # the first instance is sending
            self.assertLess(time.monotonic(), deadline, "front_panel_upload sent nothing")
            time.sleep(0.05)
        second = upload_program()
        self.assertEqual(second.returncode, 3)
        self.assertEqual(second.stderr, "front_panel_upload: busy: another front_panel_upload"
                                        " is sending results; try again later\n")
        self.assertEqual(len(repository_requests()), 4)


class RefusedResend(UploadCase):
    """A repository that refuses to replace an asset (redeploy disabled), and
    uploads whose success was never recorded (a power cut just after)."""

    def cut_last_record(self, journal):
        """The journal as a cut between the repository's success and its record leaves it."""
        with open(journal) as f:
            lines = f.readlines()
        self.assertTrue(lines[-1].startswith("uploaded\t"), lines[-1])
        with open(journal, "w") as f:
            f.writelines(lines[:-1])

    def board_uploaded(self, serial, results):
        self.assertEqual(self.operator_run(serial, "u", "-f", results).wait_exit(), 0)
        self.assertEqual(repository_requests()[-1]["status"], 204)

    def test_reused_name_and_proven_resend(self):
        os.makedirs(folder := "/home/transfer/station")
        journal, results = f"{folder}/{JOURNAL_NAME}", f"{folder}/same.txt"
        self.board_uploaded("A1", results)
        self.cut_last_record(journal)
        with open(results) as f:
            board_a = f.read()
        # The same name for the next board while the first is pending: the
        # first is kept aside with its request.
        self.board_uploaded("B1", results)
        self.assertIn(f"Earlier results in {results} were still waiting for their upload: kept as"
                      f" {folder}/same-1.txt, still pending\n",
                      self.terminal_text())
        self.cut_last_record(journal)
        sent = upload_program("--journal", journal)
        self.assertEqual(sent.stdout, (
            "1 of 2 same-1.txt: uploaded to /CV084/A1/front_panel_test/\n"
            "2 of 2 same.txt: already in /CV084/B1/front_panel_test/ (an earlier try stored it:"
            " the same SHA-1), recorded as uploaded\n2 sent, 0 not sent\n"))
        self.assertEqual(sent.returncode, 0)
        with open(f"{STATE_DIR}/nexus/CV084/A1/front_panel_test/same-1.txt") as f:
            self.assertEqual(f.read(), board_a)
        with open(f"{STATE_DIR}/nexus/CV084/B1/front_panel_test/same.txt") as f, \
                open(results) as mine:
            self.assertEqual(f.read(), mine.read())

    def test_resend_that_cannot_be_checked(self):
        results = f"{RESULTS_DIR}/c.txt"
        self.board_uploaded("C1", results)
        self.cut_last_record(JOURNAL)
        with open(results, "rb") as f:
            sha1 = hashlib.sha1(f.read()).hexdigest()
        refused = upload_program()
        self.assertEqual(refused.stdout, (
            "1 of 1 c.txt: the repository refused it (HTTP 400): an asset of that name is already"
            " there and may not be replaced, and this account could not read it back to compare"
            " (HTTP 403); not recorded as uploaded, no longer pending. Check that"
            " https://nexus.cv084.test/repository/vy_production_artifacts/CV084/C1/"
            f"front_panel_test/c.txt has SHA-1 {sha1} (this file's)\n0 sent, 1 not sent\n"))
        self.assertEqual(refused.returncode, 1)
        # The board tested again under that name: the program's own (U)pload
        # is refused the same way, and says so, with what to compare; not a
        # network failure, nor a file to send later.
        self.assertEqual(self.operator_run("C1", "u", "-f", results).wait_exit(), 0)
        with open(results, "rb") as f:
            sha1 = hashlib.sha1(f.read()).hexdigest()
        told = self.terminal_text()
        self.assertIn(f"{results}: the repository refused it (HTTP 400)", told)
        self.assertIn(f"/CV084/C1/front_panel_test/c.txt has SHA-1 {sha1} (this file's)\n", told)
        self.assertNotIn(FAILED, told)
        self.assertNotIn("send them later", told)
        again = upload_program()
        self.assertEqual((again.returncode, again.stdout), (0, "Nothing to send.\n"))


if __name__ == "__main__":
    unittest.main()
