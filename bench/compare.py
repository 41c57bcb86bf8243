#!/usr/bin/env python3
"""Measures quillstow-pass side by side with rsync and cp in one run.

Trees: 100,000 small files in 5,000 folders, and one file of 1 GiB. Cases: a first copy, a
re-run with nothing changed, a re-run after 1% of the files changed. A copy that is safe
against a power cut waits for the disk, so our first copy is compared with `rsync -a; sync`
(the same durability) and plain `rsync -a` is shown beside it.

Every run writes into a fresh folder (ext4 creates files slowly for a while after many were
deleted), and 3.5 GiB of memory are touched before each timed run (memory freed a few seconds
ago goes back to the host, and the first run would pay for getting it again).

usage: bench/compare.py [--work DIR] [--files N] [--big-mib N] [--tool PATH]
"""

import argparse
import os
import random
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))


def touch_memory(gib=3.5):
    # In a process of its own: a child started from a process that once held this much would
    # report it as its own peak.
    subprocess.run([sys.executable, "-c",
                    f"b = bytearray({int(gib * (1 << 30))})\n"
                    "for i in range(0, len(b), 4096): b[i] = 1"], check=True)


def make_small_tree(root, files, folders, seed=7):
    rng = random.Random(seed)
    per_folder = files // folders
    payload = os.urandom(16384)
    for f in range(folders):
        folder = os.path.join(root, f"d{f // 100:02d}", f"f{f:04d}")
        os.makedirs(folder, exist_ok=True)
        for n in range(per_folder):
            size = rng.randint(512, 8192)
            start = rng.randint(0, len(payload) - size)
            with open(os.path.join(folder, f"file{n:03d}.dat"), "wb") as out:
                out.write(payload[start:start + size])


def make_big_file(root, mib):
    os.makedirs(root, exist_ok=True)
    chunk = os.urandom(1 << 20)
    with open(os.path.join(root, "big.bin"), "wb") as out:
        for _ in range(mib):
            out.write(chunk)


