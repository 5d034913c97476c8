// End-to-end runs of the sonajoin executable: exact console text and exit codes.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "KvoStreamCapture.h"
#include "KvoTestUtilities.h"
#include "files/KvoFile.h"
#include "shell/KvoSonaJoin.h"

namespace kvo::testing
{
namespace
{

const std::string separator(78, '=');

std::string expectedHelp()
{
    return "\"sonajoin\" joins several audio files into one single file\n"
           "\n"
           "supported audio formats include : WAV File, AIFF File, MP3 File\n"
           "\n"
           + separator + "\n"
           "example(s) : \n"
           "./sonajoin -i \"~/Desktop/*.wav\" -d output.wav\n"
           "./sonajoin -i \"~/Downloads/*.wav\" -r 1 -d output.wav\n"
           "./sonajoin -i \"file1.wav, file2.wav , file3.wav\" -d output.wav \n"
           "./sonajoin -i \"/home/files_0?.wav\" -d output.wav\n"
           + separator + "\n"
           "\n"
           + separator + "\n"
           "command line options : \n"
           "     -h | --help        : display help message\n"
           "     -i | --input       : input file\n"
           "     -d | --destination : destination file\n"
           "     -r | --recursive   : search folders recursively (0 = no / 1 = yes). Default = \"false\"\n"
           + separator + "\n";
}

const std::string missingInput = TripleError("option \"-i | --input\" is mandatory");
const std::string missingDestination = TripleError("option \"-d | --destination\" is mandatory");

void expectRun(const std::vector<std::string>& arguments, const std::string& afterBanner, int exitCode)
{
    const ProgramRun run = RunSonaJoin(arguments);
    EXPECT_EQ(run.standardOutput, ExpectedBanner() + afterBanner);
    EXPECT_EQ(run.standardError, "");
    EXPECT_EQ(run.exitCode, exitCode);
}

TEST(SonaJoinHelp, ShownForNoArgumentsPlainWordsAndHelpOption)
{
    expectRun({}, expectedHelp(), 1);
    expectRun({"foo"}, expectedHelp(), 1);
    expectRun({""}, expectedHelp(), 1);
    expectRun({"-h", "-i", "a.wav", "-d", "b.wav"}, expectedHelp(), 1);
    expectRun({"-i", "a.wav", "--help"}, expectedHelp(), 1);
}

TEST(SonaJoinOptionErrors, MissingMandatoryOptions)
{
    expectRun({"-i", "a.wav"}, missingDestination, 1);
    expectRun({"-d", "out.wav"}, missingInput, 1);
    expectRun({"-r", "1"}, missingInput + missingDestination, 1);
}

TEST(SonaJoinOptionErrors, MissingInputIsNotTouched)
{
    TemporaryFolder folder;
    const std::string input = folder / "a.wav";
    std::ofstream(input) << "not audio";
    const auto before = std::filesystem::last_write_time(input);

    const ProgramRun run = RunSonaJoin({"-i", input});
    EXPECT_EQ(run.standardOutput, ExpectedBanner() + missingDestination);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(std::filesystem::last_write_time(input), before);
    EXPECT_EQ(std::filesystem::file_size(input), 9u);
}

TEST(SonaJoinOptionErrors, BooleanValues)
{
    const std::string notBoolean = TripleError("option \"-r\" must be of type boolean");
    for (const char* value : {"yes", "2", "01", "-1", "truee"})
        expectRun({"-i", "a.wav", "-r", value, "-d", "b.wav"}, notBoolean, 1);

    const std::string missingValue = TripleError("missing argument after \"-r\" option");
    expectRun({"-i", "a.wav", "-d", "b.wav", "-r"}, missingValue + notBoolean, 1);
    expectRun({"-i", "a.wav", "-r", "", "-d", "b.wav"}, missingValue + notBoolean, 1);
}

TEST(SonaJoinOptionErrors, MissingValues)
{
    expectRun({"-d", "b.wav", "-i"}, TripleError("missing argument after \"-i\" option"), 1);
    expectRun({"-i", "a.wav", "-d"}, TripleError("missing argument after \"-d\" option"), 1);
    expectRun({"-i", "", "-d", "b.wav"}, TripleError("missing argument after \"-i\" option"), 1);
}

TEST(SonaJoinOptionErrors, UnrecognizedOptions)
{
    expectRun({"--input=x.wav", "-d", "b.wav"},
              missingInput + TripleError("unrecognized option \"--input=x.wav\""), 1);
    expectRun({"-i", "a.wav", "-d", "b.wav", "-x", "-y"},
              TripleError("unrecognized option \"-x\"") + TripleError("unrecognized option \"-y\""), 1);
}

TEST(SonaJoinOptions, PatternThatMatchesNothingJoinsNothingAndSucceeds)
{
    TemporaryFolder folder;
    std::ofstream(folder / "a.wav") << "x";
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

/** The paths of the tool's input list, relative to base. */
std::vector<std::string> inputsBelow(const SonaJoin& tool, const std::string& base)
{
    std::vector<std::string> paths;
    for (const File& file : tool.GetInputFiles())
        paths.push_back(file.GetFullPath().GetStdString().substr(base.size() + 1));
    return paths;
}

TEST(SonaJoinSetup, InputsExpandAndReplaceEachOther)
{
    TemporaryFolder folder;
    const std::string base = RealPath(folder.GetPath());
    std::filesystem::create_directory(base + "/sub");
    std::ofstream(base + "/b.wav") << "x";
    std::ofstream(base + "/sub/a.wav") << "x";

    StreamCapture out(std::cout); // the banner
    SonaJoin tool;
    tool.SetInputs((base + "/*.wav").c_str(), 0);
    EXPECT_EQ(inputsBelow(tool, base), (std::vector<std::string> { "b.wav", "sub/a.wav" }));
    tool.SetInputs((base + "/*.wav").c_str(), 1);
    EXPECT_EQ(inputsBelow(tool, base), (std::vector<std::string> { "b.wav" }));
    tool.SetInputs((base + "/z.wav, " + base + "/sub").c_str(), 1);
    EXPECT_EQ(inputsBelow(tool, base), (std::vector<std::string> { "z.wav" })); // a folder is dropped
    tool.SetInputs((base + "/sub/*.aif").c_str(), 0);
    EXPECT_TRUE(tool.GetInputFiles().empty());

    tool.SetDestination(File((base + "/out//x.wav").c_str()));
    EXPECT_EQ(tool.GetDestination().GetFullPath().GetStdString(), base + "/out/x.wav");
    EXPECT_FALSE(tool.GetDestination().Exists());
}

} // namespace
} // namespace kvo::testing
