// FileReader and FileWriter on real files and seen from the system calls they make: lazy
// seeking, retried short and interrupted transfers, failures mid-way, pieces of very large
// counts, the exact bytes of every write, and the files and folders they refuse.

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "KvoTestUtilities.h"
#include "core/KvoMemoryBlock.h"
#include "files/KvoFileHandle.h"
#include "files/KvoFileReader.h"
#include "files/KvoFileWriter.h"

namespace kvo::testing
{
namespace
{

using Log = std::vector<std::string>;

/**
    Routes the descriptor calls of FileHandle through replaceable functions while it lives,
    logging each as "read N", "write N", "seek P", "tell" or "end". By default each is
    passed on to the system.
*/
class SystemCallSpy
{
public:
    SystemCallSpy()
    {
        active = this;
        details::fileSystemCalls = { logRead, logWrite, logSeek };
    }
    ~SystemCallSpy()
    {
        details::fileSystemCalls = details::GetSystemFileCalls();
        active = nullptr;
    }
    SystemCallSpy(const SystemCallSpy&) = delete;
    SystemCallSpy& operator=(const SystemCallSpy&) = delete;

    Log log;
    std::function<int64_t(int, void*, uint64_t)> read = details::GetSystemFileCalls().read;
    std::function<int64_t(int, const void*, uint64_t)> write = details::GetSystemFileCalls().write;
    std::function<int64_t(int, int64_t, int)> seek = details::GetSystemFileCalls().seek;

private:
    static int64_t logRead(int handle, void* dest, uint64_t numBytes)
    {
        return active->log.push_back("read " + std::to_string(numBytes)), active->read(handle, dest, numBytes);
    }
    static int64_t logWrite(int handle, const void* source, uint64_t numBytes)
    {
        return active->log.push_back("write " + std::to_string(numBytes)), active->write(handle, source, numBytes);
    }
    static int64_t logSeek(int handle, int64_t offset, int whence)
    {
        active->log.push_back(whence == SEEK_SET ? "seek " + std::to_string(offset) : whence == SEEK_CUR ? "tell" : "end");
        return active->seek(handle, offset, whence);
    }

