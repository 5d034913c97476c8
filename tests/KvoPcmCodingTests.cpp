// Sample coding between file bytes, fixed point and float: exact values at the edges.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "audiofiles/KvoPcmSampleCoding.h"

namespace kvo
{
namespace
{

std::string bytes(std::initializer_list<int> values)
{
    std::string text;
    for (int v : values)
        text += static_cast<char>(v);
    return text;
}

/** Decodes frames of one or more channels into fresh arrays filled with a marker value. */
std::vector<std::vector<int>> decode(void (*decoder)(int, bool, int**, uint64_t, unsigned, const char*, unsigned, uint64_t),
                                     int bits, bool isFloat, const std::string& source, unsigned numSourceChannels,
                                     unsigned numDestChannels, uint64_t numFrames)
{
    std::vector<std::vector<int>> channels(numDestChannels, std::vector<int>(numFrames, 0x5A5A5A5A));
    std::vector<int*> pointers;
    for (auto& channel : channels)
        pointers.push_back(channel.data());
    decoder(bits, isFloat, pointers.data(), 0, numDestChannels, source.data(), numSourceChannels, numFrames);
    return channels;
}

float asFloat(int bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}

TEST(PcmDecoding, WavWidthsLandInTheTopBits)
{
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 8, false, bytes({ 0x80, 0x00, 0xFF }), 1, 1, 3)[0],
              (std::vector<int> { 0, INT32_MIN, 0x7F000000 }));
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 16, false, bytes({ 0x00, 0x80, 0xFF, 0x7F }), 1, 1, 2)[0],
              (std::vector<int> { INT32_MIN, 0x7FFF0000 }));
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 24, false, bytes({ 0xFF, 0xFF, 0x7F, 0x01, 0x00, 0x80 }), 1, 1, 2)[0],
              (std::vector<int> { 0x7FFFFF00, static_cast<int>(0x80000100) }));
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 32, false, bytes({ 0x01, 0x02, 0x03, 0x84 }), 1, 1, 1)[0][0],
              static_cast<int>(0x84030201));
}

TEST(PcmDecoding, DoublesNarrowToFloatBits)
{
    double values[2] = { 0.25, 1e300 };
    std::string source(reinterpret_cast<const char*>(values), sizeof(values));
    const auto decoded = decode(ConvertLittleEndianToInt32, 64, true, source, 1, 1, 2)[0];
    EXPECT_EQ(asFloat(decoded[0]), 0.25f);
    EXPECT_TRUE(std::isinf(asFloat(decoded[1])));
}

TEST(PcmDecoding, WidthsWithoutADecoderLeaveTheArraysAlone)
{
    const std::string source(16, '\x11');
    for (int bits : { 12, 20, 48 })
        EXPECT_EQ(decode(ConvertLittleEndianToInt32, bits, false, source, 1, 2, 2)[1][0], 0x5A5A5A5A) << bits;
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 64, false, source, 1, 1, 2)[0][0], 0x5A5A5A5A);
    EXPECT_EQ(decode(ConvertBigEndianToInt32, 64, true, source, 1, 1, 2)[0][0], 0x5A5A5A5A);
}

TEST(PcmDecoding, AiffIsBigEndianWithSignedBytes)
{
    EXPECT_EQ(decode(ConvertBigEndianToInt32, 8, false, bytes({ 0x80, 0x7F }), 1, 1, 2)[0],
              (std::vector<int> { INT32_MIN, 0x7F000000 }));
    EXPECT_EQ(decode(ConvertBigEndianToInt32, 16, false, bytes({ 0x80, 0x01 }), 1, 1, 1)[0][0],
              static_cast<int>(0x80010000));
    EXPECT_EQ(decode(ConvertBigEndianToInt32, 24, false, bytes({ 0x80, 0x01, 0x02 }), 1, 1, 1)[0][0],
              static_cast<int>(0x80010200));
    EXPECT_EQ(decode(ConvertBigEndianToInt32, 32, true, bytes({ 0x3F, 0x80, 0x00, 0x00 }), 1, 1, 1)[0][0],
              0x3F800000);
    // "sowt": little-endian words, but signed bytes
    EXPECT_EQ(decode(ConvertAiffLittleEndianToInt32, 8, false, bytes({ 0x80 }), 1, 1, 1)[0][0], INT32_MIN);
    EXPECT_EQ(decode(ConvertAiffLittleEndianToInt32, 16, false, bytes({ 0x01, 0x80 }), 1, 1, 1)[0][0],
              static_cast<int>(0x80010000));
}

