// The reader and writer framework: format detection, the factories and their refusals,
// the metadata record, and the sample transfer of the two base classes.

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "audiofiles/KvoAudioFilesMetadata.h"
#include "audiofiles/KvoAudioFilesUtilities.h"
#include "core/KvoException.h"
#include "core/KvoReportLine.h"

namespace kvo::testing
{
namespace
{

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::string le16(uint16_t v)
{
    return {static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
}

std::string le32(uint32_t v)
{
    return le16(static_cast<uint16_t>(v & 0xFFFF)) + le16(static_cast<uint16_t>(v >> 16));
}

/** A canonical 16-bit PCM WAV: 44-byte header and numFrames frames of zeros. */
std::string canonicalWav(uint16_t numChannels, uint32_t sampleRate, uint32_t numFrames)
{
    const uint32_t dataBytes = numFrames * numChannels * 2;
    return "RIFF" + le32(36 + dataBytes) + "WAVE" + "fmt " + le32(16) + le16(1) + le16(numChannels)
           + le32(sampleRate) + le32(sampleRate * numChannels * 2) + le16(static_cast<uint16_t>(numChannels * 2))
           + le16(16) + "data" + le32(dataBytes) + std::string(dataBytes, '\0');
}

/** The message of the Exception that action throws, or a marker when it throws none. */
template <typename Action>
std::string thrownMessage(Action&& action)
{
    try
    {
        action();
    }
    catch (const Exception& e)
    {
        return e.GetMessage().GetStdString();
    }
    return "<nothing thrown>";
}

std::string quoted(const std::string& path)
{
    return "\"" + path + "\"";
}

/** Keeps the exception reports these tests provoke off the console. */
class AudioFramework : public ::testing::Test
{
protected:
    void SetUp() override { ConsoleTarget = 0; }
    void TearDown() override { ConsoleTarget = 1; }

    File make(const std::string& name, const std::string& bytes)
    {
        writeFile(folder / name, bytes);
        return File(String(folder / name));
    }

    TemporaryFolder folder;
};

// ---------------------------------------------------------------------------------------
// Format detection

using FormatDetection = AudioFramework;

TEST_F(FormatDetection, ExtensionsIgnoreCaseAndMatchWholeExtensions)
{
    EXPECT_TRUE(HasWavExtension(File(String(folder / "a.WAV"))));
    EXPECT_TRUE(HasAiffExtension(File(String(folder / "a.Aiff"))));
    EXPECT_TRUE(HasAiffExtension(File(String(folder / "a.AIF"))));
    EXPECT_TRUE(HasMp3Extension(File(String(folder / "a.Mp3"))));
    EXPECT_FALSE(HasWavExtension(File(String(folder / "a.wave"))));
    EXPECT_FALSE(HasAiffExtension(File(String(folder / "a.aiffx"))));
    EXPECT_FALSE(HasWavExtension(File(String(folder / "wav"))));

    for (const char* name : {"x.wav", "x.w64", "x.bwf", "x.bw64", "x.amb", "x.uhj"})
        EXPECT_TRUE(HasWavExtension(File(String(folder / name)))) << name;

    const Vector<String> extensions = GetWavExtensions();
    ASSERT_EQ(extensions.GetSize(), 6u);
    const char* expected[] = {".wav", ".w64", ".bwf", ".bw64", ".amb", ".uhj"};
    for (uint64_t i = 0; i < 6; ++i)
        EXPECT_EQ(extensions[i].GetStdString(), expected[i]);

    EXPECT_EQ(GetSupportedFormats(", ").GetStdString(), "WAV File, AIFF File, MP3 File");
}

TEST_F(FormatDetection, ContentDecidesBeforeTheName)
{
    EXPECT_EQ(GetFileType(make("x.mp3", "RIFF....")).GetStdString(), "WAV File");
    EXPECT_EQ(GetFileType(make("x.wav", "FORM....")).GetStdString(), "AIFF File");
    EXPECT_EQ(GetFileType(make("x.aif", "RF64....")).GetStdString(), "WAV File");
    EXPECT_EQ(GetFileType(make("x.dat", "BW64")).GetStdString(), "WAV File");
    // The magics are case-sensitive: Wave64's "riff" and a lower-case "form" are no magic.
    EXPECT_EQ(GetFileType(make("w.dat", "riff....")).GetStdString(), "unknown");
    EXPECT_EQ(GetFileType(make("w.w64", "riff....")).GetStdString(), "WAV File");
    EXPECT_EQ(GetFileType(make("f.dat", "form....")).GetStdString(), "unknown");

    EXPECT_TRUE(IsWavFile(make("y.mp3", "RIFF")));
    EXPECT_FALSE(IsMp3File(make("z.mp3", "RIFF")));
    EXPECT_TRUE(IsAiffFile(make("y.wav", "FORM")));
}

TEST_F(FormatDetection, NameDecidesWhenTheContentSaysNothing)
{
    EXPECT_EQ(GetFileType(make("a.aiff", "junk")).GetStdString(), "AIFF File");
    EXPECT_EQ(GetFileType(make("a.wav", "")).GetStdString(), "WAV File");
    EXPECT_EQ(GetFileType(make("a.mp3", "ID3\x04")).GetStdString(), "MP3 File");
    EXPECT_EQ(GetFileType(make("short.dat", "RI")).GetStdString(), "unknown");
    EXPECT_EQ(GetFileType(make("a.wave", "data")).GetStdString(), "unknown");

    // Missing files and folders are named, not read, and raise nothing.
    EXPECT_EQ(GetFileType(File(String(folder / "missing.wav"))).GetStdString(), "WAV File");
    EXPECT_EQ(GetFileType(File(String(folder / "missing.dat"))).GetStdString(), "unknown");
    EXPECT_EQ(GetFileType(File(String(folder.GetPath()))).GetStdString(), "unknown");
}

TEST_F(FormatDetection, ReaderFactoryOpensByContent)
{
    const File mp3Named = make("x.mp3", canonicalWav(2, 48000, 10));
    const ScopedPointer<AudioFileReader> reader = AudioFileReader::CreateReaderFor(mp3Named);
    ASSERT_NE(reader.get(), nullptr);
    EXPECT_EQ(reader->getMetadata().formatName.GetStdString(), "WAV File");
    EXPECT_EQ(reader->getNumChannels(), 2u);
    EXPECT_EQ(reader->getNumSamples(), 10u);
    EXPECT_TRUE(reader->isValid());
}

TEST_F(FormatDetection, ReaderFactoryRefusals)
{
    EXPECT_EQ(AudioFileReader::CreateReaderFor(File()).get(), nullptr);

    const std::string missing = folder / "missing.wav";
    EXPECT_EQ(thrownMessage([&] { AudioFileReader::CreateReaderFor(File(String(missing))); }),
              "Could not find file " + quoted(missing));
    EXPECT_EQ(thrownMessage([&] { AudioFileReader::CreateReaderFor(File(String(folder.GetPath()))); }),
              "Could not find file " + quoted(folder.GetPath()));

    const std::string wave64 = folder / "x.dat";
    make("x.dat", "riff\x2e\x91\xcf\x11\xa5\xd6\x28\xdb\x04"); // Wave64's first GUID
    EXPECT_EQ(thrownMessage([&] { AudioFileReader::CreateReaderFor(File(String(wave64))); }),
              "File " + quoted(wave64) + " is not a valid audio file (?)");

    const std::string empty = folder / "empty.wav";
    make("empty.wav", "");
    EXPECT_EQ(thrownMessage([&] { AudioFileReader::CreateReaderFor(File(String(empty))); }),
              "file " + quoted(empty) + " is not a valid WAV file");

    const std::string aiff = folder / "x.wav";
    make("x.wav", std::string("FORM\0\0\0\x04" "AIFF", 12));
    EXPECT_EQ(thrownMessage([&] { AudioFileReader::CreateReaderFor(File(String(aiff))); }),
              "file " + quoted(aiff) + " is not a valid AIFF file");

    const std::string mp3 = folder / "x.mp3";
    make("x.mp3", "not really");
    EXPECT_EQ(thrownMessage([&] { AudioFileReader::CreateReaderFor(File(String(mp3))); }),
              "file " + quoted(mp3) + " is not a valid MP3 file");
}

TEST_F(FormatDetection, MetadataForMissingFilesIsTheDefaultRecord)
{
    const AudioFilesMetadata missing = GetMetadataFor(File(String(folder / "missing.wav")));
    EXPECT_EQ(missing.formatName.GetStdString(), "unknown");
    EXPECT_EQ(missing.bitsPerSample, 0u);
    EXPECT_EQ(missing.numChannels, 0u);
    EXPECT_EQ(GetMetadataFor(File()).sampleRate, 0.0);

    const AudioFilesMetadata wav = GetMetadataFor(make("a.wav", canonicalWav(1, 22050, 7)));
    EXPECT_EQ(wav.formatName.GetStdString(), "WAV File");
    EXPECT_EQ(wav.sampleRate, 22050.0);
    EXPECT_EQ(wav.bitsPerSample, 16u);
    EXPECT_EQ(wav.numSamples, 7u);
    EXPECT_EQ(wav.numChannels, 1u);
}

// ---------------------------------------------------------------------------------------
// Writer factory

/** A writer that records what the framework hands to the format layer. */
class RecordingWriter : public AudioFileWriter
{
public:
    RecordingWriter(const File& file, unsigned int numChannels, bool isFloat)
        : AudioFileWriter(file, 44100.0, numChannels, isFloat ? 32 : 16), received(numChannels)
    {
        metadata.formatName = "WAV File";
        metadata.isFloat = isFloat;
    }

    using AudioFileWriter::checkDepthAndRate;

    String getDefaultExtension() const override { return ".test"; }
    bool hasFailed() const { return writeFailed; }

    std::vector<uint64_t> blockSizes;
    std::vector<std::vector<int>> received;
    bool allNullTerminated = true;
    int failOnCall = 0; // 0: never

protected:
    bool writeRawSamples(int** channels, uint64_t numSamples) override
    {
        blockSizes.push_back(numSamples);
        allNullTerminated = allNullTerminated && channels[metadata.numChannels] == nullptr;
        for (uint32_t c = 0; c < metadata.numChannels; ++c)
            received[c].insert(received[c].end(), channels[c], channels[c] + numSamples);
        return static_cast<int>(blockSizes.size()) != failOnCall;
    }

    void writeHeader() override {}
};

TEST_F(AudioFramework, DepthsAreEightToThirtyTwoInStepsOfEight)
{
    for (int bits = -40; bits <= 72; ++bits)
    {
        const std::string message = thrownMessage([&] { RecordingWriter::checkDepthAndRate(44100.0, bits); });
        if (bits == 8 || bits == 16 || bits == 24 || bits == 32)
            EXPECT_EQ(message, "<nothing thrown>") << bits;
        else
            EXPECT_EQ(message, "Invalid bits depth : " + std::to_string(bits));
    }
}

TEST_F(AudioFramework, RatesCountByTheirIntegerPart)
{
    for (double rate : {44100.0, 48000.0, 96000.0, 4410.0, 8820.0, 11025.0, 22050.0, 32000.0, 88200.0, 176400.0,
                        192000.0, 352800.0, 384000.0, 768000.0, 44100.7, 48000.999})
        EXPECT_EQ(thrownMessage([&] { RecordingWriter::checkDepthAndRate(rate, 16); }), "<nothing thrown>") << rate;

    EXPECT_EQ(thrownMessage([] { RecordingWriter::checkDepthAndRate(8000.0, 16); }), "Invalid samplerate : 8000.0");
    EXPECT_EQ(thrownMessage([] { RecordingWriter::checkDepthAndRate(44099.99, 16); }),
              "Invalid samplerate : " + FromDouble(44099.99).GetStdString());
    for (double rate : {16000.0, 24000.0, 0.0, -44100.0, std::numeric_limits<double>::quiet_NaN(),
                        std::numeric_limits<double>::infinity()})
        EXPECT_NE(thrownMessage([&] { RecordingWriter::checkDepthAndRate(rate, 16); }), "<nothing thrown>") << rate;

    // The depth is checked first.
    EXPECT_EQ(thrownMessage([] { RecordingWriter::checkDepthAndRate(8000.0, 64); }), "Invalid bits depth : 64");
}

TEST_F(AudioFramework, WriterFactoryDispatchesByExtension)
{
    const Overwrite replace(1);
    EXPECT_EQ(AudioFileWriter::CreateWriterFor(File(), 44100.0, 2, 16, replace).get(), nullptr);

    const std::string wave = folder / "a.wave";
    EXPECT_EQ(thrownMessage([&] { AudioFileWriter::CreateWriterFor(File(String(wave)), 44100.0, 2, 16, replace); }),
              "Cannot determine file type " + quoted(wave));
    const std::string mp3 = folder / "a.MP3";
    EXPECT_EQ(thrownMessage([&] { AudioFileWriter::CreateWriterFor(File(String(mp3)), 44100.0, 2, 16, replace); }),
              "MP3 encoding is not supported. Cannot write file " + quoted(mp3));
    for (const std::string& path : {wave, mp3})
        EXPECT_FALSE(std::filesystem::exists(path)) << path;

    {
        const ScopedPointer<AudioFileWriter> writer =
            AudioFileWriter::CreateWriterFor(File(String(folder / "a.AIFF")), 44100.0, 2, 16, replace);
        ASSERT_NE(writer.get(), nullptr);
        EXPECT_EQ(writer->getMetadata().formatName.GetStdString(), "AIFF File");
    }
    EXPECT_EQ(readFile(folder / "a.AIFF").substr(0, 4), "FORM");

    const std::string depth = folder / "d.wav";
    EXPECT_EQ(thrownMessage([&] { AudioFileWriter::CreateWriterFor(File(String(depth)), 44100.0, 2, 64, replace); }),
              "Invalid bits depth : 64");

    {
        const ScopedPointer<AudioFileWriter> writer =
            AudioFileWriter::CreateWriterFor(File(String(folder / "x.W64")), 44100.7, 1, 24, replace);
        ASSERT_NE(writer.get(), nullptr);
        EXPECT_EQ(writer->getMetadata().formatName.GetStdString(), "WAV File");
    }
    EXPECT_EQ(readFile(folder / "x.W64").substr(0, 4), "RIFF"); // no Wave64 form on output
}

TEST_F(AudioFramework, RefusedRateLeavesAnExistingDestination)
{
    const File existing = make("keep.wav", "precious");
    EXPECT_EQ(thrownMessage([&] { AudioFileWriter::CreateWriterFor(existing, 8000.0, 2, 16, Overwrite(1)); }),
              "Invalid samplerate : 8000.0");
    EXPECT_EQ(readFile(folder / "keep.wav"), "precious");
}

TEST_F(AudioFramework, UnmakeableParentFolderGivesNoWriter)
{
    make("plain", "a file where a folder should be");
    const File below(String(folder / "plain/sub/out.wav"));
    EXPECT_EQ(AudioFileWriter::CreateWriterFor(below, 44100.0, 2, 16, Overwrite(1)).get(), nullptr);
}

// ---------------------------------------------------------------------------------------
// writeSamples

/** Channel c, frame f: ((f mod 256) + 256 c - 256) / 1024. */
void fillRamp(AudioBuffer<float>& buffer)
{
    for (uint32_t c = 0; c < buffer.GetNumChannels(); ++c)
        for (uint64_t i = 0; i < buffer.GetNumSamples(); ++i)
            buffer.GetWritePointer(c)[i] = static_cast<float>((i % 256) + 256 * c) / 1024.0f - 0.25f;
}

/** The fixed-point value of a ramp sample: exact, since the ramp is in steps of 2^-10. */
int rampFixed(uint32_t channel, uint64_t frame)
{
    return (static_cast<int>(frame % 256) + 256 * static_cast<int>(channel) - 256) << 21;
}

TEST_F(AudioFramework, FixedPointWritesGoInBlocksOf8192Frames)
{
    RecordingWriter writer(File(String(folder / "w.wav")), 2, false);
    AudioBuffer<float> buffer(2, 20000);
    fillRamp(buffer);

    EXPECT_TRUE(writer.writeSamples(buffer, 100, 19900, false));
    EXPECT_EQ(writer.blockSizes, (std::vector<uint64_t> {8192, 8192, 3516}));
    EXPECT_TRUE(writer.allNullTerminated);
    for (uint32_t c = 0; c < 2; ++c)
    {
        ASSERT_EQ(writer.received[c].size(), 19900u);
        for (uint64_t i = 0; i < 19900; ++i)
            ASSERT_EQ(writer.received[c][i], rampFixed(c, i + 100)) << c << " " << i;
    }

    writer.blockSizes.clear();
    EXPECT_TRUE(writer.writeSamples(buffer, 0, 16384, false)); // an exact multiple: no short block
    EXPECT_EQ(writer.blockSizes, (std::vector<uint64_t> {8192, 8192}));
    EXPECT_TRUE(writer.writeSamples(buffer, 0, 0, true));
    EXPECT_EQ(writer.blockSizes.size(), 2u);
}

TEST_F(AudioFramework, FixedPointWritesClipAtFullScale)
{
    RecordingWriter writer(File(String(folder / "w.wav")), 1, false);
    AudioBuffer<float> buffer(1, 5);
    const float samples[] = {1.0f, -1.0f, 1.5f, -7.0f, 0.5f};
    std::copy(std::begin(samples), std::end(samples), buffer.GetWritePointer(0));

    EXPECT_TRUE(writer.writeSamples(buffer, 0, 5, false));
    EXPECT_EQ(writer.received[0], (std::vector<int> {INT_MAX, INT_MIN, INT_MAX, INT_MIN, 1 << 30}));
}

TEST_F(AudioFramework, FloatWritesPassTheBitsInOneCall)
{
    RecordingWriter writer(File(String(folder / "f.wav")), 2, true);
    AudioBuffer<float> buffer(2, 20000);
    buffer.GetWritePointer(0)[10] = 1.5f;
    buffer.GetWritePointer(1)[19999] = -3.25f;

    EXPECT_TRUE(writer.writeSamples(buffer, 10, 19990, false));
    EXPECT_EQ(writer.blockSizes, (std::vector<uint64_t> {19990}));
    EXPECT_TRUE(writer.allNullTerminated);
    EXPECT_EQ(writer.received[0][0], std::bit_cast<int>(1.5f)); // unclipped
    EXPECT_EQ(writer.received[1][19989], std::bit_cast<int>(-3.25f));
}

TEST_F(AudioFramework, AFailedBlockLatchesTheWriter)
{
    RecordingWriter writer(File(String(folder / "w.wav")), 1, false);
    writer.failOnCall = 2;
    AudioBuffer<float> buffer(1, 30000);
    fillRamp(buffer);

    // The loop runs on after the failure, but nothing more reaches the format.
    EXPECT_FALSE(writer.writeSamples(buffer, 0, 30000, false));
    EXPECT_EQ(writer.blockSizes, (std::vector<uint64_t> {8192, 8192}));
    EXPECT_TRUE(writer.hasFailed());

    EXPECT_FALSE(writer.writeSamples(buffer, 0, 10, false));
    const std::string path = folder / "w.wav";
    EXPECT_EQ(thrownMessage([&] { writer.writeSamples(buffer, 0, 10, true); }), "Error writing file " + quoted(path));
    EXPECT_EQ(writer.blockSizes.size(), 2u);
}

TEST_F(AudioFramework, WritesBeyondTheBufferAreRefused)
{
    RecordingWriter writer(File(String(folder / "w.wav")), 2, false);
    const AudioBuffer<float> mono(1, 100);
    const AudioBuffer<float> stereo(2, 100);
    EXPECT_FALSE(writer.writeSamples(mono, 0, 10, false));
    EXPECT_FALSE(writer.writeSamples(stereo, 50, 51, false));
    EXPECT_FALSE(writer.writeSamples(stereo, 101, 1, false));
    EXPECT_TRUE(writer.blockSizes.empty());
    EXPECT_FALSE(writer.hasFailed());
    EXPECT_TRUE(writer.writeSamples(stereo, 50, 50, false));
}

// ---------------------------------------------------------------------------------------
// readSamples

/** A reader whose frames are computed: channel c, frame f holds ((c + 1) * 1000 + f) << 16. */
class ComputedReader : public AudioFileReader
{
public:
    ComputedReader(const File& file, uint32_t numChannels, bool isFloat) : AudioFileReader(file)
    {
        metadata.formatName = "WAV File";
        metadata.sampleRate = 44100.0;
        metadata.bitsPerSample = isFloat ? 32 : 16;
        metadata.numChannels = numChannels;
        metadata.numSamples = 100000;
        metadata.isFloat = isFloat;
    }

    static int frameValue(uint32_t channel, uint64_t frame)
    {
        return (static_cast<int>(channel + 1) * 1000 + static_cast<int>(frame)) << 16;
    }

    String getDefaultExtension() const override { return ".test"; }
    AudioFilesMetadata& record() { return metadata; }

    int calls = 0;
    bool succeed = true;

protected:
    bool readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile) override
    {
        ++calls;
        for (uint32_t c = 0; c < metadata.numChannels; ++c)
            for (uint64_t i = 0; i < numSamples; ++i)
            {
                const int value = frameValue(c, startSampleInFile + i);
                channels[c][i] = metadata.isFloat ? std::bit_cast<int>(static_cast<float>(value)) : value;
            }
        return succeed;
    }
};

TEST_F(AudioFramework, ReadsConvertFixedPointToFloat)
{
    ComputedReader reader(make("r.wav", ""), 2, false);
    AudioBuffer<float> buffer(3, 64);
    buffer.GetWritePointer(2)[5] = 0.75f;
    buffer.SetClearFlag(true);

    ASSERT_TRUE(reader.readSamples(buffer, 4, 60, 1000));
    EXPECT_FALSE(buffer.IsClear());
    EXPECT_EQ(buffer.GetReadPointer(0)[3], 0.0f); // before startInBuffer
    for (uint64_t i = 0; i < 60; ++i)
    {
        EXPECT_EQ(buffer.GetReadPointer(0)[4 + i], static_cast<float>(1000 + 1000 + i) / 32768.0f);
        EXPECT_EQ(buffer.GetReadPointer(1)[4 + i], static_cast<float>(2000 + 1000 + i) / 32768.0f);
    }
    EXPECT_EQ(buffer.GetReadPointer(2)[5], 0.75f); // a channel the file lacks is left alone
}

TEST_F(AudioFramework, FloatReadsKeepTheBits)
{
    ComputedReader reader(make("r.wav", ""), 1, true);
    AudioBuffer<float> buffer(1, 8);
    ASSERT_TRUE(reader.readSamples(buffer, 0, 8, 3));
    EXPECT_EQ(buffer.GetReadPointer(0)[0], static_cast<float>(ComputedReader::frameValue(0, 3)));
}

TEST_F(AudioFramework, ReadsThatDoNotFitTouchNothing)
{
    ComputedReader reader(make("r.wav", ""), 2, false);
    AudioBuffer<float> narrow(1, 64);
    AudioBuffer<float> wide(2, 64);
    wide.SetClearFlag(true);

    EXPECT_FALSE(reader.readSamples(narrow, 0, 10, 0));
    EXPECT_FALSE(reader.readSamples(wide, 60, 5, 0));
    EXPECT_FALSE(reader.readSamples(wide, 65, 0 + 1, 0));
    EXPECT_TRUE(reader.readSamples(wide, 65, 0, 0)); // nothing asked, nothing checked
    EXPECT_EQ(reader.calls, 0);
    EXPECT_TRUE(wide.IsClear());

    reader.succeed = false;
    EXPECT_FALSE(reader.readSamples(wide, 0, 64, 0));
    EXPECT_EQ(reader.calls, 1);
}

TEST_F(AudioFramework, ValidityNeedsFormatRateDepthAndChannels)
{
    ComputedReader reader(make("r.wav", ""), 1, false);
    reader.record().numSamples = 0;
    EXPECT_TRUE(reader.isValid()); // length is not examined

    reader.record().formatName = "unknown";
    EXPECT_FALSE(reader.isValid());
    reader.record().formatName = "MP3 File";
    reader.record().sampleRate = 0.0;
    EXPECT_FALSE(reader.isValid());
    reader.record().sampleRate = 1.0;
    reader.record().bitsPerSample = 0;
    EXPECT_FALSE(reader.isValid());
    reader.record().bitsPerSample = 8;
    reader.record().numChannels = 0;
    EXPECT_FALSE(reader.isValid());
    reader.record().numChannels = 1;
    EXPECT_TRUE(reader.isValid());
}

// ---------------------------------------------------------------------------------------
// Metadata

TEST(StringDictionary, KeysIgnoreCaseAndKeepTheirFirstSpelling)
{
    StringDictionary table;
    table.set("IART", "first");
    table.set("ICMT", "comment");
    table.set("Iart", "second");
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table.keyAt(0).GetStdString(), "IART");
    EXPECT_EQ(table.valueAt(0).GetStdString(), "second");
    EXPECT_EQ(table.get("iart").GetStdString(), "second");
    EXPECT_EQ(table.keyAt(1).GetStdString(), "ICMT");

