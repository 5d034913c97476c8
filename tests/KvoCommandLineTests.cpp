// The command line. CommandLineParser: what the parser decides that a run of sonajoin cannot
// show (which occurrence wins, the locals it leaves alone, severities, the help rules and
// widths). Then end-to-end runs of the sonajoin executable that join nothing: help, option
// errors and patterns that match nothing, with their exact console text and exit codes; and
// the manual page against the help.

#include <filesystem>

#include "KvoTestUtilities.h"
#include "shell/KvoCommandLineParser.h"
#include "shell/KvoSonaJoin.h"

namespace kvo::testing
{
namespace
{

const CommandLineParser::ErrorSeverity minorError = CommandLineParser::minorError;
const CommandLineParser::ErrorSeverity majorError = CommandLineParser::majorError;

/** A parser over "prog" and arguments, with the four options of sonajoin. */
std::unique_ptr<CommandLineParser> SonaJoinParser(const std::vector<std::string>& arguments)
{
    std::vector<const char*> argv{"prog"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());

    auto parser = std::make_unique<CommandLineParser>(static_cast<int>(argv.size()), argv.data());
    parser->AddOption("-h | --help", "display help message");
    parser->AddOption("-i | --input", "input file");
    parser->AddOption("-d | --destination", "destination file");
    parser->AddBoolOption("-r | --recursive", "search folders recursively (0 = no / 1 = yes) ", false);
    return parser;
}

std::string Errors(const CommandLineParser& parser, CommandLineParser::ErrorSeverity minimum = minorError)
{
    std::ostringstream out;
    parser.PrintErrors(minimum, out);
    return out.str();
}

TEST(CommandLineParserValues, FirstOccurrenceWinsAndFailedReadsKeepTheLocal)
{
    auto parser = SonaJoinParser({"-i", "-x.wav", "--input", "b.wav", "-d", "a b.wav", "-y", "--input=c"});
    String first, second, destination;
    parser->GetValue("--input", first);
    parser->GetValue("-d", destination);
    parser->CheckUnrecognized(minorError);
    EXPECT_EQ(first, "-x.wav"); // a value may begin with a dash
    EXPECT_EQ(destination, "a b.wav");
    EXPECT_EQ(Errors(*parser), TripleError("unrecognized option \"-y\"") + TripleError("unrecognized option \"--input=c\""));
    // Unknown options are minor errors here: they count and show only from that severity down.
    EXPECT_TRUE(parser->HasErrors(minorError) && !parser->HasErrors(majorError));
    EXPECT_EQ(Errors(*parser, majorError), "");
    parser->GetValue("-i", second); // the next occurrence is still there to be taken
    EXPECT_EQ(second, "b.wav");

    auto failing = SonaJoinParser({"-i", "", "-z"});
    String input = "kept", text = "kept";
    bool flag = true;
    failing->GetValue("-i", input);
    failing->GetValue("-i", input); // the same error is not added twice
    failing->GetBool("--destination", flag);
    failing->GetValue("-r", text); // an absent boolean option read as text yields empty text
    failing->GetValue("-d", input);
    EXPECT_TRUE(input == "kept" && flag && text == "");
    // A text option names its whole specifier, a boolean one the key it was asked by; errors
    // are listed in order of first occurrence.
    failing->CheckUnrecognized(majorError);
    EXPECT_EQ(Errors(*failing, majorError), TripleError("missing argument after \"-i\" option")
                                                + TripleError("option \"--destination\" is mandatory")
                                                + TripleError("option \"-d | --destination\" is mandatory")
                                                + TripleError("unrecognized option \"-z\""));
}

TEST(CommandLineParserBool, AcceptedAndRefusedSpellings)
{
    // 1 and 0: read as true and false; -1: refused, and the local keeps its value.
    for (const auto& [text, value] : std::vector<std::pair<std::string, int>> {
             { "true", 1 }, { "tRuE", 1 }, { "1", 1 }, { "False", 0 }, { "0", 0 },
             { "yes", -1 }, { "00", -1 }, { "1 ", -1 }, { " true", -1 }, { "t", -1 } })
    {
        auto parser = SonaJoinParser({ "--recursive", text, "-i", "a" });
        bool read = value != 1;
        parser->GetBool("-r", read);
        EXPECT_EQ(read, value != 0) << text;
        EXPECT_EQ(Errors(*parser), value < 0 ? TripleError("option \"-r\" must be of type boolean") : "") << text;
    }
}

TEST(CommandLineParserHelp, WhenRequested)
{
    EXPECT_TRUE(SonaJoinParser({"-i", "a", " --help "})->IsHelpRequested());
    EXPECT_FALSE(SonaJoinParser({"-i", "a", "-H"})->IsHelpRequested());
    EXPECT_TRUE(SonaJoinParser({"foo", "bar"})->IsHelpRequested()); // no argument begins with a dash
    EXPECT_FALSE(SonaJoinParser({"foo", "-x"})->IsHelpRequested());

    const char* argv[] = {"prog", "plain"};
    CommandLineParser single(2, argv);
    single.AddOption("-i | --input", "input file");
    EXPECT_FALSE(single.IsHelpRequested()); // fewer than two options
    CommandLineParser optional(2, argv);
    optional.AddOption("-h | --help", "display help message");
    optional.AddBoolOption("-r", "recurse", false);
    EXPECT_FALSE(optional.IsHelpRequested()); // "-h" itself does not count as mandatory

    const char* helpArgv[] = {"prog", "-h"};
    CommandLineParser unregistered(2, helpArgv);
    unregistered.AddOption("-i", "input");
    unregistered.AddOption("-d", "destination");
    EXPECT_FALSE(unregistered.IsHelpRequested()); // "-h" is only known once registered
}

TEST(CommandLineParserHelp, WidthFullStopsAndDefaults)
{
    const char* argv[] = {"prog"};
    CommandLineParser parser(1, argv);
    parser.SetDescription("first\n");
    parser.SetDescription("second");
    parser.AddOption("-a", "plain text  ");
    parser.AddBoolOption("-b", "ends in a stop.", true);
    parser.AddBoolOption("-c", "stop then blank. ", false);
    parser.AddBoolOption("-e", "no stop", true);
    bool value = false;
    parser.GetBool("-e", value); // an absent boolean option takes its default
    EXPECT_TRUE(value);
    std::ostringstream help;
    parser.PrintHelp(help);
    const std::string separator(78, '=');
    EXPECT_EQ(help.str(), "first\nsecond\n" + separator + "\ncommand line options : \n"
                              "     -a     : plain text\n"
                              "     -b     : ends in a stop. Default = \"true\"\n"
                              "     -c     : stop then blank.. Default = \"false\"\n"
                              "     -e     : no stop. Default = \"true\"\n"
                              + separator + "\n");
}

const std::string separator(78, '=');
const std::string help = "\"sonajoin\" joins several audio files into one single file\n\n"
                         "supported audio formats include : WAV File, AIFF File, MP3 File\n\n" + separator + "\n"
                         "example(s) : \n"
                         "./sonajoin -i \"~/Desktop/*.wav\" -d output.wav\n"
                         "./sonajoin -i \"~/Downloads/*.wav\" -r 1 -d output.wav\n"
                         "./sonajoin -i \"file1.wav, file2.wav , file3.wav\" -d output.wav \n"
                         "./sonajoin -i \"/home/files_0?.wav\" -d output.wav\n" + separator + "\n\n" + separator + "\n"
                         "command line options : \n"
                         "     -h | --help        : display help message\n"
                         "     -i | --input       : input file\n"
                         "     -d | --destination : destination file\n"
                         "     -r | --recursive   : search folders recursively (0 = no / 1 = yes). Default = \"false\"\n"
                         + separator + "\n";

TEST(SonaJoinOptions, HelpAndOptionErrors)
{
    const std::string missingInput = TripleError("option \"-i | --input\" is mandatory");
    const std::string missingDestination = TripleError("option \"-d | --destination\" is mandatory");
    const std::string notBoolean = TripleError("option \"-r\" must be of type boolean");
    const std::string missingValue = TripleError("missing argument after \"-r\" option");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        // Help for no arguments, plain words, and the help option anywhere.
        { {}, help }, { { "foo" }, help }, { { "" }, help }, { { "-h", "-i", "a.wav", "-d", "b.wav" }, help }, { { "-i", "a.wav", "--help" }, help },
        { { "-i", "a.wav" }, missingDestination }, { { "-d", "out.wav" }, missingInput }, { { "-r", "1" }, missingInput + missingDestination },
        { { "-i", "a.wav", "-r", "yes", "-d", "b.wav" }, notBoolean }, { { "-i", "a.wav", "-r", "2", "-d", "b.wav" }, notBoolean },
        { { "-i", "a.wav", "-r", "01", "-d", "b.wav" }, notBoolean }, { { "-i", "a.wav", "-r", "-1", "-d", "b.wav" }, notBoolean },
        { { "-i", "a.wav", "-r", "truee", "-d", "b.wav" }, notBoolean },
        { { "-i", "a.wav", "-d", "b.wav", "-r" }, missingValue + notBoolean }, { { "-i", "a.wav", "-r", "", "-d", "b.wav" }, missingValue + notBoolean },
        { { "-d", "b.wav", "-i" }, TripleError("missing argument after \"-i\" option") },
        { { "-i", "a.wav", "-d" }, TripleError("missing argument after \"-d\" option") },
        { { "-i", "", "-d", "b.wav" }, TripleError("missing argument after \"-i\" option") },
        { { "--input=x.wav", "-d", "b.wav" }, missingInput + TripleError("unrecognized option \"--input=x.wav\"") },
        { { "-i", "a.wav", "-d", "b.wav", "-x", "-y" }, TripleError("unrecognized option \"-x\"") + TripleError("unrecognized option \"-y\"") },
    };
    for (const auto& [arguments, afterBanner] : cases)
    {
        const ProgramRun run = RunSonaJoin(arguments);
        EXPECT_EQ(run.standardOutput, ExpectedBanner() + afterBanner) << ::testing::PrintToString(arguments);
        EXPECT_EQ(run.standardError, "");
        EXPECT_EQ(run.exitCode, 1);
    }

