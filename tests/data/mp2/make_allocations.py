#!/usr/bin/env python3
"""Writes Layer II streams that use every allocation of one bit allocation table.

No encoder reaches the rare quantisers (16-bit codes in the upper sub-bands, 9 levels in
the low-rate table...), so these frames are written directly: each frame gives a few
(sub-band, allocation) pairs to the two channels of a plain stereo stream, as many as its
bits allow, until every pair of the table has been used, with random scale factors, scale
factor selections and codes. A decoder with a wrong table entry loses the bitstream's
thread at once, which the comparison with mpg123's decode then shows.

Usage: make_allocations.py TABLE OUTPUT.mp2, TABLE one of a, b, c, d, lsf.

With TABLE layer1-mono or layer1-joint it writes Layer I frames instead (no encoder at hand
writes Layer I): random allocations of 1 to 14 as far as the frame's bits go, in mono, or
in stereo frames whose joint stereo bound runs through 4, 8, 12 and 16 and then plain stereo;
with layer1-44k, dual channel and stereo frames at 44.1 kHz, some with the padding slot.
"""
import random
import sys

# Steps of each allocation, by runs of sub-bands: (count, allocation bits, steps...).
WIDE = [0, 3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535]
MIDDLE = [0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535]
UPPER = [0, 3, 5, 7, 9, 15, 31, 65535]
TOP = [0, 3, 5, 65535]
LOW_WIDE = [0, 3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767]
LOW_NARROW = [0, 3, 5, 9, 15, 31, 63, 127]
LSF_WIDE = [0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383]
LSF_TOP = [0, 3, 5, 9]

# Per table: the runs, then the header's version bit, bitrate index and rate index, all
# stereo, chosen so that the standard's rule picks that table.
TABLES = {
    'a': ([(3, 4, WIDE), (8, 4, MIDDLE), (12, 3, UPPER), (4, 2, TOP)], 1, 14, 1, 1152),  # 48 kHz, 384
    'b': ([(3, 4, WIDE), (8, 4, MIDDLE), (12, 3, UPPER), (7, 2, TOP)], 1, 14, 2, 1728),  # 32 kHz, 384
    'c': ([(2, 4, LOW_WIDE), (6, 3, LOW_NARROW)], 1, 6, 1, 288),                        # 48 kHz, 96
    'd': ([(2, 4, LOW_WIDE), (10, 3, LOW_NARROW)], 1, 6, 2, 432),                       # 32 kHz, 96
    'lsf': ([(4, 4, LSF_WIDE), (7, 3, LOW_NARROW), (19, 2, LSF_TOP)], 0, 14, 1, 960),  # 24 kHz, 160
}


def code_bits(steps):
    """Bits of one granule's three samples: one grouped code or three plain ones."""
    if steps in (3, 5, 9):
        return {3: 5, 5: 7, 9: 10}[steps]
    return 3 * steps.bit_length()


class Bits:
    def __init__(self):
        self.bits = []

    def put(self, value, width):
        self.bits.extend((value >> (width - 1 - i)) & 1 for i in range(width))

    def bytes(self, size):
        assert len(self.bits) <= size * 8, (len(self.bits), size)
        padded = self.bits + [0] * (size * 8 - len(self.bits))
        return bytes(int(''.join(map(str, padded[i:i + 8])), 2) for i in range(0, len(padded), 8))


