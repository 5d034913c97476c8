#include "audiofiles/KvoPcmFileReader.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "audiofiles/KvoReadAheadFileReader.h"
#include "files/KvoFileWriter.h"

namespace kvo
{
namespace
{

constexpr int64_t largestPosition = std::numeric_limits<int64_t>::max();

/** Bytes read from the file per call: large reads, whatever the caller's block length. */
constexpr int64_t stagingSize = int64_t(1) << 18;

using FrameDecoder = void (*)(int bits, bool isFloat, int** dest, uint64_t destStart, unsigned int numDestChannels,
                              const char* source, unsigned int numSourceChannels, uint64_t numFrames);

FrameDecoder DecoderFor(ByteForms forms)
{
    switch (forms)
    {
        case ByteForms::aiff: return ConvertBigEndianToInt32;
        case ByteForms::aiffLittleEndian: return ConvertAiffLittleEndianToInt32;
        case ByteForms::wav: break;
    }
    return ConvertLittleEndianToInt32;
}

} // namespace

// Headers are parsed field by field: the reader reads them ahead in windows.
PcmFileReader::PcmFileReader(const File& file) : AudioFileReader(new ReadAheadFileReader(file))
{
}

SampleCoding PcmFileReader::getSampleCoding() const noexcept
{
    return { forms, metadata.bitsPerSample, metadata.isFloat, metadata.numChannels };
}

bool PcmFileReader::readRawSamples(int** channels, uint64_t numRequested, uint64_t startSampleInFile)
{
    const uint64_t available = countAvailable(startSampleInFile, numRequested);
    const unsigned int numChannels = metadata.numChannels;
    const FrameDecoder decode = DecoderFor(forms);
    if (available > 0)
        fileReader->SetPosition(getFramePosition(startSampleInFile));

    for (uint64_t done = 0; done < available;)
    {
        const uint64_t frames = std::min(getFramesPerStage(), available - done);
        decode(int(metadata.bitsPerSample), metadata.isFloat, channels, done, numChannels, stageFrames(frames),
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

bool PcmFileReader::writeFrameBytes(FileWriter& destination, uint64_t startFrame, uint64_t numFrames)
{
    const uint64_t available = countAvailable(startFrame, numFrames);
    const int64_t bytes = int64_t(available) * bytesPerFrame;
    int64_t copied = 0;
    if (available > 0)
    {
        fileReader->SetPosition(getFramePosition(startFrame));
        if (!destination.WriteFrom(*fileReader, bytes, getStaging(stagingSize), stagingSize, copied))
            return false;
    }
    // What a short file lacks goes out as zero bytes, the frames past the count as silence.
    return writeRepeatedByte(destination, 0, bytes - copied)
           && writeRepeatedByte(destination, getSampleCoding().silenceByte(),
                                int64_t(numFrames - available) * bytesPerFrame);
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

char* PcmFileReader::getStaging(int64_t numBytes)
{
    // Grows to the largest stage asked for, at most stagingSize: a short file's read costs little.
    if (staging.size() < size_t(numBytes))
        staging.resize(size_t(numBytes));
    return staging.data();
}

const char* PcmFileReader::stageFrames(uint64_t numFrames)
{
    const int64_t bytes = int64_t(numFrames) * bytesPerFrame;
    char* block = getStaging(bytes);
    const int64_t got = std::clamp<int64_t>(fileReader->Read(block, bytes), 0, bytes);
    // What a short file lacks is decoded as zero bytes.
    std::memset(block + got, 0, size_t(bytes - got));
    return block;
}

bool PcmFileReader::writeRepeatedByte(FileWriter& destination, uint8_t value, int64_t numBytes)
{
    if (numBytes <= 0)
        return true;
    char* block = getStaging(std::min(numBytes, stagingSize));
    std::memset(block, value, size_t(std::min(numBytes, stagingSize)));
    for (int64_t done = 0; done < numBytes;)
    {
        const int64_t piece = std::min(numBytes - done, stagingSize);
        if (!destination.Write(block, uint64_t(piece)))
            return false;
        done += piece;
    }
    return true;
}

} // namespace kvo
