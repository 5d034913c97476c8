// The MPEG audio part of the test kit: fixtures and their reference decodes, frames written
// bit by bit, and the accuracy bound of full-accuracy decoders.

#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KvoTestUtilities.h"
#include "audiofiles/KvoMP3FileReader.h"

namespace kvo::testing
{

/** A file of tests/data/mp3 or tests/data/mp2, named with its folder: "mp2/alloc-a.mp2". */
inline std::string MpegData(const std::string& name)
{
    return std::string(KVO_TEST_DATA_DIR) + "/" + name;
}

/** A reference decode: mpg123's 32-bit floats, interleaved. */
inline std::vector<float> ReadFloats(const std::string& path)
{
    const std::string bytes = ReadWholeFile(path);
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
    return values;
}

/** The first numSamples sample frames of the MPEG file at path. */
inline ChannelRead DecodeMpeg(const std::string& path, uint64_t numSamples)
{
    MP3FileReader reader {File(String(path))};
    return ReadChannels(reader, 0, numSamples);
}

/** True when samples are all 0 from from on. */
inline bool AllZero(const std::vector<float>& samples, size_t from = 0)
{
    return std::all_of(samples.begin() + int64_t(std::min(from, samples.size())), samples.end(),
                       [](float s) { return s == 0.0f; });
}

/**
    The accuracy limits of full-accuracy MPEG audio decoders (ISO/IEC 11172-4), relative to
    full scale 1.0: an RMS difference below 2^-15 / sqrt(12) and none above 2^-14. The
    reference is interleaved and holds every stride-th sample frame of the decode.
*/
inline void ExpectFullAccuracy(const std::vector<float>& reference, const ChannelRead& decoded, size_t stride)
{
    const size_t channels = decoded.channels.size();
    ASSERT_GT(reference.size(), 0u);
    double sumSquares = 0.0, worst = 0.0;
    for (size_t i = 0; i < reference.size(); ++i)
    {
        const float sample = decoded.channels.at(i % channels).at(i / channels * stride);
        sumSquares += (double(sample) - reference[i]) * (double(sample) - reference[i]);
        worst = std::max(worst, std::abs(double(sample) - reference[i]));
    }
    EXPECT_LT(std::sqrt(sumSquares / double(reference.size())), std::ldexp(1.0, -15) / std::sqrt(12.0));
    EXPECT_LT(worst, std::ldexp(1.0, -14));
}

/** Bits appended most significant first, as MPEG streams hold them. */
struct BitWriter
{
    std::string bytes;
    int32_t used = 0;

    BitWriter& Put(uint32_t value, int32_t count)
    {
        for (int32_t i = count - 1; i >= 0; --i, ++used)
        {
            if (used % 8 == 0)
                bytes.push_back('\0');
            bytes.back() = char(uint8_t(bytes.back()) | ((value >> i) & 1) << (7 - used % 8));
        }
        return *this;
    }
};

/** The header word of an MPEG-1 frame without CRC: layer 1 to 3, bitrate and rate indices, mode. */
inline BitWriter Mpeg1Header(int layer, int bitrateIndex, int rateIndex, int mode)
{
    BitWriter w;
    w.Put(0xFFF, 12).Put(1, 1).Put(uint32_t(4 - layer), 2).Put(1, 1);
    w.Put(uint32_t(bitrateIndex), 4).Put(uint32_t(rateIndex), 2).Put(0, 2).Put(uint32_t(mode), 2).Put(0, 6);
    return w;
}

} // namespace kvo::testing
