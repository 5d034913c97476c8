#pragma once

#include <cstdint>
#include <type_traits>

namespace kvo
{

/**
    The library's dynamic array.

    Storage comes from malloc and grows by half its capacity. Resize refuses any request
    above 6.0 decimal gigabytes with an Exception of its own; allocation failures in
    growth become library Exceptions. Element access is unchecked. A vector of pointers
    does not own what they point to.
*/
template <typename T>
class Vector
{
public:
    Vector() noexcept = default;
    Vector(const Vector& other);
    Vector(Vector&& other) noexcept;
    Vector& operator=(const Vector& other);
    Vector& operator=(Vector&& other) noexcept;
    virtual ~Vector();

    /** Sets the element count: shrinking keeps the capacity, growing zero-fills. */
    void Resize(uint64_t numElements);
    void PushBack(const T& value);
    void Insert(uint64_t index, const T& value);
    /** Removes the element at index and closes the gap; index must be in range. */
    void Erase(uint64_t index);
    void Clear() noexcept;
    void Reserve(uint64_t numElements);

    uint64_t GetSize() const noexcept { return static_cast<uint64_t>(last - first); }
    uint64_t GetCapacity() const noexcept { return static_cast<uint64_t>(storageEnd - first); }
    bool IsEmpty() const noexcept { return first == last; }
    T* GetData() noexcept { return first; }
    const T* GetData() const noexcept { return first; }

    T& operator[](uint64_t index) noexcept { return first[index]; }
    const T& operator[](uint64_t index) const noexcept { return first[index]; }

    /**
        Whether numElements elements stay within the ceiling that Resize enforces:
        at most 6.0 decimal gigabytes, exactly 6.0 included.
    */
    static bool IsReasonableAllocation(uint64_t numElements) noexcept;

    T* begin() noexcept { return first; }
    T* end() noexcept { return last; }
    const T* begin() const noexcept { return first; }
    const T* end() const noexcept { return last; }

private:
    void ensureReasonableAllocation(const uint64_t numElements) const;
    void growTo(uint64_t minimumCapacity);
    void reallocate(uint64_t newCapacity);
    template <typename Value>
    void append(Value&& value);

    T* first = nullptr;
    T* last = nullptr;
    T* storageEnd = nullptr;
};

} // namespace kvo

#include "math/KvoVectorImplementation.h"
