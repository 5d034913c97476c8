// MP3FileReader around its decoder: what it opens and refuses, absurd tags, reads far past
// the end, and joins of MPEG audio with WAV. Damaged streams of every layer are in
// data/malformed.

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoTestMpeg.h"

namespace kvo
{
namespace
{

using namespace testing;

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

} // namespace
} // namespace kvo
