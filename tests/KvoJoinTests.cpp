// Joins run through the sonajoin executable: the output's exact bytes and the console text.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "KvoTestUtilities.h"

namespace kvo::testing
{
namespace
{

std::string le16(uint32_t v)
{
    return LittleEndian(v, 2);
}

std::string le32(uint32_t v)
{
    return LittleEndian(v, 4);
}

/** Interleaved PCM bytes of the given width, little-endian, from sample values. */
std::string pcmBytes(const std::vector<int32_t>& samples, int bits)
{
    std::string bytes;
    for (int32_t s : samples)
        for (int b = 0; b < bits / 8; ++b)
            bytes += static_cast<char>((bits == 8 ? s + 128 : s) >> (8 * b));
    return bytes;
}

/** The 104-byte header of a plain RIFF output: JUNK reserve, 16-byte fmt, data. */
std::string expectedOutputHeader(uint16_t numChannels, uint32_t sampleRate, uint16_t bits, uint32_t dataSize)
{
    const uint32_t blockAlign = numChannels * bits / 8u;
    return "RIFF" + le32(96 + dataSize + (dataSize & 1)) + "WAVE" + "JUNK" + le32(52) + std::string(52, '\0')
           + "fmt " + le32(16) + le16(bits < 32 ? 1 : 3) + le16(numChannels) + le32(sampleRate)
           + le32(sampleRate * blockAlign) + le16(blockAlign) + le16(bits) + "data" + le32(dataSize);
}

/** Deterministic test signal of numSamples values spread over the width's range. */
std::vector<int32_t> signal(size_t numSamples, int bits, uint32_t seed)
{
    std::vector<int32_t> samples(numSamples);
    const int64_t range = int64_t(1) << bits;
    for (int32_t& s : samples)
    {
        seed = seed * 1664525u + 1013904223u;
        s = static_cast<int32_t>(static_cast<int64_t>(seed >> (32 - bits)) - range / 2);
    }
    return samples;
}

/** Spreads mono samples over channel 0 of numChannels, the other channels silent. */
std::vector<int32_t> widened(const std::vector<int32_t>& mono, size_t numChannels)
{
    std::vector<int32_t> frames(mono.size() * numChannels, 0);
    for (size_t i = 0; i < mono.size(); ++i)
        frames[i * numChannels] = mono[i];
    return frames;
}

/** Replaces whatever stands between each opening and the closing text after it. */
std::string masked(std::string text, const std::string& opening, const std::string& closing, const std::string& mask)
{
    for (size_t start = text.find(opening); start != std::string::npos; start = text.find(opening, start + 1))
    {
        const size_t from = start + opening.size();
        const size_t to = text.find(closing, from);
        if (to == std::string::npos)
            break;
        text.replace(from, to - from, mask);
    }
    return text;
}

/** Console text with the timings, which vary from run to run, replaced by fixed words. */
std::string withoutTimings(const std::string& text)
{
    return masked(masked(text, "(elapsed ", ")", "T | remaining T"), "Finished: ", " msec", "N");
}

/** The console text of a join up to its first input's name, timings masked as withoutTimings does. */
std::string opening(int numChannels, uint64_t totalNumSamples, const std::string& first)
{
    return ExpectedBanner() + "numChannelsForDestination = " + std::to_string(numChannels) + "\ntotalNumSamples = "
           + std::to_string(totalNumSamples) + "\nProgress : 0 % reading file " + InQuotes(first) + "\n";
}

/** The expected output of a plain RIFF join: header, samples, pad byte. */
std::string expectedOutput(uint16_t numChannels, uint32_t sampleRate, uint16_t bits, const std::string& data)
{
    std::string bytes = expectedOutputHeader(numChannels, sampleRate, bits, static_cast<uint32_t>(data.size())) + data;
    if (data.size() & 1)
        bytes += '\0';
    return bytes;
}

class Join : public ::testing::Test
{
protected:
    /** Writes a 16-bit PCM input and returns its path. */
    std::string input(const std::string& name, uint16_t numChannels, uint32_t rate, const std::vector<int32_t>& samples,
                      uint16_t bits = 16)
    {
        WriteWholeFile(folder / name, CanonicalWav(1, numChannels, rate, bits, pcmBytes(samples, bits)));
        return folder / name;
    }

