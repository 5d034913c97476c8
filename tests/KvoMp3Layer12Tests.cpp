// MPEG audio Layers I and II: the bit allocation tables; frames built bit by bit in the tests
// and checked against a plain double-precision decoder from the standard's formulas (the
// requantisation here, the synthesis in KvoMp3Reference.h); Layer II files of twolame and
// ffmpeg against mpg123's decodes; joins; damaged frames.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoFuzzUtilities.h"
#include "KvoMp3Reference.h"
#include "KvoTestUtilities.h"
#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoMp3Layer12.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"

namespace kvo
{
namespace
{

using testing::BitWriter;
using testing::ReferenceSynthesis;

// The accuracy bound of full-accuracy decoders, relative to full scale 1.0.
const double maxRmsError = std::pow(2.0, -15) / std::sqrt(12.0);
const double maxAbsError = std::pow(2.0, -14);

/** Scale factor index i stands for 2 x 2^(-i/3); the standard lists 63 values. */
double ScaleFactor(int index)
{
    return 2.0 * std::pow(2.0, -index / 3.0);
}

/**
    Requantisation of one code of nb bits for a quantiser of the given steps, as the standard
    spells it: invert the most significant bit, read the code as a two's complement fraction,
    add D and scale by C, where C = 2^nb / steps and D centres the steps on 0.
*/
double Requantise(uint32_t code, int steps)
{
    int nb = 1;
    while ((1 << nb) < steps)
        ++nb;
    const double half = std::ldexp(1.0, nb - 1);
    const double inverted = double(code ^ (1u << (nb - 1)));
    const double fraction = (inverted >= half ? inverted - 2.0 * half : inverted) / half;
    const double c = std::ldexp(1.0, nb) / steps;
    const double d = (half - (steps - 1) / 2.0) / half;
    return c * (fraction + d);
}

struct ErrorFigures
{
    double rms = 0.0;
    double max = 0.0;
    double peak = 0.0; ///< of the expected signal, to show the errors in proportion
};

/** Compares one channel, expects both bounds to hold, and folds the figures into worst. */
void ExpectAccurate(const std::vector<double>& expected, const float* actual, int channel, ErrorFigures& worst)
{
    double sum = 0.0, max = 0.0;
    for (size_t i = 0; i < expected.size(); ++i)
    {
        const double d = std::abs(double(actual[i]) - expected[i]);
        sum += d * d;
        max = std::max(max, d);
        worst.peak = std::max(worst.peak, std::abs(expected[i]));
    }
    const double rms = expected.empty() ? 0.0 : std::sqrt(sum / double(expected.size()));
    EXPECT_LT(rms, maxRmsError) << "channel " << channel;
    EXPECT_LT(max, maxAbsError) << "channel " << channel;
    worst.rms = std::max(worst.rms, rms);
    worst.max = std::max(worst.max, max);
}

void PrintFigures(const char* kind, const char* name, const ErrorFigures& worst)
{
    std::printf("[ %s ] %-26s rms %.3g max %.3g peak %.3g\n", kind, name, worst.rms, worst.max, worst.peak);
}

//==============================================================================
/** What the decoders see of a frame: its header, the bytes behind it, and the cursor's array. */
struct FrameInput
{
    Mp3FrameHeader header;
    std::vector<uint8_t> array = std::vector<uint8_t>(size_t(mp3ByteBufferSize), 0);
    Mp3BitReader bits;

    FrameInput(const Mp3FrameHeader& h, const std::vector<uint8_t>& body) : header(h)
    {
        std::copy_n(body.begin(), std::min<size_t>(body.size(), size_t(mp3MaxFrameBytes)), array.begin() + mp3FrameStart);
        bits.bytes = array.data();
        bits.bitPointer = mp3FrameStart;
        bits.bitOffset = 0;
    }
    int BitsRead() const { return (bits.bitPointer - mp3FrameStart) * 8 + bits.bitOffset; }
};

Mp3FrameHeader Header(int layer, int mode, int modeExtension, int sampleRateIndex = 1, int bitrateIndex = 10)
{
    Mp3FrameHeader h;
    h.layer = layer;
    h.mode = mode;
    h.modeExtension = modeExtension;
    h.numChannels = mode == 3 ? 1 : 2;
    h.sampleRateIndex = sampleRateIndex;
    h.lowSampleRate = sampleRateIndex >= 3 ? 1 : 0;
    h.bitrateIndex = bitrateIndex;
    return h;
}

/** Decoded output of a run of frames, per channel. */
struct Output
{
    std::vector<float> channels[2];
};

//==============================================================================
// Frames from chosen allocations, scale factors and sample codes. Layer I uses the first
// scale factor and code of each sub-band, codes[s] for its twelve samples; Layer II, built on
// the decoder's own allocation table (whose content the fixtures prove), has codes[g] for its
// granules, a grouped code in [0] or plain codes in [0..2].

struct FrameContent
{
    Mp3FrameHeader header;
    int allocation[2][32] = {};
    int selection[2][32] = {};
    int scaleFactor[2][32][3] = {};
    uint32_t codes[12][2][32][3] = {};

