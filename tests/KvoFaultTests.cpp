// Failing disks and inputs that change or are not files: the join stops with its report
// and leaves a well-formed partial output.

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "files/KvoFileHandle.h"
#include "shell/KvoSonaJoin.h"

namespace kvo::testing
{
namespace
{

/** A mono 16-bit WAV of numSamples values counting up from 1. */
std::string CountingWav(uint32_t numSamples)
{
    std::string data;
    for (uint32_t i = 1; i <= numSamples; ++i)
        data += LittleEndian(i, 2);
    return CanonicalWav(1, 1, 44100, 16, data);
}

/** Runs the join in this process, quietly, and returns the message of what it threw. */
std::string JoinMessage(const std::string& inputs, const std::string& destination)
{
    const ScopedConsoleTarget quiet;
    return MessageOf([&] {
        SonaJoin join;
        join.SetInputs(String(inputs), 1);
        join.SetDestination(File(destination.c_str()));
        join.Process();
    });
}

/** Makes every write stop at a fixed file size, as a full disk does, while it lives. */
class FullDisk
{
public:
    explicit FullDisk(int64_t bytes)
    {
        capacity = bytes;
        details::fileSystemCalls.write = write;
    }
    ~FullDisk() { details::fileSystemCalls = details::GetSystemFileCalls(); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    static int64_t write(int handle, const void* source, uint64_t numBytes)
    {
        const int64_t position = ::lseek(handle, 0, SEEK_CUR);
        const int64_t room = std::max<int64_t>(0, capacity - position);
        if (room == 0 && numBytes > 0)
        {
            errno = ENOSPC;
            return -1;
        }
        return ::write(handle, source, std::min<uint64_t>(numBytes, uint64_t(room)));
    }

    static inline int64_t capacity = 0;
};

/** Deletes a file the moment the console shows a given text, to change the disk mid-run. */
class DeleteOnText : public std::streambuf
{
public:
    DeleteOnText(std::string text, std::string path) : trigger(std::move(text)), victim(std::move(path)) {}

protected:
    int overflow(int c) override
    {
        if (c != EOF)
            seen += char(c);
        if (seen.find(trigger) != std::string::npos)
            ::unlink(victim.c_str());
        return c;
    }

private:
    std::string trigger;
    std::string victim;
    std::string seen;
};

class Faults : public ::testing::Test
{
protected:
    std::string Input(const std::string& name, uint32_t numSamples)
    {
        WriteWholeFile(folder / name, CountingWav(numSamples));
        return folder / name;
    }

    TemporaryFolder folder;
    const std::string output = folder / "out.wav";
};

TEST_F(Faults, FullDiskEndsTheJoinWithAHeaderThatMatchesTheStoredBlocks)
{
    const std::string input = Input("a.wav", 20000);
    {
        const FullDisk disk(104 + 2 * 8192 * 2 + 100); // room for two blocks and a bit
        const StreamCapture console(std::cout);
        EXPECT_EQ(JoinMessage(input, output), "Error writing file \"" + output + "\"");
    }
    const std::string written = ReadWholeFile(output);
    const std::string expected = CountingWav(20000);
    // The header counts the two whole blocks; the part of the third that fit is not counted.
    EXPECT_EQ(written.substr(4, 4), std::string("\x60\x80\x00\x00", 4)); // 96 + 32768
    EXPECT_EQ(written.substr(100, 4), std::string("\x00\x80\x00\x00", 4));
    EXPECT_EQ(written.substr(104, 32768), expected.substr(44, 32768));
    EXPECT_EQ(WavFileReader(File(output.c_str())).getMetadata().numSamples, 16384u);
}

TEST_F(Faults, InputDeletedBetweenThePassesIsNotFoundAndTheOutputStaysWellFormed)
{
    const std::string a = Input("a.wav", 1000);
    const std::string b = Input("b.wav", 1000);
    DeleteOnText deleter("reading file \"" + a + "\"", b);
    std::streambuf* const saved = std::cout.rdbuf(&deleter);
    const std::string message = JoinMessage(a + "," + b, output);
    std::cout.rdbuf(saved);

    EXPECT_EQ(message, "Could not find file \"" + b + "\"");
    const std::string written = ReadWholeFile(output);
    ASSERT_EQ(written.size(), 104u + 2000u);
    EXPECT_EQ(written.substr(100, 4), std::string("\xD0\x07\x00\x00", 4));
    EXPECT_EQ(written.substr(104), CountingWav(1000).substr(44));
}

TEST_F(Faults, InputsThatAreNotRegularFilesAreRefusedWithoutWaiting)
{
    const std::string fifo = folder / "pipe.wav";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const ProgramRun run = RunSonaJoin({ "-i", fifo, "-d", output });
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.standardError.find("Could not open file \"" + fifo + "\". Unsupported format?"), std::string::npos)
        << run.standardError;
    EXPECT_FALSE(File(output.c_str()).Exists());
}

TEST_F(Faults, DestinationBelowAFileCannotBeMade)
{
    const std::string input = Input("a.wav", 10);
    const std::string destination = input + "/out.wav";
    const ProgramRun run = RunSonaJoin({ "-i", input, "-d", destination });
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.standardError.find("Error writing file \"" + destination + "\""), std::string::npos)
        << run.standardError;
    EXPECT_EQ(ReadWholeFile(input), CountingWav(10));
}

} // namespace
} // namespace kvo::testing
