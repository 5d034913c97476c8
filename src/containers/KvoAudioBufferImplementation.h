#pragma once

// Template bodies of AudioBufferBase<T> and AudioBuffer<T>, instantiated for float and
// double in KvoAudioBuffer.cpp.

#include <limits>

#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"
#include "math/KvoVectorImplementation.h"

namespace kvo
{
namespace details
{

/** numChannels times numSamples, or the largest count when the product does not fit in 64 bits. */
inline uint64_t saturatedSampleCount(uint32_t numChannels, uint64_t numSamples) noexcept
{
    uint64_t product = 0;
    if (__builtin_mul_overflow(static_cast<uint64_t>(numChannels), numSamples, &product))
        return std::numeric_limits<uint64_t>::max();
    return product;
}

template <typename T>
double bufferSizeInGigabytes(uint32_t numChannels, uint64_t numSamples) noexcept
{
    // Taken in double: a hostile shape cannot wrap around to a small size.
    return allocationSizeInGigabytes(static_cast<double>(numChannels) * static_cast<double>(numSamples), sizeof(T));
}

} // namespace details

template <typename T>
AudioBufferBase<T>::AudioBufferBase(uint32_t channelCount, uint64_t sampleCount)
    : numChannels(channelCount), numSamples(sampleCount)
{
    channels.Resize(channelCount);
}

template <typename T>
void AudioBufferBase<T>::Resize(uint32_t newNumChannels, uint64_t newNumSamples)
{
    if (newNumChannels != numChannels)
    {
        // Resizing the list keeps the leading pointers and zero-fills new entries.
        channels.Resize(newNumChannels);
        numChannels = newNumChannels;
    }
    else if (newNumSamples == numSamples)
    {
        return;
    }

    isClearFlag = false;
    numSamples = newNumSamples;
}

template <typename T>
double AudioBufferBase<T>::GetMemorySizeInMiB() const
{
    return 0.0;
}

template <typename T>
bool AudioBuffer<T>::IsReasonableAllocation(uint32_t numChannels, uint64_t numSamples) noexcept
{
    return details::bufferSizeInGigabytes<T>(numChannels, numSamples) <= details::allocationLimitInGigabytes;
}

template <typename T>
AudioBuffer<T>::AudioBuffer(uint32_t channelCount, uint64_t sampleCount)
    : AudioBufferBase<T>(channelCount, sampleCount)
{
    // Refuse before the samples are allocated; the message names both dimensions so
    // that a bad header can be read off it.
    if (!IsReasonableAllocation(channelCount, sampleCount))
        throw Exception(String("Overly large buffer allocation (") + FromInteger(channelCount) + " x "
                            + FromInteger(sampleCount) + ")." + " This would require more than "
                            + FromDouble(details::bufferSizeInGigabytes<T>(channelCount, sampleCount), 0, false) + " GB.",
                        KVO_CODE_LOCATION);

    samples.Resize(static_cast<uint64_t>(channelCount) * sampleCount);
    wireChannels();
}

template <typename T>
void AudioBuffer<T>::Resize(uint32_t newNumChannels, uint64_t newNumSamples)
{
    if (newNumChannels == this->numChannels && newNumSamples == this->numSamples)
        return;

    AudioBufferBase<T>::Resize(newNumChannels, newNumSamples);

    // A product beyond 64 bits saturates, so the array guard refuses it instead of
    // seeing the small number it would wrap to.
    const uint64_t numElements = details::saturatedSampleCount(newNumChannels, newNumSamples);
    details::translateAllocationFailures(KVO_CODE_LOCATION, [&] { samples.Resize(numElements); });
    if (samples.GetSize() != numElements && numElements != 0)
        throw Exception(String("memory re-allocation failed (numChannels = ") + FromInteger(newNumChannels)
                            + ", numSamples = " + FromInteger(newNumSamples) + ")",
                        KVO_CODE_LOCATION);

    wireChannels();
}

template <typename T>
double AudioBuffer<T>::GetMemorySizeInMiB() const
{
    return static_cast<double>(samples.GetCapacity() * sizeof(T)) / 1048576.0;
}

template <typename T>
void AudioBuffer<T>::wireChannels() noexcept
{
    // An empty storage leaves the pointers as they are: null, or the old channel starts.
    if (samples.IsEmpty())
        return;
    for (uint64_t c = 0; c < this->numChannels; ++c)
        this->channels[c] = samples.GetData() + c * this->numSamples;
}

} // namespace kvo
