#include "audiofiles/KvoPcmSampleCoding.h"

#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "audiofiles/KvoByteOrder.h"

namespace kvo
{

namespace
{

/** x rounded to the nearest integer in the current rounding mode; unspecified when x does not fit. */
inline int32_t RoundToInt32(float x) noexcept
{
#if defined(__GNUC__) && !defined(__clang__)
    return __builtin_irintf(x); // with -fno-math-errno, a conversion instruction that vectorises
#else
    return static_cast<int32_t>(std::lrintf(x));
#endif
}

// One form per stored sample layout: each turns the bytes of one sample into a fixed-point
// value (or the bits of a float) and back. Unsigned arithmetic keeps the shifts of negative
// values defined. Where the file's order is the host's, a plain copy lets the loops become
// vector shifts and packs.

struct UnsignedByte
{
    static constexpr int size = 1;
    static int32_t Decode(const uint8_t* b) { return static_cast<int32_t>((uint32_t(b[0]) << 24) - 0x80000000u); }
    static void Encode(uint8_t* b, uint32_t x) { b[0] = static_cast<uint8_t>((x >> 24) + 128); }
};

struct SignedByte
{
    static constexpr int size = 1;
    static int32_t Decode(const uint8_t* b) { return static_cast<int32_t>(uint32_t(b[0]) << 24); }
    static void Encode(uint8_t* b, uint32_t x) { b[0] = static_cast<uint8_t>(x >> 24); }
};

/** The top numBytes of a left-justified value, little-endian. */
template <int numBytes>
struct Little
{
    static constexpr int size = numBytes;
    static constexpr int shift = 32 - 8 * numBytes;
    static int32_t Decode(const uint8_t* b)
    {
        return static_cast<int32_t>(static_cast<uint32_t>(LoadHostOrLittle(b)) << shift);
    }
    static void Encode(uint8_t* b, uint32_t x)
    {
        if constexpr (std::endian::native == std::endian::little && (numBytes == 2 || numBytes == 4))
        {
            const auto word = static_cast<std::conditional_t<numBytes == 2, uint16_t, uint32_t>>(x >> shift);
            std::memcpy(b, &word, sizeof word);
        }
        else
            StoreLittleEndian(b, x >> shift, numBytes);
    }

private:
    static uint32_t LoadHostOrLittle(const uint8_t* b)
    {
        if constexpr (std::endian::native == std::endian::little && numBytes == 2)
        {
            uint16_t word;
            std::memcpy(&word, b, sizeof word);
            return word;
        }
        else
            return static_cast<uint32_t>(LoadLittleEndian(b, numBytes));
    }
};

/** The top numBytes of a left-justified value, big-endian. */
template <int numBytes>
struct Big
{
    static constexpr int size = numBytes;
    static constexpr int shift = 32 - 8 * numBytes;
    static int32_t Decode(const uint8_t* b) { return static_cast<int32_t>(static_cast<uint32_t>(LoadBigEndian(b, numBytes)) << shift); }
    static void Encode(uint8_t* b, uint32_t x) { StoreBigEndian(b, x >> shift, numBytes); }
};

/** A little-endian double, narrowed to float without clipping; the result is the float's bits. */
struct LittleDouble
{
    static constexpr int size = 8;
    static int32_t Decode(const uint8_t* b)
    {
        const uint64_t bits = LoadLittleEndian(b, 8);
        double value;
        std::memcpy(&value, &bits, sizeof(value));
        const auto narrowed = static_cast<float>(value);
        int32_t result;
        std::memcpy(&result, &narrowed, sizeof(result));
        return result;
    }
};

/**
    Decodes one channel of numFrames interleaved frames. When the channel is decoded onto
    its own bytes with a frame narrower than the result, it runs from the last frame down so
    that no value overwrites input still to be read.
*/
template <typename Format>
void decodeChannel(int32_t* dest, const uint8_t* source, uint64_t stride, uint64_t numFrames)
{
    const bool inPlace = static_cast<const void*>(dest) == static_cast<const void*>(source) && stride < 4;
    if (inPlace)
    {
        for (uint64_t i = numFrames; i-- > 0;)
            dest[i] = Format::Decode(source + i * stride);
        return;
    }
    for (uint64_t i = 0; i < numFrames; ++i)
        dest[i] = Format::Decode(source + i * stride);
}

/** True when the byte ranges [a, a + aBytes) and [b, b + bBytes) do not overlap. */
bool disjoint(const void* a, uint64_t aBytes, const void* b, uint64_t bBytes)
{
    const auto first = reinterpret_cast<uintptr_t>(a);
    const auto second = reinterpret_cast<uintptr_t>(b);
    return first + aBytes <= second || second + bBytes <= first;
}

/**
    Both channels of stereo frames in one pass over the bytes, where the arrays lie apart
    from the bytes: the common case of a reader's staging block.
*/
template <typename Format>
bool decodeStereo(int32_t* left, int32_t* right, const uint8_t* bytes, uint64_t numFrames)
{
    const uint64_t sourceBytes = numFrames * 2 * Format::size;
    const uint64_t destBytes = numFrames * sizeof(int32_t);
    if (!disjoint(left, destBytes, bytes, sourceBytes) || !disjoint(right, destBytes, bytes, sourceBytes))
        return false;
    for (uint64_t i = 0; i < numFrames; ++i)
    {
        left[i] = Format::Decode(bytes + i * 2 * Format::size);
        right[i] = Format::Decode(bytes + (i * 2 + 1) * Format::size);
    }
    return true;
}

template <typename Format>
void decodeFrames(int** dest, uint64_t destStart, unsigned int numDestChannels, const char* source,
                  unsigned int numSourceChannels, uint64_t numFrames)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(source);
    if (numSourceChannels == 2 && numDestChannels == 2 && dest[0] != nullptr && dest[1] != nullptr
        && decodeStereo<Format>(dest[0] + destStart, dest[1] + destStart, bytes, numFrames))
        return;
    const uint64_t stride = uint64_t(numSourceChannels) * Format::size;
    for (unsigned int channel = 0; channel < numDestChannels; ++channel)
    {
        if (dest[channel] == nullptr)
            continue;
        int32_t* channelDest = dest[channel] + destStart;
        if (channel >= numSourceChannels)
            std::memset(channelDest, 0, numFrames * sizeof(int32_t));
        else
            decodeChannel<Format>(channelDest, bytes + channel * Format::size, stride, numFrames);
    }
}


/** Frame by frame, channels in order: the output is written front to back. */
template <typename Format>
void packFrames(const int* const* channels, unsigned int numChannels, uint64_t numFrames, char* dest)
{
    constexpr uint64_t width = Format::size;
    auto* out = reinterpret_cast<uint8_t*>(dest);
    if (numChannels == 1)
    {
        const int* samples = channels[0];
        for (uint64_t i = 0; i < numFrames; ++i)
            Format::Encode(out + i * width, static_cast<uint32_t>(samples[i]));
        return;
    }
    if (numChannels == 2)
    {
        const int* left = channels[0];
        const int* right = channels[1];
        for (uint64_t i = 0; i < numFrames; ++i)
        {
            Format::Encode(out + i * 2 * width, static_cast<uint32_t>(left[i]));
            Format::Encode(out + (i * 2 + 1) * width, static_cast<uint32_t>(right[i]));
        }
        return;
    }
    for (uint64_t i = 0; i < numFrames; ++i)
        for (unsigned int channel = 0; channel < numChannels; ++channel)
            Format::Encode(out + (i * numChannels + channel) * width, static_cast<uint32_t>(channels[channel][i]));
}

/** The forms of one byte order for 8, 16, 24 and 32 bits, chosen once per block. */
template <typename Byte, template <int> class Word>
struct Coding
{
    static void Decode(int bits, int** dest, uint64_t destStart, unsigned int numDestChannels, const char* source,
                       unsigned int numSourceChannels, uint64_t numFrames)
    {
        // Widths without a form leave the arrays as they are.
        switch (bits)
        {
            case 8: decodeFrames<Byte>(dest, destStart, numDestChannels, source, numSourceChannels, numFrames); break;
            case 16: decodeFrames<Word<2>>(dest, destStart, numDestChannels, source, numSourceChannels, numFrames); break;
            case 24: decodeFrames<Word<3>>(dest, destStart, numDestChannels, source, numSourceChannels, numFrames); break;
            case 32: decodeFrames<Word<4>>(dest, destStart, numDestChannels, source, numSourceChannels, numFrames); break;
            default: break;
        }
    }

