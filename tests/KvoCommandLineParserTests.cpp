// CommandLineParser: option reading, the collected errors and the help text.

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/KvoCommandLineParser.h"

namespace kvo
{
namespace
{

using Severity = CommandLineParser::ErrorSeverity;
const Severity minorError = CommandLineParser::minorError;
const Severity majorError = CommandLineParser::majorError;

const std::string separator(78, '=');

/** A parser over "prog" and arguments, with the four options of sonajoin. */
std::unique_ptr<CommandLineParser> SonaJoinParser(const std::vector<std::string>& arguments)
{
    std::vector<const char*> argv {"prog"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());

    auto parser = std::make_unique<CommandLineParser>(static_cast<int>(argv.size()), argv.data());
    parser->AddOption("-h | --help", "display help message");
    parser->AddOption("-i | --input", "input file");
    parser->AddOption("-d | --destination", "destination file");
    parser->AddBoolOption("-r | --recursive", "search folders recursively (0 = no / 1 = yes) ", false);
    return parser;
}

std::string Errors(const CommandLineParser& parser, Severity minimum = minorError)
{
    std::ostringstream out;
    parser.PrintErrors(minimum, out);
    return out.str();
}

std::string Help(const CommandLineParser& parser)
{
    std::ostringstream out;
    parser.PrintHelp(out);
    return out.str();
}

/** The three listings of one error: as written, blanks removed, blanks as dashes. */
std::string Listed(const std::string& text)
{
    std::string joined;
    std::string dashed;
    for (char c : text)
    {
        if (c != ' ')
            joined += c;
        dashed += c == ' ' ? '-' : c;
    }
    return "Error : " + text + "\nError : " + joined + "\nError : " + dashed + "\n";
}

// ---------------------------------------------------------------------------------------
// Text values

TEST(CommandLineParserValues, AnyAliasFindsTheOptionAndValuesAreTakenAsGiven)
{
    auto parser = SonaJoinParser({"--destination", "-x.wav", " -i ", "a b.wav"});
    String input = "untouched";
    String destination;
    parser->GetValue("-i", input);
    parser->GetValue("--destination", destination);
    EXPECT_EQ(input, "a b.wav");
    EXPECT_EQ(destination, "-x.wav"); // a value may begin with a dash
    parser->CheckUnrecognized(minorError);
    EXPECT_FALSE(parser->HasErrors(minorError));
}

TEST(CommandLineParserValues, RepeatedOptionGivesItsFirstValueAndLeavesTheRest)
{
    auto parser = SonaJoinParser({"-i", "a.wav", "-i", "b.wav", "-x"});
    String first;
    String second;
    parser->GetValue("-i", first);
    parser->CheckUnrecognized(minorError);
    EXPECT_EQ(first, "a.wav");
    EXPECT_EQ(Errors(*parser), Listed("unrecognized option \"-x\""));

    parser->GetValue("--input", second);
    EXPECT_EQ(second, "b.wav");
}

TEST(CommandLineParserValues, MissingValueKeepsTheLocalAndQuotesTheKey)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>> {{"-d", "b.wav", "--input"}, {"--input", "", "-d", "b.wav"}})
    {
        auto parser = SonaJoinParser(arguments);
        String input = "kept";
        parser->GetValue("--input", input);
        EXPECT_EQ(input, "kept");
        EXPECT_EQ(Errors(*parser), Listed("missing argument after \"--input\" option"));
        EXPECT_TRUE(parser->HasErrors(majorError));
    }
}

TEST(CommandLineParserValues, OptionWithoutValueStaysInTheList)
{
    auto parser = SonaJoinParser({"-i", "", "-d", "b.wav"});
    String input;
    String destination;
    parser->GetValue("-i", input);
    parser->GetValue("-d", destination);
    parser->GetValue("-i", input); // the same error is not added twice
    EXPECT_EQ(destination, "b.wav");
    EXPECT_EQ(Errors(*parser), Listed("missing argument after \"-i\" option"));
}

TEST(CommandLineParserValues, MandatoryTextOptionQuotesTheWholeSpecifier)
{
    auto parser = SonaJoinParser({"-r", "1"});
    String input;
    String destination;
    parser->GetValue("-i", input);
    parser->GetValue("--destination", destination);
    EXPECT_EQ(Errors(*parser), Listed("option \"-i | --input\" is mandatory")
                                   + Listed("option \"-d | --destination\" is mandatory"));
    EXPECT_TRUE(parser->HasErrors(majorError));
}

TEST(CommandLineParserValues, BooleanOptionReadAsTextYieldsEmptyText)
{
    auto parser = SonaJoinParser({"-i", "a"});
    String text = "kept";
    parser->GetValue("-r", text);
    EXPECT_EQ(text, "");
    EXPECT_FALSE(parser->HasErrors(minorError));
}

