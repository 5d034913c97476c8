#include "files/KvoFileHandle.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "files/KvoFile.h"

namespace kvo
{
namespace
{

/** The most one read or write call is asked for; the kernel moves at most about 2 GiB anyway. */
constexpr int64_t largestSystemCall = int64_t(1) << 30;

} // namespace

int FileHandle::OpenFileForReading(const File& file)
{
    const int handle = ::open(file.GetFullPath().GetCharPointer(), O_RDONLY | O_CLOEXEC);
    if (handle >= 0)
        ::posix_fadvise(handle, 0, 0, POSIX_FADV_SEQUENTIAL);
    return handle >= 0 ? handle : invalid;
}

int FileHandle::OpenFileForWriting(const File& file)
{
    const int handle = ::open(file.GetFullPath().GetCharPointer(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (handle < 0)
        return invalid;
    if (::lseek(handle, 0, SEEK_END) < 0)
    {
        ::close(handle);
        return invalid;
    }
    return handle;
}

int64_t FileHandle::Seek(int handle, int64_t position)
{
    return handle == invalid ? -1 : static_cast<int64_t>(::lseek(handle, position, SEEK_SET));
}

int64_t FileHandle::Tell(int handle)
{
    return handle == invalid ? -1 : static_cast<int64_t>(::lseek(handle, 0, SEEK_CUR));
}

int64_t FileHandle::ReadFullyAt(int handle, void* dest, int64_t numBytes, int64_t position)
{
    auto* bytes = static_cast<char*>(dest);
    int64_t done = 0;
    while (handle != invalid && done < numBytes)
    {
        const ssize_t count = ::pread(handle, bytes + done, static_cast<size_t>(std::min(numBytes - done, largestSystemCall)),
                                      static_cast<off_t>(position + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        done += count;
    }
    return done;
}

int64_t FileHandle::WriteFully(int handle, const void* source, int64_t numBytes)
{
    const auto* bytes = static_cast<const char*>(source);
    int64_t done = 0;
    while (handle != invalid && done < numBytes)
    {
        const ssize_t count =
            ::write(handle, bytes + done, static_cast<size_t>(std::min(numBytes - done, largestSystemCall)));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        done += count;
    }
    return done;
}

void FileHandle::Close(int handle)
{
    if (handle != invalid)
        ::close(handle);
}

} // namespace kvo
