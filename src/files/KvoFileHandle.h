#pragma once

#include <cstdint>

namespace kvo
{

class File;

/**
    Opens files in the two modes the library knows, and wraps the system calls on the
    descriptor it hands out. -1 stands for "no file": every call on it fails harmlessly.
*/
class FileHandle
{
public:
    static constexpr int invalid = -1;

    /** Opens an existing file for reading, hinting sequential access; invalid when that fails. */
    static int OpenFileForReading(const File& file);
    /**
        Opens or creates a file for writing without truncating it, and moves to its end;
        invalid only when the open fails.
    */
    static int OpenFileForWriting(const File& file);

    /** Moves to an absolute position; the position reached, or -1. */
    static int64_t Seek(int handle, int64_t position);
    /** The current position, or -1. */
    static int64_t Tell(int handle);
    /**
        Reads at the descriptor's position until numBytes arrived, the file ended or a call
        failed; the count read.
    */
    static int64_t ReadFully(int handle, void* dest, int64_t numBytes);
    /** Writes until numBytes are out or a call failed; the count written. */
    static int64_t WriteFully(int handle, const void* source, int64_t numBytes);
    /**
        Copies up to numBytes inside the kernel, from source at sourceOffset (its position
        stays) to destination at its position; the count copied. Stops early at the end of
        source or when the system can't or won't, and copies nothing while the file calls are
        swapped, so that what a test plans for them happens.
    */
    static int64_t CopyRange(int source, int64_t sourceOffset, int destination, int64_t numBytes);
    static void Close(int handle);
};

namespace details
{

/**
    The descriptor calls FileHandle makes after opening, with the system's argument and
    result conventions. They sit behind pointers so that tests can count them or make them
    come up short; the library itself never changes them.
*/
struct FileSystemCalls
{
    int64_t (*read)(int handle, void* dest, uint64_t numBytes);
    int64_t (*write)(int handle, const void* source, uint64_t numBytes);
    /** whence as for lseek: SEEK_SET, SEEK_CUR or SEEK_END. */
    int64_t (*seek)(int handle, int64_t offset, int whence);
};

/** The calls in use; the system's own unless a test has swapped them. */
extern FileSystemCalls fileSystemCalls;

/** The system's own calls, for putting them back. */
FileSystemCalls GetSystemFileCalls() noexcept;

/** The most one read or write call is asked for: Linux moves at most about 2 GiB per call anyway. */
constexpr int64_t largestFileSystemCall = int64_t(1) << 30;

} // namespace details
} // namespace kvo
