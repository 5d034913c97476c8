// AIFF and AIFF-C: the 80-bit sample rate, the writer's bytes and its size cap, the reader's
// codings, chunk walk and refusals, and files written by sox.

#include <fstream>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoAiffFileReader.h"
#include "audiofiles/KvoAiffFileWriter.h"
#include "containers/KvoAudioBuffer.h"

namespace kvo::testing
{
namespace
{

/** A reader that hands out its fixed-point values before they become floats. */
class RawAiffReader : public AiffFileReader
{
public:
    using AiffFileReader::AiffFileReader;

    /** numSamples frames from start, in arrays that held fill beforehand. */
    Fixed Read(uint64_t numSamples, uint64_t start = 0, int32_t fill = 0x5A5A5A5A)
    {
        Fixed channels(getNumChannels(), std::vector<int32_t>(numSamples, fill));
        std::vector<int*> pointers;
        for (auto& channel : channels)
            pointers.push_back(channel.data());
        EXPECT_TRUE(readRawSamples(pointers.data(), numSamples, start));
        return channels;
    }
};

using TestAiffWriter = OpenWriter<AiffFileWriter>;

class AiffTest : public AudioFileTest
{
protected:
    RawAiffReader Open(const std::string& bytes) { return RawAiffReader(Write(bytes, "test.aif")); }
    std::string Refusal(const std::string& bytes) { return AudioFileTest::Refusal<RawAiffReader>(bytes, "test.aif"); }
};

std::string Encoded(double rate)
{
    std::string bytes(10, '\0');
    EncodeAiffSampleRate(rate, reinterpret_cast<uint8_t*>(bytes.data()));
    return bytes;
}

/** The decoded rate, or -1 when refused (-2: accepted without a rate). */
double Decoded(const std::string& bytes)
{
    double rate = -2.0;
    return DecodeAiffSampleRate(reinterpret_cast<const uint8_t*>(bytes.data()), rate) ? rate : -1.0;
}

TEST(AiffSampleRate, WritableRatesRoundTripAndOthersDecodeFromTwoToTwoToTheThirty)
{
    EXPECT_EQ(Encoded(44100.0), rate44100);
    EXPECT_EQ(Encoded(44100.7), rate44100);
    for (double rate : { 44100.0, 48000.0, 96000.0, 4410.0, 8820.0, 11025.0, 22050.0, 32000.0, 88200.0, 176400.0, 192000.0,
                         352800.0, 384000.0, 768000.0 })
        EXPECT_EQ(Decoded(Encoded(rate)), rate);
    EXPECT_EQ(Encoded(1.0), Z("\x3F\xFF\x80\0\0\0\0\0\0\0"));
    for (double rate : { 2.0e9, 1073741824.0 }) // from 2^30 on: no mantissa
        EXPECT_EQ(Encoded(rate), Z("\x40\x1D\0\0\0\0\0\0\0\0"));
    const std::pair<std::string, double> decodes[] = {
        { Encoded(1.0), -1.0 },
        { Z("\x40\x00\x80\0\0\0\0\0\0\0"), 2.0 },
        { Z("\x40\x1C\xFF\xFF\xFF\xFF\xFF\0\0\0"), 1073741823.0 },
        { Z("\x40\x0E\xAC\x44\x80\0\0\0\0\0"), 44100.0 }, // 44100.5: the fraction is dropped
        { Z("\x40\x1D\x80\0\0\0\0\0\0\0"), -1.0 },         // 2^30
        { Z("\xC0\x0E\xAC\x44\0\0\0\0\0\0"), -1.0 },       // -44100
    };
    for (const auto& [bytes, rate] : decodes)
        EXPECT_EQ(Decoded(bytes), rate) << rate;
}

// ---------------------------------------------------------------------------------------
// Writer

TEST_F(AiffTest, FactoryReplacesTheDestinationOnlyOnceDepthAndRateAreAccepted)
{
    const std::string path = folder / "new/sub/out.aif";
    const auto create = [&](int bits) { return AiffFileWriter::CreateWriterFor(File(path.c_str()), 44100.0, 2, bits, Overwrite(1)); };
    ASSERT_TRUE(create(24) != nullptr); // makes the folders; the writer is closed at once
    std::ofstream(path, std::ios::app) << "tail";
    EXPECT_EQ(MessageOf([&] { const ScopedConsoleTarget quiet; create(12); }), "Invalid bits depth : 12");
    EXPECT_EQ(ReadWholeFile(path).size(), 54u + 4u);
    create(16).reset(); // never written to: the bare 54-byte header
    EXPECT_EQ(ReadWholeFile(path), AiffWriterHeader(2, 0, 16, rate44100, 0));
}

TEST_F(AiffTest, WriterPadsOddDataAndClipsFloatsAtThirtyTwoBits)
{
    {
        TestAiffWriter writer(folder / "odd.aiff", 44100.0, 1, 8);
        ASSERT_TRUE(writer.WriteRaw({ { int32_t(0x7F000000), int32_t(0x80000000), int32_t(0x01FFFFFF) } }));
        EXPECT_EQ(writer.getMetadata().numSamples, 3u);
        TestAiffWriter floats(folder / "clip.aiff", 44100.0, 1, 32);
        AudioBuffer<float> buffer(1, 3);
        buffer.GetWritePointer(0)[0] = 1.5f;
        buffer.GetWritePointer(0)[1] = -1.5f;
        buffer.GetWritePointer(0)[2] = 0.5f;
        ASSERT_TRUE(floats.writeSamples(buffer, 0, 3, false));
    }
    // The pad byte counts in the FORM and SSND sizes.
    EXPECT_EQ(ReadWholeFile(folder / "odd.aiff"), AiffWriterHeader(1, 3, 8, rate44100, 4) + Z("\x7F\x80\x01\x00"));
    EXPECT_EQ(ReadWholeFile(folder / "clip.aiff"),
              AiffWriterHeader(1, 3, 32, rate44100, 12) + Z("\x7F\xFF\xFF\xFF\x80\0\0\0\x40\0\0\0"));
}

TEST_F(AiffTest, WriterDropsTheWholeCallThatWouldReachTheCapAndLatchesTheFailure)
{
    const std::string path = folder / "cap.aiff";
    const std::string stored = AiffWriterHeader(1, 2, 16, rate44100, 4) + Z("\x01\0\x02\0");
    {
        TestAiffWriter writer(path, 44100.0, 1, 16);
        writer.bytesWritten = AiffFileWriter::maxDataBytes - 6;
        ASSERT_TRUE(writer.WriteRaw({ { 0x01000000, 0x02000000 } })); // ends 2 bytes short of the cap
        EXPECT_FALSE(writer.WriteRaw({ { 0x03000000 } }));            // would end exactly on it
        EXPECT_EQ(writer.getMetadata().numSamples, 2u);
        EXPECT_EQ(ReadWholeFile(path), stored); // the header is already right for what was stored
        writer.bytesWritten = 0;
        EXPECT_FALSE(writer.WriteRaw({ { 0x04000000 } }));
    }
    EXPECT_EQ(ReadWholeFile(path), stored);

    // After a failure the position is behind the header; an odd count's pad byte goes there.
    {
        TestAiffWriter writer(path, 44100.0, 1, 8);
        ASSERT_TRUE(writer.WriteRaw({ { 0x11000000, 0x22000000, 0x33000000 } }));
        writer.bytesWritten = AiffFileWriter::maxDataBytes - 1;
        EXPECT_FALSE(writer.WriteRaw({ { 0x44000000 } }));
    }
    EXPECT_EQ(ReadWholeFile(path).substr(stored.size()), AiffWriterHeader(1, 3, 8, rate44100, 4) + Z("\x00\x22\x33"));
}

// ---------------------------------------------------------------------------------------
// Reader

TEST_F(AiffTest, SampleCodings)
{
    struct Case { const char* name; std::string bytes; Fixed expected; };
    const std::string be16 = Z("\x12\x34\xFE\xDC");
    const auto aifc = [&](const char* type, int bits, const std::string& data) {
        return Form("AIFC", AiffChunk("FVER", BigEndian(0xA2805140, 4)) + Comm(1, 2, bits, rate44100, type) + Ssnd(data));
    };
    const std::vector<Case> cases = {
        { "8", Form("AIFF", Comm(2, 1, 8) + Ssnd(Z("\x7F\x80"))), { { 0x7F000000 }, { int32_t(0x80000000) } } },
        { "16", Form("AIFF", Comm(2, 1, 16) + Ssnd(Z("\x7F\xFE\x80\x01"))), { { 0x7FFE0000 }, { int32_t(0x80010000) } } },
        { "24", Form("AIFF", Comm(2, 1, 24) + Ssnd(Z("\x7F\xFE\xFD\x80\x01\x02"))), { { 0x7FFEFD00 }, { int32_t(0x80010200) } } },
        { "32", Form("AIFF", Comm(2, 1, 32) + Ssnd(Z("\x7F\xFE\xFD\xFC\x80\x01\x02\x03"))),
          { { 0x7FFEFDFC }, { int32_t(0x80010203) } } },
        // 12 bits: counted, but nothing is written into the arrays.
        { "12", Form("AIFF", Comm(1, 2, 12) + Ssnd(Z("\x12\x34"))), { { 0x5A5A5A5A, 0x5A5A5A5A } } },
        { "NONE", aifc("NONE", 16, be16), { { 0x12340000, int32_t(0xFEDC0000) } } },
        { "twos", aifc("twos", 16, be16), { { 0x12340000, int32_t(0xFEDC0000) } } },
        { "sowt", aifc("sowt", 16, be16), { { 0x34120000, int32_t(0xDCFE0000) } } },
        // 8-bit "sowt" samples are signed, unlike WAV's.
        { "sowt 8", Form("AIFC", Comm(1, 2, 8, rate44100, "sowt") + Ssnd(Z("\x7F\x80"))), { { 0x7F000000, int32_t(0x80000000) } } },
    };
    for (const Case& c : cases)
    {
        RawAiffReader reader = Open(c.bytes);
        EXPECT_EQ(reader.getMetadata().numSamples, c.expected[0].size()) << c.name;
        EXPECT_EQ(reader.Read(c.expected[0].size()), c.expected) << c.name;
        EXPECT_FALSE(reader.getMetadata().isFloat) << c.name;
    }
    for (const char* type : { "fl32", "FL32" })
    {
        RawAiffReader reader = Open(Form("AIFC", Comm(1, 1, 32, rate44100, type) + Ssnd(Z("\x3F\xC0\0\0"))));
        EXPECT_TRUE(reader.getMetadata().isFloat) << type;
        EXPECT_EQ(ReadFrames(reader, 0, 1), (Channels { { 1.5f } })) << type;
    }
}

TEST(AiffFixtures, ReadsWhatSoxWroteAsSoxDecodesIt)
{
    // An AIFF with a comment chunk before COMM, and an AIFF-C of floats with a compression name.
    for (const auto& [name, raw, rate, isFloat, numChannels, numFrames] :
         { std::tuple { "sox-noise-48k-24bit.aiff", "sox-noise-48k-24bit.s32", 48000.0, false, 2u, 33u },
           { "sox-sine-22k-fl32.aifc", "sox-sine-22k-fl32.f32", 22050.0, true, 1u, 17u } })
    {
        RawAiffReader reader { File((std::string(KVO_TEST_DATA_DIR) + "/" + name).c_str()) };
        EXPECT_EQ(reader.getMetadata().sampleRate, rate);
        EXPECT_EQ(reader.getMetadata().isFloat, isFloat);
        const Fixed channels = reader.Read(numFrames);
        ASSERT_EQ(channels.size(), numChannels);
        std::string interleaved; // as sox decodes: 32-bit little-endian values
        for (uint32_t i = 0; i < numFrames; ++i)
            for (const auto& channel : channels)
                interleaved += LittleEndian(uint32_t(channel[i]), 4);
        EXPECT_EQ(interleaved, ReadWholeFile(std::string(KVO_TEST_DATA_DIR) + "/" + raw)) << name;
    }
}

TEST_F(AiffTest, ChunkLayout)
{
    // 20 bytes of SSND over 2 bytes a frame: the whole chunk's size counts, and reads past the
    // end of the file or of numSamples give zeros.
    RawAiffReader reader = Open(Form("AIFF", Comm(1, 1000, 16) + Ssnd(Z("\x01\x00\x02\x00"), 8)));
    EXPECT_EQ(reader.getMetadata().numSamples, 10u);
    EXPECT_EQ(reader.Read(3), (Fixed { { 0x01000000, 0x02000000, 0 } }));
    EXPECT_EQ(reader.Read(3, 9), (Fixed { { 0, 0, 0 } }));

    // A COMM frame count with the top bit set widens; SSND's size decides when there is one.
    EXPECT_EQ(Open(Form("AIFF", Comm(1, 0x80000000u, 8) + Ssnd(Z("\x01\x02")))).getMetadata().numSamples, 10u);
    RawAiffReader noSound = Open(Form("AIFF", Comm(1, 0x80000000u, 8)));
    EXPECT_EQ(noSound.getMetadata().numSamples, 0xFFFFFFFF80000000u);
    EXPECT_EQ(noSound.Read(2), (Fixed { { 'F' << 24, 'O' << 24 } })); // without SSND from the first byte
    EXPECT_EQ(noSound.Read(1, 0xFFFFFFFF7FFFFFFFu), (Fixed { { 0 } }));

    // SSND first finds no frame width and counts nothing; the later COMM's count stands.
    RawAiffReader soundFirst = Open(Form("AIFF", Ssnd(Z("\x05\x06")) + Comm(1, 100, 8)));
    EXPECT_EQ(soundFirst.getMetadata().numSamples, 100u);
    EXPECT_EQ(soundFirst.Read(2), (Fixed { { 5 << 24, 6 << 24 } }));
    EXPECT_EQ(Open(Form("AIFF", AiffChunk("APPL", "\x01\x02\x03") + Comm(1, 1, 8) + Ssnd("\x09"))).Read(1), (Fixed { { 9 << 24 } }));
}

/** A MARK chunk of identifier, position and name triples. */
std::string Mark(const std::vector<std::tuple<uint16_t, uint32_t, std::string>>& markers)
{
    Bytes b;
    b.Be(markers.size(), 2);
    for (const auto& [identifier, position, name] : markers)
        b.Be(identifier, 2).Be(position, 4).U8(name.size()).Text(name).Text(std::string(1 - name.size() % 2, '\0'));
    return AiffChunk("MARK", b);
}

TEST_F(AiffTest, MarkersAndTheVersionChunk)
{
    const std::string first = Mark({ { 1, 10, "" }, { 2, 20, "ab" }, { 3, 30, "abc" } });
    const std::string second = Mark({ { 4, 40, "late" } });
    const std::string fver = AiffChunk("FVER", BigEndian(0xA2805140, 4));
    const auto labels = [this](const std::string& bytes) { return DescribeMarkers(Open(bytes).getMetadata()); };
    // Markers are read before the sound data, and after it without a version chunk; with FVER,
    // COMM and SSND seen, parsing ends at the next chunk.
    EXPECT_EQ(labels(Form("AIFF", first + Comm(1, 1, 8) + Ssnd(Z("\0")) + second)), "1@10: 2@20:ab 3@30:abc 4@40:late ");
    EXPECT_EQ(labels(Form("AIFC", fver + first + Comm(1, 1, 8) + Ssnd(Z("\0")) + second)), "1@10: 2@20:ab 3@30:abc ");

    // The version is checked where it stands: before COMM it refuses, after it it ends parsing.
    EXPECT_EQ(Refusal(Form("AIFC", AiffChunk("FVER", BigEndian(1, 4)) + Comm(1, 1, 8) + Ssnd(Z("\0")))), NotValid("AIFF", "test.aif"));
    EXPECT_EQ(Refusal(Form("AIFC", AiffChunk("FVER", BigEndian(0, 4)) + Comm(1, 1, 8) + Ssnd(Z("\0")))), "(no exception)");
    EXPECT_EQ(Open(Form("AIFC", Comm(1, 7, 8) + AiffChunk("FVER", BigEndian(1, 4)) + Ssnd(Z("\0")))).getMetadata().numSamples, 7u);
}

TEST_F(AiffTest, RefusesWhatIsNotAnAiffFile)
{
    const std::string sound = Ssnd(Z("\0\0"));
    const std::string complete = Form("AIFF", Comm(1, 1, 16));
    std::vector<std::string> cases {
        "", "FORM", Form("AIFX", Comm(1, 1, 16) + sound), "RIFF" + Form("AIFF", Comm(1, 1, 16) + sound),
        Form("AIFF", sound),                                                  // no COMM
        Form("AIFF", Comm(0, 1, 16) + sound),                                 // no channels
        Form("AIFF", Comm(1, 1, 0) + sound),                                  // no bits
        Form("AIFF", Comm(1, 1, 4) + sound),                                  // a frame of no bytes
        Form("AIFF", Comm(1, 1, 16, Encoded(1.0)) + sound),                   // 1.0 Hz
        Form("AIFF", Comm(1, 1, 16, Encoded(1.0)) + Comm(1, 1, 16) + sound),  // the walk ends at the bad COMM
        Form("AIFF", Comm(1, 1, 16, std::string(10, '\0')) + sound),          // 0 Hz
        Form("AIFF", Comm(1, 1, 16, Z("\x40\x0E\0\0\0\0\0\0\0\0")) + sound),  // no mantissa
        Form("AIFF", Comm(2881, 1, 16) + sound),                              // 5762 bytes a frame
        Form("AIFF", Comm(-1, 1, -16) + sound),                               // signs that cancel
        Form("AIFF", AiffChunk("APPL", "", 0xFFFFFFF0u) + Comm(1, 1, 16) + sound), // a chunk past the end
        complete.substr(0, 24),                                               // COMM cut short
    };
    for (const char* type : { "none", "SOWT", "fl64", "ulaw" }) // compression types compare exactly
        cases.push_back(Form("AIFC", Comm(1, 2, 16, rate44100, type) + Ssnd(std::string(4, '\0'))));
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(Refusal(cases[i]), NotValid("AIFF", "test.aif")) << "case " << i;
}

TEST_F(AiffTest, HostileSizesNeitherHangNorReadOutOfBounds)
{
    // A FORM size far beyond the file: the walk stops at the end of the file.
    std::string bytes = Form("AIFF", Comm(1, 4, 8) + AiffChunk("APPL", Z("\x01\x02")));
    bytes.replace(4, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_EQ(Refusal(bytes), "(no exception)");

    // The widest frame the staging block takes reads one frame a block.
    const Fixed frames = Open(Form("AIFF", Comm(2880, 3, 16) + Ssnd(std::string(5760 * 3, '\x01')))).Read(3);
    ASSERT_EQ(frames.size(), 2880u);
    EXPECT_EQ(frames[2879], (std::vector<int32_t> { 0x01010000, 0x01010000, 0x01010000 }));

    // A huge SSND size and offset: the COMM count stands, and the samples read as zeros.
    const std::string huge = Form("AIFF", Comm(1, 3, 16) + AiffChunk("SSND", Z("\xFF\xFF\xFF\xF0\0\0\0\0"), 0xFFFFFFFFu));
    EXPECT_EQ(Open(huge).Read(3, 0, 1), (Fixed { { 0, 0, 0 } }));

    // A MARK whose count outruns the file reads zeros for the rest, and ends.
    EXPECT_EQ(Open(Form("AIFF", Comm(1, 1, 8) + Ssnd(Z("\0")) + AiffChunk("MARK", Z("\x04\x00")))).getMetadata().markers.GetSize(), 1024u);
}

} // namespace
} // namespace kvo::testing
