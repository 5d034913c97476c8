#include "audiofiles/KvoMp3Synthesis.h"

#include <algorithm>
#include <cstring>

#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

/*
    The 32-point DCT-II splits, group by group, into the DCT of the mirrored sums (the even
    outputs) and the DCT of the mirrored differences divided by 2 cos(pi (2k + 1) / 2n) (the odd
    outputs, as sums of neighbours). Done level by level over whole arrays, each stage is a loop
    over fixed indices, four floats a step: five butterfly stages down to single values, then
    four stages that interleave the halves back into outputs (a group of two is already in order).
    The vectors are the compiler's own (SSE on x86_64, NEON on Arm): each lane does what one
    float of a plain loop would, in the same order, so the results do not depend on the target.
*/

using mp3vector::Floats;
using mp3vector::Load;
using mp3vector::Pick;
using mp3vector::Store;

/** One butterfly stage: each group of n values becomes its mirrored sums, then its scaled differences. */
template <int n>
inline void Butterflies(const float* in, float* out, const float* factors) noexcept
{
    constexpr int half = n / 2;
    if constexpr (n <= 4)
    {
        // Groups of 4 keep their sums low and their differences high; groups of 2 alternate.
        // A difference taken the other way round is only negated, and dropped.
        const Floats scale = { factors[0], factors[half - 1], factors[0], factors[half - 1] };
        for (int g = 0; g < 32; g += 4)
        {
            const Floats values = Load(in + g);
            const Floats mirror = n == 4 ? Pick<3, 2, 1, 0>(values, values) : Pick<1, 0, 3, 2>(values, values);
            const Floats sums = values + mirror;
            const Floats differences = (values - mirror) * scale;
            Store(out + g, n == 4 ? Pick<0, 1, 4, 5>(sums, differences) : Pick<0, 4, 2, 6>(sums, differences));
        }
    }
    else
    {
        for (int g = 0; g < 32; g += n)
        {
            for (int k = 0; k < half; k += 4)
            {
                const Floats low = Load(in + g + k);
                const Floats high = Load(in + g + n - 4 - k);
                const Floats mirrored = Pick<3, 2, 1, 0>(high, high);
                Store(out + g + k, low + mirrored);
                Store(out + g + half + k, (low - mirrored) * Load(factors + k));
            }
        }
    }
}

/**
    One recombination stage: even outputs from the first half, odd ones as sums of neighbours
    of the second; the last odd output of a group adds 0.
*/
template <int n>
inline void Recombine(const float* in, float* out) noexcept
{
    constexpr int half = n / 2;
    const Floats zero = {};
    if constexpr (n == 4)
    {
        // Each group of 4 becomes in0, in2 + in3, in1, in3 + 0.
        for (int g = 0; g < 32; g += 4)
        {
            const Floats values = Load(in + g);
            const Floats sums = values + Pick<1, 2, 3, 4>(values, zero);
            Store(out + g, Pick<0, 6, 1, 7>(values, sums));
        }
    }
    else
    {
        for (int g = 0; g < 32; g += n)
        {
            for (int i = 0; i < half; i += 4)
            {
                const Floats even = Load(in + g + i);
                const Floats odd = Load(in + g + half + i);
                const Floats next = i + 4 < half ? Load(in + g + half + i + 1) : Pick<1, 2, 3, 4>(odd, zero);
                const Floats sums = odd + next;
                Store(out + g + 2 * i, Pick<0, 4, 1, 5>(even, sums));
                Store(out + g + 2 * i + 4, Pick<2, 6, 3, 7>(even, sums));
            }
        }
    }
}

constexpr int historyRows = 17; // floats a slot of the history

#if defined(__x86_64__)
#define KVO_MP3_WIDE_FILTERBANK 1
#endif

/*
    The window sums 16 taps for each of the 32 samples of a row. The history is stored slot by
    slot, so that one tap of neighbouring sample rows is a run of floats: a vector holds one tap
    of four (SSE) or eight (AVX) samples, and the 16 taps add up lane by lane with no shuffle,
    in the order the samples have always been summed in, ((k + (k + 8)) + ((k + 4) + (k + 12)))
    paired as (0 + 2) + (1 + 3) over k from 0 to 3. The window is held tap by tap for the same
    reads.
*/

/**
    The working copies of the window, tap by tap. The first half of the samples sums its taps with
    alternating signs, plus on even taps; the taps always start at an odd entry of the window (the
    rotation is odd), so the signs belong to the entries: firstHalf[x][r] is entry x + 32 r with
    its even entries negated. The second half reads the window downwards from the entry before its
    start, history row h giving sample 32 - h: secondHalf[x][h] is entry 543 - x - 32 (16 - h).
*/
struct TapWindows
{
    alignas(32) float firstHalf[32][16];
    alignas(32) float secondHalf[32][historyRows];
};

const TapWindows& GetTapWindows()
{
    static const TapWindows windows = [] {
        TapWindows result;
        const float* window = GetMp3Tables().synthWindow;
        for (int x = 0; x < 32; ++x)
        {
            for (int row = 0; row < 16; ++row)
                result.firstHalf[x][row] = (x & 1) != 0 ? window[x + 32 * row] : -window[x + 32 * row];
            for (int row = 0; row < historyRows; ++row)
                result.secondHalf[x][row] = window[543 - x - 32 * (16 - row)];
        }
        return result;
    }();
    return windows;
}

