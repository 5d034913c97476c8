#include "audiofiles/KvoMp3Synthesis.h"

#include <algorithm>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

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

#if defined(__SSE2__)

/** Four floats in reverse order. */
inline __m128 Reversed(__m128 values) noexcept
{
    return _mm_shuffle_ps(values, values, _MM_SHUFFLE(0, 1, 2, 3));
}

/** Butterflies four values a step: the same sums and products as the scalar stage. */
template <int n>
inline void ButterfliesVector(const float* in, float* out, const float* factors) noexcept
{
    constexpr int half = n / 2;
    if constexpr (n <= 4)
    {
        // Groups of 4 keep their sums low and their differences high; groups of 2 alternate.
        // A difference taken the other way round is only negated, and dropped.
        const __m128 scale = _mm_setr_ps(factors[0], factors[half - 1], factors[0], factors[half - 1]);
        for (int g = 0; g < 32; g += 4)
        {
            const __m128 values = _mm_loadu_ps(in + g);
            const __m128 mirror = n == 4 ? Reversed(values) : _mm_shuffle_ps(values, values, _MM_SHUFFLE(2, 3, 0, 1));
            const __m128 sums = _mm_add_ps(values, mirror);
            const __m128 differences = _mm_mul_ps(_mm_sub_ps(values, mirror), scale);
            const __m128 picked = _mm_shuffle_ps(sums, differences, _MM_SHUFFLE(2, 0, 2, 0));
            const __m128 result = n == 4 ? _mm_movelh_ps(sums, differences)
                                         : _mm_shuffle_ps(picked, picked, _MM_SHUFFLE(3, 1, 2, 0));
            _mm_storeu_ps(out + g, result);
        }
    }
    else
    {
        for (int g = 0; g < 32; g += n)
        {
            for (int k = 0; k < half; k += 4)
            {
                const __m128 low = _mm_loadu_ps(in + g + k);
                const __m128 high = Reversed(_mm_loadu_ps(in + g + n - 4 - k));
                _mm_storeu_ps(out + g + k, _mm_add_ps(low, high));
                _mm_storeu_ps(out + g + half + k, _mm_mul_ps(_mm_sub_ps(low, high), _mm_loadu_ps(factors + k)));
            }
        }
    }
}

/** Recombination for groups of 8 or more, four outputs of each kind a step; the last odd output adds 0 as the scalar stage does. */
template <int n>
inline void RecombineVector(const float* in, float* out) noexcept
{
    constexpr int half = n / 2;
    if constexpr (n == 4)
    {
        // Each group of 4 becomes in0, in2 + in3, in1, in3 + 0.
        for (int g = 0; g < 32; g += 4)
        {
            const __m128 values = _mm_loadu_ps(in + g);
            const __m128 sums = _mm_add_ps(values, _mm_castsi128_ps(_mm_srli_si128(_mm_castps_si128(values), 4)));
            _mm_storeu_ps(out + g, _mm_unpacklo_ps(values, _mm_shuffle_ps(sums, sums, _MM_SHUFFLE(3, 2, 3, 2))));
        }
    }
    else
    {
        for (int g = 0; g < 32; g += n)
        {
            for (int i = 0; i < half; i += 4)
            {
                const __m128 even = _mm_loadu_ps(in + g + i);
                const __m128 odd = _mm_loadu_ps(in + g + half + i);
                const __m128 next = i + 4 < half ? _mm_loadu_ps(in + g + half + i + 1)
                                                 : _mm_castsi128_ps(_mm_srli_si128(_mm_castps_si128(odd), 4));
                const __m128 sums = _mm_add_ps(odd, next);
                _mm_storeu_ps(out + g + 2 * i, _mm_unpacklo_ps(even, sums));
                _mm_storeu_ps(out + g + 2 * i + 4, _mm_unpackhi_ps(even, sums));
            }
        }
    }
}

/** The four lanes of each of four rows added up, each row as (0 + 2) + (1 + 3), by a transpose. */
inline __m128 AddLanes(const __m128 (&lanes)[4]) noexcept
{
    const __m128 firstPair = _mm_add_ps(_mm_unpacklo_ps(lanes[0], lanes[1]), _mm_unpackhi_ps(lanes[0], lanes[1]));
    const __m128 secondPair = _mm_add_ps(_mm_unpacklo_ps(lanes[2], lanes[3]), _mm_unpackhi_ps(lanes[2], lanes[3]));
    return _mm_add_ps(_mm_movelh_ps(firstPair, secondPair), _mm_movehl_ps(secondPair, firstPair));
}