def change_one_percent(root, seed=11):
    rng = random.Random(seed)
    paths = []
    for folder, _, names in os.walk(root):
        paths.extend(os.path.join(folder, n) for n in names)
    paths.sort()
    chosen = rng.sample(paths, max(1, len(paths) // 100))
    for path in chosen:
        with open(path, "ab") as out:
            out.write(b"changed")
    return len(chosen)


def run(command):
    """Runs a shell command; returns (seconds, peak resident KiB of its largest process).

    GNU time measures the peak: a process started straight from this one would inherit its
    peak as a floor."""
    touch_memory()
    start = time.monotonic()
    timed = subprocess.run(["/usr/bin/time", "-f", "%M", "sh", "-c", command],
                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    seconds = time.monotonic() - start
    if timed.returncode != 0:
        sys.exit(f"failed: {command}\n{timed.stderr}")
    return seconds, int(timed.stderr.strip().splitlines()[-1])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", default=os.path.join(HERE, "out"))
    parser.add_argument("--files", type=int, default=100_000)
    parser.add_argument("--folders", type=int, default=5_000)
    parser.add_argument("--big-mib", type=int, default=1024)
    parser.add_argument("--tool", default=os.path.join(HERE, "..", "build", "tools", "quillstow-pass"))
    args = parser.parse_args()

    for program in ("rsync", "cp", "/usr/bin/time", args.tool):
        if not shutil.which(program):
            sys.exit(f"missing: {program}")
    work = os.path.abspath(args.work)
    if os.path.exists(work):
        sys.exit(f"{work} exists; give a fresh --work folder")
    os.makedirs(work)
    small, big = os.path.join(work, "small"), os.path.join(work, "big")
    print(f"generating {args.files} files in {args.folders} folders and a {args.big_mib} MiB file in {work}")
    make_small_tree(small, args.files, args.folders)
    make_big_file(big, args.big_mib)
    subprocess.run(["sync"], check=True)

    tool = os.path.abspath(args.tool)
    results = {}

    def measure(name, command):
        seconds, peak = run(command)
        results[name] = (seconds, peak)
        print(f"  {name:<34} {seconds:8.2f} s   peak {peak / 1024:7.1f} MiB", flush=True)

    def measure_alternating(commands, rounds=3):
        """Runs the commands in turn, several rounds, so that none always runs on colder
        caches than the others; keeps the median of each."""
        samples = {name: [] for name, _ in commands}
        for _ in range(rounds):
            for name, command in commands:
                samples[name].append(run(command))
        for name, values in samples.items():
            seconds = sorted(v[0] for v in values)[len(values) // 2]
            peak = max(v[1] for v in values)
            results[name] = (seconds, peak)
            print(f"  {name:<34} {seconds:8.2f} s   peak {peak / 1024:7.1f} MiB (median of {rounds})",
                  flush=True)

    def mirror(name):
        return os.path.join(work, "mirrors", name)

    os.makedirs(os.path.join(work, "mirrors"))
    print("small tree, first copy")
    measure("quillstow first", f"{tool} {small} {mirror('q-small')}")
    measure("rsync -a; sync first", f"rsync -a {small}/ {mirror('rs-small')}/; sync")
    measure("rsync -a first", f"rsync -a {small}/ {mirror('r-small')}/")
    measure("cp -a first", f"cp -a {small} {mirror('c-small')}")
    subprocess.run(["sync"], check=True)

    print("small tree, nothing changed")
    # Like a pass, rsync --delete also walks the mirror for what left the source.
    measure_alternating([("quillstow no-op", f"{tool} {small} {mirror('q-small')}"),
                         ("rsync -a no-op", f"rsync -a {small}/ {mirror('r-small')}/"),
                         ("rsync -a --delete no-op", f"rsync -a --delete {small}/ {mirror('r-small')}/")])

    changed = change_one_percent(small)
    print(f"small tree, {changed} files changed")
    measure("quillstow 1% changed", f"{tool} {small} {mirror('q-small')}")
    measure("rsync -a; sync 1% changed", f"rsync -a {small}/ {mirror('rs-small')}/; sync")
    measure("rsync -a 1% changed", f"rsync -a {small}/ {mirror('r-small')}/")

    changed_quiet = change_one_percent(small, seed=13)
    print(f"small tree, {changed_quiet} files changed, quiet mode against full")
    # Two mirrors that lack the same files: ours, and the one rsync -a; sync keeps.
    measure("quillstow quiet 1% changed", f"{tool} --bandwidth quiet {small} {mirror('q-small')}")
    measure("quillstow full 1% changed", f"{tool} --bandwidth full {small} {mirror('rs-small')}")

    print(f"one file of {args.big_mib} MiB, first copy (streamed, full mode)")
    measure("quillstow big", f"{tool} --bandwidth full {big} {mirror('q-big')}")
    measure("cp -a big", f"cp -a {big} {mirror('c-big')}")
    measure("cp -a; sync big", f"cp -a {big} {mirror('cs-big')}; sync")
    measure("rsync -a big", f"rsync -a {big}/ {mirror('r-big')}/")

    def ratio(ours, theirs):
        return results[ours][0] / results[theirs][0]

    print("\nratios (our time / theirs; below 1.0 is faster)")
    print(f"  first copy vs rsync -a; sync      {ratio('quillstow first', 'rsync -a; sync first'):.2f}   (target <= 1.5)")
    print(f"  first copy vs rsync -a            {ratio('quillstow first', 'rsync -a first'):.2f}")
    print(f"  first copy vs cp -a               {ratio('quillstow first', 'cp -a first'):.2f}")
    print(f"  no-op re-run vs rsync -a          {ratio('quillstow no-op', 'rsync -a no-op'):.2f}   (target <= 1.0)")
    print(f"  no-op re-run vs rsync -a --delete {ratio('quillstow no-op', 'rsync -a --delete no-op'):.2f}")
    print(f"  1% changed vs rsync -a; sync      {ratio('quillstow 1% changed', 'rsync -a; sync 1% changed'):.2f}")
    print(f"  1% changed vs rsync -a            {ratio('quillstow 1% changed', 'rsync -a 1% changed'):.2f}")
    big_speed = results["cp -a big"][0] / results["quillstow big"][0]
    print(f"  1 GiB file, speed vs cp -a        {big_speed:.2f}   (target >= 0.9)")
    print(f"  1 GiB file, speed vs cp -a; sync  {results['cp -a; sync big'][0] / results['quillstow big'][0]:.2f}")
    quiet_cost = results["quillstow quiet 1% changed"][0] - results["quillstow full 1% changed"][0]
    print(f"  quiet mode, added per copied file {quiet_cost / max(1, changed_quiet) * 1000:.1f} ms")
    print(f"  peak memory of quillstow-pass     {max(v[1] for k, v in results.items() if k.startswith('quillstow')) / 1024:.1f} MiB")
    print(f"  peak memory, 1 GiB streamed       {results['quillstow big'][1] / 1024:.1f} MiB")
    print(f"\n{work} holds the trees; remove it when done.")


if __name__ == "__main__":
    main()
