// String and StringArray: the exact behaviour at the edges that paths, options and
// name tables depend on.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "core/KvoStackArrayStream.h"
#include "core/KvoString.h"
#include "core/KvoStringArray.h"

namespace kvo
{
namespace
{

std::vector<std::string> entriesOf(const StringArray& array)
{
    std::vector<std::string> entries;
    for (const String* entry : array)
        entries.push_back(entry->GetStdString());
    return entries;
}

using Entries = std::vector<std::string>;

// ---------------------------------------------------------------------------------------

TEST(StringPredicates, WhitespaceIsAsciiOnly)
{
    EXPECT_FALSE(ContainsNonWhitespace(""));
    EXPECT_FALSE(ContainsNonWhitespace(" \t\r\n\v\f"));
    EXPECT_TRUE(ContainsNonWhitespace(" x "));
    EXPECT_TRUE(ContainsWhitespace("a\tb"));
    EXPECT_FALSE(ContainsWhitespace("ab"));
    // A non-breaking space in Latin-1 and a UTF-8 lead byte are ordinary bytes.
    EXPECT_TRUE(ContainsNonWhitespace("\xA0"));
    EXPECT_FALSE(ContainsWhitespace("\xC2\xA0"));
}

TEST(StringPredicates, ContainsOnlyAcceptsAnyRunOfTheByte)
{
    EXPECT_TRUE(ContainsOnly("..", '.'));
    EXPECT_TRUE(ContainsOnly("...", '.'));
    EXPECT_TRUE(ContainsOnly("", '.'));
    EXPECT_FALSE(ContainsOnly(".a.", '.'));
}

TEST(StringPredicates, ContainsFamily)
{
    EXPECT_TRUE(ContainsChar("a/b", '/'));
    EXPECT_FALSE(ContainsString("abc", ""));
    EXPECT_TRUE(ContainsString("abc", "bc"));
    EXPECT_FALSE(ContainsAnyOf("abc", ""));
    EXPECT_FALSE(ContainsAnyOf("abc", nullptr));
    EXPECT_TRUE(ContainsAnyOf("abc", "xyc"));
    EXPECT_TRUE(ContainsWildcard("a?"));
    EXPECT_TRUE(ContainsWildcard("*"));
    EXPECT_FALSE(ContainsWildcard("a[b]"));
}

TEST(StringPredicates, StartsAndEndsWith)
{
    EXPECT_TRUE(EndsWith("abc", ""));
    EXPECT_TRUE(EndsWith("abc", "abc"));
    EXPECT_FALSE(EndsWith("bc", "abc"));
    EXPECT_FALSE(EndsWith("abc", "ab"));
    EXPECT_TRUE(EndsWith("dir/", '/'));
    EXPECT_FALSE(EndsWith("", '/'));
    EXPECT_TRUE(StartsWith("abc", ""));
    EXPECT_TRUE(StartsWith("~/x", "~/"));
    EXPECT_FALSE(StartsWith("~", "~/"));
}

// ---------------------------------------------------------------------------------------

TEST(StringQuotes, IsQuotedNeedsMatchingEnds)
{
    EXPECT_TRUE(IsQuoted("\"a\""));
    EXPECT_TRUE(IsQuoted("'a'"));
    EXPECT_TRUE(IsQuoted("\""));
    EXPECT_TRUE(IsQuoted("'"));
    EXPECT_FALSE(IsQuoted(""));
    EXPECT_FALSE(IsQuoted("\"a'"));
    EXPECT_FALSE(IsQuoted("\"a"));
}

TEST(StringQuotes, QuotedLeavesAnyQuotedTextAlone)
{
    EXPECT_EQ(Quoted("a b"), "\"a b\"");
    EXPECT_EQ(Quoted(""), "\"\"");
    EXPECT_EQ(Quoted("'x'"), "'x'");
    EXPECT_EQ(Quoted("\""), "\"");
    EXPECT_EQ(Quoted("x", '\''), "'x'");
    EXPECT_EQ(Quoted("\"x'"), "\"\"x'\"");
}

TEST(StringQuotes, UnquotedDropsOnlyMatchingEnds)
{
    EXPECT_EQ(Unquoted("\""), "");
    EXPECT_EQ(Unquoted("\"\""), "");
    EXPECT_EQ(Unquoted("'a b'"), "a b");
    EXPECT_EQ(Unquoted("\"a'"), "\"a'");
    EXPECT_EQ(Unquoted("\"\"a\"\""), "\"a\"");
    for (const char* text : { "", "a", "a b", "x\"y" })
        EXPECT_EQ(Unquoted(Quoted(text)), text);
}

// ---------------------------------------------------------------------------------------

TEST(StringCompare, EqualsChecksLengthThenStopsAtZero)
{
    EXPECT_TRUE(Equals(String("ab\0cd", 5), String("ab\0xy", 5)));
    EXPECT_FALSE(Equals(String("ab\0", 3), String("ab")));
    EXPECT_FALSE(Equals("abc", "abd"));
    EXPECT_TRUE(Equals("", ""));
}

TEST(StringCompare, InsensitiveFoldsAsciiOnly)
{
    EXPECT_TRUE(Equals("WAV File", "wav fILE", insensitive));
    EXPECT_FALSE(Equals("WAV", "wav", sensitive));
    // Latin-1 and UTF-8 capitals are not folded.
    EXPECT_FALSE(Equals("\xC4", "\xE4", insensitive));
    EXPECT_FALSE(Equals("\xC3\x84", "\xC3\xA4", insensitive));

    String text("\xC3\x84" "BC-\xFF");
    ToLowerCase(text);
    EXPECT_EQ(text, "\xC3\x84" "bc-\xFF");
}

TEST(StringCompare, IndexOfAndCounts)
{
    EXPECT_EQ(IndexOf("abcabc", "ca"), 2);
    EXPECT_EQ(IndexOf("abc", ""), -1);
    EXPECT_EQ(IndexOf("", "a"), -1);
    EXPECT_EQ(IndexOf("abc", "abcd"), -1);
    EXPECT_EQ(IndexOf("FileName.WAV", ".wav", insensitive), 8);
    EXPECT_EQ(IndexOf("FileName.WAV", ".wav", sensitive), -1);
    EXPECT_EQ(IndexOf("aXbx", 'x'), 3);
    EXPECT_EQ(IndexOf("aXbx", 'x', insensitive), 1);
    EXPECT_EQ(IndexOf("abc", 'z'), -1);
    EXPECT_EQ(LastIndexOf("XaxA", 'X', insensitive), 2);
    EXPECT_EQ(LastIndexOf("abc", '/'), -1);
    EXPECT_EQ(CountOf("AaA", 'a'), 1);
    EXPECT_EQ(CountOf("AaA", 'a', insensitive), 3);
    EXPECT_EQ(CountOf("", 'a'), 0);
}

// ---------------------------------------------------------------------------------------

TEST(StringSlices, SubStringClampsAndEmpties)
{
    EXPECT_EQ(SubString("hello", 1, 3), "el");
    EXPECT_EQ(SubString("hello", 1, 100), "ello");
    EXPECT_EQ(SubString("hello", 3, 3), "");
    EXPECT_EQ(SubString("hello", 4, 2), "");
    EXPECT_EQ(SubString("hello", 5), "");
    EXPECT_EQ(SubString("hello", 9), "");
    EXPECT_EQ(SubString("hello", 2), "llo");
}

TEST(StringSlices, FromOccurrence)
{
    EXPECT_EQ(FromFirstOccurrenceOf("a.b.c", "."), "b.c");
    EXPECT_EQ(FromFirstOccurrenceOf("a::b", "::"), "b");
    EXPECT_EQ(FromFirstOccurrenceOf("abc", "x"), "");
    EXPECT_EQ(FromFirstOccurrenceOf("abc", ""), "");
    EXPECT_EQ(FromFirstOccurrenceOf("key=value=x", '='), "value=x");
    EXPECT_EQ(FromFirstOccurrenceOf("KeyXvalue", 'x', insensitive), "value");
    EXPECT_EQ(FromLastOccurrenceOf("a.b.c", '.', true), ".c");
    EXPECT_EQ(FromLastOccurrenceOf("a.b.c", '.', false), "c");
    EXPECT_EQ(FromLastOccurrenceOf("a.b.", '.', false), "");
    EXPECT_EQ(FromLastOccurrenceOf("abc", '.', true), "");
    EXPECT_EQ(FromLastOccurrenceOf("x.WAV", 'w', true, insensitive), "WAV");
}

TEST(StringSlices, UpToYieldsEmptyWhenDelimiterIsMissing)
{
    EXPECT_EQ(UpToLastOccurrenceOf("abc", '/', true), "");
    EXPECT_EQ(UpToLastOccurrenceOf("abc", '/', false), "");
    EXPECT_EQ(UpToFirstOccurrenceOf("abc", "::", true), "");
    EXPECT_EQ(UpToFirstOccurrenceOf("abc", "", true), "");

    EXPECT_EQ(UpToLastOccurrenceOf("dir/sub/file", '/', true), "dir/sub/");
    EXPECT_EQ(UpToLastOccurrenceOf("dir/sub/file", '/', false), "dir/sub");
    EXPECT_EQ(UpToLastOccurrenceOf("/file", '/', false), "");
    EXPECT_EQ(UpToFirstOccurrenceOf("a::b::c", "::", true), "a::");
    EXPECT_EQ(UpToFirstOccurrenceOf("a::b::c", "::", false), "a");
    // The included delimiter is the text's own bytes, not the argument's.
    EXPECT_EQ(UpToFirstOccurrenceOf("NameEXTension", "ext", true, insensitive), "NameEXT");
    EXPECT_EQ(UpToLastOccurrenceOf("aXbxc", 'x', false, insensitive), "aXb");
}

// ---------------------------------------------------------------------------------------

TEST(StringEdits, TrimRemovesAsciiWhitespaceOnly)
{
    EXPECT_EQ(Trimmed(" \t\n a b \r\v\f"), "a b");
    EXPECT_EQ(Trimmed("   "), "");
    EXPECT_EQ(Trimmed("\xA0x\xA0"), "\xA0x\xA0");

    String text("  x  ");
    TrimStart(text);
    EXPECT_EQ(text, "x  ");
    TrimEnd(text);
    EXPECT_EQ(text, "x");
}

TEST(StringEdits, ReplaceAllNeverRescansInsertedText)
{
    EXPECT_EQ(Replaced("aa", "a", "aa"), "aaaa");
    EXPECT_EQ(Replaced("xaax", "aa", "a"), "xax");
    EXPECT_EQ(Replaced("aaa", "aa", "b"), "ba");
    EXPECT_EQ(Replaced("abcabc", "abc", ""), "");
    EXPECT_EQ(Replaced("a\\ b\\ c", "\\ ", " "), "a b c");
    EXPECT_EQ(Replaced("abc", "", "x"), "abc");
    EXPECT_EQ(Replaced("", "a", "x"), "");
    EXPECT_EQ(Replaced("abc", "z", "x"), "abc");

    String self("ab");
    ReplaceAll(self, self, "x");
    EXPECT_EQ(self, "x");
}

TEST(StringEdits, ReplaceLastTouchesOnlyTheLastOccurrence)
{
    String text("a.b.c");
    ReplaceLast(text, ".", "--");
    EXPECT_EQ(text, "a.b--c");
    ReplaceLast(text, "zz", "y");
    EXPECT_EQ(text, "a.b--c");
    ReplaceLast(text, "a.b--c and more", "y");
    EXPECT_EQ(text, "a.b--c");
    ReplaceLast(text, "", "y");
    EXPECT_EQ(text, "a.b--c");
}

TEST(StringEdits, CharEditsAndDropLast)
{
    EXPECT_EQ(ReplacedChar("a\\b\\c", '\\', '/'), "a/b/c");
    EXPECT_EQ(DropLast("dir/", '/'), "dir");
    EXPECT_EQ(DropLast("dir//", '/'), "dir/");
    EXPECT_EQ(DropLast("dir", '/'), "dir");
    EXPECT_EQ(DropLast("", '/'), "");

    String text("ab");
    PopBack(text);
    EXPECT_EQ(text, "a");
}

// ---------------------------------------------------------------------------------------

TEST(StringSplit, KeepEmptyDropsOnlyOneTrailingEmptyPiece)
{
    EXPECT_EQ(entriesOf(Split("a,b,c", ',', true)), (Entries{ "a", "b", "c" }));
    EXPECT_EQ(entriesOf(Split("a,b,", ',', true)), (Entries{ "a", "b" }));
    EXPECT_EQ(entriesOf(Split("a,,", ',', true)), (Entries{ "a", "" }));
    EXPECT_EQ(entriesOf(Split(",a", ',', true)), (Entries{ "", "a" }));
    EXPECT_EQ(entriesOf(Split("a,,b", ',', true)), (Entries{ "a", "", "b" }));
    EXPECT_EQ(entriesOf(Split(",", ',', true)), (Entries{ "" }));
    EXPECT_EQ(entriesOf(Split("abc", ',', true)), (Entries{ "abc" }));
    EXPECT_TRUE(Split("", ',', true).IsEmpty());
}

TEST(StringSplit, WithoutEmptyPieces)
{
    EXPECT_EQ(entriesOf(Split("a,b,c", ',', false)), (Entries{ "a", "b", "c" }));
    EXPECT_EQ(entriesOf(Split("a,b,", ',', false)), (Entries{ "a", "b" }));
    EXPECT_EQ(entriesOf(Split("a,,", ',', false)), (Entries{ "a" }));
    EXPECT_EQ(entriesOf(Split(",a", ',', false)), (Entries{ "a" }));
    EXPECT_EQ(entriesOf(Split(",,a,,b", ',', false)), (Entries{ "a", "b" }));
    EXPECT_EQ(entriesOf(Split(" ; ", ';', false)), (Entries{ " ", " " }));
    EXPECT_TRUE(Split(",", ',', false).IsEmpty());
    EXPECT_TRUE(Split(",,,", ',', false).IsEmpty());
    EXPECT_TRUE(Split("", ',', false).IsEmpty());
}

TEST(StringSplit, JoinRestoresTextWithoutTrailingDelimiter)
{
    for (const char* text : { "a", ",a,,b", "x,y,z", ",,a" })
        EXPECT_EQ(Join(Split(text, ',', true), ","), text);
    EXPECT_EQ(Join(Split("a,b,", ',', true), ","), "a,b");
    EXPECT_EQ(Join(StringArray(), ", "), "");
}

// ---------------------------------------------------------------------------------------

TEST(StringArrayOwnership, CopiesAreDeepAndMovesHandOver)
{
    StringArray original = Split("a,b", ',', true);
    StringArray copy(original);
    copy[0] = "changed";
    EXPECT_EQ(original[0], "a");

    copy = original;
    EXPECT_EQ(entriesOf(copy), (Entries{ "a", "b" }));
    copy = copy;
    EXPECT_EQ(entriesOf(copy), (Entries{ "a", "b" }));

    StringArray moved(std::move(copy));
    EXPECT_TRUE(copy.IsEmpty());
    moved = Split("x", ',', true);
    EXPECT_EQ(entriesOf(moved), (Entries{ "x" }));
}

TEST(StringArrayOperations, RemoveAndIndexOf)
{
    StringArray array = Split("WAV,aiff,MP3", ',', true);
    EXPECT_EQ(IndexOf(array, "mp3", insensitive), 2);
    EXPECT_EQ(IndexOf(array, "mp3", sensitive), -1);
    EXPECT_EQ(IndexOf(array, "WA"), -1);

    EXPECT_FALSE(Remove(array, 3));
    EXPECT_FALSE(Remove(array, -1));
    EXPECT_TRUE(Remove(array, 1));
    EXPECT_EQ(Join(array, "|"), "WAV|MP3");
}

TEST(StringArrayOperations, RemoveEmptyTrimAllAndResize)
{
    StringArray array = Split(" a ;;  ; b;\t", ';', true);
    RemoveEmpty(array, false);
    EXPECT_EQ(entriesOf(array), (Entries{ " a ", "  ", " b", "\t" }));
    RemoveEmpty(array, true);
    TrimAll(array);
    EXPECT_EQ(entriesOf(array), (Entries{ "a", "b" }));

    Resize(array, 4);
    EXPECT_EQ(entriesOf(array), (Entries{ "a", "b", "", "" }));
    Resize(array, 1);
    EXPECT_EQ(entriesOf(array), (Entries{ "a" }));
    array.Add("z");
    EXPECT_EQ(Join(array, "+"), "a+z");
}

// ---------------------------------------------------------------------------------------

TEST(StringWildcard, StarAndQuestionMark)
{
    EXPECT_TRUE(MatchesWildcard("abc", "a?c"));
    EXPECT_FALSE(MatchesWildcard("ab", "a?c"));
    EXPECT_FALSE(MatchesWildcard("a", "a?"));
    EXPECT_FALSE(MatchesWildcard("x", "??"));
    EXPECT_TRUE(MatchesWildcard("x", "*?"));
    EXPECT_TRUE(MatchesWildcard("a", "a*"));
    EXPECT_FALSE(MatchesWildcard("a", "a**"));
    EXPECT_FALSE(MatchesWildcard("x", "x*?"));
    EXPECT_TRUE(MatchesWildcard("ab", "a**b"));
    EXPECT_TRUE(MatchesWildcard("xaxb", "*a*b"));
    EXPECT_FALSE(MatchesWildcard("xaxbc", "*a*b"));
    EXPECT_TRUE(MatchesWildcard("files_01.wav", "files_0?.wav"));
    EXPECT_FALSE(MatchesWildcard("files_01.wav", "files_0?"));
}

TEST(StringWildcard, EmptyArgumentsNeverMatch)
{
    EXPECT_FALSE(MatchesWildcard("", "*"));
    EXPECT_FALSE(MatchesWildcard("abc", ""));
    EXPECT_FALSE(MatchesWildcard("", ""));
}

TEST(StringWildcard, CaseFolding)
{
    EXPECT_TRUE(MatchesWildcard("ABC.WAV", "*.wav", insensitive));
    EXPECT_FALSE(MatchesWildcard("ABC.WAV", "*.wav", sensitive));
    EXPECT_TRUE(MatchesWildcard("Take.Wav", "take.???", insensitive));
    EXPECT_FALSE(MatchesWildcard("\xC3\x84.wav", "\xC3\xA4.wav", insensitive));
}

// The plain backtracking reading of the rule, exponential but obviously faithful.
bool naiveWildcard(const char* p, const char* t)
{
    char c = *p++;
    while (c != '*')
    {
        const char x = *t++;
        if (c == x && c == 0)
            return true;
        if (c != x && !(c == '?' && x != 0))
            return false;
        c = *p++;
    }
    if (*p == 0)
        return true;
    for (; *t != 0; ++t)
        if (naiveWildcard(p, t))
            return true;
    return false;
}

TEST(StringWildcard, AgreesWithPlainBacktrackingOnEveryShortInput)
{
    // Every pattern over {a, b, ?, *} up to 5 bytes against every text over {a, b} up to 6.
    const std::string patternBytes = "ab?*";
    std::vector<std::string> patterns { "" };
    std::vector<std::string> texts { "" };
    for (size_t length = 1, first = 0; length <= 5; ++length)
    {
        const size_t end = patterns.size();
        for (size_t i = first; i < end; ++i)
            for (char c : patternBytes)
                patterns.push_back(patterns[i] + c);
        first = end;
    }
    for (size_t length = 1, first = 0; length <= 6; ++length)
    {
        const size_t end = texts.size();
        for (size_t i = first; i < end; ++i)
            for (char c : std::string("ab"))
                texts.push_back(texts[i] + c);
        first = end;
    }

    for (const std::string& pattern : patterns)
        for (const std::string& text : texts)
        {
            const bool expected = !pattern.empty() && !text.empty() && naiveWildcard(pattern.c_str(), text.c_str());
            ASSERT_EQ(MatchesWildcard(String(text), String(pattern)), expected)
                << "\"" << text << "\" against \"" << pattern << "\"";
        }
}

TEST(StringWildcard, ManyStarsAgainstALongNameEndQuickly)
{
    // Plain backtracking would take on the order of 250^12 steps here.
    const String name(std::string(250, 'a'));
    EXPECT_FALSE(MatchesWildcard(name, "*a*a*a*a*a*a*a*a*a*a*a*a*b"));
    EXPECT_TRUE(MatchesWildcard(name + "b", "*a*a*a*a*a*a*a*a*a*a*a*a*b"));
}

// ---------------------------------------------------------------------------------------

TEST(StringFromInteger, Extremes)
{
    EXPECT_EQ(FromInteger(int32_t{ 0 }), "0");
    EXPECT_EQ(FromInteger(std::numeric_limits<int32_t>::min()), "-2147483648");
    EXPECT_EQ(FromInteger(std::numeric_limits<uint32_t>::max()), "4294967295");
    EXPECT_EQ(FromInteger(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
}

TEST(StringFromDouble, DefaultNotationGetsPointZeroUnlessLettersShow)
{
    EXPECT_EQ(FromDouble(8.0), "8.0");
    EXPECT_EQ(FromDouble(8.0, 0, true), "8");
    EXPECT_EQ(FromDouble(0.5), "0.5");
    EXPECT_EQ(FromDouble(-0.0), "-0.0");
    EXPECT_EQ(FromDouble(100000.0), "100000.0");
    EXPECT_EQ(FromDouble(123456789.0), "1.23457e+08");
    EXPECT_EQ(FromDouble(1e25), "1e+25");
    EXPECT_EQ(FromDouble(1e-7), "1e-07");
    EXPECT_EQ(FromDouble(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(FromDouble(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(FromDouble(std::numeric_limits<double>::quiet_NaN(), 2), "nan");
    EXPECT_EQ(FromDouble(6.000000001, 0, false), "6.0");
    EXPECT_EQ(FromDouble(8.0, -3), "8.0");
}

TEST(StringFromDouble, FastPathRoundsHalfAwayFromZero)
{
    // The stream would print "1.2" for these: the fast path rounds the scaled value up.
    EXPECT_EQ(FromDouble(1.25, 1), "1.3");
    EXPECT_EQ(FromDouble(-1.25, 1), "-1.3");
    EXPECT_EQ(FromDouble(0.125, 2), "0.13");
    EXPECT_EQ(FromDouble(0.05, 2), "0.05");
    EXPECT_EQ(FromDouble(0.004, 2), "0.00");
    EXPECT_EQ(FromDouble(-0.004, 2), "-0.00");
    EXPECT_EQ(FromDouble(3.14159265, 6), "3.141593");
    EXPECT_EQ(FromDouble(123.0, 3), "123.000");
    EXPECT_EQ(FromDouble(99.96, 1), "100.0");
    EXPECT_EQ(FromDouble(1e13, 6), "10000000000000.000000");
}

TEST(StringFromDouble, LargeValuesPrintTheirOwnDigits)
{
    // Scaled past 64 bits, or outside the fast range: fixed notation from the stream.
    EXPECT_EQ(FromDouble(1e19, 6), "10000000000000000000.000000");
    EXPECT_EQ(FromDouble(12345678901234567890.0, 2), "12345678901234567168.00");
    EXPECT_EQ(FromDouble(-12345678901234567890.0, 1), "-12345678901234567168.0");
    EXPECT_EQ(FromDouble(1e20, 1), "100000000000000000000.0");
    EXPECT_EQ(FromDouble(0.5, 7), "0.5000000");
}

TEST(StringFromDouble, StreamTextIsCutAtFortyEightBytes)
{
    char full[400];
    std::snprintf(full, sizeof(full), "%.1f", 1e60);
    const std::string firstBytes = std::string(full).substr(0, 48);

    EXPECT_EQ(FromDouble(1e60, 1, true), firstBytes);
    // The cut removed the point, so the suffix comes back.
    EXPECT_EQ(FromDouble(1e60, 1), firstBytes + ".0");
}

TEST(StringFromDouble, StackArrayStreamCountsWhatFits)
{
    char array[4];
    details::StackArrayStream buffer(array, sizeof(array));
    std::ostream stream(&buffer);
    stream << "ab";
    EXPECT_EQ(buffer.GetLength(), 2);
    stream << "cdef";
    EXPECT_EQ(buffer.GetLength(), 4);
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(std::string(array, 4), "abcd");
}

// ---------------------------------------------------------------------------------------

TEST(StringFormatDuration, BelowOneSecond)
{
    EXPECT_EQ(FormatDuration(0.0), "0.0 ms");
    EXPECT_EQ(FormatDuration(12.04), "12.0 ms");
    EXPECT_EQ(FormatDuration(99.96), "100.0 ms");
    EXPECT_EQ(FormatDuration(100.4), "100 ms");
    EXPECT_EQ(FormatDuration(999.9), "999 ms");
    EXPECT_EQ(FormatDuration(-5.0), "-5.0 ms");
}

TEST(StringFormatDuration, UpToThirtySeconds)
{
    EXPECT_EQ(FormatDuration(1000.0), "1.00 sec");
    EXPECT_EQ(FormatDuration(1194.0), "1.19 sec");
    EXPECT_EQ(FormatDuration(30000.0), "30.00 sec");
    EXPECT_EQ(FormatDuration(30000.1), "30 sec");
}

TEST(StringFormatDuration, HoursMinutesSeconds)
{
    EXPECT_EQ(FormatDuration(31000.0), "31 sec");
    EXPECT_EQ(FormatDuration(90000.0), "1 min 30 sec");
    EXPECT_EQ(FormatDuration(120000.0), "2 min");
    EXPECT_EQ(FormatDuration(3600000.0), "1 h");
    EXPECT_EQ(FormatDuration(3605000.0), "1 h 0 min 5 sec");
    EXPECT_EQ(FormatDuration(3660000.0), "1 h 1 min");
    EXPECT_EQ(FormatDuration(172800000.0), "48 h");
}

TEST(StringFormatDuration, RoundedSecondsCarryIntoMinutesAndHours)
{
    EXPECT_EQ(FormatDuration(59700.0), "1 min");
    EXPECT_EQ(FormatDuration(59999.6), "1 min");
    EXPECT_EQ(FormatDuration(3599600.0), "1 h");
    EXPECT_EQ(FormatDuration(7199500.0), "2 h");
    EXPECT_EQ(FormatDuration(3659600.0), "1 h 1 min");
}

TEST(StringFormatDuration, NonFiniteEstimates)
{
    EXPECT_EQ(FormatDuration(std::numeric_limits<double>::infinity()), "inf ms");
    EXPECT_EQ(FormatDuration(std::numeric_limits<double>::quiet_NaN()), "nan ms");
}

} // namespace
} // namespace kvo
