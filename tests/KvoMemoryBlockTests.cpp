// MemoryBlock and InputStream::ReadIntoMemoryBlock: what "the rest" means, short reads,
// and reads in pieces.

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

/** A stream over "ABCD..."; optionally delivers at most maxPerRead bytes a call, and logs each request. */
class BytesInputStream : public InputStream
{
public:
    explicit BytesInputStream(int length, int64_t maxPerRead = -1) : maxPerRead(maxPerRead)
    {
        for (int i = 0; i < length; ++i)
            bytes += char('A' + i);
    }

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

    std::string bytes;
    std::vector<int64_t> requests;

private:
    int64_t maxPerRead;
    int64_t position = 0;
};

std::string BytesOf(const MemoryBlock& block)
{
    return std::string(reinterpret_cast<const char*>(block.data), static_cast<size_t>(block.size));
}

TEST(MemoryBlock, SetSizeKeepsLeadingBytesAndCopiesAreDeep)
{
    MemoryBlock block;
    block.SetSize(4, true); // no storage yet: a plain allocation
    std::memcpy(block.data, "abcd", 4);
    block.SetSize(10, true);
    EXPECT_EQ(BytesOf(block), std::string("abcd") + std::string(6, '\0'));
    block.SetSize(2, false);
    EXPECT_EQ(BytesOf(block), "ab");

    MemoryBlock copy(block);
    copy.data[0] = 'X';
    EXPECT_EQ(BytesOf(block), "ab");
    copy = MemoryBlock();
    EXPECT_EQ(copy.data, nullptr);
    block.SetSize(0, false);
    EXPECT_EQ(block.data, nullptr);
}

TEST(MemoryBlockStreamRead, NegativeCountReadsTheRest)
{
    BytesInputStream stream(15);
    stream.SetPosition(5);
    MemoryBlock block;
    block.Allocate(3, false); // existing storage is reshaped
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 10);
    EXPECT_EQ(BytesOf(block), stream.bytes.substr(5));

    stream.SetPosition(5);
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 100), 10); // a count beyond the rest is cut to it
    EXPECT_EQ(block.size, 10);
}

TEST(MemoryBlockStreamRead, AtTheEnd)
{
    BytesInputStream stream(10);
    stream.SetPosition(25); // past the end counts as the end
    MemoryBlock block;
    block.Allocate(3, false);
    std::memcpy(block.data, "old", 3);
    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, -1), 0); // "the rest" is nothing: the block stays
    EXPECT_EQ(BytesOf(block), "old");
    EXPECT_TRUE(stream.requests.empty());

    EXPECT_EQ(stream.ReadIntoMemoryBlock(block, 5), 0); // a count still sizes the block
    EXPECT_EQ(block.size, 5);
}

TEST(MemoryBlockStreamRead, ShortReadsAndPieces)
{
    BytesInputStream trickle(10, 3);
    MemoryBlock block;
    EXPECT_EQ(trickle.ReadIntoMemoryBlock(block, 8), 3); // a short read stops, the size stays
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(BytesOf(block).substr(0, 3), "ABC");
    EXPECT_EQ(trickle.requests, (std::vector<int64_t>{8}));

    BytesInputStream stream(10);
    uint8_t dest[10] = {};
    EXPECT_EQ(details::ReadInPieces(stream, dest, 10, 4), 10);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(dest), 10), stream.bytes);
    EXPECT_EQ(stream.requests, (std::vector<int64_t>{4, 4, 2}));

    BytesInputStream shortStream(6); // a piece that comes back short ends the read
    EXPECT_EQ(details::ReadInPieces(shortStream, dest, 10, 4), 6);
    EXPECT_EQ(shortStream.requests, (std::vector<int64_t>{4, 4}));
    EXPECT_EQ(details::largestReadPiece, int64_t(1) << 30);
}

} // namespace
} // namespace kvo
