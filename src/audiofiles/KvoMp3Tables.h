#pragma once

#include <atomic>
#include <cstdint>

namespace kvo
{

/** One Huffman code table of Layer III big values: its tree and the escape bits of value 15. */
struct Mp3HuffmanTable
{
    /**
        The code as a tree walked one bit at a time. A negative entry is a branch: read a bit,
        and if it is 1 skip the entry's magnitude of entries after this one; then read the next
        entry. A non-negative entry is a leaf: x in the bits above the low 4, y in the low 4.
    */
    const int16_t* tree = nullptr;
    /** Bits added to a value of 15 (0: no escape). */
    int32_t linbits = 0;
};

/**
    The first steps of a Huffman walk, looked up: for one value of the next mp3LookupBits bits,
    the leaf they end at and the bits it took, or the node the walk stands at after all of them.
    Built from the trees, so that most codes cost one look-up instead of a walk.
*/
struct Mp3HuffmanLookup
{
    int16_t value = 0;  ///< the leaf, or the node's offset in the tree
    uint8_t length = 0; ///< bits used
    bool isLeaf = false;
};

constexpr int mp3LookupBits = 8;

/** Bits that hold any count1 code with its signs: a code of at most 6 and up to 4 signs. */
constexpr int mp3QuadLookupBits = 10;

/**
    One record of a band map: a run of lines that share a scale factor band and a gain.
    Window 3 is a long band (lines consecutive, step 1); windows 0 to 2 are the short windows,
    whose lines are stored interleaved with window fastest (step 3), so dequantising places
    short-block lines in their final order: this is the reordering of short blocks.
*/
struct Mp3BandRecord
{
    int16_t pairs = 0; ///< width of the run in line pairs
    int16_t start = 0; ///< first line in the spectrum; a short window's band starts at the band's start plus the window
    int16_t window = 3;
    int16_t band = 0; ///< the long band (window 3) or the short band of the run

    /** Distance between the run's lines in the spectrum: 1 in a long band, 3 in a short window. */
    int32_t lineStep() const noexcept { return window == 3 ? 1 : 3; }
};

/** The records of one map and how many there are. */
struct Mp3BandMap
{
    static constexpr int maxRecords = 39;
    Mp3BandRecord records[maxRecords] {};
    int32_t numRecords = 0;

    const Mp3BandRecord* begin() const noexcept { return records; }
    const Mp3BandRecord* end() const noexcept { return records + numRecords; }
};

/**
    Every table the MPEG audio decoder's synthesis filter and Layer III share, built once for
    the process on first use by GetMp3Tables() and read-only after that. Non-trivial factors
    are computed in double precision and stored as float.
*/
struct Mp3Tables
{
    // Synthesis filterbank --------------------------------------------------------------------

    /** Row i, entry k (k below 16 >> i): 1 / (2 cos(pi (2k + 1) / (64 >> i))). */
    float synthCosTables[5][16];
    /** The pre-signed synthesis window, each run of 16 taps stored twice 16 floats apart. */
    float synthWindow[544];

    // Layer III ------------------------------------------------------------------------------

