// MP3FileReader around its decoder: reads past the end, seeks, refusals, absurd tags,
// damaged streams of every layer, and joins of MPEG audio with WAV.

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoFuzzUtilities.h"
#include "KvoTestMpeg.h"
#include "audiofiles/KvoMP3FileReader.h"
#include "core/KvoException.h"

namespace kvo
{
namespace
{

using namespace testing;

/** The message of the exception that opening path throws, or "" when it opens. */
std::string Refusal(const std::string& path)
{
    const ScopedConsoleTarget quiet;
    try
    {
        MP3FileReader reader {File(String(path))};
    }
    catch (const Exception& e)
    {
        return e.GetMessage().GetStdString();
    }
    return "";
}

std::string NotValid(const std::string& path)
{
    return "file " + Quoted(File(String(path)).GetFullPath()).GetStdString() + " is not a valid MP3 file";
}

TEST(Mp3Reader, ReadingToTheEndThenOneMore)
{
    MP3FileReader reader {File(String(MpegData("mp3/mono-48k.mp3")))};
    const size_t decodable = ReadFloats(MpegData("mp3/mono-48k.f32")).size();
    EXPECT_TRUE(ReadChannels(reader, 0, decodable).ok);
    // After the last frame comes one block of 1152 zeros, and then the end.
    const ChannelRead zeros = ReadChannels(reader, decodable, 1152);
    EXPECT_TRUE(zeros.ok);
    EXPECT_TRUE(AllZero(zeros.channels[0]));
    const ChannelRead beyond = ReadChannels(reader, decodable + 1152, 1);
    EXPECT_FALSE(beyond.ok);
    EXPECT_EQ(beyond.channels[0][0], 0.0f);
    // A tag promising more frames than the file holds: false, with zeros for the rest.
    MP3FileReader tagged {File(String(MpegData("mp3/vbr-xing-22k.mp3")))};
    EXPECT_FALSE(ReadChannels(tagged, 0, tagged.getNumSamples()).ok);
}

TEST(Mp3Reader, SeekToTheMiddleAndBack)
{
    // Layer III files with a Xing or Info tag, as lame writes by default: the tag's frame is
    // counted in the seek index, and the frame landed on, which lacks its reservoir, yields
    // nothing, so the sample count comes out right.
    for (const char* name : {"mp3/cbr-stereo-44k.mp3", "mp3/joint-ms-44k.mp3", "mp3/vbr-xing-44k.mp3", "mp3/stereo-32k.mp3"})
    {
        SCOPED_TRACE(name);
        MP3FileReader straight {File(String(MpegData(name)))};
        const uint64_t length = straight.getNumSamples();
        const ChannelRead whole = ReadChannels(straight, 0, length);

        MP3FileReader seeking {File(String(MpegData(name)))};
        const uint64_t middle = length / 2 + 77;
        const ChannelRead fromMiddle = ReadChannels(seeking, middle, length - middle);
        const ChannelRead again = ReadChannels(seeking, 0, length);
        for (uint32_t c = 0; c < 2; ++c)
        {
            EXPECT_EQ(again.channels[c], whole.channels[c]);
            const std::vector<float> expected(whole.channels[c].begin() + int64_t(middle), whole.channels[c].end());
            EXPECT_EQ(fromMiddle.channels[c], expected);
        }
    }
}

TEST(Mp3Reader, Refusals)
{
    TemporaryFolder folder;
    // An ID3v2 tag and nothing behind it.
    const std::string id3 = ReadWholeFile(MpegData("mp3/id3v2-44k.mp3"));
    const size_t tagSize = 10 + ((size_t(id3[6]) * 128 + size_t(id3[7])) * 128 + size_t(id3[8])) * 128 + size_t(id3[9]);
    const std::string mono = ReadWholeFile(MpegData("mp3/mono-48k.mp3"));
    // 40000 bytes of zeros before the first frame: the search gives up after 32768; 30000
    // are still searched through.
    struct Case { const char* name; std::string bytes; bool refused; };
    const Case cases[] = {
        {"tag.mp3", id3.substr(0, tagSize), true},
        {"far.mp3", std::string(40000, '\0') + mono, true},
        {"near.mp3", std::string(30000, '\0') + mono, false},
        {"empty.mp3", "", true},
    };
    for (const Case& c : cases)
    {
        const std::string path = folder / c.name;
        WriteWholeFile(path, c.bytes);
        EXPECT_EQ(Refusal(path), c.refused ? NotValid(path) : "") << c.name;
    }
    // The factory passes the reader's refusal on.
    const ScopedConsoleTarget quiet;
    EXPECT_THROW(AudioFileReader::CreateReaderFor(File(String(folder / "empty.mp3"))), Exception);
}

TEST(Mp3Reader, AbsurdXingCounts)
{
    const std::string original = ReadWholeFile(MpegData("mp3/vbr-xing-44k.mp3"));
    const size_t xing = original.find("Xing");
    ASSERT_NE(xing, std::string::npos);
    TemporaryFolder folder;
    const std::string path = folder / "xing.mp3";
    for (const uint32_t frames : {0x7FFFFFFFu, 0xFFFFFFFFu, 0u, 1u})
    {
        std::string bytes = original;
        bytes.replace(xing + 8, 4, BigEndian(frames, 4));
        WriteWholeFile(path, bytes);
        MP3FileReader reader {File(String(path))};
        if (frames == 0x7FFFFFFFu)
        {
            EXPECT_EQ(reader.getNumSamples(), uint64_t(frames) * 1152);
        }
        // A seek far beyond the data delivers one block of silence, and reading from 0 still works.
        const ChannelRead far = ReadChannels(reader, uint64_t(1) << 32, 2000);
        EXPECT_FALSE(far.ok);
        EXPECT_TRUE(AllZero(far.channels[0]));
        EXPECT_TRUE(ReadChannels(reader, uint64_t(1) << 32, 1000).ok);
        EXPECT_TRUE(ReadChannels(reader, 0, 2000).ok);
    }
}

TEST(Mp3Reader, FreeFormatLayer2IsWalkedWithoutASize)
{
    // The first frame has no size, so the length is 0; the frames decode from whatever the
    // buffer holds, and reading on past the length is still safe.
    MP3FileReader reader {File(String(MpegData("mp2/tl-free-44k-200.mp2")))};
    EXPECT_EQ(reader.getNumSamples(), 0u);
    EXPECT_EQ(reader.getNumChannels(), 2u);
    for (const std::vector<float>& channel : ReadChannels(reader, 0, 20000).channels)
        EXPECT_TRUE(std::all_of(channel.begin(), channel.end(), [](float v) { return std::isfinite(v); }));
}

/** Damaged copies of a stream: cut short, bytes overwritten at random, a run of random bytes. */
void AddDamaged(std::vector<std::string>& inputs, const std::string& source, std::mt19937& random, int copies)
{
    for (int i = 0; i < copies; ++i)
    {
        std::string bytes = source;
        const int kind = i % 3;
        if (kind == 0)
            bytes.resize(random() % bytes.size());
        const size_t run = 1 + random() % 40, at = random() % (bytes.size() - run);
        for (size_t k = 0; kind != 0 && k < (kind == 1 ? 40 : run); ++k)
            bytes[kind == 1 ? random() % bytes.size() : at + k] = char(random());
        inputs.push_back(bytes);
    }
}

TEST(Mp3Reader, DamagedStreamsNeverFail)
{
    // Each opens or is refused, and reads to its end and at a few positions.
    std::mt19937 random(8);
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
    for (const char* name : {"mp3/cbr-stereo-44k.mp3", "mp3/mpeg2-22k-stereo.mp3", "mp3/intensity-44k.mp3", "mp2/layer1-joint.mp2",
                             "mp2/tl-joint-44k-192.mp2", "mp2/tl-stereo-crc-48k-256.mp2", "mp2/tl-mono-16k-32.mp2",
                             "mp2/ff-stereo-24k-96.mp2", "mp2/tl-free-44k-200.mp2"})
        AddDamaged(inputs, ReadWholeFile(MpegData(name)), random, 24);
    // Every frame's main_data_begin and part2_3_length at their largest, then at random.
    const std::string noTag = ReadWholeFile(MpegData("mp3/joint-44k-notag.mp3"));
    for (int round = 0; round < 12; ++round)
    {
        std::string bytes = noTag;
        for (size_t at = bytes.find("\xFF\xFB"); at != std::string::npos && at + 40 < bytes.size(); at = bytes.find("\xFF\xFB", at + 4))
            for (size_t k = 4; k < 36; ++k)
                bytes[at + k] = char(round == 0 ? 0xFF : random());
        inputs.push_back(bytes);
    }
    // A Xing tag whose flags promise every field, at the very end of a short file.
    const std::string vbr = ReadWholeFile(MpegData("mp3/vbr-xing-44k.mp3"));
    inputs.push_back(vbr.substr(0, vbr.find("Xing") + 7) + "\x0F");

    const ScopedConsoleTarget quiet;
    for (const std::string& bytes : inputs)
        fuzzing::ReadAsAudioFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), ".mp3");
}

