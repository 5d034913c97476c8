// Joins run through the sonajoin executable, one row each: the inputs, the exit code, the
// console text and the output's exact bytes; and the files that once broke a reader.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "KvoFuzzUtilities.h"
#include "KvoTestUtilities.h"

namespace kvo::testing
{
namespace
{

/** One input file: its shape, a deterministic signal of frames * channels values spread over
    the width's range, and chunks the join must pass over (between fmt and data). */
struct Input
{
    int channels;
    uint32_t rate;
    int bits;
    size_t frames;
    uint32_t seed;
    std::string chunks = "";

    std::vector<int32_t> Samples() const
    {
        std::vector<int32_t> samples(frames * size_t(channels));
        uint32_t state = seed;
        for (int32_t& s : samples)
        {
            state = state * 1664525u + 1013904223u;
            s = int32_t(int64_t(state >> (32 - bits)) - (int64_t(1) << bits) / 2);
        }
        return samples;
    }
};

/** Chunks of every kind the WAV reader parses, a dbmd that passes among them. */
const std::string metadata = Chunk("bext", std::string(602, 'b')) + Chunk("LIST", Z("INFOINAM\x04\0\0\0Name"))
                             + Chunk("cue ", Bytes().U32(1).U32(1).U32(0).Text("data").U64(0).U32(1))
                             + Chunk("dbmd", Bytes().U32(0x01000007).U8(1).U16(2).Text("ab").U8(0x99).U8(0))
                             + Chunk("axml", "<a/>");

const std::map<std::string, Input> inputs = {
    { "s48.wav", { 2, 48000, 16, 1000, 1 } },  { "m.wav", { 1, 44100, 16, 700, 4 } },   { "s.wav", { 2, 44100, 16, 300, 5 } },
    { "w24.wav", { 3, 44100, 24, 100, 6 } },   { "n16.wav", { 3, 48000, 16, 50, 7 } },  { "u8.wav", { 1, 22050, 8, 3, 8 } },
    { "a.wav", { 1, 44100, 16, 100, 9 } },     { "z.wav", { 1, 44100, 16, 0, 0 } },     { "b.wav", { 1, 44100, 16, 100, 10 } },
    { "block.wav", { 1, 44100, 16, 16384, 11 } }, { "long.wav", { 2, 44100, 16, 20000, 12 } },
    { "m8193.wav", { 1, 44100, 16, 8193, 13 } }, { "ten.wav", { 1, 44100, 16, 10, 15 } },
    { "meta.wav", { 1, 44100, 16, 3, 16, metadata } }, { "s24.aif", { 2, 48000, 24, 33, 17 } },
    { "s16.aif", { 2, 44100, 16, 7, 18 } },
};

bool IsAiff(const std::string& name)
{
    return name.find(".aif") != std::string::npos || name.find(".AIF") != std::string::npos;
}

/** PCM bytes of the given width from sample values: WAV's little-endian (8 bits unsigned) or AIFF's big-endian. */
std::string PcmBytes(const std::vector<int32_t>& samples, int bits, bool aiff = false)
{
    std::string bytes;
    for (int32_t s : samples)
        bytes += aiff ? BigEndian(uint32_t(s), bits / 8) : LittleEndian(uint32_t(bits == 8 ? s + 128 : s), bits / 8);
    return bytes;
}

std::string AiffRate(uint32_t rate) { return rate == 44100 ? rate44100 : Z("\x40\x0E\xBB\x80\0\0\0\0\0\0"); }

/** What a join of names into destination makes: the first input's rate and depth, the widest
    channel count, silence above each input's channels. */
std::string JoinedFile(const std::vector<std::string>& names, const std::string& destination = "out.wav")
{
    const Input& first = inputs.at(names[0]);
    int channels = 0;
    for (const std::string& name : names)
        channels = std::max(channels, inputs.at(name).channels);
    std::vector<int32_t> samples;
    for (const std::string& name : names)
    {
        const Input& input = inputs.at(name);
        const std::vector<int32_t> own = input.Samples();
        for (size_t i = 0; i < own.size(); ++i)
        {
            samples.push_back(own[i] * (1 << (first.bits - input.bits)));
            if (int(i % size_t(input.channels)) == input.channels - 1)
                samples.insert(samples.end(), size_t(channels - input.channels), 0);
        }
    }
    const std::string data = PcmBytes(samples, first.bits, IsAiff(destination)) + std::string(samples.size() * size_t(first.bits / 8) % 2, '\0');
    if (IsAiff(destination))
        return AiffWriterHeader(channels, uint32_t(samples.size()) / uint32_t(channels), first.bits, AiffRate(first.rate), uint32_t(data.size())) + data;
    return WavWriterHeader(channels, first.rate, first.bits, samples.size() * size_t(first.bits / 8)) + data;
}

/** Console text with the timings, which vary from run to run, replaced by fixed words. */
std::string WithoutTimings(std::string text)
{
    const auto mask = [&text](const std::string& opening, const std::string& closing, const std::string& words) {
        for (size_t from = text.find(opening); from != std::string::npos; from = text.find(opening, from + 1))
            if (const size_t to = text.find(closing, from + opening.size()); to != std::string::npos)
                text.replace(from + opening.size(), to - from - opening.size(), words);
    };
    mask("(elapsed ", ")", "T | remaining T");
    mask("Finished: ", " msec", "N");
    return text;
}

/** A progress report as WithoutTimings leaves it. */
std::string Progress(int percent) { return "Progress : " + std::to_string(percent) + " %  (elapsed T | remaining T)"; }

class Join : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const auto& [name, i] : inputs)
            WriteWholeFile(folder / name, IsAiff(name) ? Form("AIFF", Comm(i.channels, uint32_t(i.frames), i.bits, AiffRate(i.rate))
                                                                          + Ssnd(PcmBytes(i.Samples(), i.bits, true)))
                                                       : Riff(Chunk("fmt ", Fmt(1, i.channels, int(i.rate), i.bits)) + i.chunks
                                                              + Chunk("data", PcmBytes(i.Samples(), i.bits))));
    }

    /** The console text of a join up to its first input's name. */
    std::string Opening(int numChannels, uint64_t totalNumSamples, const std::string& first) const
    {
        return ExpectedBanner() + "numChannelsForDestination = " + std::to_string(numChannels) + "\ntotalNumSamples = "
               + std::to_string(totalNumSamples) + "\nProgress : 0 % reading file " + InQuotes(folder / first) + "\n";
    }

    std::string Reading(const std::string& name) const { return "reading file " + InQuotes(folder / name) + "\n"; }

    TemporaryFolder folder;
    const std::string output = folder / "out.wav";
    const std::string finished = Progress(100) + "Finished: N msec\n";
};

