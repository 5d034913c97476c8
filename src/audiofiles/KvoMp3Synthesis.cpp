#include "audiofiles/KvoMp3Synthesis.h"

#include <algorithm>

#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

/*
    The 32-point DCT-II splits, group by group, into the DCT of the mirrored sums (the even
    outputs) and the DCT of the mirrored differences divided by 2 cos(pi (2k + 1) / 2n) (the odd
    outputs, as sums of neighbours). Done level by level over whole arrays, each stage is a plain
    loop over fixed indices: five butterfly stages down to single values, then four stages that
    interleave the halves back into outputs (a group of two is already in order).
*/

/** One butterfly stage: each group of n values becomes its mirrored sums, then its scaled differences. */
template <int n>
inline void Butterflies(const float* in, float* out, const float* factors) noexcept
{
    constexpr int half = n / 2;
    for (int g = 0; g < 32; g += n)
    {
        for (int k = 0; k < half; ++k)
        {
            out[g + k] = in[g + k] + in[g + n - 1 - k];
            out[g + half + k] = (in[g + k] - in[g + n - 1 - k]) * factors[k];
        }
    }
}

/** One recombination stage: even outputs from the first half, odd ones as sums of neighbours of the second. */
template <int n>
inline void Recombine(const float* in, float* out) noexcept
{
    constexpr int half = n / 2;
    for (int g = 0; g < 32; g += n)
    {
        for (int i = 0; i < half; ++i)
        {
            out[g + 2 * i] = in[g + i];
            out[g + 2 * i + 1] = in[g + half + i] + (i + 1 < half ? in[g + half + i + 1] : 0.0f);
        }
    }
}

/**
    rows sums of 16 window x history products, the window rows 32 floats apart and the history
    rows historyStep apart; negated when negate is set. Each row's products fold into four
    lanes (k with k + 8, then with k + 4) in one loop over contiguous floats, and the lanes then
    add in pairs: (0 + 2) + (1 + 3).
*/
template <int rows, bool negate>
inline void WindowRows(const float* window, const float* history, int historyStep, float* out) noexcept
{
    float lanes[rows][4];
    for (int row = 0; row < rows; ++row)
    {
        const float* w = window + 32 * row;
        const float* h = history + historyStep * row;
        for (int k = 0; k < 4; ++k)
            lanes[row][k] = (w[k] * h[k] + w[k + 8] * h[k + 8]) + (w[k + 4] * h[k + 4] + w[k + 12] * h[k + 12]);
    }
    for (int row = 0; row < rows; ++row)
    {
        const float sum = (lanes[row][0] + lanes[row][2]) + (lanes[row][1] + lanes[row][3]);
        out[row] = negate ? -sum : sum;
    }
}

/**
    Two working copies of the window. The first half of the outputs sums its 16 taps with
    alternating signs, plus on even taps; the taps always start at an odd entry of the window
    (the rotation is odd), so the signs belong to the entries: alternated[x] is the window with
    its even entries negated. The second half of the outputs reads the window downwards from the
    entry before its start; reversed holds it back to front so that it reads upwards.
*/
struct WorkingWindows
{
    float alternated[544];
    float reversed[544];
};

const WorkingWindows& GetWorkingWindows()
{
    static const WorkingWindows windows = [] {
        WorkingWindows result;
        const float* window = GetMp3Tables().synthWindow;
        for (int i = 0; i < 544; ++i)
        {
            result.alternated[i] = (i & 1) != 0 ? window[i] : -window[i];
            result.reversed[i] = window[543 - i];
        }
        return result;
    }();
    return windows;
}

} // namespace

void Mp3SynthesisState::reset() noexcept
{
    std::fill(&synthBuffers[0][0][0], &synthBuffers[0][0][0] + 2 * 2 * 272, 0.0f);
    synthOffset = 1;
}

void fastDct32(float* first, float* second, const float* in)
{
    const float (*factors)[16] = GetMp3Tables().synthCosTables;
    float a[32];
    float b[32];
    Butterflies<32>(in, a, factors[0]);
    Butterflies<16>(a, b, factors[1]);
    Butterflies<8>(b, a, factors[2]);
    Butterflies<4>(a, b, factors[3]);
    Butterflies<2>(b, a, factors[4]);
    Recombine<4>(a, b);
    Recombine<8>(b, a);
    Recombine<16>(a, b);
    float values[32];
    Recombine<32>(b, values);
    for (int row = 0; row < 17; ++row)
        first[16 * row] = values[16 - row];
    for (int row = 0; row < 16; ++row)
        second[16 * row] = values[16 + row];
}

void synthesise(Mp3SynthesisState& state, const float* subbands, int channel, float* out, int& samplesDone)
{
    // Channel 0 turns the history by one slot; channel 1 follows in the slot just chosen.
    int offset = state.synthOffset;
    if (channel == 0)
        offset = (offset - 1) & 15;
    state.synthOffset = offset;

    float (&halves)[2][272] = state.synthBuffers[channel];
    int readHalf;
    int rotation;
    if ((offset & 1) != 0)
    {
        readHalf = 0;
        rotation = offset;
        fastDct32(halves[1] + ((offset + 1) & 15), halves[0] + offset, subbands);
    }
    else
    {
        readHalf = 1;
        rotation = offset + 1;
        fastDct32(halves[0] + offset, halves[1] + rotation, subbands);
    }

    // The window is stored twice over, so starting it rotation entries early reads the history
    // in its rotated order without any wrapping.
    const WorkingWindows& windows = GetWorkingWindows();
    const int start = 16 - rotation;
    const float* history = halves[readHalf];
    float* samples = out + samplesDone;
    WindowRows<16, false>(windows.alternated + start, history, 16, samples);

    // Row 16 takes the even taps alone.
    const float* window = GetMp3Tables().synthWindow + start + 512;
    float centre = 0.0f;
    for (int k = 0; k < 16; k += 2)
        centre += window[k] * history[256 + k];
    samples[16] = centre;

    // Rows 17 to 31: minus the sum over k of window[-1 - k] x history[k], the window starting at
    // entry 496 + rotation and falling by 32 a row while the history climbs down from row 15; in
    // the reversed copy, that reads upwards from 48 - rotation. The 16th tap is window[-16], the
    // stored twin of window[0].
    WindowRows<15, true>(windows.reversed + 48 - rotation, history + 240, -16, samples + 17);
    samplesDone += 32;
}

} // namespace kvo
