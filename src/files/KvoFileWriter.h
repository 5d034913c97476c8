#pragma once

#include <cstdint>

#include "files/KvoFile.h"

namespace kvo
{

class FileReader;
class MemoryBlock;

/**
    Writes a file through the system's calls, appending to what exists. Writes never
    throw: each returns whether all its bytes went out, and the position grows by what
    did. Without an open file every write returns false and the position stays.
*/
class FileWriter
{
public:
    /** Opens file for writing at its end, creating its folder first; throws when the folder cannot be made. */
    explicit FileWriter(const File& file);
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;
    ~FileWriter();

    bool Write(const MemoryBlock& block);
    bool Write(const void* source, uint64_t numBytes);
    bool WriteByte(uint8_t value);
    /** count single-byte writes, stopping at the first failure. */
    bool WriteRepeatedByte(uint8_t value, uint64_t count);
    bool WriteInt16(int16_t value);
    bool WriteInt16BigEndian(int16_t value);
    bool WriteInt32(int32_t value);
    bool WriteInt32BigEndian(int32_t value);
    bool WriteInt64(int64_t value);

    /**
        Appends the next numBytes of source, from its position up to its length as it was
        opened, and moves source on by the count copied (numCopied). The bytes move inside
        the kernel where the system allows, otherwise through buffer (bufferSize bytes).
        False when a write fails; numCopied falls short of numBytes, with true, where source
        ends or a read fails.
    */
    bool WriteFrom(FileReader& source, int64_t numBytes, void* buffer, int64_t bufferSize, int64_t& numCopied);

    /**
        Moves to newPosition from the file's start, for rewriting what was written before;
        true when it was reached. Staying where it is costs no system call.
    */
    bool SetPosition(int64_t newPosition);
    int64_t GetPosition() const noexcept { return position; }
    bool IsOpen() const noexcept;

    const File& GetFile() const noexcept { return file; }

private:
    File file;
    /** Bytes from the start of the file: where the next write lands. */
    int64_t position = 0;
    int handle;
};

} // namespace kvo
