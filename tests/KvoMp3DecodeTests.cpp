// MPEG audio through MP3FileReader, against mpg123's decodes: every fixture of data/mp3 (lame,
// Layer III) and data/mp2 (twolame and ffmpeg, Layer II; make_allocations.py's frames through
// every allocation of each Layer II table, and Layer I) is a row. Then what the reader opens and
// refuses, joins of MPEG audio with WAV, and what no file reaches: damaged codes in frames built
// here, header words, and parts of the decoder the tool never drives to their edges. Damaged
// streams of every layer are in data/malformed.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoMP3FileReader.h"
#include "audiofiles/KvoMp3Decoder.h"
#include "audiofiles/KvoMp3Imdct.h"
#include "audiofiles/KvoMp3LayerIII.h"
#include "audiofiles/KvoMp3Synthesis.h"
#include "audiofiles/KvoMp3Tables.h"

namespace kvo::testing
{
namespace
{

/** A file of tests/data/mp3 or tests/data/mp2, named with its folder: "mp2/alloc-a.mp2". */
std::string MpegData(const std::string& name) { return std::string(KVO_TEST_DATA_DIR) + "/" + name; }

/** A reference decode: mpg123's 32-bit floats, interleaved. */
std::vector<float> ReadFloats(const std::string& path)
{
    const std::string bytes = ReadWholeFile(path);
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
    return values;
}

/** The first numSamples sample frames of the MPEG file at path. */
ChannelRead DecodeMpeg(const std::string& path, uint64_t numSamples)
{
    MP3FileReader reader {File(String(path))};
    return ReadChannels(reader, 0, numSamples);
}

/** True when samples are all 0 from from on. */
bool AllZero(const std::vector<float>& samples, size_t from = 0)
{
    return std::all_of(samples.begin() + int64_t(std::min(from, samples.size())), samples.end(),
                       [](float s) { return s == 0.0f; });
}

/**
    The accuracy limits of full-accuracy MPEG audio decoders (ISO/IEC 11172-4), relative to
    full scale 1.0: an RMS difference below 2^-15 / sqrt(12) and none above 2^-14. The
    reference is interleaved and holds every stride-th sample frame of the decode.
*/
void ExpectFullAccuracy(const std::vector<float>& reference, const ChannelRead& decoded, size_t stride)
{
    const size_t channels = decoded.channels.size();
    ASSERT_GT(reference.size(), 0u);
    double sumSquares = 0.0, worst = 0.0;
    for (size_t i = 0; i < reference.size(); ++i)
    {
        const float sample = decoded.channels.at(i % channels).at(i / channels * stride);
        sumSquares += (double(sample) - reference[i]) * (double(sample) - reference[i]);
        worst = std::max(worst, std::abs(double(sample) - reference[i]));
    }
    EXPECT_LT(std::sqrt(sumSquares / double(reference.size())), std::ldexp(1.0, -15) / std::sqrt(12.0));
    EXPECT_LT(worst, std::ldexp(1.0, -14));
}

/** Bits appended most significant first, as MPEG streams hold them. */
struct BitWriter
{
    std::string bytes;
    int32_t used = 0;

