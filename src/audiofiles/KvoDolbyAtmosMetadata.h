#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kvo
{

class FileReader;

/**
    What the Dolby Atmos segments of a WAV file's dbmd chunk say: the Atmos segment (9) with
    the creating tool and the warp mode, and the supplemental segment (10) with the binaural
    render mode of each object and the trim mode of each trim configuration.

    A plain value. Only the two flags are set before a chunk is parsed; the fields of a
    segment that didn't occur hold no defined value and are read only behind its flag.
    Parsing throws an Exception for every rule of the chunk that it enforces, and for a
    chunk whose sizes would take it past the chunk's own bytes.
*/
struct DolbyAtmosMetadata
{
    /** The newest chunk version understood: major 1, then 0, 0, 7. */
    static constexpr uint32_t supportedDbmdVersion = 0x01000007;
    /** The largest dbmd chunk that is read at all. */
    static constexpr int maxChunkSize = 6144;
    static constexpr int maxObjects = 128;
    static constexpr int numTrimConfigurations = 9;

    static constexpr std::array<const char*, 5> warpModeLabels {
        "normal", "warping", "downmix Dolby Pro Logic IIx", "downmix LoRo",
        "not indicated (Default warping will be applied.)"
    };
    static constexpr std::array<const char*, 5> binauralRenderModeLabels { "bypass", "near", "far", "mid",
                                                                           "not indicated" };
    static constexpr std::array<const char*, numTrimConfigurations> trimConfigurationLabels {
        "2.0", "5.1", "7.1", "2.1.2", "5.1.2", "7.1.2", "2.1.4", "5.1.4", "7.1.4"
    };
    static constexpr std::array<const char*, 2> trimModeLabels { "manual", "automatic" };

    /** The label of value in table, or null where the table has none. */
    template <std::size_t size>
    static const char* labelFor(const std::array<const char*, size>& table, int value) noexcept
    {
        return value >= 0 && std::size_t(value) < size ? table[std::size_t(value)] : nullptr;
    }

    /**
        Parses the chunkSize bytes of a dbmd chunk at reader's position, leaving reader behind
        what it read. Throws for a chunk larger than maxChunkSize (before reading anything), a
        newer version, a faulty Atmos or supplemental segment, and a chunk that ends too soon.
    */
    static DolbyAtmosMetadata CreateFrom(FileReader& reader, const int chunkSize);

    /**
        Segment 9: *cursor is at the payload and is left behind the checksum byte. end is the
        end of the chunk's bytes, which no read passes.
    */
    static void parseDolbyAtmosMetadata(const int segmentSize, unsigned char** cursor, const unsigned char* end,
                                        DolbyAtmosMetadata& metadata);

    /** Segment 10, with the cursor rule of parseDolbyAtmosMetadata. */
    static void parseDolbyAtmosSplmlMetadata(const int segmentSize, unsigned char** cursor, const unsigned char* end,
                                             DolbyAtmosMetadata& metadata);

    /**
        count bytes at *cursor as a little-endian value, the cursor moved on by count. Nothing
        is read for a count below 1, which gives 0. Larger counts serve to skip: the value is
        only meaningful for 1, 2 and 4 bytes. Throws when the bytes would run past end.
    */
    static uint32_t readLittleEndianField(const int count, unsigned char** cursor, const unsigned char* end);

    bool hasAtmosSegment = false;
    char contentCreationTool[65];
    int32_t toolVersionMajor;
    int32_t toolVersionMinor;
    int32_t toolVersionMicro;
    int32_t warpMode;
    bool hasSupplementalSegment = false;
    int32_t numObjects;
    int32_t objectBinauralRenderMode[maxObjects];
    int32_t trimMode[numTrimConfigurations];
};

} // namespace kvo
