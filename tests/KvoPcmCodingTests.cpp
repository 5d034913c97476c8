// Sample coding between file bytes, fixed point and float: what the readers' and writers'
// round trips cannot show (channel rules, the in-place case, clipping and rounding of
// every float). The byte layouts of each width are pinned by the reader and writer tests,
// their round trips by the join's copies against its conversions.

#include <cmath>
#include <limits>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoPcmSampleCoding.h"

namespace kvo::testing
{
namespace
{

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

TEST(PcmDecoding, WidthsWithoutADecoderLeaveTheArraysAlone)
{
    const std::string source(16, '\x11');
    for (int bits : { 12, 20, 48 })
        EXPECT_EQ(decode(ConvertLittleEndianToInt32, bits, false, source, 1, 2, 2)[1][0], 0x5A5A5A5A) << bits;
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 64, false, source, 1, 1, 2)[0][0], 0x5A5A5A5A);
}

TEST(PcmDecoding, ChannelsBeyondTheSourceAreZeroedAndNullOnesSkipped)
{
    const std::string stereo("\x01\x00\x02\x00\x03\x00\x04\x00", 8);
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

TEST(PcmScaling, FloatToFixedClipsAndRoundsToEven)
{
    const float source[] = { -2.0f, 1.0f, 1.5f, 0.5f, -0.000001f, std::ldexp(1.5f, -31), std::ldexp(2.5f, -31) };
    std::vector<int> dest(std::size(source));
    ConvertFloatToFixed(source, dest.data(), std::size(source));
    EXPECT_EQ(dest, (std::vector<int> { INT32_MIN, INT32_MAX, INT32_MAX, 0x40000000, -2147, 2, 2 }));
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

} // namespace
} // namespace kvo::testing
