// CommandLineParser: what the parser decides that a run of sonajoin cannot show (which
// occurrence wins, the locals it leaves alone, severities, the help rules and widths).
// The exact console text of sonajoin's own command lines is tested on the executable.

#include "KvoTestUtilities.h"
#include "shell/KvoCommandLineParser.h"

namespace kvo
{
namespace
{

using testing::TripleError;
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
    const char* argv[] = { "prog" };
    CommandLineParser defaultTrue(1, argv);
    defaultTrue.AddBoolOption("-v | --verbose", "talk", true);
    bool value = false;
    defaultTrue.GetBool("--verbose", value);
    EXPECT_TRUE(value);
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

} // namespace
} // namespace kvo
