// MPEG audio decodes against mpg123's: every fixture of data/mp3 (lame, Layer III) and
// data/mp2 (twolame and ffmpeg, Layer II; frames written by make_allocations.py through every
// allocation of each Layer II table, and Layer I) is a row. Then what no file reaches:
// damaged codes in frames built here, header words, and parts of the decoder the tool never
// drives to their edges.

#include <cstdio>
#include <iterator>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "KvoTestMpeg.h"
#include "audiofiles/KvoMP3FileReader.h"
#include "audiofiles/KvoMp3Decoder.h"
#include "audiofiles/KvoMp3Frame.h"
#include "audiofiles/KvoMp3LayerIII.h"
#include "audiofiles/KvoMp3Synthesis.h"
#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

using namespace testing;

/**
    A fixture: its file below tests/data, what the reader must report, and the stride of its
    reference (every 8th sample frame for the long ones, in NAME.every8.f32, else NAME.f32).
    Lengths count 1152 sample frames for each audio frame, whatever the layer holds: a
    Layer III tag's frame count, or for files without one, size / frame size.
*/
struct MpegFixture
{
    const char* file;
    double rate;
    uint32_t channels;
    uint64_t frames;
    size_t stride = 1;
};

void PrintTo(const MpegFixture& fixture, std::ostream* stream)
{
    *stream << fixture.file;
}

const MpegFixture fixtures[] = {
    // Layer III, MPEG-1: CBR and VBR with Xing or Info tags, CRC, ID3v2, free format (no
    // length without a tag), intensity stereo set into lame's joint stereo frames.
    {"mp3/cbr-stereo-44k.mp3", 44100, 2, 9},      {"mp3/joint-ms-44k.mp3", 44100, 2, 9},
    {"mp3/joint-44k-notag.mp3", 44100, 2, 9},     {"mp3/mono-44k-crc.mp3", 44100, 1, 10},
    {"mp3/stereo-32k.mp3", 32000, 2, 7},          {"mp3/mono-48k.mp3", 48000, 1, 11},
    {"mp3/vbr-xing-44k.mp3", 44100, 2, 9},        {"mp3/id3v2-44k.mp3", 44100, 1, 9},
    {"mp3/freeformat-44k.mp3", 44100, 1, 0},      {"mp3/intensity-44k.mp3", 44100, 2, 7},
    // Layer III, MPEG-2 and 2.5: 576 samples a frame, counted as 1152.
    {"mp3/mpeg2-22k-stereo.mp3", 22050, 2, 13},   {"mp3/mpeg2-24k-mono.mp3", 24000, 1, 14},
    {"mp3/mpeg2-16k-stereo.mp3", 16000, 2, 10},   {"mp3/vbr-xing-22k.mp3", 22050, 1, 17},
    {"mp3/intensity-22k.mp3", 22050, 2, 12},      {"mp3/mpeg25-8k-mono.mp3", 8000, 1, 8},
    {"mp3/mpeg25-11k-stereo.mp3", 11025, 2, 10},  {"mp3/mpeg25-12k-mono.mp3", 12000, 1, 11},
    // Layer II, MPEG-1: the four allocation tables by rate and bitrate a channel, joint stereo
    // bounds 4 to 16, CRC words; MPEG-2 with the low rates' table.
    {"mp2/tl-joint-44k-192.mp2", 44100, 2, 4},    {"mp2/tl-joint-44k-160.mp2", 44100, 2, 4},
    {"mp2/tl-joint-48k-192.mp2", 48000, 2, 5},    {"mp2/tl-joint-32k-64.mp2", 32000, 2, 6},
    {"mp2/tl-stereo-crc-48k-256.mp2", 48000, 2, 5}, {"mp2/tl-mono-44k-48.mp2", 44100, 1, 8},
    {"mp2/ff-stereo-48k-192.mp2", 48000, 2, 5},   {"mp2/ff-mono-32k-64.mp2", 32000, 1, 6},
    {"mp2/tl-joint-22k-64.mp2", 22050, 2, 5},     {"mp2/tl-mono-16k-32.mp2", 16000, 1, 5},
    {"mp2/ff-stereo-24k-96.mp2", 24000, 2, 5},
    // Every allocation of tables a to d and the low rates' one.
    {"mp2/alloc-a.mp2", 48000, 2, 10, 8},         {"mp2/alloc-b.mp2", 32000, 2, 8, 8},
    {"mp2/alloc-c.mp2", 48000, 2, 9, 8},          {"mp2/alloc-d.mp2", 32000, 2, 8, 8},
    {"mp2/alloc-lsf.mp2", 24000, 2, 8, 8},
    // Layer I: 384 samples a frame, counted as 1152; mono, joint stereo through every bound
    // and plain stereo, and at 44.1 kHz dual channel and stereo frames with padding slots.
    {"mp2/layer1-mono.mp2", 32000, 1, 6, 8},      {"mp2/layer1-joint.mp2", 32000, 2, 6, 8},
    {"mp2/layer1-44k.mp2", 44100, 2, 6, 8},
};

