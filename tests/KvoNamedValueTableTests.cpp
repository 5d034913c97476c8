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
    EXPECT_EQ(Find(table, "furse-MALHAM"), 4);
    EXPECT_EQ(Find(table, "'LEGACY'"), 0);
    EXPECT_EQ(Find(table, "\"fursemalham\""), 4);
    EXPECT_EQ(Find(table, "\"legacy'"), -1);
    EXPECT_EQ(Find(table, "legacy "), -1);
    EXPECT_EQ(Find(table, "\"quoted\""), 7);
    EXPECT_EQ(Find(table, "quoted"), -1); // quotes are only ever taken away from the input

    Table exact(sensitive, true, false);
    exact.Add("legacy", 0);
    EXPECT_EQ(Find(exact, "\"legacy\""), -1);
    EXPECT_EQ(Find(exact, "Legacy"), -1);
    int value = 42;
    EXPECT_FALSE(exact.Lookup("y", value));
    EXPECT_EQ(value, 42);
}

TEST(NamedValueTable, DistinctValuesInOrderOfFirstUse)
{
    Table table(sensitive, true, true);
    table.Add("two", 2);
    table.Add("one", 1);
    table.Add("zwei drei", 2);
    const Vector<int>& distinct = table.GetDistinctValues();
    ASSERT_EQ(distinct.GetSize(), 2u);
    EXPECT_EQ(distinct[0], 2);
    EXPECT_EQ(distinct[1], 1);
    table.Clear();
    EXPECT_EQ(Find(table, "two"), -1);
    EXPECT_EQ(table.GetDistinctValues().GetSize(), 0u);
}

} // namespace
} // namespace kvo