    int Bound() const { return header.mode == 1 ? header.modeExtension * 4 + 4 : 32; }
    int Channels() const { return header.numChannels; }
};

std::vector<uint8_t> WriteLayer1(const FrameContent& f)
{
    BitWriter w;
    for (int sb = 0; sb < 32; ++sb)
        for (int ch = 0; ch < (sb < f.Bound() ? f.Channels() : 1); ++ch)
            w.Put(uint32_t(f.allocation[ch][sb]), 4);
    for (int sb = 0; sb < 32; ++sb)
        for (int ch = 0; ch < f.Channels(); ++ch)
            if (f.allocation[ch][sb] != 0)
                w.Put(uint32_t(f.scaleFactor[ch][sb][0]), 6);
    for (int s = 0; s < 12; ++s)
        for (int sb = 0; sb < 32; ++sb)
            for (int ch = 0; ch < (sb < f.Bound() ? f.Channels() : 1); ++ch)
                if (f.allocation[ch][sb] != 0)
                    w.Put(f.codes[s][ch][sb][0], f.allocation[ch][sb] + 1);
    return w.bytes;
}

/** Random allocations (0 to maxAllocation), scale factors and codes; joint stereo shares above the bound. */
FrameContent RandomLayer1(std::mt19937& random, int mode, int modeExtension, uint32_t maxAllocation = 14)
{
    FrameContent f;
    f.header = Header(1, mode, modeExtension);
    for (int sb = 0; sb < 32; ++sb)
        for (int ch = 0; ch < f.Channels(); ++ch)
        {
            const bool shared = ch == 1 && sb >= f.Bound();
            f.allocation[ch][sb] = shared ? f.allocation[0][sb] : int(random() % (maxAllocation + 1));
            // Scale factors from 9 (0.25) keep the sum of 32 bands near full scale.
            f.scaleFactor[ch][sb][0] = f.allocation[ch][sb] != 0 ? 9 + int(random() % 54) : 0;
            for (int s = 0; s < 12; ++s)
            {
                const uint32_t limit = 1u << (f.allocation[ch][sb] + 1);
                f.codes[s][ch][sb][0] = shared ? f.codes[s][0][sb][0] : uint32_t(random() % (limit - 1));
            }
        }
    return f;
}

/** Sub-band values of one channel and row, straight from the standard's requantisation. */
void Layer1Subbands(const FrameContent& f, int s, int ch, double* out)
{
    for (int sb = 0; sb < 32; ++sb)
    {
        const int a = f.allocation[ch][sb];
        out[sb] = a == 0 ? 0.0 : Requantise(f.codes[s][ch][sb][0], (1 << (a + 1)) - 1) * ScaleFactor(f.scaleFactor[ch][sb][0]);
    }
}

const int16_t* AllocationPairs(const Layer2AllocationTable& table, int subband)
{
    const int16_t* p = table.pairs;
    for (int sb = 0; sb < subband; ++sb)
        p += 2 << p[0];
    return p;
}

std::vector<uint8_t> WriteLayer2(const FrameContent& f)
{
    const Layer2AllocationTable& table = GetLayer2AllocationTable(ChooseLayer2AllocationTable(f.header));
    const int channels = f.header.numChannels;
    const int bound = std::min(f.header.mode == 1 ? f.header.modeExtension * 4 + 4 : 32, table.subbands);
    BitWriter w;
    for (int sb = 0; sb < table.subbands; ++sb)
        for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch)
            w.Put(uint32_t(f.allocation[ch][sb]), AllocationPairs(table, sb)[0]);
    for (int sb = 0; sb < table.subbands; ++sb)
        for (int ch = 0; ch < channels; ++ch)
            if (f.allocation[ch][sb] != 0)
                w.Put(uint32_t(f.selection[ch][sb]), 2);
    const int written[4][3] = {{1, 1, 1}, {1, 0, 1}, {1, 0, 0}, {1, 1, 0}};
    for (int sb = 0; sb < table.subbands; ++sb)
        for (int ch = 0; ch < channels; ++ch)
            if (f.allocation[ch][sb] != 0)
                for (int part = 0; part < 3; ++part)
                    if (written[f.selection[ch][sb]][part])
                        w.Put(uint32_t(f.scaleFactor[ch][sb][part]), 6);
    for (int g = 0; g < 12; ++g)
        for (int sb = 0; sb < table.subbands; ++sb)
            for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch)
            {
                const int a = f.allocation[ch][sb];
                if (a == 0)
                    continue;
                const int16_t* pair = AllocationPairs(table, sb) + 2 * a;
                for (int i = 0; i < (pair[1] > 0 ? 1 : 3); ++i)
                    w.Put(f.codes[g][ch][sb][i], pair[0]);
            }
    return w.bytes;
}

/** Steps of allocation a of a sub-band, from its (bits, d) pair. */
int Steps(const int16_t* pair)
{
    return pair[1] > 0 ? pair[1] : (1 << pair[0]) - 1;
}

