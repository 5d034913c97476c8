// The MPEG audio decoder's tables, each by its rule: Huffman trees against the code lists,
// band tables, scale factor lengths, derived factors, and the choice of Layer II allocation
// table. The entries themselves are proven by the decodes of the fixtures.

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <iterator>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "audiofiles/KvoMp3HuffmanCodes.h"
#include "audiofiles/KvoMp3Layer12.h"
#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

/** Built on first use within a test, so that a fault in the building fails the tests, not their listing. */
const Mp3Tables& Tables()
{
    return GetMp3Tables();
}

constexpr int codedTables[] = { 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24, mp3Count1TableA, mp3Count1TableB };

/** One word of a code list with the leaf value it must decode to. */
struct CodeWord
{
    std::string bits;
    int value = 0;
};

std::vector<CodeWord> Words(int table)
{
    const Mp3HuffmanCodeList list = GetMp3HuffmanCodes(table);
    const bool quadruples = table >= mp3Count1TableA;
    std::vector<CodeWord> words;
    for (int row = 0; row < list.numRows; ++row)
    {
        std::istringstream text(list.rows[row]);
        std::string bits;
        int column = 0;
        while (text >> bits)
        {
            words.push_back({ bits, quadruples ? row * 4 + column : row << 4 | column });
            ++column;
        }
        EXPECT_EQ(column, list.wordsPerRow) << "table " << table << " row " << row;
    }
    return words;
}

const int16_t* Tree(int table)
{
    return table == mp3Count1TableA   ? Tables().count1Trees[0]
           : table == mp3Count1TableB ? Tables().count1Trees[1]
                                      : Tables().huffmanTables[table].tree;
}

/** Walks tree with bits as the walk's rule says; returns the leaf, or -1 if the bits end first. */
int Walk(const int16_t* tree, const std::string& bits, size_t& used)
{
    used = 0;
    while (*tree < 0)
    {
        if (used == bits.size())
            return -1;
        const int16_t branch = *tree++;
        if (bits[used++] == '1')
            tree -= branch;
    }
    return *tree;
}

/** Every path of the tree: its number of leaves, its deepest leaf and the entries it spans. */
void Explore(const int16_t* tree, int depth, int& leaves, int& deepest, const int16_t*& end)
{
    if (*tree >= 0)
    {
        ++leaves;
        deepest = std::max(deepest, depth);
        end = std::max(end, tree + 1);
        return;
    }
    Explore(tree + 1, depth + 1, leaves, deepest, end);
    Explore(tree + 1 - *tree, depth + 1, leaves, deepest, end);
}