    ProgramRun join(const std::string& inputList) { return RunSonaJoin({"-i", inputList, "-d", output}); }

    void expectSuccess(const ProgramRun& run)
    {
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.standardError, "");
    }

    TemporaryFolder folder;
    const std::string output = folder / "out.wav";
};

TEST_F(Join, OneInputReplacesTheDestinationWithACopy)
{
    const std::vector<int32_t> samples = signal(2 * 1000, 16, 1);
    const std::string a = input("a.wav", 2, 48000, samples);
    WriteWholeFile(output, std::string(5000, 'x')); // an existing destination is replaced

    const ProgramRun run = join(a);
    expectSuccess(run);
    EXPECT_EQ(withoutTimings(run.standardOutput), opening(2, 1000, a)
                                                        + "Progress : 100 %  (elapsed T | remaining T)Finished: N msec\n");
    EXPECT_EQ(ReadWholeFile(output), expectedOutput(2, 48000, 16, pcmBytes(samples, 16)));
}

TEST_F(Join, NarrowInputsGetSilenceInTheUpperChannels)
{
    const std::vector<int32_t> mono = signal(700, 16, 4);
    const std::vector<int32_t> stereo = signal(2 * 300, 16, 5);
    const std::string m = input("m.wav", 1, 44100, mono);
    const std::string s = input("s.wav", 2, 44100, stereo);

    for (const bool monoFirst : {true, false})
    {
        const ProgramRun run = join(monoFirst ? m + "," + s : s + ", " + m);
        expectSuccess(run);
        const std::string& first = monoFirst ? m : s;
        const std::string& second = monoFirst ? s : m;
        EXPECT_EQ(withoutTimings(run.standardOutput), opening(2, 1000, first)
                                                            + "Progress : " + (monoFirst ? "70" : "30") + " %  (elapsed T | remaining T)"
                                                            "reading file " + InQuotes(second) + "\n"
                                                            "Progress : 100 %  (elapsed T | remaining T)"
                                                            "Finished: N msec\n");

        const std::string monoPart = pcmBytes(widened(mono, 2), 16);
        const std::string stereoPart = pcmBytes(stereo, 16);
        EXPECT_EQ(ReadWholeFile(output),
                  expectedOutput(2, 44100, 16, monoFirst ? monoPart + stereoPart : stereoPart + monoPart))
            << (monoFirst ? "mono first" : "stereo first");
    }
}

TEST_F(Join, FirstInputDecidesRateAndDepth)
{
    // 24 bits first: the 16-bit input is carried to 24 bits exactly; the 48 kHz input is not resampled.
    const std::vector<int32_t> wide = signal(3 * 100, 24, 6);
    const std::vector<int32_t> narrow = signal(3 * 50, 16, 7);
    const std::string a = input("a.wav", 3, 44100, wide, 24);
    const std::string b = input("b.wav", 3, 48000, narrow, 16);

    const ProgramRun run = join(a + "," + b);
    expectSuccess(run);

    std::vector<int32_t> narrowAs24;
    for (int32_t s : narrow)
        narrowAs24.push_back(s * 256);
    const std::string data = pcmBytes(wide, 24) + pcmBytes(narrowAs24, 24);
    const std::string bytes = ReadWholeFile(output);
    ASSERT_EQ(bytes.size(), 104 + data.size());
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(bytes.substr(4, 4), le32(static_cast<uint32_t>(bytes.size() - 8)));
    EXPECT_EQ(bytes.substr(96, 8), "data" + le32(static_cast<uint32_t>(data.size())));
    EXPECT_EQ(bytes.substr(104), data);
    // Rate and depth are in the fmt fields whatever form the three-channel header takes.
    EXPECT_NE(bytes.substr(0, 104).find(le16(3) + le32(44100) + le32(44100 * 9) + le16(9) + le16(24)),
              std::string::npos);
}

TEST_F(Join, EightBitInputsSurviveExactlyWithThePadByteInANewFolder)
{
    const std::vector<int32_t> samples = signal(3, 8, 8);
    const std::string a = input("a.wav", 1, 22050, samples, 8);
    const std::string nested = folder / "x/y/out.WAV"; // the destination's folders are made

    expectSuccess(RunSonaJoin({"-i", a, "-d", nested}));
    EXPECT_EQ(ReadWholeFile(nested), expectedOutput(1, 22050, 8, pcmBytes(samples, 8)));
    EXPECT_EQ(ReadWholeFile(nested).size(), 108u);
}

TEST_F(Join, EmptyInputIsReadAndAddsNothing)
{
    const std::vector<int32_t> first = signal(100, 16, 9);
    const std::vector<int32_t> last = signal(100, 16, 10);
    const std::string a = input("a.wav", 1, 44100, first);
    const std::string z = input("z.wav", 1, 44100, {});
    const std::string b = input("b.wav", 1, 44100, last);

    const ProgramRun run = join(a + "," + z + "," + b);
    expectSuccess(run);
    EXPECT_EQ(withoutTimings(run.standardOutput), opening(1, 200, a)
                                                        + "Progress : 50 %  (elapsed T | remaining T)"
                                                        "reading file " + InQuotes(z) + "\n"
                                                        "reading file " + InQuotes(b) + "\n"
                                                        "Progress : 100 %  (elapsed T | remaining T)"
                                                        "Finished: N msec\n");
    EXPECT_EQ(ReadWholeFile(output), expectedOutput(1, 44100, 16, pcmBytes(first, 16) + pcmBytes(last, 16)));
}

TEST_F(Join, WholeBlocksLeaveNoShortBlock)
{
    const std::vector<int32_t> samples = signal(2 * 8192, 16, 11);
    const std::string a = input("a.wav", 1, 44100, samples);

    const ProgramRun run = join(a);
    expectSuccess(run);
    EXPECT_EQ(withoutTimings(run.standardOutput), opening(1, 16384, a)
                                                        + "Progress : 50 %  (elapsed T | remaining T)"
                                                          "Progress : 100 %  (elapsed T | remaining T)Finished: N msec\n");
    EXPECT_EQ(ReadWholeFile(output), expectedOutput(1, 44100, 16, pcmBytes(samples, 16)));
}

TEST_F(Join, LongInputsCrossBlockBoundaries)
{
    // Stereo then mono across several blocks and a short last block each.
    const std::vector<int32_t> stereo = signal(2 * 20000, 16, 12);
    const std::vector<int32_t> mono = signal(8193, 16, 13);
    const std::string a = input("a.wav", 2, 44100, stereo);
    const std::string b = input("b.wav", 1, 44100, mono);

    expectSuccess(join(a + "," + b));
    EXPECT_EQ(ReadWholeFile(output),
              expectedOutput(2, 44100, 16, pcmBytes(stereo, 16) + pcmBytes(widened(mono, 2), 16)));
}

TEST_F(Join, MissingSecondInputLeavesACompletePartialFile)
{
    const std::vector<int32_t> samples = signal(1000, 16, 14);
    const std::string a = input("a.wav", 1, 44100, samples);
    const std::string b = folder / "b.wav";

    const ProgramRun run = join(a + "," + b);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(withoutTimings(run.standardOutput), opening(1, 1000, a)
                                                        + "Progress : 100 %  (elapsed T | remaining T)"
                                                        "reading file " + InQuotes(b) + "\n");
    EXPECT_NE(run.standardError.find("\nCould not find file " + InQuotes(b) + "\n"), std::string::npos)
        << run.standardError;
    EXPECT_EQ(run.standardError.find("Exception occurred"), run.standardError.rfind("Exception occurred"));
    EXPECT_EQ(ReadWholeFile(output), expectedOutput(1, 44100, 16, pcmBytes(samples, 16)));
}

TEST_F(Join, EmptyEntryInTheListIsRefusedLikeAMissingFile)
{
    const std::vector<int32_t> samples = signal(10, 16, 15);
    const std::string a = input("a.wav", 1, 44100, samples);

    const ProgramRun run = join(a + ", ," + a);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.standardError.find("Could not find file \"\""), std::string::npos) << run.standardError;
    EXPECT_EQ(ReadWholeFile(output), expectedOutput(1, 44100, 16, pcmBytes(samples, 16)));
}

