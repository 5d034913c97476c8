#pragma once

// WAV-family files built byte by byte, and a fixture that opens them with WavFileReader.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoStreamCapture.h"
#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "core/KvoException.h"

namespace kvo::testing
{

using Guid = std::array<uint8_t, 16>;

inline const Guid w64Riff { 0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                            0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
inline const Guid w64List { 0x6C, 0x69, 0x73, 0x74, 0x2F, 0x91, 0xCF, 0x11,
                            0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
inline const Guid w64Wave { 0x77, 0x61, 0x76, 0x65, 0xF3, 0xAC, 0xD3, 0x11,
                            0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
inline const Guid w64Fmt { 0x66, 0x6D, 0x74, 0x20, 0xF3, 0xAC, 0xD3, 0x11,
                           0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
inline const Guid w64Data { 0x64, 0x61, 0x74, 0x61, 0xF3, 0xAC, 0xD3, 0x11,
                            0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
inline const Guid w64Bext { 0x62, 0x65, 0x78, 0x74, 0xF3, 0xAC, 0xD3, 0x11,
                            0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };

/** Little-endian bytes, appended field by field. */
struct Bytes
{
    std::string s;

    Bytes& Int(uint64_t value, int numBytes)
    {
        for (int i = 0; i < numBytes; ++i)
            s += char((value >> (8 * i)) & 0xFF);
        return *this;
    }
    Bytes& U8(uint64_t v) { return Int(v, 1); }
    Bytes& U16(uint64_t v) { return Int(v, 2); }
    Bytes& U24(uint64_t v) { return Int(v, 3); }
    Bytes& U32(uint64_t v) { return Int(v, 4); }
    Bytes& U64(uint64_t v) { return Int(v, 8); }
    Bytes& Text(const std::string& t) { s += t; return *this; }
    /** t followed by zero bytes up to width, or its first width bytes. */
    Bytes& Field(const std::string& t, size_t width)
    {
        s += t.substr(0, width) + std::string(width - std::min(width, t.size()), '\0');
        return *this;
    }
    Bytes& Id(const Guid& g) { s.append(g.begin(), g.end()); return *this; }
    Bytes& F32(float v) { uint32_t u; std::memcpy(&u, &v, 4); return U32(u); }
    Bytes& F64(double v) { uint64_t u; std::memcpy(&u, &v, 8); return U64(u); }
    operator std::string() const { return s; }
    friend std::string operator+(const std::string& a, const Bytes& b) { return a + b.s; }
    friend std::string operator+(const Bytes& a, const std::string& b) { return a.s + b; }
};

/** A RIFF chunk; sizeField replaces the stated size, and the pad byte follows an odd payload. */
inline std::string Chunk(const std::string& id, const std::string& payload, int64_t sizeField = -1)
{
    Bytes b;
    b.Text(id).U32(sizeField >= 0 ? uint64_t(sizeField) : payload.size()).Text(payload);
    if (payload.size() % 2 == 1)
        b.U8(0);
    return b;
}

inline std::string Fmt(uint16_t tag, int channels, int rate, int bits, int64_t bytesPerSecond = -1)
{
    const int blockAlign = channels * bits / 8;
    return Bytes().U16(tag).U16(uint16_t(channels)).U32(uint32_t(rate))
        .U32(uint32_t(bytesPerSecond >= 0 ? bytesPerSecond : int64_t(rate) * blockAlign))
        .U16(uint16_t(blockAlign)).U16(uint16_t(bits));
}

inline std::string Riff(const std::string& chunks, int64_t sizeField = -1)
{
    return Bytes().Text("RIFF").U32(sizeField >= 0 ? uint64_t(sizeField) : chunks.size() + 4).Text("WAVE").Text(chunks);
}

/** A Wave64 chunk, padded to 8 bytes; its size counts its 24-byte header. */
inline std::string W64Chunk(const Guid& id, const std::string& payload, int64_t sizeField = -1)
{
    Bytes b;
    b.Id(id).U64(sizeField >= 0 ? uint64_t(sizeField) : payload.size() + 24).Text(payload);
    while (b.s.size() % 8 != 0)
        b.U8(0);
    return b;
}

inline std::string Wave64(const std::string& chunks, int64_t sizeField = -1)
{
    return Bytes().Id(w64Riff).U64(sizeField >= 0 ? uint64_t(sizeField) : chunks.size() + 40).Id(w64Wave).Text(chunks);
}

inline std::string Pcm16(const std::vector<int>& samples)
{
    Bytes b;
    for (const int s : samples)
        b.U16(uint16_t(s));
    return b;
}

/** Writes WAV files into a fresh folder and opens them, with the reports of their refusals. */
class WavFileFixture : public ::testing::Test
{
protected:
    File Write(const std::string& bytes, const std::string& name = "test.wav")
    {
        WriteWholeFile(folder / name, bytes);
        return File(String(folder / name));
    }

    /** A reader of bytes, or null (and a failure) when it throws. */
    std::unique_ptr<WavFileReader> Open(const std::string& bytes)
    {
        const File file = Write(bytes);
        StreamCapture err(std::cerr);
        std::unique_ptr<WavFileReader> reader;
        EXPECT_EQ(MessageOf([&] { reader = std::make_unique<WavFileReader>(file); }), "(no exception)");
        return reader;
    }

    /** The message the reader throws for bytes, checked to be the one it reported on stderr. */
    std::string Refusal(const std::string& bytes)
    {
        const File file = Write(bytes);
        StreamCapture err(std::cerr);
        const std::string message = MessageOf([&] { WavFileReader { file }; });
        EXPECT_NE(err.GetText().find(message), std::string::npos) << err.GetText();
        return message;
    }

    TemporaryFolder folder;
};

} // namespace kvo::testing
