#pragma once

#include <cstdint>
#include <vector>

#include "audiofiles/KvoAudioFileReader.h"

namespace kvo
{

/**
    Base of the readers whose samples are interleaved PCM frames in one run of the file
    (the WAV family and AIFF). The format's constructor sets where the run starts, the width
    of a frame and the decoder of the file's coding; this class does the reading: the seek
    to a frame, the staging of the bytes, zero bytes for whatever a short file lacks and
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

protected:
    /** Turns numFrames interleaved frames of the file's coding into fixed point (or float bits). */
    using FrameDecoder = void (*)(int bits, bool isFloat, int** dest, uint64_t destStart, unsigned int numDestChannels,
                                  const char* source, unsigned int numSourceChannels, uint64_t numFrames);

    explicit PcmFileReader(const File& file);

    bool readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile) override;

    /** True when a frame has bytes and fits the widest frame that can be read. */
    bool hasReadableFrameWidth() const noexcept { return bytesPerFrame >= 1 && bytesPerFrame <= rawBlockSize; }

    /** File offset of frame 0. */
    int64_t dataStart = 0;
    /** Bytes of one interleaved frame; must pass hasReadableFrameWidth before samples are read. */
    int64_t bytesPerFrame = 0;
    FrameDecoder decoder = nullptr;

private:
    /** The frames of [start, start + numRequested) that the header's count holds. */
    uint64_t countAvailable(uint64_t start, uint64_t numRequested) const noexcept;
    /** The file offset of frame, held at the largest offset where it would overflow. */
    int64_t getFramePosition(uint64_t frame) const noexcept;
    /**
        Reads numFrames frames at the reader's position into the staging memory; what the
        file lacks reads as zero bytes.
    */
    const char* stageFrames(uint64_t numFrames);
    uint64_t getFramesPerStage() const noexcept;

    /** Kept for the reader's life, so blocks allocate nothing once it has grown. */
    std::vector<char> staging;
};

} // namespace kvo
