#!/usr/bin/env python3
"""Times joins with sonajoin and with the tools people use for them today, in the same run.

Three workloads, each joined by sonajoin and, each when installed, by sox, sndfile-concat,
shntool and ffmpeg, and by a plain `cat` of the same files (the floor: bytes moved without
decoding):

    many  20 files of 30 s stereo 16-bit 44.1 kHz noise into one WAV
    tiny  3000 files of 0.1 s: the cost of each input rather than of its samples
    big   two files of 2.2 GiB into one RF64 of 4.6 GB (only with --big: it needs about 14 GB
          of free disk in --folder, and the files are deleted afterwards)

Every tool runs several times; the best wall time and the largest peak resident memory are
kept, each tool's figures are printed as ratios against sonajoin's, and sonajoin's time
against the targets' peers. The machine's load average is printed with each workload, as
ratios mean more than absolute times on a shared machine.

    python3 bench/join_benchmark.py [path/to/sonajoin] [--workloads many,tiny] [--big] [--runs R]
"""

import argparse
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time


def write_wav(path, num_frames, num_channels=2, rate=44100, bits=16, pattern=None):
    """A plain RIFF/WAVE file of noise; pattern (bytes) repeated instead of fresh noise for large files."""
    block_align = num_channels * bits // 8
    data_size = num_frames * block_align
    header = b"RIFF" + struct.pack("<I", (36 + data_size) & 0xFFFFFFFF) + b"WAVE"
    header += b"fmt " + struct.pack("<IHHIIHH", 16, 1, num_channels, rate, rate * block_align, block_align, bits)
    header += b"data" + struct.pack("<I", data_size & 0xFFFFFFFF)
    with open(path, "wb") as f:
        f.write(header)
        if pattern is None:
            f.write(os.urandom(data_size))
            return
        for start in range(0, data_size, len(pattern)):
            f.write(pattern[:min(len(pattern), data_size - start)])


def measure(command, runs, output, stdout_path=None, cwd=None):
    """Best wall time in seconds and peak resident memory in MiB over runs of command.

    The peak comes from GNU time when it is installed: the rusage of a child forked from
    this Python process would count the interpreter's pages too.
    """
    best_time = float("inf")
    peak = float("nan")
    time_tool = shutil.which("time") or ("/usr/bin/time" if os.path.exists("/usr/bin/time") else None)
    for _ in range(runs):
        if os.path.exists(output):
            os.remove(output)
        report = output + ".time"
        wrapped = [time_tool, "-f", "%M", "-o", report] + command if time_tool else command
        out = open(stdout_path, "wb") if stdout_path else subprocess.DEVNULL
        start = time.perf_counter()
        status = subprocess.call(wrapped, stdout=out, stderr=subprocess.DEVNULL, cwd=cwd)
        elapsed = time.perf_counter() - start
        if stdout_path:
            out.close()
        if status != 0:
            raise RuntimeError("failed: " + " ".join(command))
        best_time = min(best_time, elapsed)
        if time_tool:
            with open(report) as f:
                kib = float(f.read().split()[-1])
            peak = kib / 1024.0 if peak != peak else max(peak, kib / 1024.0)
    return best_time, peak


def print_ratios(results, name_width=16):
    """One line a tool: best wall time, peak memory, and both as ratios against sonajoin's."""
    base_time, base_memory = results["sonajoin"]
    row = "%-{0}s %10s %10s %14s %14s".format(name_width)
    print(row % ("tool", "wall ms", "peak MiB", "time/sonajoin", "mem/sonajoin"))
    for name, (wall, memory) in results.items():
        print(("%-{0}s %10.1f %10.1f %14.2f %14.2f".format(name_width))
              % (name, wall * 1000, memory, wall / base_time, memory / base_memory))


def parse_arguments(seconds, extra=None):
    """The benchmarks' shared command line, and the absolute path of a runnable sonajoin."""
    parser = argparse.ArgumentParser()
    parser.add_argument("sonajoin", nargs="?", default="build/release/sonajoin")
    parser.add_argument("--seconds", type=float, default=seconds)
    parser.add_argument("--runs", type=int, default=5)
    if extra:
        extra(parser)
    args = parser.parse_args()
    sonajoin = os.path.abspath(args.sonajoin)
    if not os.access(sonajoin, os.X_OK):
        sys.exit("sonajoin not found at " + sonajoin + " (build the release preset first)")
    return args, sonajoin


