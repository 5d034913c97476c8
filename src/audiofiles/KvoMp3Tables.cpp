#include "audiofiles/KvoMp3Tables.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "audiofiles/KvoMp3HuffmanCodes.h"

namespace kvo
{

namespace
{

// Scale factor band boundaries (ISO/IEC 11172-3, Table B.8, and the same table of ISO/IEC 13818-3
// for the half rates), in lines of one window: long bands, then short bands. The rows are 44100,
// 48000, 32000, 22050, 24000 and 16000 Hz (which 11025 and 12000 Hz share), and 8000 Hz, a row
// that is the program's own.
constexpr int32_t bandSourceRows = 7;
constexpr int32_t bandSourceRow[9] = { 0, 1, 2, 3, 4, 5, 5, 5, 6 };
constexpr int16_t longBandStarts[bandSourceRows][23] = {
    { 0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576 },
    { 0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576 },
    { 0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576 },
    { 0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576 },
    { 0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576 },
    { 0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576 },
    { 0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566, 568, 570, 572, 574, 576 },
};
constexpr int16_t shortBandStarts[bandSourceRows][14] = {
    { 0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192 },
    { 0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192 },
    { 0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192 },
    { 0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192 },
    { 0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192 },
    { 0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192 },
    { 0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192 },
};

/** The stored rows in the layout Mp3Tables::bandTable describes: boundaries and widths, short ones in lines of all three windows. */
struct BandRows
{
    int16_t rows[9][72] {};
};

constexpr BandRows BuildBandRows()
{
    BandRows table;
    for (int32_t rate = 0; rate < 9; ++rate)
    {
        const int16_t* longStarts = longBandStarts[bandSourceRow[rate]];
        const int16_t* shortStarts = shortBandStarts[bandSourceRow[rate]];
        int16_t* row = table.rows[rate];
        for (int32_t band = 0; band < 23; ++band)
            row[Mp3Tables::longBoundaries + band] = longStarts[band];
        for (int32_t band = 0; band < 22; ++band)
            row[Mp3Tables::longWidths + band] = int16_t(longStarts[band + 1] - longStarts[band]);
        for (int32_t band = 0; band < 14; ++band)
            row[Mp3Tables::shortBoundaries + band] = int16_t(3 * shortStarts[band]);
        for (int32_t band = 0; band < 13; ++band)
            row[Mp3Tables::shortWidths + band] = int16_t(shortStarts[band + 1] - shortStarts[band]);
    }
    return table;
}

constexpr BandRows bandRows = BuildBandRows();

} // namespace

const int16_t (&Mp3Tables::bandTable)[9][72] = bandRows.rows;

const uint8_t Mp3Tables::scaleFactorLengths[16][2] = {
    { 0, 0 }, { 0, 1 }, { 0, 2 }, { 0, 3 }, { 3, 0 }, { 1, 1 }, { 1, 2 }, { 1, 3 },
    { 2, 1 }, { 2, 2 }, { 2, 3 }, { 3, 1 }, { 3, 2 }, { 3, 3 }, { 4, 2 }, { 4, 3 },
};

// Pre-emphasis of the long bands (ISO/IEC 11172-3, Table B.6).
const uint8_t Mp3Tables::pretab[22] = { 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0 };
const uint8_t Mp3Tables::pretabZero[22] = {};

const uint8_t Mp3Tables::bandCounts[3][6][4] = {
    { { 6, 5, 5, 5 }, { 6, 5, 7, 3 }, { 11, 10, 0, 0 }, { 7, 7, 7, 0 }, { 6, 6, 6, 3 }, { 8, 8, 5, 0 } },
    { { 9, 9, 9, 9 }, { 9, 9, 12, 6 }, { 18, 18, 0, 0 }, { 12, 12, 12, 0 }, { 12, 9, 9, 6 }, { 15, 12, 9, 0 } },
    { { 6, 9, 9, 9 }, { 6, 9, 12, 6 }, { 15, 18, 0, 0 }, { 6, 15, 12, 0 }, { 6, 12, 9, 6 }, { 6, 18, 9, 0 } },
};

namespace
{

constexpr double pi = std::numbers::pi;

/**
    The synthesis window from its centre outwards, entries 0 to 256, in units of 2^-16 (the
    coefficients D[i] of ISO/IEC 11172-3, Table B.3, are exact multiples of it). The signs are the ones this filter
    needs: 1-85 negative, 86-143 positive, 144-200 negative, 201-256 positive.
*/
constexpr int32_t halfWindow[257] = {
    0, -1, -1, -1, -1, -1, -1, -2, -2, -2, -2, -3, -3, -4, -4, -5,
    -5, -6, -7, -7, -8, -9, -10, -11, -13, -14, -16, -17, -19, -21, -24, -26,
    -29, -31, -35, -38, -41, -45, -49, -53, -58, -63, -68, -73, -79, -85, -91, -97,
    -104, -111, -117, -125, -132, -139, -147, -154, -161, -169, -176, -183, -190, -196, -202, -208,
    -213, -218, -222, -225, -227, -228, -228, -227, -224, -221, -215, -208, -200, -189, -177, -163,
    -146, -127, -106, -83, -57, -29, 2, 36, 72, 111, 153, 197, 244, 294, 347, 401,
    459, 519, 581, 645, 711, 779, 848, 919, 991, 1064, 1137, 1210, 1283, 1356, 1428, 1498,
    1567, 1634, 1698, 1759, 1817, 1870, 1919, 1962, 2001, 2032, 2057, 2075, 2085, 2087, 2080, 2063,
    2037, 2000, 1952, 1893, 1822, 1739, 1644, 1535, 1414, 1280, 1131, 970, 794, 605, 402, 185,
    -45, -288, -545, -814, -1095, -1388, -1692, -2006, -2330, -2663, -3004, -3351, -3705, -4063, -4425, -4788,
    -5153, -5517, -5879, -6237, -6589, -6935, -7271, -7597, -7910, -8209, -8491, -8755, -8998, -9219, -9416, -9585,
    -9727, -9838, -9916, -9959, -9966, -9935, -9863, -9750, -9592, -9389, -9139, -8840, -8492, -8092, -7640, -7134,
    -6574, -5959, -5288, -4561, -3776, -2935, -2037, -1082, -70, 998, 2122, 3300, 4533, 5818, 7154, 8540,
    9975, 11455, 12980, 14548, 16155, 17799, 19478, 21189, 22929, 24694, 26482, 28289, 30112, 31947, 33791, 35640,
    37489, 39336, 41176, 43006, 44821, 46617, 48390, 50137, 51853, 53534, 55178, 56778, 58333, 59838, 61289, 62684,
    64019, 65290, 66494, 67629, 68692, 69679, 70590, 71420, 72169, 72835, 73415, 73908, 74313, 74630, 74856, 74992,
    75038,
};

constexpr double Square(double value) { return value * value; }

void BuildSynthesisTables(Mp3Tables& tables)
{
    for (int i = 0; i < 5; ++i)
        for (int k = 0; k < (16 >> i); ++k)
            tables.synthCosTables[i][k] = float(1.0 / (2.0 * std::cos(pi * (2 * k + 1) / double(64 >> i))));

    // Every run of 16 taps is stored twice, 16 floats apart, so that the windowing can start at
    // any rotation of the history without wrapping around.
    int x = 0;
    double sign = -1.0;
    for (int i = 0; i < 512; ++i)
    {
        const double value = halfWindow[i <= 256 ? i : 512 - i] / 65536.0;
        if (x < 528)
            tables.synthWindow[x] = tables.synthWindow[x + 16] = float(sign * value);
        if (i % 32 == 31)
            x -= 1023;
        if (i % 64 == 63)
            sign = -sign;
        x += 32;
    }
}

void BuildImdctWindows(Mp3Tables& tables)
{
    constexpr double w = pi / 72.0;
    constexpr double t = pi / 24.0;
    // The transform's output twiddle, 1 / cos(w (2i + 19)), is folded into every long window.
    auto twiddle = [](int i) { return 1.0 / std::cos(w * (2 * i + 19)); };
    double rows[4][36] = {};
    for (int i = 0; i < 36; ++i)
        rows[0][i] = 0.5 * std::sin(w * (2 * i + 1)) * twiddle(i);
    for (int i = 0; i < 18; ++i)
        rows[1][i] = rows[0][i];
    for (int i = 18; i < 24; ++i)
        rows[1][i] = 0.5 * twiddle(i);
    for (int i = 24; i < 30; ++i)
        rows[1][i] = 0.5 * std::sin(t * (2 * (i - 18) + 1)) * twiddle(i);
    for (int i = 0; i < 12; ++i)
        rows[2][i] = 0.5 * std::sin(t * (2 * i + 1)) / std::cos(t * (2 * i + 7));
    for (int i = 6; i < 12; ++i)
        rows[3][i] = 0.5 * std::sin(t * (2 * (i - 6) + 1)) * twiddle(i);
    for (int i = 12; i < 18; ++i)
        rows[3][i] = 0.5 * twiddle(i);
    for (int i = 18; i < 36; ++i)
        rows[3][i] = rows[0][i];

    for (int row = 0; row < 4; ++row)
    {
        const int length = row == 2 ? 12 : 36;
        for (int i = 0; i < 36; ++i)
        {
            tables.imdctWindow[row][i] = float(rows[row][i]);
            const bool flip = (i & 1) != 0 && i < length;
            tables.imdctWindowOdd[row][i] = float(flip ? -rows[row][i] : rows[row][i]);
        }
    }
}

void BuildIntensityTables(Mp3Tables& tables)
{
    for (int i = 0; i < 16; ++i)
    {
        const double tangent = std::tan(i * pi / 12.0);
        const double left = tangent / (1.0 + tangent);
        const double right = 1.0 / (1.0 + tangent);
        for (int m = 0; m < 2; ++m)
        {
            const double scale = m == 0 ? 1.0 : std::numbers::sqrt2;
            tables.intensityLeft[m][i] = float(left * scale);
            tables.intensityRight[m][i] = float(right * scale);
        }
    }
    for (int j = 0; j < 2; ++j)
    {
        const double base = std::pow(2.0, -(j + 1) / 4.0);
        for (int i = 0; i < 16; ++i)
        {
            double left = 1.0;
            double right = 1.0;
            if ((i & 1) != 0)
                left = std::pow(base, (i + 1) / 2.0);
            else if (i > 0)
                right = std::pow(base, i / 2.0);
            for (int m = 0; m < 2; ++m)
            {
                const double scale = m == 0 ? 1.0 : std::numbers::sqrt2;
                tables.intensityLowLeft[m][j][i] = float(left * scale);
                tables.intensityLowRight[m][j][i] = float(right * scale);
            }
        }
    }
}

void BuildLayer3Factors(Mp3Tables& tables)
{
    for (int i = 0; i < 8207; ++i)
        tables.powerTable[i] = float(std::pow(double(i), 4.0 / 3.0));
    for (int k = 0; k < 378; ++k)
        tables.gainTable[k] = float(std::pow(2.0, (46 - k) / 4.0));
    // The aliasing-butterfly coefficients c[i] of ISO/IEC 11172-3, Table B.9.
    constexpr double c[8] = { -0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037 };
    for (int i = 0; i < 8; ++i)
    {
        const double root = std::sqrt(1.0 + Square(c[i]));
        tables.antialiasCs[i] = float(1.0 / root);
        tables.antialiasCa[i] = float(c[i] / root);
    }
}

void BuildBandLimits(Mp3Tables& tables)
{
    for (int row = 0; row < 9; ++row)
    {
        const int16_t* bands = Mp3Tables::bandTable[row];
        for (int i = 0; i < 23; ++i)
            tables.longLimit[row][i] = std::min(32, (bands[Mp3Tables::longBoundaries + i] + 7) / 18 + 1);
        for (int i = 0; i < 14; ++i)
            tables.shortLimit[row][i] = std::min(32, (bands[Mp3Tables::shortBoundaries + i] - 1) / 18 + 1);
    }
}

void AddRecord(Mp3BandMap& map, int pairs, int start, int window, int band)
{
    if (pairs > 0)
        map.records[map.numRecords++] = { int16_t(pairs), int16_t(start), int16_t(window), int16_t(band) };
}

/**
    The short bands from firstBand on, reordered: the three windows of a band interleaved
    (window w from the band's start plus w, lines 3 apart), starting at line position. Where the
    long part of a mixed block is wider than the short bands it replaces (the low rates), the
    last bands would run past line 575: they are cut at the end of the spectrum.
*/
void AddReorderedShortBands(Mp3BandMap& map, const int16_t* bands, int firstBand, int position)
{
    for (int band = firstBand; band < 13; ++band)
    {
        const int pairs = std::min(bands[Mp3Tables::shortWidths + band] / 2, (576 - position) / 6);
        for (int window = 0; window < 3; ++window)
            AddRecord(map, pairs, position + window, window, band);
        position += 6 * pairs;
    }
}

void BuildBandMaps(Mp3Tables& tables)
{
    for (int row = 0; row < 9; ++row)
    {
        const int16_t* bands = Mp3Tables::bandTable[row];
        Mp3BandMap& mixed = tables.bandMaps[row][0];
        for (int band = 0; band < 8; ++band)
            AddRecord(mixed, bands[Mp3Tables::longWidths + band] / 2, bands[band], 3, band);
        AddReorderedShortBands(mixed, bands, 3, bands[8]);

        AddReorderedShortBands(tables.bandMaps[row][1], bands, 0, 0);

        Mp3BandMap& longMap = tables.bandMaps[row][2];
        for (int band = 0; band < 22; ++band)
            AddRecord(longMap, bands[Mp3Tables::longWidths + band] / 2, bands[band], 3, band);
    }
}

uint16_t LengthWord(int a, int b, int c, int d, int table, bool preflag)
{
    return uint16_t(a | b << 3 | c << 6 | d << 9 | table << 12 | (preflag ? 1 << 15 : 0));
}

/**
    Appends the length words of one range of scalefac_compress: every combination of the four
    lengths below their limits, the last length counting fastest.
*/
uint16_t* AddLengthWords(uint16_t* out, const int (&limits)[4], int table, bool preflag)
{
    const int count = limits[0] * limits[1] * limits[2] * limits[3];
    for (int n = 0; n < count; ++n)
    {
        int lengths[4];
        int rest = n;
        for (int group = 3; group >= 0; --group)
        {
            lengths[group] = rest % limits[group];
            rest /= limits[group];
        }
        *out++ = LengthWord(lengths[0], lengths[1], lengths[2], lengths[3], table, preflag);
    }
    return out;
}

void BuildLowRateLengths(Mp3Tables& tables)
{
    uint16_t* out = AddLengthWords(tables.lowRateLengths, { 5, 5, 4, 4 }, 0, false);
    out = AddLengthWords(out, { 5, 5, 4, 1 }, 1, false);
    AddLengthWords(out, { 4, 3, 1, 1 }, 2, true);

    out = AddLengthWords(tables.lowRateLengthsIntensity, { 5, 6, 6, 1 }, 3, false);
    out = AddLengthWords(out, { 4, 4, 4, 1 }, 4, false);
    AddLengthWords(out, { 4, 3, 1, 1 }, 5, false);
}

/**
    Builds the walk array of a code list: each branch is followed by its 0 side and then its 1
    side, and holds minus the size of its 0 side. A word missing from an incomplete list would
    read as the leaf 0, so that no walk can leave its tree.
*/
class TreeBuilder
{
public:
    /** quadruples: leaves hold v w x y as one 4-bit value, else x above the low 4 bits and y in them. */
    TreeBuilder(const Mp3HuffmanCodeList& codes, bool quadruples)
    {
        nodes.emplace_back();
        for (int row = 0; row < codes.numRows; ++row)
        {
            const char* text = codes.rows[row];
            for (int column = 0; column < codes.wordsPerRow; ++column)
            {
                while (*text == ' ')
                    ++text;
                const int16_t value = int16_t(quadruples ? row * codes.wordsPerRow + column : row << 4 | column);
                text = insert(text, value);
            }
        }
    }

