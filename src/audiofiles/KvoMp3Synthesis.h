#pragma once

#include <cstdint>
#include <cstring>

namespace kvo
{

/**
    The polyphase synthesis filter's history for two channels, held in the decoder state.
    Each channel has two halves of 16 slots by 17 rows (mp3HistoryRows floats a slot), which the
    32-point transform fills a slot at a time and the window reads in place.
*/
struct Mp3SynthesisState
{
    float synthBuffers[2][2][272] {};
    /** Slot of the newest transform result, 0 to 15; channel 0 moves it, channel 1 shares it. */
    int32_t synthOffset = 1;

    /** Silence in the history and the offset of a fresh stream. */
    void reset() noexcept;
};

/** Four floats in the compiler's own vectors (SSE on x86_64, NEON on Arm), for the filterbank's loops. */
namespace mp3vector
{

using Floats = float __attribute__((vector_size(16)));
/** Eight floats, for AVX code alone: outside it they are passed by reference only. */
using Floats8 = float __attribute__((vector_size(32)));

inline Floats Load(const float* from) noexcept
{
    Floats values;
    std::memcpy(&values, from, sizeof values);
    return values;
}

inline void Store(float* to, Floats values) noexcept
{
    std::memcpy(to, &values, sizeof values);
}

/** Floats in a vector of type V. */
template <typename V>
constexpr int lanesOf = int(sizeof(V) / sizeof(float));

/** Either width, by reference, so that no eight-float vector crosses a function boundary by value. */
template <typename V>
inline void LoadLanes(V& values, const float* from) noexcept
{
    std::memcpy(&values, from, sizeof values);
}

template <typename V>
inline void StoreLanes(float* to, const V& values) noexcept
{
    std::memcpy(to, &values, sizeof values);
}

/** Lanes picked from a, then b, by index: 0-3 are a's, 4-7 b's. */
template <int i0, int i1, int i2, int i3>
inline Floats Pick(Floats a, Floats b) noexcept
{
    return __builtin_shufflevector(a, b, i0, i1, i2, i3);
}

} // namespace mp3vector

/**
    Whether synthesis and the IMDCTs run their AVX code (eight floats a step, three-operand
    instructions); set at start-up when the processor has AVX. Both paths give the same samples
    to the bit; tests switch it off to compare them.
*/
extern bool mp3WideFilterbank;

/**
    Turns one row of 32 sub-band values into 32 samples of channel (0 or 1), written at
    out + samplesDone; samplesDone then grows by 32. For stereo, give a row to channel 0 and
    then the same row to channel 1 (which reuses the offset channel 0 has just moved).
    No scaling after the window and no clipping: full-scale input may give samples beyond 1.0.
*/
void synthesise(Mp3SynthesisState& state, const float* subbands, int channel, float* out, int& samplesDone);

/**
    V[i] = sum over k of in[k] cos((2k + 1) i pi / 64), i from 0 to 31. Row r of first (r from
    0 to 16) receives V[16 - r], row r of second (r from 0 to 15) receives V[16 + r]; rows are
    consecutive floats (a slot of the history).
*/
void fastDct32(float* first, float* second, const float* in);

} // namespace kvo
