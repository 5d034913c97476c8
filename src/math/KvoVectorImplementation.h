#pragma once

// Template bodies of Vector<T>; included by KvoVector.h only.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "core/KvoException.h"

namespace kvo
{
namespace details
{

template <typename T>
constexpr bool isPlainElement = std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>;

template <typename T>
constexpr uint64_t largestElementCount = static_cast<uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(T);

/** The most one array or one audio buffer may ask for, in decimal gigabytes. */
constexpr double allocationLimitInGigabytes = 6.0;

/**
    count times width bytes, in decimal gigabytes. The product is taken in double so that
    a hostile count cannot wrap around to a small size; every byte count up to 2^53,
    and so every one near the ceiling, is exact.
*/
constexpr double allocationSizeInGigabytes(double count, double width) noexcept
{
    return count * width / 1000000000.0;
}

/** Runs a growth step and turns whatever it throws into a library Exception. */
template <typename Function>
void translateAllocationFailures(const CodeLocation& location, Function&& grow)
{
    try
    {
        grow();
    }
    catch (const Exception&)
    {
        throw; // already reported
    }
    catch (const std::bad_alloc&)
    {
        throw Exception("out of memory", location);
    }
    catch (const std::exception& e)
    {
        throw Exception(String("exception ") + e.what() + " occurred", location);
    }
    catch (...)
    {
        throw exceptions::Unknown(location);
    }
}

} // namespace details

template <typename T>
Vector<T>::Vector(const Vector& other)
{
    *this = other;
}

template <typename T>
Vector<T>::Vector(Vector&& other) noexcept
    : first(std::exchange(other.first, nullptr)),
      last(std::exchange(other.last, nullptr)),
      storageEnd(std::exchange(other.storageEnd, nullptr))
{
}

template <typename T>
Vector<T>& Vector<T>::operator=(const Vector& other)
{
    if (this == &other)
        return *this;

    if constexpr (details::isPlainElement<T>)
    {
        Resize(other.GetSize());
        if (!other.IsEmpty() && first != other.first)
            std::memcpy(static_cast<void*>(first), other.first, other.GetSize() * sizeof(T));
    }
    else
    {
        Clear();
        Reserve(other.GetSize());
        for (const T& element : other)
            PushBack(element);
    }
    return *this;
}

template <typename T>
Vector<T>& Vector<T>::operator=(Vector&& other) noexcept
{
    if (this != &other)
    {
        Clear();
        std::free(static_cast<void*>(first));
        first = std::exchange(other.first, nullptr);
        last = std::exchange(other.last, nullptr);
        storageEnd = std::exchange(other.storageEnd, nullptr);
    }
    return *this;
}

template <typename T>
Vector<T>::~Vector()
{
    Clear();
    std::free(static_cast<void*>(first));
}

template <typename T>
bool Vector<T>::IsReasonableAllocation(uint64_t numElements) noexcept
{
    return details::allocationSizeInGigabytes(static_cast<double>(numElements), sizeof(T)) <= details::allocationLimitInGigabytes;
}

template <typename T>
void Vector<T>::ensureReasonableAllocation(const uint64_t numElements) const
{
    if (IsReasonableAllocation(numElements))
        return;

    const double gigabytes = details::allocationSizeInGigabytes(static_cast<double>(numElements), sizeof(T));
    throw Exception(String("Overly large array allocation (") + FromInteger(numElements) + " elements)."
                        + " This would require more than " + FromDouble(gigabytes, 0, false) + " GB.",
                    KVO_CODE_LOCATION);
}

template <typename T>
void Vector<T>::reallocate(uint64_t newCapacity)
{
    if (newCapacity > details::largestElementCount<T>)
        throw std::length_error("allocation overflow.");

    T* storage = static_cast<T*>(std::malloc(static_cast<size_t>(newCapacity * sizeof(T))));
    if (storage == nullptr)
        throw std::bad_alloc();

    const uint64_t size = GetSize();
    if constexpr (details::isPlainElement<T>)
    {
        if (size > 0)
            std::memcpy(static_cast<void*>(storage), first, size * sizeof(T));
    }
    else
    {
        for (uint64_t i = 0; i < size; ++i)
        {
            new (storage + i) T(std::move(first[i]));
            first[i].~T();
        }
    }

    std::free(static_cast<void*>(first));
    first = storage;
    last = storage + size;
    storageEnd = storage + newCapacity;
}

template <typename T>
void Vector<T>::growTo(uint64_t minimumCapacity)
{
    const uint64_t capacity = GetCapacity();
    if (minimumCapacity <= capacity)
        return;

    const uint64_t half = capacity / 2;
    uint64_t newCapacity = details::largestElementCount<T>;
    if (capacity <= newCapacity - half)
        newCapacity = capacity + half;
    if (newCapacity < minimumCapacity)
        newCapacity = minimumCapacity;

    reallocate(newCapacity);
}

template <typename T>
void Vector<T>::Reserve(uint64_t numElements)
{
    if (numElements > GetCapacity())
        details::translateAllocationFailures(KVO_CODE_LOCATION, [&] { reallocate(numElements); });
}

template <typename T>
void Vector<T>::Resize(uint64_t numElements)
{
    ensureReasonableAllocation(numElements);

    const uint64_t size = GetSize();
    if (numElements < size)
    {
        if constexpr (!details::isPlainElement<T>)
            for (T* element = first + numElements; element != last; ++element)
                element->~T();
        last = first + numElements;
        return;
    }

    if (numElements == size)
        return;

    details::translateAllocationFailures(KVO_CODE_LOCATION, [&] { growTo(numElements); });
    if constexpr (details::isPlainElement<T>)
        std::memset(static_cast<void*>(last), 0, (numElements - size) * sizeof(T));
    else
        for (T* element = last; element != first + numElements; ++element)
            new (element) T();
    last = first + numElements;
}

template <typename T>
template <typename Value>
void Vector<T>::append(Value&& value)
{
    if (last == storageEnd)
    {
        // value may live inside this vector: keep it alive across the move of storage.
        T copy(std::forward<Value>(value));
        details::translateAllocationFailures(KVO_CODE_LOCATION, [&] { growTo(GetSize() + 1); });
        new (last) T(std::move(copy));
    }
    else
    {
        new (last) T(std::forward<Value>(value));
    }
    ++last;
}

template <typename T>
void Vector<T>::PushBack(const T& value)
{
    append(value);
}

template <typename T>
void Vector<T>::Insert(uint64_t index, const T& value)
{
    const uint64_t size = GetSize();
    if (index >= size)
    {
        PushBack(value);
        return;
    }

    T copy(value); // value may be an element of this vector
    append(std::move(first[size - 1]));
    for (uint64_t i = size - 1; i > index; --i)
        first[i] = std::move(first[i - 1]);
    first[index] = std::move(copy);
}

template <typename T>
void Vector<T>::Erase(uint64_t index)
{
    const uint64_t size = GetSize();
    for (uint64_t i = index + 1; i < size; ++i)
        first[i - 1] = std::move(first[i]);
    --last;
    if constexpr (!details::isPlainElement<T>)
        last->~T();
}

template <typename T>
void Vector<T>::Clear() noexcept
{
    if constexpr (!details::isPlainElement<T>)
        for (T* element = first; element != last; ++element)
            element->~T();
    last = first;
}

} // namespace kvo
