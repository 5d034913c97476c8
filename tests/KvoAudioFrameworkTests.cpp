// The reader and writer framework: format detection, the factories and their refusals,
// the metadata record, and the sample transfer of the two base classes.

#include <bit>
#include <climits>
#include <cmath>
#include <limits>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "audiofiles/KvoAudioFilesMetadata.h"
#include "audiofiles/KvoAudioFilesUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "core/KvoException.h"
#include "core/KvoReportLine.h"

namespace kvo::testing
{
namespace
{

/** Keeps the exception reports these tests provoke off the console. */
class AudioFramework : public AudioFileTest
{
protected:
    File make(const std::string& name, const std::string& bytes) { return Write(bytes, name); }

    const ScopedConsoleTarget quiet;
};

using FormatDetection = AudioFramework;

TEST_F(FormatDetection, ExtensionsIgnoreCaseAndMatchWholeExtensions)
{
    for (const auto& [name, wav, aiff, mp3] :
         { std::tuple { "x.WAV", true, false, false }, { "x.w64", true, false, false }, { "x.bwf", true, false, false },
           { "x.bw64", true, false, false }, { "x.amb", true, false, false }, { "x.uhj", true, false, false },
           { "a.Aiff", false, true, false }, { "a.AIF", false, true, false }, { "a.Mp3", false, false, true },
           { "a.wave", false, false, false }, { "a.aiffx", false, false, false }, { "wav", false, false, false } })
    {
        const File file(String(folder / name));
        EXPECT_EQ(std::tuple(HasWavExtension(file), HasAiffExtension(file), HasMp3Extension(file)), std::tuple(wav, aiff, mp3)) << name;
    }
    EXPECT_EQ(GetWavExtensions().GetSize(), 6u);
    EXPECT_EQ(GetSupportedFormats(", ").GetStdString(), "WAV File, AIFF File, MP3 File");
}

TEST_F(FormatDetection, ContentDecidesBeforeTheName)
{
    const std::vector<std::tuple<const char*, std::string, const char*>> cases = {
        {"x.mp3", "RIFF....", "WAV File"},
        {"x.wav", "FORM....", "AIFF File"},
        {"x.aif", "RF64....", "WAV File"},
        {"x.dat", "BW64", "WAV File"},
        // The magics are case-sensitive: Wave64's "riff" and a lower-case "form" are no magic.
        {"w.dat", "riff....", "unknown"},
        {"w.w64", "riff....", "WAV File"},
        {"f.dat", "form....", "unknown"},
        // Without a magic the name decides.
        {"a.aiff", "junk", "AIFF File"},
        {"a.wav", "", "WAV File"},
        {"a.mp3", "ID3\x04", "MP3 File"},
        {"short.dat", "RI", "unknown"},
        {"a.wave", "data", "unknown"},
    };
    for (const auto& [name, bytes, type] : cases)
        EXPECT_EQ(GetFileType(make(name, bytes)).GetStdString(), type) << name;
    EXPECT_FALSE(IsMp3File(make("z.mp3", "RIFF")));

    // Missing files and folders are named, not read, and raise nothing.
    EXPECT_EQ(GetFileType(File(String(folder / "missing.wav"))).GetStdString(), "WAV File");
    EXPECT_EQ(GetFileType(File(String(folder.GetPath()))).GetStdString(), "unknown");

    // The reader factory and the metadata open by content too.
    const ScopedPointer<AudioFileReader> reader = AudioFileReader::CreateReaderFor(make("x.mp3", CanonicalWav(1, 2, 48000, 16, std::string(40, '\0'))));
    ASSERT_NE(reader.get(), nullptr);
    EXPECT_EQ(reader->getNumSamples(), 10u);

    const AudioFilesMetadata wav = GetMetadataFor(make("a.wav", CanonicalWav(1, 1, 22050, 16, std::string(14, '\0'))));
    EXPECT_EQ(wav.sampleRate, 22050.0);
    EXPECT_EQ(wav.bitsPerSample, 16u);
    EXPECT_EQ(wav.numSamples, 7u);
    EXPECT_EQ(wav.numChannels, 1u);
    const AudioFilesMetadata missing = GetMetadataFor(File(String(folder / "missing.wav")));
    EXPECT_EQ(missing.formatName.GetStdString(), "unknown");
    EXPECT_EQ(missing.bitsPerSample, 0u);
}

TEST_F(FormatDetection, ReaderFactoryRefusals)
{
    EXPECT_EQ(AudioFileReader::CreateReaderFor(File()).get(), nullptr);
    make("w64.dat", "riff\x2e\x91\xcf\x11\xa5\xd6\x28\xdb\x04"); // Wave64's first GUID
    make("empty.wav", "");
    make("x.wav", std::string("FORM\0\0\0\x04" "AIFF", 12));
    make("x.mp3", "not really");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {folder / "missing.wav", "Could not find file %"},
        {folder.GetPath(), "Could not find file %"},
        {folder / "w64.dat", "File % is not a valid audio file (?)"},
        {folder / "empty.wav", "file % is not a valid WAV file"},
        {folder / "x.wav", "file % is not a valid AIFF file"},
        {folder / "x.mp3", "file % is not a valid MP3 file"},
    };
    for (const auto& [path, message] : cases)
    {
        std::string expected = message;
        expected.replace(expected.find('%'), 1, InQuotes(path));
        EXPECT_EQ(MessageOf([&] { AudioFileReader::CreateReaderFor(File(String(path))); }), expected);
    }
}

/** A writer that records what the framework hands to the format layer. */
class RecordingWriter : public AudioFileWriter
{
public:
    RecordingWriter(const File& destination, unsigned int numChannels, bool isFloat)
        : AudioFileWriter(destination, 44100.0, numChannels, isFloat ? 32 : 16), received(numChannels)
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

TEST_F(AudioFramework, DepthsAreEightToThirtyTwoInStepsOfEightAndRatesCountByTheirIntegerPart)
{
    for (int bits = -40; bits <= 72; ++bits)
        EXPECT_EQ(MessageOf([&] { RecordingWriter::checkDepthAndRate(44100.0, bits); }),
                  bits > 0 && bits <= 32 && bits % 8 == 0 ? "(no exception)" : "Invalid bits depth : " + std::to_string(bits));

    for (double rate : {44100.0, 48000.0, 96000.0, 4410.0, 8820.0, 11025.0, 22050.0, 32000.0, 88200.0, 176400.0,
                        192000.0, 352800.0, 384000.0, 768000.0, 44100.7, 48000.999})
        EXPECT_EQ(MessageOf([&] { RecordingWriter::checkDepthAndRate(rate, 16); }), "(no exception)") << rate;

    EXPECT_EQ(MessageOf([] { RecordingWriter::checkDepthAndRate(8000.0, 16); }), "Invalid samplerate : 8000.0");
    EXPECT_EQ(MessageOf([] { RecordingWriter::checkDepthAndRate(44099.99, 16); }),
              "Invalid samplerate : " + FromDouble(44099.99).GetStdString());
    for (double rate : {16000.0, 24000.0, 0.0, -44100.0, std::numeric_limits<double>::quiet_NaN(),
                        std::numeric_limits<double>::infinity()})
        EXPECT_NE(MessageOf([&] { RecordingWriter::checkDepthAndRate(rate, 16); }), "(no exception)") << rate;

    // The depth is checked first.
    EXPECT_EQ(MessageOf([] { RecordingWriter::checkDepthAndRate(8000.0, 64); }), "Invalid bits depth : 64");
}

// The ".wave" and ".mp3" refusals are tested on whole joins, which must leave no file.
TEST_F(AudioFramework, WriterFactoryDispatchesByExtensionAndRefusesBeforeTouchingAnything)
{
    const Overwrite replace(1);
    EXPECT_EQ(AudioFileWriter::CreateWriterFor(File(), 44100.0, 2, 16, replace).get(), nullptr);
    AudioFileWriter::CreateWriterFor(File(String(folder / "a.AIFF")), 44100.0, 2, 16, replace).reset();
    EXPECT_EQ(ReadWholeFile(folder / "a.AIFF").substr(0, 4), "FORM");
    AudioFileWriter::CreateWriterFor(File(String(folder / "x.W64")), 44100.7, 1, 24, replace).reset();
    EXPECT_EQ(ReadWholeFile(folder / "x.W64").substr(0, 4), "RIFF"); // no Wave64 form on output

    const File existing = make("keep.wav", "precious");
    EXPECT_EQ(MessageOf([&] { AudioFileWriter::CreateWriterFor(existing, 8000.0, 2, 16, replace); }),
              "Invalid samplerate : 8000.0");
    EXPECT_EQ(ReadWholeFile(folder / "keep.wav"), "precious");
    make("plain", "a file where a folder should be");
    EXPECT_EQ(AudioFileWriter::CreateWriterFor(File(String(folder / "plain/sub/out.wav")), 44100.0, 2, 16, replace).get(),
              nullptr);
}

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

TEST_F(AudioFramework, FixedPointWritesGoInBlocksOf8192FramesAndFloatsInOneCall)
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