TEST(Mp3HuffmanTables, EveryTreeIsACompletePrefixCodeOfItsList)
{
    // A Kraft sum of exactly 1, every word walking to its own leaf with no bit left over, and a
    // tree of 2n - 1 entries for n words together make each tree a complete prefix code.
    const int sizes[] = { 2, 3, 3, 4, 4, 6, 6, 6, 8, 8, 8, 16, 16, 16, 16, 4, 4 };
    const int16_t* storageEnd = Tables().huffmanStorage;
    for (size_t t = 0; t < std::size(codedTables); ++t)
    {
        const int table = codedTables[t];
        const std::vector<CodeWord> words = Words(table);
        EXPECT_EQ(words.size(), size_t(sizes[t] * sizes[t])) << "table " << table;
        uint64_t kraft = 0; // in units of 2^-19, the longest word
        size_t longest = 0;
        for (const CodeWord& word : words)
        {
            ASSERT_LE(word.bits.size(), 19u);
            ASSERT_EQ(word.bits.find_first_not_of("01"), std::string::npos);
            kraft += uint64_t(1) << (19 - word.bits.size());
            longest = std::max(longest, word.bits.size());
            size_t used = 0;
            EXPECT_EQ(Walk(Tree(table), word.bits, used), word.value) << "table " << table << " word " << word.bits;
            EXPECT_EQ(used, word.bits.size()) << "table " << table << " word " << word.bits;
            // The look-up of the word's first bits, whatever follows them, ends where the walk does.
            const size_t head = std::min(word.bits.size(), size_t(mp3LookupBits));
            const int prefix = std::stoi(word.bits.substr(0, head), nullptr, 2) << (mp3LookupBits - head);
            for (int tail = 0; tail < 1 << (mp3LookupBits - head); ++tail)
            {
                const Mp3HuffmanLookup& entry = Tables().huffmanLookups[table][prefix | tail];
                const int leaf = entry.isLeaf ? entry.value : Walk(Tree(table) + entry.value, word.bits.substr(head), used);
                EXPECT_TRUE(leaf == word.value && entry.length == head) << "table " << table << " word " << word.bits;
            }
            // A count1 word's quad look-up: the word, then a sign for each 1 of v w x y, whatever follows.
            for (int index = 0; table >= mp3Count1TableA && index < 1 << mp3QuadLookupBits; ++index)
            {
                const std::string bits = std::bitset<mp3QuadLookupBits>(uint32_t(index)).to_string();
                const uint32_t entry = Tables().quadLookups[table - mp3Count1TableA][index];
                std::string coded = word.bits;
                for (int line = 3; line >= 0; --line)
                    coded += ((word.value >> line) & 1) != 0 ? std::string(1, char('0' + ((entry >> line) & 1))) : "";
                EXPECT_TRUE(!bits.starts_with(word.bits) || (bits.starts_with(coded) && entry >> 8 == coded.size() &&
                                                              entry == ((entry & 0xF0F) | uint32_t(word.value) << 4)))
                    << "table " << table << " word " << word.bits << " index " << index;
            }
        }
        EXPECT_EQ(kraft, uint64_t(1) << 19) << "table " << table;
        int leaves = 0;
        int deepest = 0;
        const int16_t* treeEnd = Tree(table);
        Explore(Tree(table), 0, leaves, deepest, treeEnd);
        EXPECT_EQ(leaves, int(words.size())) << "table " << table;
        EXPECT_EQ(treeEnd - Tree(table), 2 * leaves - 1) << "table " << table;
        EXPECT_EQ(deepest, int(longest)) << "table " << table;
        storageEnd = std::max(storageEnd, treeEnd);
    }
    EXPECT_EQ(storageEnd - Tables().huffmanStorage, Mp3Tables::huffmanStorageSize);
    EXPECT_EQ(GetMp3HuffmanCodes(4).numRows, 0);
    EXPECT_EQ(GetMp3HuffmanCodes(14).numRows, 0);
}

TEST(Mp3HuffmanTables, SpotWordsOfTheStandardTables)
{
    // The shortest and longest words of a few tables, as the standard prints them.
    struct Spot { const int16_t* tree; const char* bits; int value; };
    const Spot spots[] = {
        {Tables().huffmanTables[1].tree, "001", 0x01},  {Tables().huffmanTables[7].tree, "0000000000", 0x55},
        {Tables().huffmanTables[13].tree, "0000000000000001", 0xFF}, {Tables().huffmanTables[16].tree, "000010001", 0x0F},
        {Tables().huffmanTables[24].tree, "0011", 0xFF}, {Tables().count1Trees[0], "000001", 15}, {Tables().count1Trees[1], "1111", 0},
    };
    for (const Spot& spot : spots)
    {
        size_t used = 0;
        EXPECT_EQ(Walk(spot.tree, spot.bits, used), spot.value) << spot.bits;
    }
}

// Band tables ------------------------------------------------------------------------------------

TEST(Mp3BandTables, WidthsAddUpToTheBoundariesAndTo576)
{
    for (int row = 0; row < 9; ++row)
    {
        const int16_t* bands = Mp3Tables::bandTable[row];
        EXPECT_EQ(bands[Mp3Tables::longBoundaries], 0);
        int line = 0;
        for (int band = 0; band < 22; ++band)
        {
            EXPECT_EQ(bands[Mp3Tables::longBoundaries + band], line) << "row " << row << " band " << band;
            line += bands[Mp3Tables::longWidths + band];
        }
        EXPECT_EQ(line, 576) << "row " << row;
        EXPECT_EQ(bands[Mp3Tables::longBoundaries + 22], 576);
        line = 0;
        for (int band = 0; band < 13; ++band)
        {
            EXPECT_EQ(bands[Mp3Tables::shortBoundaries + band], line) << "row " << row << " short band " << band;
            line += 3 * bands[Mp3Tables::shortWidths + band];
        }
        EXPECT_EQ(line, 576) << "row " << row;
        EXPECT_EQ(bands[Mp3Tables::shortBoundaries + 13], 576);
    }
}

