#include "audiofiles/KvoWavFileReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "audiofiles/KvoPcmSampleCoding.h"
#include "core/KvoException.h"
#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

/** A four-byte chunk identifier as the little-endian integer the file holds it as. */
constexpr uint32_t FourCC(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) | uint32_t(uint8_t(text[1])) << 8 | uint32_t(uint8_t(text[2])) << 16
           | uint32_t(uint8_t(text[3])) << 24;
}

using Guid = std::array<uint8_t, 16>;

// Wave64 chunk identifiers, byte for byte as they stand in a file.
constexpr Guid riffGuid { 0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                          0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
constexpr Guid listGuid { 0x6C, 0x69, 0x73, 0x74, 0x2F, 0x91, 0xCF, 0x11,
                          0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
constexpr Guid waveGuid { 0x77, 0x61, 0x76, 0x65, 0xF3, 0xAC, 0xD3, 0x11,
                          0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
constexpr Guid fmtGuid { 0x66, 0x6D, 0x74, 0x20, 0xF3, 0xAC, 0xD3, 0x11,
                         0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
constexpr Guid dataGuid { 0x64, 0x61, 0x74, 0x61, 0xF3, 0xAC, 0xD3, 0x11,
                          0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
constexpr Guid factGuid { 0x66, 0x61, 0x63, 0x74, 0xF3, 0xAC, 0xD3, 0x11,
                          0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
constexpr Guid bextGuid { 0x62, 0x65, 0x78, 0x74, 0xF3, 0xAC, 0xD3, 0x11,
                          0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
constexpr Guid junkGuid { 0x6A, 0x75, 0x6E, 0x6B, 0xF3, 0xAC, 0xD3, 0x11,
                          0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };

// Subformats of the extensible format.
constexpr Guid pcmSubformat { 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                              0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
constexpr Guid floatSubformat { 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
constexpr Guid ambisonicSubformat { 0x01, 0x00, 0x00, 0x00, 0x21, 0x07, 0xD3, 0x11,
                                    0x86, 0x44, 0xC8, 0xC1, 0xCA, 0x00, 0x00, 0x00 };

constexpr uint16_t extensibleTag = 0xFFFE;
constexpr int64_t extensibleFormatSize = 40;
constexpr int64_t wave64HeaderSize = 24;
constexpr int64_t largestPosition = std::numeric_limits<int64_t>::max();

/**
    position + offset, held at the largest position instead of overflowing. Sizes in a
    header are believed, but one near 2^64 must not wrap a file offset round; the reader's
    seek clamps the result to the end of the file anyway.
*/
int64_t AddClamped(int64_t position, uint64_t offset)
{
    const uint64_t room = uint64_t(largestPosition - position);
    return offset >= room ? largestPosition : position + int64_t(offset);
}

/** A little-endian unsigned integer of numBytes (at most 8); bytes past the end read as zero. */
uint64_t ReadLittleEndian(FileReader& reader, int numBytes)
{
    uint8_t bytes[8] {};
    reader.Read(bytes, numBytes);
    uint64_t value = 0;
    for (int i = numBytes - 1; i >= 0; --i)
        value = value << 8 | bytes[i];
    return value;
}

uint16_t ReadUInt16(FileReader& reader) { return uint16_t(ReadLittleEndian(reader, 2)); }
uint32_t ReadUInt32(FileReader& reader) { return uint32_t(ReadLittleEndian(reader, 4)); }
uint64_t ReadUInt64(FileReader& reader) { return ReadLittleEndian(reader, 8); }

/** A signed 16-bit field widened with its sign into an unsigned 32-bit one. */
uint32_t ReadSigned16AsUInt32(FileReader& reader) { return uint32_t(int32_t(int16_t(ReadUInt16(reader)))); }

Guid ReadGuid(FileReader& reader)
{
    Guid guid {};
    reader.Read(guid.data(), int64_t(guid.size()));
    return guid;
}

void Skip(FileReader& reader, int64_t numBytes) { reader.SetPosition(reader.GetPosition() + numBytes); }

/**
    Bytes from a Wave64 payload to the next chunk: the length rounded up to 8 bytes. Wave64
    files have always been walked with this sum done in single precision and kept to 32
    bits, so beyond 2^24 eight-byte units it rounds and from 4 GiB on it wraps; only what
    follows such a chunk is affected.
*/
uint32_t Wave64Step(int64_t length)
{
    const float units = std::ceil(float(length) * 0.125f);
    return uint32_t(uint64_t(units) * 8);
}

bool IsCompressedFormatReadAsPcm(uint16_t tag)
{
    switch (tag)
    {
        case 6: case 7: case 0x31: case 0x86: case 0xA10D:
        case 0x674F: case 0x6750: case 0x6751: case 0x676F: case 0x6770: case 0x6771:
        case 0x564C: case 0xF1AC:
            return true;
        default:
            return false;
    }
}

} // namespace

WavFileReader::WavFileReader(const File& file) : AudioFileReader(file)
{
    metadata.formatName = "WAV File";
    readHeader();
    checkReadable();
}

WavFileReader::~WavFileReader() = default;

// ---------------------------------------------------------------------------------------
// Header

void WavFileReader::readHeader()
{
    metadata.isRf64 = false;
    metadata.isW64 = false;
    int64_t end = 0;

    switch (ReadUInt32(*fileReader))
    {
        case FourCC("RF64"):
            Skip(*fileReader, 4); // the real size is in ds64
            metadata.isRf64 = true;
            break;
        case FourCC("RIFF"):
        {
            const uint32_t size = ReadUInt32(*fileReader);
            end = fileReader->GetPosition() + size;
            break;
        }
        case FourCC("riff"):
            end = readWave64Header();
            break;
        case FourCC("BW64"):
            throw Exception("BW64 chunk is not handled", KVO_CODE_LOCATION);
        default:
            return;
    }
    readWaveForm(end);
}

int64_t WavFileReader::readWave64Header()
{
    uint8_t tail[12] {};
    fileReader->Read(tail, 12);
    if (!std::equal(std::begin(tail), std::end(tail), riffGuid.begin() + 4))
        throw Exception("invalid riff chunk for w64", KVO_CODE_LOCATION);

    // The size counts the 24 bytes of this header too, so end lies 24 bytes past the
    // file's end and the chunk loop stops when the file is exhausted.
    const uint64_t size = ReadUInt64(*fileReader);
    const int64_t end = AddClamped(fileReader->GetPosition(), size);
    if (ReadGuid(*fileReader) != waveGuid)
        throw Exception("invalid wave chunk for w64", KVO_CODE_LOCATION);
    metadata.isW64 = true;
    return end;
}

void WavFileReader::readWaveForm(int64_t end)
{
    const int64_t start = fileReader->GetPosition();
    if (!metadata.isW64 && ReadUInt32(*fileReader) != FourCC("WAVE"))
        return;
    if (metadata.isRf64)
        end = readDs64(start);
    if (fileReader->GetPosition() >= end)
        return;

    if (metadata.isW64)
        readWave64Chunks(end);
    else
        readRiffChunks(end);
}

int64_t WavFileReader::readDs64(int64_t start)
{
    // Without a usable ds64 the sizes are unknown: end stays 0 and no chunk is read.
    if (ReadUInt32(*fileReader) != FourCC("ds64"))
        return 0;
    const uint32_t size = ReadUInt32(*fileReader);
    if (size < 28)
        return 0;

    const int64_t after = AddClamped(fileReader->GetPosition(), uint64_t(size) + (size & 1));
    const int64_t end = AddClamped(start, ReadUInt64(*fileReader));
    dataSize = int64_t(ReadUInt64(*fileReader));
    fileReader->SetPosition(after);
    return end;
}

// ---------------------------------------------------------------------------------------
// RIFF and RF64 chunks

void WavFileReader::readRiffChunks(int64_t end)
{
    // Each pass reads a chunk header, so the position moves on until exhaustion or end.
    while (!fileReader->IsExhausted())
    {
        const uint32_t identifier = ReadUInt32(*fileReader);
        const uint32_t size = ReadUInt32(*fileReader);
        Chunk chunk;
        chunk.payload = fileReader->GetPosition();
        chunk.next = AddClamped(chunk.payload, uint64_t(size) + (size & 1));

        if (!readRiffChunk(identifier, size, chunk))
            return;
        fileReader->SetPosition(chunk.next);
        if (fileReader->GetPosition() >= end)
            return;
    }
}

bool WavFileReader::readRiffChunk(uint32_t identifier, uint32_t size, Chunk& chunk)
{
    switch (identifier)
    {
        case FourCC("fmt "):
            readFormatChunk(size);
            break;
        case FourCC("data"):
            readRiffDataChunk(size, chunk);
            break;

        // Metadata chunks, each walked past by its size.
        case FourCC("bext"):
        case FourCC("cue "):
        case FourCC("LIST"):
        case FourCC("axml"):
        case FourCC("chna"):
        case FourCC("dbmd"):
            break;

        // Known chunks that carry nothing the reader uses.
        case FourCC("smpl"):
        case FourCC("inst"):
        case FourCC("INST"):
        case FourCC("acid"):
        case FourCC("Trkn"):
            break;

        default:
            // An unknown chunk of size 0 ends the walk.
            return chunk.next > fileReader->GetPosition();
    }
    return true;
}

void WavFileReader::readRiffDataChunk(uint32_t size, Chunk& chunk)
{
    int64_t length = size;
    if (metadata.isRf64)
    {
        // An RF64 data chunk's own size is a placeholder; ds64 holds the real one.
        length = dataSize;
        if (length < 0)
            refuse(KVO_CODE_LOCATION);
        if (length > 0)
            chunk.next = AddClamped(chunk.payload, uint64_t(length) + uint64_t(length & 1));
    }
    else
    {
        dataSize = size;
    }
    dataStart = chunk.payload;
    setNumSamplesFromData(length);
}

// ---------------------------------------------------------------------------------------
// Wave64 chunks

void WavFileReader::readWave64Chunks(int64_t end)
{
    while (!fileReader->IsExhausted())
    {
        const Guid identifier = ReadGuid(*fileReader);
        const int64_t length = int64_t(ReadUInt64(*fileReader) - wave64HeaderSize);
        Chunk chunk;
        chunk.payload = fileReader->GetPosition();
        chunk.next = length < 0 ? chunk.payload : AddClamped(chunk.payload, Wave64Step(length));

        if (!readWave64Chunk(identifier, length, chunk))
            return;
        fileReader->SetPosition(chunk.next);
        if (fileReader->GetPosition() >= end)
            return;
    }
}

bool WavFileReader::readWave64Chunk(const Guid& identifier, int64_t length, const Chunk& chunk)
{
    const bool isNamed = identifier == fmtGuid || identifier == dataGuid || identifier == factGuid
                         || identifier == junkGuid || identifier == bextGuid || identifier == listGuid;
    if (!isNamed)
        return chunk.next > fileReader->GetPosition(); // unknown and of no length: the walk ends

    // A size that doesn't cover the chunk's own header would send the walk backwards.
    if (length < 0)
        refuse(KVO_CODE_LOCATION);

    if (identifier == fmtGuid)
    {
        readFormatChunk(length);
    }
    else if (identifier == dataGuid)
    {
        dataSize = length;
        dataStart = chunk.payload;
        setNumSamplesFromData(length);
    }
    // fact and junk carry nothing; bext and list are metadata, walked past by their sizes.
    return true;
}

// ---------------------------------------------------------------------------------------
// Format and data

void WavFileReader::readFormatChunk(int64_t size)
{
    const uint16_t tag = ReadUInt16(*fileReader);
    metadata.numChannels = ReadSigned16AsUInt32(*fileReader);
    const int32_t rate = int32_t(ReadUInt32(*fileReader));
    metadata.sampleRate = rate;
    const int32_t bytesPerSecond = int32_t(ReadUInt32(*fileReader));
    Skip(*fileReader, 2); // block align: the width follows from the bits instead
    metadata.bitsPerSample = ReadSigned16AsUInt32(*fileReader);

    setFrameWidth(rate, bytesPerSecond);
    // A frame passes through the staging block whole, so a wider one can't be read; a
    // negative channel count declares one, whatever the tag then says.
    if (bytesPerFrame > rawBlockSize)
        refuse(KVO_CODE_LOCATION);
    applyFormatTag(tag, size);
}

void WavFileReader::setFrameWidth(int32_t rate, int32_t bytesPerSecond)
{
    if (metadata.bitsPerSample <= 64)
    {
        // Unsigned 32-bit arithmetic: a negative channel count gives a frame far too wide.
        bytesPerFrame = int32_t((metadata.numChannels * metadata.bitsPerSample) >> 3);
        return;
    }

    // A bits field out of range (negative included): the frame follows from the byte rate.
    if (rate == 0 || metadata.numChannels == 0)
        refuse(KVO_CODE_LOCATION);
    const int64_t width = int64_t(bytesPerSecond) / rate;
    bytesPerFrame = int32_t(std::min<int64_t>(width, std::numeric_limits<int32_t>::max()));
    metadata.bitsPerSample = uint32_t(int64_t(bytesPerFrame) * 8) / metadata.numChannels;
}

void WavFileReader::applyFormatTag(uint16_t tag, int64_t size)
{
    if (tag == 1)
        return; // PCM
    if (tag == 3)
    {
        metadata.isFloat = true;
        return;
    }
    // Compressed formats are let through undecoded: their bytes read as PCM of the stated width.
    if (IsCompressedFormatReadAsPcm(tag))
        return;
    if (tag == extensibleTag && size >= extensibleFormatSize)
        readFormatExtension();
    else
        bytesPerFrame = 0; // a sample format that can't be read
}

void WavFileReader::readFormatExtension()
{
    Skip(*fileReader, 4);    // extension size and valid bits
    ReadUInt32(*fileReader); // channel mask: no use for it here
    const Guid subformat = ReadGuid(*fileReader);

    if (subformat == floatSubformat)
        metadata.isFloat = true;
    else if (subformat == ambisonicSubformat)
        isAmbisonicFormat = true;
    else if (subformat != pcmSubformat)
        bytesPerFrame = 0;
}

void WavFileReader::setNumSamplesFromData(int64_t length)
{
    // Believed as stated: frames the file lacks read as zero bytes later.
    metadata.numSamples = bytesPerFrame > 0 ? uint64_t(length / bytesPerFrame) : 0;
}

// ---------------------------------------------------------------------------------------
// Validation

void WavFileReader::checkReadable() const
{
    if (!isValid())
        refuse(KVO_CODE_LOCATION);
    // Frames to deliver need a width to step by: a later fmt chunk may have taken it away.
    if (metadata.numSamples > 0 && bytesPerFrame <= 0)
        refuse(KVO_CODE_LOCATION);
}

void WavFileReader::refuse(const CodeLocation& location) const
{
    throw Exception("file " + Quoted(fileReader->GetFile().GetFullPath()) + " is not a valid WAV file", location);
}

// ---------------------------------------------------------------------------------------
// Samples

bool WavFileReader::readRawSamples(int** channels, uint64_t numRequested, uint64_t startSampleInFile)
{
    const uint64_t total = metadata.numSamples;
    const uint64_t available = startSampleInFile >= total ? 0 : std::min(total - startSampleInFile, numRequested);

    if (available > 0)
    {
        fileReader->SetPosition(getFramePosition(startSampleInFile));
        decodeFrames(channels, available);
    }

    // Past the last frame there is silence.
    if (available < numRequested && channels[0] != nullptr)
        for (uint32_t c = 0; c < metadata.numChannels; ++c)
            if (channels[c] != nullptr)
                std::fill(channels[c] + available, channels[c] + numRequested, 0);
    return true;
}

int64_t WavFileReader::getFramePosition(uint64_t frame) const
{
    // A frame whose offset overflows lies past any file's end: clamp, and the seek lands there.
    const uint64_t framesToLimit = uint64_t(largestPosition - dataStart) / uint64_t(bytesPerFrame);
    return frame > framesToLimit ? largestPosition : dataStart + int64_t(frame) * bytesPerFrame;
}

void WavFileReader::decodeFrames(int** channels, uint64_t numFrames)
{
    const uint64_t framesPerBlock = uint64_t(rawBlockSize / bytesPerFrame);
    for (uint64_t done = 0; done < numFrames;)
    {
        const uint64_t frames = std::min(framesPerBlock, numFrames - done);
        const int64_t bytes = int64_t(frames) * bytesPerFrame;
        const int64_t got = std::clamp<int64_t>(fileReader->Read(rawBlock.data(), bytes), 0, bytes);
        // What a short file lacks is decoded as zero bytes.
        std::memset(rawBlock.data() + got, 0, size_t(bytes - got));

        ConvertLittleEndianToInt32(int(metadata.bitsPerSample), metadata.isFloat, channels, done,
                                   metadata.numChannels, rawBlock.data(), metadata.numChannels, frames);
        done += frames;
    }
}

} // namespace kvo
