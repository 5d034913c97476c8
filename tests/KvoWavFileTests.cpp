// WavFileReader: RIFF, RF64 and Wave64 files built byte by byte, their sample formats, the
// chunk walk, the refusals, and files written by other tools. WavFileWriter: the exact bytes of
// each header form and the switch to RF64 at 4 GiB of data, read back by the reader.

#include <bit>
#include <cstdio>
#include <fstream>
#include <limits>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "audiofiles/KvoWavFileWriter.h"

namespace kvo::testing
{
namespace
{

const Guid ambisonicGuid { 0x01, 0x00, 0x00, 0x00, 0x21, 0x07, 0xD3, 0x11, 0x86, 0x44, 0xC8, 0xC1, 0xCA, 0x00, 0x00, 0x00 };
const Guid w64Fmt = W64Id("fmt "), w64Data = W64Id("data"), w64Junk = W64Id("junk"), w64Other = W64Id("othr");

/** A file of fmt then data. */
std::string Wav(const std::string& fmt, const std::string& data)
{
    return Riff(Chunk("fmt ", fmt) + Chunk("data", data));
}

using WavFileTest = AudioFileTest;

TEST_F(WavFileTest, SampleFormats)
{
    struct Case { const char* name; std::string bytes; uint32_t bits; bool isFloat; Channels expected; };
    const std::string halves = Bytes().U32(0x40000000).U32(0xC0000000);
    const std::string w64 = Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 22050, 8)) + W64Chunk(w64Junk, "junk")
                                   + W64Chunk(w64Other, "other") + W64Chunk(w64Data, Z("\x40\x80\xC0")));
    const std::vector<Case> cases = {
        { "16-bit stereo", Wav(Fmt(1, 2, 44100, 16), Pcm16({ 0, -32768, 32767, 16384, -1, 1 })), 16, false,
          { { 0.0f, 32767 / 32768.0f, -1 / 32768.0f }, { -1.0f, 0.5f, 1 / 32768.0f } } },
        { "8-bit unsigned", Wav(Fmt(1, 1, 8000, 8), Z("\x00\x80\xFF\x40")), 8, false, { { -1.0f, 0.0f, 127 / 128.0f, -0.5f } } },
        { "24-bit", Wav(Fmt(1, 1, 48000, 24), Bytes().U24(0x800000).U24(0x7FFFFF).U24(0xFFFFFF).U24(0x400000)), 24, false,
          { { -1.0f, 8388607 / 8388608.0f, -1 / 8388608.0f, 0.5f } } },
        { "32-bit integer", Wav(Fmt(1, 1, 48000, 32), Bytes().U32(0x80000000).U32(0x40000000).U32(0xFFFFFF00)), 32, false,
          { { -1.0f, 0.5f, -256 / 2147483648.0f } } },
        { "32-bit float, not clipped", Wav(Fmt(3, 2, 96000, 32), Bytes().F32(1.5f).F32(-0.25f)), 32, true, { { 1.5f }, { -0.25f } } },
        { "64-bit float", Wav(Fmt(3, 1, 96000, 64), Bytes().F64(0.25).F64(-2.0).F64(1e40)), 64, true,
          { { 0.25f, -2.0f, std::numeric_limits<float>::infinity() } } },
        { "extensible PCM", Wav(Extensible(2, 48000, 32, pcmGuid), halves), 32, false, { { 0.5f }, { -0.5f } } },
        { "extensible float", Wav(Extensible(1, 48000, 32, floatGuid), Bytes().F32(0.75f)), 32, true, { { 0.75f } } },
        { "extensible ambisonic", Wav(Extensible(2, 48000, 32, ambisonicGuid), halves), 32, false, { { 0.5f }, { -0.5f } } },
        // A-law bytes come through undecoded, as unsigned 8-bit samples.
        { "A-law", Wav(Fmt(6, 1, 8000, 8), Z("\x80\xD5")), 8, false, { { 0.0f, 85 / 128.0f } } },
        // Bits 65, one past the widest: 32000 bytes a second at 8000 Hz make 4-byte frames, 16 bits over two channels.
        { "bits from the byte rate", Wav(Fmt(1, 2, 8000, 65, 32000), Pcm16({ 16384, -16384 })), 16, false, { { 0.5f }, { -0.5f } } },
        { "RF64", Rf64(Chunk("fmt ", Fmt(1, 1, 44100, 16)) + Chunk("data", Pcm16({ 16384, -16384, 8192 }), 0xFFFFFFFF), 6),
          16, false, { { 0.5f, -0.5f, 0.25f } } },
        { "Wave64", w64, 8, false, { { -0.5f, 0.0f, 0.5f } } },
    };
    for (const Case& c : cases)
    {
        auto reader = Open<WavFileReader>(c.bytes);
        ASSERT_TRUE(reader) << c.name;
        const AudioFilesMetadata& m = reader->getMetadata();
        EXPECT_EQ(m.isFloat, c.isFloat) << c.name;
        EXPECT_EQ(m.bitsPerSample, c.bits) << c.name;
        EXPECT_EQ(reader->getNumSamples(), c.expected[0].size()) << c.name;
        EXPECT_EQ(ReadFrames(*reader, 0, c.expected[0].size()), c.expected) << c.name;
        EXPECT_EQ(reader->isAmbisonic(), c.name == std::string("extensible ambisonic")) << c.name;
        EXPECT_EQ(m.isRf64, c.name == std::string("RF64")) << c.name;
        EXPECT_EQ(m.isW64, c.name == std::string("Wave64")) << c.name;
    }
    // The canonical layout: samples from byte 44, sizes and a frame count from the data size.
    auto reader = Open<WavFileReader>(Wav(Fmt(1, 2, 44100, 16), Pcm16({ 0, 1, 2, 3, 4, 5 })));
    EXPECT_TRUE(reader->getDataStart() == 44 && reader->getDataSize() == 12 && reader->getMetadata().sampleRate == 44100.0);
    reader = Open<WavFileReader>(cases.back().bytes);
    EXPECT_TRUE(reader->getDataSize() == 3 && reader->getMetadata().sampleRate == 22050.0);
    reader = Open<WavFileReader>(cases[cases.size() - 2].bytes);
    EXPECT_EQ(reader->getDataSize(), 6);
}