class MpegFixtureTest : public ::testing::TestWithParam<MpegFixture>
{
};

// Both decoders start with the first sample of the first audio frame: no offset. Past the
// decodable samples, up to the reported length, the reader gives zeros, and beyond one block
// of them it says that the read fell short.
TEST_P(MpegFixtureTest, MatchesItsReferenceDecode)
{
    const MpegFixture& fixture = GetParam();
    const std::string file = MpegData(fixture.file);
    const std::string stem = file.substr(0, file.rfind('.'));
    const std::vector<float> reference = ReadFloats(stem + (fixture.stride == 1 ? ".f32" : ".every8.f32"));
    MP3FileReader reader {File(String(file))};
    EXPECT_EQ(reader.getMetadata().sampleRate, fixture.rate);
    ASSERT_EQ(reader.getNumChannels(), fixture.channels);
    EXPECT_EQ(reader.getMetadata().bitsPerSample, 32u);
    EXPECT_TRUE(reader.getMetadata().isFloat);
    EXPECT_EQ(reader.getMetadata().formatName, "MP3 File");
    EXPECT_EQ(reader.getNumSamples(), fixture.frames * 1152);

    const uint64_t decodable = reference.size() / fixture.channels * fixture.stride;
    const uint64_t length = std::max(decodable, reader.getNumSamples());
    const ChannelRead read = ReadChannels(reader, 0, length);
    EXPECT_EQ(read.ok, length <= decodable + 1152); // the last frame is followed by one block of zeros
    const Accuracy accuracy = ExpectFullAccuracy(reference, read, fixture.stride);
    std::printf("[ accuracy ] %-30s rms %.3g max %.3g\n", fixture.file, accuracy.rms, accuracy.max);
    for (const std::vector<float>& channel : read.channels)
        EXPECT_TRUE(AllZero(channel, decodable));

    // The filterbank chosen for this processor gives the plain path's samples to the bit.
    const bool wide = std::exchange(mp3WideFilterbank, false);
    MP3FileReader plainReader {File(String(file))};
    const ChannelRead plain = ReadChannels(plainReader, 0, length);
    mp3WideFilterbank = wide;
    EXPECT_EQ(plain.channels, read.channels);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, MpegFixtureTest, ::testing::ValuesIn(fixtures), [](const auto& row) {
    std::string name = row.param.file;
    name = name.substr(4, name.rfind('.') - 4);
    for (char& c : name)
        c = c == '-' ? '_' : c;
    return name;
});

//==============================================================================
// Codes that no encoder writes: a mono Layer II frame at 48 kHz and 96 kbit/s (table a, 288
// bytes) with one sub-band on, allocation 1 (three levels, grouped 5-bit codes).

std::string Layer2GroupedFrame(uint32_t code, uint32_t scaleFactor)
{
    BitWriter w = Mpeg1Header(2, 6, 1, 3);
    for (int sb = 0; sb < 27; ++sb) // allocation widths of table a: 4, 3 from sub-band 11, 2 from 23
        w.Put(sb == 5 ? 1 : 0, sb < 11 ? 4 : sb < 23 ? 3 : 2);
    w.Put(2, 2).Put(scaleFactor, 6); // selection 2: one scale factor for the frame
    for (int granule = 0; granule < 12; ++granule)
        w.Put(code, 5);
    return Frame(w, 288);
}

TEST(MpegDamagedCodes, GroupedCodesPastTheTableAndScaleFactor63AreSilent)
{
    // Codes 27 to 31 and scale factor index 63 do not exist; code 13 is the middle level three
    // times, silent as it should be; the top level (26) is not.
    struct Case { uint32_t code; uint32_t scaleFactor; bool silent; };
    const Case cases[] = {{27, 9, true}, {31, 9, true}, {13, 9, true}, {26, 9, false}, {26, 63, true}, {0, 62, false}};
    TemporaryFolder folder;
    for (const Case& c : cases)
    {
        const std::string path = folder / "grouped.mp3";
        WriteWholeFile(path, Layer2GroupedFrame(c.code, c.scaleFactor) + Layer2GroupedFrame(c.code, c.scaleFactor));
        MP3FileReader reader {File(String(path))};
        const ChannelRead read = ReadChannels(reader, 0, 2 * 1152);
        EXPECT_EQ(AllZero(read.channels[0]), c.silent) << c.code << " " << c.scaleFactor;
    }
}