/** Layer II content with random allocations, selections, scale factors and codes. */
FrameContent RandomLayer2(std::mt19937& random, const Mp3FrameHeader& header)
{
    FrameContent f;
    f.header = header;
    const Layer2AllocationTable& table = GetLayer2AllocationTable(ChooseLayer2AllocationTable(header));
    const int bound = header.mode == 1 ? header.modeExtension * 4 + 4 : 32;
    for (int sb = 0; sb < table.subbands; ++sb)
        for (int ch = 0; ch < header.numChannels; ++ch)
        {
            const bool shared = ch == 1 && sb >= bound;
            const int16_t* pairs = AllocationPairs(table, sb);
            const int a = shared ? f.allocation[0][sb] : int(random() % (1u << pairs[0]));
            f.allocation[ch][sb] = a;
            f.selection[ch][sb] = int(random() % 4);
            for (int& s : f.scaleFactor[ch][sb])
                s = 9 + int(random() % 54);
            // Selections that share factors carry them so that the direct computation agrees.
            int* s = f.scaleFactor[ch][sb];
            if (f.selection[ch][sb] == 1) s[1] = s[0];
            if (f.selection[ch][sb] == 2) s[1] = s[2] = s[0];
            if (f.selection[ch][sb] == 3) s[2] = s[1];
            if (a == 0)
                continue;
            const int16_t* pair = pairs + 2 * a;
            for (int g = 0; g < 12; ++g)
                for (int i = 0; i < 3; ++i)
                {
                    const uint32_t limit = pair[1] > 0 ? uint32_t(pair[1] * pair[1] * pair[1]) : (1u << pair[0]) - 1;
                    f.codes[g][ch][sb][i] = shared ? f.codes[g][0][sb][i] : uint32_t(random() % limit);
                }
        }
    return f;
}

/** The three sub-band rows of granule g of one channel, by the standard's requantisation. */
void Layer2Subbands(const FrameContent& f, int g, int ch, double (*rows)[32])
{
    const Layer2AllocationTable& table = GetLayer2AllocationTable(ChooseLayer2AllocationTable(f.header));
    const int bound = f.header.mode == 1 ? f.header.modeExtension * 4 + 4 : 32;
    for (int sb = 0; sb < 32; ++sb)
    {
        const int a = sb < table.subbands ? f.allocation[ch][sb] : 0;
        for (int r = 0; r < 3; ++r)
            rows[r][sb] = 0.0;
        if (a == 0)
            continue;
        const int codeChannel = sb >= bound ? 0 : ch;
        const int16_t* pair = AllocationPairs(table, sb) + 2 * a;
        const int steps = Steps(pair);
        for (int r = 0; r < 3; ++r)
        {
            uint32_t value = f.codes[g][codeChannel][sb][r];
            if (pair[1] > 0) // degroup: the first sample is the lowest digit
            {
                value = f.codes[g][codeChannel][sb][0];
                for (int i = 0; i < r; ++i)
                    value /= uint32_t(steps);
                value %= uint32_t(steps);
            }
            rows[r][sb] = Requantise(value, steps) * ScaleFactor(f.scaleFactor[ch][sb][g / 4]);
        }
    }
}

/** The direct decode of one channel of a run of frames of either layer. */
std::vector<double> Reference(const std::vector<FrameContent>& contents, int ch)
{
    ReferenceSynthesis synthesis;
    std::vector<double> expected;
    for (const FrameContent& c : contents)
        for (int g = 0; g < 12; ++g)
        {
            double rows[3][32];
            if (c.header.layer == 1)
                Layer1Subbands(c, g, ch, rows[0]);
            else
                Layer2Subbands(c, g, ch, rows);
            for (int r = 0; r < (c.header.layer == 1 ? 1 : 3); ++r)
                synthesis.Row(rows[r], expected);
        }
    return expected;
}

Output Decode(const std::vector<FrameInput*>& frames, int layer)
{
    Output out;
    Mp3SynthesisState synthesis;
    synthesis.reset();
    for (FrameInput* frame : frames)
    {
        std::vector<float> block[2] = {std::vector<float>(1152, 0.0f), std::vector<float>(1152, 0.0f)};
        int32_t done = 0;
        if (layer == 1)
            decodeLayer1(frame->header, frame->bits, synthesis, block[0].data(), block[1].data(), done);
        else
            decodeLayer2(frame->header, frame->bits, synthesis, block[0].data(), block[1].data(), done);
        for (int ch = 0; ch < 2; ++ch)
            out.channels[ch].insert(out.channels[ch].end(), block[ch].begin(), block[ch].begin() + done);
    }
    return out;
}

//==============================================================================
// Tables

