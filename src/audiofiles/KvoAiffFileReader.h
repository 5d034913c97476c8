#pragma once

#include <cstdint>

#include "audiofiles/KvoPcmFileReader.h"

namespace kvo
{

/**
    Reads AIFF and the uncompressed kinds of AIFF-C ("NONE", "twos", "sowt", "fl32",
    "FL32"), with the markers of a MARK chunk. The header is parsed in the constructor,
    which throws " is not a valid AIFF file" for a file it cannot read.
*/
class AiffFileReader : public PcmFileReader
{
public:
    explicit AiffFileReader(const File& file);

    String getDefaultExtension() const override { return ".aiff"; }

private:
    struct SeenChunks
    {
        bool fver = false;
        bool comm = false;
        bool ssnd = false;
    };

    void readHeader();
    /** Reads one chunk at the current position and moves past it; false when parsing ends. */
    bool readChunk(int64_t formEnd, SeenChunks& seen);
    /** False when parsing ends: a rate that cannot be decoded or an unknown compression. */
    bool readCommChunk(uint32_t chunkSize);
    void readSsndChunk(uint32_t chunkSize);
    void readMarkChunk();

    // Integers of the header, big-endian; what the file lacks reads as zero.
    uint32_t readUint32();
    uint16_t readUint16();
    uint8_t readByte();

};

/**
    Decodes a sample rate stored as an 80-bit IEEE extended value. Only rates from 2.0 up to,
    but not including, 2^30 decode; the fraction is dropped. Returns false, leaving rate
    alone, for anything else.
*/
bool DecodeAiffSampleRate(const uint8_t bytes[10], double& rate) noexcept;

} // namespace kvo
