#pragma once

#include <cstdint>

#include "core/KvoInputStream.h"

namespace kvo
{

/**
    The byte orders of the containers, in one place: RIFF, RF64 and Wave64 are
    little-endian, AIFF is big-endian. Values are assembled byte by byte, so the host's own
    order never matters and unaligned fields are fine.
*/

/** numBytes (at most 8) at bytes, the least significant first. */
constexpr uint64_t LoadLittleEndian(const uint8_t* bytes, int numBytes) noexcept
{
    uint64_t value = 0;
    for (int i = numBytes - 1; i >= 0; --i)
        value = value << 8 | bytes[i];
    return value;
}

/** numBytes (at most 8) at bytes, the most significant first. */
constexpr uint64_t LoadBigEndian(const uint8_t* bytes, int numBytes) noexcept
{
    uint64_t value = 0;
    for (int i = 0; i < numBytes; ++i)
        value = value << 8 | bytes[i];
    return value;
}

/** The low numBytes (at most 8) of value into bytes, the least significant first. */
constexpr void StoreLittleEndian(uint8_t* bytes, uint64_t value, int numBytes) noexcept
{
    for (int i = 0; i < numBytes; ++i)
        bytes[i] = uint8_t(value >> (8 * i));
}

/** The low numBytes (at most 8) of value into bytes, the most significant first. */
constexpr void StoreBigEndian(uint8_t* bytes, uint64_t value, int numBytes) noexcept
{
    for (int i = 0; i < numBytes; ++i)
        bytes[i] = uint8_t(value >> (8 * (numBytes - 1 - i)));
}

/** A four-character code as the little-endian integer its bytes make in a RIFF or Wave64 file. */
constexpr uint32_t LittleEndianFourCC(const char (&text)[5]) noexcept
{
    const uint8_t bytes[4] { uint8_t(text[0]), uint8_t(text[1]), uint8_t(text[2]), uint8_t(text[3]) };
    return uint32_t(LoadLittleEndian(bytes, 4));
}

/** A four-character code as the big-endian integer its bytes make in an AIFF file. */
constexpr uint32_t BigEndianFourCC(const char (&text)[5]) noexcept
{
    const uint8_t bytes[4] { uint8_t(text[0]), uint8_t(text[1]), uint8_t(text[2]), uint8_t(text[3]) };
    return uint32_t(LoadBigEndian(bytes, 4));
}

/** numBytes (at most 8) from stream as a little-endian value; bytes past its end read as zero. */
inline uint64_t ReadLittleEndian(InputStream& stream, int numBytes)
{
    uint8_t bytes[8] {};
    stream.Read(bytes, numBytes);
    return LoadLittleEndian(bytes, numBytes);
}

/** numBytes (at most 8) from stream as a big-endian value; bytes past its end read as zero. */
inline uint64_t ReadBigEndian(InputStream& stream, int numBytes)
{
    uint8_t bytes[8] {};
    stream.Read(bytes, numBytes);
    return LoadBigEndian(bytes, numBytes);
}

} // namespace kvo
