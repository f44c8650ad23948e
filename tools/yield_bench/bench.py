#!/usr/bin/env python3
"""Benchmark of front_panel_yield on a year of a busy line.

Seeds the test repository with a generated line (by default 100,000 results
files from 30 stations over 365 days), then measures, each as one run of the
program against the repository over TLS on loopback:

  first sync        the empty cache filled from the whole repository
  refresh           after 1,000 new files arrived
  report            from the cache alone (--offline: reading the cache,
                    computing, writing the JSON and the page), and the
                    whole run with nothing new (mostly the listing)
  peak memory       the largest resident set of the three runs

and prints a table beside the goals. Run it on an otherwise idle machine:

  tools/yield_bench/bench.py --program build/release/yield/front_panel_yield
"""

import argparse
import datetime
import json
import os
import secrets
import shutil
import socket
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "yield_corpus"))
import yield_corpus  # noqa: E402

SERVER = os.path.join(HERE, "..", "nexus_server", "nexus_server.py")
FIRST_DAY = datetime.date(2025, 1, 6)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Repository:
    """nexus_server.py in a child process on a fixed port, so that a restart
    (after the corpus grew) is the same repository to the program."""

    def __init__(self, work, port):
        arguments = [sys.executable, SERVER, "--port", str(port),
                     "--cert", os.path.join(work, "server.crt"),
                     "--key", os.path.join(work, "server.key"),
                     "--credential-file", os.path.join(work, "upload-credential"),
                     "--read-credential-file", os.path.join(work, "read-credential"),
                     "--storage-dir", os.path.join(work, "storage"),
                     "--assets-meta", os.path.join(work, "assets.jsonl")]
        self.process = subprocess.Popen(arguments, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        banner = self.process.stdout.readline()
        if "listening" not in banner:
            raise SystemExit("bench: the test repository did not start")

    def stop(self):
        self.process.terminate()
        self.process.wait()


def run(program, work, port, label, *options):
    """Elapsed seconds, peak resident KiB and CPU seconds (user and system:
    on a loaded machine they say more than the elapsed time) of one run of
    the program."""
    command = [program, "--repository", "https://localhost:%d" % port,
               "--cacert", os.path.join(work, "ca.crt"), "--cache", os.path.join(work, "cache"),
               "--json", os.path.join(work, label + ".json"),
               "--html", os.path.join(work, label + ".html"), *options]
    environment = dict(os.environ, HOME=os.path.join(work, "home"))
    environment.pop("FPT_YIELD_PASSWORD", None)
    start = time.monotonic()
    child = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE)
    _, status, usage = os.wait4(child.pid, 0)
    elapsed = time.monotonic() - start
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise SystemExit("bench: %s failed (exit %d): %s"
                         % (label, child.returncode, child.stderr.read().decode().strip()))
    return elapsed, usage.ru_maxrss, usage.ru_utime + usage.ru_stime


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", default="build/release/yield/front_panel_yield")
    parser.add_argument("--files", type=int, default=100000)
    parser.add_argument("--stations", type=int, default=30)
    parser.add_argument("--days", type=int, default=365)
    parser.add_argument("--new-files", type=int, default=1000)
    parser.add_argument("--work", default="", help="kept afterwards (default: a temporary folder)")
    args = parser.parse_args(argv)
    program = os.path.abspath(args.program)
    work = args.work or tempfile.mkdtemp(prefix="fpt-yield-bench-")
    os.makedirs(os.path.join(work, "home"), exist_ok=True)
    subprocess.run([os.path.join(HERE, "..", "nexus_server", "make_test_pki.sh"), work],
                   check=True, stdout=subprocess.DEVNULL)
    password = secrets.token_hex(16)
    with open(os.path.join(work, "upload-credential"), "w") as out:
        out.write("fpt-upload:%s\n" % secrets.token_hex(48))
    with open(os.path.join(work, "read-credential"), "w") as out:
        out.write("fpt-yield:%s\n" % password)
    with open(os.path.join(work, "home", ".netrc"), "w") as out:
        out.write("machine localhost login fpt-yield password %s\n" % password)
    os.chmod(os.path.join(work, "home", ".netrc"), 0o600)

    start = time.monotonic()
    yield_corpus.generate(os.path.join(work, "storage"), os.path.join(work, "assets.jsonl"),
                          args.files, args.stations, args.days, FIRST_DAY, seed=1)
    seeding = time.monotonic() - start
    port = free_port()

    loads = {}
    repository = Repository(work, port)
    first, first_peak, first_cpu = run(program, work, port, "first")
    loads["first"] = os.getloadavg()[0]
    repository.stop()

    yield_corpus.generate(os.path.join(work, "storage"), os.path.join(work, "assets.jsonl"),
                          args.new_files, args.stations, 1,
                          FIRST_DAY + datetime.timedelta(days=args.days), seed=2)
    repository = Repository(work, port)
    refresh, refresh_peak, refresh_cpu = run(program, work, port, "refresh")
    loads["refresh"] = os.getloadavg()[0]
    unchanged, unchanged_peak, unchanged_cpu = run(program, work, port, "unchanged")
    loads["unchanged"] = os.getloadavg()[0]
    repository.stop()

    report, report_peak, report_cpu = run(program, work, port, "report", "--offline")
    loads["report"] = os.getloadavg()[0]

    with open(os.path.join(work, "report.json"), encoding="utf-8") as source:
        figures = json.load(source)
    page = os.path.getsize(os.path.join(work, "report.html"))
    peak = max(first_peak, refresh_peak, unchanged_peak, report_peak) / 1024
    print("corpus: %d results files, %d stations x %d days (seeded in %.0f s); %d runs, %d boards"
          % (args.files, args.stations, args.days, seeding, figures["runs"], figures["boards"]))
    print("| measure | elapsed | program's CPU | load average (1 min) | goal |")
    print("|---|---|---|---|---|")
    print("| first sync | %.0f s | %.0f s | %.1f | <= 10 min |"
          % (first, first_cpu, loads["first"]))
    print("| refresh after %d new files | %.1f s | %.1f s | %.1f | <= 30 s |"
          % (args.new_files, refresh, refresh_cpu, loads["refresh"]))
    print("| run with nothing new (listing %d assets) | %.1f s | %.1f s | %.1f | |"
          % (args.files + args.new_files, unchanged, unchanged_cpu, loads["unchanged"]))
    print("| report from the cache (--offline) | %.2f s | %.2f s | %.1f | <= 2 s |"
          % (report, report_cpu, loads["report"]))
    print("| peak resident memory | %.0f MiB | | | <= 200 MB |" % peak)
    print("| HTML page | %.0f KiB | | | <= 1 MB |" % (page / 1024))
    if not args.work:
        shutil.rmtree(work)
    return 0


if __name__ == "__main__":
    sys.exit(main())
