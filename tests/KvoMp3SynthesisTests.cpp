// The MPEG audio synthesis filterbank and the Layer III IMDCTs against the textbook computations
// in double precision: the synthesis from KvoMp3Reference.h, the transforms written out here.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "KvoMp3Reference.h"
#include "audiofiles/KvoMp3Imdct.h"
#include "audiofiles/KvoMp3Synthesis.h"
#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

const double pi = std::acos(-1.0);

std::vector<float> RandomValues(size_t count, float amplitude, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> distribution(-amplitude, amplitude);
    std::vector<float> values(count);
    for (float& value : values)
        value = distribution(generator);
    return values;
}

// Synthesis window ---------------------------------------------------------------------------------

/** Where the filter stores tap n (n % 32 at most 16) of the window. */
float StoredTap(int n)
{
    return GetMp3Tables().synthWindow[n / 32 + 32 * (n % 32)];
}

TEST(Mp3SynthesisWindow, HoldsThePublishedMagnitudes)
{
    // The filter keeps |D[n]| once for n % 32 up to 16 and uses the window's evenness about
    // 256 for the rest; the signs are proven by the synthesis matching the reference below.
    for (int n = 0; n < 512; ++n)
        EXPECT_EQ(std::fabs(n % 32 <= 16 ? StoredTap(n) : StoredTap(512 - n)), std::fabs(testing::WindowCoefficient(n))) << n;
}

// Fast transform -----------------------------------------------------------------------------------

TEST(Mp3Synthesis, FastDctMatchesTheCosineSum)
{
    for (unsigned seed = 1; seed <= 4; ++seed)
    {
        const std::vector<float> input = RandomValues(32, 1.0f, seed);
        std::vector<float> first(17 * 16, 0.0f);
        std::vector<float> second(16 * 16, 0.0f);
        fastDct32(first.data(), second.data(), input.data());
        for (int i = 0; i < 32; ++i)
        {
            double expected = 0.0;
            for (int k = 0; k < 32; ++k)
                expected += input[size_t(k)] * std::cos((2 * k + 1) * i * pi / 64);
            if (i <= 16)
            {
                EXPECT_NEAR(first[size_t(16 * (16 - i))], expected, 2e-5) << i;
            }
            if (i >= 16)
            {
                EXPECT_NEAR(second[size_t(16 * (i - 16))], expected, 2e-5) << i;
            }
        }
    }
}

// Synthesis ------------------------------------------------------------------------------------------

/** Feeds rows to both filters for the channels given, comparing every sample. */
void CompareWithDirect(int rows, int channels, float amplitude, unsigned seed)
{
    Mp3SynthesisState state;
    Mp3SynthesisState plain; // the four-float path, which must match the one chosen for this processor to the bit
    state.reset();
    plain.reset();
    testing::ReferenceSynthesis direct[2];
    std::vector<float> out[2] = { std::vector<float>(size_t(32 * rows)), std::vector<float>(size_t(32 * rows)) };
    int samplesDone = 0;
    double worst = 0.0;
    for (int row = 0; row < rows; ++row)
    {
        for (int channel = 0; channel < channels; ++channel)
        {
            const std::vector<float> subbands = RandomValues(32, amplitude, seed + unsigned(row * 2 + channel));
            int done = samplesDone;
            synthesise(state, subbands.data(), channel, out[channel].data(), done);
            ASSERT_EQ(done, samplesDone + 32);
            const bool wide = std::exchange(mp3WideFilterbank, false);
            float plainRow[32];
            int plainDone = 0;
            synthesise(plain, subbands.data(), channel, plainRow, plainDone);
            mp3WideFilterbank = wide;
            EXPECT_EQ(std::memcmp(plainRow, out[channel].data() + samplesDone, sizeof plainRow), 0) << row;
            const std::vector<double> rowIn(subbands.begin(), subbands.end());
            std::vector<double> expected;
            direct[channel].Row(rowIn.data(), expected);
            for (int j = 0; j < 32; ++j)
                worst = std::max(worst, std::fabs(out[channel][size_t(samplesDone + j)] - expected[size_t(j)]));
        }
        samplesDone += 32;
    }
    EXPECT_LT(worst, 2e-6 * amplitude * 32) << channels << " channels";
}

TEST(Mp3Synthesis, MatchesTheStandardsMatrixingAndWindow)
{
    CompareWithDirect(40, 1, 1.0f, 10);
    CompareWithDirect(40, 2, 1.0f, 20);
    CompareWithDirect(20, 2, 4.0f, 30); // beyond full scale, nothing is clipped
}

