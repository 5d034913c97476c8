// WavFileReader: RIFF, RF64 and Wave64 headers built byte by byte in the tests, the
// sample widths and formats, short files, the refusals with their exact texts, and a
// few files written by other tools.

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoFuzzUtilities.h"
#include "KvoStreamCapture.h"
#include "KvoTestUtilities.h"
#include "KvoWavTestFiles.h"
#include "audiofiles/KvoWavFileReader.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"

namespace kvo
{
namespace
{

using namespace testing;

const Guid w64Junk { 0x6A, 0x75, 0x6E, 0x6B, 0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
const Guid w64Other { 0x6F, 0x74, 0x68, 0x72, 0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
const Guid pcmGuid { 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
const Guid floatGuid { 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
const Guid ambisonicGuid { 0x01, 0x00, 0x00, 0x00, 0x21, 0x07, 0xD3, 0x11, 0x86, 0x44, 0xC8, 0xC1, 0xCA, 0x00, 0x00, 0x00 };

std::string Extensible(int channels, int rate, int bits, const Guid& subformat)
{
    return Bytes().Text(Fmt(0xFFFE, channels, rate, bits)).U16(22).U16(uint16_t(bits)).U32(3).Id(subformat);
}

/** An RF64 file: the ds64 chunk first, then the chunks. */
std::string Rf64(const std::string& chunks, uint64_t dataSize)
{
    const std::string ds64 = Bytes().U64(chunks.size() + 40).U64(dataSize).U64(0).U32(0);
    return Bytes().Text("RF64").U32(0xFFFFFFFF).Text("WAVE").Text(Chunk("ds64", ds64)).Text(chunks);
}

/** A 16-bit file at 44100 Hz holding samples, interleaved. */
std::string Wav16(int channels, const std::vector<int>& samples)
{
    return Riff(Chunk("fmt ", Fmt(1, channels, 44100, 16)) + Chunk("data", Pcm16(samples)));
}

class WavFileReaderTest : public WavFileFixture
{
protected:
    std::string NotValid() const
    {
        return "file " + Quoted(File(String(folder / "test.wav")).GetFullPath()).GetStdString()
               + " is not a valid WAV file";
    }

    /** numSamples frames from start, channel by channel. */
    static std::vector<std::vector<float>> Read(WavFileReader& reader, uint64_t start, uint64_t numSamples)
    {
        AudioBuffer<float> buffer(reader.getNumChannels(), numSamples);
        EXPECT_TRUE(reader.readSamples(buffer, 0, numSamples, start));
        std::vector<std::vector<float>> result;
        for (uint32_t c = 0; c < reader.getNumChannels(); ++c)
            result.emplace_back(buffer.GetReadPointer(c), buffer.GetReadPointer(c) + numSamples);
        return result;
    }

};

using Channels = std::vector<std::vector<float>>;

// ---------------------------------------------------------------------------------------
// Sample formats

TEST_F(WavFileReaderTest, EveryWidthAndFormatTag)
{
    struct Case
    {
        const char* name;
        std::string fmt;
        std::string data;
        uint32_t bits;
        bool isFloat;
        Channels expected;
    };
    const std::string halves = Bytes().U32(0x40000000).U32(0xC0000000);
    const std::vector<Case> cases = {
        {"16-bit stereo", Fmt(1, 2, 44100, 16), Pcm16({0, -32768, 32767, 16384, -1, 1}), 16, false,
         {{0.0f, 32767 / 32768.0f, -1 / 32768.0f}, {-1.0f, 0.5f, 1 / 32768.0f}}},
        {"8-bit unsigned", Fmt(1, 1, 8000, 8), std::string("\x00\x80\xFF\x40", 4), 8, false,
         {{-1.0f, 0.0f, 127 / 128.0f, -0.5f}}},
        {"24-bit", Fmt(1, 1, 48000, 24), Bytes().U24(0x800000).U24(0x7FFFFF).U24(0xFFFFFF).U24(0x400000), 24, false,
         {{-1.0f, 8388607 / 8388608.0f, -1 / 8388608.0f, 0.5f}}},
        {"32-bit integer", Fmt(1, 1, 48000, 32), Bytes().U32(0x80000000).U32(0x40000000).U32(0xFFFFFF00), 32, false,
         {{-1.0f, 0.5f, -256 / 2147483648.0f}}},
        {"32-bit float, not clipped", Fmt(3, 2, 96000, 32), Bytes().F32(1.5f).F32(-0.25f), 32, true, {{1.5f}, {-0.25f}}},
        {"64-bit float", Fmt(3, 1, 96000, 64), Bytes().F64(0.25).F64(-2.0).F64(1e40), 64, true,
         {{0.25f, -2.0f, std::numeric_limits<float>::infinity()}}},
        {"extensible PCM", Extensible(2, 48000, 32, pcmGuid), halves, 32, false, {{0.5f}, {-0.5f}}},
        {"extensible float", Extensible(1, 48000, 32, floatGuid), Bytes().F32(0.75f), 32, true, {{0.75f}}},
        {"extensible ambisonic", Extensible(2, 48000, 32, ambisonicGuid), halves, 32, false, {{0.5f}, {-0.5f}}},
        // A-law bytes come through undecoded, as unsigned 8-bit samples.
        {"A-law", Fmt(6, 1, 8000, 8), std::string("\x80\xD5", 2), 8, false, {{0.0f, 85 / 128.0f}}},
        // Bits -1: 32000 bytes a second at 8000 Hz make 4-byte frames, 16 bits over two channels.
        {"bits from the byte rate", Fmt(1, 2, 8000, 0xFFFF, 32000), Pcm16({16384, -16384}), 16, false, {{0.5f}, {-0.5f}}},
    };
    for (const Case& c : cases)
    {
        auto reader = Open(Riff(Chunk("fmt ", c.fmt) + Chunk("data", c.data)));
        ASSERT_TRUE(reader) << c.name;
        EXPECT_EQ(reader->getMetadata().isFloat, c.isFloat) << c.name;
        EXPECT_EQ(reader->getMetadata().bitsPerSample, c.bits) << c.name;
        EXPECT_EQ(Read(*reader, 0, c.expected[0].size()), c.expected) << c.name;
        EXPECT_EQ(reader->isAmbisonic(), std::string(c.name) == "extensible ambisonic") << c.name;
        EXPECT_FALSE(reader->getMetadata().isRf64 || reader->getMetadata().isW64) << c.name;
    }
    // The canonical layout: samples from byte 44, a frame count from the data size.
    auto reader = Open(Wav16(2, {0, 1, 2, 3, 4, 5}));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getDataStart(), 44);
    EXPECT_EQ(reader->getDataSize(), 12);
    EXPECT_EQ(reader->getNumSamples(), 3u);
    EXPECT_EQ(reader->getMetadata().sampleRate, 44100.0);
}

TEST_F(WavFileReaderTest, UnreadableFormatsOpenWithNoSamples)
{
    Guid otherGuid = pcmGuid;
    otherGuid[0] = 0x02;
    const std::string data = Pcm16({ 1, 2, 3, 4 });
    const std::string shortExtensible = Bytes().Text(Fmt(0xFFFE, 2, 48000, 16)).U16(0);
    for (const std::string& fmt : { Extensible(2, 48000, 16, otherGuid), shortExtensible, Fmt(0x55, 2, 48000, 16) })
    {
        auto reader = Open(Riff(Chunk("fmt ", fmt) + Chunk("data", data)));
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->getBytesPerFrame(), 0);
        EXPECT_EQ(reader->getNumSamples(), 0u);
        EXPECT_EQ(Read(*reader, 0, 2), (Channels { { 0.0f, 0.0f }, { 0.0f, 0.0f } }));
    }
}

// ---------------------------------------------------------------------------------------
// Chunk walk

TEST_F(WavFileReaderTest, OddSizesArePadded)
{
    // An odd junk chunk before fmt, then an odd data chunk overridden by a second one.
    const std::string chunks = Chunk("JUNK", "abc") + Chunk("fmt ", Fmt(1, 1, 8000, 8))
                               + Chunk("data", std::string(5, '\x10')) + Chunk("data", std::string("\x80\xC0", 2));
    auto reader = Open(Riff(chunks));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 2u);
    EXPECT_EQ(Read(*reader, 0, 2), (Channels { { 0.0f, 0.5f } }));

    // The last chunk may lack its pad byte.
    std::string unpadded = Riff(Chunk("fmt ", Fmt(1, 1, 8000, 8)) + Chunk("data", std::string(3, '\x80')));
    unpadded.pop_back();
    reader = Open(unpadded);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 3u);
}

TEST_F(WavFileReaderTest, ShortFilesReadZeroBytesAndPastTheEndReadsSilence)
{
    // The data chunk claims 6 frames and holds 2: missing 8-bit frames decode to -1.0.
    auto reader = Open(Riff(Chunk("fmt ", Fmt(1, 1, 8000, 8)) + Bytes().Text("data").U32(6).Text("\xC0\x80")));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 6u);
    EXPECT_EQ(Read(*reader, 0, 8), (Channels { { 0.5f, 0.0f, -1.0f, -1.0f, -1.0f, -1.0f, 0.0f, 0.0f } }));
    EXPECT_EQ(Read(*reader, 7, 2), (Channels { { 0.0f, 0.0f } }));

