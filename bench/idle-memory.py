#!/usr/bin/env python3
"""Measures what the headless program holds once it is idle after its first pass.

It makes a source of FOLDERS folders holding FILES small files, an empty destination, a
settings folder with one pair and a home of its own, starts `quillstow` (the headless program)
on them, and waits until the pass and what follows it are over: the program's event log holds
the pass's outcome, the engine's settle delay has passed after it, and the program has used no
CPU time for two seconds.
Then it samples the process every half second for SECONDS seconds: VmRSS and RssAnon
(/proc/PID/status), the anonymous and private figures of /proc/PID/smaps_rollup, the resident
part of the main heap, of the other anonymous mappings (the threads' malloc arenas and large
blocks) and of the thread stacks (/proc/PID/smaps), the number of threads, and the peak
(VmHWM) the pass reached. With
--malloc-stats it asks the allocator itself through gdb (malloc_stats()) at the end: the bytes
each arena holds from the system and those in use.

With --baseline, another build of `quillstow` is measured on the same tree, each on a
destination of its own, in turn: a change measured before and after in one run.

Everything it made is removed at the end, unless --keep; with --keep-source the source stays,
and a run that finds it in its work folder uses it as it stands (a tree of a million files takes
minutes to make); --source names another tree to back up as it stands.

usage: bench/idle-memory.py [--work DIR] [--folders N] [--files N] [--million]
                            [--seconds N] [--program PATH] [--baseline PATH] [--malloc-stats]
                            [--limit SECONDS] [--source DIR] [--keep | --keep-source]
"""

import argparse
import json
import os
import signal
import statistics
import subprocess
import sys
import time
import uuid

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from compare import count_items  # noqa: E402

# The engine's settle delay: a completed status turns into "Up to date" this long after.
SETTLE_SECONDS = 5.0
TICKS = os.sysconf("SC_CLK_TCK")


def remove(path):
    # rm is several times quicker than shutil.rmtree over a million files.
    subprocess.run(["rm", "-rf", "--one-file-system", path], check=False)


