// FileReader and FileWriter on real files and seen through the system calls they make (lazy
// seeking, retried short and interrupted transfers, failures mid-way, copies in the kernel, the
// bytes of every write, what they refuse), and the join on a failing disk or inputs that change
// under it: it stops with its report and leaves a well-formed partial output.

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "core/KvoMemoryBlock.h"
#include "files/KvoFileHandle.h"
#include "files/KvoFileReader.h"
#include "files/KvoFileWriter.h"
#include "shell/KvoSonaJoin.h"

namespace kvo::testing
{
namespace
{

using Log = std::vector<std::string>;

/**
    Routes FileHandle's descriptor calls through replaceable functions while it lives, logging
    each as "read N", "write N" or "seek P". By default each goes on to the system.
*/
struct SystemCallSpy
{
    SystemCallSpy() { active = this, details::fileSystemCalls = { onRead, onWrite, onSeek }; }
    ~SystemCallSpy() { details::fileSystemCalls = details::GetSystemFileCalls(); }

    static int64_t onRead(int h, void* dest, uint64_t n) { return active->note("read ", int64_t(n)), active->read(h, dest, n); }
    static int64_t onWrite(int h, const void* from, uint64_t n) { return active->note("write ", int64_t(n)), active->write(h, from, n); }
    static int64_t onSeek(int h, int64_t to, int whence) { return active->note("seek ", to), active->seek(h, to, whence); }
    void note(const std::string& call, int64_t n) { log.push_back(call + std::to_string(n)); }

