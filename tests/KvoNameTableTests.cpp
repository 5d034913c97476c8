// NamedValueTable, and the name tables of the library's enumerations, which are library-only:
// one spelling each, and one case per rule of the lookup (a derived spelling, quotes and case,
// a duplicate, a miss).

#include "KvoTestUtilities.h"
#include "core/KvoNamedValueTable.h"
#include "geometry/KvoColourNames.h"
#include "geometry/KvoCoordinates.h"
#include "geometry/KvoDelayModes.h"
#include "geometry/KvoDimension.h"
#include "geometry/KvoEulerAngles.h"
#include "geometry/KvoSphericalHarmonic.h"
#include "geometry/KvoVbapTriplets.h"
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

} // namespace
} // namespace kvo::testing
