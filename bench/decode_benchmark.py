#!/usr/bin/env python3
"""Times the decoding of MPEG audio files to WAV with sonajoin and with mpg123, ffmpeg and sox.

Makes a 60 s stereo test signal with sox, encodes it with lame (Layer III, 192 kbit/s joint
stereo) and twolame (Layer II, 256 kbit/s), then decodes each file to a WAV with every tool
that is installed. sonajoin decodes by joining the single file into a WAV (32-bit float,
the depth of its MPEG input). Prints best wall times and peak memory as ratios against
sonajoin's, measured in the same run.

    python3 bench/decode_benchmark.py [path/to/sonajoin] [--seconds S] [--runs R]
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile

from join_benchmark import measure


def make_sources(folder, seconds):
    """The encoded files, as (label, path) pairs, for the encoders that are installed."""
    if not shutil.which("sox"):
        sys.exit("sox is needed to make the test signal")
    source = os.path.join(folder, "source.wav")
    subprocess.check_call(["sox", "-n", "-r", "44100", "-c", "2", "-b", "16", source, "synth", str(seconds),
                           "pluck", "220", "sine", "330", "tremolo", "3", "vol", "0.7"])
    files = []
    if shutil.which("lame"):
        path = os.path.join(folder, "layer3.mp3")
        subprocess.check_call(["lame", "--silent", "-b", "192", "-m", "j", source, path])
        files.append(("Layer III 192k", path))
    if shutil.which("twolame"):
        path = os.path.join(folder, "layer2.mp2")
        subprocess.check_call(["twolame", "--quiet", "-b", "256", source, path])
        files.append(("Layer II 256k", path))
    return files


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("sonajoin", nargs="?", default="build/release/sonajoin")
    parser.add_argument("--seconds", type=float, default=60.0)
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()

    sonajoin = os.path.abspath(args.sonajoin)
    if not os.access(sonajoin, os.X_OK):
        sys.exit("sonajoin not found at " + sonajoin + " (build the release preset first)")

    with tempfile.TemporaryDirectory(prefix="sonajoin-decode-") as folder:
        output = os.path.join(folder, "out.wav")
        for label, path in make_sources(folder, args.seconds):
            tools = [("sonajoin", [sonajoin, "-i", path, "-d", output])]
            if shutil.which("mpg123"):
                tools.append(("mpg123", ["mpg123", "-q", "-w", output, path]))
            if shutil.which("ffmpeg"):
                tools.append(("ffmpeg", ["ffmpeg", "-v", "quiet", "-y", "-i", path, output]))
            if shutil.which("sox"):
                tools.append(("sox", ["sox", path, output]))

            print("%s: %.0f s stereo 44.1 kHz, best of %d runs" % (label, args.seconds, args.runs))
            results = {}
            for name, command in tools:
                try:
                    results[name] = measure(command, args.runs, output)
                except RuntimeError:
                    print("  %s cannot decode this file" % name)
            base_time, base_memory = results["sonajoin"]
            print("%-12s %10s %10s %14s %14s" % ("tool", "wall ms", "peak MiB", "time/sonajoin", "mem/sonajoin"))
            for name, (wall, memory) in results.items():
                print("%-12s %10.1f %10.1f %14.2f %14.2f"
                      % (name, wall * 1000, memory, wall / base_time, memory / base_memory))
            print()


if __name__ == "__main__":
    main()