# The targets: sonajoin's best time at most this many times the peer's, per workload.
TARGETS = {"many": {"cat": 1.3, "sox": 0.4}, "tiny": {"sox": 1.0}, "big": {"cat": 2.0}}
PEAK_MEMORY_TARGET_MIB = 16


def peer_commands(names, output):
    """The join by each installed peer of names (relative to the working folder) into output."""
    tools = []
    if shutil.which("sox"):
        tools.append(("sox", ["sox"] + names + [output], None))
    if shutil.which("sndfile-concat"):
        tools.append(("sndfile-concat", ["sndfile-concat"] + names + [output], None))
    if shutil.which("shntool"):
        # shntool names its output itself: joined.wav in the folder given.
        tools.append(("shntool", ["shntool", "join", "-q", "-O", "always", "-d", os.path.dirname(output)] + names,
                      None))
    if shutil.which("ffmpeg"):
        tools.append(("ffmpeg", ["ffmpeg", "-v", "quiet", "-y", "-f", "concat", "-safe", "0", "-i", "list.txt",
                                 "-c", "copy", output], None))
    tools.append(("cat", ["cat"] + names, output))
    return tools


def run_workload(name, sonajoin, folder, names, peers, runs):
    """Joins names (files in folder) with sonajoin and the peers named; prints the table and the targets."""
    with open(os.path.join(folder, "list.txt"), "w") as f:
        f.writelines("file '%s'\n" % n for n in names)
    output = os.path.join(folder, "out" + (".rf64.wav" if name == "big" else ".wav"))
    tools = [("sonajoin", [sonajoin, "-i", ", ".join(names), "-d", output], None)]
    tools += [t for t in peer_commands(names, output) if t[0] in peers]
    results = {}
    for tool, command, stdout_path in tools:
        target = os.path.join(folder, "joined.wav") if tool == "shntool" else output
        results[tool] = measure(command, runs, target, stdout_path, cwd=folder)
        for leftover in (output, os.path.join(folder, "joined.wav")):
            if os.path.exists(leftover):
                os.remove(leftover)
    print_ratios(results)
    wall, memory = results["sonajoin"]
    for peer, limit in TARGETS[name].items():
        if peer in results:
            ratio = wall / results[peer][0]
            print("  sonajoin/%s = %.2f (target at most %.1f)%s" % (peer, ratio, limit, "" if ratio <= limit else "  MISSED"))
    print("  sonajoin peak = %.1f MiB (target at most %d)" % (memory, PEAK_MEMORY_TARGET_MIB))


def main():
    args, sonajoin = parse_arguments(30.0, lambda parser: (
        parser.add_argument("--files", type=int, default=20),
        parser.add_argument("--workloads", default="many,tiny"),
        parser.add_argument("--big", action="store_true", help="also the 2 x 2.2 GiB join (about 14 GB of disk)"),
        parser.add_argument("--folder", default=None, help="where the files are made (a temporary folder)")))
    workloads = [w for w in args.workloads.split(",") if w] + (["big"] if args.big else [])
    all_peers = ("sox", "sndfile-concat", "shntool", "ffmpeg", "cat")

    for name in workloads:
        with tempfile.TemporaryDirectory(prefix="sonajoin-bench-", dir=args.folder) as folder:
            if name == "many":
                names = ["in%02d.wav" % i for i in range(args.files)]
                frames, runs, peers = int(args.seconds * 44100), args.runs, all_peers
                label = "%d files of %.0f s stereo 16-bit 44.1 kHz" % (args.files, args.seconds)
            elif name == "tiny":
                names = ["t%04d.wav" % i for i in range(3000)]
                frames, runs, peers = 4410, args.runs, all_peers
                label = "3000 files of 0.1 s stereo 16-bit 44.1 kHz"
            else:
                names = ["big%d.wav" % i for i in range(2)]
                frames, runs, peers = (int(2.2 * (1 << 30)) // 4), min(args.runs, 2), ("sox", "cat")
                label = "2 files of 2.2 GiB stereo 16-bit into one RF64"
            pattern = os.urandom(1 << 24) if name == "big" else None
            for n in names:
                write_wav(os.path.join(folder, n), frames, pattern=pattern)
            total_mib = sum(os.path.getsize(os.path.join(folder, n)) for n in names) / (1 << 20)
            print("%s: %s (%.0f MiB), best of %d runs, load average %s"
                  % (name, label, total_mib, runs, " ".join("%.1f" % x for x in os.getloadavg())))
            run_workload(name, sonajoin, folder, names, peers, runs)
            print()


if __name__ == "__main__":
    main()
