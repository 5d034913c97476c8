#!/usr/bin/env python3
"""Times a join of many WAV files with sonajoin and with the tools people use for it today.

Generates 20 files of 30 s stereo 16-bit 44.1 kHz noise in a temporary folder, joins them
with sonajoin and, each when installed, with sox, sndfile-concat and ffmpeg, and with a plain
`cat` of the same files (the floor: bytes moved without decoding). Every tool runs several
times; the best wall time and the largest peak resident memory are kept, and each peer's
figures are printed as a ratio against sonajoin's, measured in the same run.

    python3 bench/join_benchmark.py [path/to/sonajoin] [--files N] [--seconds S] [--runs R]
"""

import argparse
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time


def write_wav(path, num_frames, num_channels=2, rate=44100, bits=16):
    block_align = num_channels * bits // 8
    data_size = num_frames * block_align
    header = b"RIFF" + struct.pack("<I", 36 + data_size) + b"WAVE"
    header += b"fmt " + struct.pack("<IHHIIHH", 16, 1, num_channels, rate, rate * block_align, block_align, bits)
    header += b"data" + struct.pack("<I", data_size)
    with open(path, "wb") as f:
        f.write(header)
        f.write(os.urandom(data_size))


def measure(command, runs, output, stdout_path=None):
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
        status = subprocess.call(wrapped, stdout=out, stderr=subprocess.DEVNULL)
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


def main():
    args, sonajoin = parse_arguments(30.0, lambda parser: parser.add_argument("--files", type=int, default=20))

    with tempfile.TemporaryDirectory(prefix="sonajoin-bench-") as folder:
        inputs = [os.path.join(folder, "in%02d.wav" % i) for i in range(args.files)]
        for path in inputs:
            write_wav(path, int(args.seconds * 44100))
        output = os.path.join(folder, "out.wav")
        total_mib = sum(os.path.getsize(p) for p in inputs) / (1 << 20)

        tools = [("sonajoin", [sonajoin, "-i", ", ".join(inputs), "-d", output], None)]
        if shutil.which("sox"):
            tools.append(("sox", ["sox"] + inputs + [output], None))
        if shutil.which("sndfile-concat"):
            tools.append(("sndfile-concat", ["sndfile-concat"] + inputs + [output], None))
        if shutil.which("ffmpeg"):
            concat_list = os.path.join(folder, "list.txt")
            with open(concat_list, "w") as f:
                f.writelines("file '%s'\n" % p for p in inputs)
            tools.append(("ffmpeg", ["ffmpeg", "-v", "quiet", "-y", "-f", "concat", "-safe", "0",
                                     "-i", concat_list, "-c", "copy", output], None))
        tools.append(("cat", ["cat"] + inputs, output))

        print("join of %d files, %.0f s stereo 16-bit 44.1 kHz each (%.0f MiB), best of %d runs"
              % (args.files, args.seconds, total_mib, args.runs))
        results = {}
        for name, command, stdout_path in tools:
            results[name] = measure(command, args.runs, output, stdout_path)

        print_ratios(results)


if __name__ == "__main__":
    main()
