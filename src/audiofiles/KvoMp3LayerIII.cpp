#include "audiofiles/KvoMp3LayerIII.h"

#include <algorithm>
#include <cstring>

#include "audiofiles/KvoMp3Imdct.h"
#include "audiofiles/KvoMp3Tables.h"

/*
    Layer III, in the order a frame goes through this file (decodeLayer3, at the end, runs it):

     1. Main data: the side information is read and the reservoir put in front of the frame's
        main data before this file is called (Mp3DecoderState::takeReservoir).
     2. Scale factors of a channel's granule: readScaleFactorsMpeg1, readScaleFactorsLowRate.
     3. Huffman decoding, 4. dequantisation and 5. reordering, in one pass over the granule's
        bits (dequantise, GranuleDecoder): each pair of lines is decoded (each count1 quad
        through one look-up of its code and signs), scaled by its band's gain and stored where
        the band map places it. The short band maps place each window's lines 3 apart from
        the band's start plus the window (Mp3BandRecord::lineStep; the maps are built by
        AddReorderedShortBands in KvoMp3Tables.cpp), which is the reordering of short blocks.
     6. Stereo processing: mid/side, intensity (applyIntensity) and the channel selection
        (processStereo).
     7. Antialias butterflies between long sub-bands (antialias).
     8. Hybrid filterbank: IMDCT, window and overlap-add (hybrid; hybridFilterbank in
        KvoMp3Imdct.cpp transforms four or eight sub-bands at a time).
     9. Frequency inversion: folded into the windows of the odd sub-bands (imdctWindowOdd).
    10. Polyphase synthesis of 18 rows of 32 sub-band samples (synthesiseGranule, with
        synthesise in KvoMp3Synthesis.cpp).
*/