    static inline SystemCallSpy* active = nullptr;
};

/** Fails with errno set, as a system call does. */
int64_t failWith(int error)
{
    errno = error;
    return -1;
}

File fileAt(const std::string& path)
{
    return File(path.c_str());
}

/** A reader of a fresh file holding bytes. */
struct ReaderOf
{
    explicit ReaderOf(const std::string& bytes) : reader((WriteWholeFile(folder / "f", bytes), fileAt(folder / "f"))) {}
    TemporaryFolder folder;
    FileReader reader;
};

/** Address space that is never touched: lets a fake system call take counts beyond 2 GiB. */
class UntouchedBytes
{
public:
    explicit UntouchedBytes(size_t numBytes)
        : size(numBytes), bytes(::mmap(nullptr, numBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
    }
    ~UntouchedBytes()
    {
        if (bytes != MAP_FAILED)
            ::munmap(bytes, size);
    }
    void* Get() const { return bytes == MAP_FAILED ? nullptr : bytes; }

private:
    size_t size;
    void* bytes;
};

constexpr int64_t gibibyte = int64_t(1) << 30;

TEST(FileStreamReader, SeeksOnlyWhenAReadNeedsIt)
{
    ReaderOf file("0123456789");
    FileReader& reader = file.reader;
    SystemCallSpy spy;
    char bytes[8] = {};

    // Nothing asked: no call, and the seek of a fresh reader stays pending.
    EXPECT_EQ(reader.Read(bytes, 0), 0);
    EXPECT_EQ(reader.Read(bytes, -1), 0);
    EXPECT_TRUE(spy.log.empty());
    EXPECT_EQ(reader.Read(bytes, 3), 3);
    EXPECT_TRUE(reader.SetPosition(3)); // where it is: the system's position stays good
    EXPECT_EQ(reader.Read(bytes + 3, 2), 2);
    EXPECT_EQ(std::string(bytes, 5), "01234");
    EXPECT_EQ(spy.log, (Log { "seek 0", "read 3", "read 2" }));

    // A run of moves costs nothing until the next read, which seeks once to the last.
    spy.log.clear();
    EXPECT_TRUE(reader.SetPosition(-5));
    EXPECT_EQ(reader.GetPosition(), 0);
    EXPECT_TRUE(reader.SetPosition(99));
    EXPECT_EQ(reader.GetPosition(), 10);
    EXPECT_TRUE(reader.IsExhausted());
    EXPECT_TRUE(reader.SetPosition(7));
    EXPECT_TRUE(spy.log.empty());
    EXPECT_EQ(reader.Read(bytes, 8), 3);
    EXPECT_EQ(std::string(bytes, 3), "789");
    EXPECT_EQ(spy.log, (Log { "seek 7", "read 8", "read 5" })); // the second read meets the end

    // Once the system has shown the end, reads there, however many, ask it nothing.
    spy.log.clear();
    reader.SetPosition(10);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(reader.Read(bytes, 1), 0);
    EXPECT_TRUE(spy.log.empty());
}

TEST(FileStreamReader, ShortAndInterruptedReadsAreRetried)
{
    ReaderOf file("abcdefghij");
    FileReader& reader = file.reader;
    SystemCallSpy spy;
    int calls = 0;
    spy.read = [&calls](int handle, void* dest, uint64_t numBytes) {
        if (++calls % 2 == 0)
            return failWith(EINTR);
        return details::GetSystemFileCalls().read(handle, dest, std::min<uint64_t>(numBytes, 3));
    };
    char bytes[16] = {};
    EXPECT_EQ(reader.Read(bytes, 9), 9);
    EXPECT_EQ(std::string(bytes, 9), "abcdefghi");
    EXPECT_EQ(reader.GetPosition(), 9);
    EXPECT_EQ(spy.log, (Log { "seek 0", "read 9", "read 6", "read 6", "read 3", "read 3" }));
}

TEST(FileStreamReader, FailuresDeliverWhatCameBeforeAndAFailedSeekStaysPending)
{
    ReaderOf file("abcdefghij");
    FileReader& reader = file.reader;
    SystemCallSpy spy;
    char bytes[10] = {};
    reader.SetPosition(6);
    spy.seek = [](int, int64_t, int) { return failWith(EIO); };
    EXPECT_EQ(reader.Read(bytes, 2), 0);
    EXPECT_EQ(reader.GetPosition(), 6);
    spy.seek = details::GetSystemFileCalls().seek;
    EXPECT_EQ(reader.Read(bytes, 2), 2);
    EXPECT_EQ(std::string(bytes, 2), "gh");
    EXPECT_EQ(spy.log, (Log { "seek 6", "seek 6", "read 2" }));

    reader.SetPosition(0);
    bool first = true;
    spy.read = [&first](int handle, void* dest, uint64_t numBytes) {
        if (!std::exchange(first, false))
            return failWith(EIO);
        return details::GetSystemFileCalls().read(handle, dest, std::min<uint64_t>(numBytes, 4));
    };
    EXPECT_EQ(reader.Read(bytes, 10), 4);
    EXPECT_EQ(reader.GetPosition(), 4);
    EXPECT_EQ(reader.Read(bytes, 10), 0); // the failure is no exception
    EXPECT_EQ(reader.GetPosition(), 4);
}

TEST(FileStreamReader, AGrowingFileKeepsItsOpeningLength)
{
    ReaderOf file("abc");
    FileReader& reader = file.reader;
    std::ofstream(file.folder / "f", std::ios::binary | std::ios::app) << "defg";

    EXPECT_EQ(reader.GetTotalLength(), 3);
    EXPECT_TRUE(reader.SetPosition(5));
    EXPECT_EQ(reader.GetPosition(), 3);
    EXPECT_TRUE(reader.IsExhausted());
    char bytes[8] = {};
    EXPECT_EQ(reader.Read(bytes, 8), 4); // the new bytes are there for Read
    EXPECT_EQ(std::string(bytes, 4), "defg");
    EXPECT_EQ(reader.GetPosition(), 7);

    MemoryBlock block;
    reader.SetPosition(1);
    EXPECT_EQ(reader.ReadIntoMemoryBlock(block, -1), 2); // "the rest" ends at the old length
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block.data), 2), "bc");
}

