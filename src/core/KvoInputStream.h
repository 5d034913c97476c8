#pragma once

#include <cstdint>

namespace kvo
{

class MemoryBlock;

/**
    An abstract source of bytes with a length and a position; FileReader is the one
    implementation of the library. Positions and counts are signed 64-bit byte counts.
*/
class InputStream
{
public:
    virtual ~InputStream() = default;

    /** The stream's length in bytes. */
    virtual int64_t GetTotalLength() = 0;
    /** True once the position has reached the length. */
    virtual bool IsExhausted() = 0;
    /** Reads up to numBytes into dest and moves on; returns the count actually read. */
    virtual int64_t Read(void* dest, int64_t numBytes) = 0;
    virtual int64_t GetPosition() = 0;
    /** Moves the position; true on success. */
    virtual bool SetPosition(int64_t position) = 0;

    /**
        Sizes block to numBytes and reads that many bytes into it; returns what was read.

        A negative numBytes, or one beyond the bytes that remain, means all the rest, but
        only while something remains: at or past the end, a negative count reads nothing
        and leaves the block alone, while a positive one still sizes the block to it. New
        bytes are not zeroed, and a short read leaves the block's tail as the heap gave it.
    */
    int64_t ReadIntoMemoryBlock(MemoryBlock& block, int64_t numBytes);
};

namespace details
{

/** The largest count ReadIntoMemoryBlock hands to Read at once. */
constexpr int64_t largestReadPiece = int64_t(1) << 30;

/**
    Reads numBytes into dest with calls to Read of at most pieceSize bytes each, and stops
    early at the first call that delivers less than it asked for. Returns the bytes read,
    or what the first call returned when that was not positive.
*/
int64_t ReadInPieces(InputStream& stream, uint8_t* dest, int64_t numBytes, int64_t pieceSize);

} // namespace details

} // namespace kvo