    Log log;
    std::function<int64_t(int, void*, uint64_t)> read = details::GetSystemFileCalls().read;
    std::function<int64_t(int, const void*, uint64_t)> write = details::GetSystemFileCalls().write;
    std::function<int64_t(int, int64_t, int)> seek = details::GetSystemFileCalls().seek;
    static inline SystemCallSpy* active = nullptr;
};

/** Fails with errno set, as a system call does. */
int64_t failWith(int error)
{
    errno = error;
    return -1;
}

/** The system's read, asked for at most limit bytes. */
int64_t readAtMost(int handle, void* dest, uint64_t numBytes, uint64_t limit)
{
    return details::GetSystemFileCalls().read(handle, dest, std::min(numBytes, limit));
}

File fileAt(const std::string& path) { return File(path.c_str()); }

/** A reader of a fresh file holding bytes. */
struct ReaderOf
{
    explicit ReaderOf(const std::string& bytes) : reader((WriteWholeFile(folder / "f", bytes), fileAt(folder / "f"))) {}
    TemporaryFolder folder;
    FileReader reader;
};

TEST(FileStreamReader, SeeksOnlyWhenAReadNeedsItAndAsksNothingPastAnEndItWasShown)
{
    ReaderOf file("0123456789");
    FileReader& reader = file.reader;
    SystemCallSpy spy;
    char bytes[8] = {};
    EXPECT_EQ(reader.Read(bytes, 0) + reader.Read(bytes, -1), 0); // nothing asked: no call
    EXPECT_EQ(reader.Read(bytes, 3), 3);
    EXPECT_TRUE(reader.SetPosition(3)); // where it is: the system's position stays good
    EXPECT_EQ(reader.Read(bytes + 3, 2), 2);
    EXPECT_EQ(std::string(bytes, 5), "01234");

    // A run of moves, clamped to the file, costs nothing until the next read seeks once to the last.
    EXPECT_TRUE(reader.SetPosition(-5) && reader.GetPosition() == 0);
    EXPECT_TRUE(reader.SetPosition(99) && reader.GetPosition() == 10 && reader.IsExhausted());
    EXPECT_TRUE(reader.SetPosition(7));
    EXPECT_EQ(reader.Read(bytes, 8), 3);
    EXPECT_EQ(std::string(bytes, 3), "789");
    // The second read of 5 met the end: reads there, however many, ask the system nothing more.
    reader.SetPosition(10);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(reader.Read(bytes, 1), 0);
    EXPECT_EQ(spy.log, (Log { "seek 0", "read 3", "read 2", "seek 7", "read 8", "read 5" }));
}

TEST(FileStreamReader, ShortAndInterruptedReadsAreRetriedAndFailuresDeliverWhatCameBefore)
{
    ReaderOf file("abcdefghij");
    FileReader& reader = file.reader;
    SystemCallSpy spy;
    int calls = 0;
    spy.read = [&calls](int handle, void* dest, uint64_t numBytes) {
        return ++calls % 2 == 0 ? failWith(EINTR) : readAtMost(handle, dest, numBytes, 3);
    };
    char bytes[16] = {};
    EXPECT_EQ(reader.Read(bytes, 9), 9);
    EXPECT_EQ(std::string(bytes, 9), "abcdefghi");
    EXPECT_EQ(spy.log, (Log { "seek 0", "read 9", "read 6", "read 6", "read 3", "read 3" }));

    // A failed seek stays pending for the next read; a failed read is no exception.
    spy.log.clear();
    reader.SetPosition(6);
    spy.seek = [](int, int64_t, int) { return failWith(EIO); };
    EXPECT_EQ(reader.Read(bytes, 2), 0);
    EXPECT_EQ(reader.GetPosition(), 6);
    spy.seek = details::GetSystemFileCalls().seek;
    spy.read = [&calls](int handle, void* dest, uint64_t numBytes) {
        return ++calls > 6 ? failWith(EIO) : readAtMost(handle, dest, numBytes, 2);
    };
    EXPECT_EQ(reader.Read(bytes, 4), 2);
    EXPECT_EQ(std::string(bytes, 2), "gh");
    EXPECT_EQ(reader.Read(bytes, 4), 0);
    EXPECT_EQ(reader.GetPosition(), 8);
    EXPECT_EQ(spy.log, (Log { "seek 6", "seek 6", "read 4", "read 2", "read 4" }));
}

TEST(FileStreamReader, AGrowingFileKeepsItsOpeningLengthAndCopiesKeepTheirOwnPosition)
{
    ReaderOf file("abc");
    FileReader& reader = file.reader;
    std::ofstream(file.folder / "f", std::ios::binary | std::ios::app) << "defgh";
    EXPECT_EQ(reader.GetTotalLength(), 3);
    EXPECT_TRUE(reader.SetPosition(5));
    EXPECT_TRUE(reader.GetPosition() == 3 && reader.IsExhausted());
    char bytes[8] = {};
    EXPECT_EQ(reader.Read(bytes, 4), 4); // the new bytes are there for Read
    EXPECT_EQ(std::string(bytes, 4), "defg");

    FileReader copy(reader); // its own descriptor: each relies on its own position
    EXPECT_EQ(copy.Read(bytes, 1), 1);
    EXPECT_EQ(reader.Read(bytes + 1, 1), 1);
    EXPECT_EQ(std::string(bytes, 2), "hh");

    MemoryBlock block;
    reader.SetPosition(1);
    EXPECT_EQ(reader.ReadIntoMemoryBlock(block, -1), 2); // "the rest" ends at the old length
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block.data), 2), "bc");
}

