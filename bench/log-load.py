#!/usr/bin/env python3
"""Measures how long the program takes to open a log that some outside hand let grow far past
its 500 entries, and how much memory that takes at its peak.

Writes a backup-log.json of the given size in the shape the program writes, then runs
quillstow-log-load on its folder under /usr/bin/time -v.

usage: bench/log-load.py [--work DIR] [--mib N] [--tool PATH]
"""

import argparse
import os
import re
import subprocess
import sys
import uuid

HERE = os.path.dirname(os.path.abspath(__file__))

EVENT = """  {{
    "bytesTransferred": {bytes},
    "duration": {duration},
    "filesAffected": {files},
    "id": "{id}",
    "message": "{files} files backed up.",
    "pairId": "{pair}",
    "timestamp": "2026-03-{day:02d}T{hour:02d}:{minute:02d}:00Z",
    "type": "backup"
  }}"""


def write_log(path, mib):
    pairs = [str(uuid.uuid4()).upper() for _ in range(4)]
    target = mib * 1024 * 1024
    written = 0
    with open(path, "w") as log:
        log.write("[\n")
        number = 0
        while written < target:
            if number:
                log.write(",\n")
            text = EVENT.format(bytes=number * 4096, duration=number % 97 + 0.25, files=number % 1000,
                                id=str(uuid.uuid4()).upper(), pair=pairs[number % 4],
                                day=number % 28 + 1, hour=number % 24, minute=number % 60)
            log.write(text)
            written += len(text) + 2
            number += 1
        log.write("\n]")
    return number


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", default=os.path.join(HERE, "out-log-load"))
    parser.add_argument("--mib", type=int, default=200)
    parser.add_argument("--tool", default=os.path.join(HERE, "..", "build", "bench", "quillstow-log-load"))
    args = parser.parse_args()
    if not os.path.exists("/usr/bin/time"):
        sys.exit("missing: /usr/bin/time")

    os.makedirs(args.work, exist_ok=True)
    log = os.path.join(args.work, "backup-log.json")
    if not os.path.exists(log) or os.path.getsize(log) < args.mib * 1024 * 1024:
        count = write_log(log, args.mib)
        print(f"wrote {count} events, {os.path.getsize(log) / 2**20:.0f} MiB")

    result = subprocess.run(["/usr/bin/time", "-v", args.tool, args.work], capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"failed:\n{result.stderr}")
    peak = int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", result.stderr).group(1))
    wall = re.search(r"Elapsed \(wall clock\) time \(h:mm:ss or m:ss\): (\S+)", result.stderr).group(1)
    print(f"{result.stdout.strip()}; wall {wall}, peak {peak / 1024:.0f} MiB")


if __name__ == "__main__":
    main()
