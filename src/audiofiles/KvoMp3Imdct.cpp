#include "audiofiles/KvoMp3Imdct.h"

#include <cmath>
#include <numbers>

#include "audiofiles/KvoMp3Synthesis.h"

namespace kvo
{
namespace
{

/*
    With the output twiddle 1 / (2 cos theta_i) folded into the window, a transform of n inputs X
    needs v_i = 2 cos(theta_i) sum_k X_k cos((2k + 1) theta_i) = sum_m Y_m cos(2 m theta_i), where
    Y_m = X_m + X_(m-1) are the sums of neighbours (Y_0 = X_0, Y_n = X_(n-1)). Split by the parity
    of m into E_i (even m) and O_i (odd m), the values mirror: over the first n / 4 outputs,
    v_i = v_(n/2 - 1 - i) = E_i + O_i and v_(n/2 + i) = v_(n - 1 - i) = E_i - O_i. So two small
    transforms of n / 4 outputs give all n. Their rows are padded to whole vector widths.
*/

constexpr int longOutputs = 9;   // n / 4 for the 36-point transform
constexpr int shortOutputs = 3;  // n / 4 for the 12-point transform
constexpr int longLanes = 12;
constexpr int shortLanes = 4;

struct ImdctMatrices
{
    alignas(16) float longEven[10][longLanes] {};  // cos(2j theta_i), theta_i = pi (2i + 19) / 72
    alignas(16) float longOdd[9][longLanes] {};    // cos((2j + 1) 2 theta_i)
    alignas(16) float shortEven[4][shortLanes] {}; // cos(2j theta_i), theta_i = pi (2i + 7) / 24
    alignas(16) float shortOdd[3][shortLanes] {};
};

/** Rows of cos(2 j theta_i) and cos((2 j + 1) 2 theta_i), with 2 theta_i = pi (2i + shift) / period. */
template <int evenRows, int oddRows, int lanes>
void FillMatrices(float (&even)[evenRows][lanes], float (&odd)[oddRows][lanes], int outputs, int shift, double period)
{
    for (int i = 0; i < outputs; ++i)
    {
        const double twoTheta = std::numbers::pi * (2 * i + shift) / period;
        for (int j = 0; j < evenRows; ++j)
            even[j][i] = float(std::cos(2 * j * twoTheta));
        for (int j = 0; j < oddRows; ++j)
            odd[j][i] = float(std::cos((2 * j + 1) * twoTheta));
    }
}

ImdctMatrices BuildMatrices()
{
    ImdctMatrices matrices;
    FillMatrices(matrices.longEven, matrices.longOdd, longOutputs, 19, 36.0);
    FillMatrices(matrices.shortEven, matrices.shortOdd, shortOutputs, 7, 12.0);
    return matrices;
}

/** Built on first use; the guard makes concurrent first calls wait for one build. */
const ImdctMatrices& GetMatrices()
{
    static const ImdctMatrices matrices = BuildMatrices();
    return matrices;
}

/** sum[lane] += sum over rows of the row's value times its matrix row, for every lane. */
template <int rows, int lanes>
inline void Accumulate(float (&sum)[lanes], const float* values, int stride, const float (*matrix)[lanes]) noexcept
{
    for (int row = 0; row < rows; ++row)
    {
        const float value = values[row * stride];
        for (int lane = 0; lane < lanes; ++lane)
            sum[lane] += value * matrix[row][lane];
    }
}

inline void Imdct36(float* in, float* overlapIn, float* overlapOut, const float* window, float* out) noexcept
{
    // Sums of neighbours, from the top down so that each uses the old value below it.
    float sums[19];
    sums[18] = in[17];
    for (int k = 17; k > 0; --k)
        sums[k] = in[k] + in[k - 1];
    sums[0] = in[0];

    const ImdctMatrices& matrices = GetMatrices();
    float even[longLanes] = {};
    float odd[longLanes] = {};
    Accumulate<10>(even, sums, 2, matrices.longEven);
    Accumulate<9>(odd, sums + 1, 2, matrices.longOdd);

    // Sums and differences over whole lanes first, then mirrored into place.
    float plus[longLanes];
    float minus[longLanes];
    for (int lane = 0; lane < longLanes; ++lane)
    {
        plus[lane] = even[lane] + odd[lane];
        minus[lane] = even[lane] - odd[lane];
    }
    float values[36];
    for (int i = 0; i < longOutputs; ++i)
    {
        values[i] = values[17 - i] = plus[i];
        values[18 + i] = values[35 - i] = minus[i];
    }
    for (int i = 0; i < 18; ++i)
    {
        out[i * mp3HybridStride] = values[i] * window[i] + overlapIn[i];
        overlapOut[i] = values[18 + i] * window[18 + i];
    }
}

inline void Imdct12(float* in, float* overlapIn, float* overlapOut, const float* window, float* out) noexcept
{
    // The three windows overlap-add 6 entries apart, from entry 6 of the 36.
    const ImdctMatrices& matrices = GetMatrices();
    float block[36] = {};
    for (int w = 0; w < 3; ++w)
    {
        float sums[7];
        sums[6] = in[w + 15];
        for (int k = 5; k > 0; --k)
            sums[k] = in[w + 3 * k] + in[w + 3 * (k - 1)];
        sums[0] = in[w];

        float even[shortLanes] = {};
        float odd[shortLanes] = {};
        Accumulate<4>(even, sums, 2, matrices.shortEven);
        Accumulate<3>(odd, sums + 1, 2, matrices.shortOdd);

        float* target = block + 6 + 6 * w;
        for (int i = 0; i < shortOutputs; ++i)
        {
            target[i] += (even[i] + odd[i]) * window[i];
            target[5 - i] += (even[i] + odd[i]) * window[5 - i];
            target[6 + i] += (even[i] - odd[i]) * window[6 + i];
            target[11 - i] += (even[i] - odd[i]) * window[11 - i];
        }
    }
    for (int i = 0; i < 18; ++i)
    {
        out[i * mp3HybridStride] = block[i] + overlapIn[i];
        overlapOut[i] = block[18 + i];
    }
}

using Transform = void (*)(float*, float*, float*, const float*, float*) noexcept;

#if defined(__x86_64__)
#define KVO_MP3_WIDE_IMDCT 1
/** A transform compiled for AVX, the same arithmetic in three-operand and wider instructions. */
template <Transform transform>
__attribute__((target("avx"), flatten)) void RunWide(float* in, float* overlapIn, float* overlapOut,
                                                      const float* window, float* out) noexcept
{
    transform(in, overlapIn, overlapOut, window, out);
}
#endif

/** The transform in the code mp3WideFilterbank chooses. */
template <Transform transform>
inline void Run(float* in, float* overlapIn, float* overlapOut, const float* window, float* out) noexcept
{
#if defined(KVO_MP3_WIDE_IMDCT)
    if (mp3WideFilterbank)
        return RunWide<transform>(in, overlapIn, overlapOut, window, out);
#endif
    transform(in, overlapIn, overlapOut, window, out);
}

} // namespace

void imdct36(float* in, float* overlapIn, float* overlapOut, const float* window, float* out)
{
    Run<Imdct36>(in, overlapIn, overlapOut, window, out);
}

void imdct12(float* in, float* overlapIn, float* overlapOut, const float* window, float* out)
{
    Run<Imdct12>(in, overlapIn, overlapOut, window, out);
}

} // namespace kvo
