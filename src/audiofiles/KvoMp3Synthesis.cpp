#include "audiofiles/KvoMp3Synthesis.h"

#include <algorithm>

#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

/**
    The DCT-II of n points, split into the DCT of the mirrored sums (the even outputs) and the
    DCT of the mirrored differences, each divided by 2 cos(pi (2k + 1) / 2n) (the odd outputs,
    as sums of neighbours). factors holds the divisors' reciprocals of this size and below.
*/
template <int n>
struct Dct
{
    static void run(const float* in, float* out, const float (*factors)[16]) noexcept
    {
        constexpr int half = n / 2;
        float sums[half];
        float differences[half];
        for (int k = 0; k < half; ++k)
        {
            sums[k] = in[k] + in[n - 1 - k];
            differences[k] = (in[k] - in[n - 1 - k]) * factors[0][k];
        }
        float even[half];
        float odd[half + 1];
        Dct<half>::run(sums, even, factors + 1);
        Dct<half>::run(differences, odd, factors + 1);
        odd[half] = 0.0f;
        for (int i = 0; i < half; ++i)
        {
            out[2 * i] = even[i];
            out[2 * i + 1] = odd[i] + odd[i + 1];
        }
    }
};

template <>
struct Dct<1>
{
    static void run(const float* in, float* out, const float (*)[16]) noexcept { out[0] = in[0]; }
};

/** Sum of window x history over 16 taps, signs alternating from plus; the lanes keep it vectorisable. */
inline float AlternatingTaps(const float* window, const float* history) noexcept
{
    float lanes[8] = {};
    for (int k = 0; k < 16; k += 8)
        for (int lane = 0; lane < 8; ++lane)
            lanes[lane] += window[k + lane] * history[k + lane];
    return ((lanes[0] - lanes[1]) + (lanes[2] - lanes[3])) + ((lanes[4] - lanes[5]) + (lanes[6] - lanes[7]));
}

/** The even taps of a row alone: the centre output, where the odd taps meet zeros of the window. */
inline float EvenTaps(const float* window, const float* history) noexcept
{
    float sum = 0.0f;
    for (int k = 0; k < 16; k += 2)
        sum += window[k] * history[k];
    return sum;
}

/** The second half of the outputs reads the window backwards from window[-1], then window[0] last. */
inline float ReversedTaps(const float* window, const float* history) noexcept
{
    float lanes[8] = {};
    for (int k = 0; k < 8; ++k)
        lanes[k] = window[-1 - k] * history[k];
    for (int k = 0; k < 7; ++k)
        lanes[k] += window[-9 - k] * history[8 + k];
    lanes[7] += window[0] * history[15];
    return -(((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + ((lanes[4] + lanes[5]) + (lanes[6] + lanes[7])));
}

} // namespace

void Mp3SynthesisState::reset() noexcept
{
    std::fill(&synthBuffers[0][0][0], &synthBuffers[0][0][0] + 2 * 2 * 272, 0.0f);
    synthOffset = 1;
}

void fastDct32(float* first, float* second, const float* in)
{
    float values[32];
    Dct<32>::run(in, values, GetMp3Tables().synthCosTables);
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
    const float* window = GetMp3Tables().synthWindow + 16 - rotation;
    const float* history = halves[readHalf];
    float* samples = out + samplesDone;
    for (int row = 0; row < 16; ++row, window += 32, history += 16)
        samples[row] = AlternatingTaps(window, history);
    samples[16] = EvenTaps(window, history);

    window += 2 * rotation - 32;
    history -= 16;
    for (int row = 17; row < 32; ++row, window -= 32, history -= 16)
        samples[row] = ReversedTaps(window, history);
    samplesDone += 32;
}

} // namespace kvo