    reader = Open(Riff(Chunk("fmt ", Fmt(1, 1, 8000, 16)) + Bytes().Text("data").U32(0xFFFFFFFF).Text(Pcm16({ 8192 }))));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0xFFFFFFFFu / 2);
    EXPECT_EQ(Read(*reader, 0, 3), (Channels { { 0.25f, 0.0f, 0.0f } }));
}

TEST_F(WavFileReaderTest, ReadsAcrossStagingBlocks)
{
    // 2000 stereo 24-bit frames take several passes through the staging block.
    Bytes data;
    for (int i = 0; i < 2000; ++i)
        data.U24(uint32_t(i * 256)).U24(uint32_t(-i * 128));
    auto reader = Open(Riff(Chunk("fmt ", Fmt(1, 2, 48000, 24)) + Chunk("data", data)));
    ASSERT_TRUE(reader);
    const Channels samples = Read(*reader, 123, 1877);
    for (int i = 0; i < 1877; ++i)
    {
        ASSERT_EQ(samples[0][size_t(i)], float((i + 123) * 256) / 8388608.0f) << i;
        ASSERT_EQ(samples[1][size_t(i)], float(-(i + 123) * 128) / 8388608.0f) << i;
    }
}

TEST_F(WavFileReaderTest, ChunkOrderAndSizes)
{
    const std::string fmt = Chunk("fmt ", Fmt(1, 1, 8000, 16));
    const std::string data = Chunk("data", Pcm16({ 1, 2 }));

    auto reader = Open(Riff(data + fmt)); // fmt after data: the length was taken without a width
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);

    reader = Open(Riff(fmt + Chunk("smpl", "") + data)); // a named empty chunk is stepped over
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 2u);

    reader = Open(Riff(fmt + Chunk("abcd", "") + data)); // an unknown empty chunk ends the walk
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);

    for (const char* id : { "bext", "cue ", "LIST", "axml", "chna", "fact", "PAD " })
    {
        reader = Open(Riff(fmt + Chunk(id, "xyz") + data));
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->getNumSamples(), 2u) << id;
    }

    reader = Open(Riff(fmt + data, 4 + int64_t(fmt.size()))); // data lies past the RIFF size
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);

    reader = Open(Riff(fmt + data, 1000000)); // a RIFF size beyond the file
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 2u);
}