namespace kvo
{
namespace
{

constexpr int32_t granuleLines = 576;
constexpr int32_t gainTableSize = 378;
constexpr int32_t scaleFactorCount = 39;

} // namespace

// 2. Scale factors --------------------------------------------------------------------------------

int32_t readScaleFactorsMpeg1(Mp3BitReader& bits, int32_t* scaleFactors, const Mp3GranuleInfo& info)
{
    const int32_t s0 = Mp3Tables::scaleFactorLengths[info.scalefac_compress & 15][0];
    const int32_t s1 = Mp3Tables::scaleFactorLengths[info.scalefac_compress & 15][1];
    if (info.block_type == 2)
    {
        const int32_t first = info.mixed_block_flag != 0 ? 17 : 18;
        for (int32_t i = 0; i < first; ++i)
            scaleFactors[i] = int32_t(bits.readBits(s0));
        for (int32_t i = first; i < first + 18; ++i)
            scaleFactors[i] = int32_t(bits.readBits(s1));
        for (int32_t i = first + 18; i < first + 21; ++i)
            scaleFactors[i] = 0;
        return (s0 + s1) * 18 - (info.mixed_block_flag != 0 ? s0 : 0);
    }

    // Groups of bands whose scale factors granule 1 may take over from granule 0.
    static constexpr int32_t groupStart[5] = { 0, 6, 11, 16, 21 };
    int32_t bitsRead = 0;
    for (int32_t group = 0; group < 4; ++group)
    {
        const bool shared = info.scfsi >= 0 && ((info.scfsi >> (3 - group)) & 1) != 0;
        if (shared)
            continue;
        const int32_t length = group < 2 ? s0 : s1;
        for (int32_t i = groupStart[group]; i < groupStart[group + 1]; ++i)
            scaleFactors[i] = int32_t(bits.readBits(length));
        bitsRead += length * (groupStart[group + 1] - groupStart[group]);
    }
    scaleFactors[21] = 0;
    return bitsRead;
}

int32_t readScaleFactorsLowRate(Mp3BitReader& bits, int32_t* scaleFactors, Mp3GranuleInfo& info,
                                bool intensityChannel)
{
    const Mp3Tables& tables = GetMp3Tables();
    const uint32_t word = intensityChannel ? tables.lowRateLengthsIntensity[(info.scalefac_compress >> 1) & 255]
                                           : tables.lowRateLengths[info.scalefac_compress & 511];
    info.preflag = (word >> 15) & 1;
    int32_t kind = 0;
    if (info.block_type == 2)
        kind = info.mixed_block_flag != 0 ? 2 : 1;
    const uint8_t* counts = Mp3Tables::bandCounts[kind][std::min<uint32_t>((word >> 12) & 7, 5)];

    int32_t index = 0;
    int32_t bitsRead = 0;
    for (int32_t group = 0; group < 4; ++group)
    {
        const int32_t count = counts[group];
        const int32_t length = int32_t((word >> (3 * group)) & 7);
        for (int32_t i = 0; i < count && index < scaleFactorCount; ++i)
            scaleFactors[index++] = int32_t(bits.readBits(length));
        if (length > 0)
            bitsRead += count * length;
    }
    for (int32_t i = 0; i < 2 * kind + 1 && index < scaleFactorCount; ++i)
        scaleFactors[index++] = 0;
    return bitsRead;
}

// 3-5. Huffman decoding, dequantisation and reordering ---------------------------------------

namespace
{

/** A factor of the gain table: base moved on by index entries, held inside the table for damaged streams. */
float gainAt(const float* table, const float* base, int32_t index)
{
    const int64_t entry = (base - table) + index;
    return table[std::clamp<int64_t>(entry, 0, gainTableSize - 1)];
}

/** factor with its sign flipped when sign is 1: the sign of a line costs no branch. */
inline float withSign(float factor, uint32_t sign)
{
    uint32_t bits;
    std::memcpy(&bits, &factor, sizeof bits);
    bits ^= sign << 31;
    std::memcpy(&factor, &bits, sizeof bits);
    return factor;
}

/**
    Walks a Huffman tree over the look-ahead bits in window, from bit used on (counted from
    the top): a branch entry skips its magnitude of entries when the bit is 1, and the walk
    ends at the first non-negative entry, the leaf. The first 8 bits are looked up, the rest
    taken one at a time (the longest code has 19). used grows by the code's length; a code
    longer than limit bits gives -1.
*/
inline int32_t walkTree(uint64_t window, const int16_t* tree, const Mp3HuffmanLookup* lookup, int32_t& used,
                        int32_t limit)
{
    const Mp3HuffmanLookup& first = lookup[window >> (64 - mp3LookupBits)];
    used = first.length;
    if (first.isLeaf)
        return used <= limit ? first.value : -1;
    const int16_t* node = tree + first.value;
    int32_t entry = *node;
    while (entry < 0 && used < 32)
    {
        node += 1 + ((window << used) >> 63 != 0 ? -entry : 0);
        entry = *node;
        ++used;
    }
    return used <= limit && entry >= 0 ? entry : -1;
}

/**
    One value of a big-values pair from the look-ahead bits: the escape bits (a table with
    escapes), the sign, the line's float. A 0 has no sign bit and gives +0, the positive factor
    times powerTable[0], with no branch on the value.
*/
template <bool escapes>
inline float decodeValue(uint64_t window, int32_t& used, const float* powerTable, int32_t value, int32_t linbits,
                         float factor)
{
    if constexpr (escapes)
        if (value == 15)
        {
            value += int32_t((window << used) >> (64 - linbits));
            used += linbits;
        }
    const uint32_t nonZero = value != 0 ? 1 : 0;
    const uint32_t sign = uint32_t((window << used) >> 63) & nonZero;
    used += int32_t(nonZero);
    return withSign(factor, sign) * powerTable[value];
}

/** Where the next pair of lines of a granule goes: the current band record and its factor. */
struct LineCursor
{
    const Mp3BandRecord* record = nullptr;
    const Mp3BandRecord* end = nullptr;
    int32_t recordIndex = -1;
    int32_t pairsLeft = 0;
    int32_t position = 0;
    int32_t step = 1;
    float factor = 0.0f;
};

/** Pair counts of the three regions of big values. */
void splitRegions(const Mp3GranuleInfo& info, int32_t counts[3])
{
    const int32_t bigValues = int32_t(info.big_values);
    const int32_t region1 = int32_t(info.region1Start);
    const int32_t region2 = int32_t(info.region2Start);
    if (bigValues <= region1)
    {
        counts[0] = bigValues;
        counts[1] = counts[2] = 0;
    }
    else if (bigValues <= region2)
    {
        counts[0] = region1;
        counts[1] = bigValues - region1;
        counts[2] = 0;
    }
    else
    {
        counts[0] = region1;
        counts[1] = region2 - region1;
        counts[2] = bigValues - region2;
    }
    for (int32_t i = 0; i < 3; ++i)
        counts[i] = std::max(counts[i], 0);
}

/**
    The Huffman and dequantisation pass of one granule, shared by long and short blocks:
    the band map decides where each pair lands and which gain it takes.
*/
template <bool isShort>
class GranuleDecoder
{
public:
    GranuleDecoder(Mp3BitReader& reader, float* lines, const int32_t* factors, const Mp3GranuleInfo& granule,
                   const Mp3BandMap& map)
        : bits(reader), spectrum(lines), scaleFactors(factors), info(granule),
          shift(int32_t(granule.scalefac_scale) + 1),
          pretab(!isShort && granule.preflag != 0 ? Mp3Tables::pretab : Mp3Tables::pretabZero)
    {
        cursor.record = map.begin() - 1;
        cursor.end = map.end();
        if (isShort && granule.mixed_block_flag != 0)
            highest[0] = highest[1] = highest[2] = 2;
    }

