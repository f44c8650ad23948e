#!/usr/bin/env python3
"""front_panel_test's running costs, measured on the emulated instrument.

  start-up     program start to the serial-number prompt on its terminal
  latency      a button going down on the keyboard device to the LED line
               for it on the serial port (debug display, two buttons in turn)
  escape       the same, each press just after a lone Escape on the terminal
  key latency  a key reaching the program's terminal to its effect on the
               serial port ("h" toggles the headphone output: the "A" line)
  order        a knob detent and the "v" key (volume mode) 1 ms apart, in
               both orders: the share applied in the order they came (a
               detent first moves the LED colour, "v" first the volume)
  idle CPU     the program's user + system time over a quiet stretch, as a
               share of one core
  idle output  bytes the program writes to its terminal per second then
  peak RSS     VmHWM at the end of the run
  signal end   SIGTERM during the upload's first try (a repository that
               never answers) to the program's end
  wake floor   the machine's own: a one-byte pipe round trip between two
               processes on different CPUs, after the same idle gaps as the
               presses. No latency above can be lower whenever its chain
               (emulator, program, kernel workers) wakes a CPU that has been
               idle; on a virtual machine that is the cost of waking a vCPU.

With --soak, instead: one run through many button events and panel lines,
then a long idle stretch; reports the growth of peak RSS, the change in open
descriptors and the idle CPU (about 12 minutes with the defaults).

Runs inside the emulated instrument; usage: benchmark.py PROGRAM [--json FILE] [--soak]
"""

import argparse
import fcntl
import json
import os
import random
import statistics
import subprocess
import sys
import termios
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), ".."))
import cv084emu  # noqa: E402

TMUX = ["tmux", "-L", "fpt-bench-0"]


def tmux(*args, check=True):
    return subprocess.run(TMUX + list(args), check=check, capture_output=True, text=True).stdout


def screen():
    return tmux("capture-pane", "-p", "-t", "b")


def wait_text(text, timeout=20.0, poll=0.005):
    deadline = time.monotonic() + timeout
    while text not in screen():
        if time.monotonic() > deadline:
            raise RuntimeError(f"{text!r} never appeared:\n{screen()}")
        time.sleep(poll)
    return time.monotonic()


def program_pid():
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/comm") as f:
                if f.read().strip() == "front_panel_tes":
                    return int(pid)
        except OSError:
            pass
    raise RuntimeError("front_panel_test is not running")


def cpu_seconds(pid):
    """CPU time of every thread, in nanosecond resolution (schedstat)."""
    total = 0
    for tid in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{tid}/schedstat") as f:
            total += int(f.read().split()[0])
    return total / 1e9


def status_kib(pid, key):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith(key + ":"):
                return int(line.split()[1])
    return 0