/**
    sums = the 16 taps of as many neighbouring rows as a vector holds, from the first at history
    and window: tap k from history slot k and window row k, windowStride floats apart.
*/
template <int windowStride, typename V>
inline void SumTaps(const float* history, const float* window, V& sums) noexcept
{
    using mp3vector::LoadLanes;
    V products[16];
    for (int k = 0; k < 16; ++k)
    {
        V taps;
        V weights;
        LoadLanes(taps, history + historyRows * k);
        LoadLanes(weights, window + windowStride * k);
        products[k] = taps * weights;
    }
    V lanes[4];
    for (int j = 0; j < 4; ++j)
        lanes[j] = (products[j] + products[j + 8]) + (products[j + 4] + products[j + 12]);
    sums = (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
}

/** The lanes of v back to front. */
template <typename V>
inline void Reverse(V& v) noexcept
{
    if constexpr (sizeof(V) == 16)
        v = __builtin_shufflevector(v, v, 3, 2, 1, 0);
    else
        v = __builtin_shufflevector(v, v, 7, 6, 5, 4, 3, 2, 1, 0);
}

/** The 32 samples of a row from the history, rotation its newest slot's place in the window. */
template <typename V>
inline void WindowSamples(const float* history, int rotation, float* samples) noexcept
{
    // The window is stored twice over, so starting it rotation entries early reads the history
    // in its rotated order without any wrapping.
    constexpr int lanes = mp3vector::lanesOf<V>;
    const TapWindows& windows = GetTapWindows();
    const int start = 16 - rotation;
    for (int row = 0; row < 16; row += lanes)
    {
        V sums;
        SumTaps<16>(history + row, windows.firstHalf[start] + row, sums);
        mp3vector::StoreLanes(samples + row, sums);
    }
    // History rows 1 to 16 give samples 31 down to 16, minus their sums; sample 16 is then
    // written over by the centre row.
    for (int row = 1; row < historyRows; row += lanes)
    {
        V sums;
        SumTaps<historyRows>(history + row, windows.secondHalf[start] + row, sums);
        sums = -sums;
        Reverse(sums);
        mp3vector::StoreLanes(samples + 33 - row - lanes, sums);
    }

    // The centre row takes the even taps alone.
    const float* window = GetMp3Tables().synthWindow + start + 512;
    float centre = 0.0f;
    for (int k = 0; k < 16; k += 2)
        centre += window[k] * history[historyRows * k + 16];
    samples[16] = centre;
}

inline void Dct32(float* first, float* second, const float* in) noexcept
{
    const float (*factors)[16] = GetMp3Tables().synthCosTables;
    float a[32];
    float b[32];
    float values[32];
    Butterflies<32>(in, a, factors[0]);
    Butterflies<16>(a, b, factors[1]);
    Butterflies<8>(b, a, factors[2]);
    Butterflies<4>(a, b, factors[3]);
    Butterflies<2>(b, a, factors[4]);
    Recombine<4>(a, b);
    Recombine<8>(b, a);
    Recombine<16>(a, b);
    Recombine<32>(b, values);
    for (int row = 0; row < 17; ++row)
        first[row] = values[16 - row];
    for (int row = 0; row < 16; ++row)
        second[row] = values[16 + row];
}

#if defined(KVO_MP3_WIDE_FILTERBANK)
/** The same transform in AVX's three-operand instructions, the same arithmetic. */
__attribute__((target("avx"), flatten)) void Dct32Wide(float* first, float* second, const float* in) noexcept
{
    Dct32(first, second, in);
}
#endif

void WindowSamplesPlain(const float* history, int rotation, float* samples) noexcept
{
    WindowSamples<Floats>(history, rotation, samples);
}

#if defined(KVO_MP3_WIDE_FILTERBANK)
/** Eight samples a step, for processors with AVX, the same sums in every lane. */
__attribute__((target("avx"), flatten)) void WindowSamplesWide(const float* history, int rotation,
                                                                float* samples) noexcept
{
    WindowSamples<mp3vector::Floats8>(history, rotation, samples);
}
#endif

} // namespace

#if defined(KVO_MP3_WIDE_FILTERBANK)
bool mp3WideFilterbank = __builtin_cpu_supports("avx");
#else
bool mp3WideFilterbank = false;
#endif

void Mp3SynthesisState::reset() noexcept
{
    std::fill(&synthBuffers[0][0][0], &synthBuffers[0][0][0] + 2 * 2 * 272, 0.0f);
    synthOffset = 1;
}

void fastDct32(float* first, float* second, const float* in)
{
#if defined(KVO_MP3_WIDE_FILTERBANK)
    if (mp3WideFilterbank)
    {
        Dct32Wide(first, second, in);
        return;
    }
#endif
    Dct32(first, second, in);
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
        fastDct32(halves[1] + historyRows * ((offset + 1) & 15), halves[0] + historyRows * offset, subbands);
    }
    else
    {
        readHalf = 1;
        rotation = offset + 1;
        fastDct32(halves[0] + historyRows * offset, halves[1] + historyRows * rotation, subbands);
    }

    float* samples = out + samplesDone;
#if defined(KVO_MP3_WIDE_FILTERBANK)
    if (mp3WideFilterbank)
        WindowSamplesWide(halves[readHalf], rotation, samples);
    else
#endif
        WindowSamplesPlain(halves[readHalf], rotation, samples);
    samplesDone += 32;
}

} // namespace kvo
