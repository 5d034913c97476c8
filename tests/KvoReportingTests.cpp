// Where reports go: ReportLine and TidyReport, the two report forms of Exception with the
// messages of the exceptions:: classes, and ShellTool's banner and notification lines.

#include <stdexcept>

#include "KvoTestUtilities.h"
#include "files/KvoFile.h"
#include "shell/KvoConsoleText.h"
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

} // namespace
} // namespace kvo::testing
