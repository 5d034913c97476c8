// The core types. String and StringArray: the rules at the edges that paths, options and name
// tables depend on (plain accessors and searches are left to the tests of their users). The
// containers: Vector's growth and its 6.0 GB guard, AudioBuffer's planar storage, MemoryBlock and
// InputStream::ReadIntoMemoryBlock with its reads in pieces.

#include <algorithm>
#include <cstdio>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "KvoTestUtilities.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoInputStream.h"
#include "core/KvoMemoryBlock.h"
#include "core/KvoString.h"
#include "core/KvoStringArray.h"
#include "math/KvoVector.h"

namespace kvo::testing
{
namespace
{

using Entries = std::vector<std::string>;

Entries entriesOf(const StringArray& array)
{
    Entries entries;
    for (const String* entry : array)
        entries.push_back(entry->GetStdString());
    return entries;
}

TEST(StringEdits, QuotesTrimReplaceAndSlices)
{
    String self("ab");
    ReplaceAll(self, self, "x");
    const std::pair<String, const char*> cases[] = {
        { Quoted("a b"), "\"a b\"" },      { Quoted("'x'"), "'x'" }, // already quoted text is left alone
        { Quoted("\"x'"), "\"\"x'\"" },    { Unquoted("\""), "" },
        { Unquoted("\"a'"), "\"a'" },      { Unquoted("\"\"a\"\""), "\"a\"" },
        // Trimming touches ASCII only; replacing never rescans what it inserted.
        { Trimmed(" \t\n a b \r\v\f"), "a b" }, { Trimmed("\xA0x\xA0"), "\xA0x\xA0" },
        { Replaced("aa", "a", "aa"), "aaaa" },  { Replaced("aaa", "aa", "b"), "ba" },
        { Replaced("a\\ b\\ c", "\\ ", " "), "a b c" }, { Replaced("abc", "", "x"), "abc" }, { self, "x" },
        // Slices are empty when the delimiter is missing; an included one is the text's own bytes.
        { UpToLastOccurrenceOf("abc", '/', true), "" },   { UpToLastOccurrenceOf("abc", '/', false), "" },
        { UpToFirstOccurrenceOf("abc", "::", true), "" }, { UpToFirstOccurrenceOf("abc", "", true), "" },
        { FromFirstOccurrenceOf("abc", "x"), "" },        { FromLastOccurrenceOf("abc", '.', true), "" },
        { UpToLastOccurrenceOf("dir/sub/file", '/', true), "dir/sub/" },
        { UpToLastOccurrenceOf("dir/sub/file", '/', false), "dir/sub" },
        { UpToFirstOccurrenceOf("a::b::c", "::", false), "a" }, { FromLastOccurrenceOf("a.b.c", '.', false), "c" },
        { UpToFirstOccurrenceOf("NameEXTension", "ext", true, insensitive), "NameEXT" },
        { SubString("hello", 4, 2), "" },                 { SubString("hello", 1, 100), "ello" },
    };
    for (const auto& [result, expected] : cases)
        EXPECT_EQ(result.GetStdString(), expected);
    // Case folding touches ASCII only; an empty needle or text is found nowhere.
    EXPECT_TRUE(Equals("WAV File", "wav fILE", insensitive));
    EXPECT_FALSE(Equals("\xC3\x84", "\xC3\xA4", insensitive));
    EXPECT_FALSE(Equals(String("ab\0", 3), String("ab")));
    EXPECT_TRUE(EndsWith("a.wav", "a.wav") && !EndsWith("wav", ".wav"));
    EXPECT_EQ(std::vector<int64_t>({ IndexOf("abc", ""), IndexOf("", "a"), IndexOf("xaBcBC", "bc", insensitive),
                                     IndexOf("aBc", "bc"), IndexOf("abc", 'C', insensitive), LastIndexOf("a.b.c", '.') }),
              (std::vector<int64_t> { -1, -1, 2, -1, 2, 3 }));
}

TEST(StringSplit, TrailingPiecesInBothModes)
{
    // The text, its pieces keeping empty ones, and dropping them.
    const std::tuple<const char*, Entries, Entries> cases[] = {
        {"a,b,c", {"a", "b", "c"}, {"a", "b", "c"}},
        {"a,b,", {"a", "b"}, {"a", "b"}}, // one trailing empty piece is dropped
        {"a,,", {"a", ""}, {"a"}},        // but only one
        {",a", {"", "a"}, {"a"}},
        {"a,,b", {"a", "", "b"}, {"a", "b"}},
        {",", {""}, {}},
        {",,,", {"", "", ""}, {}},
        {"", {}, {}},
        {" , ", {" ", " "}, {" ", " "}},
    };
    for (const auto& [text, keepingEmpty, droppingEmpty] : cases)
    {
        EXPECT_EQ(entriesOf(Split(text, ',', true)), keepingEmpty) << '"' << text << '"';
        EXPECT_EQ(entriesOf(Split(text, ',', false)), droppingEmpty) << '"' << text << '"';
    }
    EXPECT_EQ(Join(Split("a,,b,", ',', true), ";"), "a;;b");

    StringArray array = Split(" ; a ;;  ; b;\t", ';', true);
    RemoveEmpty(array, true);
    TrimAll(array);
    EXPECT_EQ(entriesOf(array), (Entries{"a", "b"}));
}

TEST(StringWildcard, StarsQuestionMarksCaseAndLongNames)
{
    struct Case { const char* text; const char* pattern; bool matches; };
    const Case cases[] = {
        { "a", "a*", true },      { "a", "a**", false }, // two stars want a byte between them
        { "ab", "a**", true },    { "abc", "*c*", true },    { "abc", "*c**", false },   { "x", "*?", true },
        { "", "*", false },       { "a", "", false },        { "abc", "a?c", true },     { "ac", "a?c", false },
        { "ab", "ab?", false },   { "abcbd", "a*b?", true }, { "aXbXc", "a*b*c", true }, { "abca", "a*b*c", false },
        { "aabab", "*ab", true }, { "abc", "*b", false },    { "aBc", "*b*", false },    { "\x01", "\x01", true },
    };
    for (const Case& c : cases)
        EXPECT_EQ(MatchesWildcard(c.text, c.pattern), c.matches) << c.text << " against " << c.pattern;
    EXPECT_TRUE(MatchesWildcard("ABC.WAV", "*.wav", insensitive));
    EXPECT_TRUE(MatchesWildcard("aBc", "?b*", insensitive));
    EXPECT_FALSE(MatchesWildcard("ABC.WAV", "*.wav", sensitive));
    EXPECT_FALSE(MatchesWildcard("\xC3\x84.wav", "\xC3\xA4.wav", insensitive));
    // Plain backtracking would take on the order of 250^12 steps here.
    const String name(std::string(250, 'a'));
    EXPECT_FALSE(MatchesWildcard(name, "*a*a*a*a*a*a*a*a*a*a*a*a*b"));
    EXPECT_TRUE(MatchesWildcard(name + "b", "*a*a*a*a*a*a*a*a*a*a*a*a*b"));
    // A million stars, typed as a wildcard, once took a stack frame each.
    EXPECT_TRUE(MatchesWildcard("xa", String(std::string(1000000, '*') + "a")));
}

TEST(StringFromDouble, Notations)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<std::pair<String, std::string>> cases = {
        { FromDouble(8.0), "8.0" },                     { FromDouble(8.0, 0, true), "8" },
        { FromDouble(-0.0), "-0.0" },                   { FromDouble(100000.0), "100000.0" },
        { FromDouble(123456789.0), "1.23457e+08" },     { FromDouble(1e25), "1e+25" },
        { FromDouble(1e-7), "1e-07" },                  { FromDouble(-infinity), "-inf" },
        { FromDouble(std::numeric_limits<double>::quiet_NaN(), 2), "nan" },
        // The fast path rounds half away from zero, where the stream would print "1.2".
        { FromDouble(1.25, 1), "1.3" },                 { FromDouble(-1.25, 1), "-1.3" },
        { FromDouble(-0.004, 2), "-0.00" },             { FromDouble(99.96, 1), "100.0" },
        { FromDouble(1e13, 6), "10000000000000.000000" }, { FromDouble(0.5, 7), "0.5000000" },
        // Scaled past 64 bits: fixed notation from the stream.
        { FromDouble(1e19, 6), "10000000000000000000.000000" },
        { FromDouble(-12345678901234567890.0, 1), "-12345678901234567168.0" },
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text.GetStdString(), expected);