    // Floats go in one call, unclipped.
    RecordingWriter floats(File(String(folder / "f.wav")), 2, true);
    buffer.GetWritePointer(0)[10] = 1.5f;
    buffer.GetWritePointer(1)[19999] = -3.25f;
    EXPECT_TRUE(floats.writeSamples(buffer, 10, 19990, false));
    EXPECT_EQ(floats.blockSizes, (std::vector<uint64_t> {19990}));
    EXPECT_TRUE(floats.allNullTerminated);
    EXPECT_EQ(floats.received[0][0], std::bit_cast<int>(1.5f));
    EXPECT_EQ(floats.received[1][19989], std::bit_cast<int>(-3.25f));
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
    EXPECT_EQ(MessageOf([&] { writer.writeSamples(buffer, 0, 10, true); }), "Error writing file " + InQuotes(path));
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

TEST_F(AudioFramework, ReadsLandAtTheirOffsetAndThoseThatDoNotFitTouchNothing)
{
    const auto reader = Open<WavFileReader>(CanonicalWav(1, 2, 44100, 16, Pcm16({ 1, 2, 3, 4, 5, 6 })));
    AudioBuffer<float> buffer(3, 8);
    buffer.GetWritePointer(2)[5] = 0.75f;
    buffer.SetClearFlag(true);
    ASSERT_TRUE(reader->readSamples(buffer, 4, 2, 1));
    EXPECT_FALSE(buffer.IsClear());
    EXPECT_EQ(std::vector<float>(buffer.GetReadPointer(0) + 3, buffer.GetReadPointer(0) + 6),
              (std::vector<float> { 0.0f, 3 / 32768.0f, 5 / 32768.0f }));
    EXPECT_EQ(buffer.GetReadPointer(1)[5], 6 / 32768.0f);
    EXPECT_EQ(buffer.GetReadPointer(2)[5], 0.75f); // a channel the file lacks is left alone

    AudioBuffer<float> narrow(1, 64);
    AudioBuffer<float> wide(2, 64);
    wide.SetClearFlag(true);
    EXPECT_FALSE(reader->readSamples(narrow, 0, 10, 0));
    EXPECT_FALSE(reader->readSamples(wide, 60, 5, 0));
    EXPECT_FALSE(reader->readSamples(wide, 65, 1, 0));
    EXPECT_TRUE(reader->readSamples(wide, 65, 0, 0)); // nothing asked, nothing checked
    EXPECT_TRUE(wide.IsClear());
}

TEST(StringDictionary, KeysIgnoreCaseOnRequestAndKeepTheirFirstSpelling)
{
    StringDictionary table;
    table.set("IART", "first");
    table.set("ICMT", "comment");
    table.set("Iart", "second");
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table.keyAt(0).GetStdString(), "IART");
    EXPECT_EQ(table.get("iart").GetStdString(), "second");
    EXPECT_EQ(table.get("IAR", "none").GetStdString(), "none");
    EXPECT_EQ(table.size(), 2u); // get does not insert
    EXPECT_TRUE(table.contains("iart") && table.contains("ICMT") && !table.contains("IAR"));

