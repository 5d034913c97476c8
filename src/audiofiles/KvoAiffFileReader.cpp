#include "audiofiles/KvoAiffFileReader.h"

#include <algorithm>

#include "audiofiles/KvoByteOrder.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "core/KvoException.h"
#include "files/KvoFileReader.h"

namespace kvo
{

namespace
{

constexpr uint32_t fourCharCode(const char (&text)[5]) noexcept { return BigEndianFourCC(text); }

constexpr uint32_t formId = fourCharCode("FORM");
constexpr uint32_t aiffType = fourCharCode("AIFF");
constexpr uint32_t aifcType = fourCharCode("AIFC");
constexpr uint32_t fverId = fourCharCode("FVER");
constexpr uint32_t commId = fourCharCode("COMM");
constexpr uint32_t ssndId = fourCharCode("SSND");
constexpr uint32_t markId = fourCharCode("MARK");

constexpr uint32_t aifcVersion1 = 0xA2805140;

/** Size of a COMM chunk without the compression fields of AIFF-C. */
constexpr uint32_t plainCommSize = 18;

} // namespace

bool DecodeAiffSampleRate(const uint8_t bytes[10], double& rate) noexcept
{
    // The exponent's first byte is 0x40 for every value from 2.0 up to 2^16384; a second
    // byte above 0x1C means 2^30 or more. Negative values and values under 2 fail the
    // first test.
    if (bytes[0] != 0x40 || bytes[1] > 0x1C)
        return false;

    const unsigned int shift = (0x401Eu - (unsigned(bytes[0]) << 8 | bytes[1])) & 31u;
    const uint32_t mantissaTop = uint32_t(LoadBigEndian(bytes + 2, 4));
    // The lower mantissa bytes carry only the fraction, which is dropped.
    rate = double(int32_t(mantissaTop >> shift));
    return true;
}

AiffFileReader::AiffFileReader(const File& file) : PcmFileReader(file)
{
    metadata.isFloat = false;
    metadata.formatName = "AIFF File";
    forms = ByteForms::aiff;
    readHeader();

    // A frame of no bytes would divide by zero when the staging is cut into frames.
    if (!isValid() || !hasReadableFrameWidth())
        throw Exception(String("file ") + Quoted(file.GetFullPath()) + " is not a valid AIFF file", KVO_CODE_LOCATION);
}

void AiffFileReader::readHeader()
{
    if (readUint32() != formId)
        return;

    const uint32_t formSize = readUint32();
    const int64_t formEnd = fileReader->GetPosition() + int64_t(formSize);

    const uint32_t formType = readUint32();
    if (formType != aiffType && formType != aifcType)
        return;

    if (fileReader->GetPosition() >= formEnd)
        return;

    // Every pass moves on by at least a chunk header until the end of the file; there the
    // header reads as zeros, an unknown chunk, and an exhausted reader ends the walk.
    SeenChunks seen;
    while (readChunk(formEnd, seen))
    {
    }
}

bool AiffFileReader::readChunk(int64_t formEnd, SeenChunks& seen)
{
    const uint32_t id = readUint32();
    const uint32_t size = readUint32();
    // Sizes are unsigned and the sum is 64-bit: a chunk never ends before its payload starts.
    const int64_t next = fileReader->GetPosition() + int64_t(size);

    if (id == fverId)
    {
        seen.fver = true;
        const uint32_t version = readUint32();
        if (version != 0 && version != aifcVersion1)
            return false;
    }
    else if (id == commId)
    {
        seen.comm = true;
        if (!readCommChunk(size))
            return false;
    }
    else if (id == ssndId)
    {
        seen.ssnd = true;
        readSsndChunk(size);
    }
    else
    {
        // Parsing ends at the first chunk after the three that matter, so in AIFF-C (which
        // has an FVER) a MARK behind the sound data is never read.
        if ((seen.fver && seen.comm && seen.ssnd) || fileReader->IsExhausted())
            return false;
        if (id == markId)
            readMarkChunk();
    }

    // Chunks start on even offsets: an odd end is followed by a pad byte.
    fileReader->SetPosition(next + (next & 1));
    return fileReader->GetPosition() < formEnd;
}

bool AiffFileReader::readCommChunk(uint32_t chunkSize)
{
    // Channels, frames and bits are signed in the file and widen with their sign.
    metadata.numChannels = uint32_t(int32_t(int16_t(readUint16())));
    metadata.numSamples = uint64_t(int64_t(int32_t(readUint32())));
    metadata.bitsPerSample = uint32_t(int32_t(int16_t(readUint16())));
    // In 64 bits, so that no nonsense pair of counts wraps round to a plausible width.
    bytesPerFrame = int64_t((uint64_t(metadata.bitsPerSample) * metadata.numChannels) >> 3);

    uint8_t rateBytes[10] = {};
    for (uint8_t& byte : rateBytes)
        byte = readByte();
    if (!DecodeAiffSampleRate(rateBytes, metadata.sampleRate))
        return false;

    forms = ByteForms::aiff;
    if (chunkSize <= plainCommSize)
        return true;

    const uint32_t compression = readUint32();
    if (compression == fourCharCode("NONE") || compression == fourCharCode("twos"))
        return true;
    if (compression == fourCharCode("sowt"))
    {
        forms = ByteForms::aiffLittleEndian;
        return true;
    }
    if (compression == fourCharCode("fl32") || compression == fourCharCode("FL32"))
    {
        metadata.isFloat = true;
        return true;
    }

    metadata.sampleRate = 0.0;
    return false;
}

void AiffFileReader::readSsndChunk(uint32_t chunkSize)
{
    const uint32_t offset = readUint32();
    // The offset counts from the end of the 8-byte header: past the block size field.
    dataStart = fileReader->GetPosition() + 4 + int64_t(offset);

    // The whole chunk's size is used, header and offset included: it may allow a few
    // frames more than the chunk holds, never fewer.
    if (bytesPerFrame > 0)
        metadata.numSamples = std::min(metadata.numSamples, uint64_t(chunkSize) / uint64_t(bytesPerFrame));
    else
        metadata.numSamples = 0;
}

void AiffFileReader::readMarkChunk()
{
    const uint16_t numMarkers = readUint16();
    for (uint16_t i = 0; i < numMarkers; ++i)
    {
        const uint16_t identifier = readUint16();
        const uint32_t position = readUint32();

        // A Pascal string, padded to an even total with its length byte.
        const uint8_t length = readByte();
        char text[256];
        const int64_t numRead = std::max<int64_t>(0, fileReader->Read(text, length));
        if ((length & 1) == 0)
            readByte();

        metadata.addMarker(identifier, position, String(text, size_t(numRead)));
    }
}

uint32_t AiffFileReader::readUint32()
{
    return uint32_t(ReadBigEndian(*fileReader, 4));
}

uint16_t AiffFileReader::readUint16()
{
    return uint16_t(ReadBigEndian(*fileReader, 2));
}

uint8_t AiffFileReader::readByte()
{
    return uint8_t(ReadBigEndian(*fileReader, 1));
}

} // namespace kvo