    // The stream's text is cut at 48 bytes; the cut removed the point, so the suffix comes back.
    char full[400];
    std::snprintf(full, sizeof(full), "%.1f", 1e60);
    const std::string firstBytes = std::string(full).substr(0, 48);
    EXPECT_EQ(FromDouble(1e60, 1, true), firstBytes);
    EXPECT_EQ(FromDouble(1e60, 1), firstBytes + ".0");
}

TEST(StringFormatDuration, EveryRange)
{
    const std::vector<std::pair<double, std::string>> cases = {
        { 0.0, "0.0 ms" },        { 99.96, "100.0 ms" },          { 100.4, "100 ms" },        { 999.9, "999 ms" },
        { 1194.0, "1.19 sec" },   { 30000.0, "30.00 sec" },       { 30000.1, "30 sec" },
        { 90000.0, "1 min 30 sec" }, { 120000.0, "2 min" },       { 3605000.0, "1 h 0 min 5 sec" },
        { 3660000.0, "1 h 1 min" }, { 172800000.0, "48 h" },
        // Rounded seconds carry into minutes and hours.
        { 59700.0, "1 min" },       { 3599600.0, "1 h" },          { 3659600.0, "1 h 1 min" },
        { std::numeric_limits<double>::infinity(), "inf ms" },
    };
    for (const auto& [milliseconds, expected] : cases)
        EXPECT_EQ(FormatDuration(milliseconds), expected) << milliseconds;
}

template <typename T>
std::vector<T> Elements(const Vector<T>& vector) { return std::vector<T>(vector.begin(), vector.end()); }

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
