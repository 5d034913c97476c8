// The manual page must document what the program's own help offers.

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "KvoTestUtilities.h"

namespace kvo::testing
{
namespace
{

std::string readManualPage()
{
    std::ifstream stream(KVO_MANUAL_PAGE);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/** Roff escapes every "-" of an option name as "\-". */
std::string roffOption(const std::string& option)
{
    std::string escaped;
    for (char c : option)
        escaped += c == '-' ? std::string("\\-") : std::string(1, c);
    return escaped;
}

TEST(ManualPage, DocumentsEveryOptionOfTheHelp)
{
    const std::string page = readManualPage();
    ASSERT_FALSE(page.empty());

    const ProgramRun run = RunSonaJoin({ "-h" });
    const std::regex optionLine(R"(^\s+(-\w) \| (--\w+)\s+: )", std::regex::multiline);
    int optionsSeen = 0;
    for (std::sregex_iterator it(run.standardOutput.begin(), run.standardOutput.end(), optionLine), end; it != end;
         ++it)
    {
        ++optionsSeen;
        const std::string documented = ".BR " + roffOption((*it)[1]) + " \", \" " + roffOption((*it)[2]);
        EXPECT_NE(page.find(documented), std::string::npos) << "missing from the manual page: " << (*it)[0];
    }
    EXPECT_EQ(optionsSeen, 4);
}

TEST(ManualPage, ShowsTheHelpExamples)
{
    const std::string page = readManualPage();
    for (const char* example : { "\\-i \\(dq~/Desktop/*.wav\\(dq \\-d output.wav",
                                 "\\-i \\(dq~/Downloads/*.wav\\(dq \\-r 1 \\-d output.wav",
                                 "\\-i \\(dqfile1.wav, file2.wav , file3.wav\\(dq \\-d output.wav" })
        EXPECT_NE(page.find(example), std::string::npos) << example;
}

} // namespace
} // namespace kvo::testing