TEST_F(WavFileTest, UnreadableFormatsOpenWithNoSamples)
{
    Guid otherGuid = pcmGuid;
    otherGuid[0] = 0x02;
    const std::string shortExtensible = Bytes().Text(Fmt(0xFFFE, 2, 48000, 16)).U16(0);
    for (const std::string& fmt : { Extensible(2, 48000, 16, otherGuid), shortExtensible, Fmt(0x55, 2, 48000, 16) })
    {
        auto reader = Open<WavFileReader>(Wav(fmt, Pcm16({ 1, 2, 3, 4 })));
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->getBytesPerFrame(), 0);
        EXPECT_EQ(reader->getNumSamples(), 0u);
        EXPECT_EQ(ReadFrames(*reader, 0, 2), (Channels { { 0.0f, 0.0f }, { 0.0f, 0.0f } }));
    }
}

TEST_F(WavFileTest, ChunkWalk)
{
    struct Case { const char* name; std::string bytes; uint64_t numSamples; double rate; };
    const std::string fmt = Chunk("fmt ", Fmt(1, 1, 8000, 16));
    const std::string data = Chunk("data", Pcm16({ 1, 2 }));
    const std::string later = Chunk("fmt ", Fmt(1, 1, 48000, 16));
    const std::string w64Fmt8 = W64Chunk(w64Fmt, Fmt(1, 1, 22050, 8));
    std::string unpadded = Riff(Chunk("fmt ", Fmt(1, 1, 8000, 8)) + Chunk("data", std::string(3, '\x80')));
    unpadded.pop_back();
    std::vector<Case> cases = {
        { "odd chunks padded; a second data chunk overrides the first",
          Riff(Chunk("JUNK", "abc") + Chunk("fmt ", Fmt(1, 1, 8000, 8)) + Chunk("data", std::string(5, '\x10'))
               + Chunk("data", Z("\x80\xC0"))), 2, 8000 },
        { "the last chunk lacks its pad byte", unpadded, 3, 8000 },
        { "fmt after data: the length was taken without a width", Riff(data + fmt), 0, 8000 },
        { "a named empty chunk is stepped over", Riff(fmt + Chunk("smpl", "") + data), 2, 8000 },
        { "an unknown empty chunk ends the walk", Riff(fmt + Chunk("abcd", "") + data), 0, 8000 },
        { "data past the RIFF size", Riff(fmt + data, 4 + int64_t(fmt.size())), 0, 8000 },
        { "a RIFF size beyond the file", Riff(fmt + data, 1000000), 2, 8000 },
        { "a short data chunk believes its size", Riff(fmt + Bytes().Text("data").U32(0xFFFFFFFF).Text(Pcm16({ 8192 }))),
          0xFFFFFFFFu / 2, 8000 },
        { "an odd ds64 data size steps over the pad byte",
          Rf64(fmt + Chunk("data", std::string(3, '\0'), 0xFFFFFFFF) + later, 3), 1, 48000 },
        { "a ds64 data size of 0 leaves the chunk's own size", Rf64(fmt + data + later, 0), 0, 48000 },
        { "Wave64: the chunk after unaligned data starts on a multiple of 8",
          Wave64(w64Fmt8 + W64Chunk(w64Data, "abc") + W64Chunk(w64Fmt, Fmt(1, 1, 32000, 8))), 3, 32000 },
        // The riff size counts from offset 24: ending 4 bytes past fmt, it lets the next chunk in.
        { "Wave64 riff size reaching into data", Wave64(w64Fmt8 + W64Chunk(w64Data, "abc"), int64_t(w64Fmt8.size()) + 20), 3, 22050 },
        { "Wave64 riff size ending at data", Wave64(w64Fmt8 + W64Chunk(w64Data, "abc"), int64_t(w64Fmt8.size()) + 16), 0, 22050 },
        { "Wave64 unknown empty chunk ends the walk", Wave64(w64Fmt8 + W64Chunk(w64Other, "") + W64Chunk(w64Data, "abc")), 0, 22050 },
        // The step to the next chunk is worked out in single precision and kept to 32 bits: a
        // junk length of 4 GiB + 8 rounds to 4 GiB and wraps to 0, so data follows at once.
        { "Wave64 junk of 4 GiB", Wave64(w64Fmt8 + W64Chunk(w64Junk, "", (int64_t(1) << 32) + 32) + W64Chunk(w64Data, "abc")), 3, 22050 },
    };
    for (const char* id : { "bext", "cue ", "LIST", "axml", "chna", "fact", "PAD " })
        cases.push_back({ id, Riff(fmt + Chunk(id, "xyz") + data), 2, 8000 });
    for (const Case& c : cases)
    {
        auto reader = Open<WavFileReader>(c.bytes);
        ASSERT_TRUE(reader) << c.name;
        EXPECT_EQ(reader->getNumSamples(), c.numSamples) << c.name;
        EXPECT_EQ(reader->getMetadata().sampleRate, c.rate) << c.name;
    }
    EXPECT_EQ(ReadFrames(*Open<WavFileReader>(cases[0].bytes), 0, 2), (Channels { { 0.0f, 0.5f } }));
    EXPECT_EQ(ReadFrames(*Open<WavFileReader>(cases[7].bytes), 0, 3), (Channels { { 0.25f, 0.0f, 0.0f } }));
}