TEST(PcmDecoding, ChannelsBeyondTheSourceAreZeroedAndNullOnesSkipped)
{
    const std::string stereo = bytes({ 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x00 });
    const auto wide = decode(ConvertLittleEndianToInt32, 16, false, stereo, 2, 3, 2);
    EXPECT_EQ(wide[0], (std::vector<int> { 0x10000, 0x30000 }));
    EXPECT_EQ(wide[1], (std::vector<int> { 0x20000, 0x40000 }));
    EXPECT_EQ(wide[2], (std::vector<int> { 0, 0 }));
    const auto narrow = decode(ConvertLittleEndianToInt32, 16, false, stereo, 2, 1, 2);
    EXPECT_EQ(narrow[0], (std::vector<int> { 0x10000, 0x30000 }));

    std::vector<int> right(2, 7);
    int* pointers[2] = { nullptr, right.data() };
    ConvertLittleEndianToInt32(16, false, pointers, 0, 2, stereo.data(), 2, 2);
    EXPECT_EQ(right, (std::vector<int> { 0x20000, 0x40000 }));
}

TEST(PcmDecoding, MonoDecodedInPlaceRunsBackwards)
{
    // 16-bit mono samples at the start of the very array they decode into.
    std::vector<int> memory(4, 0);
    const int16_t samples[4] = { 1, -1, 300, -32768 };
    std::memcpy(memory.data(), samples, sizeof(samples));
    int* pointers[1] = { memory.data() };
    ConvertLittleEndianToInt32(16, false, pointers, 0, 1, reinterpret_cast<const char*>(memory.data()), 1, 4);
    EXPECT_EQ(memory, (std::vector<int> { 0x10000, -0x10000, 300 << 16, INT32_MIN }));
}

TEST(PcmScaling, FixedToFloatIsAPowerOfTwo)
{
    std::vector<int> values { 0, INT32_MIN, 0x7FFF0000, 0x7FFFFFFF, 0x00800000 };
    int* pointers[1] = { values.data() };
    ConvertFixedToFloat(pointers, 1, values.size());
    EXPECT_EQ(asFloat(values[0]), 0.0f);
    EXPECT_EQ(asFloat(values[1]), -1.0f);
    EXPECT_EQ(asFloat(values[2]), 32767.0f / 32768.0f);
    EXPECT_EQ(asFloat(values[3]), 1.0f); // 2^31 - 1 rounds to 2^31 as a float
    EXPECT_EQ(asFloat(values[4]), 1.0f / 256.0f);
}

TEST(PcmScaling, FloatToFixedClipsAndRoundsToEven)
{
    const float source[] = { -1.0f, -2.0f, 1.0f, 1.5f, 0.5f, -0.000001f, 0.000001f, std::ldexp(1.5f, -31),
                             std::ldexp(2.5f, -31) };
    int dest[std::size(source)];
    ConvertFloatToFixed(source, dest, std::size(source));
    EXPECT_EQ(dest[0], INT32_MIN);
    EXPECT_EQ(dest[1], INT32_MIN);
    EXPECT_EQ(dest[2], INT32_MAX);
    EXPECT_EQ(dest[3], INT32_MAX);
    EXPECT_EQ(dest[4], 0x40000000);
    EXPECT_EQ(dest[5], -2147);
    EXPECT_EQ(dest[6], 2147);
    EXPECT_EQ(dest[7], 2); // 1.5 -> 2
    EXPECT_EQ(dest[8], 2); // 2.5 -> 2
}

