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
}

TEST(ReportLineTidy, CutsBehindTheFirstClosingBracket)
{
    EXPECT_EQ(TidyReport("Exception occurred in [a.cpp:3] : index [2] : out of range"),
              "Exception occurred in [a.cpp:3] :\nindex [2] : out of range");
}

TEST(ReportLineTidy, OtherTextIsLeftAlone)
{
    for (const char* text : {"Exception occurred: short form\n", "plain [x] : text", "exception occurred in [a] : x",
                             " Exception occurred in [a] : x", "Exception occurred in [a.cpp:3]: no blank", ""})
        EXPECT_EQ(TidyReport(text), text);
}

TEST(ReportLineRouting, StandardErrorWithOneLineFeed)
{
    EXPECT_EQ(Route(1, "no line end"), std::make_pair(std::string(), std::string("no line end\n")));
    EXPECT_EQ(Route(1, "has line end\n"), std::make_pair(std::string(), std::string("has line end\n")));
    EXPECT_EQ(Route(1, ""), std::make_pair(std::string(), std::string("\n")));
    EXPECT_EQ(Route(1, "Exception occurred in [a.cpp:3] : x\n"),
              std::make_pair(std::string(), std::string("Exception occurred in [a.cpp:3] :\nx\n")));
}

TEST(ReportLineRouting, StandardOutputForTwo)
{
    EXPECT_EQ(Route(2, "to stdout"), std::make_pair(std::string("to stdout\n"), std::string()));
}

TEST(ReportLineRouting, OtherTargetsAreSilent)
{
    for (int target : {0, 3, -1})
        EXPECT_EQ(Route(target, "silenced"), std::make_pair(std::string(), std::string())) << target;
}

TEST(ReportLineRouting, LineEndIsOneLineFeed)
{
    EXPECT_EQ(LineEnd(), "\n");
    EXPECT_EQ(&LineEnd(), &LineEnd());
}

} // namespace
} // namespace kvo