TEST_F(WavFileTest, ShortFilesReadZeroBytesAndPastTheEndReadsSilence)
{
    // The data chunk claims 6 frames and holds 2: missing 8-bit frames decode to -1.0.
    auto reader = Open<WavFileReader>(Riff(Chunk("fmt ", Fmt(1, 1, 8000, 8)) + Bytes().Text("data").U32(6).Text("\xC0\x80")));
    EXPECT_EQ(reader->getNumSamples(), 6u);
    EXPECT_EQ(ReadFrames(*reader, 0, 8), (Channels { { 0.5f, 0.0f, -1.0f, -1.0f, -1.0f, -1.0f, 0.0f, 0.0f } }));
    EXPECT_EQ(ReadFrames(*reader, 7, 2), (Channels { { 0.0f, 0.0f } }));
    reader = Open<WavFileReader>(Rf64(Chunk("fmt ", Fmt(1, 1, 8000, 16)) + Chunk("data", Pcm16({ 1, -16384, 8192 }), 0xFFFFFFFF), 6));
    EXPECT_EQ(ReadFrames(*reader, 1, 3), (Channels { { -0.5f, 0.25f, 0.0f } }));
}

TEST_F(WavFileTest, ReadsAcrossStagingBlocksUpToTheWidestFrame)
{
    // 2000 stereo 24-bit frames take several passes through the staging block.
    Bytes data;
    for (int i = 0; i < 2000; ++i)
        data.U24(uint32_t(i * 256)).U24(uint32_t(-i * 128));
    auto reader = Open<WavFileReader>(Wav(Fmt(1, 2, 48000, 24), data));
    const Channels samples = ReadFrames(*reader, 123, 1877);
    for (int i = 0; i < 1877; ++i)
    {
        ASSERT_EQ(samples[0][size_t(i)], float((i + 123) * 256) / 8388608.0f) << i;
        ASSERT_EQ(samples[1][size_t(i)], float(-(i + 123) * 128) / 8388608.0f) << i;
    }

    // 720 channels of 64 bits fill the staging block exactly; 721 would not fit.
    Bytes frames;
    for (int i = 0; i < 2 * 720; ++i)
        frames.F64(i / 2048.0);
    reader = Open<WavFileReader>(Wav(Fmt(3, 720, 48000, 64), frames));
    EXPECT_EQ(reader->getBytesPerFrame(), WavFileReader::rawBlockSize);
    EXPECT_EQ(ReadFrames(*reader, 0, 2)[719][1], 1439 / 2048.0f);
    EXPECT_EQ(Refusal<WavFileReader>(Riff(Chunk("fmt ", Fmt(3, 721, 48000, 64)))), NotValid("WAV"));
}

