#pragma once

#include <cstdint>

#include "math/KvoVector.h"

namespace kvo
{

/**
    The shape of a block of planar samples and one pointer per channel.

    The base owns no samples: its channel pointers may present storage that lives
    elsewhere, and are null until storage is attached. isClearFlag marks a buffer whose
    samples are known to be silent; every resize and every hand-out for writing resets it.
*/
template <typename T>
class AudioBufferBase
{
public:
    AudioBufferBase(uint32_t numChannels, uint64_t numSamples);
    AudioBufferBase(const AudioBufferBase&) = delete;
    AudioBufferBase& operator=(const AudioBufferBase&) = delete;
    virtual ~AudioBufferBase() = default;

    /** Records the new shape; pointers of channels that remain are kept, new ones are null. */
    virtual void Resize(uint32_t newNumChannels, uint64_t newNumSamples);
    /** The sample storage held, in MiB; the base holds none. */
    virtual double GetMemorySizeInMiB() const;
    virtual bool IsAllocated() const = 0;

    uint32_t GetNumChannels() const noexcept { return numChannels; }
    uint64_t GetNumSamples() const noexcept { return numSamples; }

    /** The start of a channel, unchecked. */
    const T* GetReadPointer(uint32_t channel) const noexcept { return channels[channel]; }

    /** The start of a channel for writing, unchecked; the buffer no longer counts as clear. */
    T* GetWritePointer(uint32_t channel) noexcept
    {
        isClearFlag = false;
        return channels[channel];
    }

    /** True while the samples are marked as silence. */
    bool IsClear() const noexcept { return isClearFlag; }
    void SetClearFlag(bool isClear) noexcept { isClearFlag = isClear; }

protected:
    uint32_t numChannels = 0;
    uint64_t numSamples = 0;
    Vector<T*> channels;
    bool isClearFlag = false;
};

/**
    A buffer that owns its samples: numChannels times numSamples values in one
    allocation, channel after channel with no gaps, so that channel c starts c times
    numSamples into the storage.

    The constructor refuses a buffer above 6.0 decimal gigabytes before allocating and
    zeroes the samples. Resizing keeps each sample at its linear position in the storage
    rather than re-laying the channels out, so callers treat a resized buffer as holding
    nothing and refill it. The capacity never shrinks.
*/
template <typename T>
class AudioBuffer : public AudioBufferBase<T>
{
public:
    AudioBuffer(uint32_t numChannels, uint64_t numSamples);

    void Resize(uint32_t newNumChannels, uint64_t newNumSamples) override;
    double GetMemorySizeInMiB() const override;
    bool IsAllocated() const override { return true; }

    /** Whether the constructor accepts this shape: at most 6.0 decimal gigabytes, exactly 6.0 included. */
    static bool IsReasonableAllocation(uint32_t numChannels, uint64_t numSamples) noexcept;

private:
    void wireChannels() noexcept;

    Vector<T> samples;
};

extern template class AudioBufferBase<float>;
extern template class AudioBufferBase<double>;
extern template class AudioBuffer<float>;
extern template class AudioBuffer<double>;

} // namespace kvo