    // An input named without a destination is not touched.
    TemporaryFolder folder;
    WriteWholeFile(folder / "a.wav", "not audio");
    const auto before = std::filesystem::last_write_time(folder / "a.wav");
    EXPECT_EQ(RunSonaJoin({ "-i", folder / "a.wav" }).standardOutput, ExpectedBanner() + missingDestination);
    EXPECT_EQ(std::filesystem::last_write_time(folder / "a.wav"), before);
    EXPECT_EQ(ReadWholeFile(folder / "a.wav"), "not audio");
}

TEST(SonaJoinOptions, PatternThatMatchesNothingJoinsNothingAndSucceeds)
{
    TemporaryFolder folder;
    WriteWholeFile(folder / "a.wav", "x");
    // Long option names and a stray word are accepted as well.
    for (const char* input : { "*.none", "nowhere/*.wav", "~/nowhere-at-all/*.wav" })
    {
        const ProgramRun run = RunSonaJoin({ "--input", input, "stray", "--destination", "out.wav" }, folder.GetPath());
        EXPECT_EQ(run.standardOutput, ExpectedBanner()) << input;
        EXPECT_EQ(run.standardError, "");
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_FALSE(std::filesystem::exists(folder / "out.wav"));
    }
}

TEST(SonaJoinSetup, InputsExpandAndReplaceEachOther)
{
    TemporaryFolder folder;
    const std::string base = RealPath(folder.GetPath());
    std::filesystem::create_directory(base + "/sub");
    WriteWholeFile(base + "/b.wav", "x");
    WriteWholeFile(base + "/sub/a.wav", "x");
    const auto inputs = [&](const std::string& list, int recursion) {
        SonaJoin tool;
        tool.SetInputs(list.c_str(), recursion);
        std::string paths;
        for (const File& file : tool.GetInputFiles())
            paths += file.GetFullPath().GetStdString().substr(base.size() + 1) + " ";
        return paths;
    };
    StreamCapture out(std::cout); // the banner
    EXPECT_EQ(inputs(base + "/*.wav", 0), "b.wav sub/a.wav ");
    EXPECT_EQ(inputs(base + "/*.wav", 1), "b.wav ");
    EXPECT_EQ(inputs(base + "/z.wav, " + base + "/sub", 1), "z.wav "); // a folder is dropped
    EXPECT_EQ(inputs(base + "/sub/*.aif", 0), "");

    SonaJoin tool;
    tool.SetInputs((base + "/*.wav").c_str(), 0);
    tool.SetInputs((base + "/sub/*.aif").c_str(), 0); // the second list replaces the first
    EXPECT_TRUE(tool.GetInputFiles().empty());
    tool.SetDestination(File((base + "/out//x.wav").c_str()));
    EXPECT_EQ(tool.GetDestination().GetFullPath().GetStdString(), base + "/out/x.wav");
    EXPECT_FALSE(tool.GetDestination().Exists());
}

// The manual page must document what the program's own help offers: every option and the examples.

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
    std::istringstream lines(help); // the program's help, as the option tests pin it
    int optionsSeen = 0;
    int examplesSeen = 0;
    for (std::string line; std::getline(lines, line);)
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
