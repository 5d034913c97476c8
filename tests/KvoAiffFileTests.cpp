#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoAiffFileReader.h"
#include "audiofiles/KvoAiffFileWriter.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"
#include "files/KvoFile.h"

namespace kvo
{
namespace
{

using Bytes = std::vector<uint8_t>;
using Channels = std::vector<std::vector<int32_t>>;

// ---------------------------------------------------------------------------------------
// Building files by hand

Bytes BigEndian(uint64_t value, int numBytes)
{
    const std::string text = testing::BigEndian(value, numBytes);
    return Bytes(text.begin(), text.end());
}

Bytes Text(const char* text)
{
    return Bytes(text, text + std::strlen(text));
}

Bytes Concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/** A chunk with its header, and its pad byte when the payload is odd (chunks start even here). */
Bytes Chunk(const char* id, const Bytes& payload, uint32_t size)
{
    return Concat({ Text(id), BigEndian(size, 4), payload, Bytes(payload.size() % 2, 0) });
}

Bytes Chunk(const char* id, const Bytes& payload)
{
    return Chunk(id, payload, uint32_t(payload.size()));
}

Bytes Form(const char* type, std::initializer_list<Bytes> chunks)
{
    const Bytes body = Concat(chunks);
    return Concat({ Text("FORM"), BigEndian(body.size() + 4, 4), Text(type), body });
}

const Bytes rate44100 { 0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0 };

Bytes Comm(int16_t channels, uint32_t frames, int16_t bits, const Bytes& rate = rate44100,
           const char* compression = nullptr)
{
    Bytes bytes = Concat({ BigEndian(uint16_t(channels), 2), BigEndian(frames, 4), BigEndian(uint16_t(bits), 2), rate });
    if (compression != nullptr)
        bytes = Concat({ bytes, Text(compression), { 4, 'n', 'a', 'm', 'e', 0 } });
    return Chunk("COMM", bytes);
}

Bytes Ssnd(const Bytes& samples, uint32_t offset = 0)
{
    return Chunk("SSND", Concat({ BigEndian(offset, 4), BigEndian(0, 4), Bytes(offset, 0xEE), samples }));
}

Bytes Fver(uint32_t version = 0xA2805140)
{
    return Chunk("FVER", BigEndian(version, 4));
}

struct MarkerSpec
{
    uint16_t identifier;
    uint32_t position;
    std::string name;
};

Bytes Mark(const std::vector<MarkerSpec>& markers)
{
    Bytes bytes = BigEndian(markers.size(), 2);
    for (const MarkerSpec& marker : markers)
    {
        bytes = Concat({ bytes, BigEndian(marker.identifier, 2), BigEndian(marker.position, 4) });
        bytes.push_back(uint8_t(marker.name.size()));
        bytes.insert(bytes.end(), marker.name.begin(), marker.name.end());
        if (marker.name.size() % 2 == 0)
            bytes.push_back(0);
    }
    return Chunk("MARK", bytes);
}

Bytes ReadWholeFile(const std::string& path)
{
    const std::string text = testing::ReadWholeFile(path);
    return Bytes(text.begin(), text.end());
}

std::string InvalidMessage(const std::string& path)
{
    return "file \"" + File(path.c_str()).GetFullPath().GetStdString() + "\" is not a valid AIFF file";
}

/** A reader that hands out its fixed-point values before they become floats. */
class RawAiffReader : public AiffFileReader
{
public:
    using AiffFileReader::AiffFileReader;

    /** numSamples frames from start, in arrays that held fill beforehand. */
    Channels Read(uint64_t numSamples, uint64_t start = 0, int32_t fill = 0x5A5A5A5A)
    {
        Channels channels(getNumChannels(), std::vector<int32_t>(numSamples, fill));
        std::vector<int*> pointers;
        for (auto& channel : channels)
            pointers.push_back(channel.data());
        EXPECT_TRUE(readRawSamples(pointers.data(), numSamples, start));
        return channels;
    }
};

class AiffFiles : public ::testing::Test
{
protected:
    std::string Write(const Bytes& bytes, const std::string& name = "test.aif")
    {
        testing::WriteWholeFile(folder / name, std::string(bytes.begin(), bytes.end()));
        return folder / name;
    }

    RawAiffReader Open(const Bytes& bytes) { return RawAiffReader(File(Write(bytes).c_str())); }