    BitWriter& Put(uint32_t value, int32_t count)
    {
        for (int32_t i = count - 1; i >= 0; --i, ++used)
        {
            if (used % 8 == 0)
                bytes.push_back('\0');
            bytes.back() = char(uint8_t(bytes.back()) | ((value >> i) & 1) << (7 - used % 8));
        }
        return *this;
    }
};

/** The header word of an MPEG-1 frame without CRC: layer 1 to 3, bitrate and rate indices, mode. */
BitWriter Mpeg1Header(int layer, int bitrateIndex, int rateIndex, int mode)
{
    BitWriter w;
    w.Put(0xFFF, 12).Put(1, 1).Put(uint32_t(4 - layer), 2).Put(1, 1);
    w.Put(uint32_t(bitrateIndex), 4).Put(uint32_t(rateIndex), 2).Put(0, 2).Put(uint32_t(mode), 2).Put(0, 6);
    return w;
}

/**
    A fixture: its file below tests/data, what the reader must report (lengths count 1152 sample
    frames an audio frame, whatever the layer holds: a tag's frame count, or size / frame size),
    and the stride of its reference: every 8th sample frame in NAME.every8.f32, else NAME.f32.
*/
struct MpegFixture { const char* file; double rate; uint32_t channels; uint64_t frames; size_t stride = 1; };

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

class MpegFixtureTest : public ::testing::TestWithParam<MpegFixture> {};

// Both decoders start with the first sample of the first audio frame: no offset. After the
// decodable samples the reader gives one block of zeros, whatever length it reported, and
// then says that a read fell short.
TEST_P(MpegFixtureTest, MatchesItsReferenceDecode)
{
    const MpegFixture& fixture = GetParam();
    const std::string file = MpegData(fixture.file);
    const std::string stem = file.substr(0, file.rfind('.'));
    const std::vector<float> reference = ReadFloats(stem + (fixture.stride == 1 ? ".f32" : ".every8.f32"));
    MP3FileReader reader {File(String(file))};
    EXPECT_EQ(reader.getMetadata().sampleRate, fixture.rate);
    ASSERT_EQ(reader.getNumChannels(), fixture.channels);
    EXPECT_TRUE(reader.getMetadata().isFloat && reader.getMetadata().bitsPerSample == 32u);
    EXPECT_EQ(reader.getNumSamples(), fixture.frames * 1152);

    const uint64_t decodable = reference.size() / fixture.channels * fixture.stride;
    const uint64_t length = decodable + 1152;
    const ChannelRead read = ReadChannels(reader, 0, length);
    EXPECT_TRUE(read.ok);
    ExpectFullAccuracy(reference, read, fixture.stride);
    for (const std::vector<float>& channel : read.channels)
        EXPECT_TRUE(AllZero(channel, decodable));
    const ChannelRead beyond = ReadChannels(reader, length, 1);
    EXPECT_TRUE(!beyond.ok && beyond.channels[0][0] == 0.0f);

    // A seek to the middle and back to the start gives the same samples.
    const size_t middle = decodable / 2 + 77;
    const ChannelRead tail = ReadChannels(reader, middle, length - middle);
    for (size_t ch = 0; ch < fixture.channels; ++ch)
        EXPECT_TRUE(std::equal(tail.channels[ch].begin(), tail.channels[ch].end(), &read.channels[ch][middle]));
    EXPECT_EQ(ReadChannels(reader, 0, length).channels, read.channels);

    // The filterbank chosen for this processor gives the plain path's samples to the bit.
    const bool wide = std::exchange(mp3WideFilterbank, false);
    const ChannelRead plain = DecodeMpeg(file, length);
    mp3WideFilterbank = wide;
    EXPECT_EQ(plain.channels, read.channels);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, MpegFixtureTest, ::testing::ValuesIn(fixtures), [](const auto& row) {
    std::string name = std::string(row.param.file).substr(4);
    std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
    return name;
});

//==============================================================================
// The reader around its decoder: what it opens and refuses, absurd tags, reads far past the
// end, and joins with WAV

TEST(Mp3Reader, OpensWhatItCanDecodeAndRefusesTheRest)
{
    const std::string id3 = ReadWholeFile(MpegData("mp3/id3v2-44k.mp3"));
    const size_t tagSize = 10 + ((id3[6] * 128u + id3[7]) * 128 + id3[8]) * 128 + id3[9];
    const std::string mono = ReadWholeFile(MpegData("mp2/tl-mono-44k-48.mp2"));
    const std::string vbr = ReadWholeFile(MpegData("mp3/vbr-xing-44k.mp3"));
    const auto withXingFrames = [&](uint32_t frames) {
        return std::string(vbr).replace(vbr.find("Xing") + 8, 4, BigEndian(frames, 4));
    };
    // frames: the length the reader reports, in blocks of 1152, or -1 for a refusal. Junk
    // before the first frame is searched through for 32768 bytes, and then skipped. Xing
    // counts are believed when positive; without one the length is the file's size over the
    // first frame's size less its header (152 bytes here; 1040 behind the tag), and free format has none.
    struct Case { const char* name; std::string bytes; int64_t frames; const char* sameAs = nullptr; };
    const Case cases[] = {
        {"tag-alone.mp3", id3.substr(0, tagSize), -1},
        {"empty.mp3", "", -1},
        {"far.mp3", std::string(40000, '\0') + mono, -1},
        {"near.mp3", std::string(30000, '\0') + mono, (30000 + int64_t(mono.size())) / 152,
         "mp2/tl-mono-44k-48.mp2"},
        {"xing-huge.mp3", withXingFrames(0x7FFFFFFF), 0x7FFFFFFF, "mp3/vbr-xing-44k.mp3"},
        {"xing-negative.mp3", withXingFrames(0xFFFFFFFF), int64_t(vbr.size()) / 1040},
        {"xing-none.mp3", withXingFrames(0), int64_t(vbr.size()) / 1040},
        {"xing-one.mp3", withXingFrames(1), 1},
        {"free-layer2.mp3", ReadWholeFile(MpegData("mp2/tl-free-44k-200.mp2")), 0},
    };
    TemporaryFolder folder;
    const ScopedConsoleTarget quiet;
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string path = folder / c.name;
        WriteWholeFile(path, c.bytes);
        const std::string refusal = "file " + InQuotes(path) + " is not a valid MP3 file";
        const std::string message = MessageOf([&] { MP3FileReader {File(String(path))}; });
        EXPECT_EQ(message, c.frames < 0 ? refusal : "(no exception)");
        if (c.frames < 0)
            continue;
        MP3FileReader reader {File(String(path))};
        EXPECT_EQ(reader.getNumSamples(), uint64_t(c.frames) * 1152);
        // A read far beyond the data gives one block of silence, then falls short; reading from
        // the start still works.
        const ChannelRead far = ReadChannels(reader, uint64_t(1) << 32, 2000);
        EXPECT_TRUE(!far.ok && AllZero(far.channels[0]));
        EXPECT_TRUE(ReadChannels(reader, uint64_t(1) << 32, 1000).ok);
        const ChannelRead start = ReadChannels(reader, 0, 4000);
        EXPECT_TRUE(start.ok);
        for (const std::vector<float>& channel : start.channels)
            EXPECT_TRUE(std::all_of(channel.begin(), channel.end(), [](float s) { return std::isfinite(s); }));
        EXPECT_TRUE(c.sameAs == nullptr || start.channels == DecodeMpeg(MpegData(c.sameAs), 4000).channels);
    }
}

TEST(Mp3Reader, JoinsWithWavAsFloat)
{
    // Layer II, mono Layer III, the Layer II file again and 100 frames of WAV: each part is
    // what its own reader gives, the mono part silent on the right.
    TemporaryFolder folder;
    WriteWholeFile(folder / "a.mp3", ReadWholeFile(MpegData("mp2/tl-joint-44k-192.mp2")));
    WriteWholeFile(folder / "b.mp3", ReadWholeFile(MpegData("mp2/join-layer3-44k-mono.mp3")));
    WriteWholeFile(folder / "c.wav", CanonicalWav(1, 2, 44100, 16, std::string(400, '\0')));
    const std::vector<std::string> parts = {"a.mp3", "b.mp3", "a.mp3", "c.wav"};
    const ProgramRun run = RunSonaJoin({"-i", "a.mp3, b.mp3, a.mp3, c.wav", "-d", "out.wav"}, folder.GetPath());
    ASSERT_EQ(run.exitCode, 0) << run.standardOutput << run.standardError;

    const ScopedConsoleTarget quiet;
    Channels expected(2);
    for (const std::string& part : parts)
    {
        const auto reader = AudioFileReader::CreateReaderFor(File(String(folder / part)));
        const Channels own = ReadFrames(*reader, 0, reader->getNumSamples());
        for (size_t ch = 0; ch < 2; ++ch)
        {
            const std::vector<float> samples = ch < own.size() ? own[ch] : std::vector<float>(own[0].size());
            expected[ch].insert(expected[ch].end(), samples.begin(), samples.end());
        }
    }
    const auto out = AudioFileReader::CreateReaderFor(File(String(folder / "out.wav")));
    ASSERT_TRUE(out);
    EXPECT_TRUE(out->getMetadata().isFloat && out->getMetadata().bitsPerSample == 32u);
    ASSERT_EQ(out->getNumSamples(), expected[0].size());
    EXPECT_EQ(ReadFrames(*out, 0, expected[0].size()), expected);
}

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
    w.bytes.resize(288, '\0');
    return w.bytes;
}