    EXPECT_EQ(table.get("IAR", "none").GetStdString(), "none");
    EXPECT_EQ(table.get("IARTX").GetStdString(), "");
    EXPECT_FALSE(table.contains("IAR"));
    EXPECT_EQ(table.size(), 2u); // get does not insert

    table.clear();
    EXPECT_EQ(table.size(), 0u);
    EXPECT_FALSE(table.contains("IART"));
}

TEST(StringDictionary, CaseSensitiveTablesKeepBothSpellings)
{
    StringDictionary table;
    table.setIgnoreCase(false);
    table.set("Title", "a");
    table.set("TITLE", "b");
    table.set("Title", "c");
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table.get("Title").GetStdString(), "c");
    EXPECT_EQ(table.get("TITLE").GetStdString(), "b");
    EXPECT_EQ(table.get("title", "?").GetStdString(), "?");

    const StringDictionary copy(table);
    EXPECT_FALSE(copy.ignoresCase());
    EXPECT_EQ(copy.get("TITLE").GetStdString(), "b");
}

AudioFilesMetadata richRecord()
{
    AudioFilesMetadata record;
    record.sampleRate = 96000.0;
    record.bitsPerSample = 24;
    record.numSamples = 123456789012ull;
    record.numChannels = 6;
    record.isFloat = true;
    record.formatName = "WAV File";
    record.isRf64 = true;
    record.hasBext = true;
    record.isW64 = true;
    record.bextEntries.set("Originator", "kvo");
    record.axmlText = "<adm/>";
    record.listEntries.setIgnoreCase(false);
    record.listEntries.set("INAM", "take 1");
    record.addMarker(3, 44100, "3 verse");
    record.addMarker(65535, 4294967295u, "65535 end");
    return record;
}

