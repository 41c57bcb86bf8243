#!/usr/bin/env python3
"""Measures quillstow-pass side by side with rsync and cp, and with the floor of a no-op pass.

Each case runs against its anchors in interleaved rounds, the order rotating from round to
round so that no command always runs on colder caches than another; it prints the median and
the spread of each and the ratios of the medians.

Cases (trees: FILES small files of SIZES bytes in FOLDERS folders, and one file of BIG_MIB MiB):
- first: a first copy into a fresh folder every time. A copy that is safe against a power cut
  waits for the disk, so the anchors are `cp -a && sync` and `rsync -a && sync`.
- noop: a re-run with nothing changed, against `rsync -a` and `quillstow-stat-walk`, which
  walks both trees on two threads reading every entry's metadata: the floor of any pass.
- changed: a re-run after 1% of the files changed (new ones every round), against
  `rsync -a && sync`.
- big: the one big file into a fresh folder, against `cp -a && sync`.
- quiet (not run unless asked): the cost per copied file of the quiet bandwidth mode.

Every timed run touches 3.5 GiB of memory first: memory freed a few seconds ago goes back to the
host, and the first run after it would pay for getting it again.

With --baseline, every case also runs that build of quillstow-pass, on a mirror of its own in
the re-runs and into a fresh folder of its own in the copies, side by side with the others: a
change measured before and after in one run.

A million-file tree is cheap with `--sizes 0` (empty files: no data to write, and a no-op reads
none) and `--mirrors cp`, which makes the re-runs' mirrors with `cp -a` and settles each with one
untimed run of its own tool: a mirror that tool keeps, made without writing every file through it.
`--reuse` times the re-runs again on the trees an earlier run left in --work (a new build
against the same mirrors): at a million files they take longer to make than to measure.

usage: bench/compare.py [--work DIR] [--files N] [--folders N] [--sizes MIN-MAX] [--big-mib N]
                        [--rounds N] [--cases first,noop,changed,big,quiet] [--tool PATH]
                        [--walker PATH] [--baseline PATH] [--mirrors tool|cp] [--reuse]
"""

import argparse
import os
import random
import shutil
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
BUILD = os.path.join(HERE, "..", "build")


def touch_memory(gib=float(os.environ.get("BENCH_TOUCH_GIB", "3.5"))):
    # In a process of its own: a child started from a process that once held this much would
    # report it as its own peak.
    subprocess.run([sys.executable, "-c",
                    f"b = bytearray({int(gib * (1 << 30))})\n"
                    "for i in range(0, len(b), 4096): b[i] = 1"], check=True)


def parse_sizes(text):
    """"MIN-MAX" or "N" in bytes."""
    low, _, high = text.partition("-")
    sizes = (int(low), int(high or low))
    if sizes[0] < 0 or sizes[1] < sizes[0]:
        raise argparse.ArgumentTypeError(f"sizes must be MIN-MAX with 0 <= MIN <= MAX: {text}")
    return sizes