    void decodeBigValues(int32_t& remain)
    {
        int32_t counts[3];
        splitRegions(info, counts);
        for (int32_t region = 0; region < 3; ++region)
        {
            const int32_t select = int32_t(info.table_select[region] & 31);
            const Mp3HuffmanTable& table = tables.huffmanTables[select];
            const Mp3HuffmanLookup* lookup = tables.huffmanLookups[select];
            // Run by run: the pairs of one band record share their factor and their step.
            for (int32_t left = counts[region]; left > 0;)
            {
                if (!nextPair())
                    return;
                const int32_t run = std::min(left, cursor.pairsLeft);
                const int32_t leaves = table.linbits > 0 ? decodePairs<true>(run, table, lookup, remain)
                                                         : decodePairs<false>(run, table, lookup, remain);
                if (leaves != 0)
                    highest[cursor.record->window] = cursor.record->band;
                cursor.pairsLeft -= run;
                left -= run;
            }
        }
    }

    /**
        run pairs of big values into the current band record; returns their codes' leaves OR-ed.
        Tables with escapes and without get loops of their own, so that neither tests linbits.
    */
    template <bool escapes>
    int32_t decodePairs(int32_t run, const Mp3HuffmanTable& table, const Mp3HuffmanLookup* lookup, int32_t& remain)
    {
        const float* powerTable = tables.powerTable;
        const float factor = cursor.factor;
        const int32_t step = isShort ? cursor.step : 1;
        int32_t position = isShort ? cursor.position : longPosition;
        int32_t leaves = 0;
        for (int32_t pair = 0; pair < run; ++pair, position += 2 * step)
        {
            // A pair takes at most 19 + 2 x 14 bits: one look ahead serves all of it.
            const uint64_t window = bits.peek64();
            int32_t used = 0;
            const int32_t leaf = std::max(walkTree(window, table.tree, lookup, used, 32), 0);
            const float x = decodeValue<escapes>(window, used, powerTable, leaf >> 4, table.linbits, factor);
            const float y = decodeValue<escapes>(window, used, powerTable, leaf & 15, table.linbits, factor);
            bits.skipBits(used);
            remain -= used;
            // A damaged or unusual map must not carry lines past the granule.
            if (position + step < granuleLines)
            {
                spectrum[position] = x;
                spectrum[position + step] = y;
            }
            leaves |= leaf;
        }
        if constexpr (isShort)
            cursor.position = position;
        else
            longPosition = position;
        return leaves;
    }

    void decodeQuads(int32_t& remain)
    {
        const int32_t maxQuads = (288 - int32_t(info.big_values)) / 2;
        const uint16_t* lookup = tables.quadLookups[info.count1table_select & 1];
        for (int32_t quad = 0; quad < maxQuads && remain > 0; ++quad)
        {
            // Taking the band record first changes nothing when none is left: the bits the
            // quad would have taken are skipped with the rest of the granule's.
            if (!nextPair())
                return;
            if (remain >= mp3QuadLookupBits && cursor.pairsLeft >= 2 && position() + 3 * step() < granuleLines)
                decodeWholeQuad(lookup, remain);
            else if (!decodeQuadNearEnd(remain))
                return;
        }
    }

