// NamedValueTable: derived spellings, forgiving look-ups and which entry wins.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/KvoNamedValueTable.h"

namespace kvo
{
namespace
{

using Table = NamedValueTable<int>;

std::vector<std::string> NamesOf(const Table& table)
{
    std::vector<std::string> names;
    for (uint64_t i = 0; i < table.GetNumNames(); ++i)
        names.push_back(table.GetName(i).GetStdString());
    return names;
}

std::vector<int> ValuesOf(const Table& table)
{
    std::vector<int> values;
    for (uint64_t i = 0; i < table.GetNumNames(); ++i)
        values.push_back(table.GetValue(i));
    return values;
}

/** The value stored for name, or -1 when it is not found. */
int Find(const Table& table, const String& name)
{
    int value = -1;
    table.Lookup(name, value);
    return value;
}

// ---------------------------------------------------------------------------------------
// Derived spellings

TEST(NamedValueTableVariants, BlanksGiveJoinedAndDashedForms)
{
    Table table(insensitive, true, true);
    table.Add("spherical delaunay", 1);
    EXPECT_EQ(NamesOf(table), (std::vector<std::string> {"spherical delaunay", "sphericaldelaunay",
                                                         "spherical-delaunay"}));
    EXPECT_EQ(ValuesOf(table), (std::vector<int> {1, 1, 1}));
}

TEST(NamedValueTableVariants, FormsComeFromTheTrimmedNameWithDoubleBlanksFoldedOnce)
{
    Table table(sensitive, true, true);
    table.Add("  thiran  1st   order ", 3);
    // One pass over "  ": a run of three blanks keeps two.
    EXPECT_EQ(NamesOf(table), (std::vector<std::string> {"  thiran  1st   order ", "thiran1storder",
                                                         "thiran-1st--order"}));
}

TEST(NamedValueTableVariants, OnlyMissingFormsAreAdded)
{
    Table table(sensitive, true, true);
    table.Add("lagrange3", 2);
    table.Add("lagrange 3", 2);
    EXPECT_EQ(NamesOf(table), (std::vector<std::string> {"lagrange3", "lagrange 3", "lagrange-3"}));

    Table tabbed(sensitive, true, true);
    tabbed.Add("a\tb", 1); // white space, but no blank to remove or turn into a dash
    EXPECT_EQ(NamesOf(tabbed), (std::vector<std::string> {"a\tb"}));
}

TEST(NamedValueTableVariants, NoFormsWithoutBlanksOrWhenSwitchedOff)
{
    Table table(sensitive, false, true);
    table.Add("max normalization", 5);
    table.Add("N3D", 2);
    EXPECT_EQ(NamesOf(table), (std::vector<std::string> {"max normalization", "N3D"}));
    EXPECT_EQ(Find(table, "maxnormalization"), -1);
}

// ---------------------------------------------------------------------------------------
// Look-up

TEST(NamedValueTableLookup, CaseModeDecides)
{
    Table folding(insensitive, true, true);
    folding.Add("Furse Malham", 4);
    EXPECT_EQ(Find(folding, "FURSE MALHAM"), 4);
    EXPECT_EQ(Find(folding, "fursemalham"), 4);
    EXPECT_EQ(Find(folding, "furse-MALHAM"), 4);

    Table exact(sensitive, true, true);
    exact.Add("Furse Malham", 4);
    EXPECT_EQ(Find(exact, "Furse-Malham"), 4);
    EXPECT_EQ(Find(exact, "furse malham"), -1);
}

TEST(NamedValueTableLookup, LengthsMustAgree)
{
    Table table(insensitive, true, true);
    table.Add("legacy", 0);
    EXPECT_EQ(Find(table, "legacy "), -1);
    EXPECT_EQ(Find(table, "legac"), -1);
    EXPECT_EQ(Find(table, ""), -1);
}

TEST(NamedValueTableLookup, QuotedInputIsRetriedWithoutQuotes)
{
    Table table(insensitive, true, true);
    table.Add("legacy", 0);
    table.Add("spherical delaunay", 1);
    table.Add("\"quoted\"", 7);
    EXPECT_EQ(Find(table, "\"legacy\""), 0);
    EXPECT_EQ(Find(table, "'LEGACY'"), 0);
    EXPECT_EQ(Find(table, "\"spherical-delaunay\""), 1);
    EXPECT_EQ(Find(table, "\"legacy'"), -1);
    EXPECT_EQ(Find(table, "\"quoted\""), 7);
    EXPECT_EQ(Find(table, "quoted"), -1); // quotes are only ever taken away from the input

    Table strict(insensitive, true, false);
    strict.Add("legacy", 0);
    EXPECT_EQ(Find(strict, "\"legacy\""), -1);
}

TEST(NamedValueTableLookup, FailedLookupLeavesTheValue)
{
    Table table(sensitive, true, true);
    table.Add("x", 1);
    int value = 42;
    EXPECT_FALSE(table.Lookup("y", value));
    EXPECT_EQ(value, 42);
    EXPECT_FALSE(table.Contains("y"));
    EXPECT_EQ(table.IndexOf("y"), -1);
}

// ---------------------------------------------------------------------------------------
// Duplicates

TEST(NamedValueTableDuplicates, FirstEntryOfANameWins)
{
    Table table(insensitive, true, true);
    table.Add("linear", 1);
    table.Add("LINEAR", 9);
    EXPECT_EQ(Find(table, "Linear"), 1);
    EXPECT_EQ(table.IndexOf("linear"), 0);
}

TEST(NamedValueTableDuplicates, DerivedFormsDoNotOverrideEarlierNames)
{
    Table table(sensitive, true, true);
    table.Add("ab", 7);
    table.Add("a b", 8);
    EXPECT_EQ(Find(table, "ab"), 7);
    EXPECT_EQ(Find(table, "a b"), 8);
    EXPECT_EQ(Find(table, "a-b"), 8);
    EXPECT_EQ(NamesOf(table), (std::vector<std::string> {"ab", "a b", "a-b"}));
}

TEST(NamedValueTableDuplicates, DistinctValuesInOrderOfFirstUse)
{
    Table table(sensitive, true, true);
    table.Add("two", 2);
    table.Add("one", 1);
    table.Add("deux", 2);
    table.Add("zwei drei", 2);
    const Vector<int>& distinct = table.GetDistinctValues();
    ASSERT_EQ(distinct.GetSize(), 2u);
    EXPECT_EQ(distinct[0], 2);
    EXPECT_EQ(distinct[1], 1);

    table.Clear();
    EXPECT_EQ(table.GetNumNames(), 0u);
    EXPECT_EQ(table.GetDistinctValues().GetSize(), 0u);
    EXPECT_EQ(Find(table, "two"), -1);
}

} // namespace
} // namespace kvo
