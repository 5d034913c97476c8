#!/bin/sh
# Rebuilds the MPEG audio Layer II fixtures and their reference decodes.
# Needs sox, twolame, ffmpeg, lame and mpg123 (Debian packages); the build and the tests do not.
#
# Each NAME.mp2 comes with NAME.f32: mpg123's decode of it as interleaved 32-bit floats,
# plain C core, nothing trimmed at either end, so that its first sample is the first
# sample of the first frame.
set -eu
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A short clip: a sweep, a steady tone and pink noise, different in the two channels so
# that joint stereo has something to work on.
# Noise in both channels, independent, makes twolame's joint stereo pick the higher bounds.
signal() { # rate channels seconds [kind] -> $work/in.wav
    case "${4:-tone}" in
        tone) set -- "$1" "$2" "$3" sine 100:9000 pinknoise sine mix 660 vol 0.8 ;;
        pink) set -- "$1" "$2" "$3" pinknoise pinknoise vol 0.5 ;;
        white) set -- "$1" "$2" "$3" whitenoise whitenoise vol 0.5 ;;
    esac
    rate=$1 channels=$2 seconds=$3
    shift 3
    sox -R -n -r "$rate" -c "$channels" -b 16 "$work/in.wav" synth "$seconds" "$@"
}

reference() { # name
    mpg123 -q --cpu generic --no-gapless -e f32 -O "$1.f32" "$1.mp2"
}

twolame_fixture() { # name rate channels seconds kind twolame-options...
    name=$1
    signal "$2" "$3" "$4" "$5"
    shift 5
    twolame --quiet "$@" "$work/in.wav" "$name.mp2"
    reference "$name"
}

ffmpeg_fixture() { # name rate channels seconds bitrate
    signal "$2" "$3" "$4"
    ffmpeg -v error -y -i "$work/in.wav" -c:a mp2 -b:a "$5" -f mp2 "$1.mp2"
    reference "$1"
}

# MPEG-1: the four allocation tables by rate and bitrate per channel; joint stereo with
# bounds 4 to 16 (mode extensions 0 to 3) and frames of plain stereo between them.
twolame_fixture tl-joint-44k-192      44100 2 0.10 pink  -m j -b 192  # 30 sub-bands, bound 16
twolame_fixture tl-joint-44k-160      44100 2 0.10 white -m j -b 160  # 27 sub-bands, bound 4
twolame_fixture tl-joint-48k-192      48000 2 0.10 white -m j -b 192  # 27 sub-bands, bounds 8, 12
twolame_fixture tl-joint-32k-64       32000 2 0.20 tone  -m j -b 64   # 12 sub-bands, bound 4 and a stereo frame
twolame_fixture tl-stereo-crc-48k-256 48000 2 0.10 tone  -m s -b 256 -p # 27 sub-bands, CRC words
twolame_fixture tl-mono-44k-48        44100 1 0.20 tone  -m m -b 48   # 8 sub-bands
ffmpeg_fixture  ff-stereo-48k-192     48000 2 0.12 192k                # 27 sub-bands
ffmpeg_fixture  ff-mono-32k-64        32000 1 0.20 64k                # 27 sub-bands
# MPEG-2 low rates: one allocation table.
twolame_fixture tl-joint-22k-64       22050 2 0.25 tone  -m j -b 64
twolame_fixture tl-mono-16k-32        16000 1 0.30 tone  -m m -b 32
ffmpeg_fixture  ff-stereo-24k-96      24000 2 0.20 96k

# Every allocation of each of the five allocation tables, in frames written by
# make_allocations.py; to keep them small, the references hold every 8th sample frame only.
# Layer I frames from the same script, mono, joint stereo with every bound, and dual channel
# and stereo at 44.1 kHz with padding slots, likewise.
for table in a b c d lsf layer1-mono layer1-joint layer1-44k; do
    name=alloc-$table width=8
    case $table in layer1-*) name=$table ;; esac
    case $table in *-mono) width=4 ;; esac
    python3 make_allocations.py "$table" "$name.mp2"
    mpg123 -q --cpu generic --no-gapless -e f32 -O "$work/full.f32" "$name.mp2"
    python3 -c 'import sys; d, w = open(sys.argv[1], "rb").read(), int(sys.argv[3]); open(sys.argv[2], "wb").write(b"".join(d[i:i + w] for i in range(0, len(d), 8 * w)))' \
        "$work/full.f32" "$name.every8.f32" "$width"
done

# Free format: this decoder has no size for these frames and decodes them from whatever its
# buffer holds, so there is no reference; the tests only walk the file.
signal 44100 2 0.06 tone
twolame --quiet --freeformat -b 200 "$work/in.wav" tl-free-44k-200.mp2

# A Layer III partner for the joins of both kinds of input (no reference: the join test
# compares against the reader's own decode of it).
signal 44100 1 0.10 tone
lame --quiet -m m -b 64 "$work/in.wav" join-layer3-44k-mono.mp3
