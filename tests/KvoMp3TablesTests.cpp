// The MPEG audio decoder's tables, each by its rule: Huffman trees against the code lists,
// band tables, scale factor lengths, derived factors, and the choice of Layer II allocation
// table. The entries themselves are proven by the decodes of the fixtures.

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdint>
#include <numeric>
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

/** Walks tree with bits as the walk's rule says; returns the leaf, or -1 if the bits end first. */
int Walk(const int16_t* tree, const std::string& bits, size_t& used)
{
    for (used = 0; *tree < 0; ++used)
    {
        if (used == bits.size())
            return -1;
        const int16_t branch = *tree++;
        if (bits[used] == '1')
            tree -= branch;
    }
    return *tree;
}

/** The number of leaves below tree, and in end the first entry past the entries they span. */
int Leaves(const int16_t* tree, const int16_t*& end)
{
    end = std::max(end, tree + 1);
    return *tree >= 0 ? 1 : Leaves(tree + 1, end) + Leaves(tree + 1 - *tree, end);
}

TEST(Mp3HuffmanTables, EveryTreeIsACompletePrefixCodeOfItsList)
{
    // Every word walking to its own leaf with no bit left over, as many leaves as words and a
    // tree of 2n - 1 entries for n words make each tree a complete prefix code of its list. The
    // look-up of a word's first bits, whatever follows them, ends where the walk does.
    const Mp3Tables& tables = GetMp3Tables();
    const int16_t* storageEnd = tables.huffmanStorage;
    for (int table : {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24, mp3Count1TableA, mp3Count1TableB})
    {
        SCOPED_TRACE(table);
        const int16_t* tree = table >= mp3Count1TableA ? tables.count1Trees[table - mp3Count1TableA]
                                                       : tables.huffmanTables[table].tree;
        const Mp3HuffmanCodeList list = GetMp3HuffmanCodes(table);
        int words = 0;
        for (int row = 0; row < list.numRows; ++row)
        {
            std::istringstream text(list.rows[row]);
            int column = 0;
            for (std::string bits; text >> bits; ++column, ++words)
            {
                const int value = table >= mp3Count1TableA ? row * 4 + column : row << 4 | column;
                size_t used = 0;
                EXPECT_EQ(Walk(tree, bits, used), value) << bits;
                EXPECT_EQ(used, bits.size()) << bits;
                const size_t head = std::min(bits.size(), size_t(mp3LookupBits));
                const int prefix = std::stoi(bits.substr(0, head), nullptr, 2) << (mp3LookupBits - head);
                for (int tail = 0; tail < 1 << (mp3LookupBits - head); ++tail)
                {
                    const Mp3HuffmanLookup& entry = tables.huffmanLookups[table][prefix | tail];
                    const int leaf =
                        entry.isLeaf ? entry.value : Walk(tree + entry.value, bits.substr(head), used);
                    EXPECT_TRUE(leaf == value && entry.length == head) << bits;
                }
                // A count1 word's quad look-up: the word, then a sign for each 1 of v w x y, whatever follows.
                for (int index = 0; table >= mp3Count1TableA && index < 1 << mp3QuadLookupBits; ++index)
                {
                    const std::string pattern = std::bitset<mp3QuadLookupBits>(uint32_t(index)).to_string();
                    const uint32_t entry = tables.quadLookups[table - mp3Count1TableA][index];
                    std::string coded = bits;
                    for (int line = 3; line >= 0; --line)
                        coded += ((value >> line) & 1) != 0 ? std::string(1, char('0' + ((entry >> line) & 1))) : "";
                    EXPECT_TRUE(!pattern.starts_with(bits) || (pattern.starts_with(coded) && entry >> 8 == coded.size()
                                                               && entry == ((entry & 0xF0F) | uint32_t(value) << 4)))
                        << bits << " index " << index;
                }
            }
            EXPECT_EQ(column, list.wordsPerRow) << "row " << row;
        }
        const int16_t* treeEnd = tree;
        EXPECT_EQ(Leaves(tree, treeEnd), words);
        EXPECT_EQ(treeEnd - tree, 2 * words - 1);
        storageEnd = std::max(storageEnd, treeEnd);
    }
    EXPECT_EQ(storageEnd - tables.huffmanStorage, Mp3Tables::huffmanStorageSize);
    EXPECT_EQ(GetMp3HuffmanCodes(4).numRows, 0);
    EXPECT_EQ(GetMp3HuffmanCodes(14).numRows, 0);
}