    static void Pack(int bits, const int* const* channels, unsigned int numChannels, uint64_t numFrames, char* dest)
    {
        switch (bits)
        {
            case 8: packFrames<Byte>(channels, numChannels, numFrames, dest); break;
            case 16: packFrames<Word<2>>(channels, numChannels, numFrames, dest); break;
            case 24: packFrames<Word<3>>(channels, numChannels, numFrames, dest); break;
            case 32: packFrames<Word<4>>(channels, numChannels, numFrames, dest); break;
            default: break;
        }
    }
};

using WavCoding = Coding<UnsignedByte, Little>;
using AiffCoding = Coding<SignedByte, Big>;
using AiffLittleEndianCoding = Coding<SignedByte, Little>;

} // namespace

void ConvertLittleEndianToInt32(int bits, bool isFloat, int** dest, uint64_t destStart, unsigned int numDestChannels,
                                const char* source, unsigned int numSourceChannels, uint64_t numFrames)
{
    if (bits == 64 && isFloat)
        decodeFrames<LittleDouble>(dest, destStart, numDestChannels, source, numSourceChannels, numFrames);
    else
        WavCoding::Decode(bits, dest, destStart, numDestChannels, source, numSourceChannels, numFrames);
}

void ConvertBigEndianToInt32(int bits, bool /*isFloat*/, int** dest, uint64_t destStart, unsigned int numDestChannels,
                             const char* source, unsigned int numSourceChannels, uint64_t numFrames)
{
    AiffCoding::Decode(bits, dest, destStart, numDestChannels, source, numSourceChannels, numFrames);
}

