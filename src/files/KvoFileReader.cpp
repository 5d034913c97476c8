#include "files/KvoFileReader.h"

#include <algorithm>
#include <fcntl.h>

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
      handle(other.handle == FileHandle::invalid ? FileHandle::invalid : ::fcntl(other.handle, F_DUPFD_CLOEXEC, 0)),
      totalLength(other.totalLength),
      position(other.position)
{
}

FileReader::~FileReader()
{
    FileHandle::Close(handle);
}

bool FileReader::SetPosition(int64_t newPosition)
{
    position = std::clamp<int64_t>(newPosition, 0, totalLength);
    return true;
}

int64_t FileReader::Read(void* dest, int64_t numBytes)
{
    if (numBytes < 1)
        return 0;
    const int64_t count = FileHandle::ReadFullyAt(handle, dest, numBytes, position);
    position += count;
    return count;
}

} // namespace kvo