TEST_F(WavFileTest, Refusals)
{
    const std::string fmt = Chunk("fmt ", Fmt(1, 1, 44100, 16));
    const std::string data = Chunk("data", Pcm16({ 0, 0 }));
    const std::string rf64 = Bytes().Text("RF64").U32(0xFFFFFFFF).Text("WAVE");
    const auto withFmt = [&](const std::string& fmtPayload) { return Riff(Chunk("fmt ", fmtPayload) + data); };
    const std::string notValid[] = {
        "", "FORM0000AIFF", Bytes().Text("RIFF").U32(20).Text("AVI ") + fmt,
        Riff(fmt + data, 0), // RIFF size 0, as an unfinished stream leaves it
        Riff(data),          // no fmt
        withFmt(Fmt(1, 1, 0, 16)), withFmt(Fmt(1, 0, 44100, 16)),
        // RF64 without a usable ds64 first.
        rf64 + fmt + data, rf64 + Chunk("ds64", std::string(26, '\0')) + fmt + data,
        // Bits out of range with a rate or channel count of 0 to divide by.
        withFmt(Fmt(1, 2, 0, 0xFFFF, 8000)), withFmt(Fmt(1, 0, 8000, 0xFFFF, 8000)), withFmt(Fmt(1, 2, -1, 0xFFFF, 0x80000000)),
        // A negative channel count makes a frame far wider than the staging block.
        withFmt(Fmt(1, 0xFFFF, 8000, 16)), withFmt(Fmt(0x55, 0xFFFF, 8000, 16)),
        // Frames to read, but the format that came after them has no width.
        Riff(Chunk("fmt ", Fmt(1, 1, 8000, 16)) + data + Chunk("fmt ", Fmt(0x55, 1, 8000, 16))),
        // An RF64 data size no file can have.
        Rf64(Chunk("fmt ", Fmt(1, 1, 8000, 16)) + data, uint64_t(1) << 63),
        // A Wave64 chunk size that doesn't cover its own header would walk backwards.
        Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 8000, 16)) + W64Chunk(w64Junk, "", 0)),
        Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 8000, 16)) + W64Chunk(w64Data, "", 8)),
    };
    for (size_t i = 0; i < std::size(notValid); ++i)
        EXPECT_EQ(Refusal<WavFileReader>(notValid[i]), NotValid("WAV")) << "case " << i;

    EXPECT_EQ(Refusal<WavFileReader>(Bytes().Text("BW64").U32(0xFFFFFFFF).Text("WAVE") + fmt + data), "BW64 chunk is not handled");
    Guid badRiff = w64Riff;
    badRiff[15] = 1;
    std::string w64 = Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 44100, 16)));
    EXPECT_EQ(Refusal<WavFileReader>(Bytes().Id(badRiff) + w64.substr(16)), "invalid riff chunk for w64");
    w64[39] = 0;
    EXPECT_EQ(Refusal<WavFileReader>(w64), "invalid wave chunk for w64");
}

