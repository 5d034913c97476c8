#pragma once

#include <cstdint>

namespace kvo
{

/**
    Sample coding between file bytes and channel arrays. Every integer format passes
    through 32-bit left-justified fixed point (full scale 2^31); one scaling step turns
    that into float.
*/

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
