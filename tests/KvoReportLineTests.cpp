// ReportLine and TidyReport: where reports go and how a location gets its own line.

#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "KvoStreamCapture.h"
#include "core/KvoReportLine.h"

namespace kvo
{
namespace
{

using testing::StreamCapture;

/** Runs ReportLine with ConsoleTarget set to target and returns what reached {stdout, stderr}. */
std::pair<std::string, std::string> Route(int target, const String& text)
{
    const int saved = ConsoleTarget;
    StreamCapture out(std::cout);
    StreamCapture err(std::cerr);
    ConsoleTarget = target;
    ReportLine(text);
    ConsoleTarget = saved;
    return {out.GetText(), err.GetText()};
}

TEST(ReportLineTidy, LocationGetsALineOfItsOwn)
{
    EXPECT_EQ(TidyReport("Exception occurred in [a.cpp:3] : it failed\n"),
              "Exception occurred in [a.cpp:3] :\nit failed\n");
    EXPECT_EQ(TidyReport("Exception occurred in [a.cpp:3  'void f()'] : \n \t long text\n"),
              "Exception occurred in [a.cpp:3  'void f()'] :\nlong text\n");
    EXPECT_EQ(TidyReport("Exception occurred in [a.cpp:3] :"), "Exception occurred in [a.cpp:3] :\n");
    // The cut is behind the first closing bracket.
    EXPECT_EQ(TidyReport("Exception occurred in [a.cpp:3] : index [2] : out of range"),
              "Exception occurred in [a.cpp:3] :\nindex [2] : out of range");
}

TEST(ReportLineTidy, OtherTextIsLeftAlone)
{
    for (const char* text : {"Exception occurred: short form\n", "plain [x] : text", "exception occurred in [a] : x",
                             " Exception occurred in [a] : x", "Exception occurred in [a.cpp:3]: no blank", ""})
        EXPECT_EQ(TidyReport(text), text);
}

TEST(ReportLineRouting, OneLineFeedOnTheTargetStream)
{
    using Streams = std::pair<std::string, std::string>;
    EXPECT_EQ(Route(1, "no line end"), Streams("", "no line end\n"));
    EXPECT_EQ(Route(1, "has line end\n"), Streams("", "has line end\n"));
    EXPECT_EQ(Route(1, ""), Streams("", "\n"));
    EXPECT_EQ(Route(1, "Exception occurred in [a.cpp:3] : x\n"), Streams("", "Exception occurred in [a.cpp:3] :\nx\n"));
    EXPECT_EQ(Route(2, "to stdout"), Streams("to stdout\n", ""));
    for (int target : {0, 3, -1})
        EXPECT_EQ(Route(target, "silenced"), Streams("", "")) << target;
}

} // namespace
} // namespace kvo
