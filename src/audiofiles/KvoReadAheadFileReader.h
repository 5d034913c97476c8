#pragma once

#include <array>
#include <cstdint>

#include "files/KvoFileReader.h"

namespace kvo
{

/**
    A FileReader that serves small reads from a window of the file read ahead, so that a
    header parsed field by field costs a few system calls rather than one a field. Reads of
    a window or more go straight to the file. What a read delivers is what FileReader's
    would: the bytes at the position, short at the end of the file.
*/
class ReadAheadFileReader : public FileReader
{
public:
    explicit ReadAheadFileReader(const File& fileToRead) : FileReader(fileToRead) {}

    int64_t Read(void* dest, int64_t numBytes) override;

private:
    static constexpr int64_t windowSize = 4096;

    std::array<uint8_t, windowSize> window {};
    /** The file offset of window[0], and how many bytes of the window the file filled. */
    int64_t windowStart = 0;
    int64_t windowFilled = 0;
};

} // namespace kvo