/** How often each line of the spectrum is written by a map, and checks of each record's shape. */
std::vector<int> Coverage(const Mp3BandMap& map)
{
    std::vector<int> hits(576, 0);
    for (const Mp3BandRecord& record : map)
    {
        EXPECT_GT(record.pairs, 0);
        const int step = record.window == 3 ? 1 : 3;
        for (int i = 0; i < 2 * record.pairs; ++i)
        {
            const int line = record.start + i * step;
            EXPECT_LT(line, 576);
            if (line < 576)
                ++hits[size_t(line)];
        }
    }
    return hits;
}

TEST(Mp3BandTables, LongAndShortMapsWriteEveryLineOnce)
{
    for (int row = 0; row < 9; ++row)
    {
        for (int kind : { 1, 2 })
        {
            const std::vector<int> hits = Coverage(Tables().bandMaps[row][kind]);
            for (int line = 0; line < 576; ++line)
                EXPECT_EQ(hits[size_t(line)], 1) << "row " << row << " map " << kind << " line " << line;
        }
        EXPECT_EQ(Tables().bandMaps[row][2].numRecords, 22);
        EXPECT_EQ(Tables().bandMaps[row][1].numRecords, 39);
    }
}

TEST(Mp3BandTables, MixedMapsStartShortBandsAfterEightLongOnes)
{
    for (int row = 0; row < 9; ++row)
    {
        const Mp3BandMap& map = Tables().bandMaps[row][0];
        for (int band = 0; band < 8; ++band)
        {
            EXPECT_EQ(map.records[band].window, 3);
            EXPECT_EQ(map.records[band].band, band);
        }
        EXPECT_EQ(map.records[8].start, Mp3Tables::bandTable[row][8]) << "row " << row;
        EXPECT_EQ(map.records[8].band, 3);
        const std::vector<int> hits = Coverage(map);
        for (int line = 0; line < 576; ++line)
        {
            // The MPEG-1 rows tile the spectrum; the wider long part of the low rates pushes the
            // last short lines off its end, where they are cut.
            if (row < 3)
                EXPECT_EQ(hits[size_t(line)], 1) << "row " << row << " line " << line;
            else
                EXPECT_LE(hits[size_t(line)], 1) << "row " << row << " line " << line;
        }
    }
}

// Scale factor tables ----------------------------------------------------------------------------

struct Lengths
{
    int lengths[4];
    int table;
    bool preflag;
};

Lengths Unpack(uint16_t word)
{
    return { { word & 7, word >> 3 & 7, word >> 6 & 7, word >> 9 & 7 }, word >> 12 & 7, (word & 0x8000) != 0 };
}

void ExpectLengths(uint16_t word, Lengths expected, int index)
{
    const Lengths got = Unpack(word);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(got.lengths[i], expected.lengths[i]) << "entry " << index << " group " << i;
    EXPECT_EQ(got.table, expected.table) << "entry " << index;
    EXPECT_EQ(got.preflag, expected.preflag) << "entry " << index;
}

TEST(Mp3ScaleFactorTables, LowRateLengthsFollowTheStandardsArithmetic)
{
    for (int c = 0; c < 400; ++c)
        ExpectLengths(Tables().lowRateLengths[c], { { (c >> 4) / 5, (c >> 4) % 5, (c % 16) >> 2, c % 4 }, 0, false }, c);
    for (int c = 400; c < 500; ++c)
        ExpectLengths(Tables().lowRateLengths[c], { { ((c - 400) >> 2) / 5, ((c - 400) >> 2) % 5, (c - 400) % 4, 0 }, 1, false }, c);
    for (int c = 500; c < 512; ++c)
        ExpectLengths(Tables().lowRateLengths[c], { { (c - 500) / 3, (c - 500) % 3, 0, 0 }, 2, true }, c);
    for (int c = 0; c < 180; ++c)
        ExpectLengths(Tables().lowRateLengthsIntensity[c], { { c / 36, (c % 36) / 6, (c % 36) % 6, 0 }, 3, false }, c);
    for (int c = 180; c < 244; ++c)
        ExpectLengths(Tables().lowRateLengthsIntensity[c],
                      { { ((c - 180) % 64) >> 4, ((c - 180) % 16) >> 2, (c - 180) % 4, 0 }, 4, false }, c);
    for (int c = 244; c < 256; ++c)
        ExpectLengths(Tables().lowRateLengthsIntensity[c], { { (c - 244) / 3, (c - 244) % 3, 0, 0 }, 5, false }, c);
}

