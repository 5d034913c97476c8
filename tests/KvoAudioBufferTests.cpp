// AudioBuffer: planar storage, the 6.0 GB guard, and Resize keeping the linear layout.

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoTestUtilities.h"
#include "containers/KvoAudioBuffer.h"

namespace kvo
{
namespace
{

using testing::MessageOf;

/** Writes value c * 100 + i into sample i of channel c. */
void FillWithPositions(AudioBuffer<float>& buffer)
{
    for (uint32_t c = 0; c < buffer.GetNumChannels(); ++c)
        for (uint64_t i = 0; i < buffer.GetNumSamples(); ++i)
            buffer.GetWritePointer(c)[i] = float(c * 100 + i);
}

std::vector<float> ChannelOf(const AudioBuffer<float>& buffer, uint32_t channel)
{
    return {buffer.GetReadPointer(channel), buffer.GetReadPointer(channel) + buffer.GetNumSamples()};
}

TEST(AudioBuffer, ChannelsAreAdjacentAndZeroed)
{
    AudioBuffer<float> buffer(3, 5);
    for (uint32_t c = 0; c < 3; ++c)
    {
        EXPECT_EQ(buffer.GetReadPointer(c), buffer.GetReadPointer(0) + c * 5);
        EXPECT_EQ(ChannelOf(buffer, c), std::vector<float>(5, 0.0f));
    }
    EXPECT_DOUBLE_EQ(buffer.GetMemorySizeInMiB(), 15.0 * 4.0 / 1048576.0);
    EXPECT_EQ(AudioBuffer<float>(2, 0).GetReadPointer(1), nullptr);
}

TEST(AudioBuffer, CeilingIsSixDecimalGigabytes)
{
    EXPECT_TRUE(AudioBuffer<float>::IsReasonableAllocation(2, 750000000));
    EXPECT_FALSE(AudioBuffer<float>::IsReasonableAllocation(2, 750000001));
    EXPECT_FALSE(AudioBuffer<double>::IsReasonableAllocation(3, 250000001));
    EXPECT_EQ(MessageOf([] { AudioBuffer<float>(2, 750000001); }),
              "Overly large buffer allocation (2 x 750000001). This would require more than 6.0 GB.");
    EXPECT_EQ(MessageOf([] { AudioBuffer<double>(8, 1000000000); }),
              "Overly large buffer allocation (8 x 1000000000). This would require more than 64.0 GB.");
    // A shape whose byte count wraps around 64 bits is refused, not taken as small.
    EXPECT_EQ(MessageOf([] { AudioBuffer<float>(4, uint64_t(1) << 62); }),
              "Overly large buffer allocation (4 x 4611686018427387904). This would require more than 7.3787e+10 GB.");

    AudioBuffer<float> buffer(2, 4);
    EXPECT_EQ(MessageOf([&] { buffer.Resize(2, 750000001); }),
              "Overly large array allocation (1500000002 elements). This would require more than 6.0 GB.");
}

TEST(AudioBufferResize, SamplesKeepTheirLinearPosition)
{
    AudioBuffer<float> buffer(2, 4);
    FillWithPositions(buffer);
    buffer.SetClearFlag(true);
    buffer.Resize(2, 4); // the same shape touches nothing
    EXPECT_TRUE(buffer.IsClear());

    buffer.Resize(1, 8);
    EXPECT_FALSE(buffer.IsClear());
    EXPECT_EQ(ChannelOf(buffer, 0), (std::vector<float>{0, 1, 2, 3, 100, 101, 102, 103}));

    buffer.Resize(3, 4); // new channels are wired up behind the old ones, the grown tail is zero
    for (uint32_t c = 0; c < 3; ++c)
        EXPECT_EQ(buffer.GetReadPointer(c), buffer.GetReadPointer(0) + c * 4);
    EXPECT_EQ(ChannelOf(buffer, 1), (std::vector<float>{100, 101, 102, 103}));
    EXPECT_EQ(ChannelOf(buffer, 2), std::vector<float>(4, 0.0f));
}

TEST(AudioBufferResize, CapacityNeverShrinks)
{
    AudioBuffer<float> buffer(2, 8);
    FillWithPositions(buffer);
    const float* start = buffer.GetReadPointer(0);
    buffer.Resize(2, 2);
    EXPECT_EQ(buffer.GetReadPointer(1), start + 2);
    buffer.Resize(2, 8);
    EXPECT_EQ(buffer.GetReadPointer(0), start);
    // Elements 0..3 survive in place; the regrown tail reads zero.
    EXPECT_EQ(ChannelOf(buffer, 0), (std::vector<float>{0, 1, 2, 3, 0, 0, 0, 0}));
    EXPECT_EQ(ChannelOf(buffer, 1), std::vector<float>(8, 0.0f));
}

/** A base that presents samples owned by the caller. */
class ExternalView : public AudioBufferBase<float>
{
public:
    ExternalView(float* left, float* right) : AudioBufferBase<float>(2, 4)
    {
        channels[0] = left;
        channels[1] = right;
    }
    bool IsAllocated() const override { return false; }
};

TEST(AudioBufferBase, ViewKeepsForeignPointersAcrossResize)
{
    float left[8] = {}, right[8] = {};
    ExternalView view(left, right);
    EXPECT_EQ(view.GetMemorySizeInMiB(), 0.0);
    view.Resize(3, 8);
    EXPECT_EQ(view.GetReadPointer(0), left);
    EXPECT_EQ(view.GetReadPointer(1), right);
    EXPECT_EQ(view.GetReadPointer(2), nullptr);
}

} // namespace
} // namespace kvo
