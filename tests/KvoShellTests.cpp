// The shell: where reports go (ReportLine and TidyReport, the two report forms of Exception
// with the messages of the exceptions:: classes, ShellTool's banner and notification lines),
// ConsoleProgress's reports one sequence of updates a row, and the process values and OSC
// constants of library start-up.

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>
#include <variant>

#include "KvoTestUtilities.h"
#include "files/KvoFile.h"
#include "osc/KvoOscAddressConstants.h"
#include "shell/KvoConsoleProgress.h"
#include "shell/KvoConsoleText.h"
#include "shell/KvoLibraryStartup.h"
#include "shell/KvoShellTool.h"
#include "shell/KvoVersion.h"

namespace kvo::testing
{
namespace
{

using Streams = std::pair<std::string, std::string>;

/** What action printed on {stdout, stderr} with ConsoleTarget set to target. */
template <typename Action>
Streams Printed(int target, Action&& action)
{
    StreamCapture out(std::cout);
    StreamCapture err(std::cerr);
    const ScopedConsoleTarget console(target);
    action();
    return { out.GetText(), err.GetText() };
}

TEST(ReportLine, TidiesTheLocationOntoALineOfItsOwnAndRoutesByTarget)
{
    const std::pair<const char*, const char*> tidied[] = {
        { "Exception occurred in [a.cpp:3] : it failed\n", "Exception occurred in [a.cpp:3] :\nit failed\n" },
        { "Exception occurred in [a.cpp:3  'void f()'] : \n \t long text\n", "Exception occurred in [a.cpp:3  'void f()'] :\nlong text\n" },
        { "Exception occurred in [a.cpp:3] :", "Exception occurred in [a.cpp:3] :\n" },
        // The cut is behind the first closing bracket.
        { "Exception occurred in [a.cpp:3] : index [2] : out of range", "Exception occurred in [a.cpp:3] :\nindex [2] : out of range" },
        { "Exception occurred: short form\n", "Exception occurred: short form\n" },
        { "plain [x] : text", "plain [x] : text" },
        { "exception occurred in [a] : x", "exception occurred in [a] : x" },
        { " Exception occurred in [a] : x", " Exception occurred in [a] : x" },
        { "Exception occurred in [a.cpp:3]: no blank", "Exception occurred in [a.cpp:3]: no blank" },
        { "", "" },
    };
    for (const auto& [text, expected] : tidied)
        EXPECT_EQ(TidyReport(text), expected) << text;

    const std::tuple<int, const char*, Streams> routes[] = {
        { 1, "no line end", { "", "no line end\n" } },
        { 1, "has line end\n", { "", "has line end\n" } },
        { 1, "", { "", "\n" } },
        { 1, "Exception occurred in [a.cpp:3] : x\n", { "", "Exception occurred in [a.cpp:3] :\nx\n" } },
        { 2, "to stdout", { "to stdout\n", "" } },
        { 0, "silenced", { "", "" } },
        { 3, "silenced", { "", "" } },
        { -1, "silenced", { "", "" } },
    };
    for (const auto& [target, text, expected] : routes)
        EXPECT_EQ(Printed(target, [&] { ReportLine(text); }), expected) << target << " " << text;
}

const CodeLocation here("KvoSonaJoin.cpp", 120, "void kvo::SonaJoin::Process()");
const std::string located = "Exception occurred in [KvoSonaJoin.cpp:120  'void kvo::SonaJoin::Process()'] :";

TEST(Exception, ReportForms)
{
    EXPECT_EQ(FormatLocation("KvoFile.cpp", 42, "bool kvo::File::Exists() const"), "[KvoFile.cpp:42  'bool kvo::File::Exists() const']");
    EXPECT_EQ(FormatLocation("KvoFile.cpp", 42, ""), "[KvoFile.cpp:42]");
    const std::string shortMessage(200, 's');
    const std::string longMessage(201, 'l');
    // Messages longer than 200 bytes start on a new line of the report; the console shows the
    // location on its own line either way, printed once, when the exception is built.
    EXPECT_EQ(Printed(1, [&] {
                  EXPECT_EQ(Exception(String(shortMessage), here).ComposeReport(true), located + " " + shortMessage + "\n");
                  EXPECT_EQ(Exception(String(longMessage), here).ComposeReport(true), located + " \n" + longMessage + "\n");
              }),
              Streams("", located + "\n" + shortMessage + "\n" + located + "\n" + longMessage + "\n"));
    // The short form without a source file or when asked; nothing when the console is off.
    EXPECT_EQ(Printed(1, [] {
                  EXPECT_EQ(Exception("no place", CodeLocation()).ComposeReport(true), "Exception occurred: no place\n");
                  EXPECT_EQ(Exception("not asked", here, false).ComposeReport(false), "Exception occurred: not asked\n");
              }),
              Streams("", "Exception occurred: no place\nException occurred: not asked\n"));
    EXPECT_EQ(Printed(0, [] { Exception quiet("quiet", here); }), Streams("", ""));
    EXPECT_EQ(Printed(1, [] {
                  const Exception e(std::runtime_error("bad thing"), here);
                  EXPECT_STREQ(e.what(), "bad thing");
                  EXPECT_EQ(e.GetLineNumber(), 120u);
              }),
              Streams("", located + "\nbad thing\n"));

    const File file("/tmp/my folder/a.wav");
    const ScopedConsoleTarget quiet;
    EXPECT_EQ(exceptions::NoSuchFile(file, here).GetMessage(), "Could not find file \"/tmp/my folder/a.wav\"");
    EXPECT_EQ(exceptions::ErrorWritingFile(file, here).GetMessage(), "Error writing file \"/tmp/my folder/a.wav\"");
    EXPECT_EQ(exceptions::UnsupportedFile(file, here).GetMessage(), "Could not open file \"/tmp/my folder/a.wav\". Unsupported format?");
    EXPECT_EQ(exceptions::Unknown(here).GetMessage(), "Unknown exception");
}

TEST(Exception, FatalEndsTheProgramWithExitCodeOne)
{
    EXPECT_EXIT(Exception("fatal failure", here, true, true), ::testing::ExitedWithCode(1),
                "Exception occurred in \\[KvoSonaJoin.cpp:120  'void kvo::SonaJoin::Process\\(\\)'\\] :\nfatal failure");
}

TEST(ShellTool, BannerOnStandardOutputAndNotificationsOnStandardError)
{
    EXPECT_EQ(Printed(1, [] { const ShellTool tool("other tool"); }), Streams(ExpectedBanner("other tool"), ""));
    EXPECT_EQ(GetVersionText(false), "libkvo v5.0.2");
    EXPECT_EQ(SeparatorLine('-'), std::string(78, '=')); // the first call fixed the separator

    const std::tuple<int, const char*, const char*> notifications[] = {
        { 0, "file written: out.wav", "file written: out.wav" },
        { 1, "when processing a.wav", "warning occurred when processing a.wav" },
        { 1, "When processing a.wav", "warning occurred: When processing a.wav" },
        { 2, "when processing a.wav", "error occurred when processing a.wav" },
        { 2, "unknown error occurred", "unknown error occurred" },
        { 2, "disk full", "error occurred: disk full" },
        { 3, "plain", "plain" },
    };
    for (const auto& [kind, text, expected] : notifications)
        EXPECT_EQ(FormatNotification(kind, text).GetStdString(), expected);

    StreamCapture out(std::cout); // the banner
    ShellTool tool("sonajoin");
    EXPECT_EQ(Printed(1, [&] {
                  tool.HandleNotification(nullptr, 1, "clipped");
                  tool.HandleNotification(nullptr, 3, "");
                  tool.HandleNotification(nullptr, 4, "ignored");
                  tool.HandleNotification(nullptr, -1, "ignored");
              }),
              Streams("", "warning occurred: clipped\n\n"));
}

// ---------------------------------------------------------------------------------------
// Progress

// The progress clock is a plain function pointer, so the fake time lives in a global.
int64_t fakeNow = 0;

int64_t FakeClock() { return fakeNow; }

const std::string start = "Progress : 0 % ";

std::string Line(int percent, const std::string& elapsed, const std::string& remaining)
{
    return "Progress : " + std::to_string(percent) + " %  (elapsed " + elapsed + " | remaining " + remaining + ")";
}

TEST(ConsoleProgress, ReportSequences)
{
    using Updates = std::vector<std::pair<uint64_t, int64_t>>; // position, milliseconds since the last update
    struct Case { const char* name; uint64_t total; int step; Updates updates; std::string expected; };
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
    // Each percent once and in order, every report right behind the one before.
    const std::string text = out.str();
    ASSERT_EQ(text.rfind(start, 0), 0u);
    size_t at = start.size();
    for (int k = 1; k <= 100; ++k, at = text.find(')', at) + 1)
        ASSERT_EQ(text.substr(at, text.find(" | ", at) - at),
                  "Progress : " + std::to_string(k) + " %  (elapsed " + FormatDuration(10.0 * k).GetStdString()) << k;
    EXPECT_TRUE(at == text.size() && text.ends_with(Line(100, "1.00 sec", "0.0 ms"))) << text;
    EXPECT_NE(text.find(Line(29, "290 ms", "710 ms")), std::string::npos) << text;
    EXPECT_NE(text.find(Line(57, "570 ms", "430 ms")), std::string::npos) << text;
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos); // reports never end a line
}

TEST(ConsoleProgress, StartIsClampedAndFiltersByDivisionAndLinesShowWholePercents)
{
    std::ostringstream out;
    PrintProgressStart(150.0, 100, 100, out);
    PrintProgressStart(-3.0, 100, 100, out);
    PrintProgressStart(30.0, 100, 4, out); // only multiples of 25 pass
    PrintProgressStart(50.0, 100, 4, out);
    PrintProgressStart(50.0, 100, 1, out); // one division: only 0 and 100
    PrintProgressStart(33.0, 100, 0, out); // no divisions: every value passes, odd ones too
    PrintProgressLine(40.4, 0, 100, 100, out, 404); // the whole part of a fractional value
    EXPECT_EQ(out.str(), "Progress : 100 % Progress : 0 % Progress : 50 % Progress : 33 % " + Line(40, "404 ms", "596 ms"));
}

// ---------------------------------------------------------------------------------------
// Library start-up

int64_t cpuMicroseconds(const timeval& time) { return static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_usec; }

TEST(LibraryStartup, RecordsTheProcessValues)
{
    timespec before {};
    clock_gettime(CLOCK_REALTIME, &before);
    rusage used[2] {};
    getrusage(RUSAGE_SELF, &used[0]);
    const LibraryStartup startup;
    getrusage(RUSAGE_SELF, &used[1]);

    const StartupValues& values = LibraryStartup::GetStartupValues();
    EXPECT_EQ(values.numProcessors, sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(values.processId, getpid());
    EXPECT_GE(values.systemTimeNanoseconds, static_cast<int64_t>(before.tv_sec) * 1000000000 + before.tv_nsec);
    // Process times only grow: what was recorded lies between what is read before and after.
    EXPECT_GE(values.userTimeMicroseconds, cpuMicroseconds(used[0].ru_utime));
    EXPECT_LE(values.userTimeMicroseconds, cpuMicroseconds(used[1].ru_utime));
    EXPECT_GE(values.kernelTimeMicroseconds, cpuMicroseconds(used[0].ru_stime));
    EXPECT_LE(values.kernelTimeMicroseconds, cpuMicroseconds(used[1].ru_stime));
}

TEST(LibraryStartup, BuildsTheOscConstantsAndEmptiesThemOnDestruction)
{
    OscAddressConstants& constants = OscAddressConstants::GetInstance();
    {
        const LibraryStartup startup;
        ASSERT_GT(constants.GetSize(), 0u);

        ASSERT_NE(constants.Find("/master/gain"), nullptr);
        EXPECT_EQ(std::get<OscAddress>(*constants.Find("/master/gain")).GetToken(1), "gain");
        ASSERT_NE(constants.Find("/source/*/aed"), nullptr);
        EXPECT_TRUE(std::holds_alternative<OscAddressPattern>(*constants.Find("/source/*/aed")));
        EXPECT_EQ(constants.Find("/no/such/constant"), nullptr);

        // Every constant keeps its own text under its own hash.
        for (const auto& [hash, entry] : constants.GetEntries())
            std::visit([&hash = hash](const auto& path) { EXPECT_EQ(path.GetHash(), hash) << path.GetText().GetStdString(); },
                       entry);
    }
    EXPECT_EQ(constants.GetSize(), 0u);
    // The tokens stay in the pool: it only ever grows.
    EXPECT_NE(HashedStringPool::GetInstance().Find(HashedString::Hash("listener")), nullptr);
}

} // namespace
} // namespace kvo::testing
