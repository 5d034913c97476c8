// Cuts arbitrary bytes at zero bytes into a command line and runs the tool's parsing of it.

#include <sstream>
#include <vector>

#include "KvoFuzzUtilities.h"
#include "shell/KvoCommandLineParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kvo::fuzzing::Quiet();
    std::vector<std::string> words { "sonajoin" };
    std::string word;
    for (size_t i = 0; i < size; ++i)
    {
        if (data[i] != 0)
            word.push_back(char(data[i]));
        else
            words.push_back(std::move(word)), word.clear();
    }
    words.push_back(word);
    std::vector<const char*> argv;
    for (const std::string& each : words)
        argv.push_back(each.c_str());

    using kvo::CommandLineParser;
    CommandLineParser parser(int(argv.size()), argv.data());
    parser.SetDescription("fuzzing");
    parser.AddOption("-h | --help", "display help message");
    parser.AddOption("-i | --input", "input file");
    parser.AddOption("-d | --destination", "destination file");
    parser.AddBoolOption("-r | --recursive", "search folders recursively (0 = no / 1 = yes) ", false);

    std::ostringstream console;
    if (parser.IsHelpRequested())
        parser.PrintHelp(console);
    kvo::String input, destination;
    bool recursive = false;
    parser.GetValue("-i", input);
    parser.GetBool("-r", recursive);
    parser.GetValue("-d", destination);
    parser.CheckUnrecognized(CommandLineParser::minorError);
    if (parser.HasErrors(CommandLineParser::minorError))
        parser.PrintErrors(CommandLineParser::minorError, console);
    return 0;
}
