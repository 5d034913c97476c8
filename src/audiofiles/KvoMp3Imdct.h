#pragma once

namespace kvo
{

/** Distance in floats between the rows of the hybrid array and of the overlap (18 rows of 32 sub-bands). */
constexpr int mp3HybridStride = 32;

/** What the hybrid filterbank needs to know of a granule. */
struct Mp3HybridBlock
{
    int blockType = 0; ///< 0 to 3; 2 is three short blocks
    bool mixed = false; ///< sub-bands 0 and 1 long, with the window of block type 0
    int limit = 0;      ///< sub-bands from here on hold no lines (those of a pair with one that does excepted)
};

/**
    The hybrid filterbank of one channel's granule: each sub-band's 18 lines (lines, 576) through
    the IMDCT (36 points, or three of 12 for short blocks), windowed, frequency-inverted in the
    odd sub-bands, and overlapped with what the last granule left (overlapIn) into out; the
    second halves go to overlapOut (a different array) for the next granule. Silent sub-bands
    only release overlapIn and leave 0. overlapIn, overlapOut and out are 18 rows of 32 sub-bands.
*/
void hybridFilterbank(const float* lines, const Mp3HybridBlock& block, const float* overlapIn, float* overlapOut,
                      float* out);

} // namespace kvo
