#!/bin/sh
# Recreates the MP3 test fixtures of this folder and their reference decodes:
#     ./make_fixtures.sh [name...]    (all of them, or only those named)
# Needs sox, lame, mpg123 and python3. Each fixture is a short synthetic clip: a sweep and a
# square wave, a short gap, then a burst of noise with a sharp attack (short blocks); the
# intensity stereo ones are steady tones instead (see the end).
# Reference decodes: mpg123's plain C core, 32-bit float, native byte order, interleaved,
# nothing trimmed at either end (its first sample is the first sample of the first audio
# frame; the Xing/Info frame, when there is one, is not decoded).
set -e
only="$*"
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# signal <rate> <channels> <seconds of the first part> <output.wav>
signal() {
    sox -n -r "$1" -c "$2" -b 16 "$work/a.wav" synth "$3" sine 180-6000 square 330-2000 vol 0.35
    sox -n -r "$1" -c "$2" -b 16 "$work/b.wav" synth 0.015 sine 100 vol 0.01
    sox -n -r "$1" -c "$2" -b 16 "$work/c.wav" synth 0.07 pinknoise fade q 0.002 0.07 0.04 vol 0.7
    sox "$work/a.wav" "$work/b.wav" "$work/c.wav" "$4"
}

# Sets the intensity stereo bit in the mode extension of every joint-stereo frame of a
# file, so that the right channel's upper bands decode from the left (lame writes no
# intensity stereo itself). The file must have no tag and no CRC.
set_intensity() {
    python3 - "$1" <<'PY'
import sys
path = sys.argv[1]
data = bytearray(open(path, 'rb').read())
bitrates = { 3: [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
             2: [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160] }
rates = { 3: [44100, 48000, 32000], 2: [22050, 24000, 16000] }
i = 0
while i + 4 <= len(data):
    assert data[i] == 0xFF and data[i + 1] & 0xE0 == 0xE0, 'frames must follow each other'
    version = (data[i + 1] >> 3) & 3
    if data[i + 3] >> 6 == 1:
        data[i + 3] |= 0x10
    size = bitrates[version][data[i + 2] >> 4] * 144000 // (rates[version][(data[i + 2] >> 2) & 3] << (version != 3))
    i += size + ((data[i + 2] >> 1) & 1)
open(path, 'wb').write(data)
PY
}

# steady <rate> <seconds> <output.wav>: two steady tones faded in, with nothing sudden, so
# that lame writes long blocks only.
steady() {
    sox -n -r "$1" -c 2 -b 16 "$3" synth "$2" sine 300 sine 450 fade h "$(awk "BEGIN { print $2 * 0.8 }")" "$2" 0.03 vol 0.5
}

# fixture <name> <rate> <channels> <seconds> <lame options...>
fixture() {
    name=$1 rate=$2 channels=$3 seconds=$4
    shift 4
    # With arguments, only the fixtures named are made again.
    if [ -n "$only" ] && ! echo " $only " | grep -q " $name "; then return; fi
    case $name in
        intensity-*) steady "$rate" "$seconds" "$work/$name.wav" ;;
        *) signal "$rate" "$channels" "$seconds" "$work/$name.wav" ;;
    esac
    # lame would pick its own output rate for a low bitrate: each call names the rate.
    lame --quiet "$@" "$work/$name.wav" "$name.mp3"
    case $name in intensity-*) set_intensity "$name.mp3" ;; esac
    mpg123 -q --cpu generic --no-gapless -e f32 -O "$name.f32" "$name.mp3"
}

fixture cbr-stereo-44k      44100 2 0.1  -b 128 -m s --resample 44.1
fixture joint-ms-44k        44100 2 0.1  -b 96 -m f --resample 44.1
fixture joint-44k-notag     44100 2 0.1  -b 112 -m j -t --resample 44.1
fixture mono-44k-crc        44100 1 0.15 -b 64 -m m -p --resample 44.1
fixture stereo-32k          32000 2 0.1  -b 96 -m j --resample 32
fixture mono-48k            48000 1 0.15 -b 80 -m m --resample 48
fixture mpeg2-22k-stereo    22050 2 0.2  -b 48 -m j --resample 22.05
fixture mpeg2-24k-mono      24000 1 0.2  -b 32 -m m --resample 24
fixture mpeg2-16k-stereo    16000 2 0.2  -b 32 -m s -t --resample 16
fixture mpeg25-8k-mono       8000 1 0.3  -b 16 -m m --resample 8
fixture mpeg25-11k-stereo   11025 2 0.3  -b 24 -m j --resample 11.025
fixture mpeg25-12k-mono     12000 1 0.3  -b 16 -m m -t --resample 12
fixture vbr-xing-44k        44100 2 0.1  -V 2 -m j --resample 44.1
fixture vbr-xing-22k        22050 1 0.3  -V 4 -m m --resample 22.05
fixture id3v2-44k           44100 1 0.1  -b 64 -m m --id3v2-only --tt "Fixture" --ta "sonajoin" --pad-id3v2 --resample 44.1
fixture freeformat-44k      44100 1 0.1  -b 80 -m m --freeformat -t --resample 44.1
# Long blocks only (a steady signal faded in): intensity stereo of short blocks places its
# lines by this decoder's own rule. At 22050 Hz the right channel's scale factors are read
# with the intensity lengths.
fixture intensity-44k       44100 2 0.15 -b 96 -m j -t --resample 44.1
fixture intensity-22k       22050 2 0.25 -b 40 -m j -t --resample 22.05
