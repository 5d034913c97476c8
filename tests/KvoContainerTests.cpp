// The containers: Vector's growth and its 6.0 GB guard, AudioBuffer's planar storage, MemoryBlock
// and InputStream::ReadIntoMemoryBlock with its reads in pieces.

#include <algorithm>
#include <new>
#include <stdexcept>

#include "KvoTestUtilities.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoInputStream.h"
#include "core/KvoMemoryBlock.h"
#include "math/KvoVector.h"

namespace kvo::testing
{
namespace
{

template <typename T>
std::vector<T> Elements(const Vector<T>& vector)
{
    return std::vector<T>(vector.begin(), vector.end());
}

TEST(Vector, GrowsByHalfKeepsElementsAndShrinksWithoutFreeing)
{
    Vector<std::string> strings;
    std::vector<uint64_t> capacities;
    for (int i = 0; i < 13; ++i)
    {
        strings.PushBack(std::string(20, char('a' + i)));
        if (capacities.empty() || capacities.back() != strings.GetCapacity())
            capacities.push_back(strings.GetCapacity());
    }
    EXPECT_EQ(capacities, (std::vector<uint64_t> { 1, 2, 3, 4, 6, 9, 13 }));
    strings.PushBack(strings[0]); // while full: the source lives in the storage that moves
    EXPECT_TRUE(strings[13] == std::string(20, 'a') && strings[12] == std::string(20, 'm'));

    Vector<int> numbers;
    numbers.Reserve(8);
    numbers.Resize(9);
    EXPECT_EQ(numbers.GetCapacity(), 12u); // the larger of half again and what is required
    numbers.Resize(100);
    EXPECT_EQ(numbers.GetCapacity(), 100u);

    Vector<int> vector;
    for (int i = 1; i <= 8; ++i)
        vector.PushBack(i);
    const int* data = vector.GetData();
    vector.Resize(3);
    vector.Resize(8); // the capacity stays, the regrown part is zero
    EXPECT_EQ(vector.GetData(), data);
    vector.Insert(99, 9); // past the end appends
    vector.Insert(0, vector[1]);
    vector.Erase(1);
    EXPECT_EQ(Elements(vector), (std::vector<int> { 2, 2, 3, 0, 0, 0, 0, 0, 9 }));
}

TEST(Vector, CeilingIsSixDecimalGigabytesAndFailuresLeaveTheVectorAlone)
{
    const ScopedConsoleTarget quiet; // the refusals' reports stay off the console
    EXPECT_TRUE(Vector<float>::IsReasonableAllocation(1500000000));
    EXPECT_FALSE(Vector<float>::IsReasonableAllocation(1500000001));
    EXPECT_FALSE(Vector<float>::IsReasonableAllocation(uint64_t(1) << 62)); // a byte size that wraps
    EXPECT_EQ(MessageOf([] { Vector<int>().Resize(2000000000); }),
              "Overly large array allocation (2000000000 elements). This would require more than 8.0 GB.");
    EXPECT_EQ(MessageOf([] { Vector<double>().Resize(std::numeric_limits<uint64_t>::max()); }),
              "Overly large array allocation (18446744073709551615 elements). This would require more than 1.47574e+11 GB.");

    Vector<float> vector;
    vector.PushBack(1.5f);
    vector.PushBack(2.5f);
    const float* data = vector.GetData();
    const uint64_t capacity = vector.GetCapacity();
    EXPECT_EQ(MessageOf([&] { vector.Resize(1500000001); }),
              "Overly large array allocation (1500000001 elements). This would require more than 6.0 GB.");
    EXPECT_TRUE(vector.GetSize() == 2 && vector.GetCapacity() == capacity && vector.GetData() == data);
    EXPECT_EQ(MessageOf([&] { vector.Reserve(std::numeric_limits<uint64_t>::max() / 2); }), "exception allocation overflow. occurred");
    EXPECT_EQ(vector[1], 2.5f);

    // Growth failures become library exceptions; the library's own pass through unwrapped.
    const CodeLocation here("math/KvoVectorImplementation.h", 7, "void f()");
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [] { throw std::bad_alloc(); }); }), "out of memory");
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [] { throw std::runtime_error("boom"); }); }),
              "exception boom occurred");
    EXPECT_THROW(details::translateAllocationFailures(here, [] { throw 42; }), exceptions::Unknown);
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [&] { throw Exception("inner", here); }); }),
              "inner");
}

