#pragma once

#include "audiofiles/KvoAudioFileWriter.h"

namespace kvo
{

/**
    Writes RIFF/WAVE files, and RF64 once the sample data reaches 2^32 bytes (or when
    forced).

    The header always takes 104 bytes, whichever of its three forms it has (plain, extensible
    for more than two channels, RF64), so it can be rewritten in place at any moment and the
    samples never move. Samples are integers at 8, 16 and 24 bits and floats at 32 bits, where
    values beyond full scale are kept. The file is complete only once the writer is destroyed:
    the destructor stores the final header and the closing chna and axml chunks.
*/
class WavFileWriter : public AudioFileWriter
{
public:
    /**
        Checks the depth and rate, replaces or keeps an existing file as overwrite says, and
        makes the parent folder. Null when that folder cannot be made; throws for a refused
        depth or rate, and as the file's overwrite check does.
    */
    static ScopedPointer<WavFileWriter> CreateWriterFor(const File& file, double sampleRate, unsigned int numChannels,
                                                        int bitsDepth, const Overwrite& overwrite)
    {
        return createPrepared<WavFileWriter>(file, sampleRate, numChannels, bitsDepth, overwrite);
    }

    /**
        Opens file, appending at its end, and writes a header for 0 samples. Makes none of the
        factory's checks: bitsDepth must be 8, 16, 24 or 32.
    */
    WavFileWriter(const File& file, double sampleRate, unsigned int numChannels, int bitsDepth);

    /** Rewrites the header with the final counts and appends the closing chunks. */
    ~WavFileWriter() override;

    WavFileWriter(const WavFileWriter&) = delete;
    WavFileWriter& operator=(const WavFileWriter&) = delete;

    String getDefaultExtension() const override { return ".wav"; }

    /**
        Keeps an axml text and a chna table for the closing chunks. The chna strings are cut or
        padded with zero bytes to their fixed widths (12, 14 and 11) when written.
    */
    void setAdmChunks(const String& axml, const ChnaData& chna) override;

    /** Makes the header RF64 from its next writing on, whatever the data size. */
    void setForceRf64(bool shouldForceRf64) override;

    /** Writes chunkId, the block's size in 32 bits and its bytes; throws if the bytes are not stored. */
    void writeChunk(const MemoryBlock& block, int chunkId);

protected:
    void writeHeader() override;

private:
    uint32_t getBytesPerFrame() const noexcept;
    uint64_t getChnaPayloadSize() const noexcept;
    uint64_t getAxmlChunkSize() const noexcept;
    /** Writes the closing chna chunk, if the table has entries. */
    void writeChnaChunk();
    MemoryBlock makeChnaPayload() const;

    MemoryBlock axmlBlock;
    ChnaData chna;
    bool forceRf64 = false;
};

} // namespace kvo
