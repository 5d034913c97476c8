// Sample coding between file bytes, fixed point and float: what the readers' and writers'
// round trips cannot show (channel rules, the in-place case, clipping and rounding of every
// float). Then the join's copies: where an input's coding is the output's it copies the
// bytes, and the file must be the one that decoding to float and encoding again makes,
// whatever the formats, depths, frame counts, block boundaries and missing data.

#include <algorithm>
#include <cmath>
#include <limits>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "audiofiles/KvoPcmFileReader.h"
#include "audiofiles/KvoPcmSampleCoding.h"

namespace kvo::testing
{
namespace
{

/** Decodes frames of one or more channels into fresh arrays filled with a marker value. */
std::vector<std::vector<int>> decode(void (*decoder)(int, bool, int**, uint64_t, unsigned, const char*, unsigned, uint64_t),
                                     int bits, bool isFloat, const std::string& source, unsigned numSourceChannels,
                                     unsigned numDestChannels, uint64_t numFrames)
{
    std::vector<std::vector<int>> channels(numDestChannels, std::vector<int>(numFrames, 0x5A5A5A5A));
    std::vector<int*> pointers;
    for (auto& channel : channels)
        pointers.push_back(channel.data());
    decoder(bits, isFloat, pointers.data(), 0, numDestChannels, source.data(), numSourceChannels, numFrames);
    return channels;
}

TEST(PcmDecoding, WidthsWithoutADecoderLeaveTheArraysAlone)
{
    const std::string source(16, '\x11');
    for (int bits : { 12, 20, 48 })
        EXPECT_EQ(decode(ConvertLittleEndianToInt32, bits, false, source, 1, 2, 2)[1][0], 0x5A5A5A5A) << bits;
    EXPECT_EQ(decode(ConvertLittleEndianToInt32, 64, false, source, 1, 1, 2)[0][0], 0x5A5A5A5A);
}

TEST(PcmDecoding, ChannelsBeyondTheSourceAreZeroedAndNullOnesSkipped)
{
    const std::string stereo("\x01\x00\x02\x00\x03\x00\x04\x00", 8);
    const auto wide = decode(ConvertLittleEndianToInt32, 16, false, stereo, 2, 3, 2);
    EXPECT_EQ(wide[0], (std::vector<int> { 0x10000, 0x30000 }));
    EXPECT_EQ(wide[1], (std::vector<int> { 0x20000, 0x40000 }));
    EXPECT_EQ(wide[2], (std::vector<int> { 0, 0 }));
    const auto narrow = decode(ConvertLittleEndianToInt32, 16, false, stereo, 2, 1, 2);
    EXPECT_EQ(narrow[0], (std::vector<int> { 0x10000, 0x30000 }));

    std::vector<int> right(2, 7);
    int* pointers[2] = { nullptr, right.data() };
    ConvertLittleEndianToInt32(16, false, pointers, 0, 2, stereo.data(), 2, 2);
    EXPECT_EQ(right, (std::vector<int> { 0x20000, 0x40000 }));
}

TEST(PcmDecoding, MonoDecodedInPlaceRunsBackwards)
{
    // 16-bit mono samples at the start of the very array they decode into.
    std::vector<int> memory(4, 0);
    const int16_t samples[4] = { 1, -1, 300, -32768 };
    std::memcpy(memory.data(), samples, sizeof(samples));
    int* pointers[1] = { memory.data() };
    ConvertLittleEndianToInt32(16, false, pointers, 0, 1, reinterpret_cast<const char*>(memory.data()), 1, 4);
    EXPECT_EQ(memory, (std::vector<int> { 0x10000, -0x10000, 300 << 16, INT32_MIN }));
}

TEST(PcmScaling, FloatToFixedClipsAndRoundsToEven)
{
    const float source[] = { -2.0f, 1.0f, 1.5f, 0.5f, -0.000001f, std::ldexp(1.5f, -31), std::ldexp(2.5f, -31) };
    std::vector<int> dest(std::size(source));
    ConvertFloatToFixed(source, dest.data(), std::size(source));
    EXPECT_EQ(dest, (std::vector<int> { INT32_MIN, INT32_MAX, INT32_MAX, 0x40000000, -2147, 2, 2 }));
}

TEST(PcmScaling, FloatToFixedEqualsClippedLrintfEverywhere)
{
    // Every 4093rd float bit pattern, both signs, against the plain formula.
    std::vector<float> source;
    for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += 4093)
    {
        const auto pattern = static_cast<uint32_t>(bits);
        float value;
        std::memcpy(&value, &pattern, sizeof(value));
        if (!std::isnan(value))
            source.push_back(value);
    }
    std::vector<int> dest(source.size());
    ConvertFloatToFixed(source.data(), dest.data(), source.size());
    for (size_t i = 0; i < source.size(); ++i)
    {
        const float x = source[i];
        const int expected = x <= -1.0f ? INT32_MIN : x >= 1.0f ? INT32_MAX : static_cast<int>(std::lrintf(x * 2147483648.0f));
        ASSERT_EQ(dest[i], expected) << x;
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    int fromNan = 0;
    ConvertFloatToFixed(&nan, &fromNan, 1);
    EXPECT_EQ(fromNan, INT32_MIN);
}

/** numBytes of noise that reaches every byte value, the same on every run. */
std::string Noise(size_t numBytes)
{
    std::string bytes(numBytes, '\0');
    uint32_t state = 12345;
    for (char& byte : bytes)
        byte = char((state = state * 1664525u + 1013904223u) >> 24);
    return bytes;
}

/** Frames [start, start + count) of input stored by writer in blocks, converted or copied. */
std::string Store(const std::string& input, const std::string& output, uint64_t start, uint64_t count, bool copy)
{
    const ScopedPointer<AudioFileReader> reader = AudioFileReader::CreateReaderFor(File(input));
    const AudioFilesMetadata& record = reader->getMetadata();
    {
        ScopedPointer<AudioFileWriter> writer = AudioFileWriter::CreateWriterFor(
            File(output), record.sampleRate, record.numChannels, int(record.bitsPerSample), Overwrite(2));
        // Copied in one call, as the join copies many blocks at once; converted block by block.
        if (copy)
        {
            EXPECT_EQ(writer->writeFramesFrom(dynamic_cast<PcmFileReader&>(*reader), start, count, 8192), count);
        }
        AudioBuffer<float> buffer(record.numChannels, 8192);
        for (uint64_t position = start; position < start + count && !copy; position += 8192)
        {
            const uint64_t n = std::min<uint64_t>(8192, start + count - position);
            EXPECT_TRUE(reader->readSamples(buffer, 0, n, position) && writer->writeSamples(buffer, 0, n, false));
        }
    }
    return ReadWholeFile(output);
}

TEST(PassThrough, CopiesTheBytesConversionWouldWrite)
{
    // tag: WAV's, 1 integer or 3 float; keptBytes of the file: fewer than it states cut its data
    // short; pastEnd: frames asked for beyond the stated count.
    struct Row { const char* name; bool isAiff; uint16_t tag, numChannels, bits; uint32_t numFrames; size_t keptBytes; uint64_t pastEnd; };
    const Row rows[] {
        { "wav16 stereo, blocks and a short one", false, 1, 2, 16, 20000, std::string::npos, 0 },
        { "wav8 mono, odd, cut short, past the end", false, 1, 1, 8, 8193, 5000, 3 },
        { "wav24 three channels, one short of a block", false, 1, 3, 24, 8191, std::string::npos, 5 },
        { "wav float with every bit pattern", false, 3, 2, 32, 8192, std::string::npos, 0 },
        { "wav32 integer, converted", false, 1, 2, 32, 777, std::string::npos, 0 },
        { "wav16 with its header alone", false, 1, 2, 16, 9000, 44, 2 },
        { "aiff16 stereo, exactly a block", true, 0, 2, 16, 8192, std::string::npos, 0 },
        { "aiff8 mono, odd, cut short, past the end", true, 0, 1, 8, 8195, 4000, 7 },
        { "aiff24 six channels", true, 0, 6, 24, 9001, std::string::npos, 0 },
        { "aiff32 integer, converted", true, 0, 2, 32, 501, std::string::npos, 0 },
    };
    TemporaryFolder folder;
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        const std::string data = Noise(size_t(row.numFrames) * row.numChannels * row.bits / 8);
        const std::string file = row.isAiff ? Form("AIFF", Comm(row.numChannels, row.numFrames, row.bits) + Ssnd(data))
                                            : CanonicalWav(row.tag, row.numChannels, 44100, row.bits, data);
        const std::string input = folder / (row.isAiff ? "in.aiff" : "in.wav");
        WriteWholeFile(input, file.substr(0, row.keptBytes));
        const std::string output = folder / (row.isAiff ? "out.aiff" : "out.wav");

        // The join chooses between copying and converting; either way its file is the converted one.
        EXPECT_EQ(RunSonaJoin({ "-i", input, "-d", output }).exitCode, 0);
        // Whole files compared as one value: a difference is reported without printing them.
        EXPECT_TRUE(ReadWholeFile(output) == Store(input, output, 0, row.numFrames, false));
        const uint64_t numAsked = row.numFrames + row.pastEnd;
        if (row.bits < 32 || row.tag == 3)
        {
            EXPECT_TRUE(Store(input, output, 0, numAsked, true) == Store(input, output, 0, numAsked, false));
        }
    }
}

} // namespace
} // namespace kvo::testing
