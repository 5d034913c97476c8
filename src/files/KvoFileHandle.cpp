#include "files/KvoFileHandle.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/KvoFile.h"

namespace kvo
{
namespace
{

int64_t systemRead(int handle, void* dest, uint64_t numBytes)
{
    return ::read(handle, dest, numBytes);
}

int64_t systemWrite(int handle, const void* source, uint64_t numBytes)
{
    return ::write(handle, source, numBytes);
}

int64_t systemSeek(int handle, int64_t offset, int whence)
{
    return ::lseek(handle, offset, whence);
}

/**
    Repeats call (handle, bytes done, piece) until numBytes moved, in pieces the system accepts. The system may move
    fewer bytes than asked, or be interrupted by a signal, without anything being wrong;
    only a failure or the end of the file (a count of 0) stops the loop early.
*/
template <typename Call>
int64_t transferFully(int handle, int64_t numBytes, Call call)
{
    int64_t done = 0;
    while (handle != FileHandle::invalid && done < numBytes)
    {
        const int64_t piece = std::min(numBytes - done, details::largestFileSystemCall);
        const int64_t count = call(handle, done, static_cast<uint64_t>(piece));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        done += count;
    }
    return done;
}

} // namespace

namespace details
{

FileSystemCalls GetSystemFileCalls() noexcept
{
    return { systemRead, systemWrite, systemSeek };
}

FileSystemCalls fileSystemCalls = GetSystemFileCalls();

} // namespace details

int FileHandle::OpenFileForReading(const File& file)
{
    // Only regular files are read: a FIFO would block the open until a writer came, and a
    // device may never end. O_NONBLOCK lets the open return so that fstat can tell; it
    // changes nothing for a regular file.
    const int handle = ::open(file.GetFullPath().GetCharPointer(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (handle < 0)
        return invalid;
    struct stat status {};
    if (::fstat(handle, &status) != 0 || !S_ISREG(status.st_mode))
    {
        ::close(handle);
        return invalid;
    }
    ::posix_fadvise(handle, 0, 0, POSIX_FADV_SEQUENTIAL);
    return handle;
}

int FileHandle::OpenFileForWriting(const File& file)
{
    // No O_TRUNC: what exists stays, and writing goes on behind it. Whoever wants an
    // empty file deletes the old one first.
    // O_NONBLOCK makes a FIFO without a reader fail at once instead of waiting for one.
    const int handle = ::open(file.GetFullPath().GetCharPointer(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
    if (handle < 0)
        return invalid;
    details::fileSystemCalls.seek(handle, 0, SEEK_END);
    return handle;
}

int64_t FileHandle::Seek(int handle, int64_t position)
{
    return handle == invalid ? -1 : details::fileSystemCalls.seek(handle, position, SEEK_SET);
}

int64_t FileHandle::Tell(int handle)
{
    return handle == invalid ? -1 : details::fileSystemCalls.seek(handle, 0, SEEK_CUR);
}

int64_t FileHandle::ReadFully(int handle, void* dest, int64_t numBytes)
{
    auto* bytes = static_cast<uint8_t*>(dest);
    return transferFully(handle, numBytes, [bytes, readCall = details::fileSystemCalls.read](int h, int64_t done,
                                                                                          uint64_t piece) {
        return readCall(h, bytes + done, piece);
    });
}

int64_t FileHandle::WriteFully(int handle, const void* source, int64_t numBytes)
{
    const auto* bytes = static_cast<const uint8_t*>(source);
    return transferFully(handle, numBytes, [bytes, writeCall = details::fileSystemCalls.write](int h, int64_t done,
                                                                                            uint64_t piece) {
        return writeCall(h, bytes + done, piece);
    });
}

int64_t FileHandle::CopyRange(int source, int64_t sourceOffset, int destination, int64_t numBytes)
{
    const details::FileSystemCalls& calls = details::fileSystemCalls;
    if (source == invalid || calls.read != systemRead || calls.write != systemWrite || calls.seek != systemSeek)
        return 0;
    off_t offset = sourceOffset;
    return transferFully(destination, numBytes, [source, &offset](int h, int64_t, uint64_t piece) -> int64_t {
        return ::copy_file_range(source, &offset, h, nullptr, piece, 0);
    });
}

void FileHandle::Close(int handle)
{
    if (handle != invalid)
        ::close(handle);
}

} // namespace kvo
