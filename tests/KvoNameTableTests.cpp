// The name tables of the library's enumerations: every accepted spelling, the derived
// forms of spellings with blanks, quoted and case-folded input, and unknown names.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "KvoTestUtilities.h"
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

TEST(NameTables, EverySpellingFindsItsEnumeratorInEveryCaseQuotedOrNot)
{
    for (const TableCase& table : allTables())
    {
        for (const Row& row : table.rows)
            for (const std::string& spelling : row.spellings)
            {
                std::vector<std::string> forms = derivedForms(spelling);
                forms.insert(forms.end(), {spelling, upperCase(spelling), "\"" + spelling + "\"", "'" + spelling + "'"});
                for (const std::string& form : forms)
                    EXPECT_EQ(table.find(form), row.value) << table.name << " \"" << form << "\"";
            }
        for (const char* unknown : {"", "\"\"", "no such name"})
            EXPECT_EQ(table.find(unknown), -1) << table.name;
    }
    // Quotes must enclose the whole name, and blanks are trimmed from derived forms only.
    for (const char* unknown : {"\"linear", "\"linear'", " linear"})
        EXPECT_EQ(DelayInterpolationSettings::FindMode(unknown), -1) << unknown;
}

TEST(NameTables, TriangulationModes)
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
    // Unknown names are quoted in the message, but not twice.
    for (const std::string name : {"foo", "\"foo\""})
        EXPECT_EQ(testing::MessageOf([&] { VbapTriplets::GetTriangulationMode(name); }),
                  "invalid triangulation mode : \"foo\"");
}

TEST(NameTables, RepeatedSpellingsAreStoredOnce)
{
    for (const char* name : {"lagrange 3", "lagrange-3", "lagrange3", "LAGRANGE-3"})
        EXPECT_EQ(DelayInterpolationSettings::FindMode(name), DelayInterpolationSettings::lagrange3) << name;
    // "lagrange3" is written out before "lagrange 3" brings it again; "acn" repeats "ACN".
    const auto countOf = [](const auto& table, const char* name) {
        int copies = 0;
        for (uint64_t i = 0; i < table.GetNumNames(); ++i)
            copies += Equals(table.GetName(i), name, insensitive) ? 1 : 0;
        return copies;
    };
    EXPECT_EQ(countOf(DelayInterpolationSettings::GetModeNames(), "lagrange3"), 1);
    EXPECT_EQ(countOf(SphericalHarmonic::GetSortingNames(), "acn"), 1);
    EXPECT_EQ(countOf(GetDimensionNames(), "2d"), 1);
}

TEST(NameTables, EulerValueOneHasNoName)
{
    const auto& table = EulerAngles::GetModeNames();
    ASSERT_EQ(table.GetNumNames(), 33u);
    for (uint64_t i = 0; i < table.GetNumNames(); ++i)
        EXPECT_NE(table.GetValue(i), EulerAngles::eulerXZX) << table.GetName(i).GetStdString();
    EXPECT_EQ(EulerAngles::FindMode("XZX"), -1);
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
    EXPECT_EQ(ColourNames::FindColour("bleu"), -1);
}

} // namespace
} // namespace kvo
