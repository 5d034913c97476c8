#!/usr/bin/env python3
"""Writes short MPEG audio streams with hand-made frames, for the MP3 reader's fuzz target.

No encoder at hand writes Layer I, Layer I or II at MPEG-2.5 rates, or free format of every
layer, so these frames are written directly: every version (1, 2, 2.5), every layer, the
lowest and highest bitrate index and free format, four frames each. The first frame of each
stream is silent (no allocation, empty side information); the others carry random Layer I
bits with allocations held low, random Layer II bits, or silent Layer III granules,
cycling through the channel modes.

Usage: make_mpeg_frames.py OUTPUT_FOLDER
"""
import os
import random
import sys

BITRATES = {  # kbps by (MPEG-1?, layer)
    (True, 1): [0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448],
    (True, 2): [0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384],
    (True, 3): [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
    (False, 1): [0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256],
    (False, 2): [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160],
}
BITRATES[(False, 3)] = BITRATES[(False, 2)]
VERSIONS = {'1': (3, [44100, 48000, 32000]), '2': (2, [22050, 24000, 16000]), '2.5': (0, [11025, 12000, 8000])}


class Bits:
    def __init__(self):
        self.bits = []

    def put(self, value, count):
        self.bits += [(value >> (count - 1 - i)) & 1 for i in range(count)]

    def bytes(self, size):
        bits = (self.bits + [0] * (8 * size))[:8 * size]
        return bytes(int(''.join(map(str, bits[i:i + 8])), 2) for i in range(0, len(bits), 8))


def layer1_payload(rng, channels, bound, size):
    # Random bits, with the allocation nibbles held to 0..7: 15 is forbidden, and the larger
    # ones would spend the frame's bits on a few sub-bands.
    allocation_bytes = (32 * channels if bound == 32 else bound * channels + 32 - bound) // 2
    payload = bytearray(rng.getrandbits(8) for _ in range(size))
    for i in range(min(allocation_bytes, size)):
        payload[i] &= 0x77
    return bytes(payload)


def frame(rng, version, layer, index, rate_index, mode, number):
    mpeg1 = version == '1'
    rate = VERSIONS[version][1][rate_index]
    kbps = BITRATES[(mpeg1, layer)][index] or (480 if mpeg1 else 200)  # free format: beyond the table
    unit = 4 if layer == 1 else 1
    per_slot = 12 if layer == 1 else (144 if mpeg1 or layer == 2 else 72)
    size = (per_slot * kbps * 1000 // rate) * unit
    extension = number % 4
    bits = Bits()
    for value, count in [(0x7FF, 11), (VERSIONS[version][0], 2), (4 - layer, 2), (1, 1), (index, 4),
                         (rate_index, 2), (0, 1), (0, 1), (mode, 2), (extension, 2), (0, 4)]:
        bits.put(value, count)
    header = bits.bytes(4)
    channels = 1 if mode == 3 else 2
    body = size - 4
    if number == 0 or layer == 3:
        return header + bytes(body)
    if layer == 1:
        bound = 4 + 4 * extension if mode == 1 else 32
        return header + layer1_payload(rng, channels, bound, body)
    return header + bytes(rng.getrandbits(8) for _ in range(body))


def main():
    folder = sys.argv[1]
    os.makedirs(folder, exist_ok=True)
    rng = random.Random(17)
    for version in VERSIONS:
        for layer in (1, 2, 3):
            for index, label in ((1, 'lowest'), (14, 'highest'), (0, 'free')):
                rate_index = rng.randint(0, 2)
                frames = b''.join(frame(rng, version, layer, index, rate_index, 1 if index == 0 else number % 4, number)
                                  for number in range(4))
                name = f'mpeg{version.replace(".", "")}-layer{layer}-{label}.mp{layer}'
                with open(os.path.join(folder, name), 'wb') as out:
                    out.write(frames)


main()
