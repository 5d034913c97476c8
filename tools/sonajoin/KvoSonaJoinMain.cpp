// sonajoin: appends several audio files, in list order, into one new file.

#include <sstream>

#include "audiofiles/KvoAudioFilesUtilities.h"
#include "core/KvoReportLine.h"
#include "shell/KvoCommandLineParser.h"
#include "shell/KvoConsoleText.h"
#include "shell/KvoLibraryStartup.h"
#include "shell/KvoSonaJoin.h"

namespace
{

kvo::String composeHelpHeader(const kvo::String& name)
{
    const std::string tool = name.GetStdString();
    std::ostringstream text;
    text << '"' << tool << '"' << " joins several audio files into one single file\n"
         << "\n"
         << "supported audio formats include : " << kvo::GetSupportedFormats(", ").GetStdString() << "\n"
         << "\n"
         << kvo::SeparatorLine('=').GetStdString() << "\n"
         << "example(s) : \n"
         << "./" << tool << " -i \"~/Desktop/*.wav\" -d output.wav\n"
         << "./" << tool << " -i \"~/Downloads/*.wav\" -r 1 -d output.wav\n"
         << "./" << tool << " -i \"file1.wav, file2.wav , file3.wav\" -d output.wav \n"
         << "./" << tool << " -i \"/home/files_0?.wav\" -d output.wav\n"
         << kvo::SeparatorLine('=').GetStdString() << "\n";
    return kvo::String(text.str());
}

} // namespace

int main(int argc, char* argv[])
{
    using kvo::CommandLineParser;

    // First built, last gone: the library is started before the banner and stays so.
    const kvo::LibraryStartup libraryStartup;
    kvo::ConsoleTarget = 1;
    kvo::SonaJoin sonaJoin;
    CommandLineParser parser(argc, argv);

    parser.SetDescription(composeHelpHeader(sonaJoin.GetToolName()));
    parser.AddOption("-h | --help", "display help message");
    parser.AddOption("-i | --input", "input file");
    parser.AddOption("-d | --destination", "destination file");
    parser.AddBoolOption("-r | --recursive", "search folders recursively (0 = no / 1 = yes) ", false);

    // The help counts as a failed run, whether asked for or shown for want of options.
    if (parser.IsHelpRequested())
    {
        parser.PrintHelp();
        return 1;
    }

    kvo::String input;
    kvo::String destination;
    bool recursive = false;
    parser.GetValue("-i", input);
    parser.GetBool("-r", recursive);
    parser.GetValue("-d", destination);

    parser.CheckUnrecognized(CommandLineParser::minorError);
    if (parser.HasErrors(CommandLineParser::minorError))
    {
        parser.PrintErrors(CommandLineParser::minorError);
        return 1;
    }

    // The folder search takes 0 for a recursive walk and 1 for a flat one.
    const int recursion = recursive ? 0 : 1;

    try
    {
        sonaJoin.SetInputs(input, recursion);
        sonaJoin.SetDestination(kvo::File(destination));
        sonaJoin.Process();
    }
    catch (...)
    {
        // Every library exception has already printed its own report.
        return 1;
    }
    return 0;
}