    /** Entry i: i to the power 4/3. */
    float powerTable[8207];
    /** Entry k: 2 to the power (46 - k) / 4. */
    float gainTable[378];
    /** Anti-alias butterflies: 1 / sqrt(1 + c^2) and c / sqrt(1 + c^2). */
    float antialiasCs[8];
    float antialiasCa[8];
    /** IMDCT windows by block type, with the transform's output twiddle folded in. */
    float imdctWindow[4][36];
    /** The same windows with every odd entry negated (row 2: its 12 entries), for odd sub-bands. */
    float imdctWindowOdd[4][36];
    /** Intensity stereo factors, MPEG-1: [msStereo][is_pos]. */
    float intensityLeft[2][16];
    float intensityRight[2][16];
    /** Intensity stereo factors, low rates: [msStereo][scalefac_compress & 1][is_pos]. */
    float intensityLowLeft[2][2][16];
    float intensityLowRight[2][2][16];
    /** [sampleRateIndex][band]: number of sub-bands up to the long band boundary, at most 32. */
    int32_t longLimit[9][23];
    /** [sampleRateIndex][band]: number of sub-bands up to the short band boundary, at most 32. */
    int32_t shortLimit[9][14];
    /**
        [sampleRateIndex][kind]: kind 0 mixed blocks (long bands 0-7, then short bands 3-12), 1 short
        blocks, 2 long blocks. At the low rates the long part of a mixed block is wider than the
        short bands it stands for, and the map stops at the end of the spectrum.
    */
    Mp3BandMap bandMaps[9][3];
    /**
        Low-rate scale factor lengths by scalefac_compress (the intensity channel's by half of it):
        bits 0-2, 3-5, 6-8, 9-11 the lengths of the four groups, bits 12-14 the table number in
        bandCounts, bit 15 preflag.
    */
    uint16_t lowRateLengths[512];
    uint16_t lowRateLengthsIntensity[256];
    /** Huffman tables by table_select. */
    Mp3HuffmanTable huffmanTables[32];
    /** The two count1 trees by count1table_select; leaves hold v, w, x, y in bits 3 to 0. */
    const int16_t* count1Trees[2];
    /**
        Look-ups of the first bits of the trees: the 32 of huffmanTables, then the two count1
        trees. Tables that share a tree share its look-up.
    */
    const Mp3HuffmanLookup* huffmanLookups[34];
    /** Storage behind huffmanLookups: one look-up for each of the 18 distinct trees. */
    static constexpr int huffmanLookupCount = 18;
    Mp3HuffmanLookup huffmanLookupStorage[huffmanLookupCount][1 << mp3LookupBits];
    /**
        Whole count1 quads by the next mp3QuadLookupBits bits, from the two count1 trees: bits 8-11
        the bits the code and its signs take, bits 4-7 which of v w x y are 1 (v highest), bits
        0-3 their signs.
    */
    uint16_t quadLookups[2][1 << mp3QuadLookupBits];
    /** By bits 0-7 of a quad look-up: each line's factor of the gain, 0 for a 0, -1 or 1 by its sign. */
    alignas(16) float quadSigns[256][4];

    /** Storage behind huffmanTables and count1Trees. */
    static constexpr int huffmanStorageSize = 2804;
    int16_t huffmanStorage[huffmanStorageSize];

    // Stored tables ---------------------------------------------------------------------------

    /**
        Scale factor bands by sampleRateIndex (44100, 48000, 32000, 22050, 24000, 16000, 11025,
        12000, 8000 Hz): 23 long boundaries, 22 long widths, 14 short boundaries (in lines of
        all three windows), 13 short widths.
    */
    static const int16_t (&bandTable)[9][72];
    static constexpr int longBoundaries = 0;
    static constexpr int longWidths = 23;
    static constexpr int shortBoundaries = 45;
    static constexpr int shortWidths = 59;

    /** MPEG-1 scale factor lengths (s0, s1) by scalefac_compress. */
    static const uint8_t scaleFactorLengths[16][2];
    /** Long-block pre-emphasis by band, and the same shape of zeros when preflag is clear. */
    static const uint8_t pretab[22];
    static const uint8_t pretabZero[22];
    /** Low-rate scale factor counts: [block kind: long, short, mixed][table number][group]. */
    static const uint8_t bandCounts[3][6][4];
};

namespace detail
{
/** The built tables, published once they are complete; null before. */
extern std::atomic<const Mp3Tables*> builtMp3Tables;
/** Builds the tables under a thread-safe guard (concurrent first callers wait) and publishes them. */
const Mp3Tables& BuildMp3Tables();
} // namespace detail

/**
    The process's tables, built on the first call under a thread-safe guard. Later calls cost one
    load, so the sample loops may call this freely.
*/
inline const Mp3Tables& GetMp3Tables()
{
    const Mp3Tables* tables = detail::builtMp3Tables.load(std::memory_order_acquire);
    return tables != nullptr ? *tables : detail::BuildMp3Tables();
}

} // namespace kvo
