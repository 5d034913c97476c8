#include "audiofiles/KvoMp3Layer12.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kvo
{

namespace
{

//==============================================================================
// Bit allocation tables of Layer II (ISO/IEC 11172-3 Tables 3-B.2a to d, ISO/IEC 13818-3
// Table B.1), written as the standards print them: for each run of sub-bands the number of
// allocation bits and, for every allocation, the number of quantisation steps (0: none).

struct SubbandRun
{
    int32_t numSubbands;
    int32_t allocationBits;
    std::array<int32_t, 16> steps;
};

constexpr std::array<int32_t, 16> stepsWide = {0, 3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
constexpr std::array<int32_t, 16> stepsMiddle = {0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
constexpr std::array<int32_t, 16> stepsUpper = {0, 3, 5, 7, 9, 15, 31, 65535};
constexpr std::array<int32_t, 16> stepsTop = {0, 3, 5, 65535};
constexpr std::array<int32_t, 16> stepsLowRateWide = {0, 3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
constexpr std::array<int32_t, 16> stepsLowRateNarrow = {0, 3, 5, 9, 15, 31, 63, 127};
constexpr std::array<int32_t, 16> stepsLsfWide = {0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383};
constexpr std::array<int32_t, 16> stepsLsfTop = {0, 3, 5, 9};

// 3-B.2a: 48 kHz from 56 kbit/s a channel, 44.1 and 32 kHz at 56 to 80.
constexpr std::array<SubbandRun, 4> runsA = {{{3, 4, stepsWide}, {8, 4, stepsMiddle}, {12, 3, stepsUpper}, {4, 2, stepsTop}}};
// 3-B.2b: 44.1 and 32 kHz from 96 kbit/s a channel.
constexpr std::array<SubbandRun, 4> runsB = {{{3, 4, stepsWide}, {8, 4, stepsMiddle}, {12, 3, stepsUpper}, {7, 2, stepsTop}}};
// 3-B.2c: 48 and 44.1 kHz at 32 and 48 kbit/s a channel.
constexpr std::array<SubbandRun, 2> runsC = {{{2, 4, stepsLowRateWide}, {6, 3, stepsLowRateNarrow}}};
// 3-B.2d: 32 kHz at 32 and 48 kbit/s a channel.
constexpr std::array<SubbandRun, 2> runsD = {{{2, 4, stepsLowRateWide}, {10, 3, stepsLowRateNarrow}}};
// 13818-3 B.1: every low sample rate and bitrate.
constexpr std::array<SubbandRun, 3> runsLsf = {{{4, 4, stepsLsfWide}, {7, 3, stepsLowRateNarrow}, {19, 2, stepsLsfTop}}};

template <size_t N>
constexpr int32_t countPairs(const std::array<SubbandRun, N>& runs)
{
    int32_t pairs = 0;
    for (const SubbandRun& run : runs)
        pairs += run.numSubbands << run.allocationBits;
    return pairs;
}

template <size_t N>
constexpr int32_t countSubbands(const std::array<SubbandRun, N>& runs)
{
    int32_t subbands = 0;
    for (const SubbandRun& run : runs)
        subbands += run.numSubbands;
    return subbands;
}

/**
    Lays the runs out as the decoder reads them: for each sub-band 2^n pairs, pair 0 holding
    (n, 0), pair a (bits, d). Grouped codes of 3, 5 and 9 levels have d = levels and the bits
    of three samples in one code; a plain code of b bits has d = -(2^(b-1) - 1), so that code + d
    is the sample's step counted from the middle.
*/
template <int32_t NumPairs, size_t N>
constexpr std::array<int16_t, 2 * NumPairs> layOut(const std::array<SubbandRun, N>& runs)
{
    std::array<int16_t, 2 * NumPairs> pairs {};
    int32_t at = 0;
    for (const SubbandRun& run : runs)
        for (int32_t sb = 0; sb < run.numSubbands; ++sb)
        {
            pairs[size_t(at)] = int16_t(run.allocationBits);
            for (int32_t a = 1; a < (1 << run.allocationBits); ++a)
            {
                const int32_t steps = run.steps[size_t(a)];
                int32_t bits = 0;
                int32_t d = steps;
                if (steps == 3 || steps == 5 || steps == 9)
                    bits = steps == 3 ? 5 : steps == 5 ? 7 : 10;
                else
                {
                    while ((1 << bits) - 1 < steps)
                        ++bits;
                    d = -(steps >> 1);
                }
                pairs[size_t(at + 2 * a)] = int16_t(bits);
                pairs[size_t(at + 2 * a + 1)] = int16_t(d);
            }
            at += 2 << run.allocationBits;
        }
    return pairs;
}

constexpr auto allocationA = layOut<countPairs(runsA)>(runsA);
constexpr auto allocationB = layOut<countPairs(runsB)>(runsB);
constexpr auto allocationC = layOut<countPairs(runsC)>(runsC);
constexpr auto allocationD = layOut<countPairs(runsD)>(runsD);
constexpr auto allocationLsf = layOut<countPairs(runsLsf)>(runsLsf);

const Layer2AllocationTable allocationTables[layer2NumAllocationTables] = {
    {countSubbands(runsA), allocationA.data(), countPairs(runsA)},
    {countSubbands(runsB), allocationB.data(), countPairs(runsB)},
    {countSubbands(runsC), allocationC.data(), countPairs(runsC)},
    {countSubbands(runsD), allocationD.data(), countPairs(runsD)},
    {countSubbands(runsLsf), allocationLsf.data(), countPairs(runsLsf)},
};

/**
    MPEG-1 table by sample rate (44.1, 48, 32 kHz), channel case (stereo, mono) and bitrate
    index, from the bitrate a channel gets: up to 48 kbit/s table c (d at 32 kHz), 56 to 80
    table a, from 96 table a at 48 kHz and b otherwise; free format as the high rates. The
    combinations a stream may not use (stereo below 64 or at 80 kbit/s, mono above 192)
    follow the same rule, and index 15 repeats free format.
*/
constexpr int8_t mpeg1TableChoice[3][2][16] = {
    {{1, 2, 2, 2, 2, 2, 2, 0, 0, 0, 1, 1, 1, 1, 1, 1}, {1, 2, 2, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
    {{0, 2, 2, 2, 2, 2, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0, 2, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {{1, 3, 3, 3, 3, 3, 3, 0, 0, 0, 1, 1, 1, 1, 1, 1}, {1, 3, 3, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
};

constexpr int32_t lowRateTable = 4;

//==============================================================================
// Multipliers of the factor rows: 0, the grouped levels of 3 steps, the plain codes of 3 to
// 16 bits (2 / (2^b - 1), so that code + d lands on -1 + 1/steps ... 1 - 1/steps), then the
// grouped levels of 5 and 9 steps.
constexpr double rowMultipliers[layer12FactorRows] = {
    0.0,       -2.0 / 3,    2.0 / 3,      2.0 / 7,      2.0 / 15,     2.0 / 31,     2.0 / 63,
    2.0 / 127, 2.0 / 255,   2.0 / 511,    2.0 / 1023,   2.0 / 2047,   2.0 / 4095,   2.0 / 8191,
    2.0 / 16383, 2.0 / 32767, 2.0 / 65535, -4.0 / 5,   -2.0 / 5,     2.0 / 5,      4.0 / 5,
    -8.0 / 9,  -4.0 / 9,    -2.0 / 9,     2.0 / 9,      4.0 / 9,      8.0 / 9};

constexpr uint8_t levelRows3[3] = {1, 0, 2};
constexpr uint8_t levelRows5[5] = {17, 18, 0, 19, 20};
constexpr uint8_t levelRows9[9] = {21, 1, 22, 23, 0, 24, 25, 2, 26};

/** Code c = j + k x levels + l x levels^2 stands for the samples (j, k, l), the first sample in the lowest digit. */
template <int32_t Levels>
void buildGroups(uint8_t (&groups)[Levels * Levels * Levels + 1][3], const uint8_t (&rows)[Levels])
{
    int32_t code = 0;
    for (int32_t l = 0; l < Levels; ++l)
        for (int32_t k = 0; k < Levels; ++k)
            for (int32_t j = 0; j < Levels; ++j, ++code)
            {
                groups[code][0] = rows[j];
                groups[code][1] = rows[k];
                groups[code][2] = rows[l];
            }
    groups[code][0] = groups[code][1] = groups[code][2] = 0;
}

Layer12Tables buildTables()
{
    Layer12Tables tables {};
    for (int32_t k = 0; k < layer12FactorRows; ++k)
    {
        for (int32_t i = 0; i < 63; ++i)
            tables.layer12Factors[k][i] = float(rowMultipliers[k] * std::pow(2.0, double(3 - i) / 3.0));
        tables.layer12Factors[k][63] = 0.0f;
    }
    buildGroups<3>(tables.group3, levelRows3);
    buildGroups<5>(tables.group5, levelRows5);
    buildGroups<9>(tables.group9, levelRows9);
    return tables;
}

//==============================================================================
/** Sub-band values of one row, per channel; what a frame hands to the filterbank. */
using Rows = float[2][32];

/** Both channels, or the one the stream's channel selection asks for, through the filterbank. */
void synthesiseRow(const Mp3FrameHeader& header, Mp3SynthesisState& synthesis, Rows& row, float* out0, float* out1,
                   int32_t& samplesDone)
{
    const int32_t select = header.numChannels == 2 ? header.channelSelect : 0;
    if (select == -1 && out1 != nullptr)
    {
        int32_t once = samplesDone; // both channels write the same samples: count them once
        synthesise(synthesis, row[0], 0, out0, once);
        synthesise(synthesis, row[1], 1, out1, samplesDone);
        return;
    }
    if (select == 3) // the sum of both channels, halved as the Layer III gain halves it
        for (int32_t sb = 0; sb < 32; ++sb)
            row[0][sb] = 0.5f * (row[0][sb] + row[1][sb]);
    synthesise(synthesis, row[select == 1 ? 1 : 0], 0, out0, samplesDone);
}

/** Joint stereo shares allocations and codes from this sub-band on; other modes never. */
int32_t jointStereoBound(const Mp3FrameHeader& header)
{
    return header.mode == 1 ? header.modeExtension * 4 + 4 : 32;
}

int32_t channelCount(const Mp3FrameHeader& header)
{
    return header.numChannels == 1 ? 1 : 2;
}

//==============================================================================
// Layer I

struct Layer1Frame
{
    uint8_t allocation[2][32];
    uint8_t scaleFactor[2][32];
};

void readLayer1Side(Layer1Frame& frame, Mp3BitReader& bits, int32_t channels, int32_t bound)
{
    for (int32_t sb = 0; sb < 32; ++sb)
        for (int32_t ch = 0; ch < channels; ++ch)
            frame.allocation[ch][sb] = uint8_t(sb < bound || ch == 0 ? bits.readBits(4) : frame.allocation[0][sb]);
    for (int32_t sb = 0; sb < 32; ++sb)
        for (int32_t ch = 0; ch < channels; ++ch)
            frame.scaleFactor[ch][sb] = uint8_t(frame.allocation[ch][sb] != 0 ? bits.readBits(6) : 0);
}

/** One row of twelve: an allocation a gives a code of a + 1 bits, centred by 2^a - 1. */
void readLayer1Row(const Layer1Frame& frame, Mp3BitReader& bits, int32_t channels, int32_t bound, Rows& row)
{
    const auto& factors = GetLayer12Tables().layer12Factors;
    for (int32_t sb = 0; sb < 32; ++sb)
    {
        int32_t step = 0;
        for (int32_t ch = 0; ch < channels; ++ch)
        {
            const int32_t a = frame.allocation[ch][sb];
            if (a == 0)
            {
                row[ch][sb] = 0.0f;
                continue;
            }
            if (ch == 0 || sb < bound)
                step = int32_t(bits.readBits(a + 1)) + 1 - (1 << a);
            row[ch][sb] = float(step) * factors[a + 1][frame.scaleFactor[ch][sb]];
        }
    }
}

//==============================================================================
// Layer II

struct Layer2Frame
{
    uint8_t allocation[2][32];
    uint8_t scaleFactor[2][32][3];
    const int16_t* pairs[32]; ///< each sub-band's first pair in the allocation table
};

void readLayer2Allocations(Layer2Frame& frame, const Layer2AllocationTable& table, Mp3BitReader& bits,
                           int32_t channels, int32_t bound)
{
    const int16_t* cursor = table.pairs;
    for (int32_t sb = 0; sb < table.subbands; ++sb)
    {
        const int32_t n = cursor[0];
        frame.pairs[sb] = cursor;
        for (int32_t ch = 0; ch < channels; ++ch)
            frame.allocation[ch][sb] = uint8_t(sb < bound || ch == 0 ? bits.readBits(n) : frame.allocation[0][sb]);
        cursor += 2 << n;
    }
}

void readLayer2ScaleFactors(Layer2Frame& frame, int32_t subbands, Mp3BitReader& bits, int32_t channels)
{
    uint8_t selection[2][32] = {};
    for (int32_t sb = 0; sb < subbands; ++sb)
        for (int32_t ch = 0; ch < channels; ++ch)
            if (frame.allocation[ch][sb] != 0)
                selection[ch][sb] = uint8_t(bits.readBits(2));
    for (int32_t sb = 0; sb < subbands; ++sb)
        for (int32_t ch = 0; ch < channels; ++ch)
        {
            uint8_t* s = frame.scaleFactor[ch][sb];
            if (frame.allocation[ch][sb] == 0)
            {
                s[0] = s[1] = s[2] = 0;
                continue;
            }
            // Selection 0: three factors; 1: the first serves twice; 2: one serves all three;
            // 3: the second serves twice.
            const uint8_t sel = selection[ch][sb];
            s[0] = uint8_t(bits.readBits(6));
            s[1] = sel == 0 || sel == 3 ? uint8_t(bits.readBits(6)) : s[0];
            s[2] = sel == 0 || sel == 1 ? uint8_t(bits.readBits(6)) : s[1];
        }
}

/** The factor rows of three samples: a grouped code, or three plain codes with their offset d. */
struct Triple
{
    const uint8_t* rows = nullptr; ///< grouped: the three factor rows
    int32_t steps[3] = {};         ///< plain: code + d of each sample
    int32_t factorRow = 0;         ///< plain: the row of the code width
};

Triple readTriple(const int16_t* pair, Mp3BitReader& bits)
{
    static const uint8_t silence[3] = {0, 0, 0};
    const Layer12Tables& tables = GetLayer12Tables();
    const int32_t width = std::min<int32_t>(pair[0], 16);
    const int32_t d = pair[1];
    Triple triple;
    if (d > 0)
    {
        // A code past the last group (possible for 3 and 9 levels) lands on the entry of zeros.
        const uint32_t code = bits.readBits(width);
        if (d == 3)
            triple.rows = tables.group3[std::min<uint32_t>(code, 27)];
        else if (d == 5)
            triple.rows = tables.group5[std::min<uint32_t>(code, 125)];
        else if (d == 9)
            triple.rows = tables.group9[std::min<uint32_t>(code, 729)];
        else
            triple.rows = silence;
        return triple;
    }
    // Three codes of at most 16 bits each: one look ahead serves them all.
    triple.factorRow = width;
    const uint64_t window = bits.peek64();
    for (int32_t i = 0; i < 3; ++i)
        triple.steps[i] = int32_t(width > 0 ? (window << (i * width)) >> (64 - width) : 0) + d;
    bits.skipBits(3 * width);
    return triple;
}

void scaleTriple(const Triple& triple, int32_t scaleFactor, Rows (&rows)[3], int32_t ch, int32_t sb)
{
    const auto& factors = GetLayer12Tables().layer12Factors;
    const int32_t s = std::min(scaleFactor, 63);
    for (int32_t r = 0; r < 3; ++r)
        rows[r][ch][sb] = triple.rows != nullptr ? factors[triple.rows[r]][s]
                                                 : float(triple.steps[r]) * factors[triple.factorRow][s];
}

/** Three rows of the twelve passes; part picks the scale factor of the frame's third. */
void readLayer2Rows(const Layer2Frame& frame, int32_t subbands, Mp3BitReader& bits, int32_t channels,
                    int32_t bound, int32_t part, Rows (&rows)[3])
{
    for (int32_t sb = 0; sb < subbands; ++sb)
    {
        Triple triple;
        for (int32_t ch = 0; ch < channels; ++ch)
        {
            const int32_t a = frame.allocation[ch][sb];
            if (a == 0)
            {
                rows[0][ch][sb] = rows[1][ch][sb] = rows[2][ch][sb] = 0.0f;
                continue;
            }
            if (ch == 0 || sb < bound)
                triple = readTriple(frame.pairs[sb] + 2 * a, bits);
            scaleTriple(triple, frame.scaleFactor[ch][sb][part], rows, ch, sb);
        }
    }
}

} // namespace

//==============================================================================
const Layer12Tables& GetLayer12Tables()
{
    static const Layer12Tables tables = buildTables();
    return tables;
}

const Layer2AllocationTable& GetLayer2AllocationTable(int32_t index)
{
    return allocationTables[std::clamp(index, 0, layer2NumAllocationTables - 1)];
}

int32_t ChooseLayer2AllocationTable(const Mp3FrameHeader& header)
{
    if (header.lowSampleRate != 0)
        return lowRateTable;
    const int32_t rate = std::clamp(header.sampleRateIndex, 0, 2);
    const int32_t channelCase = header.numChannels == 1 ? 1 : 0;
    return mpeg1TableChoice[rate][channelCase][header.bitrateIndex & 15];
}

void decodeLayer1(const Mp3FrameHeader& header, Mp3BitReader& bits, Mp3SynthesisState& synthesis, float* out0,
                  float* out1, int32_t& samplesDone)
{
    const int32_t channels = channelCount(header);
    const int32_t bound = jointStereoBound(header);
    Layer1Frame frame {};
    readLayer1Side(frame, bits, channels, bound);
    Rows row {};
    for (int32_t pass = 0; pass < 12; ++pass)
    {
        readLayer1Row(frame, bits, channels, bound, row);
        synthesiseRow(header, synthesis, row, out0, out1, samplesDone);
    }
}

void decodeLayer2(Mp3FrameHeader& header, Mp3BitReader& bits, Mp3SynthesisState& synthesis, float* out0,
                  float* out1, int32_t& samplesDone)
{
    const Layer2AllocationTable& table = GetLayer2AllocationTable(ChooseLayer2AllocationTable(header));
    header.layer2Subbands = table.subbands;
    header.layer2Allocation = table.pairs;

    const int32_t channels = channelCount(header);
    const int32_t bound = std::min(jointStereoBound(header), table.subbands);
    Layer2Frame frame {};
    readLayer2Allocations(frame, table, bits, channels, bound);
    readLayer2ScaleFactors(frame, table.subbands, bits, channels);

    Rows rows[3] {}; // sub-bands from the table's count up stay 0.0
    // A local cursor, which the compiler can keep in registers through the reads.
    Mp3BitReader cursor = bits;
    for (int32_t pass = 0; pass < 12; ++pass)
    {
        readLayer2Rows(frame, table.subbands, cursor, channels, bound, pass / 4, rows);
        for (Rows& row : rows)
            synthesiseRow(header, synthesis, row, out0, out1, samplesDone);
    }
    bits = cursor;
}

} // namespace kvo
