#include "core/KvoInputStream.h"

#include <algorithm>

#include "core/KvoMemoryBlock.h"

namespace kvo
{

int64_t InputStream::ReadIntoMemoryBlock(MemoryBlock& block, int64_t numBytes)
{
    const int64_t remaining = GetTotalLength() - GetPosition();
    if (remaining > 0 && (numBytes < 0 || numBytes > remaining))
        numBytes = remaining;
    if (remaining <= 0 && numBytes <= 0)
        return 0;

    if (block.size != numBytes)
        block.SetSize(numBytes, false);
    if (block.size != numBytes)
        return 0; // the heap refused: there is nowhere to read to

    // Stream implementations sit on system calls that move at most about 2 GiB per call,
    // some through a 32-bit count. A block that large is read in pieces rather than
    // passing on a count that could be cut short or turn negative.
    return details::ReadInPieces(*this, block.data, numBytes, details::largestReadPiece);
}

namespace details
{

int64_t ReadInPieces(InputStream& stream, uint8_t* dest, int64_t numBytes, int64_t pieceSize)
{
    int64_t total = 0;
    while (total < numBytes)
    {
        const int64_t piece = std::min(numBytes - total, pieceSize);
        const int64_t numRead = stream.Read(dest + total, piece);
        if (numRead <= 0)
            return total > 0 ? total : numRead;
        total += numRead;
        if (numRead < piece)
            break; // a short read means the stream has nothing more to give
    }
    return total;
}

} // namespace details
} // namespace kvo
