#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/KvoInputStream.h"
#include "core/KvoMemoryBlock.h"

namespace kvo
{
namespace
{

/** A stream over bytes held in memory; optionally delivers at most maxPerRead bytes a call. */
class BytesInputStream : public InputStream
{
public:
    explicit BytesInputStream(std::string bytes, int64_t maxPerRead = -1)
        : bytes(std::move(bytes)), maxPerRead(maxPerRead) {}

    int64_t GetTotalLength() override { return static_cast<int64_t>(bytes.size()); }
    bool IsExhausted() override { return position >= GetTotalLength(); }
    int64_t GetPosition() override { return position; }
    bool SetPosition(int64_t newPosition) override
    {
        position = newPosition;
        return true;
    }

    int64_t Read(void* dest, int64_t numBytes) override
    {
        requests.push_back(numBytes);
        int64_t count = std::clamp<int64_t>(GetTotalLength() - position, 0, numBytes);
        if (maxPerRead >= 0)
            count = std::min(count, maxPerRead);
        if (count > 0)
            std::memcpy(dest, bytes.data() + position, static_cast<size_t>(count));
        position += count;
        return count;
    }

    std::vector<int64_t> requests;

private:
    std::string bytes;
    int64_t maxPerRead;
    int64_t position = 0;
};

std::string Numbered(int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += char('A' + i);
    return text;
}

std::string BytesOf(const MemoryBlock& block)
{
    return std::string(reinterpret_cast<const char*>(block.data), static_cast<size_t>(block.size));
}

// ---------------------------------------------------------------------------------------
// MemoryBlock

TEST(MemoryBlock, AllocateReplacesAndZeroesOnRequest)
{
    MemoryBlock block;
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(block.size, 0);

    block.Allocate(16, true);
    ASSERT_NE(block.data, nullptr);
    EXPECT_EQ(block.size, 16);
    EXPECT_EQ(BytesOf(block), std::string(16, '\0'));

    block.Allocate(0, true);
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(block.size, 0);
}

TEST(MemoryBlock, SetSizeKeepsLeadingBytes)
{
    MemoryBlock block;
    block.SetSize(4, true); // no storage yet: a plain allocation
    std::memcpy(block.data, "abcd", 4);

    block.SetSize(10, true);
    EXPECT_EQ(BytesOf(block), std::string("abcd") + std::string(6, '\0'));

    block.SetSize(2, false);
    EXPECT_EQ(BytesOf(block), "ab");

    const uint8_t* data = block.data;
    block.SetSize(2, true); // same size: nothing happens
    EXPECT_EQ(block.data, data);

    block.SetSize(0, false);
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(block.size, 0);
}

TEST(MemoryBlock, CopiesAreNewAllocations)
{
    MemoryBlock original;
    original.Allocate(3, false);
    std::memcpy(original.data, "xyz", 3);

    MemoryBlock copy(original);
    EXPECT_NE(copy.data, original.data);
    EXPECT_EQ(BytesOf(copy), "xyz");
    copy.data[0] = 'X';
    EXPECT_EQ(BytesOf(original), "xyz");

    MemoryBlock empty;
    copy = empty;
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_EQ(MemoryBlock(empty).data, nullptr);

    copy = original;
    copy = copy;
    EXPECT_EQ(BytesOf(copy), "xyz");

    MemoryBlock moved(std::move(copy));
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_EQ(copy.size, 0);
    EXPECT_EQ(BytesOf(moved), "xyz");
}

// ---------------------------------------------------------------------------------------
// InputStream::ReadIntoMemoryBlock

TEST(MemoryBlockStreamRead, NegativeCountReadsTheRest)
{
    BytesInputStream stream(Numbered(10));
    MemoryBlock block;
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 10);
    EXPECT_EQ(BytesOf(block), Numbered(10));
    EXPECT_TRUE(stream.IsExhausted());
}

TEST(MemoryBlockStreamRead, CountBeyondTheRestIsCutToTheRest)
{
    BytesInputStream stream(Numbered(15));
    stream.SetPosition(5);
    MemoryBlock block;
    block.Allocate(3, false); // existing storage is reshaped
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 100), 10);
    EXPECT_EQ(BytesOf(block), Numbered(15).substr(5));
}

TEST(MemoryBlockStreamRead, NegativeCountAtTheEndLeavesTheBlock)
{
    BytesInputStream stream(Numbered(10));
    stream.SetPosition(10);
    MemoryBlock block;
    block.Allocate(3, false);
    std::memcpy(block.data, "old", 3);
    const uint8_t* data = block.data;

    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 0);
    EXPECT_EQ(block.data, data);
    EXPECT_EQ(BytesOf(block), "old");

    stream.SetPosition(25); // past the end counts the same
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 0);
    EXPECT_EQ(BytesOf(block), "old");
    EXPECT_TRUE(stream.requests.empty());
}

TEST(MemoryBlockStreamRead, PositiveCountAtTheEndSizesTheBlock)
{
    BytesInputStream stream(Numbered(10));
    stream.SetPosition(10);
    MemoryBlock block;
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 5), 0);
    EXPECT_EQ(block.size, 5);
    EXPECT_NE(block.data, nullptr);
}

TEST(MemoryBlockStreamRead, ShortReadStopsAndKeepsTheSize)
{
    BytesInputStream stream(Numbered(10), 3);
    MemoryBlock block;
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 8), 3);
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(BytesOf(block).substr(0, 3), "ABC");
    EXPECT_EQ(stream.requests, (std::vector<int64_t> { 8 }));
}

TEST(MemoryBlockStreamRead, LargeCountsAreReadInPieces)
{
    BytesInputStream stream(Numbered(10));
    uint8_t dest[10] = {};
    EXPECT_EQ(details::ReadInPieces(stream, dest, 10, 4), 10);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(dest), 10), Numbered(10));
    EXPECT_EQ(stream.requests, (std::vector<int64_t> { 4, 4, 2 }));

    // A piece that comes back short ends the read with what arrived.
    BytesInputStream shortStream(Numbered(6));
    EXPECT_EQ(details::ReadInPieces(shortStream, dest, 10, 4), 6);
    EXPECT_EQ(shortStream.requests, (std::vector<int64_t> { 4, 4 }));

    EXPECT_EQ(details::largestReadPiece, int64_t(1) << 30);
}

} // namespace
} // namespace kvo
