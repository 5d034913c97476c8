#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"

namespace kvo
{
namespace
{

template <typename Action>
std::string MessageOf(Action&& action)
{
    try
    {
        action();
    }
    catch (const Exception& e)
    {
        return e.GetMessage().GetStdString();
    }
    ADD_FAILURE() << "no kvo::Exception was thrown";
    return {};
}

/** Writes value c * 100 + i into sample i of channel c. */
void FillWithPositions(AudioBuffer<float>& buffer)
{
    for (uint32_t c = 0; c < buffer.GetNumChannels(); ++c)
        for (uint64_t i = 0; i < buffer.GetNumSamples(); ++i)
            buffer.GetWritePointer(c)[i] = float(c * 100 + i);
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

// ---------------------------------------------------------------------------------------
// Construction and its ceiling

TEST(AudioBufferConstruction, ChannelsArePlanarAdjacentAndZeroed)
{
    AudioBuffer<float> buffer(3, 5);
    EXPECT_EQ(buffer.GetNumChannels(), 3u);
    EXPECT_EQ(buffer.GetNumSamples(), 5u);
    EXPECT_TRUE(buffer.IsAllocated());
    EXPECT_FALSE(buffer.IsClear());
    for (uint32_t c = 0; c < 3; ++c)
    {
        EXPECT_EQ(buffer.GetReadPointer(c), buffer.GetReadPointer(0) + c * 5);
        for (uint64_t i = 0; i < 5; ++i)
            EXPECT_EQ(buffer.GetReadPointer(c)[i], 0.0f);
    }
    EXPECT_DOUBLE_EQ(buffer.GetMemorySizeInMiB(), 15.0 * 4.0 / 1048576.0);
    EXPECT_DOUBLE_EQ(AudioBuffer<double>(2, 3).GetMemorySizeInMiB(), 48.0 / 1048576.0);
}

TEST(AudioBufferConstruction, EmptyShapes)
{
    AudioBuffer<float> noChannels(0, 1024);
    EXPECT_EQ(noChannels.GetNumChannels(), 0u);
    EXPECT_EQ(noChannels.GetMemorySizeInMiB(), 0.0);

    AudioBuffer<float> noSamples(2, 0);
    EXPECT_EQ(noSamples.GetReadPointer(0), nullptr);
    EXPECT_EQ(noSamples.GetReadPointer(1), nullptr);
    EXPECT_EQ(noSamples.GetMemorySizeInMiB(), 0.0);
}

TEST(AudioBufferConstruction, CeilingIsSixDecimalGigabytes)
{
    EXPECT_TRUE(AudioBuffer<float>::IsReasonableAllocation(2, 750000000));
    EXPECT_FALSE(AudioBuffer<float>::IsReasonableAllocation(2, 750000001));
    EXPECT_TRUE(AudioBuffer<double>::IsReasonableAllocation(1, 750000000));
    EXPECT_FALSE(AudioBuffer<double>::IsReasonableAllocation(3, 250000001));
    // A shape whose byte count wraps around 64 bits is refused, not taken as small.
    EXPECT_FALSE(AudioBuffer<float>::IsReasonableAllocation(4, uint64_t(1) << 62));
}

TEST(AudioBufferConstruction, OversizedBufferIsRefusedBeforeAllocation)
{
    EXPECT_EQ(MessageOf([] { AudioBuffer<float>(2, 750000001); }),
              "Overly large buffer allocation (2 x 750000001). This would require more than 6.0 GB.");
    EXPECT_EQ(MessageOf([] { AudioBuffer<double>(8, 1000000000); }),
              "Overly large buffer allocation (8 x 1000000000). This would require more than 64.0 GB.");
    EXPECT_EQ(MessageOf([] { AudioBuffer<float>(4, uint64_t(1) << 62); }),
              "Overly large buffer allocation (4 x 4611686018427387904). This would require more than 7.3787e+10 GB.");
}

// ---------------------------------------------------------------------------------------
// Resize

TEST(AudioBufferResize, SameShapeTouchesNothing)
{
    AudioBuffer<float> buffer(2, 4);
    FillWithPositions(buffer);
    buffer.SetClearFlag(true);
    buffer.Resize(2, 4);
    EXPECT_TRUE(buffer.IsClear());
    EXPECT_EQ(buffer.GetReadPointer(1)[3], 103.0f);
}

TEST(AudioBufferResize, SamplesKeepTheirLinearPosition)
{
    AudioBuffer<float> buffer(2, 4);
    FillWithPositions(buffer);
    buffer.SetClearFlag(true);

    buffer.Resize(1, 8);
    EXPECT_FALSE(buffer.IsClear());
    ASSERT_EQ(buffer.GetNumChannels(), 1u);
    ASSERT_EQ(buffer.GetNumSamples(), 8u);
    const float expected[] = { 0, 1, 2, 3, 100, 101, 102, 103 };
    for (uint64_t i = 0; i < 8; ++i)
        EXPECT_EQ(buffer.GetReadPointer(0)[i], expected[i]) << "sample " << i;
}

TEST(AudioBufferResize, NewChannelsAreWiredAndGrownTailIsZero)
{
    AudioBuffer<float> buffer(2, 4);
    FillWithPositions(buffer);

    buffer.Resize(3, 4);
    ASSERT_EQ(buffer.GetNumChannels(), 3u);
    for (uint32_t c = 0; c < 3; ++c)
        EXPECT_EQ(buffer.GetReadPointer(c), buffer.GetReadPointer(0) + c * 4);
    EXPECT_EQ(buffer.GetReadPointer(1)[3], 103.0f);
    for (uint64_t i = 0; i < 4; ++i)
        EXPECT_EQ(buffer.GetReadPointer(2)[i], 0.0f);
}

TEST(AudioBufferResize, CapacityNeverShrinks)
{
    AudioBuffer<float> buffer(2, 8);
    FillWithPositions(buffer);
    const float* start = buffer.GetReadPointer(0);
    const double mebibytes = buffer.GetMemorySizeInMiB();

    buffer.Resize(2, 2);
    EXPECT_EQ(buffer.GetReadPointer(1), start + 2);
    buffer.Resize(2, 8);
    EXPECT_EQ(buffer.GetReadPointer(0), start);
    EXPECT_EQ(buffer.GetMemorySizeInMiB(), mebibytes);
    // Elements 0..3 survive in place; the regrown tail 4..15 reads zero.
    EXPECT_EQ(buffer.GetReadPointer(0)[3], 3.0f);
    for (uint64_t i = 4; i < 8; ++i)
        EXPECT_EQ(buffer.GetReadPointer(0)[i], 0.0f);
    for (uint64_t i = 0; i < 8; ++i)
        EXPECT_EQ(buffer.GetReadPointer(1)[i], 0.0f);
}

TEST(AudioBufferResize, OversizedResizeFailsInTheArrayGuard)
{
    AudioBuffer<float> buffer(2, 4);
    EXPECT_EQ(MessageOf([&] { buffer.Resize(2, 750000001); }),
              "Overly large array allocation (1500000002 elements). This would require more than 6.0 GB.");

    AudioBuffer<float> other(2, 4);
    EXPECT_EQ(MessageOf([&] { other.Resize(8, uint64_t(1) << 62); }),
              "Overly large array allocation (18446744073709551615 elements). This would require more than 7.3787e+10 GB.");
}

// ---------------------------------------------------------------------------------------
// Silence marking and the base

TEST(AudioBufferClearFlag, WriteAccessClearsReadAccessDoesNot)
{
    AudioBuffer<float> buffer(1, 4);
    buffer.SetClearFlag(true);
    (void) buffer.GetReadPointer(0);
    EXPECT_TRUE(buffer.IsClear());
    (void) buffer.GetWritePointer(0);
    EXPECT_FALSE(buffer.IsClear());

    buffer.SetClearFlag(true);
    buffer.Resize(1, 5);
    EXPECT_FALSE(buffer.IsClear());
}

TEST(AudioBufferBase, ViewKeepsForeignPointersAcrossResize)
{
    float left[8] = {}, right[8] = {};
    ExternalView view(left, right);
    EXPECT_FALSE(view.IsAllocated());
    EXPECT_EQ(view.GetMemorySizeInMiB(), 0.0);
    EXPECT_EQ(view.GetWritePointer(1), right);

    view.Resize(3, 8);
    EXPECT_EQ(view.GetNumSamples(), 8u);
    EXPECT_EQ(view.GetReadPointer(0), left);
    EXPECT_EQ(view.GetReadPointer(1), right);
    EXPECT_EQ(view.GetReadPointer(2), nullptr);

    view.Resize(1, 8);
    EXPECT_EQ(view.GetNumChannels(), 1u);
    EXPECT_EQ(view.GetReadPointer(0), left);
}

} // namespace
} // namespace kvo
