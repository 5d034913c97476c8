// The name tables of the library's enumerations: every accepted spelling, the derived
// forms of spellings with blanks, quoted and case-folded input, and unknown names.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core/KvoException.h"
#include "geometry/KvoColourNames.h"
#include "geometry/KvoCoordinates.h"
#include "geometry/KvoDelayModes.h"
#include "geometry/KvoDimension.h"
#include "geometry/KvoEulerAngles.h"
#include "geometry/KvoSphericalHarmonic.h"
#include "geometry/KvoVbapTriplets.h"
#include "shell/KvoVerbosity.h"

namespace kvo
{
namespace
{

struct Row
{
    int value;
    std::vector<std::string> spellings;
};

struct TableCase
{
    const char* name;
    std::function<int(const String&)> find;
    std::vector<Row> rows;
};

/** The spelling with blanks removed and with blanks as dashes, after trimming and folding double blanks. */
std::vector<std::string> derivedForms(const std::string& spelling)
{
    if (spelling.find(' ') == std::string::npos)
        return {};
    std::string single;
    for (char c : spelling)
        if (c != ' ' || (!single.empty() && single.back() != ' '))
            single += c;
    while (!single.empty() && single.back() == ' ')
        single.pop_back();

    std::string joined;
    std::string dashed;
    for (char c : single)
    {
        if (c != ' ')
            joined += c;
        dashed += c == ' ' ? '-' : c;
    }
    return {joined, dashed};
}

std::string upperCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

const std::vector<TableCase>& allTables()
{
    static const std::vector<TableCase> tables = {
        {"Coordinates::Format", Coordinates::FindFormat,
         {{0, {"xyz", "cartesian"}}, {1, {"xy"}}, {2, {"xy_"}}, {3, {"x++"}}, {4, {"y++"}}, {5, {"z++"}},
          {6, {"ade"}}, {7, {"aed", "navigation"}}, {8, {"ae"}}, {9, {"ad"}}, {10, {"az"}}, {11, {"azim"}},
          {12, {"azim++"}}, {13, {"elev"}}, {14, {"elev++"}}, {15, {"azimelev"}}, {16, {"azimdist"}},
          {17, {"dist"}}, {18, {"dist++"}}, {19, {"dist*="}}, {20, {"sonel3", "bbox", "binauralbox"}},
          {21, {"wfs"}}, {22, {"x"}}, {23, {"y"}}, {24, {"z"}}, {25, {"sofacartesian"}}, {26, {"sofaspherical"}}}},
        {"EulerAngles::Mode", EulerAngles::FindMode,
         {{0, {"EulerXYX", "XYX", "x-y-x"}}, {2, {"EulerYXY", "YXY", "y-x-y"}}, {3, {"EulerYZY", "YZY", "y-z-y"}},
          {4, {"EulerZXZ", "ZXZ", "z-x-z"}}, {5, {"EulerZYZ", "ZYZ", "z-y-z"}}, {6, {"EulerXYZ", "XYZ", "x-y-z"}},
          {7, {"XZY", "x-z-y", "EulerXZY"}}, {8, {"YXZ", "y-x-z", "EulerYXZ"}}, {9, {"YZX", "y-z-x", "EulerYZX"}},
          {10, {"ZXY", "z-x-y", "EulerZXY"}}, {11, {"EulerZYX", "z-y-x", "ZYX"}}}},
        {"VbapTriplets::TriangulationMode",
         [](const String& name) { return FindValue(VbapTriplets::GetTriangulationModeNames(), name); },
         {{0, {"legacy"}}, {1, {"delaunay", "spherical delaunay"}}}},
        {"Dimension", FindDimension,
         {{0, {"2", "2d", "2D", "2-D", "hoa2d", "hoa-2d", "2dhoa"}},
          {1, {"3", "3d", "3D", "3-D", "hoa3d", "hoa-3d", "3dhoa"}}}},
        {"DelayInterpolationSettings::Mode", DelayInterpolationSettings::FindMode,
         {{0, {"nearest"}}, {1, {"linear", "lin"}}, {2, {"lagrange3", "lagrange 3"}},
          {3, {"allpass", "allpass 1", "thiran 1", "thiran 1st order", "allpass 1st order"}},
          {4, {"nearestXfade"}}, {5, {"hermite3", "hermite"}}, {6, {"watte3", "watte"}},
          {7, {"bspline3", "bspline"}}, {8, {"parabolic"}},
          {9, {"thiran2", "thiran 2nd order", "allpass 2nd order"}},
          {10, {"thiran3", "thiran 3rd order", "allpass 3rd order"}}}},
        {"VaryingDelay::Mode", VaryingDelay::FindMode,
         {{0, {"vdelay", "vdelay~", "interpolation", "fractional-delay-line", "FDL"}},
          {1, {"xdelay", "xdelay~", "crossfade", "crossfading-delay-line", "XDL"}}}},
        {"SphericalHarmonic::Sorting", SphericalHarmonic::FindSorting,
         {{0, {"ACN", "AmbisonicChannelNumber", "ambisonic channel number", "acn", "increasing degrees", "ambix",
               "WYZX (ACN)"}},
          {1, {"SID", "SingleIndexDesignation", "single index designation", "sid", "alternate degrees"}},
          {2, {"FMH", "Furse-Malham Harmonics", "Furse Malham Harmonics", "WXYZ (FMH)", "WXYZ (Furse-Malham)",
               "WXYZ (Furse Malham)", "WXYZ (classic FOA)", "WXYZ (classic)"}}}},
        {"SphericalHarmonic::Norm", SphericalHarmonic::FindNorm,
         {{0, {"SN3D", "SchmidtSeminormalized3D", "Schmidt-Seminormalized3D", "Schmidt-Seminormalized-3D",
               "Seminormalized3D", "Seminormalized 3D"}},
          {1, {"SN2D", "SchmidtSeminormalized2D", "Schmidt-Seminormalized2D", "Schmidt-Seminormalized-2D",
               "Seminormalized2D", "Seminormalized 2D"}},
          {2, {"N3D", "FullyNormalized3D", "Full-3D-Normalization"}},
          {3, {"N2D", "FullyNormalized2D", "Full-2D-Normalization"}},
          {4, {"FuMa", "Furse Malham"}},
          {5, {"MaxN", "Max-N", "Max Normalization"}},
          {6, {"unnormalized", "Earl G. Williams"}}}},
        {"Verbosity::Level", Verbosity::FindLevel,
         {{2, {"normal", "default"}}, {1, {"minimal"}}, {0, {"silent"}}, {3, {"detailed"}}}},
    };
    return tables;
}

TEST(NameTables, EverySpellingFindsItsEnumerator)
{
    for (const TableCase& table : allTables())
        for (const Row& row : table.rows)
            for (const std::string& spelling : row.spellings)
            {
                EXPECT_EQ(table.find(spelling), row.value) << table.name << " \"" << spelling << "\"";
                for (const std::string& derived : derivedForms(spelling))
                    EXPECT_EQ(table.find(derived), row.value) << table.name << " derived \"" << derived << "\"";
            }
}

TEST(NameTables, SpellingsIgnoreCaseAndQuotes)
{
    for (const TableCase& table : allTables())
        for (const Row& row : table.rows)
            for (const std::string& spelling : row.spellings)
            {
                EXPECT_EQ(table.find(upperCase(spelling)), row.value) << table.name << " " << spelling;
                EXPECT_EQ(table.find("\"" + spelling + "\""), row.value) << table.name << " " << spelling;
                EXPECT_EQ(table.find("'" + spelling + "'"), row.value) << table.name << " " << spelling;
            }
}

TEST(NameTables, UnknownNamesAnswerMinusOne)
{
    for (const TableCase& table : allTables())
    {
        EXPECT_EQ(table.find(""), -1) << table.name;
        EXPECT_EQ(table.find("\"\""), -1) << table.name;
        EXPECT_EQ(table.find("no such name"), -1) << table.name;
    }
    // Quotes must enclose the whole name, and a half-quoted name stays unknown.
    EXPECT_EQ(DelayInterpolationSettings::FindMode("\"linear"), -1);
    EXPECT_EQ(DelayInterpolationSettings::FindMode("\"linear'"), -1);
    // Blanks are not trimmed from what a user types, only from the derived forms.
    EXPECT_EQ(DelayInterpolationSettings::FindMode(" linear"), -1);
    EXPECT_EQ(Coordinates::FindFormat("xyz "), -1);
}

TEST(NameTables, TriangulationModeNamesAndDerivedForms)
{
    const NamedValueTable<VbapTriplets::TriangulationMode>& table = VbapTriplets::GetTriangulationModeNames();
    const std::vector<std::string> expected = {"legacy", "delaunay", "spherical delaunay", "sphericaldelaunay",
                                               "spherical-delaunay"};
    ASSERT_EQ(table.GetNumNames(), expected.size());
    for (uint64_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(table.GetName(i).GetStdString(), expected[i]);

    EXPECT_EQ(VbapTriplets::GetTriangulationMode("\"legacy\""), VbapTriplets::legacy);
    EXPECT_EQ(VbapTriplets::GetTriangulationMode("spherical-delaunay"), VbapTriplets::delaunay);
    EXPECT_EQ(VbapTriplets::GetTriangulationMode("sphericaldelaunay"), VbapTriplets::delaunay);
    EXPECT_EQ(VbapTriplets::GetTriangulationMode("Spherical Delaunay"), VbapTriplets::delaunay);
}

TEST(NameTables, UnknownTriangulationModeThrowsWithTheQuotedName)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"foo", "invalid triangulation mode : \"foo\""},
        {"", "invalid triangulation mode : \"\""},
        {"\"foo\"", "invalid triangulation mode : \"foo\""}, // already quoted: not quoted twice
    };
    for (const auto& [name, message] : cases)
    {
        try
        {
            VbapTriplets::GetTriangulationMode(name);
            ADD_FAILURE() << "no exception for " << name;
        }
        catch (const Exception& e)
        {
            EXPECT_EQ(e.GetMessage().GetStdString(), message);
            EXPECT_EQ(e.GetSourceFile().GetStdString(), "geometry/KvoVbapTriplets.cpp");
        }
    }
}