TEST(MpegDamagedCodes, GroupedCodesPastTheTableAndScaleFactor63AreSilent)
{
    // Codes 27 to 31 and scale factor index 63 do not exist; code 13 is the middle level three
    // times, silent as it should be; the top level (26) is not.
    struct Case { uint32_t code; uint32_t scaleFactor; bool silent; };
    const Case cases[] = {
        {27, 9, true}, {31, 9, true}, {13, 9, true}, {26, 9, false}, {26, 63, true}, {0, 62, false},
    };
    TemporaryFolder folder;
    for (const Case& c : cases)
    {
        const std::string frame = Layer2GroupedFrame(c.code, c.scaleFactor);
        WriteWholeFile(folder / "grouped.mp3", frame + frame);
        EXPECT_EQ(AllZero(DecodeMpeg(folder / "grouped.mp3", 2 * 1152).channels[0]), c.silent) << c.code;
    }
}

//==============================================================================
// Header words that no fixture has

TEST(MpegHeaders, FieldsAndFrameSizes)
{
    // Frame sizes less the 4 header bytes: Layer I in 4-byte slots, Layer III of the low
    // rates half of Layer II's, free format none. Bit 20 clear is MPEG-2.5 whatever bit 19 says.
    struct Case { uint32_t word; int layer, low; bool mpeg25; int rate, channels; bool crc; int bytes; };
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
        Mp3FrameHeader h;
        parseFrameHeader(h, c.word);
        EXPECT_EQ(std::tie(h.layer, h.lowSampleRate, h.isMpeg25, h.sampleRateIndex, h.numChannels, h.hasCrc),
                  std::tie(c.layer, c.low, c.mpeg25, c.rate, c.channels, c.crc)) << std::hex << c.word;
        EXPECT_EQ(h.frameBytes, c.bytes) << std::hex << c.word;
    }
}