    /** The message the reader throws for these bytes, or "" when it opens them. */
    std::string Refusal(const Bytes& bytes)
    {
        const std::string path = Write(bytes);
        const std::string message = testing::MessageOf([&] { RawAiffReader reader { File(path.c_str()) }; });
        if (message == "(no exception)")
            return {};
        EXPECT_EQ(message, InvalidMessage(path));
        return message;
    }

    testing::TemporaryFolder folder;
};

// ---------------------------------------------------------------------------------------
// The 80-bit sample rate

Bytes Encoded(double rate)
{
    Bytes bytes(10);
    EncodeAiffSampleRate(rate, bytes.data());
    return bytes;
}

TEST(AiffSampleRate, EveryWritableRateRoundTripsAndFortyFourOneHasTheStandardBytes)
{
    EXPECT_EQ(Encoded(44100.0), rate44100);
    EXPECT_EQ(Encoded(44100.7), rate44100);
    for (double written : { 44100.0, 48000.0, 96000.0, 4410.0, 8820.0, 11025.0, 22050.0, 32000.0, 88200.0, 176400.0,
                            192000.0, 352800.0, 384000.0, 768000.0 })
    {
        double read = 0.0;
        EXPECT_TRUE(DecodeAiffSampleRate(Encoded(written).data(), read)) << written;
        EXPECT_EQ(read, written);
    }
}

TEST(AiffSampleRate, DecodesOnlyFromTwoToTwoToTheThirtyAndDropsTheFraction)
{
    const Bytes oneHertz { 0x3F, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0 };
    EXPECT_EQ(Encoded(1.0), oneHertz);
    EXPECT_EQ(Encoded(2.0e9), (Bytes { 0x40, 29, 0, 0, 0, 0, 0, 0, 0, 0 }));
    const auto decode = [](Bytes bytes) {
        double rate = -1.0;
        return DecodeAiffSampleRate(bytes.data(), rate) ? rate : -1.0;
    };
    EXPECT_EQ(decode(oneHertz), -1.0);
    EXPECT_EQ(decode({ 0x40, 0x00, 0x80, 0, 0, 0, 0, 0, 0, 0 }), 2.0);
    EXPECT_EQ(decode({ 0x40, 0x1C, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0 }), 1073741823.0);
    EXPECT_EQ(decode({ 0x40, 0x0E, 0xAC, 0x44, 0x80, 0, 0, 0, 0, 0 }), 44100.0); // 44100.5
    EXPECT_EQ(decode({ 0x40, 0x1D, 0x80, 0, 0, 0, 0, 0, 0, 0 }), -1.0);          // 2^30
    EXPECT_EQ(decode({ 0xC0, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0 }), -1.0);       // -44100
}

// ---------------------------------------------------------------------------------------
// Writer

/** A writer made directly, with the byte count open to tests of the size cap. */
class TestAiffWriter : public AiffFileWriter
{
public:
    TestAiffWriter(const std::string& path, double rate, unsigned int numChannels, int bits)
        : AiffFileWriter(File(path.c_str()), rate, numChannels, bits)
    {
    }

    void SetBytesWritten(uint64_t count) { bytesWritten = count; }