def make_tree(root, files, folders):
    """FOLDERS folders in groups of a hundred, FILES files of 0 to 255 bytes spread over them."""
    payload = os.urandom(256)
    for f in range(folders):
        folder = os.path.join(root, f"d{f // 100:04d}", f"f{f:06d}")
        os.makedirs(folder)
        for n in range(files // folders + (f < files % folders)):
            with open(os.path.join(folder, f"file{n:03d}.dat"), "wb") as out:
                out.write(payload[:(f + n) % 256])


def write_settings(config_home, source, destination, name):
    folder = os.path.join(config_home, "Quillstow")
    os.makedirs(folder, exist_ok=True)
    now = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
    settings = {
        "appConfig": {"backupInterval": "1hr", "bandwidthMode": "auto",
                      "hasCompletedOnboarding": True, "launchAtLogin": False,
                      "notificationLevel": "errorsOnly", "trashReminderEnabled": True},
        "pairs": [{"createdAt": now, "destinationURL": "file://" + destination,
                   "didSuggestProfile": True, "id": str(uuid.uuid4()).upper(),
                   "isEnabled": True, "name": name, "profile": "standard",
                   "sourceURL": "file://" + source}],
    }
    with open(os.path.join(folder, "config.json"), "w") as out:
        json.dump(settings, out, indent=2)
    return os.path.join(folder, "backup-log.json")


def read_status(pid):
    fields = {}
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            key, _, value = line.partition(":")
            fields[key] = value.split()
    return fields


def cpu_ticks(pid):
    with open(f"/proc/{pid}/stat") as stat:
        after_name = stat.read().rpartition(")")[2].split()
    return int(after_name[11]) + int(after_name[12])


def pass_outcome(event_log):
    """The types of the events in the program's log, or nothing while there is none."""
    try:
        with open(event_log) as log:
            events = json.load(log)
    except (OSError, ValueError):
        return None
    if isinstance(events, dict):
        events = events.get("events", [])
    types = [event.get("type") for event in events if isinstance(event, dict)]
    return types or None


def wait_until_idle(process, event_log, stderr_path, limit):
    """Waits for the pass's outcome in the event log, the settle delay, then two quiet seconds."""
    start = time.monotonic()

    def check():
        if process.poll() is not None:
            sys.exit(f"quillstow ended with status {process.returncode}:\n"
                     + open(stderr_path).read()[-2000:])
        if time.monotonic() - start > limit:
            sys.exit(f"quillstow wasn't idle after {limit} s:\n"
                     + open(stderr_path).read()[-2000:])
        time.sleep(0.2)

    while pass_outcome(event_log) is None:
        check()
    outcome_at = time.monotonic()
    print(f"  events after {outcome_at - start:.1f} s: {', '.join(pass_outcome(event_log))}")
    # What follows the pass (the integrity stage, the offsite copy) ends with the settle delay.
    while time.monotonic() - outcome_at < SETTLE_SECONDS + 1:
        check()
    quiet_since, ticks = time.monotonic(), cpu_ticks(process.pid)
    while time.monotonic() - quiet_since < 2:
        check()
        now_ticks = cpu_ticks(process.pid)
        if now_ticks != ticks:
            quiet_since, ticks = time.monotonic(), now_ticks
    print(f"  idle after {time.monotonic() - start:.1f} s")


def mapping_figures(pid):
    """Resident KiB of the main heap, of the other anonymous mappings and of thread stacks."""
    heap = anonymous = stacks = 0
    name = ""
    with open(f"/proc/{pid}/smaps") as smaps:
        for line in smaps:
            first = line.split(maxsplit=6)
            if "-" in first[0] and len(first) >= 5 and ":" not in first[0]:
                name = first[5].strip() if len(first) > 5 else ""
                size = 0
                continue
            if first[0] == "Size:":
                size = int(first[1])
            if first[0] != "Rss:":
                continue
            rss = int(first[1])
            if name == "[heap]":
                heap += rss
            elif name.startswith("[stack"):
                stacks += rss
            elif name == "" and size in (8192, 8196):
                # A thread's stack: 8 MiB by default (and its guard page).
                stacks += rss
            elif name == "":
                anonymous += rss
    return heap, anonymous, stacks


def rollup(pid):
    figures = {}
    with open(f"/proc/{pid}/smaps_rollup") as lines:
        for line in lines:
            parts = line.split()
            if len(parts) >= 2 and parts[1].isdigit():
                figures[parts[0].rstrip(":")] = int(parts[1])
    return figures


def sample(pid, seconds):
    rows = []
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        status = read_status(pid)
        figures = rollup(pid)
        heap, anonymous, stacks = mapping_figures(pid)
        rows.append({
            "VmRSS": int(status["VmRSS"][0]), "RssAnon": int(status["RssAnon"][0]),
            "Anonymous": figures.get("Anonymous", 0),
            "Private_Dirty": figures.get("Private_Dirty", 0),
            "heap": heap, "other anon": anonymous, "stacks": stacks,
            "threads": int(status["Threads"][0]),
            "VmHWM (peak)": int(status["VmHWM"][0]),
        })
        time.sleep(0.5)
    return rows


def malloc_stats(pid, stderr_path):
    before = len(open(stderr_path).read())
    subprocess.run(["gdb", "-p", str(pid), "-batch", "-nx", "-ex", "call (void)malloc_stats()"],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
    time.sleep(0.5)
    lines = open(stderr_path).read()[before:].splitlines()
    return [line for line in lines if line.startswith(("Arena", "system", "in use", "Total",
                                                       "max mmap"))]


def measure(program, work, label, source, seconds, with_malloc_stats, limit):
    root = os.path.join(work, label)
    home = os.path.join(root, "home")
    config = os.path.join(root, "config")
    destination = os.path.join(root, "destination")
    for folder in (home, config, destination):
        os.makedirs(folder, exist_ok=True)
    event_log = write_settings(config, source, destination, "Bench")
    stderr_path = os.path.join(root, "stderr.txt")
    environment = {key: value for key, value in os.environ.items()
                   if key not in ("DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS")}
    environment.update(HOME=home, XDG_CONFIG_HOME=config,
                       XDG_DATA_HOME=os.path.join(home, ".local", "share"),
                       XDG_CACHE_HOME=os.path.join(home, ".cache"))
    print(f"{label}: {program}")
    with open(stderr_path, "w") as stderr:
        process = subprocess.Popen([program], env=environment, stdin=subprocess.DEVNULL,
                                   stdout=stderr, stderr=stderr)
    try:
        wait_until_idle(process, event_log, stderr_path, limit)
        rows = sample(process.pid, seconds)
        stats = malloc_stats(process.pid, stderr_path) if with_malloc_stats else []
    finally:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(timeout=120)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    if process.returncode != 0:
        print(f"  warning: quillstow ended with status {process.returncode}")
    return rows, stats


def report(label, rows, stats):
    print(f"\n{label}, KiB over {len(rows)} samples: median (min-max)")
    for key in rows[0]:
        values = [row[key] for row in rows]
        print(f"  {key:14} {statistics.median(values):>9.0f} ({min(values)}-{max(values)})")
    print(f"  VmRSS median {statistics.median(r['VmRSS'] for r in rows) / 1024:.1f} MiB")
    for line in stats:
        print(f"  malloc: {line}")


def default_program():
    built = os.path.join(HERE, "..", "build", "src")
    headless = os.path.join(built, "app", "quillstow")
    return headless if os.path.exists(headless) else os.path.join(built, "shell", "quillstow")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", default="/work/bench-idle")
    parser.add_argument("--folders", type=int, default=50_000)
    parser.add_argument("--files", type=int, default=0, help="default: one per folder")
    parser.add_argument("--million", action="store_true",
                        help="1,000,000 files in the folders")
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--program", default=default_program(),
                        help="default: the headless build's quillstow, else the tray program's")
    parser.add_argument("--baseline", help="another build of quillstow, measured in turn")
    parser.add_argument("--malloc-stats", action="store_true",
                        help="ask the allocator through gdb at the end")
    parser.add_argument("--limit", type=float, default=3600,
                        help="seconds to wait for the idle program")
    parser.add_argument("--keep", action="store_true", help="keep everything it made")
    parser.add_argument("--source", help="an existing tree to back up, left as it is")
    parser.add_argument("--keep-source", action="store_true",
                        help="keep the source for the next run, which uses it as it stands")
    options = parser.parse_args()
    files = 1_000_000 if options.million else (options.files or options.folders)

    work = os.path.abspath(options.work)
    source = os.path.abspath(options.source) if options.source else os.path.join(work, "source")
    if os.path.exists(work) and os.listdir(work) not in ([], ["source"]):
        sys.exit(f"{work} holds more than a source: remove it or choose another --work")
    programs = [("after", os.path.abspath(options.program))]
    if options.baseline:
        programs.insert(0, ("before", os.path.abspath(options.baseline)))
    try:
        started = time.monotonic()
        if os.path.exists(source):
            print(f"source: {source} as it stands")
        else:
            make_tree(source, files, options.folders)
        print(f"source: {count_items(source)} entries, ready after "
              f"{time.monotonic() - started:.0f} s; load average {os.getloadavg()[0]:.1f}")
        results = []
        for label, program in programs:
            rows, stats = measure(program, work, label, source, options.seconds,
                                  options.malloc_stats, options.limit)
            results.append((label, rows, stats))
            if not options.keep:
                remove(os.path.join(work, label))
        for label, rows, stats in results:
            report(label, rows, stats)
        print(f"\nload average at the end {os.getloadavg()[0]:.1f}")
    finally:
        if options.keep_source:
            for name in os.listdir(work):
                if name != "source":
                    remove(os.path.join(work, name))
        elif not options.keep:
            remove(work)


if __name__ == "__main__":
    main()
