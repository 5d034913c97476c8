#include "audiofiles/KvoReadAheadFileReader.h"

#include <algorithm>
#include <cstring>

namespace kvo
{

int64_t ReadAheadFileReader::Read(void* dest, int64_t numBytes)
{
    const int64_t start = GetPosition();
    if (numBytes >= windowSize || numBytes < 1)
        return FileReader::Read(dest, numBytes);

    const bool inWindow = start >= windowStart && start + numBytes <= windowStart + windowFilled;
    if (!inWindow)
    {
        windowStart = start;
        windowFilled = std::max<int64_t>(0, FileReader::Read(window.data(), windowSize));
    }
    // Short where the file ended inside the window, as a read of the file itself would be.
    const int64_t count = std::clamp<int64_t>(windowStart + windowFilled - start, 0, numBytes);
    std::memcpy(dest, window.data() + (start - windowStart), size_t(count));
    SetPosition(start + count);
    return count;
}

} // namespace kvo