std::vector<float> ChannelOf(const AudioBufferBase<float>& buffer, uint32_t channel)
{
    return { buffer.GetReadPointer(channel), buffer.GetReadPointer(channel) + buffer.GetNumSamples() };
}

TEST(AudioBuffer, ChannelsAreAdjacentZeroedAndBounded)
{
    const ScopedConsoleTarget quiet; // the refusals' reports stay off the console
    AudioBuffer<float> buffer(3, 5);
    for (uint32_t c = 0; c < 3; ++c)
    {
        EXPECT_EQ(buffer.GetReadPointer(c), buffer.GetReadPointer(0) + c * 5);
        EXPECT_EQ(ChannelOf(buffer, c), std::vector<float>(5, 0.0f));
    }
    EXPECT_DOUBLE_EQ(buffer.GetMemorySizeInMiB(), 15.0 * 4.0 / 1048576.0);
    EXPECT_EQ(AudioBuffer<float>(2, 0).GetReadPointer(1), nullptr);

    EXPECT_TRUE(AudioBuffer<float>::IsReasonableAllocation(2, 750000000));
    EXPECT_FALSE(AudioBuffer<float>::IsReasonableAllocation(2, 750000001));
    EXPECT_FALSE(AudioBuffer<double>::IsReasonableAllocation(3, 250000001));
    EXPECT_EQ(MessageOf([] { AudioBuffer<float>(2, 750000001); }),
              "Overly large buffer allocation (2 x 750000001). This would require more than 6.0 GB.");
    EXPECT_EQ(MessageOf([] { AudioBuffer<double>(8, 1000000000); }),
              "Overly large buffer allocation (8 x 1000000000). This would require more than 64.0 GB.");
    EXPECT_EQ(MessageOf([] { AudioBuffer<float>(4, uint64_t(1) << 62); }), // a byte count that wraps is refused
              "Overly large buffer allocation (4 x 4611686018427387904). This would require more than 7.3787e+10 GB.");
    EXPECT_EQ(MessageOf([&] { buffer.Resize(2, 750000001); }),
              "Overly large array allocation (1500000002 elements). This would require more than 6.0 GB.");
}

TEST(AudioBuffer, ResizeKeepsTheLinearPositionAndNeverShrinksTheCapacity)
{
    AudioBuffer<float> buffer(2, 4);
    for (uint32_t c = 0; c < 2; ++c)
        for (uint64_t i = 0; i < 4; ++i)
            buffer.GetWritePointer(c)[i] = float(c * 100 + i);
    buffer.SetClearFlag(true);
    buffer.Resize(2, 4); // the same shape touches nothing
    EXPECT_TRUE(buffer.IsClear());
    buffer.Resize(1, 8);
    EXPECT_FALSE(buffer.IsClear());
    EXPECT_EQ(ChannelOf(buffer, 0), (std::vector<float> { 0, 1, 2, 3, 100, 101, 102, 103 }));
    buffer.Resize(3, 4); // new channels are wired up behind the old ones, the grown tail is zero
    for (uint32_t c = 0; c < 3; ++c)
        EXPECT_EQ(buffer.GetReadPointer(c), buffer.GetReadPointer(0) + c * 4);
    EXPECT_EQ(ChannelOf(buffer, 1), (std::vector<float> { 100, 101, 102, 103 }));
    EXPECT_EQ(ChannelOf(buffer, 2), std::vector<float>(4, 0.0f));
    const float* start = buffer.GetReadPointer(0);
    buffer.Resize(3, 1);
    EXPECT_EQ(buffer.GetReadPointer(2), start + 2);
    buffer.Resize(3, 4); // the capacity stays; what the shrink dropped reads zero
    EXPECT_EQ(buffer.GetReadPointer(0), start);
    EXPECT_EQ(ChannelOf(buffer, 0), (std::vector<float> { 0, 1, 2, 0 }));
    EXPECT_EQ(ChannelOf(buffer, 1), std::vector<float>(4, 0.0f));

    /** A base that presents samples owned by the caller keeps them across Resize. */
    struct ExternalView : AudioBufferBase<float>
    {
        ExternalView(float* left, float* right) : AudioBufferBase<float>(2, 4) { channels[0] = left, channels[1] = right; }
        bool IsAllocated() const override { return false; }
    };
    float left[8] = {}, right[8] = {};
    ExternalView view(left, right);
    EXPECT_EQ(view.GetMemorySizeInMiB(), 0.0);
    view.Resize(3, 8);
    EXPECT_TRUE(view.GetReadPointer(0) == left && view.GetReadPointer(1) == right && view.GetReadPointer(2) == nullptr);
}

