// String and StringArray: the rules at the edges that paths, options and name tables
// depend on. Plain accessors and searches are left to the tests of their users.

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "core/KvoString.h"
#include "core/KvoStringArray.h"

namespace kvo
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

    StringArray array = Split(" a ;;  ; b;\t", ';', true);
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

} // namespace
} // namespace kvo