    /** Writes the tree at out and returns the end of what it wrote. */
    int16_t* write(int16_t* out) const { return write(0, out); }

private:
    struct Node
    {
        int child[2] = { -1, -1 };
        int16_t leaf = 0;
    };

    const char* insert(const char* text, int16_t value)
    {
        int node = 0;
        for (; *text == '0' || *text == '1'; ++text)
        {
            const int bit = *text - '0';
            if (nodes[size_t(node)].child[bit] < 0)
            {
                nodes[size_t(node)].child[bit] = int(nodes.size());
                nodes.emplace_back();
            }
            node = nodes[size_t(node)].child[bit];
        }
        nodes[size_t(node)].leaf = value;
        return text;
    }

    int16_t* write(int node, int16_t* out) const
    {
        const Node& n = nodes[size_t(node)];
        if (n.child[0] < 0 && n.child[1] < 0)
        {
            *out++ = n.leaf;
            return out;
        }
        int16_t* branch = out++;
        int16_t* afterZero = writeChild(n.child[0], out);
        *branch = int16_t(-(afterZero - out));
        return writeChild(n.child[1], afterZero);
    }

    int16_t* writeChild(int child, int16_t* out) const
    {
        if (child >= 0)
            return write(child, out);
        *out++ = 0;
        return out;
    }

