#include "audiofiles/KvoMP3FileReader.h"

#include <algorithm>
#include <cstring>

#include "audiofiles/KvoMp3Decoder.h"
#include "core/KvoException.h"
#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

/** The low 24 bits of "ID3" read as a little-endian integer. */
constexpr uint32_t id3Magic = 0x334449;
/** Calls of decodeStep that may pass without samples before a block is given up. */
constexpr int32_t maxStepsPerBlock = 10;

} // namespace

MP3FileReader::MP3FileReader(const File& file) : AudioFileReader(file)
{
    metadata.formatName = "MP3 File";
    // The base class has opened fileReader or thrown.
    state.reset(new Mp3DecoderState(*fileReader));
    skipId3v2Tag();
    const int64_t audioStart = state->stream.GetPosition();
    if (fillDecodedBlock())
        setLengthFromFirstFrame(audioStart);
    if (!isValid())
        throw Exception(String("file ") + Quoted(file.GetFullPath()) + " is not a valid MP3 file", KVO_CODE_LOCATION);
    // The first block stays decoded: a first read from sample 0 takes it as it is.
}

MP3FileReader::~MP3FileReader() = default;

void MP3FileReader::skipId3v2Tag()
{
    Mp3InputStream& stream = state->stream;
    const int64_t start = stream.GetPosition();
    uint8_t magic[4] = {};
    stream.Read(magic, 4);
    const uint32_t word = uint32_t(magic[0]) | uint32_t(magic[1]) << 8 | uint32_t(magic[2]) << 16;
    if (word == id3Magic)
    {
        // The fourth byte was the major version, which is not examined; the flags are ignored
        // and a footer is not counted.
        uint8_t b[6] = {};
        const bool complete = stream.Read(b, 6) == 6;
        if (complete && b[0] != 0xFF && ((b[2] | b[3] | b[4] | b[5]) & 0x80) == 0)
        {
            const int64_t size = ((int64_t(b[2]) * 128 + b[3]) * 128 + b[4]) * 128 + b[5];
            stream.SetPosition(start + 10 + size);
            return;
        }
    }
    stream.SetPosition(start);
}

void MP3FileReader::setLengthFromFirstFrame(int64_t audioStart)
{
    const Mp3FrameHeader& header = state->header;
    metadata.bitsPerSample = 32;
    metadata.isFloat = true;
    metadata.sampleRate = Mp3SampleRate(header.sampleRateIndex);
    metadata.numChannels = uint32_t(header.numChannels);

    // Without a tag the count is estimated from the first frame's size less its header, so
    // it runs a little high. A free-format first frame has no size to divide by: length 0.
    uint64_t frames = uint64_t(std::max(state->totalFrames, 0));
    if (state->totalFrames < 1)
    {
        const int64_t length = state->stream.GetTotalLength();
        frames = 0;
        if (length != 0 && header.frameBytes > 0)
            frames = uint64_t(length - audioStart) / uint64_t(header.frameBytes);
    }
    metadata.numSamples = frames * blockSamples;
}

void MP3FileReader::fillSilentBlock() noexcept
{
    std::fill(std::begin(decodedLeft), std::end(decodedLeft), 0.0f);
    std::fill(std::begin(decodedRight), std::end(decodedRight), 0.0f);
    decodedStart = 0;
    decodedEnd = blockSamples;
}

bool MP3FileReader::fillDecodedBlock()
{
    for (int32_t step = 0; step < maxStepsPerBlock; ++step)
    {
        int32_t samplesDone = 0;
        const int32_t result = state->decodeStep(decodedLeft, decodedRight, samplesDone);
        if (result <= 0)
        {
            decodedEnd = samplesDone;
            decodedStart = 0;
            return result == 0;
        }
        if (state->stream.IsExhausted())
        {
            // After the last frame's tail comes one block of silence, and only then the end.
            fillSilentBlock();
            return true;
        }
    }
    return false;
}

void MP3FileReader::seekTo(uint64_t start)
{
    Mp3DecoderState& decoder = *state;
    // Land at least one frame early, so that the overlap and the reservoir can recover.
    const uint64_t target = std::max<int64_t>(int64_t(start / blockSamples) - 1, 0);
    // Scan on until the index reaches the target. A stream that stops moving (a last
    // free-format frame with no header behind it) counts as ended.
    bool failed = false;
    int32_t stalledSteps = 0;
    while (!failed && target >= 4 * uint64_t(decoder.frameIndex.size()))
    {
        const int64_t before = decoder.stream.GetPosition();
        int32_t ignored = 0;
        failed = decoder.decodeStep(nullptr, nullptr, ignored) < 0;
        stalledSteps = decoder.stream.GetPosition() == before ? stalledSteps + 1 : 0;
        failed = failed || stalledSteps > maxStepsPerBlock;
    }
    if (failed)
    {
        readPosition = ~uint64_t(0);
        fillSilentBlock();
        return;
    }

    const uint64_t frame = decoder.restartAtOrBefore(target);
    decodedStart = decodedEnd = 0;

    int32_t skip = int32_t(start - frame * blockSamples);
    while (skip >= 1)
    {
        if (!fillDecodedBlock())
        {
            fillSilentBlock();
            break;
        }
        const int32_t ready = decodedEnd - decodedStart;
        if (ready > skip)
        {
            decodedStart += skip;
            break;
        }
        skip -= ready;
    }
    readPosition = start;
}

bool MP3FileReader::readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile)
{
    const uint32_t numChannels = metadata.numChannels;
    if (readPosition != startSampleInFile)
        seekTo(startSampleInFile);
    if (numSamples == 0)
        return true;

    uint64_t offset = 0;
    for (;;)
    {
        if (decodedEnd <= decodedStart && !fillDecodedBlock())
            break;
        const uint64_t count = std::min<uint64_t>(uint64_t(decodedEnd - decodedStart), numSamples - offset);
        // The float bits go into the integer arrays as they are.
        std::memcpy(channels[0] + offset, decodedLeft + decodedStart, size_t(count) * sizeof(float));
        if (numChannels > 1)
            std::memcpy(channels[1] + offset, decodedRight + decodedStart, size_t(count) * sizeof(float));
        decodedStart += int32_t(count);
        readPosition += count;
        offset += count;
        if (offset == numSamples)
            return true;
    }
    for (int32_t channel = int32_t(std::min<uint32_t>(numChannels, 2)) - 1; channel >= 0; --channel)
        std::memset(channels[channel] + offset, 0, size_t(numSamples - offset) * sizeof(int));
    return false;
}

} // namespace kvo