//==============================================================================
// What the tool never asks for and no file reaches: the decoder's channel selection, main
// data promised past the frame, the bit cursor at the end of its array, region counts past the
// band table, intensity stereo in every kind of block

/** A whole file through the decoder with a channel selection: one channel out, or both for -1. */
Channels DecodeSelecting(const std::string& path, int32_t select, int32_t* frames = nullptr)
{
    Mp3DecoderState state {FileReader(File(String(path)))};
    state.header.channelSelect = select;
    Channels channels(select == -1 ? 2 : 1);
    std::vector<float> block[2] = {std::vector<float>(1152), std::vector<float>(1152)};
    for (int32_t result = 1; result >= 0;)
    {
        int32_t done = 0;
        result = state.decodeStep(block[0].data(), block[1].data(), done);
        for (size_t ch = 0; result == 0 && ch < channels.size(); ++ch)
            channels[ch].insert(channels[ch].end(), block[ch].begin(), block[ch].begin() + done);
    }
    if (frames != nullptr)
        *frames = state.currentFrame;
    return channels;
}

TEST(MpegDecoderParts, ChannelSelectionGivesOneChannelOrTheirMean)
{
    struct Case { const char* file; std::vector<int32_t> selections; };
    const Case cases[] = {{"mp2/layer1-joint.mp2", {0, 1, 3}}, {"mp2/tl-stereo-crc-48k-256.mp2", {0, 1, 3}},
                          {"mp3/joint-44k-notag.mp3", {0, 1, 3}}};
    for (const Case& c : cases)
    {
        const Channels both = DecodeSelecting(MpegData(c.file), -1);
        ASSERT_GT(both[0].size(), 1000u);
        for (int32_t select : c.selections)
        {
            const std::vector<float> one = DecodeSelecting(MpegData(c.file), select)[0];
            ASSERT_EQ(one.size(), both[0].size());
            for (size_t i = 0; i < one.size(); ++i)
                ASSERT_NEAR(one[i], select == 3 ? (both[0][i] + both[1][i]) / 2 : both[size_t(select)][i], 1e-6)
                    << c.file << " " << select << " " << i;
        }
    }
}

