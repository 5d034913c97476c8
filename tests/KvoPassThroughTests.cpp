// The join copies an input's bytes where its coding is the output's: the file must be the
// one that decoding to float and encoding again makes, whatever the formats, depths, frame
// counts, block boundaries and missing data.

#include <algorithm>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "audiofiles/KvoPcmFileReader.h"

namespace kvo::testing
{
namespace
{

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
    struct Row
    {
        const char* name;
        bool isAiff;
        uint16_t tag; // WAV: 1 integer, 3 float
        uint16_t numChannels;
        uint16_t bits;
        uint32_t numFrames;
        size_t keptBytes; // of the file: fewer than it states cuts its data short
        uint64_t pastEnd; // frames asked for beyond the stated count
    };
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
