#pragma once

#include <cstdint>

#include "core/KvoInputStream.h"
#include "files/KvoFile.h"

namespace kvo
{

/**
    Reads a file through the system's calls, with no buffer of its own. The position is
    logical: SetPosition only records it, and the seek waits for the next Read, so a run of
    SetPosition calls costs nothing. The length is taken once, when the file is opened: a
    file that grows later counts as exhausted at its old length, though Read still delivers
    what is there, up to the first time the system reports the end. From there on, a read at
    or past that point returns 0 without a system call.
*/
class FileReader : public InputStream
{
public:
    /** Opens file; throws NoSuchFile when it is missing or a folder, UnsupportedFile when it cannot be opened. */
    explicit FileReader(const File& file);
    /**
        Another reader of the same file at the same position. It opens the file anew, so
        that the two never share the system's position; throws UnsupportedFile when that fails.
    */
    FileReader(const FileReader& other);
    FileReader& operator=(const FileReader&) = delete;
    ~FileReader() override;

    int64_t GetTotalLength() override { return totalLength; }
    bool IsExhausted() override { return position >= totalLength; }
    int64_t GetPosition() override { return position; }
    /** Clamps to 0..length and records the position; no system call. Always true. */
    bool SetPosition(int64_t newPosition) override;
    /**
        Reads up to numBytes at the position and moves on by the count read. The count is
        short at the end of the file or when the system fails, and 0 for numBytes below 1.
    */
    int64_t Read(void* dest, int64_t numBytes) override;

    const File& GetFile() const noexcept { return file; }
    /** The open descriptor, for FileWriter::WriteFrom. */
    int GetHandle() const noexcept { return handle; }

private:
    File file;
    int64_t totalLength = 0;
    int64_t position = 0;
    int handle;
    /** The system's position may differ from position. */
    bool needsSeek = true;
    /** Where a read at or past totalLength came back short: the end, as far as this reader cares. */
    int64_t endReportedAt = INT64_MAX;
};

} // namespace kvo