TEST(Mp3ScaleFactorTables, BandCountsCoverEveryBlockKind)
{
    // Long blocks have 21 bands, short ones 12 x 3, mixed ones 6 long and 9 x 3 short; the
    // preemphasis adds 19 steps in all, from band 11 on.
    const int totals[3] = {21, 36, 33};
    for (int kind = 0; kind < 3; ++kind)
        for (int table = 0; table < 6; ++table)
        {
            const uint8_t* counts = Mp3Tables::bandCounts[kind][table];
            EXPECT_EQ(counts[0] + counts[1] + counts[2] + counts[3], totals[kind]) << kind << " " << table;
        }
    int pretabSum = 0;
    for (int band = 0; band < 22; ++band)
    {
        pretabSum += Mp3Tables::pretab[band];
        EXPECT_EQ(Mp3Tables::pretab[band] != 0, band >= 11 && band < 21) << band;
        EXPECT_EQ(Mp3Tables::pretabZero[band], 0);
    }
    EXPECT_EQ(pretabSum, 19);
}

// Derived factors --------------------------------------------------------------------------------

TEST(Mp3FactorTables, PowersAndGains)
{
    // Entry i of the power table is i^(4/3); entry i of the gain table 2^((46 - i) / 4), so
    // that global_gain 210 (entry 46) is unity.
    for (int i : {0, 1, 8, 27, 4096, 8206})
        EXPECT_FLOAT_EQ(Tables().powerTable[i], float(std::cbrt(double(i)) * i)) << i;
    for (int i : {0, 42, 46, 50, 377})
        EXPECT_FLOAT_EQ(Tables().gainTable[i], float(std::pow(2.0, (46 - i) / 4.0))) << i;
}

TEST(Mp3FactorTables, AntialiasButterfliesAreRotations)
{
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_NEAR(double(Tables().antialiasCs[i]) * Tables().antialiasCs[i] + double(Tables().antialiasCa[i]) * Tables().antialiasCa[i],
                    1.0, 1e-6);
        EXPECT_LT(Tables().antialiasCa[i], 0.0f);
    }
    EXPECT_NEAR(Tables().antialiasCa[0] / Tables().antialiasCs[0], -0.6, 1e-6);
    EXPECT_NEAR(Tables().antialiasCa[7] / Tables().antialiasCs[7], -0.0037, 1e-7);
}

// Layer II allocation tables ----------------------------------------------------------------------

TEST(Layer2AllocationTables, ChosenByBitrateAChannelAndRate)
{
    // MPEG-1: up to 48 kbit/s a channel table c, at 32 kHz d; 56 to 80 table a; more, free
    // format and the forbidden index table b, at 48 kHz a. The low rates have one table.
    const int bitrates[16] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0};
    Mp3FrameHeader header;
    for (header.sampleRateIndex = 0; header.sampleRateIndex < 9; ++header.sampleRateIndex)
        for (header.numChannels = 1; header.numChannels <= 2; ++header.numChannels)
            for (header.bitrateIndex = 0; header.bitrateIndex < 16; ++header.bitrateIndex)
            {
                header.lowSampleRate = header.sampleRateIndex >= 3 ? 1 : 0;
                const int perChannel = bitrates[header.bitrateIndex] / header.numChannels;
                const int rate = header.sampleRateIndex;
                const int expected = rate >= 3 ? 4
                                     : perChannel == 0 || perChannel >= 96 ? (rate == 1 ? 0 : 1)
                                     : perChannel >= 56 ? 0 : (rate == 2 ? 3 : 2);
                EXPECT_EQ(ChooseLayer2AllocationTable(header), expected) << rate << " " << header.numChannels << " " << header.bitrateIndex;
            }
}

} // namespace
} // namespace kvo
