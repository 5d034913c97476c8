#pragma once

#include <cstdint>

#include "audiofiles/KvoAudioFileWriter.h"

namespace kvo
{

/**
    Writes plain AIFF: a 54-byte header of COMM and SSND, then big-endian integer samples
    (32-bit output is integer too, clipped). There is no 64-bit form: sample data stops
    short of 0xFFF00000 bytes, and a write that would reach it fails. The header is
    rewritten by the destructor, which also adds the pad byte of odd-sized data.
*/
class AiffFileWriter : public AudioFileWriter
{
public:
    /** The sample bytes a file may hold; a write reaching this fails and stores nothing. */
    static constexpr uint64_t maxDataBytes = 0xFFF00000;
    static constexpr int headerSize = 54;

    /**
        A writer on file, after the checks of every format writer (which may throw); null
        when the parent folder cannot be made.
    */
    static ScopedPointer<AiffFileWriter> CreateWriterFor(const File& file, double sampleRate,
                                                         unsigned int numChannels, int bitsDepth,
                                                         const Overwrite& overwrite)
    {
        return createPrepared<AiffFileWriter>(file, sampleRate, numChannels, bitsDepth, overwrite);
    }

    ~AiffFileWriter() override;

    String getDefaultExtension() const override { return ".aiff"; }

protected:
    friend class AudioFileWriter; // its createPrepared constructs the writer

    AiffFileWriter(const File& file, double sampleRate, unsigned int numChannels, int bitsDepth);

    void writeHeader() override;

    /** Whether numSamples frames stay under the cap, and their size in bytes when they do. */
    bool admitsFrames(uint64_t numSamples, uint64_t& bytes) const noexcept override;
};

/**
    Encodes a sample rate as an 80-bit IEEE extended value, keeping its integer part.
    Rates of 1.0 and below all encode as 1.0; rates from 2^30 on get the exponent of 2^30
    and an empty mantissa.
*/
void EncodeAiffSampleRate(double rate, uint8_t bytes[10]) noexcept;

} // namespace kvo
