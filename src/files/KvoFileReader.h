#pragma once

#include "core/KvoInputStream.h"
#include "files/KvoFile.h"

namespace kvo
{

/**
    Reads a file through the system's calls, with no buffer of its own. The position is
    logical: SetPosition only records it, and each Read asks the system for the bytes at
    that position (so no seek call is ever needed, and copies of a reader cannot disturb
    each other). The length is taken once, when the file is opened.
*/
class FileReader : public InputStream
{
public:
    /** Opens file; throws NoSuchFile when it is missing or a folder, UnsupportedFile when it cannot be opened. */
    explicit FileReader(const File& file);
    /** Another reader of the same file at the same position, with a descriptor of its own. */
    FileReader(const FileReader& other);
    FileReader& operator=(const FileReader&) = delete;
    ~FileReader() override;

    int64_t GetTotalLength() override { return totalLength; }
    bool IsExhausted() override { return position >= totalLength; }
    int64_t GetPosition() override { return position; }
    /** Clamps to 0..length and records the position; no system call. Always true. */
    bool SetPosition(int64_t newPosition) override;
    /** Reads up to numBytes at the position; a short count at the end or on failure, 0 for numBytes below 1. */
    int64_t Read(void* dest, int64_t numBytes) override;

    const File& GetFile() const noexcept { return file; }

private:
    File file;
    int handle;
    int64_t totalLength = 0;
    int64_t position = 0;
};

} // namespace kvo
