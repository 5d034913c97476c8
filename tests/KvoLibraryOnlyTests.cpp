// The library-only modules, one case per rule: NamedValueTable and the name tables of the
// library's enumerations (one spelling each; a derived spelling, quotes and case, a duplicate,
// a miss), and OSC addresses and patterns (hashing, the token pool, tokenising, the refusals).

#include "KvoTestUtilities.h"
#include "core/KvoNamedValueTable.h"
#include "geometry/KvoColourNames.h"
#include "geometry/KvoCoordinates.h"
#include "geometry/KvoDelayModes.h"
#include "geometry/KvoDimension.h"
#include "geometry/KvoEulerAngles.h"
#include "geometry/KvoSphericalHarmonic.h"
#include "geometry/KvoVbapTriplets.h"
#include "osc/KvoOscAddress.h"
#include "shell/KvoVerbosity.h"

namespace kvo::testing
{
namespace
{

using Table = NamedValueTable<int>;

template <typename Value>
std::vector<std::string> NamesOf(const NamedValueTable<Value>& table)
{
    std::vector<std::string> names;
    for (uint64_t i = 0; i < table.GetNumNames(); ++i)
        names.push_back(table.GetName(i).GetStdString() + "=" + std::to_string(table.GetValue(i)));
    return names;
}

/** The value stored for name, or -1 when it is not found. */
int Find(const Table& table, const String& name)
{
    int value = -1;
    table.Lookup(name, value);
    return value;
}

TEST(NamedValueTable, DerivedFormsComeFromTheTrimmedNameAndNeverOverrideEarlierNames)
{
    Table table(sensitive, true, true);
    table.Add("  thiran  1st   order ", 3); // one pass over "  ": a run of three blanks keeps two
    table.Add("ab", 7);
    table.Add("a b", 8);
    table.Add("a\tb", 1); // white space, but no blank to remove or turn into a dash
    EXPECT_EQ(NamesOf(table), (std::vector<std::string>{"  thiran  1st   order =3", "thiran1storder=3",
                                                        "thiran-1st--order=3", "ab=7", "a b=8", "a-b=8", "a\tb=1"}));

    // Distinct values come in order of first use.
    const Vector<int>& distinct = table.GetDistinctValues();
    EXPECT_EQ(std::vector<int>(distinct.begin(), distinct.end()), (std::vector<int> { 3, 7, 8, 1 }));
    table.Clear();
    EXPECT_EQ(Find(table, "ab"), -1);
    EXPECT_EQ(table.GetDistinctValues().GetSize(), 0u);

    Table plain(sensitive, false, true);
    plain.Add("max normalization", 5);
    EXPECT_EQ(NamesOf(plain), (std::vector<std::string>{"max normalization=5"}));
}

TEST(NamedValueTable, LookupsFoldCaseOnRequestAndRetryWithoutQuotes)
{
    Table table(insensitive, true, true);
    table.Add("legacy", 0);
    table.Add("Furse Malham", 4);
    table.Add("\"quoted\"", 7);
    table.Add("LEGACY", 9); // a repeated name keeps its first entry
    // Quotes are only ever taken away from the input, and only when they enclose it all.
    for (const auto& [name, value] : { std::pair { "furse-MALHAM", 4 }, { "'LEGACY'", 0 }, { "\"fursemalham\"", 4 },
                                       { "\"legacy'", -1 }, { "legacy ", -1 }, { "\"quoted\"", 7 },
                                       { "quoted", -1 } })
        EXPECT_EQ(Find(table, name), value) << name;

    Table exact(sensitive, true, false);
    exact.Add("legacy", 0);
    EXPECT_EQ(Find(exact, "\"legacy\""), -1);
    EXPECT_EQ(Find(exact, "Legacy"), -1);
    int value = 42;
    EXPECT_FALSE(exact.Lookup("y", value));
    EXPECT_EQ(value, 42);
}

TEST(NameTables, OneSpellingOfEachTableAndEachLookupRule)
{
    const ScopedConsoleTarget quiet; // the refusals' reports stay off the console
    const auto triangulation = [](const String& name) { return FindValue(VbapTriplets::GetTriangulationModeNames(), name); };
    const std::tuple<const char*, std::function<int(const String&)>, const char*, int> cases[] = {
        { "coordinates", Coordinates::FindFormat, "sofaspherical", 26 },
        { "coordinates", Coordinates::FindFormat, "navigation", 7 },
        { "euler", EulerAngles::FindMode, "z-y-x", 11 },
        { "triangulation", triangulation, "spherical delaunay", 1 },
        { "dimension", FindDimension, "2-D", 0 },
        { "delay", DelayInterpolationSettings::FindMode, "thiran 3rd order", 10 },
        { "varying delay", VaryingDelay::FindMode, "XDL", 1 },
        { "sorting", SphericalHarmonic::FindSorting, "WXYZ (classic)", 2 },
        { "norm", SphericalHarmonic::FindNorm, "Earl G. Williams", 6 },
        { "verbosity", Verbosity::FindLevel, "default", 2 },
        // A spelling with blanks brings its forms without blanks and with dashes; case and whole quotes don't count.
        { "derived", DelayInterpolationSettings::FindMode, "THIRAN1STORDER", 3 },
        { "derived", DelayInterpolationSettings::FindMode, "'allpass-2nd-order'", 9 },
        { "quoted", SphericalHarmonic::FindNorm, "\"max normalization\"", 5 },
        // Value 1 of Euler has no name.
        { "miss", DelayInterpolationSettings::FindMode, "", -1 },
        { "miss", EulerAngles::FindMode, "XZX", -1 },
    };
    for (const auto& [table, find, name, value] : cases)
        EXPECT_EQ(find(name), value) << table << " \"" << name << "\"";
    EXPECT_EQ(ColourNames::FindColour("navy-blue"), 0x000080);
    EXPECT_EQ(ColourNames::FindColour("bleu"), -1);

    EXPECT_EQ(VbapTriplets::GetTriangulationMode("\"spherical-delaunay\""), VbapTriplets::delaunay);
    // Unknown names are quoted in the message, but not twice.
    for (const std::string name : { "foo", "\"foo\"" })
        EXPECT_EQ(MessageOf([&] { VbapTriplets::GetTriangulationMode(name); }), "invalid triangulation mode : \"foo\"");
    const auto& euler = EulerAngles::GetModeNames();
    for (uint64_t i = 0; i < euler.GetNumNames(); ++i)
        EXPECT_NE(euler.GetValue(i), EulerAngles::eulerXZX) << euler.GetName(i).GetStdString();
}

TEST(NameTables, ARepeatedSpellingIsStoredOnceWithItsFirstEnumerator)
{
    enum Probe : int { first = 0, second = 1 };
    const NamedValueTable<Probe> table = BuildNameTable<Probe>({
        { first, { " wide  open ", "one" } },
        { second, { "ONE", "wide-open", "wide open", "two" } },
    });
    // " wide  open " brings "wideopen" and "wide-open" from its trimmed, folded copy;
    // "ONE" and "wide-open" are then known and skipped, while "wide open" is new.
    EXPECT_EQ(NamesOf(table), (std::vector<std::string> { " wide  open =0", "wideopen=0", "wide-open=0", "one=0",
                                                          "wide open=1", "two=1" }));
    EXPECT_EQ(FindValue(table, "Wide-Open"), first);
}

// ---------------------------------------------------------------------------------------
// OSC

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
