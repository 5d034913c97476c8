#!/usr/bin/env python3
"""Times the decoding of MPEG audio files to WAV files with sonajoin and with mpg123 and ffmpeg.

Makes a stereo 44.1 kHz signal of the given length with sox and encodes it at 128 kbit/s with
lame (Layer III) and, when twolame is installed, at 256 kbit/s with twolame (Layer II), in a
temporary folder; then decodes each file with `sonajoin -i x.mp3 -d out.wav` and, each
when installed, with `mpg123 -w` (16-bit output), `mpg123 -e f32 -w` (float output, as
sonajoin writes) and ffmpeg (float output), whole process each. The tools take turns, run
after run, so that a change in the machine's load reaches all of them alike; the median wall
time and the largest peak resident memory are kept, and sonajoin's figures are printed as
ratios against each peer's, measured in the same run. With perf installed, the instructions
each decoder executes are counted too: a figure the load of the machine does not move.

    python3 bench/mp3_decode_benchmark.py [path/to/sonajoin] [--seconds S] [--runs R]
"""

import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from join_benchmark import parse_arguments  # noqa: E402


def main():
    args, sonajoin = parse_arguments(300.0)
    for tool in ("sox", "lame"):
        if not shutil.which(tool):
            sys.exit(tool + " is needed to make the input file")

    with tempfile.TemporaryDirectory(prefix="sonajoin-bench-") as folder:
        signal = os.path.join(folder, "in.wav")
        mp3 = os.path.join(folder, "in.mp3")
        subprocess.check_call(["sox", "-n", "-r", "44100", "-c", "2", "-b", "16", signal, "synth",
                               str(args.seconds), "sine", "100-8000", "pinknoise", "vol", "0.5"])
        subprocess.check_call(["lame", "--quiet", "-b", "128", signal, mp3])
        inputs = [("128 kbit/s Layer III", mp3)]
        if shutil.which("twolame"):
            mp2 = os.path.join(folder, "layer2.mp3")  # sonajoin knows MPEG audio by the .mp3 extension
            subprocess.check_call(["twolame", "--quiet", "-b", "256", signal, mp2])
            inputs.append(("256 kbit/s Layer II", mp2))
        else:
            print("twolame is not installed: no Layer II figures\n")
        output = os.path.join(folder, "out.wav")
        for label, path in inputs:
            decode(sonajoin, label, path, output, args)


def run_once(command, output):
    """Wall time in seconds and peak resident memory in MiB (NaN without GNU time) of one run."""
    if os.path.exists(output):
        os.remove(output)
    time_tool = shutil.which("time") or ("/usr/bin/time" if os.path.exists("/usr/bin/time") else None)
    report = output + ".time"
    wrapped = [time_tool, "-f", "%M", "-o", report] + command if time_tool else command
    start = time.perf_counter()
    status = subprocess.call(wrapped, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    elapsed = time.perf_counter() - start
    if status != 0:
        raise RuntimeError("failed: " + " ".join(command))
    peak = float("nan")
    if time_tool:
        with open(report) as f:
            peak = float(f.read().split()[-1]) / 1024.0
    return elapsed, peak


def count_instructions(command, output):
    """Instructions the command executes in user space, or None without a usable perf."""
    if not shutil.which("perf"):
        return None
    result = subprocess.run(["perf", "stat", "-x", ",", "-e", "instructions:u"] + command,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if os.path.exists(output):
        os.remove(output)
    for line in result.stderr.splitlines():
        fields = line.split(",")
        if len(fields) > 2 and fields[2].startswith("instructions") and fields[0].isdigit():
            return int(fields[0])
    return None


def decode(sonajoin, label, source, output, args):
    """Prints the figures of every installed decoder on one file."""
    tools = [("sonajoin", [sonajoin, "-i", source, "-d", output])]
    if shutil.which("mpg123"):
        tools.append(("mpg123 -w", ["mpg123", "-q", "-w", output, source]))
        tools.append(("mpg123 -e f32 -w", ["mpg123", "-q", "-e", "f32", "-w", output, source]))
    if shutil.which("ffmpeg"):
        tools.append(("ffmpeg f32", ["ffmpeg", "-v", "quiet", "-y", "-i", source, "-c:a", "pcm_f32le", output]))

    times = {name: [] for name, _ in tools}
    peaks = {name: float("nan") for name, _ in tools}
    for _ in range(args.runs):
        for name, command in tools:
            elapsed, peak = run_once(command, output)
            times[name].append(elapsed)
            peaks[name] = peak if peaks[name] != peaks[name] else max(peaks[name], peak)
    instructions = {name: count_instructions(command, output) for name, command in tools}

    print("decoding of %.0f s of %s stereo to WAV, median of %d runs (load average %.1f)"
          % (args.seconds, label, args.runs, os.getloadavg()[0]))
    base = statistics.median(times["sonajoin"])
    row = "%-18s %10s %10s %16s %16s"
    print(row % ("tool", "wall ms", "peak MiB", "instructions M", "sonajoin/tool"))
    for name, _ in tools:
        wall = statistics.median(times[name])
        counted = instructions[name]
        print("%-18s %10.1f %10.1f %16s %16.2f" % (name, wall * 1000, peaks[name],
                                                   "%.0f" % (counted / 1e6) if counted else "-", base / wall))
    print()


if __name__ == "__main__":
    main()