    bool WriteRaw(Channels channels)
    {
        std::vector<int*> pointers;
        for (auto& channel : channels)
            pointers.push_back(channel.data());
        pointers.push_back(nullptr);
        return writeRawSamples(pointers.data(), channels[0].size());
    }
};

Bytes ExpectedHeader(uint16_t channels, uint32_t frames, uint16_t bits, const Bytes& rate, uint32_t paddedData)
{
    return Concat({ Text("FORM"), BigEndian(paddedData + 46, 4), Text("AIFFCOMM"), BigEndian(18, 4), BigEndian(channels, 2),
                    BigEndian(frames, 4), BigEndian(bits, 2), rate, Text("SSND"), BigEndian(paddedData + 8, 4), BigEndian(0, 8) });
}

TEST_F(AiffFiles, FactoryReplacesTheDestinationOnlyOnceDepthAndRateAreAccepted)
{
    const std::string path = folder / "new/sub/out.aif";
    const auto create = [&](int bits) {
        return AiffFileWriter::CreateWriterFor(File(path.c_str()), 44100.0, 2, bits, Overwrite(1));
    };
    ASSERT_TRUE(create(24) != nullptr); // makes the folders; the writer is closed at once
    std::ofstream(path, std::ios::app) << "tail";

    EXPECT_EQ(testing::MessageOf([&] { create(12); }), "Invalid bits depth : 12");
    EXPECT_EQ(ReadWholeFile(path).size(), 54u + 4u);

    create(16).reset(); // never written to: the bare 54-byte header
    EXPECT_EQ(ReadWholeFile(path), ExpectedHeader(2, 0, 16, rate44100, 0));
}

TEST_F(AiffFiles, WriterPadsOddDataAndClipsFloatsAtThirtyTwoBits)
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
    // The pad byte counts in the FORM and SSND sizes: 58 bytes in all.
    EXPECT_EQ(ReadWholeFile(folder / "odd.aiff"), Concat({ ExpectedHeader(1, 3, 8, rate44100, 4), { 0x7F, 0x80, 0x01, 0x00 } }));
    EXPECT_EQ(ReadWholeFile(folder / "odd.aiff").size(), 58u);
    EXPECT_EQ(ReadWholeFile(folder / "clip.aiff"),
              Concat({ ExpectedHeader(1, 3, 32, rate44100, 12), { 0x7F, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0, 0x40, 0, 0, 0 } }));
}

TEST_F(AiffFiles, WriterDropsTheWholeCallThatWouldReachTheCap)
{
    const std::string path = folder / "cap.aiff";
    {
        TestAiffWriter writer(path, 44100.0, 1, 16);
        writer.SetBytesWritten(AiffFileWriter::maxDataBytes - 6);
        ASSERT_TRUE(writer.WriteRaw({ { 0x01000000, 0x02000000 } })); // ends 2 bytes short of the cap
        EXPECT_FALSE(writer.WriteRaw({ { 0x03000000 } }));            // would end exactly on it
        EXPECT_EQ(writer.getMetadata().numSamples, 2u);

        // The header is already right for what was stored, and the failure is latched.
        EXPECT_EQ(ReadWholeFile(path), Concat({ ExpectedHeader(1, 2, 16, rate44100, 4), { 1, 0, 2, 0 } }));
        writer.SetBytesWritten(0);
        EXPECT_FALSE(writer.WriteRaw({ { 0x04000000 } }));
    }
    EXPECT_EQ(ReadWholeFile(path), Concat({ ExpectedHeader(1, 2, 16, rate44100, 4), { 1, 0, 2, 0 } }));
}

TEST_F(AiffFiles, WriterPadByteAfterAFailureLandsOnTheFirstSample)
{
    const std::string path = folder / "failed.aiff";
    {
        TestAiffWriter writer(path, 44100.0, 1, 8);
        ASSERT_TRUE(writer.WriteRaw({ { 0x11000000, 0x22000000, 0x33000000 } }));
        writer.SetBytesWritten(AiffFileWriter::maxDataBytes - 1);
        EXPECT_FALSE(writer.WriteRaw({ { 0x44000000 } }));
    }
    // The failure left the position behind the header; the odd count's pad byte goes there.
    EXPECT_EQ(ReadWholeFile(path), Concat({ ExpectedHeader(1, 3, 8, rate44100, 4), { 0x00, 0x22, 0x33 } }));
}

TEST_F(AiffFiles, FloatsOnTheSampleGridSurviveAWriteAndARead)
{
    for (int bits : { 8, 16, 24 })
    {
        const std::string path = folder / ("grid" + std::to_string(bits) + ".aiff");
        const float step = 1.0f / float(1 << (bits - 1));
        AudioBuffer<float> written(2, 5);
        const float values[5] = { -1.0f, -step, 0.0f, step, 1.0f - step };
        for (uint32_t c = 0; c < 2; ++c)
            for (uint64_t i = 0; i < 5; ++i)
                written.GetWritePointer(c)[i] = values[c == 0 ? i : 4 - i];
        {
            TestAiffWriter writer(path, 44100.0, 2, bits);
            ASSERT_TRUE(writer.writeSamples(written, 0, 5, false));
        }
        RawAiffReader reader { File(path.c_str()) };
        AudioBuffer<float> read(2, 5);
        ASSERT_TRUE(reader.readSamples(read, 0, 5, 0));
        for (uint32_t c = 0; c < 2; ++c)
            EXPECT_EQ(std::vector<float>(read.GetReadPointer(c), read.GetReadPointer(c) + 5),
                      std::vector<float>(written.GetReadPointer(c), written.GetReadPointer(c) + 5))
                << bits << " bits, channel " << c;
    }
}

// ---------------------------------------------------------------------------------------
// Reader: sample codings

TEST_F(AiffFiles, ReadsPlainAiffAtEveryDepth)
{
    const std::vector<std::pair<int16_t, Bytes>> cases {
        { 8, { 0x7F, 0x80 } },
        { 16, { 0x7F, 0xFE, 0x80, 0x01 } },
        { 24, { 0x7F, 0xFE, 0xFD, 0x80, 0x01, 0x02 } },
        { 32, { 0x7F, 0xFE, 0xFD, 0xFC, 0x80, 0x01, 0x02, 0x03 } },
    };
    for (const auto& [bits, data] : cases)
    {
        RawAiffReader reader = Open(Form("AIFF", { Comm(2, 1, bits), Ssnd(data) }));
        const uint32_t dropped = 32u - uint32_t(bits);
        EXPECT_EQ(reader.Read(1), (Channels { { int32_t(0x7FFEFDFCu >> dropped << dropped) },
                                              { int32_t(0x80010203u >> dropped << dropped) } }))
            << bits;
        EXPECT_FALSE(reader.getMetadata().isFloat);
    }
    // 12 bits: counted, but nothing is written into the arrays.
    RawAiffReader twelve = Open(Form("AIFF", { Comm(1, 2, 12), Ssnd({ 0x12, 0x34 }) }));
    EXPECT_EQ(twelve.getMetadata().numSamples, 2u);
    EXPECT_EQ(twelve.Read(2, 0, 77), (Channels { { 77, 77 } }));
}

TEST_F(AiffFiles, ReadsTheUncompressedAifcTypes)
{
    const Bytes bigEndian16 { 0x12, 0x34, 0xFE, 0xDC };
    for (const char* type : { "NONE", "twos" })
        EXPECT_EQ(Open(Form("AIFC", { Fver(), Comm(1, 2, 16, rate44100, type), Ssnd(bigEndian16) })).Read(2),
                  (Channels { { 0x12340000, int32_t(0xFEDC0000) } }))
            << type;

    RawAiffReader sowt16 = Open(Form("AIFC", { Fver(), Comm(1, 2, 16, rate44100, "sowt"), Ssnd(bigEndian16) }));
    EXPECT_EQ(sowt16.Read(2), (Channels { { 0x34120000, int32_t(0xDCFE0000) } }));

    // 8-bit "sowt" samples are signed, unlike WAV's.
    RawAiffReader sowt8 = Open(Form("AIFC", { Comm(1, 2, 8, rate44100, "sowt"), Ssnd({ 0x7F, 0x80 }) }));
    EXPECT_EQ(sowt8.Read(2), (Channels { { 0x7F000000, int32_t(0x80000000) } }));

    for (const char* type : { "fl32", "FL32" })
    {
        RawAiffReader reader = Open(Form("AIFC", { Comm(1, 1, 32, rate44100, type), Ssnd({ 0x3F, 0xC0, 0, 0 }) }));
        EXPECT_TRUE(reader.getMetadata().isFloat);
        AudioBuffer<float> buffer(1, 1);
        ASSERT_TRUE(reader.readSamples(buffer, 0, 1, 0));
        EXPECT_EQ(buffer.GetReadPointer(0)[0], 1.5f) << type;
    }
}

/** A raw file of 32-bit little-endian values, as another tool decoded a fixture. */
std::vector<int32_t> ReadRawValues(const std::string& path)
{
    const Bytes bytes = ReadWholeFile(path);
    std::vector<int32_t> values;
    for (size_t i = 0; i + 3 < bytes.size(); i += 4)
        values.push_back(int32_t(uint32_t(bytes[i]) | uint32_t(bytes[i + 1]) << 8 | uint32_t(bytes[i + 2]) << 16
                                 | uint32_t(bytes[i + 3]) << 24));
    return values;
}

std::vector<int32_t> Interleaved(const Channels& channels)
{
    std::vector<int32_t> values;
    for (size_t i = 0; i < channels[0].size(); ++i)
        for (const auto& channel : channels)
            values.push_back(channel[i]);
    return values;
}

TEST(AiffFixtures, ReadsWhatAnotherToolWroteAsThatToolDecodesIt)
{
    // Made with sox: an AIFF with a comment chunk before COMM, and an AIFF-C of floats
    // with a compression name; the raw twins are sox's own decoding of them.
    const std::string dataFolder = KVO_TEST_DATA_DIR;
    RawAiffReader noise { File((dataFolder + "/sox-noise-48k-24bit.aiff").c_str()) };
    EXPECT_EQ(noise.getMetadata().sampleRate, 48000.0);
    EXPECT_EQ(noise.getNumChannels(), 2u);
    EXPECT_EQ(Interleaved(noise.Read(33)), ReadRawValues(dataFolder + "/sox-noise-48k-24bit.s32"));

    RawAiffReader sine { File((dataFolder + "/sox-sine-22k-fl32.aifc").c_str()) };
    EXPECT_EQ(sine.getMetadata().sampleRate, 22050.0);
    EXPECT_TRUE(sine.getMetadata().isFloat);
    EXPECT_EQ(Interleaved(sine.Read(17)), ReadRawValues(dataFolder + "/sox-sine-22k-fl32.f32"));
}

// ---------------------------------------------------------------------------------------
// Reader: chunk layout

TEST_F(AiffFiles, SsndOffsetAndSizeDecideWhereAndHowMuch)
{
    RawAiffReader reader = Open(Form("AIFF", { Comm(1, 1000, 16), Ssnd({ 0x01, 0x00, 0x02, 0x00 }, 8) }));
    // 20 bytes of chunk over 2 bytes a frame: the whole chunk's size counts.
    EXPECT_EQ(reader.getMetadata().numSamples, 10u);
    EXPECT_EQ(reader.Read(3), (Channels { { 0x01000000, 0x02000000, 0 } }));
    // Past the end of the file the frames read as zeros, past numSamples as well.
    EXPECT_EQ(reader.Read(3, 9), (Channels { { 0, 0, 0 } }));
}

TEST_F(AiffFiles, CommFramesWithTheTopBitSetWidenAndTheSsndSizeDecides)
{
    EXPECT_EQ(Open(Form("AIFF", { Comm(1, 0x80000000u, 8), Ssnd({ 1, 2 }) })).getMetadata().numSamples, 10u);
    RawAiffReader noSound = Open(Form("AIFF", { Comm(1, 0x80000000u, 8) }));
    EXPECT_EQ(noSound.getMetadata().numSamples, 0xFFFFFFFF80000000u);
    // Without SSND the samples start at the file's first byte.
    EXPECT_EQ(noSound.Read(2), (Channels { { 'F' << 24, 'O' << 24 } }));
    EXPECT_EQ(noSound.Read(1, 0xFFFFFFFF7FFFFFFFu), (Channels { { 0 } }));
}

TEST_F(AiffFiles, ChunkOrderDecidesTheFrameCountAndPadsFollowOddSizes)
{
    // SSND first finds no frame width and counts nothing; the later COMM's count stands.
    RawAiffReader reader = Open(Form("AIFF", { Ssnd({ 5, 6 }), Comm(1, 100, 8) }));
    EXPECT_EQ(reader.getMetadata().numSamples, 100u);
    EXPECT_EQ(reader.Read(2), (Channels { { 5 << 24, 6 << 24 } }));
    // An odd-sized chunk is padded by its end.
    RawAiffReader padded = Open(Form("AIFF", { Chunk("APPL", { 1, 2, 3 }), Comm(1, 1, 8), Ssnd({ 9 }) }));
    EXPECT_EQ(padded.Read(1), (Channels { { 9 << 24 } }));
}

TEST_F(AiffFiles, MarkersAreReadBeforeTheSoundDataOrWithoutAVersionChunk)
{
    const Bytes first = Mark({ { 1, 10, "" }, { 2, 20, "ab" }, { 3, 30, "abc" } });
    const Bytes second = Mark({ { 4, 40, "late" } });
    const auto labels = [](const AudioFilesMetadata& metadata) {
        std::string text;
        for (const AudioFilesMetadata::Marker* marker : metadata.markers)
            text += std::to_string(marker->identifier) + "@" + std::to_string(marker->position) + ":"
                    + marker->label.GetStdString() + " ";
        return text;
    };

    EXPECT_EQ(labels(Open(Form("AIFF", { first, Comm(1, 1, 8), Ssnd({ 0 }), second })).getMetadata()),
              "1@10: 2@20:ab 3@30:abc 4@40:late ");
    // With FVER, COMM and SSND seen, parsing ends at the next chunk.
    EXPECT_EQ(labels(Open(Form("AIFC", { Fver(), first, Comm(1, 1, 8), Ssnd({ 0 }), second })).getMetadata()),
              "1@10: 2@20:ab 3@30:abc ");
}

TEST_F(AiffFiles, VersionChunkIsCheckedWhereItStands)
{
    EXPECT_EQ(Refusal(Form("AIFC", { Fver(1), Comm(1, 1, 8), Ssnd({ 0 }) })), InvalidMessage(folder / "test.aif"));
    EXPECT_EQ(Refusal(Form("AIFC", { Fver(0), Comm(1, 1, 8), Ssnd({ 0 }) })), "");
    // After COMM a wrong version only ends parsing: the file opens without its SSND.
    RawAiffReader reader = Open(Form("AIFC", { Comm(1, 7, 8), Fver(1), Ssnd({ 0 }) }));
    EXPECT_EQ(reader.getMetadata().numSamples, 7u);
}

// ---------------------------------------------------------------------------------------
// Reader: bad input

TEST_F(AiffFiles, RefusesWhatIsNotAnAiffFile)
{
    const Bytes sound = Ssnd({ 0, 0 });
    const Bytes complete = Form("AIFF", { Comm(1, 1, 16) });
    const std::vector<Bytes> cases {
        {},
        Text("FORM"),
        Form("AIFX", { Comm(1, 1, 16), sound }),
        Concat({ Text("RIFF"), Form("AIFF", { Comm(1, 1, 16), sound }) }),
        Form("AIFF", { sound }),                                                    // no COMM
        Form("AIFF", { Comm(0, 1, 16), sound }),                                    // no channels
        Form("AIFF", { Comm(1, 1, 0), sound }),                                     // no bits
        Form("AIFF", { Comm(1, 1, 4), sound }),                                     // a frame of no bytes
        Form("AIFF", { Comm(1, 1, 16, Encoded(1.0)), sound }),                      // 1.0 Hz
        Form("AIFF", { Comm(1, 1, 16, Bytes(10, 0)), sound }),                      // 0 Hz
        Form("AIFF", { Comm(1, 1, 16, { 0x40, 0x0E, 0, 0, 0, 0, 0, 0, 0, 0 }), sound }), // no mantissa
        Form("AIFF", { Comm(2881, 1, 16), sound }),                                 // 5762 bytes a frame
        Form("AIFF", { Comm(-1, 1, -16), sound }),                                  // signs that cancel
        Form("AIFF", { Chunk("APPL", {}, 0xFFFFFFF0u), Comm(1, 1, 16), sound }),    // a chunk past the end
        Bytes(complete.begin(), complete.begin() + 24),                            // COMM cut short
    };
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_NE(Refusal(cases[i]), "") << "case " << i;
    for (const char* type : { "none", "SOWT", "fl64", "ulaw" }) // compression types compare exactly
        EXPECT_NE(Refusal(Form("AIFC", { Comm(1, 2, 16, rate44100, type), Ssnd({ 0, 0, 0, 0 }) })), "") << type;
}

TEST_F(AiffFiles, HostileSizesNeitherHangNorReadOutOfBounds)
{
    // A FORM size far beyond the file: the walk stops at the end of the file.
    Bytes bytes = Form("AIFF", { Comm(1, 4, 8), Chunk("APPL", { 1, 2 }) });
    bytes[4] = bytes[5] = bytes[6] = bytes[7] = 0xFF;
    EXPECT_EQ(Refusal(bytes), "");

    // The widest frame the staging block takes reads one frame a block.
    RawAiffReader widest = Open(Form("AIFF", { Comm(2880, 3, 16), Ssnd(Bytes(5760 * 3, 0x01)) }));
    const Channels frames = widest.Read(3);
    EXPECT_EQ(frames.size(), 2880u);
    EXPECT_EQ(frames[2879], (std::vector<int32_t> { 0x01010000, 0x01010000, 0x01010000 }));

    // A huge SSND size and offset: the COMM count stands, and the samples read as zeros.
    Bytes huge = Form("AIFF", { Comm(1, 3, 16), Chunk("SSND", { 0xFF, 0xFF, 0xFF, 0xF0, 0, 0, 0, 0 }, 0xFFFFFFFFu) });
    EXPECT_EQ(Open(huge).Read(3, 0, 1), (Channels { { 0, 0, 0 } }));

    // A MARK whose count outruns the file reads zeros for the rest, and ends.
    const Bytes marks = Form("AIFF", { Comm(1, 1, 8), Ssnd({ 0 }), Chunk("MARK", { 0x04, 0x00 }) });
    EXPECT_EQ(Open(marks).getMetadata().markers.GetSize(), 1024u);
}

} // namespace
} // namespace kvo
