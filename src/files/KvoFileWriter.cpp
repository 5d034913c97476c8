#include "files/KvoFileWriter.h"

#include <algorithm>

#include "core/KvoException.h"
#include "core/KvoMemoryBlock.h"
#include "files/KvoFileHandle.h"
#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

/** Writes the low numBytes bytes of value, least significant first or, with bigEndian, last. */
bool writeWord(FileWriter& writer, uint64_t value, int numBytes, bool bigEndian)
{
    uint8_t bytes[8];
    for (int i = 0; i < numBytes; ++i)
        bytes[bigEndian ? numBytes - 1 - i : i] = static_cast<uint8_t>(value >> (8 * i));
    return writer.Write(bytes, static_cast<uint64_t>(numBytes));
}

} // namespace

FileWriter::FileWriter(const File& fileToWrite) : file(fileToWrite), handle(FileHandle::invalid)
{
    // A path that names a folder gets no handle, and shows as a failed first write.
    if (!file.IsDirectory())
    {
        const File parent = file.GetParentDirectory();
        if (!parent.CreateDirectoryA())
            throw Exception(String("Couldn't create or write in folder ") + Quoted(parent.GetFullPath(), '"'),
                            KVO_CODE_LOCATION);
        handle = FileHandle::OpenFileForWriting(file);
    }
    if (handle != FileHandle::invalid)
        position = std::max<int64_t>(FileHandle::Tell(handle), 0);
}

FileWriter::~FileWriter()
{
    FileHandle::Close(handle);
}

bool FileWriter::IsOpen() const noexcept
{
    return handle != FileHandle::invalid;
}

bool FileWriter::Write(const void* source, uint64_t numBytes)
{
    const int64_t count = IsOpen() ? FileHandle::WriteFully(handle, source, static_cast<int64_t>(numBytes)) : 0;
    position += count;
    return static_cast<uint64_t>(count) == numBytes;
}

bool FileWriter::Write(const MemoryBlock& block)
{
    return Write(block.data, block.size);
}

bool FileWriter::WriteByte(uint8_t value)
{
    return Write(&value, 1);
}

bool FileWriter::WriteRepeatedByte(uint8_t value, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i)
        if (!WriteByte(value))
            return false;
    return true;
}

bool FileWriter::WriteInt16(int16_t value)
{
    return writeWord(*this, static_cast<uint16_t>(value), 2, false);
}

bool FileWriter::WriteInt16BigEndian(int16_t value)
{
    return writeWord(*this, static_cast<uint16_t>(value), 2, true);
}

bool FileWriter::WriteInt32(int32_t value)
{
    return writeWord(*this, static_cast<uint32_t>(value), 4, false);
}

bool FileWriter::WriteInt32BigEndian(int32_t value)
{
    return writeWord(*this, static_cast<uint32_t>(value), 4, true);
}

bool FileWriter::WriteInt64(int64_t value)
{
    return writeWord(*this, static_cast<uint64_t>(value), 8, false);
}

bool FileWriter::WriteFrom(FileReader& source, int64_t numBytes, void* buffer, int64_t bufferSize, int64_t& numCopied)
{
    const int64_t wanted = std::clamp<int64_t>(numBytes, 0, source.GetTotalLength() - source.GetPosition());
    numCopied = IsOpen() ? FileHandle::CopyRange(source.GetHandle(), source.GetPosition(), handle, wanted) : 0;
    position += numCopied;
    source.SetPosition(source.GetPosition() + numCopied);

    // Whatever the kernel didn't copy goes through the buffer.
    while (numCopied < wanted)
    {
        const int64_t numRead = source.Read(buffer, std::min(wanted - numCopied, bufferSize));
        if (numRead <= 0)
            break;
        if (!Write(buffer, static_cast<uint64_t>(numRead)))
            return false;
        numCopied += numRead;
    }
    return true;
}

bool FileWriter::SetPosition(int64_t newPosition)
{
    if (newPosition == position)
        return true;
    // A failed seek reports -1, which must not pass for having reached position -1.
    const int64_t reached = FileHandle::Seek(handle, newPosition);
    if (reached < 0)
        return false;
    position = reached;
    return reached == newPosition;
}

} // namespace kvo
