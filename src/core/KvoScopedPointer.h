#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace kvo
{

/**
    Sole owner of one heap object, or of nothing: a null pointer is legal.

    The object is deleted when the pointer is destroyed or reset. Ownership moves and is
    never shared, so the type is move-only. Factories return one to hand the object to
    their caller; a pointer to a derived class converts to one to its base, which is
    then deleted through the base's virtual destructor.
*/
template <typename T>
class ScopedPointer
{
public:
    ScopedPointer() noexcept = default;
    ScopedPointer(std::nullptr_t) noexcept {}
    explicit ScopedPointer(T* objectToOwn) noexcept : object(objectToOwn) {}

    ScopedPointer(ScopedPointer&& other) noexcept : object(other.release()) {}

    template <typename Derived>
        requires std::is_convertible_v<Derived*, T*>
    ScopedPointer(ScopedPointer<Derived>&& other) noexcept : object(other.release())
    {
        // Deleting a derived object through a base without a virtual destructor is undefined.
        static_assert(std::is_same_v<Derived, T> || std::has_virtual_destructor_v<T>,
                      "a derived object is deleted through its base: the base needs a virtual destructor");
    }

    ScopedPointer& operator=(ScopedPointer&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    ScopedPointer(const ScopedPointer&) = delete;
    ScopedPointer& operator=(const ScopedPointer&) = delete;

    ~ScopedPointer() { reset(); }

    T* get() const noexcept { return object; }
    T* operator->() const noexcept { return object; }
    T& operator*() const noexcept { return *object; }
    explicit operator bool() const noexcept { return object != nullptr; }

    /** Gives up ownership without deleting; the caller now owns the object. */
    [[nodiscard]] T* release() noexcept { return std::exchange(object, nullptr); }

    /** Deletes the present object, if any, and takes ownership of newObject. */
    void reset(T* newObject = nullptr) noexcept
    {
        static_assert(sizeof(T) > 0, "cannot delete an incomplete type");
        // Swap first: the old object's destructor may reach back into this pointer.
        delete std::exchange(object, newObject);
    }

    friend bool operator==(const ScopedPointer& pointer, std::nullptr_t) noexcept { return pointer.object == nullptr; }

private:
    T* object = nullptr;
};

} // namespace kvo
