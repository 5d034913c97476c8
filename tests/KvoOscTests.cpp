// OSC addresses and patterns: hashing, the token pool, tokenising, and the exact text
// of every refusal.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvoTestUtilities.h"
#include "osc/KvoOscAddress.h"

namespace kvo
{
namespace
{

using testing::InQuotes;

/** The message of the Exception that building a Path from text throws, or "" when it passes. */
template <typename Path>
std::string failureOf(const std::string& text)
{
    try
    {
        Path path{String(text)};
        return {};
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetSourceFile().GetStdString(), "osc/KvoOscAddress.cpp") << text;
        return e.GetMessage().GetStdString();
    }
}

template <typename Path>
std::vector<std::string> tokensOf(const Path& path)
{
    std::vector<std::string> tokens;
    for (uint64_t i = 0; i < path.GetNumTokens(); ++i)
        tokens.push_back(path.GetToken(i).GetStdString());
    return tokens;
}

std::string characterMessage(const std::string& character, const std::string& address)
{
    return "OSC format error: Character " + InQuotes(character) + " not allowed in address pattern " + InQuotes(address);
}

std::string blankMessage(const std::string& address)
{
    return InQuotes(address) + " is not a valid OSC address pattern, as it contains the \" \" character."
           " Maybe you wanted to send an address pattern followed by arguments, but things are incorrectly"
           " typed as a string ?";
}

TEST(HashedString, IsFnv1a64UpToTheFirstZeroByte)
{
    EXPECT_EQ(HashedString::Hash(""), 0xcbf29ce484222325ull);
    EXPECT_EQ(HashedString::Hash("a"), 0xaf63dc4c8601ec8cull);
    EXPECT_EQ(HashedString::Hash("foobar"), 0x85944171f73967e8ull);
    EXPECT_EQ(HashedString().GetHash(), 0xcbf29ce484222325ull);
    EXPECT_EQ(HashedString(String("foobar\0baz", 10)).GetHash(), 0x85944171f73967e8ull);
    // Bytes above 127 enter the hash unsigned.
    EXPECT_NE(HashedString::Hash("\xe9"), HashedString::Hash("\x69"));
    HashedString text(String("abc"));
    text.Set(String("abc\0tail", 8)); // the same hash: the stored text stays
    EXPECT_EQ(text.GetText().GetLength(), 3);
}

TEST(HashedStringPool, OneEntryPerTokenAndTheFirstTextWins)
{
    HashedStringPool& pool = HashedStringPool::GetInstance();
    const uint64_t before = pool.GetSize();
    const OscAddress first("/poolProbeShared/poolProbeOne");
    const OscAddressPattern second("/poolProbeShared/poolProbeTwo");
    EXPECT_EQ(pool.GetSize(), before + 3);
    EXPECT_EQ(first.GetTokens()[0], second.GetTokens()[0]);

    // Texts that differ after a zero byte hash alike: the pool keeps the first.
    pool.Insert(HashedString(String("poolProbeTwin\0one", 17)));
    pool.Insert(HashedString(String("poolProbeTwin\0two", 17)));
    const HashedString* twin = pool.Find(HashedString::Hash("poolProbeTwin"));
    ASSERT_NE(twin, nullptr);
    EXPECT_EQ(twin->GetText(), String("poolProbeTwin\0one", 17));
    EXPECT_EQ(pool.Find(HashedString::Hash("poolProbeNeverInserted")), nullptr);
}

struct TokenCase
{
    std::string text;
    std::vector<std::string> tokens;
    std::string storedText;
};

TEST(OscTokenising, TokensAndStoredTextOfBothTypes)
{
    const std::vector<TokenCase> cases = {
        {"/", {}, ""},
        {"", {}, ""},
        {"/a/b/", {"a", "b"}, "/a/b"},
        {"/a//b", {"a", "b"}, "/a//b"},
        {"//", {}, "/"},
        {"///x///", {"x"}, "///x//"},
        {"abc/d", {"bc", "d"}, "abc/d"}, // the first byte is skipped, slash or not
        {"x", {}, "x"},
        {"/synth/3/freq", {"synth", "3", "freq"}, "/synth/3/freq"},
    };
    for (const TokenCase& c : cases)
    {
        const OscAddress address{String(c.text)};
        EXPECT_EQ(tokensOf(address), c.tokens) << c.text;
        EXPECT_EQ(address.GetText().GetStdString(), c.storedText) << c.text;
        EXPECT_EQ(address.GetHash(), HashedString::Hash(c.storedText.c_str())) << c.text;

        const OscAddressPattern pattern{String(c.text)};
        EXPECT_EQ(tokensOf(pattern), c.tokens) << c.text;
        EXPECT_EQ(pattern.GetText().GetStdString(), c.storedText) << c.text;
    }
    EXPECT_TRUE(OscAddressTokeniser::Tokenise<OscAddress>("").IsEmpty());
    EXPECT_EQ(OscAddress("/a/b").GetTokens()[1], HashedString::Hash("b"));
}

struct FailureCase
{
    bool pattern;
    std::string text;
    std::string message; // "" when the text is accepted
};

TEST(OscValidation, CharactersEachTypeRefuses)
{
    const std::vector<FailureCase> cases = {
        {false, "/a*", characterMessage("*", "/a*")}, // a pattern takes it, as the loop below shows
        {false, "/a b", blankMessage("/a b")},
        {true, "/a b", blankMessage("/a b")},
        // The address is quoted as tokenised: a pattern has lost its trailing slash.
        {false, "/a b/", blankMessage("/a b/")},
        {true, "/a b/", blankMessage("/a b")},
        {false, "/a b/c", characterMessage(" ", "/a b/c")},
        {true, "/a b/c", characterMessage(" ", "/a b/c")},
        // The first forbidden character of the first bad token is the one reported.
        {false, "/a?/b c", characterMessage("?", "/a?/b c")},
        {false, "/ab*?", characterMessage("*", "/ab*?")},
        {false, "/a[0-9]", characterMessage("[", "/a[0-9]")},
    };
    for (const FailureCase& c : cases)
        EXPECT_EQ(c.pattern ? failureOf<OscAddressPattern>(c.text) : failureOf<OscAddress>(c.text), c.message)
            << (c.pattern ? "pattern " : "address ") << c.text;
}

TEST(OscValidation, CodePointsOutsidePrintableAsciiReportTheirLowByte)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/caf\xc3\xa9", "\xe9"},             // U+00E9
        {"/\xe2\x82\xac", "\xac"},            // U+20AC
        {"/a\xf0\x9f\x98\x80", std::string(1, '\0')}, // U+1F600: its low byte is zero
        {"/a\xc3", "\xc3"},                   // cut short: the lead byte stands for itself
        {"/a\xc0\xa0", "\xc0"},               // an overlong blank is no blank
        {"/a\x80", "\x80"},                   // a stray continuation byte
        {"/a\x01", "\x01"},
        {"/a\tb", "\t"},
        {"/a\x7f", "\x7f"},
    };
    for (const auto& [text, character] : cases)
    {
        EXPECT_EQ(failureOf<OscAddress>(text), characterMessage(character, text)) << text;
        EXPECT_EQ(failureOf<OscAddressPattern>(text), characterMessage(character, text)) << text;
    }
}