    /** Sets maxBand and maxb from the bands that received non-zero lines. */
    void setLimits(Mp3GranuleInfo& target, int32_t sampleRateIndex) const
    {
        for (int32_t i = 0; i < 4; ++i)
            target.maxBand[i] = highest[i] + 1;
        if constexpr (!isShort)
        {
            target.maxb = tables.longLimit[sampleRateIndex][target.maxBand[3]];
            return;
        }
        const int32_t shortest = std::max({ highest[0], highest[1], highest[2] });
        target.maxb = shortest >= 0 ? tables.shortLimit[sampleRateIndex][shortest + 1]
                                    : tables.longLimit[sampleRateIndex][target.maxBand[3]];
    }

private:
    /** Moves to the next pair of lines, taking the next band record when this one is used up. */
    bool nextPair()
    {
        if (cursor.pairsLeft > 0)
            return true;
        do
        {
            if (++cursor.record >= cursor.end)
                return false;
            ++cursor.recordIndex;
        } while (cursor.record->pairs <= 0);
        const Mp3BandRecord& record = *cursor.record;
        cursor.pairsLeft = record.pairs;
        cursor.position = record.start;
        cursor.step = record.lineStep();
        const int32_t scaleFactor = scaleFactors[std::min(cursor.recordIndex, scaleFactorCount - 1)];
        if (record.window == 3)
        {
            const int32_t emphasis = cursor.recordIndex < 22 ? pretab[cursor.recordIndex] : 0;
            cursor.factor = gainAt(tables.gainTable, info.gain, (scaleFactor + emphasis) << shift);
        }
        else
            cursor.factor = gainAt(tables.gainTable, info.fullGain[record.window], scaleFactor << shift);
        return true;
    }

    /** Where the next pair's first line goes, and the distance to its second. */
    int32_t position() const { return isShort ? cursor.position : longPosition; }
    int32_t step() const { return isShort ? cursor.step : 1; }

    void store(float x, float y)
    {
        // A damaged or unusual map must not carry lines past the granule.
        if (position() + step() < granuleLines)
        {
            spectrum[position()] = x;
            spectrum[position() + step()] = y;
        }
        if (x != 0.0f || y != 0.0f)
            highest[cursor.record->window] = cursor.record->band;
        if constexpr (isShort)
            cursor.position += 2 * step();
        else
            longPosition += 2;
        --cursor.pairsLeft;
    }

    /**
        A quad whose code and signs the granule's bits surely hold, and whose four lines the band
        record and the granule do. A line is non-zero where the quad holds a 1 (no gain is 0).
    */
    void decodeWholeQuad(const uint16_t* lookup, int32_t& remain)
    {
        const uint32_t entry = lookup[bits.peek64() >> (64 - mp3QuadLookupBits)];
        const int32_t length = int32_t(entry >> 8);
        bits.skipBits(length);
        remain -= length;
        // Times 1 or -1 the factor keeps its value or flips its sign, exactly; times 0 it is +0.
        using namespace mp3vector;
        const float factor = cursor.factor;
        const Floats lines = Load(tables.quadSigns[entry & 255]) * Floats { factor, factor, factor, factor };
        if constexpr (isShort)
            for (int32_t i = 0; i < 4; ++i)
                spectrum[cursor.position + i * cursor.step] = lines[i];
        else
            Store(spectrum + longPosition, lines);
        if ((entry & 0xF0) != 0)
            highest[cursor.record->window] = cursor.record->band;
        if constexpr (isShort)
            cursor.position += 4 * step();
        else
            longPosition += 4;
        cursor.pairsLeft -= 2;
    }

    /** A quad bit by bit, which may end the granule's bits or band records; false when it did. */
    bool decodeQuadNearEnd(int32_t& remain)
    {
        const int32_t leaf = walkQuadTree(remain);
        for (int32_t half = 0; half < 2; ++half)
        {
            if (!nextPair())
                return false;
            float values[2] = { 0.0f, 0.0f };
            for (int32_t i = 0; i < 2; ++i)
            {
                if (((leaf >> (3 - 2 * half - i)) & 1) == 0)
                    continue;
                if (remain <= 0)
                {
                    store(values[0], values[1]);
                    return false; // no bit left for the sign: the quad ends here
                }
                --remain;
                values[i] = withSign(cursor.factor, bits.readBit());
            }
            store(values[0], values[1]);
        }
        return true;
    }

