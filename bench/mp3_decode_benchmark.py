#!/usr/bin/env python3
"""Times the decoding of MPEG audio files to WAV files with sonajoin and with mpg123 and ffmpeg.

Makes a stereo 44.1 kHz signal of the given length with sox and encodes it at 128 kbit/s with
lame (Layer III) and, when twolame is installed, at 256 kbit/s with twolame (Layer II), in a
temporary folder; then decodes each file with `sonajoin -i x.mp3 -d out.wav` and, each
when installed, with `mpg123 -w` (16-bit output), `mpg123 -e f32 -w` (float output, as
sonajoin writes) and ffmpeg (float output), whole process each. Every tool runs several
times; the best wall time and the largest peak resident memory are kept, and each peer's
figures are printed as a ratio against sonajoin's, measured in the same run.

    python3 bench/mp3_decode_benchmark.py [path/to/sonajoin] [--seconds S] [--runs R]
"""

import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from join_benchmark import measure, parse_arguments, print_ratios  # noqa: E402


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
        output = os.path.join(folder, "out.wav")
        for label, path in inputs:
            decode(sonajoin, label, path, output, args)


def decode(sonajoin, label, source, output, args):
    """Prints the figures of every installed decoder on one file."""
    tools = [("sonajoin", [sonajoin, "-i", source, "-d", output])]
    if shutil.which("mpg123"):
        tools.append(("mpg123 -w", ["mpg123", "-q", "-w", output, source]))
        tools.append(("mpg123 -e f32 -w", ["mpg123", "-q", "-e", "f32", "-w", output, source]))
    if shutil.which("ffmpeg"):
        tools.append(("ffmpeg f32", ["ffmpeg", "-v", "quiet", "-y", "-i", source, "-c:a", "pcm_f32le", output]))

    print("decoding of %.0f s of %s stereo to WAV, best of %d runs" % (args.seconds, label, args.runs))
    results = {name: measure(command, args.runs, output) for name, command in tools}

    print_ratios(results, 18)
    print()


if __name__ == "__main__":
    main()