TEST(MpegDecoderParts, MainDataPromisedPastTheFrameEndAtTheNextHeader)
{
    // Every frame's side information all ones: part2_3_length at its largest asks for more
    // bits than the frame holds. Its main data stop at the next header, which is still found.
    std::string bytes = ReadWholeFile(MpegData("mp3/joint-44k-notag.mp3"));
    for (size_t at = bytes.find("\xFF\xFB"); at < bytes.size() - 36; at = bytes.find("\xFF\xFB", at + 36))
        bytes.replace(at + 4, 32, 32, '\xFF');
    TemporaryFolder folder;
    WriteWholeFile(folder / "damaged.mp3", bytes);
    int32_t frames = 0, damagedFrames = 0;
    DecodeSelecting(MpegData("mp3/joint-44k-notag.mp3"), -1, &frames);
    DecodeSelecting(folder / "damaged.mp3", -1, &damagedFrames);
    EXPECT_TRUE(frames > 8 && damagedFrames == frames) << damagedFrames;
}

TEST(MpegDecoderParts, MixedBlocksAreLongInTheTwoLowestSubBandsAndShortAbove)
{
    // No encoder at hand writes mixed blocks: noise lines and overlap through the filterbank as
    // a mixed block come out as a long block's (type 0) in sub-bands 0 and 1, as a short one's above.
    std::vector<float> noise(2 * 576); // the lines, then the last granule's overlap
    uint32_t state = 1;
    for (float& x : noise)
        x = float(int32_t(state = state * 1664525u + 1013904223u)) / 2147483648.0f;
    const auto filter = [&](int blockType, bool mixed) {
        std::vector<float> out(2 * 576); // the samples, then the overlap for the next granule
        hybridFilterbank(noise.data(), {blockType, mixed, 32}, noise.data() + 576, out.data() + 576, out.data());
        return out;
    };
    const std::vector<float> mixed = filter(2, true), longBlock = filter(0, false), shortBlock = filter(2, false);
    for (size_t i = 0; i < mixed.size(); ++i)
        ASSERT_EQ(mixed[i], (i % mp3HybridStride < 2 ? longBlock : shortBlock)[i]) << i;
}

TEST(MpegDecoderParts, RegionCountsPastTheTableAndBitsPastTheArray)
{
    // MPEG-1 mono side information, both granules alike: region0 15 and region1 7 run past
    // the 22 long bands of 44.1 kHz. Then bits past the end of the array read as zeros,
    // however far the cursor has run.
    BitWriter w;
    w.Put(300, 9).Put(0, 5).Put(0xA, 4);
    for (int granule = 0; granule < 2; ++granule)
        w.Put(1234, 12).Put(300, 9).Put(210, 8).Put(5, 4).Put(0, 1).Put(1, 5).Put(2, 5).Put(3, 5)
            .Put(15, 4).Put(7, 3).Put(5, 3);
    std::vector<uint8_t> bytes(w.bytes.begin(), w.bytes.end());
    bytes.resize(mp3ByteBufferSize);
    bytes.back() = 0xFF;
    Mp3BitReader bits {bytes.data(), 0, 0};
    Mp3SideInfo sideInfo;
    readSideInfoMpeg1(sideInfo, bits, 1, 0, 0, -1);
    const Mp3GranuleInfo& info = sideInfo.granules[0][1];
    EXPECT_EQ(bits.bitPointer, 17);
    EXPECT_EQ(sideInfo.mainDataBegin, 300);
    EXPECT_EQ(sideInfo.granules[0][0].scfsi, -1); // granule 0 reads every scale factor
    EXPECT_EQ(info.scfsi, 0xA);
    EXPECT_EQ(info.big_values, 288u); // 300 in the stream
    EXPECT_EQ(info.region1Start, 81u); // long boundary 16: 162 lines
    EXPECT_EQ(info.region2Start, 288u);

    bits.bitPointer = mp3ByteBufferSize - 1;
    EXPECT_EQ(bits.readBits(12), 0xFF0u);
    bits.skipBits(1 << 20);
    EXPECT_EQ(bits.readBits(17), 0u);
    EXPECT_EQ(bits.readBit(), 0u);
}

