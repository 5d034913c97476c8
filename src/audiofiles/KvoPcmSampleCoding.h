#pragma once

#include <cstdint>

namespace kvo
{

/**
    Sample coding between file bytes and channel arrays. Every integer format passes
    through 32-bit left-justified fixed point (full scale 2^31); one scaling step turns
    that into float.
*/

/** The byte forms of a file's samples: WAV's, AIFF's, and AIFF-C "sowt" (little-endian, signed 8-bit). */
enum class ByteForms
{
    wav,
    aiff,
    aiffLittleEndian
};

/** How a file stores its samples. Two files of equal coding store the same samples as the same bytes. */
struct SampleCoding
{
    ByteForms forms = ByteForms::wav;
    uint32_t bitsPerSample = 0;
    bool isFloat = false;
    uint32_t numChannels = 0;

    bool operator==(const SampleCoding&) const = default;

    /**
        True when every sample's bytes come back unchanged from decoding to float and
        encoding again: integers of 8, 16 and 24 bits fit a float's mantissa, and 32-bit
        floats are copied as bits.
    */
    bool isExactThroughFloat() const noexcept
    {
        return isFloat ? bitsPerSample == 32 : (bitsPerSample == 8 || bitsPerSample == 16 || bitsPerSample == 24);
    }

    /** The byte that stands for 0.0 at this coding: 8-bit WAV samples are unsigned. */
    uint8_t silenceByte() const noexcept { return forms == ByteForms::wav && bitsPerSample == 8 ? 0x80 : 0; }
};

/** Decodes numFrames interleaved little-endian frames (WAV) into fixed point, or float bits. */
void ConvertLittleEndianToInt32(int bits, bool isFloat, int** dest, uint64_t destStart, unsigned int numDestChannels,
                                const char* source, unsigned int numSourceChannels, uint64_t numFrames);

/** Decodes numFrames interleaved big-endian frames (AIFF) into fixed point, or float bits. */
void ConvertBigEndianToInt32(int bits, bool isFloat, int** dest, uint64_t destStart, unsigned int numDestChannels,
                             const char* source, unsigned int numSourceChannels, uint64_t numFrames);

/** Decodes little-endian AIFF-C "sowt" frames: like WAV but with signed 8-bit samples. */
void ConvertAiffLittleEndianToInt32(int bits, bool isFloat, int** dest, uint64_t destStart,
                                    unsigned int numDestChannels, const char* source, unsigned int numSourceChannels,
                                    uint64_t numFrames);

/** In place: fixed point to float, times 2^-31. */
void ConvertFixedToFloat(int** channels, unsigned int numChannels, uint64_t numSamples);

/** Clips to [-1, 1) and scales to fixed point with round-to-nearest-even. */
void ConvertFloatToFixed(const float* source, int* dest, uint64_t numSamples);

/** Interleaves fixed-point channels into WAV bytes (32 bits: the elements' bits unchanged). */
void PackWavSamples(int bitsPerSample, const int* const* channels, unsigned int numChannels, uint64_t numFrames,
                    char* dest);

/** Interleaves fixed-point channels into AIFF bytes (big-endian, signed 8-bit). */
void PackAiffSamples(int bitsPerSample, const int* const* channels, unsigned int numChannels, uint64_t numFrames,
                     char* dest);

} // namespace kvo