TEST(Mp3BandTables, MapsWriteEveryLineOnceInTheirBandsOrder)
{
    // Long maps run through the 22 long bands, short maps through the 13 short bands' three
    // windows; mixed maps take 8 long bands and then the short ones from band 3. The MPEG-1
    // rows tile the spectrum; the wider long part of the low rates pushes the last short lines
    // off its end, where they are cut. Short band boundaries count the lines of all windows.
    for (int row = 0; row < 9; ++row)
    {
        SCOPED_TRACE(row);
        const int16_t* bands = Mp3Tables::bandTable[row];
        int line = 0;
        for (int band = 0; band < 13; line += 3 * bands[Mp3Tables::shortWidths + band++])
            EXPECT_EQ(bands[Mp3Tables::shortBoundaries + band], line) << band;
        EXPECT_TRUE(line == 576 && bands[Mp3Tables::shortBoundaries + 13] == 576
                    && bands[Mp3Tables::longBoundaries + 22] == 576);
        for (int kind = 0; kind < 3; ++kind)
        {
            const Mp3BandMap& map = GetMp3Tables().bandMaps[row][kind];
            std::vector<int> hits(576, 0);
            for (const Mp3BandRecord& record : map)
            {
                EXPECT_GT(record.pairs, 0);
                for (int i = 0; i < 2 * record.pairs; ++i)
                    ++hits.at(size_t(record.start + i * (record.window == 3 ? 1 : 3)));
            }
            const auto [least, most] = std::minmax_element(hits.begin(), hits.end());
            EXPECT_TRUE(*most == 1 && (*least == 1 || (kind == 0 && row >= 3))) << kind;
            EXPECT_TRUE(kind == 0 || map.numRecords == (kind == 2 ? 22 : 39)) << kind;
        }
        const Mp3BandRecord* mixed = GetMp3Tables().bandMaps[row][0].records;
        for (int band = 0; band < 8; ++band)
            EXPECT_TRUE(mixed[band].window == 3 && mixed[band].band == band && mixed[band].start == bands[band]);
        EXPECT_TRUE(mixed[8].start == bands[8] && mixed[8].band == 3 && mixed[8].window == 0);
    }
}

TEST(Mp3ScaleFactorTables, LowRateLengthsFollowTheStandardsArithmetic)
{
    // Each word packs four lengths of 3 bits, the table number and, on top, the preflag.
    const Mp3Tables& tables = GetMp3Tables();
    const auto expect = [](uint16_t word, int a, int b, int c, int d, int table, int index) {
        const int preflag = table == 2 ? 0x8000 : 0;
        EXPECT_EQ(word, uint16_t(a | b << 3 | c << 6 | d << 9 | table << 12 | preflag)) << index;
    };
    for (int c = 0; c < 400; ++c)
        expect(tables.lowRateLengths[c], (c >> 4) / 5, (c >> 4) % 5, (c % 16) >> 2, c % 4, 0, c);
    for (int c = 400; c < 500; ++c)
        expect(tables.lowRateLengths[c], ((c - 400) >> 2) / 5, ((c - 400) >> 2) % 5, (c - 400) % 4, 0, 1, c);
    for (int c = 500; c < 512; ++c)
        expect(tables.lowRateLengths[c], (c - 500) / 3, (c - 500) % 3, 0, 0, 2, c);
    for (int c = 0; c < 180; ++c)
        expect(tables.lowRateLengthsIntensity[c], c / 36, (c % 36) / 6, (c % 36) % 6, 0, 3, c);
    for (int c = 180; c < 244; ++c)
        expect(tables.lowRateLengthsIntensity[c], (c - 180) >> 4, (c - 180) % 16 >> 2, (c - 180) % 4, 0, 4, c);
    for (int c = 244; c < 256; ++c)
        expect(tables.lowRateLengthsIntensity[c], (c - 244) / 3, (c - 244) % 3, 0, 0, 5, c);

    // Long blocks have 21 bands, short ones 12 x 3, mixed ones 6 long and 9 x 3 short; the
    // preemphasis adds 19 steps in all, to bands 11 to 20.
    for (int kind = 0; kind < 3; ++kind)
        for (const uint8_t* counts : Mp3Tables::bandCounts[kind])
            EXPECT_EQ(std::accumulate(counts, counts + 4, 0), kind == 0 ? 21 : kind == 1 ? 36 : 33) << kind;
    EXPECT_EQ(std::accumulate(Mp3Tables::pretab + 11, Mp3Tables::pretab + 21, 0), 19);
    EXPECT_EQ(std::count(Mp3Tables::pretab, Mp3Tables::pretab + 22, 0), 12);
}

TEST(Mp3FactorTables, PowersAndGainsToTheirLastEntries)
{
    // Entry i of the power table is i^(4/3); entry i of the gain table 2^((46 - i) / 4), so
    // that global_gain 210 (entry 46) is unity. The fixtures reach neither end.
    for (int i : {0, 1, 8, 27, 4096, 8206})
        EXPECT_FLOAT_EQ(GetMp3Tables().powerTable[i], float(std::cbrt(double(i)) * i)) << i;
    for (int i : {0, 42, 46, 50, 377})
        EXPECT_FLOAT_EQ(GetMp3Tables().gainTable[i], float(std::pow(2.0, (46 - i) / 4.0))) << i;
}

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
                const int expected = rate >= 3                              ? 4
                                     : perChannel == 0 || perChannel >= 96 ? (rate == 1 ? 0 : 1)
                                     : perChannel >= 56                     ? 0
                                                                            : (rate == 2 ? 3 : 2);
                EXPECT_EQ(ChooseLayer2AllocationTable(header), expected) << rate << ',' << header.bitrateIndex;
            }
}

} // namespace
} // namespace kvo
