#include "audiofiles/KvoMp3Decoder.h"

#include <algorithm>
#include <cstring>

#include "audiofiles/KvoMp3Layer12.h"
#include "audiofiles/KvoMp3LayerIII.h"

namespace kvo
{
namespace
{

/** How far findNextHeader looks for a header before it gives up. */
constexpr int64_t headerSearchBytes = 32768;
/** Bytes of a frame's start that parseVbrTag examines. */
constexpr int32_t vbrTagBytes = 194;

uint32_t readBigEndian32(const uint8_t* bytes)
{
    return uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 | bytes[3];
}

/** True when word looks like a frame header: sync, a layer, a usable bitrate, rate and emphasis. */
bool isHeaderCandidate(uint32_t word, int32_t layer)
{
    const int32_t layerBits = int32_t((word >> 17) & 3);
    return (word & 0xFFE00000u) == 0xFFE00000u && layerBits != 0 && (layer == 0 || 4 - layerBits == layer)
           && ((word >> 12) & 15) != 15 && ((word >> 10) & 3) != 3 && (word & 3) != 2;
}

/** True when word has the channel count and rate of header. */
bool matchesHeader(uint32_t word, const Mp3FrameHeader& header)
{
    Mp3FrameHeader candidate;
    parseFrameHeader(candidate, word);
    return candidate.numChannels == header.numChannels && candidate.lowSampleRate == header.lowSampleRate
           && candidate.isMpeg25 == header.isMpeg25 && candidate.sampleRateIndex == header.sampleRateIndex;
}

} // namespace

// ---------------------------------------------------------------------------------------
// Mp3InputStream

Mp3InputStream::Mp3InputStream(const FileReader& source) : reader(source)
{
    totalLength = reader.GetTotalLength();
    position = reader.GetPosition();
}

void Mp3InputStream::SetPosition(int64_t newPosition) noexcept
{
    position = std::clamp<int64_t>(newPosition, 0, totalLength);
}

bool Mp3InputStream::fill()
{
    reader.SetPosition(position);
    bufferStart = position;
    bufferLength = int32_t(std::max<int64_t>(reader.Read(buffer, bufferSize), 0));
    return bufferLength > 0;
}

int32_t Mp3InputStream::readByteSlow()
{
    if (position >= totalLength || !fill())
        return -1;
    return buffer[position++ - bufferStart];
}

int32_t Mp3InputStream::Read(uint8_t* destination, int32_t numBytes)
{
    int32_t done = 0;
    while (done < numBytes && position < totalLength)
    {
        if (position >= bufferStart && position < bufferStart + bufferLength)
        {
            const int32_t available = int32_t(bufferStart + bufferLength - position);
            const int32_t count = std::min(available, numBytes - done);
            std::memcpy(destination + done, buffer + (position - bufferStart), size_t(count));
            done += count;
            position += count;
        }
        else if (!fill())
            break;
    }
    return done;
}

// ---------------------------------------------------------------------------------------
// Mp3DecoderState

Mp3DecoderState::Mp3DecoderState(const FileReader& source) : stream(source)
{
    resetStream();
}

void Mp3DecoderState::resetStream()
{
    isFreeFormat = wasFreeFormat = false;
    headerParsed = sideInfoParsed = dataParsed = false;
    sideInfoBytes = dataBytes = frameBytesLeft = lastFreeFormatBytes = 0;
    activeBuffer = 0;
    bits.bytes = byteBuffers[0];
    bits.bitPointer = mp3FrameStart;
    bits.bitOffset = 0;
    lastFrameBytes = -1;
    needResync = true;
    synthesis.reset();
    sideInfo = Mp3SideInfo();
    std::memset(byteBuffers, 0, sizeof byteBuffers);
    layer3.reset();
}

uint64_t Mp3DecoderState::restartAtOrBefore(uint64_t frame)
{
    const uint64_t indexed = std::min<uint64_t>(frame & ~uint64_t(3), 4 * uint64_t(frameIndex.size()) - 1);
    stream.SetPosition(int64_t(frameIndex[indexed / 4]));
    currentFrame = int32_t(indexed);
    resetStream();
    return indexed;
}

int32_t Mp3DecoderState::findNextHeader(bool matchPrevious)
{
    const int64_t start = stream.GetPosition();
    if (stream.IsExhausted())
        return -1;

    uint32_t word = 0;
    int32_t offset = -3;
    for (;;)
    {
        if (stream.GetPosition() > start + headerSearchBytes)
        {
            stream.SetPosition(start);
            return -1;
        }
        word = word << 8 | uint32_t(stream.ReadByte());
        if (offset >= 0 && isHeaderCandidate(word, header.layer) && (!matchPrevious || matchesHeader(word, header)))
            break;
        ++offset;
        if (stream.IsExhausted())
        {
            stream.SetPosition(start);
            return -1;
        }
    }

    if (currentFrame % 4 == 0 && currentFrame >= 0)
    {
        const size_t slot = size_t(currentFrame / 4);
        if (frameIndex.size() <= slot)
            frameIndex.resize(slot + 1);
        frameIndex[slot] = uint64_t(start + offset);
    }
    ++currentFrame;
    stream.SetPosition(start);
    return offset;
}

bool Mp3DecoderState::parseVbrTag(const uint8_t* bytes)
{
    // The tag reader's own tables: Layer III bitrates and the rates of each version.
    static constexpr int32_t tagBitrates[2][16] = {
        { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, -1 },
        { 0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, -1 }
    };
    static constexpr int32_t tagRates[3][4] = { { 22050, 24000, 16000, -1 },
                                                { 44100, 48000, 32000, -1 },
                                                { 11025, 12000, 8000, -1 } };

    tag.flags = 0;
    if (((bytes[1] >> 1) & 3) != 1)
        return false;
    const int32_t version = (bytes[1] >> 3) & 1;
    const int32_t mode = bytes[3] >> 6;
    const int32_t bitrate = tagBitrates[version][bytes[2] >> 4];
    const int32_t rateRow = (bytes[1] >> 4) == 0xE ? 2 : version;
    const int32_t rate = tagRates[rateRow][(bytes[2] >> 2) & 3];

    int32_t offset;
    if (version == 1)
        offset = mode < 3 ? 36 : 21;
    else
        offset = mode < 3 ? 21 : 13;
    const uint8_t* field = bytes + offset;
    if (std::memcmp(field, "Xing", 4) != 0 && std::memcmp(field, "Info", 4) != 0)
        return false;
    field += 4;
    tag.flags = readBigEndian32(field);
    field += 4;
    if ((tag.flags & 1) != 0)
    {
        tag.frames = int32_t(readBigEndian32(field));
        field += 4;
    }
    if ((tag.flags & 2) != 0)
    {
        tag.bytes = int32_t(readBigEndian32(field));
        field += 4;
    }
    if ((tag.flags & 4) != 0)
    {
        std::memcpy(tag.tableOfContents, field, sizeof tag.tableOfContents);
        field += sizeof tag.tableOfContents;
    }
    tag.quality = (tag.flags & 8) != 0 ? int32_t(readBigEndian32(field)) : -1;
    tag.sampleRate = rate;
    // The padding bit is not counted: the header size may be one byte short.
    tag.headerSize = int32_t((int64_t(version + 1) * bitrate * 72000) / rate);
    return true;
}

// ---------------------------------------------------------------------------------------
// The bit reservoir

void Mp3DecoderState::readToCursor(int32_t numBytes)
{
    const int32_t room = std::max(mp3ByteBufferSize - std::max(bits.bitPointer, 0), 0);
    const int32_t count = std::clamp(numBytes, 0, room);
    if (count < numBytes)
        stream.SetPosition(stream.GetPosition() + (numBytes - count)); // cannot happen for a frame that fits
    if (count == 0)
        return;
    uint8_t* destination = byteBuffers[activeBuffer] + bits.bitPointer;
    const int32_t got = stream.Read(destination, count);
    std::memset(destination + got, 0, size_t(count - got));
}

void Mp3DecoderState::switchByteArrays()
{
    activeBuffer = 1 - activeBuffer;
    bits.bytes = byteBuffers[activeBuffer];
    bits.bitPointer = mp3FrameStart;
    bits.bitOffset = 0;
}

int32_t Mp3DecoderState::keepForReservoir(int32_t numBytes, int32_t limit)
{
    const int32_t kept = std::clamp(numBytes, 0, std::max(limit, 0));
    if (kept < numBytes)
        stream.SetPosition(stream.GetPosition() + (numBytes - kept));
    readToCursor(kept);
    bits.bitPointer += kept;
    return kept;
}

bool Mp3DecoderState::takeReservoir()
{
    const int32_t mainDataBegin = sideInfo.mainDataBegin;
    if (lastFrameBytes < 0 && mainDataBegin > 0)
        return false; // the reservoir lies in frames that were not read since the last reset
    bits.bitPointer -= mainDataBegin;
    // The last mainDataBegin bytes that went into the other array; held inside it for damaged counts.
    const int32_t source =
        std::clamp(mp3FrameStart + lastFrameBytes - mainDataBegin, 0, mp3ByteBufferSize - mainDataBegin);
    if (bits.bitPointer >= 0 && bits.bitPointer + mainDataBegin <= mp3ByteBufferSize)
        std::memmove(byteBuffers[activeBuffer] + bits.bitPointer, byteBuffers[1 - activeBuffer] + source,
                     size_t(mainDataBegin));
    bits.bitOffset = 0;
    return true;
}

// ---------------------------------------------------------------------------------------
// The stages of a frame

void Mp3DecoderState::keepJunk(int32_t offset)
{
    // The bytes ahead of the header count as the tail of the frame before, in the reservoir.
    wasFreeFormat = false;
    needResync = true;
    int32_t kept = bits.bitPointer - mp3FrameStart;
    if (kept > mp3MaxFrameBytes)
    {
        kept = 0;
        bits.bitPointer = mp3FrameStart;
    }
    lastFrameBytes += keepForReservoir(offset, mp3MaxFrameBytes - kept);
}

int32_t Mp3DecoderState::parseHeaderStage()
{
    const int32_t offset = findNextHeader(false);
    if (lastFrameBytes == -1 || needResync)
    {
        // A Xing or Info tag is looked for only right at the stream's position.
        needResync = false;
        int64_t position = stream.GetPosition();
        uint8_t bytes[vbrTagBytes] = {};
        stream.Read(bytes, vbrTagBytes);
        vbrTagValid = parseVbrTag(bytes);
        if (vbrTagValid)
        {
            totalFrames = tag.frames;
            position += std::max(tag.headerSize, 1);
        }
        stream.SetPosition(position);
        if (vbrTagValid)
            return 1;
    }
    if (offset < 0)
        return -1;
    if (offset > 0)
        keepJunk(offset);

    uint8_t word[4] = {};
    stream.Read(word, 4);
    parseFrameHeader(header, readBigEndian32(word));
    frameBytesLeft = header.frameBytes;
    headerParsed = true;
    isFreeFormat = header.frameBytes == 0;

    if (header.lowSampleRate == 0)
        sideInfoBytes = header.numChannels == 2 ? 32 : 17;
    else
        sideInfoBytes = header.numChannels == 2 ? 17 : 9;
    if (header.hasCrc)
        sideInfoBytes += 2;
    switchByteArrays();
    return lastFrameBytes == -1 ? 1 : 0;
}

void Mp3DecoderState::parseSideInfoStage()
{
    if (header.layer == 3)
    {
        readToCursor(sideInfoBytes);
        if (header.hasCrc)
            bits.skipBits(16);
        const int32_t msStereo = header.isMidSide() ? 1 : 0;
        if (header.lowSampleRate == 0)
            readSideInfoMpeg1(sideInfo, bits, header.numChannels, msStereo, header.sampleRateIndex,
                              header.channelSelect);
        else
            readSideInfoLowRate(sideInfo, bits, header.numChannels, msStereo, header.sampleRateIndex,
                                header.channelSelect);
        int32_t totalBits = 0;
        for (int32_t granule = 0; granule < header.numGranules(); ++granule)
            for (int32_t channel = 0; channel < header.numChannels; ++channel)
                totalBits += int32_t(sideInfo.granules[channel][granule].part2_3_length);
        dataBytes = (std::max(totalBits - 8 * sideInfo.mainDataBegin, 0) + 7) / 8;
        if (!isFreeFormat)
            dataBytes = std::min(dataBytes, header.frameBytes - sideInfoBytes);
    }
    else
    {
        dataBytes = header.frameBytes;
        sideInfoBytes = 0;
    }
    sideInfoParsed = true;
}

void Mp3DecoderState::decodeDataStage(float* out0, float* out1, int32_t& samplesDone)
{
    readToCursor(dataBytes);
    if (out0 != nullptr)
    {
        if (header.layer != 3 && header.hasCrc)
            bits.skipBits(16);
        if (header.layer == 1)
            decodeLayer1(header, bits, synthesis, out0, out1, samplesDone);
        else if (header.layer == 2)
            decodeLayer2(header, bits, synthesis, out0, out1, samplesDone);
        else if (takeReservoir())
            decodeLayer3(header, sideInfo, bits, layer3, synthesis, out0, out1, samplesDone);
    }
    bits.bitPointer = mp3FrameStart + sideInfoBytes + dataBytes;
    dataParsed = true;
}

int32_t Mp3DecoderState::finishFrameStage(int32_t result)
{
    if (isFreeFormat)
    {
        // A free-format frame ends where the next header of the same stream starts.
        if (wasFreeFormat)
            frameBytesLeft = lastFreeFormatBytes + header.padding;
        else
        {
            const int32_t distance = findNextHeader(true);
            if (distance < 0)
                return result;
            frameBytesLeft = distance + sideInfoBytes + dataBytes;
            lastFreeFormatBytes = frameBytesLeft - header.padding;
        }
    }
    if (result == 0)
        return 0; // the frame's tail is read on the next call

    // Only the last bytes of a long tail can be reached by the next frame's reservoir.
    const int32_t left = std::max(frameBytesLeft - dataBytes - sideInfoBytes, 0);
    lastFrameBytes = frameBytesLeft - (left - keepForReservoir(left, mp3MaxTailBytes));
    wasFreeFormat = isFreeFormat;
    frameBytesLeft = 0;
    headerParsed = sideInfoParsed = dataParsed = false;
    return 1;
}

int32_t Mp3DecoderState::decodeStep(float* out0, float* out1, int32_t& samplesDone)
{
    if (!headerParsed)
    {
        const int32_t result = parseHeaderStage();
        if (result != 0)
            return result;
    }
    if (!sideInfoParsed)
        parseSideInfoStage();
    int32_t result = 1;
    if (!dataParsed)
    {
        decodeDataStage(out0, out1, samplesDone);
        result = 0;
    }
    return finishFrameStage(result);
}

} // namespace kvo
