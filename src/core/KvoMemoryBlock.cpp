#include "core/KvoMemoryBlock.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace kvo
{

MemoryBlock::MemoryBlock(int64_t initialSize, bool zero)
{
    Allocate(initialSize, zero);
}

MemoryBlock::MemoryBlock(const MemoryBlock& other)
{
    *this = other;
}

MemoryBlock::MemoryBlock(MemoryBlock&& other) noexcept
    : data(std::exchange(other.data, nullptr)),
      size(std::exchange(other.size, 0))
{
}

MemoryBlock& MemoryBlock::operator=(const MemoryBlock& other)
{
    if (this != &other)
    {
        Allocate(other.size, false);
        if (size > 0)
            std::memcpy(data, other.data, static_cast<size_t>(size));
    }
    return *this;
}

MemoryBlock& MemoryBlock::operator=(MemoryBlock&& other) noexcept
{
    if (this != &other)
    {
        Free();
        data = std::exchange(other.data, nullptr);
        size = std::exchange(other.size, 0);
    }
    return *this;
}

MemoryBlock::~MemoryBlock()
{
    std::free(data);
}

void MemoryBlock::Free() noexcept
{
    std::free(data);
    data = nullptr;
    size = 0;
}

void MemoryBlock::Allocate(int64_t newSize, bool zero)
{
    Free();
    // A zero or negative size leaves the block empty rather than holding a
    // zero-byte allocation, so that "empty" always means data == nullptr.
    if (newSize <= 0)
        return;

    const size_t numBytes = static_cast<size_t>(newSize);
    data = static_cast<uint8_t*>(zero ? std::calloc(numBytes, 1) : std::malloc(numBytes));
    size = data != nullptr ? newSize : 0;
}

void MemoryBlock::SetSize(int64_t newSize, bool zeroNew)
{
    if (newSize < 0)
        newSize = 0;
    if (newSize == size)
        return;

    if (newSize == 0 || data == nullptr)
    {
        Allocate(newSize, zeroNew);
        return;
    }

    auto* grown = static_cast<uint8_t*>(std::realloc(data, static_cast<size_t>(newSize)));
    if (grown == nullptr)
    {
        Free(); // realloc kept the old bytes; an unchecked failure still ends empty
        return;
    }

    if (zeroNew && newSize > size)
        std::memset(grown + size, 0, static_cast<size_t>(newSize - size));
    data = grown;
    size = newSize;
}

} // namespace kvo
