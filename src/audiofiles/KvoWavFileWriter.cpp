#include "audiofiles/KvoWavFileWriter.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "audiofiles/KvoByteOrder.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "core/KvoException.h"
#include "files/KvoFileWriter.h"

namespace kvo
{

namespace
{

constexpr int64_t headerSize = 104;
// RF64 takes over once the data no longer fits the 32-bit sizes of RIFF.
constexpr uint64_t rf64Threshold = 0x100000000ull;
// JUNK reserves exactly the room of ds64 so that all three forms of the header are 104 bytes.
constexpr uint32_t plainJunkSize = 52;
constexpr uint32_t extensibleJunkSize = 28;
constexpr uint32_t ds64Size = 28;
constexpr int chnaEntrySize = 40;
constexpr uint8_t chnaEntryPad = 0x70;

using Guid = std::array<uint8_t, 16>;
constexpr Guid pcmSubformat { 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                              0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
constexpr Guid floatSubformat { 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };

/** A chunk identifier as FileWriter::WriteInt32 takes it: the value whose little-endian bytes spell it. */
constexpr int FourCC(const char (&id)[5])
{
    return static_cast<int>(LittleEndianFourCC(id));
}

/** The speaker mask of the extensible format; only these layouts name their speakers. */
uint32_t ChannelMaskFor(uint32_t numChannels)
{
    switch (numChannels)
    {
        case 2: return 3;
        case 5: return 55;
        case 6: return 63;
        case 7: return 1591;
        case 8: return 1599;
        default: return 0;
    }
}

uint32_t TruncateToUint32(double value)
{
    return static_cast<uint32_t>(static_cast<int64_t>(value));
}

/** Little-endian fields laid out one after the other in memory the caller owns. */
class ByteComposer
{
public:
    explicit ByteComposer(uint8_t* destination) : cursor(destination) {}

    void Id(const char* id) { Bytes(id, 4); }
    void UInt16(uint32_t value) { Unsigned(value, 2); }
    void UInt32(uint32_t value) { Unsigned(value, 4); }
    void UInt64(uint64_t value) { Unsigned(value, 8); }
    void Zeros(size_t count)
    {
        std::memset(cursor, 0, count);
        cursor += count;
    }
    void Bytes(const void* source, size_t count)
    {
        std::memcpy(cursor, source, count);
        cursor += count;
    }
    /** text's first width bytes, or all of it followed by zero bytes up to width. */
    void Field(const String& text, size_t width)
    {
        const size_t length = std::min(width, static_cast<size_t>(text.GetLength()));
        Bytes(text.GetCharPointer(), length);
        Zeros(width - length);
    }
    void Byte(uint8_t value) { *cursor++ = value; }

private:
    void Unsigned(uint64_t value, int numBytes)
    {
        StoreLittleEndian(cursor, value, numBytes);
        cursor += numBytes;
    }

    uint8_t* cursor;
};

/** The fmt chunk: plain PCM or float, or the extensible format with its speaker mask. */
void ComposeFormatChunk(ByteComposer& out, uint32_t numChannels, uint32_t bits, double sampleRate, bool extensible)
{
    const uint32_t bytesPerFrame = bits * numChannels >> 3;
    out.Id("fmt ");
    out.UInt32(extensible ? 40 : 16);
    out.UInt16(extensible ? 0xFFFE : (bits < 32 ? 1 : 3));
    out.UInt16(numChannels);
    out.UInt32(TruncateToUint32(sampleRate));
    out.UInt32(TruncateToUint32(static_cast<double>(bytesPerFrame) * sampleRate));
    out.UInt16(bytesPerFrame);
    out.UInt16(bits);
    if (extensible)
    {
        out.UInt16(22);
        out.UInt16(bits);
        out.UInt32(ChannelMaskFor(numChannels));
        const Guid& subformat = bits < 32 ? pcmSubformat : floatSubformat;
        out.Bytes(subformat.data(), subformat.size());
    }
}

/** The entry at index, or an empty text where the array is shorter than the chna table. */
const String& EntryOrEmpty(const StringArray& array, uint64_t index)
{
    static const String empty;
    return index < array.GetSize() ? array[index] : empty;
}

} // namespace

WavFileWriter::WavFileWriter(const File& destination, double sampleRate, unsigned int numChannels, int bitsDepth)
    : AudioFileWriter(destination, sampleRate, numChannels, bitsDepth)
{
    metadata.formatName = "WAV File";
    writeHeader();
}

WavFileWriter::~WavFileWriter()
{
    // The closing chunks go where the data ended before the header's pad byte: with odd data
    // they start on the pad byte.
    const int64_t closingChunksPosition = fileWriter->GetPosition();
    writeHeader();
    fileWriter->SetPosition(closingChunksPosition);
    try
    {
        writeChnaChunk();
        if (!axmlBlock.IsEmpty())
            writeChunk(axmlBlock, FourCC("axml"));
    }
    catch (...)
    {
        // Reported when it was raised; the samples and header are already in place.
    }
}

void WavFileWriter::setAdmChunks(const String& axml, const ChnaData& chnaData)
{
    const int64_t length = axml.GetLength();
    axmlBlock.Allocate((length + 3) & ~int64_t { 3 }, true);
    if (length > 0 && axmlBlock.data != nullptr)
        std::memcpy(axmlBlock.data, axml.GetCharPointer(), static_cast<size_t>(length));
    chna = chnaData;
}

void WavFileWriter::setForceRf64(bool shouldForceRf64)
{
    forceRf64 = shouldForceRf64;
}

void WavFileWriter::writeChunk(const MemoryBlock& block, const int chunkId)
{
    fileWriter->WriteInt32(chunkId);
    fileWriter->WriteInt32(static_cast<int32_t>(block.size));
    if (!fileWriter->Write(block))
        throw Exception("error writing chunk", KVO_CODE_LOCATION);
}

void WavFileWriter::writeHeader()
{
    // Odd data takes a pad byte. It goes at the end of the counted data rather than at the
    // file's current position, which after a failed write lies elsewhere.
    if ((bytesWritten & 1) != 0)
    {
        fileWriter->SetPosition(headerPosition + headerSize + static_cast<int64_t>(bytesWritten));
        fileWriter->WriteByte(0);
    }
    fileWriter->SetPosition(headerPosition);

    const uint32_t numChannels = metadata.numChannels;
    const uint32_t bits = metadata.bitsPerSample;
    const uint32_t bytesPerFrame = getBytesPerFrame();
    const uint64_t dataBytes = uint64_t { bytesPerFrame } * metadata.numSamples;

    // The switch looks at the sample bytes stored, not at the size of the whole file.
    const bool rf64 = forceRf64 || bytesWritten >= rf64Threshold;
    const bool extensible = rf64 || numChannels > 2;
    metadata.isRf64 = rf64;

    const uint64_t chnaPayload = getChnaPayloadSize();
    uint64_t riffSize = dataBytes + 96 + (dataBytes & 1) + (chnaPayload > 0 ? chnaPayload + 8 : 0)
                        + getAxmlChunkSize();
    riffSize += riffSize & 1;

    std::array<uint8_t, headerSize> header {};
    ByteComposer out(header.data());
    out.Id(rf64 ? "RF64" : "RIFF");
    out.UInt32(rf64 ? 0xFFFFFFFFu : static_cast<uint32_t>(riffSize));
    out.Id("WAVE");
    if (rf64)
    {
        out.Id("ds64");
        out.UInt32(ds64Size);
        out.UInt64(riffSize);
        out.UInt64(dataBytes);
        out.Zeros(12); // sample count and table length, unused
    }
    else
    {
        const uint32_t junkSize = extensible ? extensibleJunkSize : plainJunkSize;
        out.Id("JUNK");
        out.UInt32(junkSize);
        out.Zeros(junkSize);
    }

    ComposeFormatChunk(out, numChannels, bits, metadata.sampleRate, extensible);

    out.Id("data");
    out.UInt32(rf64 ? 0xFFFFFFFFu : static_cast<uint32_t>(dataBytes));

    // Failures here show at the next sample write or not at all: the header is best effort.
    fileWriter->Write(header.data(), header.size());
    metadata.isFloat = bits == 32;
}

uint32_t WavFileWriter::getBytesPerFrame() const noexcept
{
    return metadata.bitsPerSample * metadata.numChannels >> 3;
}

uint64_t WavFileWriter::getChnaPayloadSize() const noexcept
{
    if (chna.numTracks == 0 || chna.numUids == 0 || chna.trackIndices.IsEmpty())
        return 0;
    return uint64_t { std::max(chna.numTracks, chna.numUids) } * chnaEntrySize + 4;
}

uint64_t WavFileWriter::getAxmlChunkSize() const noexcept
{
    if (axmlBlock.IsEmpty())
        return 0;
    const uint64_t size = static_cast<uint64_t>(axmlBlock.size);
    return size + 8 + (size & 1);
}

void WavFileWriter::writeChnaChunk()
{
    if (getChnaPayloadSize() > 0)
        writeChunk(makeChnaPayload(), FourCC("chna"));
}

MemoryBlock WavFileWriter::makeChnaPayload() const
{
    MemoryBlock payload(static_cast<int64_t>(getChnaPayloadSize()), true);
    if (payload.IsEmpty())
        return payload;

    ByteComposer out(payload.data);
    out.UInt16(chna.numTracks);
    out.UInt16(chna.numUids);
    // The table holds max(numTracks, numUids) entries whatever the arrays hold; missing
    // entries are written as zeros, which a reader takes for empty fields.
    const uint64_t numEntries = std::max(chna.numTracks, chna.numUids);
    for (uint64_t i = 0; i < numEntries; ++i)
    {
        out.UInt16(i < chna.trackIndices.GetSize() ? chna.trackIndices[i] : 0);
        out.Field(EntryOrEmpty(chna.trackUids, i), 12);
        out.Field(EntryOrEmpty(chna.trackRefs, i), 14);
        out.Field(EntryOrEmpty(chna.packRefs, i), 11);
        out.Byte(chnaEntryPad);
    }
    return payload;
}

} // namespace kvo
