// OSC addresses and patterns, a library-only module: one case per rule of hashing, the token
// pool, tokenising and the refusals.

#include "KvoTestUtilities.h"
#include "osc/KvoOscAddress.h"

namespace kvo::testing
{
namespace
{

/** The message of the Exception that building a Path from text throws, or "" when it passes. */
template <typename Path>
std::string FailureOf(const std::string& text)
{
    const ScopedConsoleTarget quiet; // the refusals' reports stay off the console
    try
    {
        Path path { String(text) };
        return {};
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetSourceFile().GetStdString(), "osc/KvoOscAddress.cpp") << text;
        return e.GetMessage().GetStdString();
    }
}

std::string CharacterMessage(const std::string& character, const std::string& address)
{
    return "OSC format error: Character " + InQuotes(character) + " not allowed in address pattern " + InQuotes(address);
}

std::string BlankMessage(const std::string& address)
{
    return InQuotes(address) + " is not a valid OSC address pattern, as it contains the \" \" character."
           " Maybe you wanted to send an address pattern followed by arguments, but things are incorrectly typed as a string ?";
}

std::string RuleMessage(const std::string& rule, const std::string& address)
{
    return "OSC format error: " + rule + " in address " + InQuotes(address);
}

TEST(OscHashing, Fnv1a64UpToTheFirstZeroByteAndOnePoolEntryPerToken)
{
    EXPECT_EQ(HashedString().GetHash(), 0xcbf29ce484222325ull);
    EXPECT_EQ(HashedString(String("foobar\0baz", 10)).GetHash(), 0x85944171f73967e8ull);
    EXPECT_NE(HashedString::Hash("\xe9"), HashedString::Hash("\x69")); // bytes above 127 enter unsigned
    HashedString text(String("abc"));
    text.Set(String("abc\0tail", 8)); // the same hash: the stored text stays
    EXPECT_EQ(text.GetText().GetLength(), 3);

    HashedStringPool& pool = HashedStringPool::GetInstance();
    const uint64_t before = pool.GetSize();
    const OscAddress first("/poolProbeShared/poolProbeOne");
    const OscAddressPattern second("/poolProbeShared/poolProbeTwo");
    EXPECT_EQ(pool.GetSize(), before + 3);
    EXPECT_EQ(first.GetTokens()[0], second.GetTokens()[0]);
    pool.Insert(HashedString(String("poolProbeTwin\0one", 17)));
    pool.Insert(HashedString(String("poolProbeTwin\0two", 17)));
    ASSERT_NE(pool.Find(HashedString::Hash("poolProbeTwin")), nullptr);
    EXPECT_EQ(pool.Find(HashedString::Hash("poolProbeTwin"))->GetText(), String("poolProbeTwin\0one", 17));
    EXPECT_EQ(pool.Find(HashedString::Hash("poolProbeNeverInserted")), nullptr);
}

TEST(OscTokenising, TokensAndStoredTextOfBothTypes)
{
    const std::tuple<std::string, std::vector<std::string>, std::string> cases[] = {
        { "", {}, "" },         { "/", {}, "" },         { "/a/b/", { "a", "b" }, "/a/b" }, { "/a//b", { "a", "b" }, "/a//b" }, { "//", {}, "/" },
        { "///x///", { "x" }, "///x//" }, { "abc/d", { "bc", "d" }, "abc/d" }, // the first byte is skipped, slash or not
    };
    for (const auto& [text, tokens, stored] : cases)
    {
        const OscAddress address { String(text) };
        const OscAddressPattern pattern { String(text) };
        for (const auto& [path, kind] : { std::pair<const OscPath*, const char*> { &address, "address" }, { &pattern, "pattern" } })
        {
            std::vector<std::string> found;
            for (uint64_t i = 0; i < path->GetNumTokens(); ++i)
                found.push_back(path->GetToken(i).GetStdString());
            EXPECT_EQ(found, tokens) << kind << " " << text;
            EXPECT_EQ(path->GetText().GetStdString(), stored) << kind << " " << text;
        }
        EXPECT_EQ(address.GetHash(), HashedString::Hash(stored.c_str())) << text;
    }
    EXPECT_EQ(OscAddress("/a/b").GetTokens()[1], HashedString::Hash("b"));
}

TEST(OscValidation, EveryRefusalInItsOrder)
{
    const std::tuple<bool, std::string, std::string> cases[] = {
        { true, "/a b/", BlankMessage("/a b") }, // quoted as tokenised: a pattern has lost its trailing slash
        { false, "/a b/", BlankMessage("/a b/") },
        { true, "/a b/c", CharacterMessage(" ", "/a b/c") },
        { false, "/ab*?", CharacterMessage("*", "/ab*?") }, // the first forbidden character is reported
        { true, "/ab*?", "" },                               // what a pattern takes, an address refuses
        // Outside printable ASCII the low byte of the code point is reported, or a stray byte itself.
        { true, "/caf\xc3\xa9", CharacterMessage("\xe9", "/caf\xc3\xa9") },
        { false, "/\xe0\xa4\x85", CharacterMessage("\x05", "/\xe0\xa4\x85") },
        { true, "/a\xc0\xa0", CharacterMessage("\xc0", "/a\xc0\xa0") }, // an overlong blank is no blank
        { false, "/a\xf0\x9f\x98\x80", CharacterMessage(std::string(1, '\0'), "/a\xf0\x9f\x98\x80") },
        { false, "/a\xc3", CharacterMessage("\xc3", "/a\xc3") },
        { true, "/a\x7f", CharacterMessage("\x7f", "/a\x7f") },
        // Bracket rules of patterns: only presence is checked, not order; earlier rules win.
        { true, "/]a[/a{b,c}/[0-9]/a?*/[!x]", "" },
        { true, "/a[b", RuleMessage("missing ']'", "/a[b") },
        { true, "/a]b", RuleMessage("missing '['", "/a]b") },
        { true, "/a{b", RuleMessage("missing '}'", "/a{b") },
        { true, "/a}b", RuleMessage("missing '}'", "/a}b") },
        { true, "/a,b", RuleMessage("anormal ','", "/a,b") },
        { true, "/a[0-9-z]", RuleMessage("too many '-'", "/a[0-9-z]") },
        { true, "/a[b,c]", RuleMessage("use curly brackets for ',' separator", "/a[b,c]") },
        { true, "/a{b-c}", RuleMessage("use square brackets for '-' separator", "/a{b-c}") },
        { true, "/a[{", RuleMessage("missing ']'", "/a[{") },
        { true, "/[a-b-c,d]", RuleMessage("too many '-'", "/[a-b-c,d]") },
        { true, "/{a,b}[c-d]", RuleMessage("use curly brackets for ',' separator", "/{a,b}[c-d]") },
        // Each token passes its character test and then its bracket test before the next.
        { true, "/a[/b#", RuleMessage("missing ']'", "/a[/b#") },
        { true, "/a#/b[", CharacterMessage("#", "/a#/b[") },
        { true, "/a[ b", BlankMessage("/a[ b") },
    };
    for (const auto& [pattern, text, message] : cases)
        EXPECT_EQ(pattern ? FailureOf<OscAddressPattern>(text) : FailureOf<OscAddress>(text), message) << text;

}

} // namespace
} // namespace kvo::testing