// IMDCT ------------------------------------------------------------------------------------------

/** The textbook block: direct IMDCT of n / 2 lines, times the block type's window. */
std::vector<double> WindowedImdct(const float* lines, int n, int blockType)
{
    std::vector<double> block(size_t(n), 0.0);
    for (int i = 0; i < n; ++i)
    {
        double sum = 0.0;
        for (int k = 0; k < n / 2; ++k)
            sum += lines[k] * std::cos(pi / (2 * n) * (2 * i + 1 + n / 2) * (2 * k + 1));
        double window = 0.0;
        if (n == 12)
            window = std::sin(pi / 12 * (i + 0.5));
        else if (blockType == 0 || (blockType == 1 && i < 18) || (blockType == 3 && i >= 18))
            window = std::sin(pi / 36 * (i + 0.5));
        else if (blockType == 1)
            window = i < 24 ? 1.0 : i < 30 ? std::sin(pi / 12 * (i - 18 + 0.5)) : 0.0;
        else
            window = i < 6 ? 0.0 : i < 12 ? std::sin(pi / 12 * (i - 6 + 0.5)) : 1.0;
        block[size_t(i)] = sum * window;
    }
    return block;
}

/** The 36 values a sub-band's transform overlap-adds: the long block, or the three short ones. */
std::vector<double> ExpectedBlock(const std::vector<float>& lines, int blockType)
{
    if (blockType != 2)
        return WindowedImdct(lines.data(), 36, blockType);
    std::vector<double> block(36, 0.0);
    for (int w = 0; w < 3; ++w)
    {
        float shortLines[6];
        for (int k = 0; k < 6; ++k)
            shortLines[k] = lines[size_t(w + 3 * k)];
        const std::vector<double> part = WindowedImdct(shortLines, 12, 2);
        for (int i = 0; i < 12; ++i)
            block[size_t(6 + 6 * w + i)] += part[size_t(i)];
    }
    return block;
}

TEST(Mp3Imdct, MatchesTheDirectTransformWindowedAndOverlapped)
{
    const Mp3Tables& tables = GetMp3Tables();
    for (int blockType = 0; blockType < 4; ++blockType)
    {
        for (bool oddSubBand : { false, true })
        {
            std::vector<float> lines = RandomValues(18, 1.0f, unsigned(100 + blockType * 2 + oddSubBand));
            const std::vector<float> overlapIn = RandomValues(18, 1.0f, unsigned(200 + blockType));
            const std::vector<double> expected = ExpectedBlock(lines, blockType);

            std::vector<float> overlapOut(18, 99.0f);
            std::vector<float> hybrid(18 * mp3HybridStride, 99.0f);
            std::vector<float> overlapCopy = overlapIn;
            const float* window = oddSubBand ? tables.imdctWindowOdd[blockType] : tables.imdctWindow[blockType];
            const auto transform = [&](std::vector<float>& overlap, std::vector<float>& samples) {
                (blockType == 2 ? imdct12 : imdct36)(lines.data(), overlapCopy.data(), overlap.data(), window,
                                                     samples.data() + 1);
            };
            transform(overlapOut, hybrid);
            // The plain path gives the same values to the bit.
            const bool wide = std::exchange(mp3WideFilterbank, false);
            std::vector<float> plainOverlap(18, 99.0f);
            std::vector<float> plainHybrid(18 * mp3HybridStride, 99.0f);
            transform(plainOverlap, plainHybrid);
            mp3WideFilterbank = wide;
            EXPECT_EQ(plainOverlap, overlapOut);
            EXPECT_EQ(plainHybrid, hybrid);

            // Odd sub-bands come out with every odd sample negated, overlap included.
            for (int i = 0; i < 18; ++i)
            {
                const double sign = oddSubBand && (i & 1) != 0 ? -1.0 : 1.0;
                EXPECT_NEAR(hybrid[size_t(1 + i * mp3HybridStride)], sign * expected[size_t(i)] + overlapIn[size_t(i)], 2e-5)
                    << "type " << blockType << " odd " << oddSubBand << " output " << i;
                EXPECT_NEAR(overlapOut[size_t(i)], sign * expected[size_t(18 + i)], 2e-5)
                    << "type " << blockType << " odd " << oddSubBand << " overlap " << i;
                EXPECT_EQ(hybrid[size_t(i * mp3HybridStride)], 99.0f); // the neighbouring sub-band is untouched
            }
        }
    }
}

} // namespace
} // namespace kvo