TEST(NameTables, DelayModesFromTheirDerivedForms)
{
    for (const char* name : {"lagrange 3", "lagrange-3", "lagrange3", "LAGRANGE-3"})
        EXPECT_EQ(DelayInterpolationSettings::FindMode(name), DelayInterpolationSettings::lagrange3) << name;
    EXPECT_EQ(DelayInterpolationSettings::FindMode("thiran-1st-order"), DelayInterpolationSettings::allpass);
    EXPECT_EQ(DelayInterpolationSettings::FindMode("allpass2ndorder"), DelayInterpolationSettings::thiran2);
    // "lagrange3" is written out before "lagrange 3" brings it again: it is stored once.
    const auto& table = DelayInterpolationSettings::GetModeNames();
    int copies = 0;
    for (uint64_t i = 0; i < table.GetNumNames(); ++i)
        copies += table.GetName(i) == "lagrange3" ? 1 : 0;
    EXPECT_EQ(copies, 1);
}

TEST(NameTables, EulerValueOneHasNoName)
{
    const auto& table = EulerAngles::GetModeNames();
    ASSERT_EQ(table.GetNumNames(), 33u);
    for (uint64_t i = 0; i < table.GetNumNames(); ++i)
        EXPECT_NE(table.GetValue(i), EulerAngles::eulerXZX) << table.GetName(i).GetStdString();
    EXPECT_EQ(EulerAngles::FindMode("XZX"), -1);
    EXPECT_EQ(EulerAngles::FindMode("EulerXZX"), -1);
}

