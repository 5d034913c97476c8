#include "audiofiles/KvoMp3Synthesis.h"

#include <algorithm>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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

/** The four lanes of each of four rows added up, each row as (0 + 2) + (1 + 3), by a transpose. */
inline Floats AddLanes(const Floats (&lanes)[4]) noexcept
{
    const Floats firstPair = Pick<0, 4, 1, 5>(lanes[0], lanes[1]) + Pick<2, 6, 3, 7>(lanes[0], lanes[1]);
    const Floats secondPair = Pick<0, 4, 1, 5>(lanes[2], lanes[3]) + Pick<2, 6, 3, 7>(lanes[2], lanes[3]);
    return Pick<0, 1, 4, 5>(firstPair, secondPair) + Pick<2, 3, 6, 7>(firstPair, secondPair);
}

/**
    Four rows of window sums at once: each row's 16 window x history products fold into four
    lanes, (k + (k + 8)) + ((k + 4) + (k + 12)), and the lanes then add as AddLanes does.
*/
inline Floats WindowFourRows(const float* window, const float* history, int historyStep) noexcept
{
    Floats lanes[4];
    for (int row = 0; row < 4; ++row)
    {
        const float* w = window + 32 * row;
        const float* h = history + historyStep * row;
        const Floats p0 = Load(w) * Load(h);
        const Floats p1 = Load(w + 4) * Load(h + 4);
        const Floats p2 = Load(w + 8) * Load(h + 8);
        const Floats p3 = Load(w + 12) * Load(h + 12);
        lanes[row] = (p0 + p2) + (p1 + p3);
    }
    return AddLanes(lanes);
}

#if defined(__x86_64__)
#define KVO_MP3_WIDE_FILTERBANK 1

/**
    The same four rows eight floats a step, for processors with AVX: taps k and k + 8 multiply
    and add in one step, and the two halves then add as the plain version's pairs (k, k + 4)
    do, so the sums are the same to the bit.
*/
__attribute__((target("avx"))) inline Floats WindowFourRowsWide(const float* window, const float* history,
                                                                 int historyStep) noexcept
{
    Floats lanes[4];
    for (int row = 0; row < 4; ++row)
    {
        const float* w = window + 32 * row;
        const float* h = history + historyStep * row;
        const __m256 front = _mm256_mul_ps(_mm256_loadu_ps(w), _mm256_loadu_ps(h));
        const __m256 folded = _mm256_add_ps(front, _mm256_mul_ps(_mm256_loadu_ps(w + 8), _mm256_loadu_ps(h + 8)));
        lanes[row] = Floats(_mm_add_ps(_mm256_castps256_ps128(folded), _mm256_extractf128_ps(folded, 1)));
    }
    return AddLanes(lanes);
}

#endif

/**
    rows sums of 16 window x history products, the window rows 32 floats apart and the history
    rows historyStep apart; negated when negate is set. Groups of four rows; a last partial group
    is computed from the row count less four, so that it reads no row beyond the last and writes
    its first rows again with the same values.
*/
template <int rows, bool negate, bool wide>
inline void WindowRows(const float* window, const float* history, int historyStep, float* out) noexcept
{
    static_assert(rows >= 4);
    for (int row = 0; row < rows; row += 4)
    {
        const int first = std::min(row, rows - 4);
        const float* w = window + 32 * first;
        const float* h = history + historyStep * first;
        Floats sums;
#if defined(KVO_MP3_WIDE_FILTERBANK)
        if constexpr (wide)
            sums = WindowFourRowsWide(w, h, historyStep);
        else
#endif
            sums = WindowFourRows(w, h, historyStep);
        Store(out + first, negate ? -sums : sums);
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
        first[16 * row] = values[16 - row];
    for (int row = 0; row < 16; ++row)
        second[16 * row] = values[16 + row];
}

#if defined(KVO_MP3_WIDE_FILTERBANK)
/** The same transform in AVX's three-operand instructions, the same arithmetic. */
__attribute__((target("avx"), flatten)) void Dct32Wide(float* first, float* second, const float* in) noexcept
{
    Dct32(first, second, in);
}
#endif

/** The 32 samples of a row from the history, rotation its newest slot's place in the window. */
template <bool wide>
inline void WindowSamples(const float* history, int rotation, float* samples) noexcept
{
    // The window is stored twice over, so starting it rotation entries early reads the history
    // in its rotated order without any wrapping.
    const WorkingWindows& windows = GetWorkingWindows();
    const int start = 16 - rotation;
    WindowRows<16, false, wide>(windows.alternated + start, history, 16, samples);

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
    WindowRows<15, true, wide>(windows.reversed + 48 - rotation, history + 240, -16, samples + 17);
}

void WindowSamplesPlain(const float* history, int rotation, float* samples) noexcept
{
    WindowSamples<false>(history, rotation, samples);
}

#if defined(KVO_MP3_WIDE_FILTERBANK)
__attribute__((target("avx"), flatten)) void WindowSamplesWide(const float* history, int rotation,
                                                                float* samples) noexcept
{
    WindowSamples<true>(history, rotation, samples);
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
        fastDct32(halves[1] + ((offset + 1) & 15), halves[0] + offset, subbands);
    }
    else
    {
        readHalf = 1;
        rotation = offset + 1;
        fastDct32(halves[0] + offset, halves[1] + rotation, subbands);
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