TEST(FileStreamReader, MissingFilesFoldersLinksSocketsAndPipesAreRefused)
{
    TemporaryFolder folder;
    StreamCapture err(std::cerr);
    ASSERT_EQ(::symlink((folder / "nowhere").c_str(), (folder / "dangling").c_str()), 0);
    for (const std::string& path : { folder / "missing", folder.GetPath(), folder / "dangling" })
        EXPECT_THROW(FileReader(fileAt(path)), exceptions::NoSuchFile) << path;

    // A socket exists and is no folder, but cannot be opened, even by root; a pipe opens, but is
    // refused at once rather than waited on for a writer.
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address { AF_UNIX, {} };
    (folder / "socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const char* name : { "socket", "pipe" })
    {
        EXPECT_THROW(FileReader(fileAt(folder / name)), exceptions::UnsupportedFile);
        EXPECT_NE(err.GetText().find("Could not open file " + InQuotes(folder / name) + ". Unsupported format?"),
                  std::string::npos);
    }
    ::close(socket);
}

TEST(FileStreamWriter, WritesGoBehindWhatIsThereInTheirByteOrderAndRewritesGoBack)
{
    TemporaryFolder folder;
    WriteWholeFile(folder / "out", "old");
    {
        FileWriter writer(fileAt(folder / "out"));
        EXPECT_EQ(writer.GetPosition(), 3);
        // A braced list runs its writes in order.
        const bool results[] = { writer.WriteByte(0xAB), writer.WriteInt16(0x1234), writer.WriteInt16BigEndian(INT16_MIN),
                                 writer.WriteInt32(0x01020304), writer.WriteInt32BigEndian(-2),
                                 writer.WriteInt64(0x0102030405060708), writer.WriteInt64(INT64_MIN),
                                 writer.WriteRepeatedByte(0x7F, 2), writer.WriteRepeatedByte(0, 0),
                                 writer.Write("xy", 2), writer.Write(MemoryBlock(2, true)) };
        for (size_t i = 0; i < std::size(results); ++i)
            EXPECT_TRUE(results[i]) << "write " << i;
        EXPECT_EQ(writer.GetPosition(), 3 + 35);
        // Rewrites at the start and in the middle (over "o" and "xy"), then on at the end.
        EXPECT_TRUE(writer.SetPosition(0) && writer.WriteByte('O') && writer.SetPosition(34) && writer.WriteInt16BigEndian(0x4844));
        EXPECT_TRUE(writer.SetPosition(38) && writer.SetPosition(38) && writer.WriteByte('!'));
        EXPECT_FALSE(writer.SetPosition(-1));
        EXPECT_EQ(writer.GetPosition(), 39);
        EXPECT_TRUE(writer.SetPosition(41) && writer.WriteByte('.')); // the gap beyond the end reads as zeros
    }
    const std::string expected("Old" "\xAB" "\x34\x12" "\x80\x00" "\x04\x03\x02\x01" "\xFF\xFF\xFF\xFE"
                               "\x08\x07\x06\x05\x04\x03\x02\x01" "\x00\x00\x00\x00\x00\x00\x00\x80"
                               "\x7F\x7F" "HD" "\x00\x00" "!\0\0.", 42);
    EXPECT_EQ(ReadWholeFile(folder / "out"), expected);
}

TEST(FileStream, CopiesGoThroughTheKernelUnlessTheCallsAreSwapped)
{
    ReaderOf file("abcdef");
    FileWriter writer(fileAt(file.folder / "out"));
    int64_t copied = 0;
    file.reader.SetPosition(1); // no buffer: only the kernel can copy
    EXPECT_TRUE(writer.WriteFrom(file.reader, 99, nullptr, 0, copied));
    EXPECT_EQ(copied, 5);
    EXPECT_EQ(ReadWholeFile(file.folder / "out"), "bcdef");
    SystemCallSpy spy;
    file.reader.SetPosition(0);
    EXPECT_TRUE(writer.WriteFrom(file.reader, 2, nullptr, 0, copied)); // what a test plans for the calls happens
    EXPECT_EQ(copied, 0);
}

TEST(FileStreamWriter, AFolderTakesNothingAndAFileInTheWayOfTheFolderThrows)
{
    TemporaryFolder folder;
    SystemCallSpy spy;
    FileWriter writer(fileAt(folder.GetPath())); // a folder: no handle, and no call
    for (const bool ok : { writer.Write(MemoryBlock(4, true)), writer.WriteRepeatedByte(1, 3),
                           writer.WriteInt64(1), writer.SetPosition(5) })
        EXPECT_FALSE(ok);
    EXPECT_EQ(writer.GetPosition(), 0);
    EXPECT_TRUE(spy.log.empty());
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));

    WriteWholeFile(folder / "plain", "x");
    StreamCapture err(std::cerr);
    EXPECT_EQ(MessageOf([&] { FileWriter inTheWay(fileAt(folder / "plain/sub/out")); }),
              "Couldn't create or write in folder " + InQuotes(folder / "plain/sub"));
}