TEST(CommandLineParserValues, OptionsMatchCaseSensitively)
{
    auto parser = SonaJoinParser({"-I", "a.wav", "-d", "b.wav"});
    String input;
    String destination;
    parser->GetValue("-i", input);
    parser->GetValue("-d", destination);
    parser->CheckUnrecognized(minorError);
    EXPECT_EQ(Errors(*parser),
              Listed("option \"-i | --input\" is mandatory") + Listed("unrecognized option \"-I\""));
}

// ---------------------------------------------------------------------------------------
// Boolean values

TEST(CommandLineParserBool, AcceptedSpellings)
{
    const std::vector<std::pair<std::string, bool>> cases {
        {"true", true}, {"TRUE", true}, {"tRuE", true}, {"1", true},
        {"false", false}, {"False", false}, {"FALSE", false}, {"0", false}};
    for (const auto& [text, expected] : cases)
    {
        auto parser = SonaJoinParser({"--recursive", text});
        bool value = !expected;
        parser->GetBool("-r", value);
        EXPECT_EQ(value, expected) << text;
        EXPECT_FALSE(parser->HasErrors(minorError)) << text;
    }
}

TEST(CommandLineParserBool, RefusedValuesLeaveTheLocalAlone)
{
    for (const char* text : {"yes", "no", "2", "01", "00", "-1", "1 ", " true", "truee", "t"})
    {
        for (bool initial : {false, true})
        {
            auto parser = SonaJoinParser({"-r", text, "-i", "a"});
            bool value = initial;
            parser->GetBool("-r", value);
            EXPECT_EQ(value, initial) << text;
            EXPECT_EQ(Errors(*parser), Listed("option \"-r\" must be of type boolean")) << text;
        }
    }
}

TEST(CommandLineParserBool, MissingValueGivesBothErrorsInOrder)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>> {{"-i", "a", "-r"}, {"-r", "", "-i", "a"}})
    {
        auto parser = SonaJoinParser(arguments);
        bool value = true;
        parser->GetBool("--recursive", value);
        EXPECT_TRUE(value);
        EXPECT_EQ(Errors(*parser), Listed("missing argument after \"--recursive\" option")
                                       + Listed("option \"--recursive\" must be of type boolean"));
    }
}

TEST(CommandLineParserBool, AbsentOptionTakesItsDefault)
{
    auto parser = SonaJoinParser({"-i", "a"});
    bool value = true;
    parser->GetBool("-r", value);
    EXPECT_FALSE(value);

    const char* argv[] = {"prog"};
    CommandLineParser defaultTrue(1, argv);
    defaultTrue.AddBoolOption("-v | --verbose", "talk", true);
    value = false;
    defaultTrue.GetBool("--verbose", value);
    EXPECT_TRUE(value);
    EXPECT_FALSE(defaultTrue.HasErrors(minorError));
}

TEST(CommandLineParserBool, MandatoryOptionQuotesTheKeyNotTheSpecifier)
{
    auto parser = SonaJoinParser({"-r", "1"});
    bool value = true;
    parser->GetBool("--destination", value);
    EXPECT_TRUE(value);
    EXPECT_EQ(Errors(*parser), Listed("option \"--destination\" is mandatory"));
}

// ---------------------------------------------------------------------------------------
// Unrecognized arguments and severities

TEST(CommandLineParserUnrecognized, OnlyUnknownDashArgumentsCount)
{
    auto parser = SonaJoinParser({"--input=x.wav", "", "plain", "-d", "-", "-h"});
    parser->CheckUnrecognized(minorError);
    EXPECT_EQ(Errors(*parser), Listed("unrecognized option \"--input=x.wav\"") + Listed("unrecognized option \"-\""));
}

TEST(CommandLineParserUnrecognized, ConsumedArgumentsAreNotSeen)
{
    auto parser = SonaJoinParser({"-i", "-x", "-d", "--out", "-y"});
    String input;
    String destination;
    parser->GetValue("-i", input);
    parser->GetValue("-d", destination);
    parser->CheckUnrecognized(minorError);
    EXPECT_EQ(input, "-x");
    EXPECT_EQ(destination, "--out");
    EXPECT_EQ(Errors(*parser), Listed("unrecognized option \"-y\""));
}

TEST(CommandLineParserUnrecognized, SeverityDecidesWhatCountsAndPrints)
{
    auto parser = SonaJoinParser({"-i", "a", "-d", "b", "-z"});
    parser->CheckUnrecognized(minorError);
    EXPECT_TRUE(parser->HasErrors(minorError));
    EXPECT_FALSE(parser->HasErrors(majorError));
    EXPECT_EQ(Errors(*parser, majorError), "");
    EXPECT_EQ(Errors(*parser, minorError), Listed("unrecognized option \"-z\""));

    auto strict = SonaJoinParser({"-z"});
    strict->CheckUnrecognized(majorError);
    EXPECT_TRUE(strict->HasErrors(majorError));
}