TEST_F(WavFileReaderTest, Rf64TakesItsSizesFromDs64)
{
    const std::string fmt = Chunk("fmt ", Fmt(1, 1, 44100, 16));
    auto reader = Open(Rf64(fmt + Bytes().Text("data").U32(0xFFFFFFFF).Text(Pcm16({ 16384, -16384, 8192 })), 6));
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->getMetadata().isRf64);
    EXPECT_EQ(reader->getNumSamples(), 3u);
    EXPECT_EQ(reader->getDataSize(), 6);
    EXPECT_EQ(Read(*reader, 1, 3), (Channels { { -0.5f, 0.25f, 0.0f } }));

    // An odd ds64 size steps over the pad byte to the next chunk.
    const std::string later = Chunk("fmt ", Fmt(1, 1, 48000, 16));
    reader = Open(Rf64(fmt + Chunk("data", std::string(3, '\0'), 0xFFFFFFFF) + later, 3));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getMetadata().sampleRate, 48000.0);

    // A ds64 data size of 0 leaves the data chunk's own size to find what follows.
    reader = Open(Rf64(fmt + Chunk("data", Pcm16({ 1, 2 })) + later, 0));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);
    EXPECT_EQ(reader->getMetadata().sampleRate, 48000.0);
}

TEST_F(WavFileReaderTest, Wave64)
{
    const std::string fmt = W64Chunk(w64Fmt, Fmt(1, 1, 22050, 8));
    auto reader = Open(Wave64(fmt + W64Chunk(w64Junk, "junk") + W64Chunk(w64Other, "other")
                              + W64Chunk(w64Data, std::string("\x40\x80\xC0", 3))));
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->getMetadata().isW64);
    EXPECT_EQ(reader->getMetadata().sampleRate, 22050.0);
    EXPECT_EQ(reader->getNumSamples(), 3u);
    EXPECT_EQ(reader->getDataSize(), 3);
    EXPECT_EQ(Read(*reader, 0, 3), (Channels { { -0.5f, 0.0f, 0.5f } }));

    // A chunk after an unaligned data chunk starts on the next multiple of 8.
    reader = Open(Wave64(fmt + W64Chunk(w64Data, "abc") + W64Chunk(w64Fmt, Fmt(1, 1, 32000, 8))));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getMetadata().sampleRate, 32000.0);

    // The riff size counts from offset 24: ending 4 bytes past fmt, it lets the next chunk in.
    reader = Open(Wave64(fmt + W64Chunk(w64Data, "abc"), int64_t(fmt.size()) + 16 + 4));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 3u);
    reader = Open(Wave64(fmt + W64Chunk(w64Data, "abc"), int64_t(fmt.size()) + 16));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);

    // An unknown chunk of no length ends the walk.
    reader = Open(Wave64(fmt + W64Chunk(w64Other, "") + W64Chunk(w64Data, "abc")));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 0u);

    // The step to the next chunk is worked out in single precision and kept to 32 bits: a
    // junk length of 4 GiB + 8 rounds to 4 GiB and wraps to 0, so data follows at once.
    reader = Open(Wave64(fmt + W64Chunk(w64Junk, "", (int64_t(1) << 32) + 8 + 24) + W64Chunk(w64Data, "abc")));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getNumSamples(), 3u);
}