    StringDictionary exact;
    exact.setIgnoreCase(false);
    exact.set("Title", "a");
    exact.set("TITLE", "b");
    EXPECT_TRUE(table.ignoresCase() && !exact.ignoresCase());
    const StringDictionary copy(exact);
    EXPECT_EQ(copy.size(), 2u);
    EXPECT_EQ(copy.get("title", "?").GetStdString(), "?");
}

TEST(AudioFilesMetadata, CopiesAndAssignmentsShareNoMarkers)
{
    const std::string markers = "3@44100:3 verse 65535@4294967295:65535 end ";
    auto source = std::make_unique<AudioFilesMetadata>();
    source->addMarker(3, 44100, "3 verse");
    source->addMarker(65535, 4294967295u, "65535 end");
    AudioFilesMetadata copy(*source);
    source->markers[0]->label = "changed";
    source.reset();
    EXPECT_EQ(DescribeMarkers(copy), markers);

    AudioFilesMetadata target;
    target.addMarker(1, 2, "old");
    target = copy;
    target = target; // self-assignment keeps everything
    copy.markers[1]->label = "changed";
    EXPECT_EQ(DescribeMarkers(target), markers);
    target = AudioFilesMetadata();
    EXPECT_TRUE(target.markers.IsEmpty());
}

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