def host_lines_from(emu, start, prefix, since_us, timeout=2.0):
    """The time of the first line the program sent with this prefix at or after since_us."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        for line in emu.traffic(start)["lines"]:
            if line["dir"] == "host" and line["text"].startswith(prefix) and \
                    line["t_us"] >= since_us:
                return line["t_us"]
        time.sleep(0.002)
    raise RuntimeError(f"no {prefix!r} line on the serial port")


def key_latencies(emu, keys):
    """Key reaching the terminal to its "A" line, in ms. The key goes straight
    into the pane's input queue (TIOCSTI), so that the moment it arrives is
    known; where the kernel refuses that, tmux types it and the time is taken
    before tmux starts (an upper bound)."""
    tty = tmux("display-message", "-p", "-t", "b", "#{pane_tty}").strip()
    fd = os.open(tty, os.O_RDWR | os.O_NOCTTY)
    latencies = []
    try:
        for _ in range(keys):
            start_line = emu.traffic()["next"]
            time.sleep(random.uniform(0.0, 0.1))  # any phase of the 100 ms poll
            sent = time.monotonic_ns() // 1000
            try:
                fcntl.ioctl(fd, termios.TIOCSTI, b"h")
            except OSError:
                tmux("send-keys", "-t", "b", "-l", "h")
            latencies.append((host_lines_from(emu, start_line, "A", sent) - sent) / 1000.0)
            time.sleep(0.05)
    finally:
        os.close(fd)
    return latencies


def arrival_order(emu, trials):
    """Share of trials (knob detent and "v" 1 ms apart, the order alternating)
    whose effect shows the order they came in, in %."""
    tty = tmux("display-message", "-p", "-t", "b", "#{pane_tty}").strip()
    fd = os.open(tty, os.O_RDWR | os.O_NOCTTY)

    def key(k):
        try:
            fcntl.ioctl(fd, termios.TIOCSTI, k)
        except OSError:
            tmux("send-keys", "-t", "b", "-l", k.decode())

    in_order = 0
    try:
        for n in range(trials):
            key(b"c")  # the knob back on the colours
            time.sleep(0.1)
            before = emu.state()
            detent = 1 if before["tone"]["volume_percent"] < 50 else -1
            time.sleep(random.uniform(0.0, 0.1))  # any phase of the 100 ms poll
            knob_first = n % 2 == 0
            if knob_first:
                emu.turn(detent)
            else:
                key(b"v")
            time.sleep(0.001)
            if knob_first:
                key(b"v")
            else:
                emu.turn(detent)
            time.sleep(0.2)
            after = emu.state()
            colour_moved = after["leds"] != before["leds"]
            volume_moved = after["tone"]["volume_raw"] != before["tone"]["volume_raw"]
            in_order += colour_moved != volume_moved and colour_moved == knob_first
    finally:
        os.close(fd)
    return 100.0 * in_order / trials


def wake_floor(rounds):
    """Round trips in ms between a process on the first CPU and one on the
    second, each after 120 to 220 ms of nothing, as between two presses."""
    cpus = sorted(os.sched_getaffinity(0))
    if len(cpus) < 2:
        return []
    there_r, there_w = os.pipe()
    back_r, back_w = os.pipe()
    child = os.fork()
    if child == 0:
        os.close(there_w)
        os.sched_setaffinity(0, {cpus[1]})
        while os.read(there_r, 1):
            os.write(back_w, b"x")
        os._exit(0)
    os.close(there_r)
    os.close(back_w)
    previous = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {cpus[0]})
    trips = []
    try:
        for _ in range(rounds):
            time.sleep(random.uniform(0.12, 0.22))
            sent = time.monotonic_ns()
            os.write(there_w, b"x")
            os.read(back_r, 1)
            trips.append((time.monotonic_ns() - sent) / 1e6)
    finally:
        os.close(there_w)  # the other end's read ends
        os.waitpid(child, 0)
        os.close(back_r)
        os.sched_setaffinity(0, previous)
    return trips


def percentile(values, p):
    ordered = sorted(values)
    k = (len(ordered) - 1) * p / 100.0
    lo = int(k)
    hi = min(lo + 1, len(ordered) - 1)
    return ordered[lo] + (ordered[hi] - ordered[lo]) * (k - lo)


def start(program, run):
    tmux("kill-server", check=False)
    TMUX[2] = f"fpt-bench-{run}"  # a fresh server for every start
    conf = "/tmp/fpt-bench.tmux.conf"
    with open(conf, "w") as f:
        f.write("set -g remain-on-exit on\nset -g default-terminal screen\n")
    began = time.monotonic()
    tmux("-f", conf, "new-session", "-d", "-s", "b", "-x", "80", "-y", "24", program)
    return began


def save_json(args, results):
    """Writes the figures to --json's file, if given; the exit status."""
    if args.json:
        with open(args.json, "w") as f:
            json.dump(results, f, indent=2)
    return 0


def quit_run(emu):
    """Answers "y", (Q)uits at the first test, ends tmux and the instrument."""
    tmux("send-keys", "-t", "b", "-l", "y")
    wait_text("Shaft Encoder Tests")
    tmux("send-keys", "-t", "b", "-l", "q")
    tmux("kill-server", check=False)
    emu.close()


def to_first_test(serial):
    """Enters and confirms the serial number; the first test is then up."""
    tmux("send-keys", "-t", "b", "-l", serial)
    tmux("send-keys", "-t", "b", "Enter")
    wait_text(f'You Entered "{serial}"')
    tmux("send-keys", "-t", "b", "-l", "y")
    wait_text("Shaft Encoder Tests")


def signal_ends(program, runs):
    """For each run: (U)pload at once, then SIGTERM once the first try has
    been in flight for a moment; the ms from the signal to the program gone."""
    ends = []
    for run in range(runs):
        start(program, 100 + run)
        wait_text("Enter CV084 PCB Serial No:")
        to_first_test("SIG1")
        tmux("send-keys", "-t", "b", "-l", "m")
        wait_text("Selection, (Q)uit")
        pid = program_pid()
        tmux("send-keys", "-t", "b", "-l", "u")
        wait_text("Uploading ")
        time.sleep(0.5)
        sent = time.monotonic()
        os.kill(pid, 15)
        while os.path.exists(f"/proc/{pid}/stat"):
            with open(f"/proc/{pid}/stat") as f:
                if f.read().split(") ")[-1].startswith("Z"):
                    break
            time.sleep(0.001)
        ends.append((time.monotonic() - sent) * 1000)
    tmux("kill-server", check=False)
    return ends


