#include "files/KvoFileReader.h"

#include <algorithm>

#include "core/KvoException.h"
#include "files/KvoFileHandle.h"

namespace kvo
{

FileReader::FileReader(const File& fileToRead) : file(fileToRead), handle(FileHandle::invalid)
{
    if (!file.IsFile())
        throw exceptions::NoSuchFile(file, KVO_CODE_LOCATION);
    totalLength = static_cast<int64_t>(file.GetSize());
    handle = FileHandle::OpenFileForReading(file);
    if (handle == FileHandle::invalid)
        throw exceptions::UnsupportedFile(file, KVO_CODE_LOCATION);
}

FileReader::FileReader(const FileReader& other)
    : InputStream(other),
      file(other.file),
      totalLength(other.totalLength),
      position(other.position),
      handle(FileHandle::OpenFileForReading(file))
{
    if (handle == FileHandle::invalid)
        throw exceptions::UnsupportedFile(file, KVO_CODE_LOCATION);
}

FileReader::~FileReader()
{
    FileHandle::Close(handle);
}

bool FileReader::SetPosition(int64_t newPosition)
{
    const int64_t clamped = std::clamp<int64_t>(newPosition, 0, totalLength);
    if (clamped != position)
    {
        position = clamped;
        needsSeek = true;
    }
    return true;
}

int64_t FileReader::Read(void* dest, int64_t numBytes)
{
    // A parser that believes a header may ask for thousands of items behind the end, one
    // small read each: once the system has said where the end is, it is not asked again.
    if (numBytes < 1 || position >= endReportedAt)
        return 0;
    if (needsSeek)
    {
        // A failed seek stays pending, so the next Read tries again.
        if (FileHandle::Seek(handle, position) < 0)
            return 0;
        needsSeek = false;
    }
    const int64_t count = FileHandle::ReadFully(handle, dest, numBytes);
    position += count;
    if (count < numBytes && position >= totalLength)
        endReportedAt = position;
    return count;
}

} // namespace kvo