TEST(FileStreamReader, CopiesDoNotShareTheSystemsPosition)
{
    ReaderOf file("abcdefgh");
    FileReader& original = file.reader;
    char a[2], b[4];
    ASSERT_EQ(original.Read(a, 2), 2);
    FileReader copy(original);
    ASSERT_EQ(copy.Read(b, 4), 4);
    ASSERT_EQ(original.Read(a, 2), 2); // no seek pending: it relies on its own descriptor
    EXPECT_EQ(std::string(b, 4), "cdef");
    EXPECT_EQ(std::string(a, 2), "cd");
}

TEST(FileStreamReader, MissingFilesFoldersLinksAndSocketsAreRefused)
{
    TemporaryFolder folder;
    StreamCapture err(std::cerr);
    ASSERT_EQ(::symlink((folder / "nowhere").c_str(), (folder / "dangling").c_str()), 0);
    for (const std::string& path : { folder / "missing", folder.GetPath(), folder / "dangling" })
        EXPECT_THROW(FileReader(fileAt(path)), exceptions::NoSuchFile) << path;

    // A socket exists and is no folder, but cannot be opened, even by root.
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const std::string path = folder / "socket";
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_THROW(FileReader(fileAt(path)), exceptions::UnsupportedFile);
    ::close(socket);
    EXPECT_NE(err.GetText().find("Could not open file \"" + path + "\". Unsupported format?"), std::string::npos);
}

TEST(FileStreamWriter, EveryWriteHasItsByteOrder)
{
    TemporaryFolder folder;
    {
        FileWriter writer(fileAt(folder / "new/sub/out")); // the folders are made
        // A braced list runs its writes in order.
        const bool results[] = { writer.WriteByte(0xAB), writer.WriteInt16(0x1234), writer.WriteInt16BigEndian(INT16_MIN),
                                 writer.WriteInt32(0x01020304), writer.WriteInt32BigEndian(-2),
                                 writer.WriteInt64(0x0102030405060708), writer.WriteInt64(INT64_MIN),
                                 writer.WriteRepeatedByte(0x7F, 2), writer.WriteRepeatedByte(0, 0),
                                 writer.Write("xy", 2), writer.Write(MemoryBlock(2, true)) };
        for (size_t i = 0; i < std::size(results); ++i)
            EXPECT_TRUE(results[i]) << "write " << i;
        EXPECT_EQ(writer.GetPosition(), 1 + 2 + 2 + 4 + 4 + 8 + 8 + 2 + 2 + 2);
    }
    const std::string expected("\xAB" "\x34\x12" "\x80\x00" "\x04\x03\x02\x01" "\xFF\xFF\xFF\xFE"
                               "\x08\x07\x06\x05\x04\x03\x02\x01" "\x00\x00\x00\x00\x00\x00\x00\x80"
                               "\x7F\x7F" "xy" "\x00\x00", 35);
    EXPECT_EQ(ReadWholeFile(folder / "new/sub/out"), expected);
}

TEST(FileStreamWriter, HeaderRewriteInTheMiddleThenBackToTheEnd)
{
    TemporaryFolder folder;
    WriteWholeFile(folder / "out", "old");
    {
        FileWriter writer(fileAt(folder / "out"));
        const int64_t headerPosition = writer.GetPosition();
        EXPECT_EQ(headerPosition, 3);
        EXPECT_TRUE(writer.Write("HDR_", 4));
        EXPECT_TRUE(writer.WriteInt32BigEndian(0));
        EXPECT_TRUE(writer.Write("data", 4));
        const int64_t end = writer.GetPosition();

        EXPECT_TRUE(writer.SetPosition(headerPosition + 4));
        EXPECT_TRUE(writer.WriteInt32BigEndian(static_cast<int32_t>(end - headerPosition)));
        EXPECT_TRUE(writer.SetPosition(end));
        EXPECT_TRUE(writer.SetPosition(end)); // where it already is
        EXPECT_TRUE(writer.WriteByte('!'));
        EXPECT_EQ(writer.GetPosition(), end + 1);
    }
    EXPECT_EQ(ReadWholeFile(folder / "out"), std::string("oldHDR_\x00\x00\x00\x0C" "data!", 16));
}