// Files written by other tools (sox, ffmpeg) from one 16-bit stereo ramp: frame i holds
// (i * 3 - 96) * 256 on the left and (50 - i * 2) * 256 on the right, 64 frames.
TEST(WavReaderFixtures, FilesOfOtherTools)
{
    for (const auto& [name, bits, isFloat] :
         { std::tuple { "ramp-u8.wav", 8u, false }, { "ramp-s24.wav", 24u, false }, { "ramp-s32.wav", 32u, false },
           { "ramp-f32.wav", 32u, true }, { "ramp-f64.wav", 64u, true }, { "ramp-s16.w64", 16u, false },
           { "ramp-s16-rf64.wav", 16u, false }, { "ramp-s24.amb", 24u, false } })
    {
        SCOPED_TRACE(name);
        StreamCapture err(std::cerr);
        WavFileReader reader(File(String(std::string(KVO_TEST_DATA_DIR) + "/" + name)));
        EXPECT_EQ(reader.getMetadata().sampleRate, 44100.0);
        EXPECT_EQ(reader.getMetadata().bitsPerSample, bits);
        EXPECT_EQ(reader.getMetadata().isFloat, isFloat);
        ASSERT_EQ(reader.getNumSamples(), 64u);
        const Channels samples = ReadFrames(reader, 0, 64);
        for (int i = 0; i < 64; ++i)
        {
            ASSERT_EQ(samples[0][size_t(i)], float(i * 3 - 96) / 128.0f) << i;
            ASSERT_EQ(samples[1][size_t(i)], float(50 - i * 2) / 128.0f) << i;
        }
    }
}

// ---------------------------------------------------------------------------------------
// Writer

using TestWavWriter = OpenWriter<WavFileWriter>;

/** The RF64 form of the writer's header: ds64 where the plain form has JUNK, an extensible fmt. */
std::string Rf64WriterHeader(int channels, uint32_t rate, int bits, uint64_t dataSize, uint32_t mask)
{
    return Bytes().Text("RF64").U32(0xFFFFFFFF).Text("WAVE").Text("ds64").U32(28).U64(96 + dataSize + (dataSize & 1))
        .U64(dataSize).Text(std::string(12, '\0')).Text(Chunk("fmt ", Extensible(channels, int(rate), bits, pcmGuid, mask)))
        .Text("data").U32(0xFFFFFFFF);
}

