#pragma once

#include <cstdint>
#include <vector>

#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoPcmSampleCoding.h"

namespace kvo
{

class FileWriter;

/**
    Base of the readers whose samples are interleaved PCM frames in one run of the file
    (the WAV family and AIFF). The format's constructor sets where the run starts, the width
    of a frame and the byte forms of its samples; this class does the reading: the seek to
    a frame, the staging of the bytes, zero bytes for whatever a short file lacks and
    silence for the frames past the header's count.
*/
class PcmFileReader : public AudioFileReader
{
public:
    /**
        The widest frame that can be read, in bytes. Frames used to pass one at a time
        through a staging block of this size, and the readers still refuse a wider one.
    */
    static constexpr int32_t rawBlockSize = 5760;

    /** The coding of the file's samples. */
    SampleCoding getSampleCoding() const noexcept;

    /**
        Appends the bytes of numFrames frames from startFrame on to destination, in the
        file's own coding, with the rules of readRawSamples: zero bytes for what a short file
        lacks, the coding's 0.0 past the header's count. The bytes move inside the kernel
        where the system allows. False when a write fails.
    */
    bool writeFrameBytes(FileWriter& destination, uint64_t startFrame, uint64_t numFrames);

protected:
    explicit PcmFileReader(const File& file);

    bool readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile) override;

    /** True when a frame has bytes and fits the widest frame that can be read. */
    bool hasReadableFrameWidth() const noexcept { return bytesPerFrame >= 1 && bytesPerFrame <= rawBlockSize; }

    /** File offset of frame 0. */
    int64_t dataStart = 0;
    /** Bytes of one interleaved frame; must pass hasReadableFrameWidth before samples are read. */
    int64_t bytesPerFrame = 0;
    ByteForms forms = ByteForms::wav;

private:
    /** The frames of [start, start + numRequested) that the header's count holds. */
    uint64_t countAvailable(uint64_t start, uint64_t numRequested) const noexcept;
    /** The file offset of frame, held at the largest offset where it would overflow. */
    int64_t getFramePosition(uint64_t frame) const noexcept;
    uint64_t getFramesPerStage() const noexcept;
    /** The staging memory, grown to hold numBytes. */
    char* getStaging(int64_t numBytes);
    /**
        Reads numFrames frames at the reader's position into the staging memory; what the
        file lacks reads as zero bytes.
    */
    const char* stageFrames(uint64_t numFrames);
    /** Writes numBytes copies of value to destination through the staging memory. */
    bool writeRepeatedByte(FileWriter& destination, uint8_t value, int64_t numBytes);

    /** Kept for the reader's life, so blocks allocate nothing once it has grown. */
    std::vector<char> staging;
};

} // namespace kvo