TEST(FileStreamWriter, PositionsAreSoughtOnlyWhenTheyChange)
{
    TemporaryFolder folder;
    FileWriter writer(fileAt(folder / "out"));
    SystemCallSpy spy;
    EXPECT_TRUE(writer.SetPosition(0));
    EXPECT_TRUE(spy.log.empty());
    EXPECT_FALSE(writer.SetPosition(-1));
    EXPECT_EQ(writer.GetPosition(), 0);

    // Beyond the end is allowed; the gap reads as zeros.
    EXPECT_TRUE(writer.SetPosition(3));
    EXPECT_TRUE(writer.WriteRepeatedByte('z', 2));
    EXPECT_EQ(spy.log, (Log { "seek -1", "seek 3", "write 1", "write 1" }));
    EXPECT_EQ(ReadWholeFile(folder / "out"), std::string("\0\0\0zz", 5));
}

TEST(FileStreamWriter, ShortInterruptedAndFailedWrites)
{
    TemporaryFolder folder;
    FileWriter writer(fileAt(folder / "out"));
    SystemCallSpy spy;
    int calls = 0;
    int64_t space = 6; // what the disk still takes
    spy.write = [&calls, &space](int handle, const void* source, uint64_t numBytes) {
        if (++calls == 2)
            return failWith(EINTR);
        if (space == 0)
            return failWith(ENOSPC);
        const int64_t written =
            details::GetSystemFileCalls().write(handle, source, std::min<uint64_t>({ numBytes, 2, uint64_t(space) }));
        space -= written;
        return written;
    };
    EXPECT_TRUE(writer.WriteInt32(0x64636261));
    EXPECT_EQ(spy.log, (Log { "write 4", "write 2", "write 2" }));
    EXPECT_FALSE(writer.Write("xyz", 3));
    EXPECT_EQ(writer.GetPosition(), 6); // what went out counts
    EXPECT_FALSE(writer.WriteByte('!'));
    EXPECT_EQ(writer.GetPosition(), 6);
    EXPECT_EQ(ReadWholeFile(folder / "out"), "abcdxy");
}

TEST(FileStream, HugeCountsAreReadAndWrittenInPieces)
{
    ReaderOf file("x");
    FileReader& reader = file.reader;
    FileWriter writer(fileAt(file.folder / "out"));
    const int64_t count = 3 * gibibyte + 5;
    UntouchedBytes bytes(static_cast<size_t>(count));
    ASSERT_NE(bytes.Get(), nullptr);
    SystemCallSpy spy;
    spy.read = [](int, void*, uint64_t numBytes) { return static_cast<int64_t>(numBytes); };
    spy.write = [](int, const void*, uint64_t numBytes) { return static_cast<int64_t>(numBytes); };
    EXPECT_EQ(reader.Read(bytes.Get(), count), count);
    EXPECT_TRUE(writer.Write(bytes.Get(), static_cast<uint64_t>(count)));
    EXPECT_EQ(reader.GetPosition(), count);
    EXPECT_EQ(writer.GetPosition(), count);
    const std::string read = "read " + std::to_string(gibibyte);
    const std::string write = "write " + std::to_string(gibibyte);
    EXPECT_EQ(spy.log, (Log { "seek 0", read, read, read, "read 5", write, write, write, "write 5" }));
}

TEST(FileStreamWriter, AFolderTakesNothingAndCostsNoCall)
{
    TemporaryFolder folder;
    SystemCallSpy spy;
    FileWriter writer(fileAt(folder.GetPath()));
    for (const bool ok : { writer.Write(MemoryBlock(4, true)), writer.WriteRepeatedByte(1, 3), writer.WriteInt64(1),
                           writer.SetPosition(5) })
        EXPECT_FALSE(ok);
    EXPECT_EQ(writer.GetPosition(), 0);
    EXPECT_TRUE(spy.log.empty());
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
}

TEST(FileStreamWriter, AFileInTheWayOfTheFolderThrowsAndAFullDeviceFails)
{
    TemporaryFolder folder;
    WriteWholeFile(folder / "plain", "x");
    StreamCapture err(std::cerr);
    EXPECT_EQ(MessageOf([&] { FileWriter writer(fileAt(folder / "plain/sub/out")); }),
              "Couldn't create or write in folder \"" + folder / "plain/sub" + "\"");

    if (!File("/dev/full").Exists())
        GTEST_SKIP() << "no /dev/full";
    FileWriter writer(File("/dev/full"));
    ASSERT_TRUE(writer.IsOpen());
    EXPECT_FALSE(writer.WriteInt32(5));
    EXPECT_EQ(writer.GetPosition(), 0);
}

} // namespace
} // namespace kvo::testing