TEST_F(Join, RefusalsBeforeTheOutputExists)
{
    const std::string a = input("a.wav", 1, 44100, signal(10, 16, 16));
    struct Case
    {
        std::string inputList;
        std::string destination;
        std::string message;
    };
    WriteWholeFile(folder / "f64.wav", CanonicalWav(3, 1, 44100, 64, std::string(16, '\0')));
    WriteWholeFile(folder / "noise.wav", "this is not a wav file at all");
    const std::vector<Case> cases = {
        {folder / "missing.wav", output, "Invalid bits depth : 0"},
        {folder / "f64.wav", output, "Invalid bits depth : 64"},
        {a, folder / "out.wave", "Cannot determine file type " + InQuotes(folder / "out.wave")},
        {a, folder / "out.mp3", "MP3 encoding is not supported. Cannot write file " + InQuotes(folder / "out.mp3")},
        {a + "," + folder / "noise.wav", output, "file " + InQuotes(folder / "noise.wav") + " is not a valid WAV file"},
    };
    for (const Case& c : cases)
    {
        const ProgramRun run = RunSonaJoin({"-i", c.inputList, "-d", c.destination});
        EXPECT_EQ(run.exitCode, 1) << c.message;
        EXPECT_NE(run.standardError.find("\n" + c.message + "\n"), std::string::npos) << run.standardError;
        EXPECT_FALSE(std::filesystem::exists(c.destination)) << c.destination;
        EXPECT_EQ(run.standardOutput.find("reading file"), std::string::npos);
    }
}

