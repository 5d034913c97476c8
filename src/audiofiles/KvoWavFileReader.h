#pragma once

#include <cstdint>

#include "audiofiles/KvoPcmFileReader.h"
#include "core/KvoException.h"

namespace kvo
{

/**
    Reader of the WAV family: RIFF/WAVE, RF64 (sizes from its ds64 chunk) and Wave64
    (GUID-named chunks with 64-bit sizes), all walked by one loop over their chunk headers.
    The header is parsed in the constructor, which throws if the file can't be read; the
    samples are read as PcmFileReader reads them.

    The metadata chunks (bext, cue, LIST INFO and adtl, axml, chna) fill the record's text
    tables and markers and never refuse a file; a dbmd chunk is parsed for nothing but its
    refusal, which ends the constructor.
*/
class WavFileReader : public PcmFileReader
{
public:
    /** Parses file's header; throws "file "..." is not a valid WAV file" and the container errors. */
    explicit WavFileReader(const File& file);
    ~WavFileReader() override;

    String getDefaultExtension() const override { return ".wav"; }

    /** Bytes of one interleaved frame; 0 when the sample format can't be read. */
    int32_t getBytesPerFrame() const noexcept { return int32_t(bytesPerFrame); }
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

private:
    /** A chunk's header as both forms give it: RIFF's FourCC and 32-bit size, Wave64's GUID and 64-bit length. */
    struct ChunkHeader
    {
        /** A RIFF identifier; a known Wave64 GUID gives the identifier of its RIFF counterpart. */
        uint32_t identifier = 0;
        /** Payload bytes; negative when a Wave64 length doesn't cover the header itself. */
        int64_t size = 0;
        /** Where the payload starts and where the chunk after it does. */
        int64_t payload = 0;
        int64_t next = 0;
    };

    /**
        Reads the chunk header at the position, of a Wave64 chunk or a RIFF one. The next
        chunk starts after the pad byte of an odd RIFF chunk, after a Wave64 chunk rounded up
        to 8 bytes; a negative Wave64 size steps nowhere.
    */
    ChunkHeader readChunkHeader(bool isWave64);
    void readHeader();
    int64_t readWave64Header();
    void readWaveForm(int64_t end);
    int64_t readDs64(int64_t start);
    void readChunks(int64_t end);
    /** Reads one chunk's payload; false when the walk ends here. */
    bool readChunk(ChunkHeader& chunk);
    void readDataChunk(ChunkHeader& chunk);
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
    void readCueText(const String& prefix, int64_t size);
    void readCueRegion(const String& prefix, int64_t size);
    void attachCueTexts();
    void readAxmlChunk(int64_t size);
    void readChnaChunk(int64_t size);

    void checkReadable() const;
    /** Throws the reader's refusal of this file, reported at location. */
    [[noreturn]] void refuse(const CodeLocation& location) const;

    int64_t dataSize = 0;
    ChnaData chnaData;
    StringDictionary infoEntries;
    bool isAmbisonicFormat = false;
    StringDictionary cueEntries;
};

} // namespace kvo