void expectRichRecord(const AudioFilesMetadata& record)
{
    EXPECT_EQ(record.sampleRate, 96000.0);
    EXPECT_EQ(record.bitsPerSample, 24u);
    EXPECT_EQ(record.numSamples, 123456789012ull);
    EXPECT_EQ(record.numChannels, 6u);
    EXPECT_TRUE(record.isFloat && record.isRf64 && record.hasBext && record.isW64);
    EXPECT_EQ(record.formatName.GetStdString(), "WAV File");
    EXPECT_EQ(record.bextEntries.get("originator").GetStdString(), "kvo");
    EXPECT_EQ(record.axmlText.GetStdString(), "<adm/>");
    EXPECT_FALSE(record.listEntries.ignoresCase());
    EXPECT_EQ(record.listEntries.get("INAM").GetStdString(), "take 1");
    ASSERT_EQ(record.markers.GetSize(), 2u);
    EXPECT_EQ(record.markers[0]->identifier, 3u);
    EXPECT_EQ(record.markers[0]->position, 44100u);
    EXPECT_EQ(record.markers[0]->label.GetStdString(), "3 verse");
    EXPECT_EQ(record.markers[1]->identifier, 65535u);
    EXPECT_EQ(record.markers[1]->position, 4294967295u);
    EXPECT_EQ(record.markers[1]->label.GetStdString(), "65535 end");
}