// ---------------------------------------------------------------------------------------
// Refusals

TEST_F(WavFileReaderTest, RefusalMessages)
{
    const std::string fmt = Chunk("fmt ", Fmt(1, 1, 44100, 16));
    const std::string data = Chunk("data", Pcm16({ 0, 0 }));
    const std::string rf64 = Bytes().Text("RF64").U32(0xFFFFFFFF).Text("WAVE");
    const std::string notValid[] = {
        "", "FORM0000AIFF", Bytes().Text("RIFF").U32(20).Text("AVI ") + fmt,
        Riff(fmt + data, 0), // RIFF size 0, as an unfinished stream leaves it
        Riff(data),          // no fmt
        Riff(Chunk("fmt ", Fmt(1, 1, 0, 16)) + data), Riff(Chunk("fmt ", Fmt(1, 0, 44100, 16)) + data),
        // RF64 without a usable ds64 first.
        rf64 + fmt + data, rf64 + Chunk("ds64", std::string(26, '\0')) + fmt + data,
        // Bits out of range with a rate or channel count of 0 to divide by.
        Riff(Chunk("fmt ", Fmt(1, 2, 0, 0xFFFF, 8000)) + data), Riff(Chunk("fmt ", Fmt(1, 0, 8000, 0xFFFF, 8000)) + data),
        Riff(Chunk("fmt ", Fmt(1, 2, -1, 0xFFFF, 0x80000000)) + data),
        // A negative channel count makes a frame far wider than the staging block.
        Riff(Chunk("fmt ", Fmt(1, 0xFFFF, 8000, 16)) + data), Riff(Chunk("fmt ", Fmt(0x55, 0xFFFF, 8000, 16)) + data),
        // Frames to read, but the format that came after them has no width.
        Riff(Chunk("fmt ", Fmt(1, 1, 8000, 16)) + data + Chunk("fmt ", Fmt(0x55, 1, 8000, 16))),
        // An RF64 data size no file can have.
        Rf64(Chunk("fmt ", Fmt(1, 1, 8000, 16)) + data, uint64_t(1) << 63),
        // A Wave64 chunk size that doesn't cover its own header would walk backwards.
        Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 8000, 16)) + W64Chunk(w64Junk, "", 0)),
        Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 8000, 16)) + W64Chunk(w64Data, "", 8)),
    };
    for (size_t i = 0; i < std::size(notValid); ++i)
        EXPECT_EQ(Refusal(notValid[i]), NotValid()) << "case " << i;

    EXPECT_EQ(Refusal(Bytes().Text("BW64").U32(0xFFFFFFFF).Text("WAVE") + fmt + data), "BW64 chunk is not handled");
    Guid badRiff = w64Riff;
    badRiff[15] = 1;
    std::string w64 = Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 44100, 16)));
    EXPECT_EQ(Refusal(Bytes().Id(badRiff) + w64.substr(16)), "invalid riff chunk for w64");
    w64[39] = 0;
    EXPECT_EQ(Refusal(w64), "invalid wave chunk for w64");
}