TEST(Mp3Reader, JoinsWithWavAsFloat)
{
    // Layer II, mono Layer III, the Layer II file again and WAV: each part is what its own
    // reader gives, the mono part silent on the right.
    TemporaryFolder folder;
    WriteWholeFile(folder / "a.mp3", ReadWholeFile(MpegData("mp2/tl-joint-44k-192.mp2")));
    WriteWholeFile(folder / "b.mp3", ReadWholeFile(MpegData("mp2/join-layer3-44k-mono.mp3")));
    WriteWholeFile(folder / "c.wav", CanonicalWav(1, 2, 44100, 16, std::string(400, '\0')));
    const ProgramRun run = RunSonaJoin({"-i", "a.mp3, b.mp3, a.mp3, c.wav", "-d", "out.wav"}, folder.GetPath());
    ASSERT_EQ(run.exitCode, 0) << run.standardOutput << run.standardError;

    MP3FileReader first {File(String(folder / "a.mp3"))};
    MP3FileReader second {File(String(folder / "b.mp3"))};
    const ChannelRead a = ReadChannels(first, 0, first.getNumSamples());
    const ChannelRead b = ReadChannels(second, 0, second.getNumSamples());
    const ScopedConsoleTarget quiet;
    auto out = AudioFileReader::CreateReaderFor(File(String(folder / "out.wav")));
    ASSERT_TRUE(out);
    EXPECT_EQ(out->getMetadata().bitsPerSample, 32u);
    EXPECT_TRUE(out->getMetadata().isFloat);
    ASSERT_EQ(out->getNumChannels(), 2u);
    const uint64_t total = 2 * first.getNumSamples() + second.getNumSamples() + 100;
    ASSERT_EQ(out->getNumSamples(), total);
    const ChannelRead joined = ReadChannels(*out, 0, total);
    int64_t at = 0;
    for (const ChannelRead* part : {&a, &b, &a})
    {
        const int64_t length = int64_t(part->channels[0].size());
        for (size_t ch = 0; ch < 2; ++ch)
        {
            const auto begin = joined.channels[ch].begin() + at;
            if (ch < part->channels.size())
                EXPECT_TRUE(std::equal(begin, begin + length, part->channels[ch].begin())) << at << " " << ch;
            else
                EXPECT_TRUE(std::all_of(begin, begin + length, [](float s) { return s == 0.0f; })) << at;
        }
        at += length;
    }
    EXPECT_TRUE(AllZero(joined.channels[0], size_t(at)) && AllZero(joined.channels[1], size_t(at)));

    const ProgramRun refused = RunSonaJoin({"-i", "a.mp3", "-d", "out.mp3"}, folder.GetPath());
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.standardError.find("MP3 encoding is not supported. Cannot write file "), std::string::npos);
}

} // namespace
} // namespace kvo
