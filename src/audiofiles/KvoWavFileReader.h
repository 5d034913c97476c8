#pragma once

#include <array>
#include <cstdint>

#include "audiofiles/KvoAudioFileReader.h"
#include "core/KvoException.h"

namespace kvo
{

/**
    Reader of the WAV family: RIFF/WAVE, RF64 (sizes from its ds64 chunk) and Wave64
    (GUID-named chunks with 64-bit sizes). The header is parsed in the constructor, which
    throws if the file can't be read; samples are then decoded through a fixed staging
    block, and whatever the file lacks reads as zero bytes.

    The metadata chunks (bext, cue, LIST INFO and adtl, axml, chna) fill the record's text
    tables and markers and never refuse a file; a dbmd chunk is parsed for nothing but its
    refusal, which ends the constructor.
*/
class WavFileReader : public AudioFileReader
{
public:
    /** Parses file's header; throws "file "..." is not a valid WAV file" and the container errors. */
    explicit WavFileReader(const File& file);
    ~WavFileReader() override;

    String getDefaultExtension() const override { return ".wav"; }

    /** Bytes of one interleaved frame; 0 when the sample format can't be read. */
    int32_t getBytesPerFrame() const noexcept { return bytesPerFrame; }
    /** File offset of the first sample. */
    int64_t getDataStart() const noexcept { return dataStart; }
    /** Bytes of sample data as the header states them. */
    int64_t getDataSize() const noexcept { return dataSize; }
    /** True when the extensible format named the ambisonic PCM subformat. */
    bool isAmbisonic() const noexcept { return isAmbisonicFormat; }

    /** The ADM channel table of the last chna chunk; empty without one. */
    const ChnaData& getChnaData() const noexcept { return chnaData; }
    /** The keys of the LIST chunks read so far, before their copy into the metadata's listEntries. */
    const StringDictionary& getInfoEntries() const noexcept { return infoEntries; }
    /** The keys of the last cue chunk: "NumCuePoints" and six per cue point. */
    const StringDictionary& getCueEntries() const noexcept { return cueEntries; }

    /** Bytes of staging memory that samples pass through on their way from the file. */
    static constexpr int32_t rawBlockSize = 5760;

protected:
    bool readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile) override;

private:
    /** Where a chunk's payload starts and where the chunk after it does. */
    struct Chunk
    {
        int64_t payload = 0;
        int64_t next = 0;
    };

    void readHeader();
    int64_t readWave64Header();
    void readWaveForm(int64_t end);
    int64_t readDs64(int64_t start);
    void readRiffChunks(int64_t end);
    bool readRiffChunk(uint32_t identifier, uint32_t size, Chunk& chunk);
    void readRiffDataChunk(uint32_t size, Chunk& chunk);
    void readWave64Chunks(int64_t end);
    bool readWave64Chunk(const std::array<uint8_t, 16>& identifier, int64_t length, const Chunk& chunk);
    void readFormatChunk(int64_t size);
    void setFrameWidth(int32_t rate, int32_t bytesPerSecond);
    void applyFormatTag(uint16_t tag, int64_t size);
    void readFormatExtension();
    void setNumSamplesFromData(int64_t length);

    // Metadata chunks. Each starts at the chunk's payload; the walk seeks past the chunk
    // afterwards, whatever was consumed.
    void readBextChunk(int64_t size);
    void readCueChunk(int64_t size);
    void readListChunk(int64_t end);
    void readInfoList(int64_t end);
    void readAdtlList(int64_t end);
    void readCueText(const String& prefix, uint32_t size);
    void readCueRegion(const String& prefix, uint32_t size);
    void attachCueTexts();
    void readAxmlChunk(int64_t size);
    void readChnaChunk(int64_t size);

    void checkReadable() const;
    /** Throws the reader's refusal of this file, reported at location. */
    [[noreturn]] void refuse(const CodeLocation& location) const;

    int64_t getFramePosition(uint64_t frame) const;
    void decodeFrames(int** channels, uint64_t numFrames);

    int32_t bytesPerFrame = 0;
    int64_t dataStart = 0;
    int64_t dataSize = 0;
    std::array<char, rawBlockSize> rawBlock {};
    ChnaData chnaData;
    StringDictionary infoEntries;
    bool isAmbisonicFormat = false;
    StringDictionary cueEntries;
};

} // namespace kvo