    std::vector<Node> nodes;
};

void BuildHuffmanTrees(Mp3Tables& tables)
{
    int16_t* out = tables.huffmanStorage;
    // Table 0, and the unused 4 and 14, decode every pair as (0, 0) without reading a bit.
    int16_t* const zeroTree = out;
    *out++ = 0;
    const int16_t* trees[34] = {};
    for (int table : { 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24, mp3Count1TableA, mp3Count1TableB })
    {
        trees[table] = out;
        out = TreeBuilder(GetMp3HuffmanCodes(table), table >= mp3Count1TableA).write(out);
    }
    constexpr int32_t linbits[32] = { 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                      1, 2, 3, 4, 6, 8, 10, 13, 4, 5, 6, 7, 8, 9, 11, 13 };
    for (int select = 0; select < 32; ++select)
    {
        const int own = select < 16 ? select : select < 24 ? 16 : 24;
        tables.huffmanTables[select] = { trees[own] != nullptr ? trees[own] : zeroTree, linbits[select] };
    }
    tables.count1Trees[0] = trees[mp3Count1TableA];
    tables.count1Trees[1] = trees[mp3Count1TableB];
}

void BuildLookup(const int16_t* tree, Mp3HuffmanLookup (&lookup)[1 << mp3LookupBits])
{
    for (int prefix = 0; prefix < (1 << mp3LookupBits); ++prefix)
    {
        int node = 0;
        int used = 0;
        while (tree[node] < 0 && used < mp3LookupBits)
        {
            const bool bit = ((prefix >> (mp3LookupBits - 1 - used)) & 1) != 0;
            node += 1 + (bit ? -tree[node] : 0);
            ++used;
        }
        const bool isLeaf = tree[node] >= 0;
        lookup[prefix] = { int16_t(isLeaf ? tree[node] : node), uint8_t(used), isLeaf };
    }
}

/** A count1 tree walked over each value of the look-up's bits, then one sign bit taken for each 1 of the quad. */
void BuildQuadLookup(const int16_t* tree, uint16_t (&lookup)[1 << mp3QuadLookupBits])
{
    for (int prefix = 0; prefix < (1 << mp3QuadLookupBits); ++prefix)
    {
        int used = 0;
        const auto nextBit = [&] { return (prefix >> (mp3QuadLookupBits - 1 - used++)) & 1; };
        int node = 0;
        while (tree[node] < 0)
            node += 1 + (nextBit() != 0 ? -tree[node] : 0);
        const int quad = tree[node] & 15;
        int signs = 0;
        for (int line = 3; line >= 0; --line)
            if (((quad >> line) & 1) != 0)
                signs |= nextBit() << line;
        lookup[prefix] = uint16_t(used << 8 | quad << 4 | signs);
    }
}

void BuildLookups(Mp3Tables& tables)
{
    // One look-up a tree: 0, 4 and 14 share the empty tree, 16 to 23 one tree and 24 to 31 another.
    const int16_t* trees[34];
    for (int select = 0; select < 32; ++select)
        trees[select] = tables.huffmanTables[select].tree;
    trees[32] = tables.count1Trees[0];
    trees[33] = tables.count1Trees[1];
    int built = 0;
    for (int i = 0; i < 34; ++i)
    {
        const int first = int(std::find(trees, trees + i, trees[i]) - trees);
        if (first == i && built < Mp3Tables::huffmanLookupCount)
            BuildLookup(trees[i], tables.huffmanLookupStorage[built++]);
        tables.huffmanLookups[i] = first < i ? tables.huffmanLookups[first] : tables.huffmanLookupStorage[built - 1];
    }
    BuildQuadLookup(tables.count1Trees[0], tables.quadLookups[0]);
    BuildQuadLookup(tables.count1Trees[1], tables.quadLookups[1]);
    for (int bits = 0; bits < 256; ++bits)
        for (int line = 0; line < 4; ++line)
        {
            const int shift = 3 - line;
            const float sign = ((bits >> shift) & 1) != 0 ? -1.0f : 1.0f;
            tables.quadSigns[bits][line] = ((bits >> (4 + shift)) & 1) == 0 ? 0.0f : sign;
        }
}

void BuildTables(Mp3Tables& tables)
{
    BuildSynthesisTables(tables);
    BuildLayer3Factors(tables);
    BuildImdctWindows(tables);
    BuildIntensityTables(tables);
    BuildBandLimits(tables);
    BuildBandMaps(tables);
    BuildLowRateLengths(tables);
    BuildHuffmanTrees(tables);
    BuildLookups(tables);
}

} // namespace

namespace detail
{

std::atomic<const Mp3Tables*> builtMp3Tables { nullptr };

const Mp3Tables& BuildMp3Tables()
{
    // The guard of a function-local static makes concurrent first calls wait for one build.
    static Mp3Tables tables;
    static const bool built = [] {
        BuildTables(tables);
        builtMp3Tables.store(&tables, std::memory_order_release);
        return true;
    }();
    (void) built;
    return tables;
}

} // namespace detail

} // namespace kvo
