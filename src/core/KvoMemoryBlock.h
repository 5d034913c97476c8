#pragma once

#include <cstdint>

namespace kvo
{

/**
    Raw bytes from the C heap with their count.

    data and size are public: the audio code reads and writes them as fields. The block
    owns data and frees it on destruction. An empty block has data null and size 0.
    Allocations are not checked: a failed one leaves the block empty.
*/
class MemoryBlock
{
public:
    MemoryBlock() noexcept = default;
    /** size bytes, zeroed when zero is true. */
    explicit MemoryBlock(int64_t size, bool zero = false);
    /** A new allocation holding a copy of other's bytes; an empty other gives an empty block. */
    MemoryBlock(const MemoryBlock& other);
    MemoryBlock(MemoryBlock&& other) noexcept;
    MemoryBlock& operator=(const MemoryBlock& other);
    MemoryBlock& operator=(MemoryBlock&& other) noexcept;
    ~MemoryBlock();

    /** Frees the present bytes and takes size new ones, zeroed when zero is true. */
    void Allocate(int64_t size, bool zero);

    /**
        Changes the size and keeps the leading bytes. Bytes beyond the old size are zeroed
        when zeroNew is true, otherwise they hold whatever the heap gave. Size 0 frees.
    */
    void SetSize(int64_t size, bool zeroNew);

    /** Frees the bytes; the block is empty afterwards. */
    void Free() noexcept;

    bool IsEmpty() const noexcept { return size == 0; }

    uint8_t* data = nullptr;
    int64_t size = 0;
};

} // namespace kvo
