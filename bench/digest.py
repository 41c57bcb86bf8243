#!/usr/bin/env python3
"""Measures the digest of the integrity check side by side with openssl and sha256sum.

One file of 1 GiB, read from the page cache by all three (a warm-up run first), each timed in
turn for several rounds; the median of each is kept. The target: at least 90% of openssl's speed.

usage: bench/digest.py [--work DIR] [--mib N] [--rounds N] [--tool PATH]
"""

import argparse
import os
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))


def timed(command):
    start = time.monotonic()
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    seconds = time.monotonic() - start
    if result.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}\n{result.stderr}")
    return seconds, result.stdout


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", default=os.path.join(HERE, "out-digest"))
    parser.add_argument("--mib", type=int, default=1024)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--tool", default=os.path.join(HERE, "..", "build", "bench", "quillstow-digest"))
    args = parser.parse_args()

    for program in ("openssl", "sha256sum", args.tool):
        if not shutil.which(program):
            sys.exit(f"missing: {program}")
    os.makedirs(args.work, exist_ok=True)
    path = os.path.join(args.work, "digest.bin")
    if not os.path.exists(path) or os.path.getsize(path) != args.mib << 20:
        chunk = os.urandom(1 << 20)
        with open(path, "wb") as out:
            for _ in range(args.mib):
                out.write(chunk)

    commands = {
        "quillstow": [os.path.abspath(args.tool), path],
        "openssl dgst -sha256": ["openssl", "dgst", "-sha256", "-r", path],
        "sha256sum": ["sha256sum", path],
    }
    digests = {name: timed(command)[1].split()[0] for name, command in commands.items()}
    if len(set(digests.values())) != 1:
        sys.exit(f"the digests differ: {digests}")

    samples = {name: [] for name in commands}
    for _ in range(args.rounds):
        for name, command in commands.items():
            samples[name].append(timed(command)[0])
    print(f"SHA-256 of {args.mib} MiB from the page cache, median of {args.rounds}")
    medians = {}
    for name, values in samples.items():
        medians[name] = sorted(values)[len(values) // 2]
        print(f"  {name:<22} {medians[name]:7.3f} s   {args.mib / medians[name]:7.0f} MiB/s")
    speed = medians["openssl dgst -sha256"] / medians["quillstow"]
    print(f"\n  speed vs openssl   {speed:.2f}   (target >= 0.9)")
    print(f"  speed vs sha256sum {medians['sha256sum'] / medians['quillstow']:.2f}")
    print(f"\n{args.work} holds the file; remove it when done.")


if __name__ == "__main__":
    main()
