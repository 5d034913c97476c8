#pragma once

#include <cstdint>

#include "audiofiles/KvoMp3Frame.h"
#include "audiofiles/KvoMp3Synthesis.h"

namespace kvo
{

/**
    Decode one Layer I frame (384 samples a channel) or one Layer II frame (1152) from the
    cursor, behind the CRC word, on the parts of the decoder they use: the frame's header
    (Layer II records its allocation table there), the bit cursor and the filterbank history.
    Samples go to out0 and out1 at samplesDone, both channels or the one channelSelect asks for.
*/
void decodeLayer1(const Mp3FrameHeader& header, Mp3BitReader& bits, Mp3SynthesisState& synthesis, float* out0,
                  float* out1, int32_t& samplesDone);
void decodeLayer2(Mp3FrameHeader& header, Mp3BitReader& bits, Mp3SynthesisState& synthesis, float* out0,
                  float* out1, int32_t& samplesDone);

/** Rows of layer12Factors: one per plain code width of 3 to 16 bits, and the grouped levels. */
constexpr int32_t layer12FactorRows = 27;

/**
    The ready-made dequantisation factors and the tables of grouped codes, built once and
    read-only after.
*/
struct Layer12Tables
{
    /** Row k, entry i (i below 63): m[k] x 2^((3 - i) / 3); entry 63, a scale factor index that does not exist, is 0. */
    float layer12Factors[layer12FactorRows][64];
    /**
        For 3, 5 and 9 levels: the three factor rows a grouped code stands for, first sample
        first; one entry more than there are codes, three zeros, takes every code past the end.
    */
    uint8_t group3[27 + 1][3];
    uint8_t group5[125 + 1][3];
    uint8_t group9[729 + 1][3];
};

const Layer12Tables& GetLayer12Tables();

/** One Layer II bit allocation table: for each sub-band 2^n pairs, the first holding n, pair a (bits, d). */
struct Layer2AllocationTable
{
    int32_t subbands;
    const int16_t* pairs;
    int32_t numPairs;
};

/** Number of the allocation tables: four of MPEG-1 and the one of the low rates. */
constexpr int32_t layer2NumAllocationTables = 5;

const Layer2AllocationTable& GetLayer2AllocationTable(int32_t index);

/**
    The table a frame uses: for MPEG-1 chosen by sample rate (index 0 to 2), channel case
    (2 - numChannels) and bitrate index; for the low rates always table 4.
*/
int32_t ChooseLayer2AllocationTable(const Mp3FrameHeader& header);

} // namespace kvo