TEST(NameTables, CaseFoldedDuplicatesAreStoredOnce)
{
    // "acn" and "sid" repeat "ACN" and "SID" in another case, "2D" repeats "2d".
    const auto& sorting = SphericalHarmonic::GetSortingNames();
    for (uint64_t i = 0; i < sorting.GetNumNames(); ++i)
    {
        EXPECT_NE(sorting.GetName(i), "acn");
        EXPECT_NE(sorting.GetName(i), "sid");
    }
    const auto& dimension = GetDimensionNames();
    for (uint64_t i = 0; i < dimension.GetNumNames(); ++i)
        EXPECT_NE(dimension.GetName(i), "2D");
}

TEST(NameTableBuilding, ARepeatedSpellingKeepsItsFirstEnumerator)
{
    enum Probe : int { first = 0, second = 1 };
    const NamedValueTable<Probe> table = BuildNameTable<Probe>({
        {first, {" wide  open ", "one"}},
        {second, {"ONE", "wide-open", "wide open", "two"}},
    });
    // " wide  open " brings "wideopen" and "wide-open" from its trimmed, folded copy;
    // "ONE" and "wide-open" are then known and skipped, while "wide open" is new.
    const std::vector<std::pair<std::string, Probe>> expected = {
        {" wide  open ", first}, {"wideopen", first}, {"wide-open", first},
        {"one", first}, {"wide open", second}, {"two", second}};
    ASSERT_EQ(table.GetNumNames(), expected.size());
    for (uint64_t i = 0; i < expected.size(); ++i)
    {
        EXPECT_EQ(table.GetName(i).GetStdString(), expected[i].first);
        EXPECT_EQ(table.GetValue(i), expected[i].second) << expected[i].first;
    }
    EXPECT_EQ(FindValue(table, "ONE"), first);
    EXPECT_EQ(FindValue(table, "Wide-Open"), first);
}

TEST(NameTables, ColourNamesHoldBlue)
{
    EXPECT_EQ(ColourNames::FindColour("blue"), 0x0000ff);
    EXPECT_EQ(ColourNames::FindColour("\"Navy Blue\""), 0x000080);
    EXPECT_EQ(ColourNames::FindColour("navy-blue"), 0x000080);
    EXPECT_EQ(ColourNames::FindColour("grey"), ColourNames::FindColour("gray"));
    EXPECT_EQ(ColourNames::FindColour("bleu"), -1);
}

} // namespace
} // namespace kvo
