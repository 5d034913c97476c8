// FileReader and FileWriter against real files: positions, byte orders, appending, failures.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>

#include "KvoStreamCapture.h"
#include "KvoTestUtilities.h"
#include "core/KvoException.h"
#include "core/KvoMemoryBlock.h"
#include "files/KvoFileReader.h"
#include "files/KvoFileWriter.h"

namespace kvo::testing
{
namespace
{

void writeText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string readText(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return { std::istreambuf_iterator<char>(stream), {} };
}

File fileAt(const std::string& path)
{
    return File(path.c_str());
}

TEST(FileReader, PositionsClampAndReadsAreShortAtTheEnd)
{
    TemporaryFolder folder;
    writeText(folder / "f", "0123456789");
    FileReader reader(fileAt(folder / "f"));
    EXPECT_EQ(reader.GetTotalLength(), 10);

    char bytes[16] = {};
    EXPECT_TRUE(reader.SetPosition(-5));
    EXPECT_EQ(reader.GetPosition(), 0);
    EXPECT_EQ(reader.Read(bytes, 0), 0);
    EXPECT_EQ(reader.Read(bytes, -3), 0);
    EXPECT_EQ(reader.GetPosition(), 0);

    EXPECT_EQ(reader.Read(bytes, 4), 4);
    EXPECT_EQ(std::string(bytes, 4), "0123");
    EXPECT_TRUE(reader.SetPosition(8));
    EXPECT_EQ(reader.Read(bytes, 16), 2);
    EXPECT_EQ(std::string(bytes, 2), "89");
    EXPECT_TRUE(reader.IsExhausted());

    EXPECT_TRUE(reader.SetPosition(1000));
    EXPECT_EQ(reader.GetPosition(), 10);
    EXPECT_EQ(reader.Read(bytes, 1), 0);
}

TEST(FileReader, LengthIsFrozenAtOpening)
{
    TemporaryFolder folder;
    writeText(folder / "f", "abc");
    FileReader reader(fileAt(folder / "f"));
    std::ofstream(folder / "f", std::ios::binary | std::ios::app) << "def";

    char bytes[8] = {};
    EXPECT_EQ(reader.Read(bytes, 8), 6); // Read itself is not stopped by the old length
    EXPECT_EQ(reader.GetTotalLength(), 3);
    EXPECT_TRUE(reader.IsExhausted());
}

TEST(FileReader, CopiesReadIndependently)
{
    TemporaryFolder folder;
    writeText(folder / "f", "abcdef");
    FileReader original(fileAt(folder / "f"));
    original.SetPosition(2);
    FileReader copy(original);
    char a[2], b[2];
    EXPECT_EQ(copy.Read(b, 2), 2);
    EXPECT_EQ(original.Read(a, 2), 2);
    EXPECT_EQ(std::string(a, 2), "cd");
    EXPECT_EQ(std::string(b, 2), "cd");
}

TEST(FileReader, MissingFoldersAndUnreadableFilesThrow)
{
    TemporaryFolder folder;
    StreamCapture err(std::cerr);
    EXPECT_THROW(FileReader(fileAt(folder / "missing")), exceptions::NoSuchFile);
    EXPECT_THROW(FileReader(fileAt(folder.GetPath())), exceptions::NoSuchFile);
    if (::geteuid() != 0)
    {
        writeText(folder / "locked", "x");
        ::chmod((folder / "locked").c_str(), 0);
        EXPECT_THROW(FileReader(fileAt(folder / "locked")), exceptions::UnsupportedFile);
    }
}

TEST(FileWriter, EveryWriteHasItsByteOrder)
{
    TemporaryFolder folder;
    {
        FileWriter writer(fileAt(folder / "out"));
        EXPECT_TRUE(writer.WriteByte(0xAB));
        EXPECT_TRUE(writer.WriteInt16(0x1234));
        EXPECT_TRUE(writer.WriteInt16BigEndian(0x1234));
        EXPECT_TRUE(writer.WriteInt32(0x01020304));
        EXPECT_TRUE(writer.WriteInt32BigEndian(0x01020304));
        EXPECT_TRUE(writer.WriteInt64(0x0102030405060708));
        EXPECT_TRUE(writer.WriteInt16(-2));
        EXPECT_TRUE(writer.WriteRepeatedByte(0x7F, 3));
        EXPECT_TRUE(writer.Write("xy", 2));
        MemoryBlock block(2, true);
        EXPECT_TRUE(writer.Write(block));
        EXPECT_EQ(writer.GetPosition(), 1 + 2 + 2 + 4 + 4 + 8 + 2 + 3 + 2 + 2);
    }
    const std::string expected = std::string("\xAB\x34\x12\x12\x34\x04\x03\x02\x01\x01\x02\x03\x04", 13)
                                 + std::string("\x08\x07\x06\x05\x04\x03\x02\x01\xFE\xFF\x7F\x7F\x7Fxy\0\0", 17);
    EXPECT_EQ(readText(folder / "out"), expected);
}

TEST(FileWriter, AppendsToAnExistingFileAndRewritesInPlace)
{
    TemporaryFolder folder;
    writeText(folder / "out", "abcd");
    {
        FileWriter writer(fileAt(folder / "out"));
        EXPECT_EQ(writer.GetPosition(), 4);
        EXPECT_TRUE(writer.Write("ef", 2));
        EXPECT_TRUE(writer.SetPosition(1));
        EXPECT_TRUE(writer.WriteByte('B'));
        EXPECT_EQ(writer.GetPosition(), 2);
        EXPECT_TRUE(writer.SetPosition(2)); // where it already is
    }
    EXPECT_EQ(readText(folder / "out"), "aBcdef");
}

TEST(FileWriter, CreatesItsFolder)
{
    TemporaryFolder folder;
    {
        FileWriter writer(fileAt(folder / "new/sub/out"));
        EXPECT_TRUE(writer.WriteByte('z'));
    }
    EXPECT_EQ(readText(folder / "new/sub/out"), "z");
}

TEST(FileWriter, AFolderGetsNoHandleAndEveryWriteFails)
{
    TemporaryFolder folder;
    FileWriter writer(fileAt(folder.GetPath()));
    EXPECT_FALSE(writer.IsOpen());
    EXPECT_FALSE(writer.WriteByte(1));
    EXPECT_FALSE(writer.WriteInt32(1));
    EXPECT_FALSE(writer.WriteRepeatedByte(0, 4));
    EXPECT_FALSE(writer.Write("abc", 3));
    EXPECT_EQ(writer.GetPosition(), 0);
    EXPECT_FALSE(writer.SetPosition(10));
    EXPECT_TRUE(writer.Write("", 0)); // nothing asked, nothing missing
}

TEST(FileWriter, AFileInTheWayOfTheFolderThrows)
{
    TemporaryFolder folder;
    writeText(folder / "plain", "x");
    StreamCapture err(std::cerr);
    try
    {
        FileWriter writer(fileAt(folder / "plain/sub/out"));
        FAIL() << "no exception";
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetMessage().GetStdString(),
                  "Couldn't create or write in folder \"" + folder / "plain/sub" + "\"");
    }
}

TEST(FileWriter, AFullDeviceMakesWritesFail)
{
    if (!File("/dev/full").Exists())
        GTEST_SKIP() << "no /dev/full";
    FileWriter writer(File("/dev/full"));
    ASSERT_TRUE(writer.IsOpen());
    EXPECT_FALSE(writer.WriteInt32(5));
    EXPECT_EQ(writer.GetPosition(), 0);
}

} // namespace
} // namespace kvo::testing
