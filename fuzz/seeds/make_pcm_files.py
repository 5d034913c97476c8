#!/usr/bin/env python3
"""Writes small WAV, RF64 and Wave64 files holding every metadata chunk the WAV reader knows,
for its fuzz target: bext, cue, LIST INFO, LIST adtl (labl, note, ltxt), axml, chna and dbmd,
and in Wave64 the LIST and bext chunks. No encoder at hand writes all of them in one file.
Then AIFF and AIFF-C files with FVER and MARK chunks, for the AIFF target.

Usage: make_pcm_files.py DBMD_PAYLOAD WAV_FOLDER AIFF_FOLDER
"""
import os
import struct
import sys

GUID_TAIL_RIFF = bytes([0x2E, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00])
GUID_TAIL_WAVE = bytes([0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A])
LIST_GUID = b'list' + bytes([0x2F]) + GUID_TAIL_RIFF[1:]
PCM_SUBFORMAT = bytes([1, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71])


def chunk(name, payload):
    return name + struct.pack('<I', len(payload)) + payload + b'\0' * (len(payload) & 1)


def fmt(extensible=False):
    plain = struct.pack('<HHIIHH', 0xFFFE if extensible else 1, 2, 48000, 192000, 4, 16)
    return plain + (struct.pack('<HHI', 22, 16, 3) + PCM_SUBFORMAT if extensible else b'')


def bext():
    fixed = bytearray(602)
    fixed[0:11] = b'description'
    fixed[256:266] = b'originator'
    fixed[320:330] = b'2026-11-24'
    fixed[330:338] = b'05:30:00'
    fixed[338:346] = struct.pack('<Q', 48000 * 3600 + 4800)
    fixed[346:348] = struct.pack('<H', 2)
    fixed[348:380] = bytes(range(1, 33))  # UMID
    return bytes(fixed) + b'A=PCM,F=48000,W=16,M=stereo\r\n'


def cue():
    points = [(1, 0, 0), (2, 16, 16), (3, 40, 40)]
    return struct.pack('<I', len(points)) + b''.join(
        struct.pack('<II4sIII', ident, position, b'data', 0, 0, offset) for ident, position, offset in points)


def info():
    return b'INFO' + b''.join(chunk(name, text + b'\0') for name, text in
                              [(b'INAM', b'seed'), (b'IART', b'artist'), (b'ICMT', b'comment'),
                               (b'ICRD', b'2026'), (b'ISFT', b'script')])


def adtl():
    return b'adtl' + chunk(b'labl', struct.pack('<I', 1) + b'first\0') \
        + chunk(b'note', struct.pack('<I', 2) + b'a note\0') \
        + chunk(b'ltxt', struct.pack('<IIIHHHH', 3, 24, 0x206E6772, 1, 9, 0, 437) + b'region\0')


def chna():
    entries = [(1, b'ATU_00000001', b'AT_00031001_01', b'AP_00031001'),
               (2, b'ATU_00000002', b'AT_00031002_01', b'AP_00031002')]
    return struct.pack('<HH', 2, 2) + b''.join(
        struct.pack('<H', track) + uid + ref + pack + b'\0' for track, uid, ref, pack in entries)


def axml():
    return b'<?xml version="1.0"?><ebuCoreMain><coreMetadata/></ebuCoreMain>'


def samples(frames=48):
    return b''.join(struct.pack('<hh', 400 * i, -300 * i) for i in range(frames))


def riff_wave(chunks, rf64=False):
    body = b'WAVE' + b''.join(chunks)
    if not rf64:
        return b'RIFF' + struct.pack('<I', len(body)) + body
    data_size = len(samples())
    ds64 = chunk(b'ds64', struct.pack('<QQQI', len(body) + 36, data_size, data_size // 4, 0))
    chunks = [b'data' + struct.pack('<I', 0xFFFFFFFF) + c[8:] if c.startswith(b'data') else c for c in chunks]
    return b'RF64' + struct.pack('<I', 0xFFFFFFFF) + b'WAVE' + ds64 + b''.join(chunks)


def wave64_chunk(guid, payload):
    return guid + struct.pack('<Q', len(payload) + 24) + payload + b'\0' * (-len(payload) % 8)


def wave64(chunks):
    body = b'wave' + GUID_TAIL_WAVE + b''.join(chunks)
    return b'riff' + GUID_TAIL_RIFF + struct.pack('<Q', len(body) + 24) + body


def extended(rate):
    exponent = 16383 + rate.bit_length() - 1
    return struct.pack('>HQ', exponent, rate << (64 - rate.bit_length()))


def aiff_chunk(name, payload):
    return name + struct.pack('>I', len(payload)) + payload + b'\0' * (len(payload) & 1)


def aiff(compression=None, frames=32):
    comm = struct.pack('>hIh', 2, frames, 16) + extended(44100)
    if compression:
        comm += compression + b'\x0bdescription'
    sound = b''.join(struct.pack('>hh' if compression != b'sowt' else '<hh', 500 * i, -200 * i) for i in range(frames))
    markers = [(1, 0, b'\x05start'), (2, 20, b'\x04loop\0')]
    mark = struct.pack('>H', len(markers)) + b''.join(struct.pack('>hI', i, p) + n for i, p, n in markers)
    chunks = [aiff_chunk(b'COMM', comm), aiff_chunk(b'MARK', mark), aiff_chunk(b'SSND', struct.pack('>II', 0, 0) + sound)]
    if compression:
        chunks.insert(0, aiff_chunk(b'FVER', struct.pack('>I', 0xA2805140)))
    body = (b'AIFC' if compression else b'AIFF') + b''.join(chunks)
    return b'FORM' + struct.pack('>I', len(body)) + body


def main():
    dbmd = open(sys.argv[1], 'rb').read()
    folder = sys.argv[2]
    metadata = [chunk(b'bext', bext()), chunk(b'cue ', cue()), chunk(b'LIST', info()), chunk(b'LIST', adtl()),
                chunk(b'axml', axml()), chunk(b'chna', chna()), chunk(b'dbmd', dbmd)]
    data = chunk(b'data', samples())
    files = {
        'every-chunk-before-data.wav': riff_wave([chunk(b'fmt ', fmt())] + metadata + [data]),
        'every-chunk-after-data.wav': riff_wave([chunk(b'fmt ', fmt(True)), data] + metadata),
        'bext-before-fmt.wav': riff_wave(metadata[:1] + [chunk(b'fmt ', fmt()), data] + metadata[1:]),
        'every-chunk.rf64.wav': riff_wave([chunk(b'fmt ', fmt())] + metadata + [data], rf64=True),
        'list-and-bext.w64': wave64([wave64_chunk(b'fmt ' + GUID_TAIL_WAVE, fmt()),
                                     wave64_chunk(b'bext' + GUID_TAIL_WAVE, bext()),
                                     wave64_chunk(LIST_GUID, info()),
                                     wave64_chunk(b'data' + GUID_TAIL_WAVE, samples()),
                                     wave64_chunk(LIST_GUID, adtl())]),
    }
    write(folder, files)
    write(sys.argv[3], {'marks.aiff': aiff(), 'none.aifc': aiff(b'NONE'), 'sowt.aifc': aiff(b'sowt')})


def write(folder, files):
    os.makedirs(folder, exist_ok=True)
    for name, content in files.items():
        with open(os.path.join(folder, name), 'wb') as out:
            out.write(content)


main()