def make_small_tree(root, files, folders, sizes=(512, 8192), seed=7):
    rng = random.Random(seed)
    per_folder = max(1, files // folders)
    payload = os.urandom(max(16384, 2 * sizes[1]))
    for f in range(folders):
        folder = os.path.join(root, f"d{f // 100:03d}", f"f{f:05d}")
        os.makedirs(folder, exist_ok=True)
        for n in range(per_folder):
            path = os.path.join(folder, f"file{n:03d}.dat")
            size = rng.randint(*sizes)
            if size == 0:
                os.mknod(path, 0o644)  # one call instead of an open and a close
                continue
            start = rng.randint(0, len(payload) - size)
            with open(path, "wb") as out:
                out.write(payload[start:start + size])


def make_big_file(root, mib):
    os.makedirs(root, exist_ok=True)
    chunk = os.urandom(1 << 20)
    with open(os.path.join(root, "big.bin"), "wb") as out:
        for _ in range(mib):
            out.write(chunk)


def make_mirror(tool, source, mirror, how):
    if how == "cp":
        subprocess.run(["cp", "-a", source, mirror], check=True)
    subprocess.run([tool, source, mirror], check=True, stdout=subprocess.DEVNULL)


def count_items(root):
    return sum(len(folders) + len(files) for _, folders, files in os.walk(root))


def change_one_percent(root, seed):
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


def remove(path):
    if os.path.exists(path):
        shutil.rmtree(path)


class Bench:
    def __init__(self, rounds):
        self.rounds = rounds
        self.results = {}

    def interleave(self, title, commands, before_round=None):
        """commands: (name, round -> shell command). Runs every command once a round, the
        order rotating; before_round(round) prepares each round, untimed."""
        print(f"{title} (load average {os.getloadavg()[0]:.1f})", flush=True)
        samples = {name: [] for name, _ in commands}
        for round_number in range(self.rounds):
            if before_round:
                before_round(round_number)
            subprocess.run(["sync"], check=True)
            shift = round_number % len(commands)
            for name, command in commands[shift:] + commands[:shift]:
                samples[name].append(run(command(round_number)))
        print(f"  (load average at the end {os.getloadavg()[0]:.1f})", flush=True)
        for name, values in samples.items():
            seconds = [v[0] for v in values]
            median = statistics.median(seconds)
            peak = max(v[1] for v in values)
            self.results[name] = (median, peak)
            spread = (max(seconds) - min(seconds)) / median * 100 if median else 0.0
            print(f"  {name:<30} {median:8.3f} s  ({min(seconds):.3f}-{max(seconds):.3f}, "
                  f"spread {spread:4.0f}%)  peak {peak / 1024:7.1f} MiB", flush=True)

    def ratio(self, ours, anchor, target=None):
        if ours not in self.results or anchor not in self.results:
            return
        value = self.results[ours][0] / self.results[anchor][0]
        goal = f"   (target <= {target})" if target is not None else ""
        print(f"  {ours} / {anchor}: {value:.2f}{goal}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", default=os.path.join(HERE, "out"))
    parser.add_argument("--files", type=int, default=100_000)
    parser.add_argument("--folders", type=int, default=0, help="default: FILES / 20")
    parser.add_argument("--sizes", type=parse_sizes, default=(512, 8192),
                        help="sizes of the small files in bytes, MIN-MAX or N (default 512-8192)")
    parser.add_argument("--big-mib", type=int, default=1024)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--cases", default="first,noop,changed,big")
    parser.add_argument("--tool", default=os.path.join(BUILD, "tools", "quillstow-pass"))
    parser.add_argument("--walker", default=os.path.join(BUILD, "bench", "quillstow-stat-walk"))
    parser.add_argument("--baseline", help="another quillstow-pass to run beside --tool")
    parser.add_argument("--mirrors", choices=("tool", "cp"), default="tool",
                        help="how the re-runs' mirrors are made: a first pass of their tool, or "
                             "cp -a settled by one run of it")
    parser.add_argument("--reuse", action="store_true",
                        help="time the re-runs again on the source and mirrors an earlier run "
                             "left in --work")
    args = parser.parse_args()
    cases = set(args.cases.split(","))
    folders = args.folders or max(1, args.files // 20)

    for program in ("rsync", "cp", "/usr/bin/time", args.tool, args.walker) + (
            (args.baseline,) if args.baseline else ()):
        if not shutil.which(program):
            sys.exit(f"missing: {program}")
    if args.rounds < 1:
        sys.exit("--rounds must be at least 1")
    work = os.path.abspath(args.work)
    small, big, out = (os.path.join(work, name) for name in ("small", "big", "out"))
    if args.reuse:
        if not os.path.isdir(small):
            sys.exit(f"{small} is missing: nothing to reuse")
        print(f"reusing the trees in {work}", flush=True)
    elif os.path.exists(work):
        sys.exit(f"{work} exists; give a fresh --work folder, or --reuse its trees")
    else:
        os.makedirs(out)
        if cases & {"first", "noop", "changed", "quiet"}:
            print(f"generating {args.files} files of {args.sizes[0]}-{args.sizes[1]} bytes in "
                  f"{folders} folders in {work}", flush=True)
            make_small_tree(small, args.files, folders, args.sizes)
    items = count_items(small) if os.path.isdir(small) else 0
    tool, walker = os.path.abspath(args.tool), os.path.abspath(args.walker)
    baseline = os.path.abspath(args.baseline) if args.baseline else None
    bench = Bench(args.rounds)

    def fresh(name):
        return lambda r: os.path.join(out, f"{name}-{r}")

    def clear(*names):
        def before(r):
            for name in names:
                remove(os.path.join(out, f"{name}-{r - 1}"))
        return before

    def with_baseline(commands, name, anchor_free_command):
        if baseline:
            commands.append((name, anchor_free_command))
        return commands

    def remove_all(*names):
        for r in range(args.rounds):
            for name in names:
                remove(os.path.join(out, f"{name}-{r}"))

    if "first" in cases:
        q, c, rs, b = fresh("q-first"), fresh("c-first"), fresh("rs-first"), fresh("b-first")
        names = ("q-first", "c-first", "rs-first", "b-first")
        bench.interleave(f"first copy of {items} items into a fresh folder", with_baseline([
            ("quillstow first", lambda r: f"{tool} {small} {q(r)}"),
            ("cp -a && sync first", lambda r: f"cp -a {small} {c(r)} && sync"),
            ("rsync -a && sync first", lambda r: f"rsync -a {small}/ {rs(r)}/ && sync"),
        ], "baseline first", lambda r: f"{baseline} {small} {b(r)}"), clear(*names))
        remove_all(*names)

    q_mirror, r_mirror = os.path.join(out, "q-mirror"), os.path.join(out, "r-mirror")
    b_mirror = os.path.join(out, "b-mirror")
    if cases & {"noop", "changed", "quiet"} and args.reuse:
        for mirror in (q_mirror, r_mirror) + ((b_mirror,) if baseline else ()):
            if not os.path.isdir(mirror):
                sys.exit(f"{mirror} is missing: nothing to reuse")
    elif cases & {"noop", "changed", "quiet"}:
        print(f"making the mirrors of the re-runs with {args.mirrors} (untimed)", flush=True)
        make_mirror(tool, small, q_mirror, args.mirrors)
        subprocess.run(["rsync", "-a", f"{small}/", f"{r_mirror}/"], check=True)
        if baseline:
            make_mirror(baseline, small, b_mirror, args.mirrors)

    if "noop" in cases:
        bench.interleave(f"re-run of {items} items, nothing changed", with_baseline([
            ("quillstow no-op", lambda r: f"{tool} {small} {q_mirror}"),
            ("rsync -a no-op", lambda r: f"rsync -a {small}/ {r_mirror}/"),
            ("stat walk of both trees", lambda r: f"{walker} {small} {q_mirror}"),
        ], "baseline no-op", lambda r: f"{baseline} {small} {b_mirror}"))

    if "changed" in cases:
        changed = []
        bench.interleave("re-run after 1% of the files changed", with_baseline([
            ("quillstow 1% changed", lambda r: f"{tool} {small} {q_mirror}"),
            ("rsync -a && sync 1% changed", lambda r: f"rsync -a {small}/ {r_mirror}/ && sync"),
            ("stat walk of both trees, 1%", lambda r: f"{walker} {small} {q_mirror}"),
        ], "baseline 1% changed", lambda r: f"{baseline} {small} {b_mirror}"),
            lambda r: changed.append(change_one_percent(small, seed=100 + r)))

    if "quiet" in cases:
        quiet_changed = []
        bench.interleave("re-run after 1% changed, quiet mode against full", [
            ("quillstow quiet 1% changed", lambda r: f"{tool} --bandwidth quiet {small} {q_mirror}"),
            ("quillstow full 1% changed", lambda r: f"{tool} --bandwidth full {small} {r_mirror}"),
        ], lambda r: quiet_changed.append(change_one_percent(small, seed=200 + r)))

    if "big" in cases:
        # Each copy goes into a folder of its own, made fresh for it; the copies of the round
        # before are removed first, untimed, and the removal flushed before the round begins.
        print(f"generating one file of {args.big_mib} MiB", flush=True)
        make_big_file(big, args.big_mib)
        qb, cb, bb = fresh("q-big"), fresh("c-big"), fresh("b-big")
        names = ("q-big", "c-big", "b-big")
        bench.interleave(f"one file of {args.big_mib} MiB into a fresh folder", with_baseline([
            ("quillstow big", lambda r: f"{tool} --bandwidth full {big} {qb(r)}"),
            ("cp -a && sync big", lambda r: f"cp -a {big} {cb(r)} && sync"),
        ], "baseline big", lambda r: f"{baseline} --bandwidth full {big} {bb(r)}"), clear(*names))
        remove_all(*names)

    print("\nratios of the medians (below 1.0 is faster)")
    bench.ratio("quillstow first", "cp -a && sync first")
    bench.ratio("quillstow first", "rsync -a && sync first", 1.0)
    bench.ratio("quillstow no-op", "rsync -a no-op", 0.6)
    bench.ratio("quillstow no-op", "stat walk of both trees", 1.3)
    bench.ratio("quillstow 1% changed", "rsync -a && sync 1% changed")
    bench.ratio("quillstow 1% changed", "stat walk of both trees, 1%")
    bench.ratio("quillstow no-op", "baseline no-op")
    bench.ratio("baseline no-op", "rsync -a no-op")
    bench.ratio("baseline no-op", "stat walk of both trees")
    bench.ratio("quillstow 1% changed", "baseline 1% changed")
    bench.ratio("baseline 1% changed", "rsync -a && sync 1% changed")
    bench.ratio("quillstow first", "baseline first")
    bench.ratio("baseline first", "rsync -a && sync first")
    bench.ratio("baseline first", "cp -a && sync first")
    bench.ratio("quillstow big", "cp -a && sync big", 1.0)
    bench.ratio("quillstow big", "baseline big")
    bench.ratio("baseline big", "cp -a && sync big")
    if "quillstow no-op" in bench.results:
        peak = bench.results["quillstow no-op"][1] * 1024
        print(f"  peak memory of a no-op pass: {peak / (1 << 20):.1f} MiB, "
              f"{peak / max(1, items):.0f} bytes per listed item (target <= 150)")
    if "quiet" in cases:
        cost = bench.results["quillstow quiet 1% changed"][0] - bench.results["quillstow full 1% changed"][0]
        print(f"  quiet mode, added per copied file: {cost / max(1, statistics.median(quiet_changed)) * 1000:.1f} ms")
    print(f"\n{work} holds the trees; remove it when done.")


if __name__ == "__main__":
    main()