TEST_F(WavFileReaderTest, FrameWidthLimit)
{
    // 720 channels of 64 bits fill the staging block exactly; 721 would not fit.
    Bytes frames;
    for (int i = 0; i < 2 * 720; ++i)
        frames.F64(i / 2048.0);
    auto reader = Open(Riff(Chunk("fmt ", Fmt(3, 720, 48000, 64)) + Chunk("data", frames)));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->getBytesPerFrame(), WavFileReader::rawBlockSize);
    const Channels samples = Read(*reader, 0, 2);
    EXPECT_EQ(samples[719][1], 1439 / 2048.0f);

    EXPECT_EQ(Refusal(Riff(Chunk("fmt ", Fmt(3, 721, 48000, 64)))), NotValid());
}

TEST_F(WavFileReaderTest, RandomBytesNeverCrash)
{
    const std::vector<std::string> seeds {
        Wav16(2, { 1, 2, 3, 4 }),
        Rf64(Chunk("fmt ", Extensible(2, 48000, 24, pcmGuid)) + Chunk("data", std::string(12, '\x11'), 0xFFFFFFFF), 12),
        Wave64(W64Chunk(w64Fmt, Fmt(3, 1, 48000, 32)) + W64Chunk(w64Data, std::string(8, '\x22'))),
    };
    std::mt19937 random(20240601);
    const int savedTarget = ConsoleTarget;
    for (int round = 0; round < 600; ++round)
    {
        std::string bytes = seeds[size_t(round) % seeds.size()];
        const int numChanges = 1 + int(random() % 8);
        for (int i = 0; i < numChanges; ++i)
            bytes[random() % bytes.size()] = char(random());
        if (round % 5 == 0)
            bytes.resize(random() % bytes.size());

        fuzzing::ReadAsAudioFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), ".wav");
    }
    ConsoleTarget = savedTarget;
}

// ---------------------------------------------------------------------------------------
// Files written by other tools (sox, ffmpeg) from one 16-bit stereo ramp: frame i holds
// (i * 3 - 96) * 256 on the left and (50 - i * 2) * 256 on the right, 64 frames.

TEST_F(WavFileReaderTest, FilesOfOtherTools)
{
    struct Fixture
    {
        const char* name;
        uint32_t bits;
        bool isFloat;
    };
    for (const Fixture& f : { Fixture { "ramp-u8.wav", 8, false }, Fixture { "ramp-s24.wav", 24, false },
                              Fixture { "ramp-s32.wav", 32, false }, Fixture { "ramp-f32.wav", 32, true },
                              Fixture { "ramp-f64.wav", 64, true }, Fixture { "ramp-s16.w64", 16, false },
                              Fixture { "ramp-s16-rf64.wav", 16, false }, Fixture { "ramp-s24.amb", 24, false } })
    {
        SCOPED_TRACE(f.name);
        ::testing::internal::CaptureStderr();
        WavFileReader reader(File(String(std::string(KVO_TEST_DATA_DIR) + "/" + f.name)));
        ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(reader.getMetadata().sampleRate, 44100.0);
        EXPECT_EQ(reader.getMetadata().bitsPerSample, f.bits);
        EXPECT_EQ(reader.getMetadata().isFloat, f.isFloat);
        ASSERT_EQ(reader.getNumSamples(), 64u);
        const Channels samples = Read(reader, 0, 64);
        for (int i = 0; i < 64; ++i)
        {
            ASSERT_EQ(samples[0][size_t(i)], float(i * 3 - 96) / 128.0f) << i;
            ASSERT_EQ(samples[1][size_t(i)], float(50 - i * 2) / 128.0f) << i;
        }
    }
}

} // namespace
} // namespace kvo