void ConvertAiffLittleEndianToInt32(int bits, bool /*isFloat*/, int** dest, uint64_t destStart,
                                    unsigned int numDestChannels, const char* source, unsigned int numSourceChannels,
                                    uint64_t numFrames)
{
    AiffLittleEndianCoding::Decode(bits, dest, destStart, numDestChannels, source, numSourceChannels, numFrames);
}

void ConvertFixedToFloat(int** channels, unsigned int numChannels, uint64_t numSamples)
{
    constexpr float scale = 0x1p-31f;
    for (unsigned int channel = 0; channel < numChannels; ++channel)
    {
        int* samples = channels[channel];
        if (samples == nullptr)
            continue;
        // The same memory holds the integer and then the float: copies keep that well-defined.
        for (uint64_t i = 0; i < numSamples; ++i)
        {
            int32_t fixed;
            std::memcpy(&fixed, samples + i, sizeof(fixed));
            const float value = static_cast<float>(fixed) * scale;
            std::memcpy(samples + i, &value, sizeof(value));
        }
    }
}

void ConvertFloatToFixed(const float* source, int* dest, uint64_t numSamples)
{
    // lrintf(x * 2^31) with clipping, written without calls or branches so that the loop
    // vectorises: the rounding becomes one conversion per vector, which rounds to nearest,
    // ties to even, as lrintf does in the default rounding mode. Values it cannot hold are
    // replaced by the selects; a NaN gives INT32_MIN, as lrintf does here.
    constexpr float fullScale = 2147483648.0f;
    for (uint64_t i = 0; i < numSamples; ++i)
    {
        const float x = source[i];
        const int32_t rounded = RoundToInt32(x * fullScale);
        const int32_t clippedLow = ((x <= -1.0f) | (x != x)) ? INT32_MIN : rounded;
        dest[i] = x >= 1.0f ? INT32_MAX : clippedLow;
    }
}

void PackWavSamples(int bitsPerSample, const int* const* channels, unsigned int numChannels, uint64_t numFrames,
                    char* dest)
{
    WavCoding::Pack(bitsPerSample, channels, numChannels, numFrames, dest);
}

void PackAiffSamples(int bitsPerSample, const int* const* channels, unsigned int numChannels, uint64_t numFrames,
                     char* dest)
{
    AiffCoding::Pack(bitsPerSample, channels, numChannels, numFrames, dest);
}

} // namespace kvo