TEST(Layer12Tables, AllocationTablesHoldTheStandardsQuantisers)
{
    // Per table: sub-band count, allocation bits per sub-band, and the steps of each
    // allocation for the first sub-band of each run.
    struct Run { int firstSubband; int bits; std::vector<int> steps; };
    struct Table { int subbands; std::vector<Run> runs; };
    const std::vector<int> wide = {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
    const std::vector<int> middle = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
    const std::vector<int> upper = {3, 5, 7, 9, 15, 31, 65535};
    const std::vector<int> top = {3, 5, 65535};
    const std::vector<int> lowWide = {3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
    const std::vector<int> lowNarrow = {3, 5, 9, 15, 31, 63, 127};
    const std::vector<int> lsfWide = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383};
    const Table expected[5] = {
        {27, {{0, 4, wide}, {3, 4, middle}, {11, 3, upper}, {23, 2, top}}},
        {30, {{0, 4, wide}, {3, 4, middle}, {11, 3, upper}, {23, 2, top}}},
        {8, {{0, 4, lowWide}, {2, 3, lowNarrow}}},
        {12, {{0, 4, lowWide}, {2, 3, lowNarrow}}},
        {30, {{0, 4, lsfWide}, {4, 3, lowNarrow}, {11, 2, {3, 5, 9}}}},
    };
    for (int t = 0; t < layer2NumAllocationTables; ++t)
    {
        SCOPED_TRACE(t);
        const Layer2AllocationTable& table = GetLayer2AllocationTable(t);
        ASSERT_EQ(table.subbands, expected[t].subbands);
        int pairs = 0;
        for (int sb = 0; sb < table.subbands; ++sb)
        {
            const int16_t* p = AllocationPairs(table, sb);
            const Run* run = &expected[t].runs.front();
            for (const Run& r : expected[t].runs)
                if (sb >= r.firstSubband)
                    run = &r;
            ASSERT_EQ(p[0], run->bits) << sb;
            for (int a = 1; a < (1 << p[0]); ++a)
            {
                const int16_t* pair = p + 2 * a;
                EXPECT_EQ(Steps(pair), run->steps[size_t(a - 1)]) << sb << " " << a;
                if (pair[1] > 0) // grouped: three samples in the fewest bits for levels^3 codes
                    EXPECT_EQ(pair[0], pair[1] == 3 ? 5 : pair[1] == 5 ? 7 : 10);
                else // plain: code + d centres the steps
                    EXPECT_EQ(pair[1], -((1 << (pair[0] - 1)) - 1));
            }
            pairs += 1 << p[0];
        }
        EXPECT_EQ(pairs, table.numPairs);
    }
}

TEST(Layer12Tables, TableChoiceByRateChannelsAndBitrate)
{
    struct Case { int rate; int mode; int bitrateIndex; int table; };
    // Rate index 0 44.1 kHz, 1 48, 2 32; mode 0 stereo, 3 mono; bitrate index 4 64 kbit/s,
    // 6 96, 7 112, 10 192, 14 384.
    const Case cases[] = {
        {0, 0, 10, 1}, {1, 0, 10, 0}, {2, 0, 10, 1}, // 96 a channel
        {0, 0, 7, 0},  {1, 0, 7, 0},  {2, 0, 7, 0},  // 56 a channel
        {0, 0, 4, 2},  {1, 0, 6, 2},  {2, 0, 4, 3},  {2, 0, 6, 3}, // 32 and 48 a channel
        {0, 3, 1, 2},  {1, 3, 2, 2},  {2, 3, 2, 3},  {0, 3, 4, 0}, {1, 3, 6, 0}, {2, 3, 6, 1},
        {0, 0, 14, 1}, {1, 0, 14, 0}, {0, 0, 0, 1},  {1, 0, 0, 0}, // 192 a channel, free format
    };
    for (const Case& c : cases)
        EXPECT_EQ(ChooseLayer2AllocationTable(Header(2, c.mode, 0, c.rate, c.bitrateIndex)), c.table)
            << c.rate << " " << c.mode << " " << c.bitrateIndex;
    for (int rate = 3; rate < 9; ++rate)
        for (int bitrate = 0; bitrate < 16; ++bitrate)
            EXPECT_EQ(ChooseLayer2AllocationTable(Header(2, 0, 0, rate, bitrate)), 4);
}

//==============================================================================
// Frames against the direct computation

/** Decodes frames of content and checks each channel against the direct computation. */
void CheckFrames(const std::vector<FrameContent>& contents, ErrorFigures& worst)
{
    const int layer = contents.front().header.layer;
    std::vector<FrameInput> inputs;
    inputs.reserve(contents.size());
    for (const FrameContent& c : contents)
        inputs.emplace_back(c.header, layer == 1 ? WriteLayer1(c) : WriteLayer2(c));
    std::vector<FrameInput*> frames;
    for (FrameInput& i : inputs)
        frames.push_back(&i);
    const Output out = Decode(frames, layer);
    // Each Layer I frame reads exactly its allocations, scale factors and codes, shared ones once.
    for (size_t i = 0; layer == 1 && i < contents.size(); ++i)
    {
        int bits = 0;
        for (int sb = 0; sb < 32; ++sb)
            for (int ch = 0; ch < contents[i].Channels(); ++ch)
            {
                const int a = contents[i].allocation[ch][sb];
                bits += (a != 0 ? 6 : 0) + (ch == 0 || sb < contents[i].Bound() ? 4 + (a != 0 ? 12 * (a + 1) : 0) : 0);
            }
        EXPECT_EQ(inputs[i].BitsRead(), bits) << i;
    }
    const int channels = contents.front().Channels();
    for (int ch = 0; ch < channels; ++ch)
    {
        const std::vector<double> expected = Reference(contents, ch);
        ASSERT_EQ(out.channels[ch].size(), expected.size());
        ExpectAccurate(expected, out.channels[ch].data(), ch, worst);
    }
}

TEST(Layer12Frames, MatchTheDirectComputation)
{
    std::mt19937 random(20261123);
    struct Case { int layer; int mode; int extension; int rate; int bitrate; const char* name; };
    const Case cases[] = {
        {1, 3, 0, 1, 10, "I mono"},                        {1, 0, 0, 1, 10, "I stereo"},
        {1, 2, 0, 1, 10, "I dual channel"},                {1, 1, 0, 1, 10, "I joint bound 4"},
        {1, 1, 1, 1, 10, "I joint bound 8"},               {1, 1, 2, 1, 10, "I joint bound 12"},
        {1, 1, 3, 1, 10, "I joint bound 16"},              {2, 3, 0, 1, 6, "II mono 48 kHz table a"},
        {2, 0, 0, 0, 10, "II stereo 44.1 kHz table b"},    {2, 3, 0, 0, 2, "II mono 44.1 kHz table c"},
        {2, 0, 0, 2, 4, "II stereo 32 kHz table d"},       {2, 1, 0, 0, 10, "II joint bound 4 table b"},
        {2, 1, 1, 1, 10, "II joint bound 8 table a"},      {2, 1, 2, 2, 4, "II joint bound 12 table d"},
        {2, 1, 3, 0, 4, "II joint bound 16 table c"},      {2, 1, 3, 4, 8, "II joint bound 16 low rate"},
        {2, 3, 0, 5, 4, "II mono 16 kHz low rate"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const Mp3FrameHeader header = Header(c.layer, c.mode, c.extension, c.rate, c.bitrate);
        std::vector<FrameContent> contents;
        for (int i = 0; i < 3; ++i)
            contents.push_back(c.layer == 1 ? RandomLayer1(random, c.mode, c.extension) : RandomLayer2(random, header));
        ErrorFigures worst;
        CheckFrames(contents, worst);
        PrintFigures("frames", c.name, worst);
    }
}

TEST(Layer1Frames, ExtremeCodesAndTheLargestAllocation)
{
    // Allocation 15 (16-bit codes), the lowest, highest and middle codes of every width, and
    // scale factors kept low enough that 32 bands of extreme steps stay near full scale.
    FrameContent f;
    f.header = Header(1, 3, 0);
    for (int sb = 0; sb < 32; ++sb)
    {
        f.allocation[0][sb] = 1 + sb % 15;
        f.scaleFactor[0][sb][0] = 12 + sb % 40;
        for (int s = 0; s < 12; ++s)
            f.codes[s][0][sb][0] = (s % 3 == 0) ? 0 : (s % 3 == 1) ? (1u << (f.allocation[0][sb] + 1)) - 2 : 1u << f.allocation[0][sb];
    }
    ErrorFigures worst;
    CheckFrames({f, f}, worst);
}

TEST(Layer1Frames, ChannelSelection)
{
    // Select 0 or 1 gives that channel alone, 3 their mean.
    std::mt19937 random(99);
    const FrameContent content = RandomLayer1(random, 0, 0);
    const std::vector<uint8_t> body = WriteLayer1(content);
    FrameInput both(content.header, body);
    const Output stereo = Decode({&both}, 1);
    for (int select : {0, 1, 3})
    {
        FrameInput one(content.header, body);
        one.header.channelSelect = select;
        const Output out = Decode({&one}, 1);
        ASSERT_EQ(out.channels[0].size(), 384u);
        for (size_t i = 0; i < 384; ++i)
        {
            if (select == 3)
                ASSERT_NEAR(out.channels[0][i], 0.5f * (stereo.channels[0][i] + stereo.channels[1][i]), 1e-5f) << i;
            else
                ASSERT_EQ(out.channels[0][i], stereo.channels[select][i]) << select << " " << i;
        }
    }
}

//==============================================================================
// Layer II frames built in the tests

TEST(Layer12Frames, AllocationsOfZeroGiveSilenceAndReadNoSampleBits)
{
    // Layer I: 4 bits a sub-band and channel; Layer II at 48 kHz: table a's 27 sub-bands.
    const Layer2AllocationTable& table = GetLayer2AllocationTable(0);
    for (int layer : {1, 2})
        for (int mode : {3, 0, 1})
        {
            const Mp3FrameHeader header = Header(layer, mode, 1, 1, mode == 3 ? 6 : 10);
            std::vector<uint8_t> body = layer == 1 ? WriteLayer1(FrameContent{header}) : WriteLayer2(FrameContent{header});
            body.resize(body.size() + 600, 0xFF); // what follows must stay unread
            FrameInput input(header, body);
            const Output out = Decode({&input}, layer);
            int expectedBits = 0;
            for (int sb = 0; sb < (layer == 1 ? 32 : table.subbands); ++sb)
                expectedBits += (layer == 1 ? 4 : AllocationPairs(table, sb)[0]) * (mode == 0 || (mode == 1 && sb < 8) ? 2 : 1);
            EXPECT_EQ(input.BitsRead(), expectedBits) << layer << " " << mode;
            ASSERT_EQ(out.channels[0].size(), layer == 1 ? 384u : 1152u);
            for (int ch = 0; ch < header.numChannels; ++ch)
                for (float s : out.channels[ch])
                    ASSERT_EQ(s, 0.0f) << layer << " " << mode;
        }
}

/** One sub-band with 3-level grouped codes; every other sub-band silent. */
Output DecodeGrouped(uint32_t code, int scaleFactor = 9)
{
    FrameContent f;
    f.header = Header(2, 3, 0, 1, 6);
    f.allocation[0][5] = 1; // 3 levels in every table a sub-band
    f.selection[0][5] = 2;
    f.scaleFactor[0][5][0] = f.scaleFactor[0][5][1] = f.scaleFactor[0][5][2] = scaleFactor;
    for (auto& g : f.codes)
        g[0][5][0] = code;
    FrameInput input(f.header, WriteLayer2(f));
    return Decode({&input}, 2);
}

TEST(Layer2Frames, GroupedCodesPastTheTableGiveZeros)
{
    // Codes 27 to 31, the middle level three times (13) and scale factor index 63, which the
    // standard leaves undefined, are silence; the top level (26) is not.
    struct Case { uint32_t code; int scaleFactor; bool silent; };
    for (const Case& c : {Case{27, 9, true}, Case{28, 9, true}, Case{29, 9, true}, Case{30, 9, true},
                          Case{31, 9, true}, Case{13, 9, true}, Case{26, 9, false}, Case{26, 63, true}})
    {
        const Output out = DecodeGrouped(c.code, c.scaleFactor);
        ASSERT_EQ(out.channels[0].size(), 1152u);
        EXPECT_EQ(std::all_of(out.channels[0].begin(), out.channels[0].end(), [](float s) { return s == 0.0f; }), c.silent)
            << c.code << " " << c.scaleFactor;
    }
}

TEST(Layer12Frames, DamagedFramesStayInBounds)
{
    // Random bytes as frames of either layer, every mode and table, and a cursor near the
    // array's end: the decoders read zeros past the array and write exactly their rows.
    std::mt19937 random(404);
    for (int trial = 0; trial < 200; ++trial)
    {
        std::vector<uint8_t> body(size_t(random() % 3000));
        for (uint8_t& b : body)
            b = uint8_t(random());
        const int layer = 1 + int(random() % 2);
        Mp3FrameHeader header = Header(layer, int(random() % 4), int(random() % 4), int(random() % 9), int(random() % 16));
        header.channelSelect = int(random() % 5) - 1;
        FrameInput input(header, body);
        if (trial % 4 == 0)
            input.bits.bitPointer = mp3ByteBufferSize - int(random() % 40);
        const Output out = Decode({&input}, layer);
        ASSERT_EQ(out.channels[0].size(), layer == 1 ? 384u : 1152u);
        for (float s : out.channels[0])
            ASSERT_TRUE(std::isfinite(s));
    }
}

//==============================================================================
// Files: Layer II from other encoders against mpg123, Layer I lengths, joins

std::string DataPath(const std::string& name)
{
    return std::string(KVO_TEST_DATA_DIR) + "/mp2/" + name;
}

std::vector<float> ReadFloats(const std::string& path)
{
    const std::string bytes = testing::ReadWholeFile(path);
    std::vector<float> values(bytes.size() / 4);
    std::memcpy(values.data(), bytes.data(), values.size() * 4);
    return values;
}

/** The reader picks MPEG audio by the ".mp3" extension: copy the file under that name. */
std::string AsMp3(const testing::TemporaryFolder& folder, const std::string& source, const std::string& name)
{
    const std::string target = folder / name;
    std::filesystem::copy_file(source, target, std::filesystem::copy_options::overwrite_existing);
    return target;
}

/** Reads every channel of a file from its start; the result of readSamples beside. */
struct FileSamples
{
    std::vector<std::vector<float>> channels;
    bool complete = false;
};

FileSamples ReadAll(AudioFileReader& reader, uint64_t numSamples)
{
    AudioBuffer<float> buffer(reader.getNumChannels(), numSamples);
    FileSamples result;
    result.complete = reader.readSamples(buffer, 0, numSamples, 0);
    for (uint32_t ch = 0; ch < reader.getNumChannels(); ++ch)
        result.channels.emplace_back(buffer.GetReadPointer(ch), buffer.GetReadPointer(ch) + numSamples);
    return result;
}

/**
    Layer I frames at 448 kbit/s and 32 kHz (672 bytes each), header and, with crc, a CRC
    word that nothing checks; the bytes behind the samples are zeros.
*/
std::string Layer1File(const std::vector<FrameContent>& frames, bool crc)
{
    std::string bytes;
    for (const FrameContent& f : frames)
    {
        std::string frame = {char(0xFF), char(crc ? 0xFE : 0xFF), char(0xE8), char(f.header.mode << 6 | f.header.modeExtension << 4)};
        if (crc)
            frame += "\x5A\xA5";
        const std::vector<uint8_t> body = WriteLayer1(f);
        frame.append(body.begin(), body.end());
        EXPECT_LE(frame.size(), 672u);
        frame.resize(672, '\0');
        bytes += frame;
    }
    return bytes;
}

TEST(Layer1Files, ReportThreeTimesTheirLengthAndDecodeLikeTheDirectComputation)
{
    testing::TemporaryFolder folder;
    std::mt19937 random(384);
    struct Kind { int mode; int extension; bool crc; const char* name; };
    for (const Kind& k : {Kind{3, 0, false, "mono"}, Kind{1, 1, true, "joint stereo, CRC"}, Kind{0, 0, false, "stereo"}})
    {
        SCOPED_TRACE(k.name);
        std::vector<FrameContent> contents;
        for (int i = 0; i < 5; ++i)
            contents.push_back(RandomLayer1(random, k.mode, k.extension, 3));
        const std::string path = folder / "layer1.mp3";
        testing::WriteWholeFile(path, Layer1File(contents, k.crc));
        ::testing::internal::CaptureStderr();
        auto reader = AudioFileReader::CreateReaderFor(File(String(path)));
        ::testing::internal::GetCapturedStderr();
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->getMetadata().sampleRate, 32000.0);
        EXPECT_EQ(reader->getNumChannels(), k.mode == 3 ? 1u : 2u);
        // Five frames counted at 1152 samples each, though each yields 384.
        ASSERT_EQ(reader->getNumSamples(), 5u * 1152u);
        const FileSamples read = ReadAll(*reader, 5 * 1152);
        EXPECT_FALSE(read.complete); // the second half and more of the reported length is not there
        ErrorFigures worst;
        for (int ch = 0; ch < int(reader->getNumChannels()); ++ch)
        {
            const std::vector<double> expected = Reference(contents, ch);
            ASSERT_EQ(expected.size(), 5u * 384u);
            ExpectAccurate(expected, read.channels[size_t(ch)].data(), ch, worst);
            const auto& rest = read.channels[size_t(ch)];
            EXPECT_TRUE(std::all_of(rest.begin() + 5 * 384, rest.end(), [](float v) { return v == 0.0f; })) << ch;
        }
    }
}

TEST(Layer2Files, JoinWithLayer3AndWav)
{
    testing::TemporaryFolder folder;
    const std::string layer2 = AsMp3(folder, DataPath("tl-joint-44k-192.mp2"), "a.mp3");
    const std::string layer3 = AsMp3(folder, DataPath("join-layer3-44k-mono.mp3"), "b.mp3");
    const testing::ProgramRun run = testing::RunSonaJoin({"-i", "a.mp3, b.mp3, a.mp3", "-d", "out.wav"}, folder.GetPath());
    ASSERT_EQ(run.exitCode, 0) << run.standardOutput << run.standardError;

    ::testing::internal::CaptureStderr();
    auto first = AudioFileReader::CreateReaderFor(File(String(layer2)));
    auto second = AudioFileReader::CreateReaderFor(File(String(layer3)));
    auto out = AudioFileReader::CreateReaderFor(File(String(folder / "out.wav")));
    ::testing::internal::GetCapturedStderr();
    ASSERT_TRUE(first && second && out);
    const uint64_t n1 = first->getNumSamples(), n2 = second->getNumSamples();
    EXPECT_EQ(out->getMetadata().bitsPerSample, 32u);
    EXPECT_TRUE(out->getMetadata().isFloat);
    EXPECT_EQ(out->getNumChannels(), 2u);
    ASSERT_EQ(out->getNumSamples(), 2 * n1 + n2);

    // Each part is what its own reader gives, the mono Layer III part silent on the right.
    const FileSamples joined = ReadAll(*out, 2 * n1 + n2);
    const FileSamples a = ReadAll(*first, n1);
    const FileSamples b = ReadAll(*second, n2);
    for (int ch = 0; ch < 2; ++ch)
        for (uint64_t i = 0; i < n1; ++i)
        {
            ASSERT_EQ(joined.channels[size_t(ch)][i], a.channels[size_t(ch)][i]) << ch << " " << i;
            ASSERT_EQ(joined.channels[size_t(ch)][n1 + n2 + i], a.channels[size_t(ch)][i]) << ch << " " << i;
        }
    for (uint64_t i = 0; i < n2; ++i)
    {
        ASSERT_EQ(joined.channels[0][n1 + i], b.channels[0][i]) << i;
        ASSERT_EQ(joined.channels[1][n1 + i], 0.0f) << i;
    }
}

/**
    Decodes name.mp2 and compares it with mpg123's decode in name + suffix, which keeps every
    stride-th sample frame; returns the reader's length and rate.
*/
std::pair<uint64_t, double> ExpectMatchesReference(const std::string& name, const char* suffix, size_t stride, uint32_t channels)
{
    testing::TemporaryFolder folder;
    const std::vector<float> reference = ReadFloats(DataPath(name + suffix));
    auto reader = AudioFileReader::CreateReaderFor(File(String(AsMp3(folder, DataPath(name + ".mp2"), "in.mp3"))));
    EXPECT_TRUE(reader);
    EXPECT_FALSE(reference.empty());
    EXPECT_EQ(reader ? reader->getNumChannels() : 0u, channels);
    if (!reader || reader->getNumChannels() != channels || reference.empty())
        return {0, 0.0};
    const size_t points = reference.size() / channels;
    EXPECT_GE(reader->getNumSamples(), (points - 1) * stride + 1);
    const FileSamples read = ReadAll(*reader, points * stride);
    ErrorFigures worst;
    for (uint32_t ch = 0; ch < channels; ++ch)
    {
        std::vector<double> expected;
        std::vector<float> actual;
        for (size_t i = 0; i < points; ++i)
        {
            expected.push_back(reference[channels * i + ch]);
            actual.push_back(read.channels[ch][stride * i]);
        }
        ExpectAccurate(expected, actual.data(), int(ch), worst);
    }
    PrintFigures("mp2", name.c_str(), worst);
    return {reader->getNumSamples(), reader->getMetadata().sampleRate};
}

TEST(Layer12Files, MatchTheirReferenceDecodes)
{
    // Layer II from twolame (tl) and ffmpeg (ff); streams written sub-band by sub-band through
    // all allocations of one table each; six Layer I frames, mono, and joint stereo through
    // every bound and plain stereo. The long ones are compared every 8th sample frame.
    struct Fixture { const char* name; uint32_t channels; double rate; size_t stride; uint64_t length; };
    const Fixture fixtures[] = {
        {"tl-joint-44k-192", 2, 44100, 1, 0},      {"tl-joint-44k-160", 2, 44100, 1, 0},
        {"tl-joint-48k-192", 2, 48000, 1, 0},      {"tl-joint-32k-64", 2, 32000, 1, 0},
        {"tl-stereo-crc-48k-256", 2, 48000, 1, 0}, {"tl-mono-44k-48", 1, 44100, 1, 0},
        {"ff-stereo-48k-192", 2, 48000, 1, 0},     {"ff-mono-32k-64", 1, 32000, 1, 0},
        {"tl-joint-22k-64", 2, 22050, 1, 0},       {"tl-mono-16k-32", 1, 16000, 1, 0},
        {"ff-stereo-24k-96", 2, 24000, 1, 0},      {"alloc-a", 2, 0, 8, 0},
        {"alloc-b", 2, 0, 8, 0},                   {"alloc-c", 2, 0, 8, 0},
        {"alloc-d", 2, 0, 8, 0},                   {"alloc-lsf", 2, 0, 8, 0},
        {"layer1-mono", 1, 0, 8, 6 * 1152},        {"layer1-joint", 2, 0, 8, 6 * 1152},
    };
    for (const Fixture& f : fixtures)
    {
        SCOPED_TRACE(f.name);
        const auto [length, rate] = ExpectMatchesReference(f.name, f.stride == 1 ? ".f32" : ".every8.f32", f.stride, f.channels);
        EXPECT_EQ(rate, f.rate != 0 ? f.rate : rate); // 0: not checked
        EXPECT_EQ(length, f.length != 0 ? f.length : length);
    }
}

TEST(Layer2Files, FreeFormatIsWalkedWithoutASize)
{
    // The first frame has no size, so the length is 0; the frames decode from whatever the
    // buffer holds, and reading on past the length is still safe.
    testing::TemporaryFolder folder;
    const std::string path = AsMp3(folder, DataPath("tl-free-44k-200.mp2"), "free.mp3");
    ::testing::internal::CaptureStderr();
    auto reader = AudioFileReader::CreateReaderFor(File(String(path)));
    ::testing::internal::GetCapturedStderr();
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);
    EXPECT_EQ(reader->getNumChannels(), 2u);
    const FileSamples read = ReadAll(*reader, 20000);
    for (const auto& channel : read.channels)
        EXPECT_TRUE(std::all_of(channel.begin(), channel.end(), [](float v) { return std::isfinite(v); }));
}