TEST(AudioFilesMetadata, DefaultRecord)
{
    const AudioFilesMetadata record;
    EXPECT_EQ(record.sampleRate, 0.0);
    EXPECT_EQ(record.bitsPerSample, 0u);
    EXPECT_EQ(record.numSamples, 0u);
    EXPECT_EQ(record.numChannels, 0u);
    EXPECT_FALSE(record.isFloat || record.isRf64 || record.hasBext || record.isW64);
    EXPECT_EQ(record.formatName.GetStdString(), "unknown");
    EXPECT_TRUE(record.bextEntries.ignoresCase());
    EXPECT_TRUE(record.markers.IsEmpty());
}

TEST(AudioFilesMetadata, CopiesShareNothing)
{
    auto source = std::make_unique<AudioFilesMetadata>(richRecord());
    const AudioFilesMetadata copy(*source);
    EXPECT_NE(copy.markers[0], source->markers[0]);
    source->markers[0]->label = "changed";
    source->bextEntries.set("Originator", "changed");
    source.reset();
    expectRichRecord(copy);
}

TEST(AudioFilesMetadata, AssignmentReplacesTheMarkers)
{
    const AudioFilesMetadata rich = richRecord();
    AudioFilesMetadata target;
    target.addMarker(1, 2, "old");
    target = rich;
    expectRichRecord(target);
    EXPECT_NE(target.markers[1], rich.markers[1]);

    target = target; // self-assignment keeps everything
    expectRichRecord(target);

    target = AudioFilesMetadata();
    EXPECT_TRUE(target.markers.IsEmpty());
    EXPECT_EQ(target.formatName.GetStdString(), "unknown");
    expectRichRecord(rich);
}