    /** A count1 code; when the bits run out within the code the quad is 0. */
    int32_t walkQuadTree(int32_t& remain)
    {
        const uint32_t select = info.count1table_select & 1;
        int32_t used = 0;
        const int32_t leaf = walkTree(bits.peek64(), tables.count1Trees[select], tables.huffmanLookups[32 + select], used,
                                      remain);
        if (leaf < 0)
        {
            bits.skipBits(remain);
            remain = 0;
            return 0;
        }
        bits.skipBits(used);
        remain -= used;
        return leaf;
    }

    const Mp3Tables& tables = GetMp3Tables();
    Mp3BitReader& bits;
    float* spectrum;
    const int32_t* scaleFactors;
    const Mp3GranuleInfo& info;
    const int32_t shift;
    const uint8_t* pretab;
    LineCursor cursor;
    int32_t longPosition = 0;
    int32_t highest[4] = { -1, -1, -1, -1 }; ///< highest band with a non-zero line, per window
};

template <bool isShort>
int32_t decodeLines(Mp3BitReader& bits, float* spectrum, const int32_t* scaleFactors, Mp3GranuleInfo& info,
                    int32_t sampleRateIndex, int32_t remain)
{
    const int32_t kind = isShort ? (info.mixed_block_flag != 0 ? 0 : 1) : 2;
    // A local cursor, which the compiler can keep in registers through the walks.
    Mp3BitReader cursor = bits;
    GranuleDecoder<isShort> decoder(cursor, spectrum, scaleFactors, info,
                                    GetMp3Tables().bandMaps[sampleRateIndex][kind]);
    decoder.decodeBigValues(remain);
    decoder.decodeQuads(remain);
    decoder.setLimits(info, sampleRateIndex);
    bits = cursor;
    return remain;
}

} // namespace

bool dequantise(Mp3BitReader& bits, float* spectrum, const int32_t* scaleFactors, Mp3GranuleInfo& info,
                int32_t sampleRateIndex, int32_t part2Bits)
{
    std::fill(spectrum, spectrum + granuleLines, 0.0f);
    int32_t remain = int32_t(info.part2_3_length) - part2Bits;
    if (info.block_type == 2)
        remain = decodeLines<true>(bits, spectrum, scaleFactors, info, sampleRateIndex, remain);
    else
        remain = decodeLines<false>(bits, spectrum, scaleFactors, info, sampleRateIndex, remain);

    if (remain > 0)
        bits.skipBits(remain);
    return remain < 0;
}

// 6. Stereo processing ----------------------------------------------------------------------------

namespace
{

/** Intensity factors of the frame: the MPEG-1 pair, or the low-rate pair chosen by scalefac_compress. */
struct IntensityFactors
{
    const float* left;
    const float* right;
};

void scaleIntensityLines(float* left, float* right, int32_t first, int32_t count, int32_t step, int32_t position,
                         const IntensityFactors& factors)
{
    // 7 marks a band coded as it stands; positions past the 16 of the tables cannot be
    // looked up and are taken the same way.
    if (position == 7 || position < 0 || position > 15)
        return;
    const float leftFactor = factors.left[position];
    const float rightFactor = factors.right[position];
    for (int32_t i = 0, line = first; i < count && line < granuleLines; ++i, line += step)
    {
        right[line] = left[line] * rightFactor;
        left[line] *= leftFactor;
    }
}

/** Long bands from firstBand up to lastBand (inclusive) by their own positions, from line L[firstBand]. */
void intensityLongBands(float* left, float* right, const int32_t* scaleFactors, int32_t firstBand, int32_t lastBand,
                        const int16_t* bands, const IntensityFactors& factors)
{
    int32_t line = bands[Mp3Tables::longBoundaries + firstBand];
    for (int32_t band = firstBand; band <= lastBand; ++band)
    {
        const int32_t width = bands[Mp3Tables::longWidths + band];
        scaleIntensityLines(left, right, line, width, 1, scaleFactors[band], factors);
        line += width;
    }
}

} // namespace

void applyIntensity(float* left, float* right, const int32_t* scaleFactors, const Mp3GranuleInfo& info,
                    int32_t sampleRateIndex, bool msStereo, int32_t lowRate)
{
    const Mp3Tables& tables = GetMp3Tables();
    const int32_t row = msStereo ? 1 : 0;
    IntensityFactors factors { tables.intensityLeft[row], tables.intensityRight[row] };
    if (lowRate != 0)
    {
        const int32_t table = int32_t(info.scalefac_compress & 1);
        factors = { tables.intensityLowLeft[row][table], tables.intensityLowRight[row][table] };
    }
    const int16_t* bands = Mp3Tables::bandTable[sampleRateIndex];

    if (info.block_type != 2)
    {
        const int32_t first = std::clamp(info.maxBand[3], 0, 22);
        if (first > 21)
            return;
        intensityLongBands(left, right, scaleFactors, first, 20, bands, factors);
        // The last band has no scale factor of its own and takes the position of band 20.
        scaleIntensityLines(left, right, bands[Mp3Tables::longBoundaries + 21], bands[Mp3Tables::longWidths + 21], 1,
                            scaleFactors[20], factors);
        return;
    }

    const int32_t mixed = info.mixed_block_flag != 0 ? 1 : 0;
    bool longToo = mixed != 0;
    for (int32_t window = 0; window < 3; ++window)
    {
        const int32_t firstBand = std::max(info.maxBand[window], 0);
        if (!(longToo && firstBand <= 3))
            longToo = false;
        // A short band's lines start at its width, not at its first line: a long-standing
        // quirk of this decoder's intensity stereo that its output depends on.
        for (int32_t band = firstBand; band < 12; ++band)
        {
            const int32_t width = bands[Mp3Tables::shortWidths + band];
            scaleIntensityLines(left, right, width + window, width, 3,
                                scaleFactors[std::max(3 * band - mixed + window, 0)], factors);
        }
        const int32_t width = bands[Mp3Tables::shortWidths + 12];
        scaleIntensityLines(left, right, width + window, width, 3, scaleFactors[33 + window - mixed], factors);
    }
    const int32_t longBand = std::max(info.maxBand[3], 0);
    if (longToo && longBand < 8)
        intensityLongBands(left, right, scaleFactors, longBand, 7, bands, factors);
}

namespace
{

/** Mid/side, intensity and channel selection of a stereo granule, in the lines of both channels. */
void processStereo(const Mp3FrameHeader& header, Mp3GranuleInfo& leftInfo, Mp3GranuleInfo& rightInfo, float* left,
                   float* right, const int32_t* rightScaleFactors)
{
    const bool msStereo = header.isMidSide();
    const bool intensityStereo = header.isIntensityStereo();
    if (msStereo)
        for (int32_t i = 0; i < granuleLines; ++i)
        {
            const float mid = left[i];
            left[i] = mid + right[i];
            right[i] = mid - right[i];
        }
    if (intensityStereo)
        applyIntensity(left, right, rightScaleFactors, rightInfo, header.sampleRateIndex, msStereo,
                       header.lowSampleRate);
    if (msStereo || intensityStereo || header.channelSelect == 3)
        leftInfo.maxb = rightInfo.maxb = std::max(leftInfo.maxb, rightInfo.maxb);

    // The right channel alone goes through channel 0's filterbank: all its lines, for the
    // filterbank takes sub-bands in pairs and may reach one past its limit.
    if (header.channelSelect == 1)
        std::copy(right, right + granuleLines, left);
    else if (header.channelSelect == 3)
    {
        const int32_t lines = std::min(leftInfo.maxb, 32) * 18;
        for (int32_t i = 0; i < lines; ++i)
            left[i] += right[i];
    }
}

// 7. Antialias ------------------------------------------------------------------------------------

/** The three anti-alias butterflies of each sub-band boundary below limit. */
void antialias(float* lines, const Mp3GranuleInfo& info)
{
    int32_t boundaries;
    if (info.block_type != 2)
        boundaries = info.maxb - 1;
    else
        boundaries = info.mixed_block_flag != 0 ? 1 : 0;
    using namespace mp3vector;
    const Mp3Tables& tables = GetMp3Tables();
    // Four butterflies a step: the 8 lines below a boundary are read and written in reverse.
    const Floats cs[2] = { Load(tables.antialiasCs), Load(tables.antialiasCs + 4) };
    const Floats ca[2] = { Load(tables.antialiasCa), Load(tables.antialiasCa + 4) };
    for (int32_t sb = 1; sb <= boundaries; ++sb)
        for (int32_t half = 0; half < 2; ++half)
        {
            float* upper = lines + 18 * sb - 4 - 4 * half;
            float* lower = lines + 18 * sb + 4 * half;
            const Floats u = Pick<3, 2, 1, 0>(Load(upper), Load(upper));
            const Floats d = Load(lower);
            const Floats newUpper = u * cs[half] - d * ca[half];
            Store(upper, Pick<3, 2, 1, 0>(newUpper, newUpper));
            Store(lower, d * cs[half] + u * ca[half]);
        }
}

// 8-9. Hybrid filterbank with frequency inversion ---------------------------------------------

/** IMDCT and overlap of one channel's granule into its 18 rows of 32 sub-band samples. */
void hybrid(Mp3Layer3State& layer3, int32_t channel, const Mp3GranuleInfo& info)
{
    const int32_t half = layer3.blockIndex[channel];
    layer3.blockIndex[channel] = 1 - half;
    const Mp3HybridBlock block { int(info.block_type & 3), info.mixed_block_flag != 0, std::min(info.maxb, 32) };
    hybridFilterbank(layer3.spectrum[channel], block, &layer3.overlapBlocks[half][channel][0][0],
                     &layer3.overlapBlocks[1 - half][channel][0][0], &layer3.hybrid[channel][0][0]);
}

// 10. Synthesis, and the frame --------------------------------------------------------------------

/** The 18 rows of a granule's sub-band samples through the synthesis filter, one channel or both. */
void synthesiseGranule(Mp3Layer3State& layer3, int32_t activeChannels, Mp3SynthesisState& synthesis, float* out0,
                       float* out1, int32_t& samplesDone)
{
    for (int32_t row = 0; row < 18; ++row)
    {
        if (activeChannels == 2)
        {
            int32_t leftDone = samplesDone;
            synthesise(synthesis, layer3.hybrid[0][row], 0, out0, leftDone);
            synthesise(synthesis, layer3.hybrid[1][row], 1, out1, samplesDone);
        }
        else
            synthesise(synthesis, layer3.hybrid[0][row], 0, out0, samplesDone);
    }
}

/** Reads the scale factors and lines of one channel's granule; true when its bits ran over. */
bool decodeChannel(const Mp3FrameHeader& header, Mp3BitReader& bits, Mp3GranuleInfo& info, float* spectrum,
                   int32_t* scaleFactors, bool intensityChannel)
{
    const int32_t part2Bits = header.lowSampleRate != 0
                                  ? readScaleFactorsLowRate(bits, scaleFactors, info, intensityChannel)
                                  : readScaleFactorsMpeg1(bits, scaleFactors, info);
    return dequantise(bits, spectrum, scaleFactors, info, header.sampleRateIndex, part2Bits);
}

} // namespace

void Mp3Layer3State::reset() noexcept
{
    std::memset(overlapBlocks, 0, sizeof overlapBlocks);
    blockIndex[0] = blockIndex[1] = 0;
}

void decodeLayer3(const Mp3FrameHeader& header, Mp3SideInfo& sideInfo, Mp3BitReader& bits, Mp3Layer3State& layer3,
                  Mp3SynthesisState& synthesis, float* out0, float* out1, int32_t& samplesDone)
{
    const bool stereoStream = header.numChannels == 2;
    const int32_t activeChannels = (!stereoStream || header.channelSelect >= 0) ? 1 : 2;

    // Kept for the frame, so that granule 1 can take over scale factors of granule 0.
    int32_t scaleFactors[2][scaleFactorCount] = {};
    for (int32_t granule = 0; granule < header.numGranules(); ++granule)
    {
        Mp3GranuleInfo& leftInfo = sideInfo.granules[0][granule];
        Mp3GranuleInfo& rightInfo = sideInfo.granules[1][granule];
        if (decodeChannel(header, bits, leftInfo, layer3.spectrum[0], scaleFactors[0], false))
            return;
        if (stereoStream)
        {
            if (decodeChannel(header, bits, rightInfo, layer3.spectrum[1], scaleFactors[1],
                              header.isIntensityStereo()))
                return;
            processStereo(header, leftInfo, rightInfo, layer3.spectrum[0], layer3.spectrum[1], scaleFactors[1]);
        }
        // A selected right channel is filtered with its own block type and limit.
        const int32_t first = stereoStream && header.channelSelect == 1 ? 1 : 0;
        for (int32_t channel = 0; channel < activeChannels; ++channel)
        {
            const Mp3GranuleInfo& info = sideInfo.granules[first + channel][granule];
            antialias(layer3.spectrum[channel], info);
            hybrid(layer3, channel, info);
        }
        synthesiseGranule(layer3, activeChannels, synthesis, out0, out1, samplesDone);
    }
}

} // namespace kvo