TEST_F(Join, JoinsOfGoodInputs)
{
    // An empty console text is not looked at.
    struct Case { std::vector<std::string> names; std::string console; std::string destination = "out.wav"; };
    const std::vector<Case> cases = {
        { { "s48.wav" }, Opening(2, 1000, "s48.wav") + finished },
        // Narrow inputs get silence in the upper channels.
        { { "m.wav", "s.wav" }, Opening(2, 1000, "m.wav") + Progress(70) + Reading("s.wav") + finished },
        { { "s.wav", "m.wav" }, Opening(2, 1000, "s.wav") + Progress(30) + Reading("m.wav") + finished },
        // The first input decides rate and depth: 16 bits are carried to 24 exactly, 48 kHz is not resampled.
        { { "w24.wav", "n16.wav" }, "" },
        // 8-bit samples with the pad byte, in folders the join makes.
        { { "u8.wav" }, "", "x/y/out.WAV" },
        // An empty input is read and adds nothing.
        { { "a.wav", "z.wav", "b.wav" }, Opening(1, 200, "a.wav") + Progress(50) + Reading("z.wav") + Reading("b.wav") + finished },
        // Whole blocks leave no short block; long inputs cross block boundaries.
        { { "block.wav" }, Opening(1, 16384, "block.wav") + Progress(50) + finished },
        { { "long.wav", "m8193.wav" }, "" },
        // Metadata is passed over and not carried; AIFF inputs and outputs take the same rules.
        { { "meta.wav", "a.wav" }, "" },
        { { "s24.aif", "s.wav" }, "", "out.AIF" },
        { { "s.wav", "s16.aif" }, "" },
    };
    WriteWholeFile(output, std::string(5000, 'x')); // an existing destination is replaced
    for (const Case& c : cases)
    {
        std::string list = folder / c.names[0];
        for (size_t i = 1; i < c.names.size(); ++i)
            list += (i % 2 == 1 ? "," : ", ") + folder / c.names[i];
        const ProgramRun run = RunSonaJoin({ "-i", list, "-d", folder / c.destination });
        EXPECT_EQ(run.exitCode, 0) << list;
        EXPECT_EQ(run.standardError, "");
        if (!c.console.empty())
        {
            EXPECT_EQ(WithoutTimings(run.standardOutput), c.console);
        }
        EXPECT_EQ(ReadWholeFile(folder / c.destination), JoinedFile(c.names, c.destination)) << list;
    }
}