TEST(Layer12Files, DamagedStreamsNeverFail)
{
    // Fixtures with bytes overwritten at random, cut short, or with random bytes in the
    // middle, and a Layer I file likewise: each opens or is refused, and reads to its end.
    std::mt19937 random(2026);
    std::mt19937 layer1Random(11);
    std::vector<FrameContent> layer1;
    for (int i = 0; i < 4; ++i)
        layer1.push_back(RandomLayer1(layer1Random, 1, 2, 3));
    std::vector<std::string> sources = {Layer1File(layer1, true)};
    for (const char* name : {"tl-joint-44k-192.mp2", "tl-stereo-crc-48k-256.mp2", "tl-mono-16k-32.mp2",
                             "ff-stereo-24k-96.mp2", "tl-free-44k-200.mp2"})
        sources.push_back(testing::ReadWholeFile(DataPath(name)));
    const int savedTarget = ConsoleTarget;
    for (int trial = 0; trial < 120; ++trial)
    {
        std::string bytes = sources[size_t(trial) % sources.size()];
        const int kind = trial / int(sources.size()) % 3;
        if (kind == 1)
            bytes.resize(random() % bytes.size());
        for (size_t i = 0; kind != 1 && i < (kind == 0 ? 40 : bytes.size() / 6); ++i)
            bytes[kind == 0 ? random() % bytes.size() : bytes.size() / 3 + i] = char(random());
        fuzzing::ReadAsAudioFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), ".mp3");
    }
    ConsoleTarget = savedTarget;
}

} // namespace
} // namespace kvo