/** A stream over "ABCD..."; delivers at most maxPerRead bytes a call, and logs each request. */
struct BytesInputStream : InputStream
{
    explicit BytesInputStream(size_t length, int64_t maxBytes = INT64_MAX)
        : bytes(std::string("ABCDEFGHIJKLMNO").substr(0, length)), maxPerRead(maxBytes)
    {
    }
    int64_t GetTotalLength() override { return int64_t(bytes.size()); }
    bool IsExhausted() override { return position >= GetTotalLength(); }
    int64_t GetPosition() override { return position; }
    bool SetPosition(int64_t newPosition) override { return position = newPosition, true; }
    int64_t Read(void* dest, int64_t numBytes) override
    {
        requests.push_back(numBytes);
        const int64_t count = std::min({ std::max<int64_t>(GetTotalLength() - position, 0), numBytes, maxPerRead });
        std::memcpy(dest, bytes.data() + position, size_t(count));
        position += count;
        return count;
    }

    std::string bytes;
    int64_t maxPerRead;
    int64_t position = 0;
    std::vector<int64_t> requests;
};

std::string BytesOf(const MemoryBlock& block)
{
    return std::string(reinterpret_cast<const char*>(block.data), size_t(block.size));
}

TEST(MemoryBlock, SetSizeKeepsLeadingBytesAndCopiesAreDeep)
{
    MemoryBlock block;
    block.SetSize(4, true); // no storage yet: a plain allocation
    std::memcpy(block.data, "abcd", 4);
    block.SetSize(10, true);
    EXPECT_EQ(BytesOf(block), std::string("abcd") + std::string(6, '\0'));
    block.SetSize(2, false);
    MemoryBlock copy(block);
    copy.data[0] = 'X';
    EXPECT_EQ(BytesOf(block), "ab");
    copy = MemoryBlock();
    EXPECT_EQ(copy.data, nullptr);
    block.SetSize(0, false);
    EXPECT_EQ(block.data, nullptr);
}

TEST(MemoryBlock, StreamReadsOfTheRestShortReadsAndPieces)
{
    BytesInputStream stream(15);
    stream.SetPosition(5);
    MemoryBlock block;
    block.Allocate(3, false); // existing storage is reshaped
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 10); // a negative count reads the rest
    EXPECT_EQ(BytesOf(block), stream.bytes.substr(5));
    stream.SetPosition(5);
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 100), 10); // a count beyond the rest is cut to it
    EXPECT_EQ(block.size, 10);
    stream.SetPosition(14);
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 5), 1); // and so is one past the last byte
    EXPECT_EQ(block.size, 1);

    stream.SetPosition(25); // past the end counts as the end
    stream.requests.clear();
    block.Allocate(3, false);
    std::memcpy(block.data, "old", 3);
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 0); // "the rest" is nothing: the block stays
    EXPECT_EQ(BytesOf(block), "old");
    EXPECT_TRUE(stream.requests.empty());
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 5), 0); // a count still sizes the block
    EXPECT_EQ(block.size, 5);

    BytesInputStream trickle(10, 3);
    EXPECT_EQ(trickle.ReadIntoMemoryBlock(block, 8), 3); // a short read stops, the size stays
    EXPECT_EQ(BytesOf(block), "ABC" + BytesOf(block).substr(3));
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(trickle.requests, (std::vector<int64_t> { 8 }));

    BytesInputStream whole(10);
    uint8_t dest[10] = {};
    EXPECT_EQ(details::ReadInPieces(whole, dest, 10, 4), 10);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(dest), 10), whole.bytes);
    EXPECT_EQ(whole.requests, (std::vector<int64_t> { 4, 4, 2 }));
    BytesInputStream shortStream(6); // a piece that comes back short ends the read
    EXPECT_EQ(details::ReadInPieces(shortStream, dest, 10, 4), 6);
    EXPECT_EQ(shortStream.requests, (std::vector<int64_t> { 4, 4 }));
    EXPECT_EQ(details::largestReadPiece, int64_t(1) << 30);
}

} // namespace
} // namespace kvo::testing
