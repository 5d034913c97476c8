// MP3FileReader and its Layer III decoder: frame headers and side information built bit by
// bit, decodes of lame's files compared with mpg123's (see data/mp3/make_fixtures.sh), the
// reader's length arithmetic, reads past the end and seeks, and damaged input.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoFuzzUtilities.h"
#include "KvoMp3Reference.h"
#include "KvoTestUtilities.h"
#include "KvoWavTestFiles.h"
#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoMP3FileReader.h"
#include "audiofiles/KvoMp3Frame.h"
#include "audiofiles/KvoMp3LayerIII.h"
#include "audiofiles/KvoMp3Tables.h"
#include "audiofiles/KvoWavFileReader.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"

namespace kvo
{
namespace
{

const std::string mp3Data = std::string(KVO_TEST_DATA_DIR) + "/mp3/";

using testing::BitWriter;
using testing::ReadWholeFile;
using testing::WriteWholeFile;

/** The big-endian 32-bit word at offset. */
uint32_t WordAt(const std::string& bytes, size_t offset)
{
    return uint32_t(uint8_t(bytes[offset])) << 24 | uint32_t(uint8_t(bytes[offset + 1])) << 16
           | uint32_t(uint8_t(bytes[offset + 2])) << 8 | uint8_t(bytes[offset + 3]);
}

/** The whole of an MP3 file read as floats, channel by channel; false when the reader said so. */
struct Decoded
{
    std::vector<std::vector<float>> channels;
    bool ok = false;
};

Decoded ReadAll(AudioFileReader& reader, uint64_t start, uint64_t numSamples)
{
    AudioBuffer<float> buffer(reader.getNumChannels(), numSamples);
    Decoded result;
    result.ok = reader.readSamples(buffer, 0, numSamples, start);
    for (uint32_t c = 0; c < reader.getNumChannels(); ++c)
        result.channels.emplace_back(buffer.GetReadPointer(c), buffer.GetReadPointer(c) + numSamples);
    return result;
}

/** The message of the exception that opening path throws, or "" when it opens. */
std::string Refusal(const std::string& path)
{
    std::string message;
    ::testing::internal::CaptureStderr();
    try
    {
        MP3FileReader reader { File(String(path)) };
    }
    catch (const Exception& e)
    {
        message = e.GetMessage().GetStdString();
    }
    ::testing::internal::GetCapturedStderr();
    return message;
}

std::string NotValid(const std::string& path)
{
    return "file " + Quoted(File(String(path)).GetFullPath()).GetStdString() + " is not a valid MP3 file";
}

// ---------------------------------------------------------------------------------------
// Frame header and side information

TEST(Mp3FrameTest, HeaderFields)
{
    Mp3FrameHeader header;
    parseFrameHeader(header, 0xFFFB9000);
    EXPECT_EQ(header.layer, 3);
    EXPECT_FALSE(header.hasCrc);
    EXPECT_EQ(header.lowSampleRate, 0);
    EXPECT_FALSE(header.isMpeg25);
    EXPECT_EQ(header.bitrateIndex, 9);
    EXPECT_EQ(header.sampleRateIndex, 0);
    EXPECT_EQ(header.numChannels, 2);
    EXPECT_EQ(header.frameBytes, 413);

    parseFrameHeader(header, 0xFFFB9200);
    EXPECT_EQ(header.frameBytes, 414);

    parseFrameHeader(header, 0xFFFA90C0); // CRC, mono
    EXPECT_TRUE(header.hasCrc);
    EXPECT_EQ(header.numChannels, 1);

    // Bit 20 clear is MPEG-2.5 whatever bit 19 says.
    for (const uint32_t word : { 0xFFE38800u, 0xFFEB8800u })
    {
        parseFrameHeader(header, word);
        EXPECT_TRUE(header.isMpeg25);
        EXPECT_EQ(header.lowSampleRate, 1);
        EXPECT_EQ(header.sampleRateIndex, 8);
        EXPECT_EQ(Mp3SampleRate(header.sampleRateIndex), 8000);
    }

    parseFrameHeader(header, 0xFFF38400); // MPEG-2 Layer III, 64 kbit/s, 24000 Hz
    EXPECT_EQ(header.sampleRateIndex, 4);
    EXPECT_EQ(header.frameBytes, 64 * 144000 / 48000 - 4);

    parseFrameHeader(header, 0xFFFB0000); // free format
    EXPECT_EQ(header.frameBytes, 0);

    parseFrameHeader(header, 0xFFFF4000); // Layer I, 128 kbit/s, 44100 Hz
    EXPECT_EQ(header.layer, 1);
    EXPECT_EQ(header.frameBytes, (128 * 12000 / 44100) * 4 - 4);
    parseFrameHeader(header, 0xFFFD8000); // Layer II, 128 kbit/s
    EXPECT_EQ(header.frameBytes, 128 * 144000 / 44100 - 4);
}

TEST(Mp3FrameTest, ReadBitsAndItsGuard)
{
    uint8_t bytes[mp3ByteBufferSize] = {};
    bytes[0] = 0xA5;
    bytes[1] = 0xFF;
    bytes[mp3ByteBufferSize - 1] = 0xFF;
    Mp3BitReader bits { bytes, 0, 0 };
    EXPECT_EQ(bits.readBits(0), 0u);
    EXPECT_EQ(bits.readBits(-3), 0u);
    EXPECT_EQ(bits.bitPointer, 0);
    EXPECT_EQ(bits.readBits(3), 0x5u);
    EXPECT_EQ(bits.readBits(9), 0x05Fu);
    EXPECT_EQ(bits.bitPointer, 1);
    EXPECT_EQ(bits.bitOffset, 4);
    EXPECT_EQ(bits.readBit(), 1u);

    // Bits past the array read as zero, however far the cursor has run.
    bits.bitPointer = mp3ByteBufferSize - 1;
    bits.bitOffset = 4;
    EXPECT_EQ(bits.readBits(12), 0xF00u);
    bits.skipBits(1 << 20);
    EXPECT_EQ(bits.readBits(17), 0u);
    EXPECT_EQ(bits.readBit(), 0u);
}

/** MPEG-1 mono side information with one set of granule fields repeated for both granules. */
std::vector<uint8_t> MonoSideInfo(uint32_t bigValues, uint32_t region0, uint32_t region1, uint32_t globalGain)
{
    BitWriter w;
    w.Put(300, 9).Put(0, 5).Put(0xA, 4);
    for (int granule = 0; granule < 2; ++granule)
    {
        w.Put(1234, 12).Put(bigValues, 9).Put(globalGain, 8).Put(5, 4).Put(0, 1);
        w.Put(1, 5).Put(2, 5).Put(3, 5).Put(region0, 4).Put(region1, 3);
        w.Put(1, 1).Put(0, 1).Put(1, 1);
    }
    EXPECT_EQ(w.used, 136);
    w.bytes.resize(mp3ByteBufferSize);
    return w.bytes;
}

TEST(Mp3FrameTest, SideInformationMpeg1)
{
    std::vector<uint8_t> bytes = MonoSideInfo(300, 15, 7, 210);
    Mp3BitReader bits { bytes.data(), 0, 0 };
    Mp3SideInfo sideInfo;
    readSideInfoMpeg1(sideInfo, bits, 1, 0, 0, -1);
    EXPECT_EQ(bits.bitPointer, 17);
    EXPECT_EQ(sideInfo.mainDataBegin, 300);
    const Mp3GranuleInfo& info = sideInfo.granules[0][1];
    EXPECT_EQ(sideInfo.granules[0][0].scfsi, -1);
    EXPECT_EQ(info.scfsi, 0xA);
    EXPECT_EQ(info.part2_3_length, 1234u);
    EXPECT_EQ(info.big_values, 288u); // 300 in the stream
    EXPECT_EQ(info.scalefac_compress, 5u);
    EXPECT_EQ(info.table_select[2], 3u);
    EXPECT_EQ(*info.gain, 1.0f); // global_gain 210 is unity
    // A region count that runs past the table ends at the last boundary.
    EXPECT_EQ(info.region1Start, 81u); // long boundary 16 at 44100 Hz: 162
    EXPECT_EQ(info.region2Start, 288u);
    EXPECT_EQ(info.preflag, 1u);
    EXPECT_EQ(info.count1table_select, 1u);

    // Mid/side and the channel sum fold their scales into the gain.
    bytes = MonoSideInfo(10, 0, 0, 210);
    bits = { bytes.data(), 0, 0 };
    readSideInfoMpeg1(sideInfo, bits, 1, 1, 0, 3);
    EXPECT_FLOAT_EQ(*sideInfo.granules[0][0].gain, 0.5f / std::sqrt(2.0f));
    EXPECT_EQ(sideInfo.granules[0][0].region1Start, 2u); // long boundary 1 at 44100 Hz: 4
}

TEST(Mp3FrameTest, SideInformationWindowSwitchingLowRate)
{
    BitWriter w;
    w.Put(17, 8).Put(1, 1);
    w.Put(99, 12).Put(40, 9).Put(200, 8).Put(300, 9).Put(1, 1);
    w.Put(2, 2).Put(0, 1).Put(7, 5).Put(8, 5).Put(1, 3).Put(0, 3).Put(7, 3);
    w.Put(1, 1).Put(0, 1);
    EXPECT_EQ(w.used, 72);
    w.bytes.resize(mp3ByteBufferSize);
    Mp3BitReader bits { w.bytes.data(), 0, 0 };
    Mp3SideInfo sideInfo;
    readSideInfoLowRate(sideInfo, bits, 1, 0, 8, -1);
    const Mp3GranuleInfo& info = sideInfo.granules[0][0];
    EXPECT_EQ(sideInfo.mainDataBegin, 17);
    EXPECT_EQ(info.scalefac_compress, 300u);
    EXPECT_EQ(info.block_type, 2u);
    EXPECT_EQ(info.table_select[2], 0u);
    EXPECT_EQ(info.region1Start, 36u); // 8000 Hz
    EXPECT_EQ(info.region2Start, 288u);
    EXPECT_EQ(info.fullGain[0] - info.gain, 8);
    EXPECT_EQ(info.fullGain[1], info.gain);
    EXPECT_EQ(info.fullGain[2] - info.gain, 56);
    EXPECT_EQ(info.scalefac_scale, 1u);
}

// ---------------------------------------------------------------------------------------
// Decodes compared with mpg123's

struct Fixture
{
    const char* name;
    double rate;
    uint32_t channels;
};

/** Names a fixture in test listings. */
void PrintTo(const Fixture& fixture, std::ostream* stream)
{
    *stream << fixture.name;
}

const Fixture fixtures[] = {
    { "cbr-stereo-44k", 44100, 2 },    { "joint-ms-44k", 44100, 2 },     { "joint-44k-notag", 44100, 2 },
    { "mono-44k-crc", 44100, 1 },      { "stereo-32k", 32000, 2 },       { "mono-48k", 48000, 1 },
    { "mpeg2-22k-stereo", 22050, 2 },  { "mpeg2-24k-mono", 24000, 1 },   { "mpeg2-16k-stereo", 16000, 2 },
    { "mpeg25-8k-mono", 8000, 1 },     { "mpeg25-11k-stereo", 11025, 2 }, { "mpeg25-12k-mono", 12000, 1 },
    { "vbr-xing-44k", 44100, 2 },      { "vbr-xing-22k", 22050, 1 },     { "id3v2-44k", 44100, 1 },
    { "freeformat-44k", 44100, 1 },
    // Joint stereo from lame with the intensity bit set afterwards: the right channel's upper
    // bands come from the left, and at the low rate its scale factors are read with the
    // intensity lengths. Long blocks only: short ones place their lines by this decoder's rule.
    { "intensity-44k", 44100, 2 },     { "intensity-22k", 22050, 2 },
};

/** The reference decode, interleaved floats. */
std::vector<float> Reference(const std::string& name)
{
    const std::string bytes = ReadWholeFile(mp3Data + name + ".f32");
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

class Mp3AccuracyTest : public ::testing::TestWithParam<Fixture>
{
};

// The full-accuracy limits of MPEG audio decoders: RMS below 2^-15 / sqrt(12) and no
// difference above 2^-14 of full scale. Both decoders start with the first sample of the
// first audio frame, so the samples line up with no offset.
TEST_P(Mp3AccuracyTest, MatchesReferenceDecoder)
{
    const Fixture& fixture = GetParam();
    MP3FileReader reader { File(String(mp3Data + fixture.name + ".mp3")) };
    EXPECT_EQ(reader.getMetadata().sampleRate, fixture.rate);
    ASSERT_EQ(reader.getNumChannels(), fixture.channels);
    EXPECT_EQ(reader.getMetadata().bitsPerSample, 32u);
    EXPECT_TRUE(reader.getMetadata().isFloat);
    EXPECT_EQ(reader.getMetadata().formatName, "MP3 File");

    const std::vector<float> reference = Reference(fixture.name);
    const uint64_t length = reference.size() / fixture.channels;
    ASSERT_GT(length, 0u);
    const Decoded decoded = ReadAll(reader, 0, length);

    double sumSquares = 0.0;
    double largest = 0.0;
    for (uint64_t i = 0; i < length; ++i)
        for (uint32_t c = 0; c < fixture.channels; ++c)
        {
            const double difference = double(decoded.channels[c][i]) - reference[i * fixture.channels + c];
            sumSquares += difference * difference;
            largest = std::max(largest, std::abs(difference));
        }
    const double rms = std::sqrt(sumSquares / double(length * fixture.channels));
    EXPECT_LT(rms, std::ldexp(1.0, -15) / std::sqrt(12.0)) << fixture.name;
    EXPECT_LT(largest, std::ldexp(1.0, -14)) << fixture.name;
    std::printf("[ accuracy ] %-20s rms %.3g max %.3g\n", fixture.name, rms, largest);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Mp3AccuracyTest, ::testing::ValuesIn(fixtures),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

// ---------------------------------------------------------------------------------------
// Length, reads past the end and seeks

class Mp3ReaderTest : public ::testing::Test
{
protected:
    std::string Copy(const std::string& fixture, const std::string& prefix = {})
    {
        const std::string path = folder / (fixture + ".mp3");
        WriteWholeFile(path, prefix + ReadWholeFile(mp3Data + fixture + ".mp3"));
        return path;
    }

    testing::TemporaryFolder folder;
};

TEST_F(Mp3ReaderTest, LengthFromTagOrEstimate)
{
    // A CBR file without a tag: (file length - audio start) / (frame size - 4) frames.
    const std::string noTag = ReadWholeFile(mp3Data + "joint-44k-notag.mp3");
    Mp3FrameHeader header;
    parseFrameHeader(header, WordAt(noTag, 0));
    MP3FileReader estimated { File(String(mp3Data + "joint-44k-notag.mp3")) };
    EXPECT_EQ(estimated.getNumSamples(), noTag.size() / uint64_t(header.frameBytes) * 1152);

    // A tag's frame count, and for MPEG-2 the count times 1152 although frames hold 576.
    const std::string tagged = ReadWholeFile(mp3Data + "vbr-xing-22k.mp3");
    const size_t xing = tagged.find("Xing");
    ASSERT_NE(xing, std::string::npos);
    const uint32_t frames = WordAt(tagged, xing + 8);
    MP3FileReader reader { File(String(mp3Data + "vbr-xing-22k.mp3")) };
    EXPECT_EQ(reader.getNumSamples(), uint64_t(frames) * 1152);

    // Read straight through, the decodable half is the reference and one block of zeros;
    // the rest of the reported length reads as zeros, with a false result.
    const uint64_t decodable = Reference("vbr-xing-22k").size();
    EXPECT_LE(decodable, uint64_t(frames) * 576);
    const Decoded all = ReadAll(reader, 0, reader.getNumSamples());
    EXPECT_FALSE(all.ok);
    EXPECT_TRUE(std::all_of(all.channels[0].begin() + int64_t(decodable), all.channels[0].end(),
                            [](float s) { return s == 0.0f; }));
    EXPECT_NE(all.channels[0][decodable - 1], 0.0f);

    // A free-format first frame without a tag has no size to estimate from.
    MP3FileReader freeFormat { File(String(mp3Data + "freeformat-44k.mp3")) };
    EXPECT_EQ(freeFormat.getNumSamples(), 0u);
}

TEST_F(Mp3ReaderTest, ReadingToTheEndThenOneMore)
{
    MP3FileReader reader { File(String(mp3Data + "mono-48k.mp3")) };
    const std::vector<float> reference = Reference("mono-48k");
    const Decoded all = ReadAll(reader, 0, reference.size());
    EXPECT_TRUE(all.ok);
    // After the last frame comes one block of 1152 zeros, and then the end.
    const Decoded zeros = ReadAll(reader, reference.size(), 1152);
    EXPECT_TRUE(zeros.ok);
    EXPECT_TRUE(std::all_of(zeros.channels[0].begin(), zeros.channels[0].end(), [](float s) { return s == 0.0f; }));
    const Decoded beyond = ReadAll(reader, reference.size() + 1152, 1);
    EXPECT_FALSE(beyond.ok);
    EXPECT_EQ(beyond.channels[0][0], 0.0f);
}

TEST_F(Mp3ReaderTest, SeekToTheMiddleAndBack)
{
    // Files with a Xing or Info tag, as lame writes by default: the tag's frame is counted in
    // the seek index, and the frame landed on, which lacks its reservoir, yields nothing, so
    // the sample count comes out right.
    for (const char* name : { "cbr-stereo-44k", "joint-ms-44k", "vbr-xing-44k", "stereo-32k" })
    {
        SCOPED_TRACE(name);
        const std::string path = mp3Data + name + ".mp3";
        const uint64_t length = Reference(name).size() / 2;
        MP3FileReader straight { File(String(path)) };
        const Decoded whole = ReadAll(straight, 0, length);

        MP3FileReader seeking { File(String(path)) };
        const uint64_t middle = length / 2 + 77;
        const Decoded fromMiddle = ReadAll(seeking, middle, length - middle);
        const Decoded again = ReadAll(seeking, 0, length);
        for (uint32_t c = 0; c < 2; ++c)
        {
            EXPECT_EQ(again.channels[c], whole.channels[c]);
            const std::vector<float> expected(whole.channels[c].begin() + int64_t(middle), whole.channels[c].end());
            EXPECT_EQ(fromMiddle.channels[c], expected);
        }
    }
}

// ---------------------------------------------------------------------------------------
// Refusals and damaged input

TEST_F(Mp3ReaderTest, Refusals)
{
    // An ID3v2 tag and nothing behind it.
    const std::string id3 = ReadWholeFile(mp3Data + "id3v2-44k.mp3");
    const size_t tagSize = 10 + ((size_t(id3[6]) * 128 + size_t(id3[7])) * 128 + size_t(id3[8])) * 128 + size_t(id3[9]);
    const std::string onlyTag = folder / "tag.mp3";
    WriteWholeFile(onlyTag, id3.substr(0, tagSize));
    EXPECT_EQ(Refusal(onlyTag), NotValid(onlyTag));

    // 40000 bytes of zeros before the first frame: the search gives up after 32768.
    const std::string far = Copy("mono-48k", std::string(40000, '\0'));
    EXPECT_EQ(Refusal(far), NotValid(far));
    // 30000 are still searched through.
    const std::string near = Copy("mono-48k", std::string(30000, '\0'));
    EXPECT_EQ(Refusal(near), "");

    const std::string empty = folder / "empty.mp3";
    WriteWholeFile(empty, "");
    EXPECT_EQ(Refusal(empty), NotValid(empty));

    // The factory passes the reader's refusal on.
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(AudioFileReader::CreateReaderFor(File(String(empty))), Exception);
    ::testing::internal::GetCapturedStderr();
}

TEST_F(Mp3ReaderTest, AbsurdXingCounts)
{
    const std::string original = ReadWholeFile(mp3Data + "vbr-xing-44k.mp3");
    const size_t xing = original.find("Xing");
    ASSERT_NE(xing, std::string::npos);
    const std::string path = folder / "xing.mp3";
    for (const uint32_t frames : { 0x7FFFFFFFu, 0xFFFFFFFFu, 0u, 1u })
    {
        std::string bytes = original;
        for (int k = 0; k < 4; ++k)
            bytes[xing + 8 + size_t(k)] = char(frames >> (24 - 8 * k));
        WriteWholeFile(path, bytes);
        MP3FileReader reader { File(String(path)) };
        if (frames == 0x7FFFFFFFu)
        {
            EXPECT_EQ(reader.getNumSamples(), uint64_t(frames) * 1152);
        }
        // A seek far beyond the data delivers one block of silence, and reading from 0 still works.
        const Decoded far = ReadAll(reader, uint64_t(1) << 32, 2000);
        EXPECT_FALSE(far.ok);
        EXPECT_TRUE(std::all_of(far.channels[0].begin(), far.channels[0].end(), [](float s) { return s == 0.0f; }));
        EXPECT_TRUE(ReadAll(reader, uint64_t(1) << 32, 1000).ok);
        EXPECT_TRUE(ReadAll(reader, 0, 2000).ok);
    }
}

TEST(Mp3DamagedInputTest, NeverCrashes)
{
    std::mt19937 random(8);
    const std::string cbr = ReadWholeFile(mp3Data + "cbr-stereo-44k.mp3");
    const std::string noTag = ReadWholeFile(mp3Data + "joint-44k-notag.mp3");
    const std::string vbr = ReadWholeFile(mp3Data + "vbr-xing-44k.mp3");
    std::vector<std::string> inputs;
    // Random bytes, every other one behind a valid-looking header.
    for (int i = 0; i < 20; ++i)
    {
        std::string bytes(2000 + random() % 6000, '\0');
        for (char& b : bytes)
            b = char(random());
        if (i % 2 == 0)
            bytes.replace(0, 4, "\xFF\xFB\x90\x00", 4);
        inputs.push_back(bytes);
    }
    for (size_t size : { size_t(3), size_t(50), size_t(417), size_t(1000), cbr.size() - 7 })
        inputs.push_back(cbr.substr(0, size));
    // Frames damaged in the middle: bytes overwritten in the side information and main data.
    for (int i = 0; i < 60; ++i)
    {
        std::string bytes = cbr;
        const size_t at = 420 + random() % (bytes.size() - 440);
        for (size_t k = 0; k < 1 + random() % 40; ++k)
            bytes[at + k] = char(random());
        inputs.push_back(bytes);
    }
    // Every frame's main_data_begin and part2_3_length at their largest, then at random.
    for (int round = 0; round < 12; ++round)
    {
        std::string bytes = noTag;
        for (size_t at = bytes.find("\xFF\xFB"); at != std::string::npos && at + 40 < bytes.size();
             at = bytes.find("\xFF\xFB", at + 4))
            for (size_t k = 4; k < 36; ++k)
                bytes[at + k] = char(round == 0 ? 0xFF : random());
        inputs.push_back(bytes);
    }
    // A Xing tag whose flags promise every field, at the very end of a short file.
    const size_t xing = vbr.find("Xing");
    ASSERT_NE(xing, std::string::npos);
    inputs.push_back(vbr.substr(0, xing + 7) + "\x0F");

    const int savedTarget = ConsoleTarget;
    for (const std::string& bytes : inputs)
        fuzzing::ReadAsAudioFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), ".mp3");
    ConsoleTarget = savedTarget;
}

// ---------------------------------------------------------------------------------------
// The tool

TEST_F(Mp3ReaderTest, JoinMp3AndWavWritesFloatWav)
{
    const std::string mp3 = Copy("cbr-stereo-44k");
    // A short WAV input: 100 frames of 16-bit stereo silence.
    const std::string wav = folder / "b.wav";
    WriteWholeFile(wav, testing::Riff(testing::Chunk("fmt ", testing::Fmt(1, 2, 44100, 16))
                                  + testing::Chunk("data", std::string(400, '\0'))));
    const std::string out = folder / "out.wav";
    const testing::ProgramRun run = testing::RunSonaJoin({ "-i", mp3 + ", " + wav, "-d", out });
    ASSERT_EQ(run.exitCode, 0) << run.standardError;

    ::testing::internal::CaptureStderr();
    WavFileReader joined { File(String(out)) };
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(joined.getMetadata().bitsPerSample, 32u);
    EXPECT_TRUE(joined.getMetadata().isFloat);
    MP3FileReader source { File(String(mp3)) };
    EXPECT_EQ(joined.getNumSamples(), source.getNumSamples() + 100);

    const Decoded expected = ReadAll(source, 0, 1000);
    const Decoded samples = ReadAll(joined, 0, 1000);
    EXPECT_EQ(samples.channels, expected.channels);

    const testing::ProgramRun refused = testing::RunSonaJoin({ "-i", mp3, "-d", folder / "out.mp3" });
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.standardError.find("MP3 encoding is not supported. Cannot write file "), std::string::npos);
}

// ---------------------------------------------------------------------------------------
// Intensity stereo, which lame does not write: the bands it reaches, built by hand

TEST(Mp3IntensityTest, LongBandsFromTheFirstSilentBandOfTheRightChannel)
{
    const Mp3Tables& tables = GetMp3Tables();
    const int16_t* bands = Mp3Tables::bandTable[0];
    float left[576];
    float right[576];
    std::fill(std::begin(left), std::end(left), 1.0f);
    std::fill(std::begin(right), std::end(right), 0.5f);
    int32_t scaleFactors[39] = {};
    for (int32_t band = 0; band < 22; ++band)
        scaleFactors[band] = (band * 5) % 8; // band 15 has position 7: left as it is
    Mp3GranuleInfo info;
    info.maxBand[3] = 10;
    applyIntensity(left, right, scaleFactors, info, 0, false, 0);

    for (int32_t line = 0; line < bands[Mp3Tables::longBoundaries + 10]; ++line)
        ASSERT_TRUE(left[line] == 1.0f && right[line] == 0.5f) << line;
    for (int32_t band = 10; band < 22; ++band)
    {
        // The last band has no position of its own and takes that of band 20.
        const int32_t position = scaleFactors[band == 21 ? 20 : band];
        for (int32_t line = bands[Mp3Tables::longBoundaries + band];
             line < bands[Mp3Tables::longBoundaries + band + 1]; ++line)
        {
            if (position == 7)
                ASSERT_TRUE(left[line] == 1.0f && right[line] == 0.5f) << line;
            else
                ASSERT_TRUE(left[line] == tables.intensityLeft[0][position]
                            && right[line] == tables.intensityRight[0][position])
                    << line;
        }
    }
}

TEST(Mp3IntensityTest, LowRatePositionsBeyondTheTablesLeaveTheBand)
{
    // The intensity channel of the low rates may carry 5-bit scale factors.
    float left[576];
    float right[576];
    std::fill(std::begin(left), std::end(left), 1.0f);
    std::fill(std::begin(right), std::end(right), 0.0f);
    int32_t scaleFactors[39];
    std::fill(std::begin(scaleFactors), std::end(scaleFactors), 31);
    scaleFactors[3] = 2;
    Mp3GranuleInfo info;
    info.scalefac_compress = 1;
    applyIntensity(left, right, scaleFactors, info, 3, true, 1);
    const int16_t* bands = Mp3Tables::bandTable[3];
    const float expected = GetMp3Tables().intensityLowRight[1][1][2];
    for (int32_t line = 0; line < 576; ++line)
    {
        const bool inBand3 = line >= bands[Mp3Tables::longBoundaries + 3] && line < bands[Mp3Tables::longBoundaries + 4];
        ASSERT_EQ(right[line], inBand3 ? expected : 0.0f) << line;
    }
}

} // namespace
} // namespace kvo