TEST_F(WavFileTest, HeaderFormsAndTheirSizes)
{
    // No samples: never written.
    struct Case { int channels; uint32_t rate; int bits; uint32_t mask; bool forceRf64; Fixed samples; std::string data; };
    const std::vector<Case> cases = {
        { 2, 48000, 16, 3, false, {}, "" },
        { 1, 44100, 16, 0, false, { { 0x12340000 } }, "\x34\x12" },
        // 8-bit samples are unsigned; the odd data takes a zero pad byte that RIFF's size counts.
        { 1, 8000, 8, 0, false, { { int32_t(0x80000000), 0, 0x7F000000 } }, Z("\x00\x80\xFF\x00") },
        // More than two channels are extensible, with the speaker mask of the common layouts.
        { 3, 96000, 24, 0, false, {}, "" },
        { 5, 48000, 16, 55, false, {}, "" },
        { 6, 48000, 16, 63, false, {}, "" },
        { 7, 48000, 16, 1591, false, {}, "" },
        { 8, 48000, 16, 1599, false, {}, "" },
        // 32 bits are floats, beyond full scale too.
        { 1, 44100, 32, 0, false, { { std::bit_cast<int32_t>(1.5f), std::bit_cast<int32_t>(-2.25f) } },
          Bytes().F32(1.5f).F32(-2.25f) },
        { 2, 44100, 16, 3, true, { { 0x01000000, 0x02000000, 0x03000000 }, { 0, 0, 0 } },
          Z("\x00\x01\x00\x00\x00\x02\x00\x00\x00\x03\x00\x00") },
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.channels) + " channels, " + std::to_string(c.bits) + " bits");
        const std::string path = folder / "out.wav";
        const uint64_t numFrames = c.samples.empty() ? 0 : c.samples[0].size();
        const uint64_t dataSize = numFrames * uint64_t(c.channels * c.bits / 8);
        {
            TestWavWriter writer(path, c.rate, unsigned(c.channels), c.bits);
            EXPECT_EQ(writer.getMetadata().formatName, "WAV File");
            EXPECT_EQ(writer.getDefaultExtension(), ".wav");
            EXPECT_EQ(ReadWholeFile(path), WavWriterHeader(c.channels, c.rate, c.bits, 0, c.mask)); // from the first byte on
            writer.setForceRf64(c.forceRf64);
            if (!c.samples.empty())
            {
                ASSERT_TRUE(writer.WriteRaw(c.samples));
            }
        }
        EXPECT_EQ(ReadWholeFile(path), (c.forceRf64 ? Rf64WriterHeader : WavWriterHeader)(c.channels, c.rate, c.bits, dataSize, c.mask)
                                           + c.data);
        WavFileReader reader { File(path.c_str()) };
        EXPECT_EQ(reader.getMetadata().isRf64, c.forceRf64);
        EXPECT_EQ(reader.getMetadata().isFloat, c.bits == 32);
        EXPECT_EQ(reader.getNumSamples(), numFrames);
        std::remove(path.c_str());
    }
}

TEST_F(WavFileTest, DataOfFourGibibytesSwitchesToRf64)
{
    // One byte less keeps the plain form, its sizes cut to 32 bits; the pad byte lands at 4 GiB
    // (a sparse file).
    for (const uint64_t size : { (uint64_t(1) << 32) - 1, uint64_t(1) << 32 })
    {
        const std::string path = folder / "large.wav";
        {
            TestWavWriter writer(path, 8000.0, 1, 8);
            writer.bytesWritten = size; // 8-bit mono: as many frames as bytes
            writer.metadata.numSamples = size;
        }
        const bool rf64 = size >> 32 != 0;
        std::string header(104, '\0');
        std::ifstream(path, std::ios::binary).read(header.data(), 104);
        EXPECT_EQ(header, rf64 ? Rf64WriterHeader(1, 8000, 8, size, 0) : WavWriterHeader(1, 8000, 8, size));
        WavFileReader reader { File(path.c_str()) };
        EXPECT_EQ(reader.getMetadata().isRf64, rf64);
        EXPECT_EQ(reader.getNumSamples(), size);
        std::remove(path.c_str());
    }
}

} // namespace
} // namespace kvo::testing
