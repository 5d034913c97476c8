// The manual page must document what the program's own help offers.


#include "KvoTestUtilities.h"

namespace kvo::testing
{
namespace
{

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
    const std::string page = ReadWholeFile(KVO_MANUAL_PAGE);
    ASSERT_FALSE(page.empty());

    const ProgramRun run = RunSonaJoin({ "-h" });
    std::istringstream help(run.standardOutput);
    int optionsSeen = 0;
    for (std::string line; std::getline(help, line);)
    {
        // Option lines read "     -i | --input       : input file".
        std::istringstream words(line);
        std::string shortName, bar, longName;
        if (!(words >> shortName >> bar >> longName) || bar != "|" || shortName.rfind("-", 0) != 0)
            continue;
        ++optionsSeen;
        const std::string documented = ".BR " + roffOption(shortName) + " \", \" " + roffOption(longName);
        EXPECT_NE(page.find(documented), std::string::npos) << "missing from the manual page: " << line;
    }
    EXPECT_EQ(optionsSeen, 4);
}

TEST(ManualPage, ShowsTheHelpExamples)
{
    const std::string page = ReadWholeFile(KVO_MANUAL_PAGE);
    for (const char* example : { "\\-i \\(dq~/Desktop/*.wav\\(dq \\-d output.wav",
                                 "\\-i \\(dq~/Downloads/*.wav\\(dq \\-r 1 \\-d output.wav",
                                 "\\-i \\(dqfile1.wav, file2.wav , file3.wav\\(dq \\-d output.wav" })
        EXPECT_NE(page.find(example), std::string::npos) << example;
}

} // namespace
} // namespace kvo::testing
