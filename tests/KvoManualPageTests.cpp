// The manual page must document what the program's own help offers: every option and the examples.

#include "KvoTestUtilities.h"

namespace kvo::testing
{
namespace
{

/** Roff escapes every "-" as "\-" and every double quote as "\(dq". */
std::string Roff(const std::string& text)
{
    std::string escaped;
    for (char c : text)
        escaped += c == '-' ? "\\-" : c == '"' ? "\\(dq" : std::string(1, c);
    return escaped;
}

TEST(ManualPage, DocumentsEveryOptionAndExampleOfTheHelp)
{
    const std::string page = ReadWholeFile(KVO_MANUAL_PAGE);
    ASSERT_FALSE(page.empty());
    std::istringstream help(RunSonaJoin({ "-h" }).standardOutput);
    int optionsSeen = 0;
    int examplesSeen = 0;
    for (std::string line; std::getline(help, line);)
    {
        // Option lines read "     -i | --input       : input file", examples "./sonajoin -i ... -d x".
        std::istringstream words(line);
        std::string shortName, bar, longName;
        if (line.rfind("./sonajoin ", 0) == 0) // up to the destination, which the page may vary
        {
            ++examplesSeen;
            const std::string example = line.substr(11, line.find(" -d ") + 4 - 11);
            EXPECT_NE(page.find(Roff(example)), std::string::npos) << "missing from the manual page: " << line;
        }
        if (!(words >> shortName >> bar >> longName) || bar != "|" || shortName.rfind("-", 0) != 0)
            continue;
        ++optionsSeen;
        const std::string documented = ".BR " + Roff(shortName) + " \", \" " + Roff(longName);
        EXPECT_NE(page.find(documented), std::string::npos) << "missing from the manual page: " << line;
    }
    EXPECT_EQ(optionsSeen, 4);
    EXPECT_EQ(examplesSeen, 4);
}

} // namespace
} // namespace kvo::testing