TEST(OscValidation, PrintableAsciiAcceptedByEachType)
{
    const std::string addressForbids = " #*,?[]{}";
    for (char c = 33; c <= 126; ++c)
    {
        if (c == '/')
            continue;
        const std::string text = std::string("/a") + c + "b";
        const bool refused = addressForbids.find(c) != std::string::npos;
        EXPECT_EQ(failureOf<OscAddress>(text), refused ? characterMessage(std::string(1, c), text) : "") << text;
        // A pattern takes every one but "#"; bracket and comma rules are tested apart.
        if (std::string("[]{},").find(c) == std::string::npos)
        {
            EXPECT_EQ(failureOf<OscAddressPattern>(text), c == '#' ? characterMessage("#", text) : "") << text;
        }
    }
}

TEST(OscValidation, PatternBracketRulesInTheirOrder)
{
    const auto message = [](const std::string& rule, const std::string& address)
    { return "OSC format error: " + rule + " in address " + InQuotes(address); };

    const std::vector<FailureCase> cases = {
        {true, "/a[0-9]", ""},
        {true, "/a{b,c}", ""},
        {true, "/]a[", ""}, // only presence is checked, not order
        {true, "/a-b", ""},
        {true, "/a?*/[!x]", ""},
        {true, "/a[b", message("missing ']'", "/a[b")},
        {true, "/a]b", message("missing '['", "/a]b")},
        {true, "/a{b", message("missing '}'", "/a{b")},
        {true, "/a}b", message("missing '}'", "/a}b")},
        {true, "/a,b", message("anormal ','", "/a,b")},
        {true, "/a[0-9-z]", message("too many '-'", "/a[0-9-z]")},
        {true, "/a[b,c]", message("use curly brackets for ',' separator", "/a[b,c]")},
        {true, "/a{b-c}", message("use square brackets for '-' separator", "/a{b-c}")},
        // Earlier rules win: a missing "]" before a missing "}", too many dashes before a
        // comma in square brackets, and that before a dash in curly ones.
        {true, "/a[{", message("missing ']'", "/a[{")},
        {true, "/a{}]", message("missing '['", "/a{}]")},
        {true, "/[a-b-c,d]", message("too many '-'", "/[a-b-c,d]")},
        {true, "/{a,b}[c-d]", message("use curly brackets for ',' separator", "/{a,b}[c-d]")},
        // Each token passes its character test and then its bracket test before the next.
        {true, "/a[/b#", message("missing ']'", "/a[/b#")},
        {true, "/a#/b[", characterMessage("#", "/a#/b[")},
        {true, "/a[ b", blankMessage("/a[ b")},
        {true, "/ok/a[b/", message("missing ']'", "/ok/a[b")},
    };
    for (const FailureCase& c : cases)
        EXPECT_EQ(failureOf<OscAddressPattern>(c.text), c.message) << c.text;
}

} // namespace
} // namespace kvo
