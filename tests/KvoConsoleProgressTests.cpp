// ConsoleProgress: when a report is due, and the exact bytes of each report.

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/KvoConsoleProgress.h"

namespace kvo
{
namespace
{

// The progress clock is a plain function pointer, so the fake time lives in a global.
int64_t fakeNow = 0;

int64_t FakeClock()
{
    return fakeNow;
}

const std::string start = "Progress : 0 % ";

std::string Line(int percent, const std::string& elapsed, const std::string& remaining)
{
    return "Progress : " + std::to_string(percent) + " %  (elapsed " + elapsed + " | remaining " + remaining + ")";
}

/** The percentages of the timed reports in text, in order. */
std::vector<int> ReportedPercents(const std::string& text)
{
    std::vector<int> percents;
    const std::string marker = "Progress : ";
    for (size_t at = text.find(marker); at != std::string::npos; at = text.find(marker, at + 1))
    {
        const size_t number = at + marker.size();
        if (text.compare(text.find(' ', number), 4, " %  ") == 0)
            percents.push_back(std::stoi(text.substr(number)));
    }
    return percents;
}

class ConsoleProgressTest : public ::testing::Test
{
protected:
    void SetUp() override { fakeNow = 1'700'000'000'000; }

    std::ostringstream out;
};

// ---------------------------------------------------------------------------------------
// Report sequences

TEST_F(ConsoleProgressTest, HundredEqualBlocksReportEachPercentOnce)
{
    const uint64_t block = 8192;
    ConsoleProgress progress(100 * block, 1, out, &FakeClock);
    for (uint64_t k = 1; k <= 100; ++k)
    {
        fakeNow += 10;
        progress.Update(k * block);
    }

    std::vector<int> expected;
    for (int k = 1; k <= 100; ++k)
        expected.push_back(k);
    EXPECT_EQ(ReportedPercents(out.str()), expected);

    const std::string& text = out.str();
    EXPECT_EQ(text.rfind(start, 0), 0u);
    EXPECT_NE(text.find(Line(29, "290 ms", "710 ms")), std::string::npos) << text;
    EXPECT_NE(text.find(Line(57, "570 ms", "430 ms")), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.size() - Line(100, "1.00 sec", "0.0 ms").size()), Line(100, "1.00 sec", "0.0 ms"));
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos); // reports never end a line
}

TEST_F(ConsoleProgressTest, OneShortBlockJumpsFromZeroToHundred)
{
    ConsoleProgress progress(1000, 1, out, &FakeClock);
    fakeNow += 5;
    progress.Update(1000);
    EXPECT_EQ(out.str(), start + Line(100, "5.0 ms", "0.0 ms"));
}

TEST_F(ConsoleProgressTest, HundredIsReportedExactlyOnceEvenWhenRoundedUpTo)
{
    ConsoleProgress progress(1000, 1, out, &FakeClock);
    progress.Update(994); // 99.4 %
    progress.Update(996); // 99.6 %, shown as 100
    progress.Update(1000);
    progress.Update(5000);
    EXPECT_EQ(ReportedPercents(out.str()), std::vector<int>({99, 100}));
}

TEST_F(ConsoleProgressTest, StepSkipsSmallGainsButNeverTheEnd)
{
    ConsoleProgress progress(100, 30, out, &FakeClock);
    for (uint64_t position = 10; position <= 100; position += 10)
        progress.Update(position);
    EXPECT_EQ(ReportedPercents(out.str()), std::vector<int>({30, 60, 90, 100}));
}

TEST_F(ConsoleProgressTest, GainsBelowOnePercentWaitButPositionZeroIsAlwaysReported)
{
    ConsoleProgress progress(1000, 1, out, &FakeClock);
    progress.Update(0);
    progress.Update(0);
    progress.Update(4);
    const std::string zero = Line(0, "0.0 ms", "0.0 ms");
    EXPECT_EQ(out.str(), start + zero + zero);
    progress.Update(6); // 0.6 % rounds to 1
    EXPECT_EQ(ReportedPercents(out.str()), std::vector<int>({0, 0, 1}));
}

// ---------------------------------------------------------------------------------------
// Text of the timed reports

TEST_F(ConsoleProgressTest, ElapsedAndLinearRemainingEstimate)
{
    ConsoleProgress progress(100, 1, out, &FakeClock);
    fakeNow += 12;
    progress.Update(1);
    fakeNow += 11;
    progress.Update(2);
    fakeNow += 61'000;
    progress.Update(25);
    EXPECT_EQ(out.str(), start + Line(1, "12.0 ms", "1.19 sec") + Line(2, "23.0 ms", "1.13 sec")
                             + Line(25, "1 min 1 sec", "3 min 3 sec"));
}

TEST(ConsoleProgressPrinting, StartIsClampedAndFiltersByDivisionAndLinesShowWholePercents)
{
    std::ostringstream out;
    PrintProgressStart(150.0, 100, 100, out);
    PrintProgressStart(-3.0, 100, 100, out);
    PrintProgressStart(30.0, 100, 4, out); // only multiples of 25 pass
    PrintProgressStart(50.0, 100, 4, out);
    PrintProgressLine(40.4, 0, 100, 100, out, 404); // the whole part of a fractional value
    EXPECT_EQ(out.str(), "Progress : 100 % Progress : 0 % Progress : 50 % " + Line(40, "404 ms", "596 ms"));
}

} // namespace
} // namespace kvo
