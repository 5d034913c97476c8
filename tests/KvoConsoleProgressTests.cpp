// ConsoleProgress: when a report is due and the exact bytes of each, one sequence of updates a row.

#include "KvoTestUtilities.h"
#include "shell/KvoConsoleProgress.h"

namespace kvo::testing
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

TEST(ConsoleProgress, ReportSequences)
{
    struct Case
    {
        const char* name;
        uint64_t total;
        int step;
        std::vector<std::pair<uint64_t, int64_t>> updates; // position, milliseconds since the last update
        std::string expected;
    };
    const std::string zero = Line(0, "0.0 ms", "0.0 ms");
    const std::vector<Case> cases = {
        { "one short block jumps from 0 to 100", 1000, 1, { { 1000, 5 } }, start + Line(100, "5.0 ms", "0.0 ms") },
        // 99.6 % shows as 100, and 100 is reported once.
        { "100 once", 1000, 1, { { 994, 0 }, { 996, 0 }, { 1000, 0 }, { 5000, 0 } },
          start + Line(99, "0.0 ms", "0.0 ms") + Line(100, "0.0 ms", "0.0 ms") },
        { "the step skips small gains, never the end", 100, 30,
          { { 10, 0 }, { 20, 0 }, { 30, 0 }, { 40, 0 }, { 50, 0 }, { 60, 0 }, { 70, 0 }, { 80, 0 }, { 90, 0 }, { 100, 0 } },
          start + Line(30, "0.0 ms", "0.0 ms") + Line(60, "0.0 ms", "0.0 ms") + Line(90, "0.0 ms", "0.0 ms") + Line(100, "0.0 ms", "0.0 ms") },
        // Gains below one percent wait, but position 0 is always reported; 0.6 % rounds to 1.
        { "position 0", 1000, 1, { { 0, 0 }, { 0, 0 }, { 4, 0 }, { 6, 0 } }, start + zero + zero + Line(1, "0.0 ms", "0.0 ms") },
        { "elapsed time and a linear estimate", 100, 1, { { 1, 12 }, { 2, 11 }, { 25, 61'000 } },
          start + Line(1, "12.0 ms", "1.19 sec") + Line(2, "23.0 ms", "1.13 sec") + Line(25, "1 min 1 sec", "3 min 3 sec") },
    };
    for (const Case& c : cases)
    {
        fakeNow = 1'700'000'000'000;
        std::ostringstream out;
        ConsoleProgress progress(c.total, c.step, out, &FakeClock);
        for (const auto& [position, milliseconds] : c.updates)
        {
            fakeNow += milliseconds;
            progress.Update(position);
        }
        EXPECT_EQ(out.str(), c.expected) << c.name;
    }
}

TEST(ConsoleProgress, HundredEqualBlocksReportEachPercentOnceOnOneLine)
{
    fakeNow = 1'700'000'000'000;
    std::ostringstream out;
    ConsoleProgress progress(100 * 8192, 1, out, &FakeClock);
    for (uint64_t k = 1; k <= 100; ++k)
    {
        fakeNow += 10;
        progress.Update(k * 8192);
    }
    const std::string text = out.str();
    size_t at = 0;
    for (int k = 1; k <= 100; ++k)
    {
        at = text.find("Progress : " + std::to_string(k) + " %  (elapsed " + FormatDuration(10.0 * k).GetStdString() + " |", at);
        ASSERT_NE(at, std::string::npos) << k;
    }
    size_t reports = 0;
    for (size_t p = text.find("Progress"); p != std::string::npos; p = text.find("Progress", p + 1))
        ++reports;
    EXPECT_EQ(reports, 101u);
    EXPECT_EQ(text.rfind(start, 0), 0u);
    EXPECT_NE(text.find(Line(29, "290 ms", "710 ms")), std::string::npos) << text;
    EXPECT_NE(text.find(Line(57, "570 ms", "430 ms")), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.size() - Line(100, "1.00 sec", "0.0 ms").size()), Line(100, "1.00 sec", "0.0 ms"));
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos); // reports never end a line
}

TEST(ConsoleProgress, StartIsClampedAndFiltersByDivisionAndLinesShowWholePercents)
{
    std::ostringstream out;
    PrintProgressStart(150.0, 100, 100, out);
    PrintProgressStart(-3.0, 100, 100, out);
    PrintProgressStart(30.0, 100, 4, out); // only multiples of 25 pass
    PrintProgressStart(50.0, 100, 4, out);
    PrintProgressStart(30.0, 100, 0, out); // no divisions: every value passes
    PrintProgressLine(40.4, 0, 100, 100, out, 404); // the whole part of a fractional value
    EXPECT_EQ(out.str(), "Progress : 100 % Progress : 0 % Progress : 50 % Progress : 30 % " + Line(40, "404 ms", "596 ms"));
}

} // namespace
} // namespace kvo::testing
