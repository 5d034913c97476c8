#pragma once

#include <cstddef>
#include <cstdint>
#include <streambuf>

namespace kvo
{
namespace details
{

/**
    A stream buffer whose put area is a fixed array owned by the caller, so that an
    ostream can format a number without touching the heap.

    Nothing is ever flushed: once the array is full, further characters are lost and
    the stream bound to it enters its failure state. The buffer does not own the array.
*/
class StackArrayStream : public std::streambuf
{
public:
    StackArrayStream(char* array, size_t arraySize) { setp(array, array + arraySize); }
    ~StackArrayStream() override = default;

    StackArrayStream(const StackArrayStream&) = delete;
    StackArrayStream& operator=(const StackArrayStream&) = delete;

    /** Number of characters written into the array so far. */
    int64_t GetLength() const noexcept { return static_cast<int64_t>(pptr() - pbase()); }
};

} // namespace details
} // namespace kvo