def open_descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def soak(args):
    """The program on its debug display (every button moves the lit LED, so
    the panel answers each press with a line too) through args.soak_events
    button events and args.soak_lines jack reports from the panel, then idle
    for args.soak_idle seconds. Events go in batches that the program reads
    before the next: a soak of its steady state, not of the emulator's queue."""
    start(args.program, 0)
    wait_text("Enter CV084 PCB Serial No:")
    to_first_test("SOAK1")
    tmux("send-keys", "-t", "b", "-l", "d")
    wait_text("Press (Y) to return to tests")
    pid = program_pid()
    emu = cv084emu.Emulator()

    def drive(events, lines):
        sent_lines = 0
        for n in range(0, events, 2):
            button = 1 + (n // 2) % 10  # F1 ... F10
            emu.hold(button)
            emu.release(button)
            if n % 200 == 198 or n + 2 >= events:
                if sent_lines < lines:  # a burst of jack reports with each batch
                    burst = min(lines - sent_lines, max(1, lines * 200 // events))
                    emu.serial_raw(b"".join(b"H1\n" if k % 2 else b"H0\n" for k in range(burst)))
                    sent_lines += burst
                while emu.state()["keyboard"]["queued"]:
                    time.sleep(0.02)
        return sent_lines

    drive(2000, 200)  # warm-up: every path taken once before the baseline
    time.sleep(1.0)
    hwm0, rss0, fds0 = status_kib(pid, "VmHWM"), status_kib(pid, "VmRSS"), open_descriptors(pid)
    began = time.monotonic()
    lines = drive(args.soak_events, args.soak_lines)
    busy = time.monotonic() - began
    time.sleep(1.0)
    cpu0, t0 = cpu_seconds(pid), time.monotonic()
    time.sleep(args.soak_idle)
    cpu1, t1 = cpu_seconds(pid), time.monotonic()
    results = {
        "button_events": args.soak_events, "panel_lines": lines, "busy_s": busy,
        "peak_rss_growth_kib": status_kib(pid, "VmHWM") - hwm0,
        "rss_growth_kib": status_kib(pid, "VmRSS") - rss0,
        "descriptor_change": open_descriptors(pid) - fds0,
        "idle_s": t1 - t0, "idle_cpu_percent": 100.0 * (cpu1 - cpu0) / (t1 - t0),
    }
    quit_run(emu)
    print(f"soak: {results['button_events']} button events and {lines} panel lines"
          f" in {busy:.0f} s, then {results['idle_s']:.0f} s idle")
    print(f"peak RSS growth: {results['peak_rss_growth_kib']} KiB (goal <= 1024);"
          f" RSS growth {results['rss_growth_kib']} KiB")
    print(f"open descriptors: {results['descriptor_change']:+d} (goal 0)")
    print(f"idle CPU: {results['idle_cpu_percent']:.2f} % of one core (goal <= 1 %)")
    return save_json(args, results)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("program")
    p.add_argument("--json", default="")
    p.add_argument("--starts", type=int, default=5)
    p.add_argument("--presses", type=int, default=60)
    p.add_argument("--keys", type=int, default=60)
    p.add_argument("--escapes", type=int, default=10)
    p.add_argument("--order-trials", type=int, default=200)
    p.add_argument("--idle-seconds", type=float, default=10.0)
    p.add_argument("--signal-runs", type=int, default=3)
    p.add_argument("--floor-rounds", type=int, default=120)
    p.add_argument("--soak", action="store_true", help="the soak instead of the figures above")
    p.add_argument("--soak-events", type=int, default=100000)
    p.add_argument("--soak-lines", type=int, default=10000)
    p.add_argument("--soak-idle", type=float, default=600.0)
    args = p.parse_args()
    if args.soak:
        return soak(args)
    results = {}

    # Start-up, several cold starts of the program (the instrument stays up).
    startups = []
    for run in range(args.starts):
        began = start(args.program, run)
        startups.append((wait_text("Enter CV084 PCB Serial No:") - began) * 1000)
    results["startup_ms_median"] = statistics.median(startups)
    results["startup_ms_max"] = max(startups)

    to_first_test("BENCH1")
    pid = program_pid()

    # Idle: the shaft encoder test waiting for the knob, nothing happening.
    out = "/tmp/fpt-bench.terminal"
    open(out, "w").close()
    time.sleep(1.0)
    tmux("pipe-pane", "-o", "-t", "b", f"cat >> {out}")
    time.sleep(0.5)
    size0, cpu0, t0 = os.path.getsize(out), cpu_seconds(pid), time.monotonic()
    time.sleep(args.idle_seconds)
    size1, cpu1, t1 = os.path.getsize(out), cpu_seconds(pid), time.monotonic()
    results["idle_cpu_percent"] = 100.0 * (cpu1 - cpu0) / (t1 - t0)
    results["idle_terminal_bytes_per_s"] = (size1 - size0) / (t1 - t0)

    # Latency, on the debug display: each press of the other button moves
    # the lit LED there.
    emu = cv084emu.Emulator()
    tmux("send-keys", "-t", "b", "-l", "d")
    wait_text("Press (Y) to return to tests")
    time.sleep(0.3)
    tmux("pipe-pane", "-t", "b")
    if os.path.getsize(out) <= size1:
        raise RuntimeError("the terminal capture saw no output when the screen changed")
    emu.press("f1", 150)
    time.sleep(0.3)
    latencies = []
    escapes = []
    for n in range(args.presses + args.escapes):
        index = 2 if n % 2 == 0 else 1
        after_escape = n >= args.presses
        want = f"L{index:02x}"
        start_line = emu.traffic()["next"]
        time.sleep(random.uniform(0.0, 0.1))  # any phase of the 100 ms poll
        if after_escape:  # a lone Escape just before: curses must not wait for more
            tmux("send-keys", "-t", "b", "Escape")
        down = emu.press(index, 150)
        deadline = time.monotonic() + 2.0
        found = None
        while found is None and time.monotonic() < deadline:
            for line in emu.traffic(start_line)["lines"]:
                if line["dir"] == "host" and line["text"].startswith(want) and \
                        line["t_us"] >= down and line["text"][3:] != "000000":
                    found = line["t_us"]
                    break
            else:
                time.sleep(0.01)
        if found is None:
            raise RuntimeError(f"no LED line for button {index} after its press")
        (escapes if after_escape else latencies).append((found - down) / 1000.0)
        time.sleep(0.12)
    results["latency_ms_p50"] = percentile(latencies, 50)
    results["latency_ms_p99"] = percentile(latencies, 99)
    results["latency_ms_max"] = max(latencies)
    results["latency_samples"] = len(latencies)
    results["escape_latency_ms_max"] = max(escapes, default=0.0)
    keys = key_latencies(emu, args.keys)
    results["key_latency_ms_p50"] = percentile(keys, 50)
    results["key_latency_ms_p99"] = percentile(keys, 99)
    results["key_latency_ms_max"] = max(keys)
    results["arrival_order_percent"] = arrival_order(emu, args.order_trials)

    results["peak_rss_kib"] = status_kib(pid, "VmHWM")
    quit_run(emu)
    floor = wake_floor(args.floor_rounds)
    ends = signal_ends(args.program, args.signal_runs)
    results["signal_end_ms_max"] = max(ends)
    if floor:
        results["wake_floor_ms_p50"] = percentile(floor, 50)
        results["wake_floor_ms_p99"] = percentile(floor, 99)
        results["wake_floor_ms_max"] = max(floor)

    print(f"start-up to serial prompt: median {results['startup_ms_median']:.0f} ms,"
          f" max {results['startup_ms_max']:.0f} ms ({args.starts} starts)")
    print(f"button -> LED line latency: p50 {results['latency_ms_p50']:.1f} ms,"
          f" p99 {results['latency_ms_p99']:.1f} ms, max {results['latency_ms_max']:.1f} ms"
          f" ({len(latencies)} presses)")
    print(f"button -> LED line latency just after a lone Escape: max"
          f" {results['escape_latency_ms_max']:.1f} ms ({args.escapes} presses)")
    print(f"key -> panel line latency: p50 {results['key_latency_ms_p50']:.1f} ms,"
          f" p99 {results['key_latency_ms_p99']:.1f} ms, max {results['key_latency_ms_max']:.1f} ms"
          f" ({args.keys} keys)")
    print(f"knob detent and mode key 1 ms apart, applied in arrival order:"
          f" {results['arrival_order_percent']:.1f} % ({args.order_trials} trials, goal 100 %)")
    print(f"idle CPU: {results['idle_cpu_percent']:.2f} % of one core"
          f" ({args.idle_seconds:.0f} s)")
    print(f"idle terminal output: {results['idle_terminal_bytes_per_s']:.1f} bytes/s")
    print(f"peak RSS: {results['peak_rss_kib'] / 1024:.1f} MiB")
    print(f"SIGTERM during an upload's try -> program gone: max {max(ends):.0f} ms"
          f" ({args.signal_runs} runs)")
    if floor:
        print(f"this machine's wake floor (pipe round trip between two CPUs after 120 to"
              f" 220 ms idle): p50 {results['wake_floor_ms_p50']:.1f} ms,"
              f" p99 {results['wake_floor_ms_p99']:.1f} ms, max {results['wake_floor_ms_max']:.1f} ms"
              f" ({len(floor)} rounds)")
    return save_json(args, results)


if __name__ == "__main__":
    sys.exit(main())
