#pragma once

#include <cstdint>

#include "audiofiles/KvoMp3Frame.h"
#include "audiofiles/KvoMp3Synthesis.h"

namespace kvo
{

/** What Layer III keeps from granule to granule and frame to frame, besides the synthesis history. */
struct Mp3Layer3State
{
    alignas(32) float overlapBlocks[2][2][18][32] = {}; ///< [half][channel][row][sub-band], as the hybrid array
    int32_t blockIndex[2] = {};          ///< per channel, the half holding the last granule's overlap
    alignas(32) float spectrum[2][576] = {};
    alignas(32) float hybrid[2][18][32] = {}; ///< [channel][row][sub-band]

    /** Silence in the overlap, as at the start of a stream. */
    void reset() noexcept;
};

/**
    Decodes a Layer III frame from its side information and the main data at the cursor (the
    reservoir already in front of them): up to 1152 samples a channel (576 at the low rates)
    through the synthesis filter, both channels or the one channelSelect asks for. A frame
    whose Huffman data overrun their bits ends at that granule.
*/
void decodeLayer3(const Mp3FrameHeader& header, Mp3SideInfo& sideInfo, Mp3BitReader& bits, Mp3Layer3State& layer3,
                  Mp3SynthesisState& synthesis, float* out0, float* out1, int32_t& samplesDone);

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