TEST(MpegDecoderParts, IntensityStereoFromTheFirstSilentBandOfTheRightChannel)
{
    // The right channel's granule is dequantised from two pairs of zeros (table 0, no bits):
    // silent from band 0 on, but for the short windows of a mixed block, which start at band 3
    // (the short case takes them as coded up to band 11). Each case gives position pos to scale
    // factors from..to and marks the others coded as they stand: 7, or at the low rates 31, past
    // the tables. The lines first..end take the left channel's times the position's factors:
    // tan(pos pi/12) / (1 + tan(pos pi/12)) and 1 / (1 + tan(pos pi/12)), at the low rates 1 and
    // 2^-1/2 for position 2 (scalefac_compress odd; 2^-1/4 when even). A short band's lines start at its width, not
    // at its first line: a long-standing quirk that this decoder's output depends on.
    struct Case { int32_t rate, low, block, mixed, from, to, pos, shortFrom, first, end; float left, right;
                  uint32_t compress = 1; };
    const Case cases[] = {
        {0, 0, 0, 0, 12, 13, 0, 0, 74, 90, 0.0f, 1.0f},                  // long band 12
        {3, 1, 0, 0, 3, 4, 2, 0, 18, 24, 1.0f, 0.7071068f},              // long band 3
        {3, 1, 0, 0, 3, 4, 2, 0, 18, 24, 1.0f, 0.8408964f, 0},
        {0, 0, 2, 0, 33, 39, 2, 12, 56, 224, 0.3660254f, 0.6339746f},    // short band 12: band 11's position, not its own
        {0, 0, 2, 1, 0, 2, 2, 0, 0, 8, 0.3660254f, 0.6339746f},          // mixed, long bands 0 and 1
    };
    static const uint8_t noBits[mp3ByteBufferSize] = {};
    for (const Case& c : cases)
    {
        float left[576], right[576];
        std::fill(std::begin(left), std::end(left), 1.0f);
        int32_t scaleFactors[39];
        std::fill(std::begin(scaleFactors), std::end(scaleFactors), c.low != 0 ? 31 : 7);
        std::fill(scaleFactors + c.from, scaleFactors + c.to, c.pos);
        Mp3GranuleInfo info;
        info.scalefac_compress = c.compress;
        info.block_type = uint32_t(c.block);
        info.mixed_block_flag = uint32_t(c.mixed);
        info.big_values = 2;
        info.gain = info.fullGain[0] = GetMp3Tables().gainTable;
        Mp3BitReader bits {noBits, 0, 0};
        dequantise(bits, right, scaleFactors, info, c.rate, 0);
        std::fill(info.maxBand, info.maxBand + (c.shortFrom > 0 ? 3 : 0), c.shortFrom);
        applyIntensity(left, right, scaleFactors, info, c.rate, false, c.low);
        for (int32_t line = 0; line < 576; ++line)
        {
            const bool changed = line >= c.first && line < c.end;
            ASSERT_NEAR(left[line], changed ? c.left : 1.0f, 1e-6f) << c.from << " " << line;
            ASSERT_NEAR(right[line], changed ? c.right : 0.0f, 1e-6f) << c.from << " " << line;
        }
    }
}

} // namespace
} // namespace kvo::testing
