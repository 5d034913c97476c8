// ShellTool: the banner every run opens with, and the notification lines.

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoStreamCapture.h"
#include "KvoTestUtilities.h"
#include "shell/KvoConsoleText.h"
#include "shell/KvoShellTool.h"
#include "shell/KvoVersion.h"

namespace kvo
{
namespace
{

using testing::StreamCapture;

TEST(ShellToolBanner, ConstructionPrintsTheBannerOfItsToolOnStandardOutput)
{
    StreamCapture out(std::cout);
    StreamCapture err(std::cerr);
    const ShellTool tool("other tool");
    EXPECT_EQ(out.GetText(), testing::ExpectedBanner("other tool"));
    EXPECT_EQ(err.GetText(), "");
    EXPECT_EQ(GetVersionText(false), "libkvo v5.0.2");

    // The first call fixes the separator: later characters change nothing.
    EXPECT_EQ(SeparatorLine('-'), std::string(78, '='));
}

TEST(ShellToolNotification, PrefixesByKind)
{
    const std::vector<std::pair<String, std::string>> cases = {
        {FormatNotification(0, "file written: out.wav"), "file written: out.wav"},
        {FormatNotification(1, "when processing a.wav"), "warning occurred when processing a.wav"},
        {FormatNotification(1, "When processing a.wav"), "warning occurred: When processing a.wav"},
        {FormatNotification(2, "when processing a.wav"), "error occurred when processing a.wav"},
        {FormatNotification(2, "unknown error occurred"), "unknown error occurred"},
        {FormatNotification(2, "disk full"), "error occurred: disk full"},
        {FormatNotification(3, "plain"), "plain"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text.GetStdString(), expected);
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
