#pragma once

#include <cstdint>

#include "audiofiles/KvoAudioFileReader.h"
#include "core/KvoScopedPointer.h"

namespace kvo
{

class Mp3DecoderState;

/**
    Reads MPEG audio files (MPEG-1, 2 and 2.5, Layers I, II and III, free format) as 32-bit
    float samples, one decoded frame at a time, with no pre-scan of the stream. The
    constructor skips an ID3v2 tag and decodes the first frame, which the first read from
    sample 0 then delivers; it throws " is not a valid MP3 file" when nothing decodes.
    No tag metadata is kept and no encoder delay is trimmed.
*/
class MP3FileReader : public AudioFileReader
{
public:
    explicit MP3FileReader(const File& file);
    ~MP3FileReader() override;

    String getDefaultExtension() const override { return ".mp3"; }

protected:
    bool readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile) override;

private:
    /** Samples of one MPEG-1 Layer II or III frame: the unit of decoding and seeking. */
    static constexpr int32_t blockSamples = 1152;

    void skipId3v2Tag();
    void setLengthFromFirstFrame(int64_t audioStart);
    /** Decodes the next block into the decoded arrays; false when the stream yields nothing more. */
    bool fillDecodedBlock();
    void fillSilentBlock() noexcept;
    void seekTo(uint64_t start);

    ScopedPointer<Mp3DecoderState> state;
    float decodedLeft[blockSamples] = {};
    float decodedRight[blockSamples] = {};
    int32_t decodedStart = 0;
    int32_t decodedEnd = 0;
    uint64_t readPosition = 0; ///< file position of decodedStart; all ones after a failed seek
};

} // namespace kvo