TEST(PcmScaling, FloatToFixedEqualsClippedLrintfEverywhere)
{
    // Every 4093rd float bit pattern, both signs, against the plain formula.
    std::vector<float> source;
    for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += 4093)
    {
        const auto pattern = static_cast<uint32_t>(bits);
        float value;
        std::memcpy(&value, &pattern, sizeof(value));
        if (!std::isnan(value))
            source.push_back(value);
    }
    std::vector<int> dest(source.size());
    ConvertFloatToFixed(source.data(), dest.data(), source.size());
    for (size_t i = 0; i < source.size(); ++i)
    {
        const float x = source[i];
        const int expected = x <= -1.0f ? INT32_MIN : x >= 1.0f ? INT32_MAX : static_cast<int>(std::lrintf(x * 2147483648.0f));
        ASSERT_EQ(dest[i], expected) << x;
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    int fromNan = 0;
    ConvertFloatToFixed(&nan, &fromNan, 1);
    EXPECT_EQ(fromNan, INT32_MIN);
}

std::string pack(void (*packer)(int, const int* const*, unsigned, uint64_t, char*), int bits,
                 const std::vector<std::vector<int>>& channels)
{
    std::vector<const int*> pointers;
    for (const auto& channel : channels)
        pointers.push_back(channel.data());
    std::string out(channels.size() * channels[0].size() * static_cast<size_t>(bits / 8), '\0');
    packer(bits, pointers.data(), static_cast<unsigned>(channels.size()), channels[0].size(), out.data());
    return out;
}

TEST(PcmPacking, WavKeepsTheTopBitsLittleEndian)
{
    const std::vector<std::vector<int>> values { { INT32_MAX, INT32_MIN, -1, 0 } };
    EXPECT_EQ(pack(PackWavSamples, 8, values), bytes({ 0xFF, 0x00, 0x7F, 0x80 }));
    EXPECT_EQ(pack(PackWavSamples, 16, values), bytes({ 0xFF, 0x7F, 0x00, 0x80, 0xFF, 0xFF, 0x00, 0x00 }));
    EXPECT_EQ(pack(PackWavSamples, 24, values),
              bytes({ 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x80, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00 }));
    EXPECT_EQ(pack(PackWavSamples, 32, { { 0x3FC00000 } }), bytes({ 0x00, 0x00, 0xC0, 0x3F }));
}

TEST(PcmPacking, AiffIsBigEndianAndInterleaves)
{
    const std::vector<std::vector<int>> stereo { { 0x12345678 }, { -2 } };
    EXPECT_EQ(pack(PackAiffSamples, 8, stereo), bytes({ 0x12, 0xFF }));
    EXPECT_EQ(pack(PackAiffSamples, 16, stereo), bytes({ 0x12, 0x34, 0xFF, 0xFF }));
    EXPECT_EQ(pack(PackAiffSamples, 24, stereo), bytes({ 0x12, 0x34, 0x56, 0xFF, 0xFF, 0xFF }));
    EXPECT_EQ(pack(PackAiffSamples, 32, stereo), bytes({ 0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF, 0xFF, 0xFE }));
}

TEST(PcmRoundTrip, SixteenAndTwentyFourBitsSurviveFloat)
{
    for (int bits : { 8, 16, 24 })
    {
        const int step = 1 << (32 - bits);
        std::vector<int> fixed;
        for (int64_t v = INT32_MIN; v <= INT32_MAX; v += int64_t(step) * 997)
            fixed.push_back(static_cast<int>(v));
        fixed.push_back(INT32_MAX & ~(step - 1));
        const std::vector<std::vector<int>> channels { fixed };
        const std::string packed = pack(PackWavSamples, bits, channels);

        auto decoded = decode(ConvertLittleEndianToInt32, bits, false, packed, 1, 1, fixed.size());
        int* pointers[1] = { decoded[0].data() };
        ConvertFixedToFloat(pointers, 1, fixed.size());
        std::vector<float> floats(fixed.size());
        std::memcpy(floats.data(), decoded[0].data(), floats.size() * sizeof(float));
        std::vector<int> again(fixed.size());
        ConvertFloatToFixed(floats.data(), again.data(), floats.size());
        EXPECT_EQ(pack(PackWavSamples, bits, { again }), packed) << bits << " bits";
    }
}

} // namespace
} // namespace kvo
