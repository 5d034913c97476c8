// WavFileWriter: the exact bytes of each header form and the switch to RF64 at 4 GiB of
// data, read back by the reader.

#include <bit>
#include <cstdio>
#include <fstream>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "audiofiles/KvoWavFileWriter.h"

namespace kvo::testing
{
namespace
{

using TestWavWriter = OpenWriter<WavFileWriter>;

/** The RF64 form of the writer's header: ds64 where the plain form has JUNK, an extensible fmt. */
std::string Rf64WriterHeader(int channels, uint32_t rate, int bits, uint64_t dataSize, uint32_t mask)
{
    return Bytes().Text("RF64").U32(0xFFFFFFFF).Text("WAVE").Text("ds64").U32(28).U64(96 + dataSize + (dataSize & 1))
        .U64(dataSize).Text(std::string(12, '\0')).Text(Chunk("fmt ", Extensible(channels, int(rate), bits, pcmGuid, mask)))
        .Text("data").U32(0xFFFFFFFF);
}

using WavWriterTest = AudioFileTest;

TEST_F(WavWriterTest, HeaderFormsAndTheirSizes)
{
    struct Case
    {
        int channels;
        uint32_t rate;
        int bits;
        uint32_t mask;
        bool forceRf64;
        Fixed samples; // none: never written
        std::string data;
    };
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

TEST_F(WavWriterTest, DataOfFourGibibytesSwitchesToRf64)
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