// ---------------------------------------------------------------------------------------
// The join when the disk fails or the inputs change under it

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

/** Deletes a file the moment the console has shown a given text, to change the disk mid-run. */
struct DeleteOnText : std::streambuf
{
    DeleteOnText(std::string text, std::string path) : trigger(std::move(text)), victim(std::move(path)) {}
    int overflow(int c) override
    {
        seen += char(c);
        if (seen.find(trigger) != std::string::npos)
            ::unlink(victim.c_str());
        return c;
    }
    std::string trigger, victim, seen;
};

TEST(JoinFaults, AFullDiskEndsTheJoinWithAHeaderThatMatchesTheStoredBlocks)
{
    TemporaryFolder folder;
    const std::string input = folder / "a.wav", output = folder / "out.wav";
    WriteWholeFile(input, CountingWav(20000));
    {
        SystemCallSpy fullDisk; // room for the header, two blocks and a bit
        fullDisk.write = [](int handle, const void* source, uint64_t numBytes) {
            const int64_t room = std::max<int64_t>(0, 104 + 2 * 8192 * 2 + 100 - ::lseek(handle, 0, SEEK_CUR));
            return room == 0 ? failWith(ENOSPC) : ::write(handle, source, std::min<uint64_t>(numBytes, uint64_t(room)));
        };
        const StreamCapture console(std::cout);
        EXPECT_EQ(JoinMessage(input, output), "Error writing file \"" + output + "\"");
    }
    const std::string written = ReadWholeFile(output);
    // The header counts the two whole blocks; the part of the third that fit is not counted.
    EXPECT_EQ(written.substr(4, 4), std::string("\x60\x80\x00\x00", 4)); // 96 + 32768
    EXPECT_EQ(written.substr(100, 4), std::string("\x00\x80\x00\x00", 4));
    EXPECT_EQ(written.substr(104, 32768), CountingWav(20000).substr(44, 32768));
    EXPECT_EQ(WavFileReader(File(output.c_str())).getMetadata().numSamples, 16384u);
}

TEST(JoinFaults, AnInputDeletedBetweenThePassesIsNotFoundAndTheOutputStaysWellFormed)
{
    TemporaryFolder folder;
    const std::string a = folder / "a.wav", b = folder / "b.wav", output = folder / "out.wav";
    WriteWholeFile(a, CountingWav(1000));
    WriteWholeFile(b, CountingWav(1000));
    DeleteOnText deleter("reading file \"" + a + "\"", b);
    std::streambuf* const saved = std::cout.rdbuf(&deleter);
    const std::string message = JoinMessage(a + "," + b, output);
    std::cout.rdbuf(saved);

    EXPECT_EQ(message, "Could not find file \"" + b + "\"");
    const std::string written = ReadWholeFile(output);
    ASSERT_EQ(written.size(), 104u + 2000u);
    EXPECT_EQ(written.substr(100, 4), std::string("\xD0\x07\x00\x00", 4));
    EXPECT_EQ(written.substr(104), CountingWav(1000).substr(44));

    // A destination below a file cannot be made; the file stays as it was.
    const ProgramRun run = RunSonaJoin({ "-i", a, "-d", a + "/out.wav" });
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.standardError.find("Error writing file \"" + a + "/out.wav\""), std::string::npos) << run.standardError;
    EXPECT_EQ(ReadWholeFile(a), CountingWav(1000));
}

} // namespace
} // namespace kvo::testing