TEST_F(Join, MixedAiffAndWavInputsTakeTheFirstInputsRateAndDepth)
{
    // sox's 24-bit 48 kHz stereo noise (33 frames), with its own decoding as 32-bit values.
    const std::string aiff = std::string(KVO_TEST_DATA_DIR) + "/sox-noise-48k-24bit.aiff";
    const std::string raw = ReadWholeFile(std::string(KVO_TEST_DATA_DIR) + "/sox-noise-48k-24bit.s32");
    const std::vector<int32_t> samples = signal(2 * 10, 16, 19);
    const std::string b = input("b.wav", 2, 44100, samples);

    // AIFF out at 24 bits: both inputs are carried exactly, big-endian.
    const std::string aiffOutput = folder / "out.AIF";
    expectSuccess(RunSonaJoin({"-i", aiff + ", " + b, "-d", aiffOutput}));
    std::string data;
    for (size_t i = 0; i + 4 <= raw.size(); i += 4)
        data += std::string{raw[i + 3], raw[i + 2], raw[i + 1]};
    for (int32_t sample : samples)
        data += BigEndian(uint32_t(sample) << 8, 3);
    ASSERT_EQ(data.size(), 43u * 6u);
    EXPECT_EQ(ReadWholeFile(aiffOutput), "FORM" + BigEndian(46 + 258, 4) + "AIFFCOMM" + BigEndian(18, 4) + BigEndian(2, 2)
                                             + BigEndian(43, 4) + BigEndian(24, 2) + std::string("\x40\x0E\xBB\x80", 4)
                                             + std::string(6, '\0') + "SSND" + BigEndian(258 + 8, 4)
                                             + std::string(8, '\0') + data);

    // WAV first: 16 bits at 44.1 kHz, the AIFF input is not resampled.
    expectSuccess(join(b + "," + aiff));
    const std::string bytes = ReadWholeFile(output);
    EXPECT_EQ(bytes.substr(0, 104 + 40), expectedOutputHeader(2, 44100, 16, 43 * 4) + pcmBytes(samples, 16));
    EXPECT_EQ(bytes.size(), 104u + 43u * 4u);
}

} // namespace
} // namespace kvo::testing