/** Four rows of WindowRows at once, the same sums in the same order, four floats a step. */
inline __m128 WindowFourRows(const float* window, const float* history, int historyStep) noexcept
{
    __m128 lanes[4];
    for (int row = 0; row < 4; ++row)
    {
        const float* w = window + 32 * row;
        const float* h = history + historyStep * row;
        const __m128 p0 = _mm_mul_ps(_mm_loadu_ps(w), _mm_loadu_ps(h));
        const __m128 p1 = _mm_mul_ps(_mm_loadu_ps(w + 4), _mm_loadu_ps(h + 4));
        const __m128 p2 = _mm_mul_ps(_mm_loadu_ps(w + 8), _mm_loadu_ps(h + 8));
        const __m128 p3 = _mm_mul_ps(_mm_loadu_ps(w + 12), _mm_loadu_ps(h + 12));
        lanes[row] = _mm_add_ps(_mm_add_ps(p0, p2), _mm_add_ps(p1, p3));
    }
    return AddLanes(lanes);
}

#else

template <int n>
inline void ButterfliesVector(const float* in, float* out, const float* factors) noexcept
{
    Butterflies<n>(in, out, factors);
}

template <int n>
inline void RecombineVector(const float* in, float* out) noexcept
{
    Recombine<n>(in, out);
}

#endif

#if defined(__x86_64__)
#define KVO_MP3_WIDE_FILTERBANK 1

/**
    The same four rows eight floats a step, for processors with AVX: taps k and k + 8 multiply
    and add in one step, and the two halves then add as the plain version's pairs (k, k + 4)
    do, so the sums are the same to the bit.
*/
__attribute__((target("avx"))) inline __m128 WindowFourRowsWide(const float* window, const float* history,
                                                                 int historyStep) noexcept
{
    __m128 lanes[4];
    for (int row = 0; row < 4; ++row)
    {
        const float* w = window + 32 * row;
        const float* h = history + historyStep * row;
        const __m256 front = _mm256_mul_ps(_mm256_loadu_ps(w), _mm256_loadu_ps(h));
        const __m256 folded = _mm256_add_ps(front, _mm256_mul_ps(_mm256_loadu_ps(w + 8), _mm256_loadu_ps(h + 8)));
        lanes[row] = _mm_add_ps(_mm256_castps256_ps128(folded), _mm256_extractf128_ps(folded, 1));
    }
    return AddLanes(lanes);
}

#endif

/**
    rows sums of 16 window x history products, the window rows 32 floats apart and the history
    rows historyStep apart; negated when negate is set. Each row's products fold into four
    lanes (k with k + 8, then with k + 4) in one loop over contiguous floats, and the lanes then
    add in pairs: (0 + 2) + (1 + 3).
*/
template <int rows, bool negate, bool wide>
inline void WindowRows(const float* window, const float* history, int historyStep, float* out) noexcept
{
#if defined(__SSE2__)
    // Groups of four rows; a last partial group is computed from the row count less four, so that
    // it reads no row beyond the last and writes its first rows again with the same values.
    static_assert(rows >= 4);
    for (int row = 0; row < rows; row += 4)
    {
        const int first = std::min(row, rows - 4);
        const float* w = window + 32 * first;
        const float* h = history + historyStep * first;
        __m128 sums;
#if defined(KVO_MP3_WIDE_FILTERBANK)
        if constexpr (wide)
            sums = WindowFourRowsWide(w, h, historyStep);
        else
#endif
            sums = WindowFourRows(w, h, historyStep);
        if constexpr (negate)
            sums = _mm_xor_ps(sums, _mm_set1_ps(-0.0f));
        _mm_storeu_ps(out + first, sums);
    }
#else
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
#endif
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
    ButterfliesVector<32>(in, a, factors[0]);
    ButterfliesVector<16>(a, b, factors[1]);
    ButterfliesVector<8>(b, a, factors[2]);
    ButterfliesVector<4>(a, b, factors[3]);
    ButterfliesVector<2>(b, a, factors[4]);
    RecombineVector<4>(a, b);
    RecombineVector<8>(b, a);
    RecombineVector<16>(a, b);
    RecombineVector<32>(b, values);
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