//==============================================================================
// Header words that no fixture has

TEST(MpegHeaders, FieldsAndFrameSizes)
{
    // Frame sizes less the 4 header bytes: Layer I in 4-byte slots, Layer III of the low
    // rates half of Layer II's, free format none. Bit 20 clear is MPEG-2.5 whatever bit 19 says.
    struct Case { uint32_t word; int layer; int lowRate; bool mpeg25; int rateIndex; int channels; bool crc; int frameBytes; };
    const Case cases[] = {
        {0xFFFB9000, 3, 0, false, 0, 2, false, 413}, {0xFFFB9200, 3, 0, false, 0, 2, false, 414},
        {0xFFFA90C0, 3, 0, false, 0, 1, true, 413},  {0xFFF38400, 3, 1, false, 4, 2, false, 188},
        {0xFFE38800, 3, 1, true, 8, 2, false, 572},  {0xFFEB8800, 3, 1, true, 8, 2, false, 572},
        {0xFFFB0000, 3, 0, false, 0, 2, false, 0},   {0xFFFF4000, 1, 0, false, 0, 2, false, 132},
        {0xFFFF4200, 1, 0, false, 0, 2, false, 136}, {0xFFFD8000, 2, 0, false, 0, 2, false, 413},
        {0xFFFD8200, 2, 0, false, 0, 2, false, 414}, {0xFFF58000, 2, 1, false, 3, 2, false, 413},
    };
    for (const Case& c : cases)
    {
        Mp3FrameHeader header;
        parseFrameHeader(header, c.word);
        EXPECT_EQ(header.layer, c.layer) << std::hex << c.word;
        EXPECT_EQ(header.lowSampleRate, c.lowRate) << std::hex << c.word;
        EXPECT_EQ(header.isMpeg25, c.mpeg25) << std::hex << c.word;
        EXPECT_EQ(header.sampleRateIndex, c.rateIndex) << std::hex << c.word;
        EXPECT_EQ(header.numChannels, c.channels) << std::hex << c.word;
        EXPECT_EQ(header.hasCrc, c.crc) << std::hex << c.word;
        EXPECT_EQ(header.frameBytes, c.frameBytes) << std::hex << c.word;
    }
}

//==============================================================================
// What the tool never asks for and no file reaches: the decoder's channel selection, the bit
// cursor at the end of its array, region counts past the band table, intensity positions past
// the tables

/** A whole file through the decoder with a channel selection: one channel out, or both for -1. */
std::vector<std::vector<float>> DecodeSelecting(const std::string& path, int32_t select)
{
    Mp3DecoderState state {FileReader(File(String(path)))};
    state.header.channelSelect = select;
    std::vector<std::vector<float>> channels(select == -1 ? 2 : 1);
    std::vector<float> block[2] = {std::vector<float>(1152), std::vector<float>(1152)};
    for (int32_t result = 1; result >= 0;)
    {
        int32_t done = 0;
        result = state.decodeStep(block[0].data(), block[1].data(), done);
        for (size_t ch = 0; result == 0 && ch < channels.size(); ++ch)
            channels[ch].insert(channels[ch].end(), block[ch].begin(), block[ch].begin() + done);
    }
    return channels;
}

TEST(MpegDecoderParts, ChannelSelectionGivesOneChannelOrTheirMean)
{
    struct Case { const char* file; std::vector<int32_t> selections; };
    const Case cases[] = {{"mp2/layer1-joint.mp2", {0, 1, 3}}, {"mp2/tl-stereo-crc-48k-256.mp2", {0, 1, 3}},
                          {"mp3/joint-44k-notag.mp3", {0, 1, 3}}};
    for (const Case& c : cases)
    {
        const auto stereo = DecodeSelecting(MpegData(c.file), -1);
        ASSERT_GT(stereo[0].size(), 1000u);
        for (int32_t select : c.selections)
        {
            const std::vector<float> one = DecodeSelecting(MpegData(c.file), select)[0];
            ASSERT_EQ(one.size(), stereo[0].size());
            for (size_t i = 0; i < one.size(); ++i)
            {
                const float expected = select == 3 ? 0.5f * (stereo[0][i] + stereo[1][i]) : stereo[size_t(select)][i];
                ASSERT_NEAR(one[i], expected, 1e-6f) << c.file << " " << select << " " << i;
            }
        }
    }
}

