// ShellTool: the banner every run opens with, the version texts and notification lines.

#include <ctime>
#include <iostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "KvoStreamCapture.h"
#include "shell/KvoConsoleText.h"
#include "shell/KvoShellTool.h"
#include "shell/KvoVersion.h"

namespace kvo
{
namespace
{

using testing::StreamCapture;

int ThisYear()
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    return local.tm_year + 1900;
}

std::string Banner(const std::string& toolName)
{
    const std::string equals = "=============================================================================="; // 78
    return equals + "\n"
           + toolName + " [x86_64]\n"
           "Build date: Mar 18 2024\n"
           "Based on: libkvo v5.0.2 [32-bit float]\n"
           "Copyright (c) 2010-" + std::to_string(ThisYear()) + " Orvane\n"
           "https://www.orvane.example\n"
           + equals + "\n"
           "\n";
}

TEST(ShellToolBanner, ConstructionPrintsTheBannerOnStandardOutput)
{
    StreamCapture out(std::cout);
    StreamCapture err(std::cerr);
    const ShellTool tool("sonajoin");
    EXPECT_EQ(out.GetText(), Banner("sonajoin"));
    EXPECT_EQ(err.GetText(), "");
    EXPECT_EQ(tool.GetToolName(), "sonajoin");
}

TEST(ShellToolBanner, NamesTheToolItWasBuiltFor)
{
    StreamCapture out(std::cout);
    const ShellTool tool("other tool");
    std::ostringstream again;
    tool.PrintBanner(again);
    EXPECT_EQ(again.str(), Banner("other tool"));
}

TEST(ShellToolBanner, SeparatorIsSeventyEightEqualSigns)
{
    const String& separator = SeparatorLine('=');
    EXPECT_EQ(separator.GetLength(), 78);
    EXPECT_EQ(separator.GetStdString().find_first_not_of('='), std::string::npos);
    // The first call fixes the text: later characters change nothing.
    EXPECT_EQ(SeparatorLine('-'), separator);
    EXPECT_EQ(NoticeSign(), "(c)");
}

TEST(ShellToolVersion, Texts)
{
    EXPECT_EQ(GetVersionText(false), "libkvo v5.0.2");
    EXPECT_EQ(GetVersionText(true), "libkvo v5.0.2 [32-bit float]");
    EXPECT_EQ(GetPrecisionText(), "32-bit float");
    EXPECT_EQ(GetBuildDate(), "Mar 18 2024");
    EXPECT_EQ(GetCurrentYear(), ThisYear());
}

// ---------------------------------------------------------------------------------------
// Notifications

TEST(ShellToolNotification, PrefixesByKind)
{
    EXPECT_EQ(FormatNotification(0, "file written: out.wav"), "file written: out.wav");
    EXPECT_EQ(FormatNotification(0, "out.wav"), "out.wav");
    EXPECT_EQ(FormatNotification(1, "when processing a.wav"), "warning occurred when processing a.wav");
    EXPECT_EQ(FormatNotification(1, "clipped"), "warning occurred: clipped");
    EXPECT_EQ(FormatNotification(1, "When processing a.wav"), "warning occurred: When processing a.wav");
    EXPECT_EQ(FormatNotification(2, "when processing a.wav"), "error occurred when processing a.wav");
    EXPECT_EQ(FormatNotification(2, "unknown error occurred"), "unknown error occurred");
    EXPECT_EQ(FormatNotification(2, "disk full"), "error occurred: disk full");
    EXPECT_EQ(FormatNotification(3, "plain"), "plain");
}

TEST(ShellToolNotification, OneLineOnStandardErrorAndNothingForOtherKinds)
{
    StreamCapture out(std::cout);
    StreamCapture err(std::cerr);
    ShellTool tool("sonajoin");
    const std::string banner = out.GetText();

    tool.HandleNotification(nullptr, 1, "clipped");
    tool.HandleNotification(nullptr, 3, "");
    tool.HandleNotification(nullptr, 4, "ignored");
    tool.HandleNotification(nullptr, -1, "ignored");
    EXPECT_EQ(err.GetText(), "warning occurred: clipped\n\n");
    EXPECT_EQ(out.GetText(), banner);
}

} // namespace
} // namespace kvo
