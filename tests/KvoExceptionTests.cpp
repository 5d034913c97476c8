// Exception: the two report forms, the location text, the long-message rule and the
// messages of the exceptions:: classes. Every exception prints itself when built.

#include <iostream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "KvoStreamCapture.h"
#include "core/KvoException.h"
#include "core/KvoReportLine.h"
#include "files/KvoFile.h"

namespace kvo
{
namespace
{

using testing::StreamCapture;

const CodeLocation here("KvoSonaJoin.cpp", 120, "void kvo::SonaJoin::Process()");
const std::string located = "Exception occurred in [KvoSonaJoin.cpp:120  'void kvo::SonaJoin::Process()'] :";

class ExceptionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        savedTarget = ConsoleTarget;
        ConsoleTarget = 1;
    }
    void TearDown() override { ConsoleTarget = savedTarget; }

    StreamCapture err { std::cerr };
    StreamCapture out { std::cout };

private:
    int savedTarget = 1;
};

// ---------------------------------------------------------------------------------------
// Location and report text

TEST(ExceptionLocation, WithAndWithoutSignature)
{
    EXPECT_EQ(FormatLocation("KvoFile.cpp", 42, "bool kvo::File::Exists() const"),
              "[KvoFile.cpp:42  'bool kvo::File::Exists() const']");
    EXPECT_EQ(FormatLocation("KvoFile.cpp", 42, ""), "[KvoFile.cpp:42]");
}

TEST_F(ExceptionTest, MessagesLongerThanTwoHundredBytesStartOnANewLine)
{
    const std::string message(200, 'm');
    EXPECT_EQ(Exception(String(message), here).ComposeReport(true), located + " " + message + "\n");
    EXPECT_EQ(Exception(String(message + "m"), here).ComposeReport(true), located + " \n" + message + "m\n");
}

TEST_F(ExceptionTest, ConsoleShowsTheLocationOnItsOwnLineEitherWay)
{
    const std::string shortMessage(200, 's');
    const std::string longMessage(201, 'l');
    Exception first(String(shortMessage), here);
    Exception second(String(longMessage), here);
    EXPECT_EQ(err.GetText(), located + "\n" + shortMessage + "\n" + located + "\n" + longMessage + "\n");
    EXPECT_EQ(out.GetText(), "");
}

TEST_F(ExceptionTest, ShortFormWithoutASourceFileOrWhenAsked)
{
    Exception noFile("no place", CodeLocation());
    Exception notAsked("not asked", here, false);
    EXPECT_EQ(noFile.ComposeReport(true), "Exception occurred: no place\n");
    EXPECT_EQ(notAsked.ComposeReport(false), "Exception occurred: not asked\n");
    EXPECT_EQ(err.GetText(), "Exception occurred: no place\nException occurred: not asked\n");
}

TEST_F(ExceptionTest, SilentWhenTheConsoleTargetIsOff)
{
    ConsoleTarget = 0;
    Exception quiet("quiet", here);
    EXPECT_EQ(err.GetText(), "");
    EXPECT_EQ(out.GetText(), "");
}

TEST_F(ExceptionTest, MessageFromAStandardException)
{
    const Exception e(std::runtime_error("bad thing"), here);
    EXPECT_STREQ(e.what(), "bad thing");
    EXPECT_EQ(e.GetLineNumber(), 120u);
    EXPECT_EQ(err.GetText(), located + "\nbad thing\n"); // printed once, when built
}

TEST(ExceptionFatal, EndsTheProgramWithExitCodeOne)
{
    EXPECT_EXIT(Exception("fatal failure", here, true, true), ::testing::ExitedWithCode(1),
                "Exception occurred in \\[KvoSonaJoin.cpp:120  'void kvo::SonaJoin::Process\\(\\)'\\] :\nfatal failure");
}

// ---------------------------------------------------------------------------------------
// The exceptions:: classes

TEST_F(ExceptionTest, FileExceptionsQuoteThePath)
{
    const File file("/tmp/my folder/a.wav");
    EXPECT_EQ(exceptions::NoSuchFile(file, here).GetMessage(), "Could not find file \"/tmp/my folder/a.wav\"");
    EXPECT_EQ(exceptions::ErrorWritingFile(file, here).GetMessage(), "Error writing file \"/tmp/my folder/a.wav\"");
    EXPECT_EQ(exceptions::UnsupportedFile(file, here).GetMessage(),
              "Could not open file \"/tmp/my folder/a.wav\". Unsupported format?");
    EXPECT_EQ(exceptions::Unknown(here).GetMessage(), "Unknown exception");
}

} // namespace
} // namespace kvo
