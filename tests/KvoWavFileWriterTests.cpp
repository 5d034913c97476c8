#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "audiofiles/KvoWavFileWriter.h"
#include "containers/KvoAudioBuffer.h"
#include "files/KvoFile.h"

namespace kvo
{
namespace
{

using Bytes = std::string;
using Channels = std::vector<std::vector<int32_t>>;

using kvo::testing::ReadWholeFile;

Bytes Le(uint64_t value, int numBytes)
{
    return kvo::testing::LittleEndian(value, numBytes);
}

const Bytes pcmGuid("\x01\x00\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 16);
const Bytes floatGuid("\x03\x00\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 16);

/** The fmt chunk, plain (16 bytes) or extensible (40 bytes) with its mask and sub-format. */
Bytes Fmt(bool extensible, uint16_t channels, uint32_t rate, uint16_t bits, uint32_t mask = 0)
{
    const uint16_t align = uint16_t(channels * bits / 8);
    Bytes bytes = "fmt " + Le(extensible ? 40 : 16, 4);
    bytes += Le(extensible ? 0xFFFE : (bits == 32 ? 3 : 1), 2) + Le(channels, 2) + Le(rate, 4)
             + Le(uint64_t(rate) * align, 4) + Le(align, 2) + Le(bits, 2);
    if (extensible)
        bytes += Le(22, 2) + Le(bits, 2) + Le(mask, 4) + (bits == 32 ? floatGuid : pcmGuid);
    return bytes;
}

/** The 104-byte header of a RIFF file: JUNK keeps the room that ds64 would take. */
Bytes RiffHeader(uint32_t riffSize, const Bytes& fmt, uint32_t dataSize)
{
    const uint32_t junk = fmt.size() == 24 ? 52 : 28;
    return "RIFF" + Le(riffSize, 4) + "WAVE" + "JUNK" + Le(junk, 4) + Bytes(junk, '\0') + fmt + "data"
           + Le(dataSize, 4);
}

/** A writer made directly, with the raw sample path open to the tests. */
class TestWavWriter : public WavFileWriter
{
public:
    TestWavWriter(const std::string& path, double rate, unsigned int numChannels, int bits)
        : WavFileWriter(File(path.c_str()), rate, numChannels, bits)
    {
    }

    bool WriteRaw(Channels channels)
    {
        std::vector<int*> pointers;
        for (auto& channel : channels)
            pointers.push_back(channel.data());
        return writeRawSamples(pointers.data(), channels[0].size());
    }
};

/** A reader with its raw sample path open to the tests. */
class RawWavReader : public WavFileReader
{
public:
    using WavFileReader::WavFileReader;
    using WavFileReader::readRawSamples;
};

class WavWriter : public ::testing::Test
{
protected:
    kvo::testing::TemporaryFolder folder;
};

TEST_F(WavWriter, NeverWrittenFileIsTheBareHeader)
{
    const std::string path = folder / "empty.wav";
    {
        TestWavWriter writer(path, 48000.0, 2, 16);
        EXPECT_EQ(writer.getMetadata().formatName, "WAV File");
        EXPECT_EQ(writer.getDefaultExtension(), ".wav");
    }
    EXPECT_EQ(ReadWholeFile(path), RiffHeader(96, Fmt(false, 2, 48000, 16), 0));
}

TEST_F(WavWriter, SizesCountTheDataAndThePadByte)
{
    const std::string one = folder / "one.wav";
    {
        TestWavWriter writer(one, 44100.0, 1, 16);
        ASSERT_TRUE(writer.WriteRaw({ { 0x12340000 } }));
    }
    EXPECT_EQ(ReadWholeFile(one), RiffHeader(98, Fmt(false, 1, 44100, 16), 2) + "\x34\x12");

    const std::string odd = folder / "odd.wav";
    {
        TestWavWriter writer(odd, 8000.0, 1, 8);
        ASSERT_TRUE(writer.WriteRaw({ { int32_t(0x80000000), 0, 0x7F000000 } }));
    }
    // 8-bit samples are unsigned; the odd data takes a zero pad byte that RIFF's size counts.
    EXPECT_EQ(ReadWholeFile(odd), RiffHeader(100, Fmt(false, 1, 8000, 8), 3) + Bytes("\x00\x80\xFF\x00", 4));
}

TEST_F(WavWriter, MoreThanTwoChannelsAreExtensibleFromTheFirstByte)
{
    const std::string three = folder / "three.wav";
    {
        TestWavWriter writer(three, 96000.0, 3, 24);
        EXPECT_EQ(ReadWholeFile(three), RiffHeader(96, Fmt(true, 3, 96000, 24, 0), 0));
    }
    const std::string six = folder / "six.wav";
    {
        TestWavWriter writer(six, 48000.0, 6, 16);
    }
    EXPECT_EQ(ReadWholeFile(six), RiffHeader(96, Fmt(true, 6, 48000, 16, 63), 0));
}

TEST_F(WavWriter, ForcedRf64KeepsTheSizesInDs64)
{
    const std::string path = folder / "forced.wav";
    {
        TestWavWriter writer(path, 44100.0, 2, 16);
        writer.setForceRf64(true);
        ASSERT_TRUE(writer.WriteRaw({ { 0x01000000, 0x02000000, 0x03000000 }, { 0, 0, 0 } }));
    }
    const Bytes expected = "RF64" + Le(0xFFFFFFFF, 4) + "WAVE" + "ds64" + Le(28, 4) + Le(96 + 12, 8) + Le(12, 8)
                           + Bytes(12, '\0') + Fmt(true, 2, 44100, 16, 3) + "data" + Le(0xFFFFFFFF, 4)
                           + Bytes("\x00\x01\x00\x00\x00\x02\x00\x00\x00\x03\x00\x00", 12);
    EXPECT_EQ(ReadWholeFile(path), expected);

    WavFileReader reader { File(path.c_str()) };
    EXPECT_TRUE(reader.getMetadata().isRf64);
    EXPECT_EQ(reader.getMetadata().numSamples, 3u);
}

TEST_F(WavWriter, ThirtyTwoBitsAreFloatsBeyondFullScale)
{
    const std::string path = folder / "float.wav";
    AudioBuffer<float> samples(1, 3);
    const float values[3] = { 1.5f, -2.25f, 0.125f };
    std::memcpy(samples.GetWritePointer(0), values, sizeof values);
    {
        TestWavWriter writer(path, 44100.0, 1, 32);
        ASSERT_TRUE(writer.writeSamples(samples, 0, 3, false));
        EXPECT_TRUE(writer.getMetadata().isFloat);
    }
    const Bytes file = ReadWholeFile(path);
    EXPECT_EQ(file.substr(0, 104), RiffHeader(108, Fmt(false, 1, 44100, 32), 12));
    EXPECT_EQ(file.substr(104), Bytes(reinterpret_cast<const char*>(values), sizeof values));
}

TEST_F(WavWriter, IntegerDepthsReadBackSampleExact)
{
    for (int bits : { 8, 16, 24 })
    {
        const std::string path = folder / ("exact" + std::to_string(bits) + ".wav");
        const uint32_t mask = ~0u << (32 - bits);
        Channels written(3, std::vector<int32_t>(1001));
        for (size_t c = 0; c < written.size(); ++c)
            for (size_t i = 0; i < written[c].size(); ++i)
                written[c][i] = int32_t(uint32_t(i * 2654435761u + c * 40503u) & mask);
        {
            TestWavWriter writer(path, 22050.0, 3, bits);
            ASSERT_TRUE(writer.WriteRaw(written));
        }
        RawWavReader reader { File(path.c_str()) };
        ASSERT_EQ(reader.getMetadata().numSamples, 1001u);
        Channels read(3, std::vector<int32_t>(1001));
        std::vector<int*> pointers { read[0].data(), read[1].data(), read[2].data() };
        ASSERT_TRUE(reader.readRawSamples(pointers.data(), 1001, 0));
        EXPECT_EQ(read, written) << bits << " bits";
    }
}

// Writes a little over 4 GiB: run it by hand with --gtest_also_run_disabled_tests.
TEST_F(WavWriter, DISABLED_DataPastFourGibibytesSwitchesToRf64)
{
    const std::string path = folder / "large.wav";
    constexpr uint64_t frames = (uint64_t { 1 } << 30) + 3; // stereo 16-bit: 4 GiB + 12 bytes
    constexpr uint64_t block = 1 << 20;
    Channels samples(2, std::vector<int32_t>(block));
    for (uint64_t i = 0; i < block; ++i)
        samples[0][i] = int32_t(uint32_t(i) << 16), samples[1][i] = -samples[0][i];
    {
        TestWavWriter writer(path, 48000.0, 2, 16);
        for (uint64_t done = 0; done < frames; done += block)
        {
            if (frames - done < block)
                for (auto& channel : samples)
                    channel.resize(frames - done);
            ASSERT_TRUE(writer.WriteRaw(samples));
        }
    }
    RawWavReader reader { File(path.c_str()) };
    ASSERT_TRUE(reader.getMetadata().isRf64);
    ASSERT_EQ(reader.getMetadata().numSamples, frames);
    Channels tail(2, std::vector<int32_t>(3));
    std::vector<int*> pointers { tail[0].data(), tail[1].data() };
    ASSERT_TRUE(reader.readRawSamples(pointers.data(), 3, frames - 3));
    EXPECT_EQ(tail[0], (std::vector<int32_t> { 0, 1 << 16, 2 << 16 }));
}

} // namespace
} // namespace kvo