TEST(MpegDecoderParts, BitsPastTheArrayReadAsZeros)
{
    uint8_t bytes[mp3ByteBufferSize] = {};
    bytes[0] = 0xA5;
    bytes[1] = 0xFF;
    bytes[mp3ByteBufferSize - 1] = 0xFF;
    Mp3BitReader bits {bytes, 0, 0};
    EXPECT_EQ(bits.readBits(0), 0u);
    EXPECT_EQ(bits.readBits(3), 0x5u);
    EXPECT_EQ(bits.readBits(9), 0x05Fu);
    EXPECT_EQ(bits.bitPointer, 1);
    EXPECT_EQ(bits.bitOffset, 4);
    bits.bitPointer = mp3ByteBufferSize - 1;
    EXPECT_EQ(bits.readBits(12), 0xF00u);
    bits.skipBits(1 << 20); // however far the cursor has run
    EXPECT_EQ(bits.readBits(17), 0u);
    EXPECT_EQ(bits.readBit(), 0u);
}

TEST(MpegDecoderParts, RegionCountsPastTheTableEndAtItsLastBoundary)
{
    // MPEG-1 mono side information, both granules alike: region0 15 and region1 7 run past
    // the 22 long bands of 44.1 kHz.
    BitWriter w;
    w.Put(300, 9).Put(0, 5).Put(0xA, 4);
    for (int granule = 0; granule < 2; ++granule)
        w.Put(1234, 12).Put(300, 9).Put(210, 8).Put(5, 4).Put(0, 1).Put(1, 5).Put(2, 5).Put(3, 5).Put(15, 4).Put(7, 3).Put(5, 3);
    std::vector<uint8_t> bytes(w.bytes.begin(), w.bytes.end());
    bytes.resize(mp3ByteBufferSize);
    Mp3BitReader bits {bytes.data(), 0, 0};
    Mp3SideInfo sideInfo;
    readSideInfoMpeg1(sideInfo, bits, 1, 0, 0, -1);
    const Mp3GranuleInfo& info = sideInfo.granules[0][1];
    EXPECT_EQ(bits.bitPointer, 17);
    EXPECT_EQ(sideInfo.mainDataBegin, 300);
    EXPECT_EQ(info.big_values, 288u); // 300 in the stream
    EXPECT_EQ(info.region1Start, 81u); // long boundary 16: 162 lines
    EXPECT_EQ(info.region2Start, 288u);
}

TEST(MpegDecoderParts, IntensityPositionsThatAreNoneLeaveTheirBand)
{
    // Position 7, and at the low rates 5-bit scale factors past the tables (31), mark bands
    // coded as they stand; the one band at position 2 takes the table's factors. Long blocks
    // start at the right channel's first silent band, here 10 at 44.1 kHz and 0 at 22.05.
    const Mp3Tables& tables = GetMp3Tables();
    struct Case { int32_t rateIndex; int32_t lowRate; int32_t none; int32_t first; int32_t band; float left; float right; };
    const Case cases[] = {{0, 0, 7, 10, 12, tables.intensityLeft[0][2], tables.intensityRight[0][2]},
                          {3, 1, 31, 0, 3, tables.intensityLowLeft[0][1][2], tables.intensityLowRight[0][1][2]}};
    for (const Case& c : cases)
    {
        float left[576], right[576];
        std::fill(std::begin(left), std::end(left), 1.0f);
        std::fill(std::begin(right), std::end(right), 0.5f);
        int32_t scaleFactors[39];
        std::fill(std::begin(scaleFactors), std::end(scaleFactors), c.none);
        scaleFactors[c.band] = 2;
        Mp3GranuleInfo info;
        info.scalefac_compress = 1;
        info.maxBand[3] = c.first;
        applyIntensity(left, right, scaleFactors, info, c.rateIndex, false, c.lowRate);
        const int16_t* bounds = Mp3Tables::bandTable[c.rateIndex] + Mp3Tables::longBoundaries;
        for (int32_t line = 0; line < 576; ++line)
        {
            const bool inBand = line >= bounds[c.band] && line < bounds[c.band + 1];
            ASSERT_EQ(left[line], inBand ? c.left : 1.0f) << c.rateIndex << " " << line;
            ASSERT_EQ(right[line], inBand ? c.right : 0.5f) << c.rateIndex << " " << line;
        }
    }
}

} // namespace
} // namespace kvo
