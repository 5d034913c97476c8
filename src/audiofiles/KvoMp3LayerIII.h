#pragma once

#include <cstdint>

#include "audiofiles/KvoMp3Frame.h"

namespace kvo
{

class Mp3DecoderState;

/**
    Decodes the Layer III frame whose side information the state holds: up to 1152 samples
    a channel (576 at the low rates) through the synthesis filter. A frame that needs a
    reservoir it does not have yields nothing; one whose Huffman data overrun their bits
    ends at that granule.
*/
void decodeLayer3Frame(Mp3DecoderState& state, float* out0, float* out1, int32_t& samplesDone);

/** MPEG-1 scale factors of one granule into scaleFactors (39 entries); returns the bits read. */
int32_t readScaleFactorsMpeg1(Mp3BitReader& bits, int32_t* scaleFactors, const Mp3GranuleInfo& info);

/** MPEG-2 scale factors; intensityChannel picks the intensity length table. Sets preflag. Returns the bits read. */
int32_t readScaleFactorsLowRate(Mp3BitReader& bits, int32_t* scaleFactors, Mp3GranuleInfo& info,
                                bool intensityChannel);

/**
    Huffman-decodes and dequantises one granule of one channel into 576 lines (short
    blocks stored interleaved, window fastest), and sets maxBand and maxb. True when the
    granule's bits ran out before its codes did.
*/
bool dequantise(Mp3BitReader& bits, float* spectrum, const int32_t* scaleFactors, Mp3GranuleInfo& info,
                int32_t sampleRateIndex, int32_t part2Bits);

/** Intensity stereo over the right channel's silent bands, from the left channel's lines. */
void applyIntensity(float* left, float* right, const int32_t* scaleFactors, const Mp3GranuleInfo& info,
                    int32_t sampleRateIndex, bool msStereo, int32_t lowRate);

} // namespace kvo
