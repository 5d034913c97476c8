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
    /** Opens or creates a file for writing without truncating it, positioned at its end; invalid when that fails. */
    static int OpenFileForWriting(const File& file);

    /** Moves to an absolute position; the position reached, or -1. */
    static int64_t Seek(int handle, int64_t position);
    /** The current position, or -1. */
    static int64_t Tell(int handle);
    /** Reads from position on until numBytes arrived, the file ended or a call failed; the count read. */
    static int64_t ReadFullyAt(int handle, void* dest, int64_t numBytes, int64_t position);
    /** Writes until numBytes are out or a call failed; the count written. */
    static int64_t WriteFully(int handle, const void* source, int64_t numBytes);
    static void Close(int handle);
};

} // namespace kvo