TEST_F(Join, FailuresAfterTheOutputExistsLeaveACompletePartialFile)
{
    const std::string missing = folder / "missing.wav";
    const std::tuple<std::string, int, std::string> cases[] = {
        { folder / "m8193.wav" + "," + missing, 8193, "\nCould not find file " + InQuotes(missing) + "\n" },
        { folder / "m8193.wav" + ", ," + folder / "m8193.wav", 2 * 8193, "\nCould not find file \"\"\n" },
    };
    for (const auto& [list, total, error] : cases)
    {
        const ProgramRun run = RunSonaJoin({ "-i", list, "-d", output });
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(WithoutTimings(run.standardOutput).substr(0, Opening(1, total, "m8193.wav").size()), Opening(1, total, "m8193.wav"));
        EXPECT_NE(run.standardError.find(error), std::string::npos) << run.standardError;
        EXPECT_EQ(run.standardError.find("Exception occurred"), run.standardError.rfind("Exception occurred"));
        EXPECT_EQ(ReadWholeFile(output), JoinedFile({ "m8193.wav" }));
    }
    const ProgramRun run = RunSonaJoin({ "-i", folder / "ten.wav" + "," + missing, "-d", output });
    EXPECT_EQ(WithoutTimings(run.standardOutput), Opening(1, 10, "ten.wav") + Progress(100) + Reading("missing.wav"));
}

TEST_F(Join, RefusalsBeforeTheOutputExists)
{
    const std::string a = folder / "ten.wav";
    WriteWholeFile(folder / "f64.wav", CanonicalWav(3, 1, 44100, 64, std::string(16, '\0')));
    WriteWholeFile(folder / "noise.wav", "this is not a wav file at all");
    const std::string faultyDbmd = Bytes().U32(0x01000007).U8(9).U16(248).Text(std::string(248, '\0')).U8(0).U8(0);
    WriteWholeFile(folder / "dbmd.wav", Riff(Chunk("fmt ", Fmt(1, 1, 44100, 16)) + Chunk("dbmd", faultyDbmd) + Chunk("data", "")));
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        { folder / "missing.wav", output, "Invalid bits depth : 0" },
        { folder / "f64.wav", output, "Invalid bits depth : 64" },
        { a, folder / "out.wave", "Cannot determine file type " + InQuotes(folder / "out.wave") },
        { a, folder / "out.mp3", "MP3 encoding is not supported. Cannot write file " + InQuotes(folder / "out.mp3") },
        { a + "," + folder / "noise.wav", output, "file " + InQuotes(folder / "noise.wav") + " is not a valid WAV file" },
        { a + "," + folder / "dbmd.wav", output, "invalid checksum" }, // a faulty dbmd chunk stops the join
    };
    for (const auto& [list, destination, message] : cases)
    {
        const ProgramRun run = RunSonaJoin({ "-i", list, "-d", destination });
        EXPECT_EQ(run.exitCode, 1) << message;
        EXPECT_NE(run.standardError.find("\n" + message + "\n"), std::string::npos) << run.standardError;
        EXPECT_FALSE(std::filesystem::exists(destination)) << destination;
        EXPECT_EQ(run.standardOutput.find("reading file"), std::string::npos);
    }
}

// Every file under data/malformed once broke a reader. Each is read through the library the
// way the fuzzers read it, and joined by the tool, which must end with its report, not a signal.

std::vector<std::filesystem::path> MalformedFiles()
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(KVO_TEST_DATA_DIR "/malformed"))
        if (entry.is_regular_file() && entry.path().extension() != ".md")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    EXPECT_FALSE(files.empty()) << "no inputs in data/malformed";
    return files;
}

TEST(MalformedFiles, AreReadSafelyAndRefusedByTheToolWithItsReport)
{
    const int savedTarget = ConsoleTarget;
    TemporaryFolder folder;
    for (const std::filesystem::path& path : MalformedFiles())
    {
        SCOPED_TRACE(path.filename().string());
        std::ifstream stream(path, std::ios::binary);
        const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
        kvo::fuzzing::ReadAsAudioFile(bytes.data(), bytes.size(), path.extension().string());
        ConsoleTarget = savedTarget;

        const ProgramRun run = RunSonaJoin({ "-i", path.string(), "-d", folder / "out.wav" });
        EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 1) << run.exitCode;
        const size_t report = run.standardError.find("Exception occurred in [");
        EXPECT_TRUE(run.exitCode == 0 || report != std::string::npos) << run.standardError;
        EXPECT_EQ(run.standardError.find("Exception occurred in [", report + 1), std::string::npos); // one at most
    }
}

} // namespace
} // namespace kvo::testing