TEST(CommandLineParserUnrecognized, NoErrorsAtFirst)
{
    auto parser = SonaJoinParser({});
    EXPECT_FALSE(parser->HasErrors(minorError));
    EXPECT_EQ(Errors(*parser), "");
}

TEST(CommandLineParserErrors, ListedInOrderOfFirstOccurrence)
{
    auto parser = SonaJoinParser({"-r", "maybe", "-q", "-i"});
    String input;
    String destination;
    bool recursive = false;
    parser->GetValue("-i", input);
    parser->GetBool("-r", recursive);
    parser->GetValue("-d", destination);
    parser->CheckUnrecognized(minorError);
    EXPECT_EQ(Errors(*parser), Listed("missing argument after \"-i\" option")
                                   + Listed("option \"-r\" must be of type boolean")
                                   + Listed("option \"-d | --destination\" is mandatory")
                                   + Listed("unrecognized option \"-q\""));
    EXPECT_EQ(Errors(*parser, majorError), Listed("missing argument after \"-i\" option")
                                          + Listed("option \"-r\" must be of type boolean")
                                          + Listed("option \"-d | --destination\" is mandatory"));
}

// ---------------------------------------------------------------------------------------
// Help

TEST(CommandLineParserHelp, RequestedByEitherHelpAlias)
{
    EXPECT_TRUE(SonaJoinParser({"-i", "a", "-h"})->IsHelpRequested());
    EXPECT_TRUE(SonaJoinParser({"--help", "-d", "b"})->IsHelpRequested());
    EXPECT_TRUE(SonaJoinParser({"-i", "a", " --help "})->IsHelpRequested());
    EXPECT_FALSE(SonaJoinParser({"-i", "a", "-H"})->IsHelpRequested());
}

TEST(CommandLineParserHelp, RequestedWhenNoArgumentBeginsWithADash)
{
    EXPECT_TRUE(SonaJoinParser({})->IsHelpRequested());
    EXPECT_TRUE(SonaJoinParser({"foo", "bar"})->IsHelpRequested());
    EXPECT_TRUE(SonaJoinParser({""})->IsHelpRequested());
    EXPECT_FALSE(SonaJoinParser({"foo", "-x"})->IsHelpRequested());
    EXPECT_FALSE(SonaJoinParser({"-i", "a"})->IsHelpRequested());
}

TEST(CommandLineParserHelp, NotRequestedWithoutAMandatoryOption)
{
    const char* argv[] = {"prog", "plain"};

    CommandLineParser single(2, argv);
    single.AddOption("-i | --input", "input file");
    EXPECT_FALSE(single.IsHelpRequested()); // fewer than two options

    CommandLineParser optional(2, argv);
    optional.AddOption("-h | --help", "display help message");
    optional.AddBoolOption("-r", "recurse", false);
    EXPECT_FALSE(optional.IsHelpRequested()); // "-h" itself does not count

    const char* helpArgv[] = {"prog", "-h"};
    CommandLineParser unregistered(2, helpArgv);
    unregistered.AddOption("-i", "input");
    unregistered.AddOption("-d", "destination");
    EXPECT_FALSE(unregistered.IsHelpRequested()); // "-h" is only known once registered
}

TEST(CommandLineParserHelp, SonaJoinOptionBlock)
{
    auto parser = SonaJoinParser({});
    parser->SetDescription("first\n");
    parser->SetDescription("second");
    EXPECT_EQ(Help(*parser), "first\nsecond\n" + separator + "\ncommand line options : \n"
                                 "     -h | --help        : display help message\n"
                                 "     -i | --input       : input file\n"
                                 "     -d | --destination : destination file\n"
                                 "     -r | --recursive   : search folders recursively (0 = no / 1 = yes). "
                                 "Default = \"false\"\n"
                                 + separator + "\n");
}

TEST(CommandLineParserHelp, WidthFullStopsAndDefaults)
{
    const char* argv[] = {"prog"};
    CommandLineParser parser(1, argv);
    parser.AddOption("-a", "plain text  ");
    parser.AddBoolOption("-b", "ends in a stop.", true);
    parser.AddBoolOption("-c", "stop then blank. ", false);
    parser.AddBoolOption("-e", "no stop", true);
    EXPECT_EQ(Help(parser), separator + "\ncommand line options : \n"
                                "     -a     : plain text\n"
                                "     -b     : ends in a stop. Default = \"true\"\n"
                                "     -c     : stop then blank.. Default = \"false\"\n"
                                "     -e     : no stop. Default = \"true\"\n"
                                + separator + "\n");
}

} // namespace
} // namespace kvo