// ---------------------------------------------------------------------------------------
// Sample copies

TEST(CopyWithGain, UnitGainsAreExact)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float source[] = {0.5f, -0.0f, nan, 3.0f};
    float destination[5] = {9, 9, 9, 9, 9};

    CopyWithGain(destination, source, 1.0f, 4);
    EXPECT_EQ(std::bit_cast<uint32_t>(destination[1]), 0x80000000u);
    EXPECT_TRUE(std::isnan(destination[2]));
    EXPECT_EQ(destination[4], 9.0f);

    CopyWithGain(destination, source, -1.0f, 4);
    EXPECT_EQ(destination[0], -0.5f);
    EXPECT_EQ(std::bit_cast<uint32_t>(destination[1]), 0u);
    EXPECT_EQ(std::bit_cast<uint32_t>(destination[2]), std::bit_cast<uint32_t>(nan) ^ 0x80000000u);

    CopyWithGain(destination, source, 0.0f, 4); // zeros, even where the source is NaN
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(std::bit_cast<uint32_t>(destination[i]), 0u) << i;

    CopyWithGain(destination, source, 0.5f, 4);
    EXPECT_EQ(destination[3], 1.5f);
    CopyWithGain(destination, source, 2.0f, 0);
    EXPECT_EQ(destination[3], 1.5f);

    ClearSamples(destination, 2);
    EXPECT_EQ(destination[1], 0.0f);
    EXPECT_EQ(destination[3], 1.5f);
}

} // namespace
} // namespace kvo::testing