def layer1(kind, output):
    rng = random.Random(kind)
    stream = b''
    # (mode, mode extension, padding): 32 kHz at 448 kbit/s makes 672-byte frames; 44.1 kHz
    # at 384 kbit/s 416 bytes, or 420 with the padding slot.
    rate, bitrate, slots = (2, 14, 168) if kind != 'layer1-44k' else (0, 12, 104)
    modes = {'layer1-mono': [(3, 0, 0)] * 6,
             'layer1-joint': [(1, 0, 0), (1, 1, 0), (1, 2, 0), (1, 3, 0), (0, 0, 0), (1, 1, 0)],
             'layer1-44k': [(2, 0, 0), (2, 0, 1), (0, 0, 1), (2, 0, 0), (0, 0, 1), (2, 0, 1)]}[kind]
    for mode, extension, padding in modes:
        size = (slots + padding) * 4
        channels = 1 if mode == 3 else 2
        bound = extension * 4 + 4 if mode == 1 else 32
        budget = size * 8 - 32 - 4 * (32 + min(bound, 32) * (channels - 1))
        allocation = [[0] * 32 for _ in range(2)]
        for sb in range(32):
            for ch in range(channels if sb < bound else 1):
                a = rng.randrange(1, 15)
                cost = 6 * (channels if sb >= bound else 1) + 12 * (a + 1)
                if cost <= budget:
                    allocation[ch][sb] = a
                    budget -= cost
            if sb >= bound:
                allocation[1][sb] = allocation[0][sb]
        w = Bits()
        w.put(0xFFFF, 16)  # MPEG-1 Layer I, no CRC
        w.put(bitrate, 4)
        w.put(rate, 2)
        w.put(padding, 1)
        w.put(0, 1)
        w.put(mode, 2)
        w.put(extension, 2)
        w.put(0, 4)
        for sb in range(32):
            for ch in range(channels if sb < bound else 1):
                w.put(allocation[ch][sb], 4)
        for sb in range(32):
            for ch in range(channels):
                if allocation[ch][sb]:
                    w.put(rng.randrange(9, 40), 6)
        for _ in range(12):
            for sb in range(32):
                for ch in range(channels if sb < bound else 1):
                    a = allocation[ch][sb]
                    if a:
                        w.put(rng.randrange((1 << (a + 1)) - 1), a + 1)
        stream += w.bytes(size)
    with open(output, 'wb') as f:
        f.write(stream)


def main():
    table, output = sys.argv[1], sys.argv[2]
    if table.startswith('layer1'):
        return layer1(table, output)
    runs, version, bitrate, rate, frame_bytes = TABLES[table]
    rng = random.Random(table)
    subbands = []  # (allocation bits, steps) per sub-band
    for count, nbal, steps in runs:
        subbands += [(nbal, steps)] * count
    pending = [(sb, a) for sb, (nbal, _) in enumerate(subbands) for a in range(1, 1 << nbal)]
    rng.shuffle(pending)
    fixed = 32 + sum(2 * nbal for nbal, _ in subbands)  # header and both channels' allocations
    stream = b''
    while pending:
        allocation = [[0] * len(subbands) for _ in range(2)]
        used = fixed
        for pair in list(pending):
            sb, a = pair
            cost = 2 + 18 + 12 * code_bits(subbands[sb][1][a])
            for ch in range(2):
                if allocation[ch][sb] == 0 and used + cost <= frame_bytes * 8:
                    allocation[ch][sb] = a
                    used += cost
                    pending.remove(pair)
                    break
        stream += frame(allocation, subbands, version, bitrate, rate, frame_bytes, rng)
    with open(output, 'wb') as f:
        f.write(stream)


def frame(allocation, subbands, version, bitrate, rate, frame_bytes, rng):
    w = Bits()
    w.put(0xFFF, 12)
    w.put(version, 1)
    w.put(2, 2)  # Layer II
    w.put(1, 1)  # no CRC
    w.put(bitrate, 4)
    w.put(rate, 2)
    w.put(0, 2)  # no padding, private bit
    w.put(0, 2)  # stereo
    w.put(0, 6)  # mode extension, copyright, original, emphasis
    for sb, (nbal, _) in enumerate(subbands):
        for ch in range(2):
            w.put(allocation[ch][sb], nbal)
    selection = [[rng.randrange(4) for _ in subbands] for _ in range(2)]
    for sb in range(len(subbands)):
        for ch in range(2):
            if allocation[ch][sb]:
                w.put(selection[ch][sb], 2)
    for sb in range(len(subbands)):
        for ch in range(2):
            if allocation[ch][sb]:
                for _ in range({0: 3, 1: 2, 2: 1, 3: 2}[selection[ch][sb]]):
                    w.put(rng.randrange(12, 40), 6)  # quiet enough for the sum of bands
    for _ in range(12):
        for sb, (_, steps) in enumerate(subbands):
            for ch in range(2):
                s = steps[allocation[ch][sb]]
                if s == 0:
                    continue
                if s in (3, 5, 9):
                    w.put(rng.randrange(s ** 3), code_bits(s))
                else:
                    for _ in range(3):
                        w.put(rng.randrange(s), s.bit_length())
    return w.bytes(frame_bytes)


if __name__ == '__main__':
    main()
