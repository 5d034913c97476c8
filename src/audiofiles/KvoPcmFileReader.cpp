#include "audiofiles/KvoPcmFileReader.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

constexpr int64_t largestPosition = std::numeric_limits<int64_t>::max();

/** Bytes read from the file per call: large reads, whatever the caller's block length. */
constexpr int64_t stagingSize = int64_t(1) << 18;

} // namespace

PcmFileReader::PcmFileReader(const File& file) : AudioFileReader(file)
{
}

bool PcmFileReader::readRawSamples(int** channels, uint64_t numRequested, uint64_t startSampleInFile)
{
    const uint64_t available = countAvailable(startSampleInFile, numRequested);
    const unsigned int numChannels = metadata.numChannels;
    if (available > 0)
        fileReader->SetPosition(getFramePosition(startSampleInFile));

    for (uint64_t done = 0; done < available;)
    {
        const uint64_t frames = std::min(getFramesPerStage(), available - done);
        decoder(int(metadata.bitsPerSample), metadata.isFloat, channels, done, numChannels, stageFrames(frames),
                numChannels, frames);
        done += frames;
    }

    // Past the last frame there is silence.
    if (available < numRequested && channels[0] != nullptr)
        for (unsigned int c = 0; c < numChannels; ++c)
            if (channels[c] != nullptr)
                std::fill(channels[c] + available, channels[c] + numRequested, 0);
    return true;
}

uint64_t PcmFileReader::countAvailable(uint64_t start, uint64_t numRequested) const noexcept
{
    const uint64_t total = metadata.numSamples;
    return start >= total ? 0 : std::min(total - start, numRequested);
}

int64_t PcmFileReader::getFramePosition(uint64_t frame) const noexcept
{
    // A frame whose offset overflows lies past any file's end: clamp, and the seek lands there.
    const uint64_t framesToLimit = uint64_t(largestPosition - dataStart) / uint64_t(bytesPerFrame);
    return frame > framesToLimit ? largestPosition : dataStart + int64_t(frame) * bytesPerFrame;
}

uint64_t PcmFileReader::getFramesPerStage() const noexcept
{
    return uint64_t(stagingSize / bytesPerFrame);
}

const char* PcmFileReader::stageFrames(uint64_t numFrames)
{
    const int64_t bytes = int64_t(numFrames) * bytesPerFrame;
    // Grows to the largest stage asked for, at most stagingSize: a short file's read costs little.
    if (staging.size() < size_t(bytes))
        staging.resize(size_t(bytes));
    const int64_t got = std::clamp<int64_t>(fileReader->Read(staging.data(), bytes), 0, bytes);
    // What a short file lacks is decoded as zero bytes.
    std::memset(staging.data() + got, 0, size_t(bytes - got));
    return staging.data();
}

} // namespace kvo
