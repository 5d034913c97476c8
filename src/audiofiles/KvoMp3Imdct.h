#pragma once

namespace kvo
{

/** Distance in floats between consecutive outputs of one sub-band in the hybrid array (18 rows of 32). */
constexpr int mp3HybridStride = 32;

/**
    The 36-point IMDCT of one sub-band's 18 lines with its window and overlap-add.
    in: 18 lines (may serve as work space). overlapIn: the 18 values the last granule
    left; overlapOut: the 18 values for the next one (a different array). window: one row of
    imdctWindow or imdctWindowOdd (36 floats). out: the sub-band's column of the hybrid array,
    written at out[i * mp3HybridStride] for i from 0 to 17.
*/
void imdct36(float* in, float* overlapIn, float* overlapOut, const float* window, float* out);

/**
    The three 12-point IMDCTs of a short block, with the same arguments as imdct36. The lines of
    window w are in[w], in[w + 3], ...; window must be row 2 of imdctWindow or imdctWindowOdd.
    Outputs 0 to 5 are the old overlap alone, and the last 6 values of the new overlap are 0.
*/
void imdct12(float* in, float* overlapIn, float* overlapOut, const float* window, float* out);

} // namespace kvo
