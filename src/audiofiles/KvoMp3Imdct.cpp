#include "audiofiles/KvoMp3Imdct.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <type_traits>

#include "audiofiles/KvoMp3Synthesis.h"
#include "audiofiles/KvoMp3Tables.h"

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
    transforms of n / 4 outputs give all n.

    Each lane of a vector is one sub-band: four (SSE) or eight (AVX) neighbouring sub-bands go
    through the same arithmetic at once, each lane in the order a single sub-band's plain loop
    would take, so both widths give the same results to the bit. The sub-band's outputs are a
    column of the hybrid array and of the overlap (18 rows of 32), so a group's outputs are
    whole vectors of their rows.
*/

constexpr int longOutputs = 9;  // n / 4 for the 36-point transform
constexpr int shortOutputs = 3; // n / 4 for the 12-point transform

using mp3vector::Floats8;
using mp3vector::LoadLanes;
using mp3vector::StoreLanes;
using mp3vector::lanesOf;
using Ints4 = int32_t __attribute__((vector_size(16)));
using Ints8 = int32_t __attribute__((vector_size(32)));

/*
    The helpers below take and give their vectors by reference only: the eight-lane ones run
    inside the AVX function alone, and a vector of eight passed by value would have a different
    calling convention outside it.
*/

/** The transforms' factors and the windows, each value repeated across a vector. */
template <typename V>
struct LaneTables
{
    V longEven[10][longOutputs];  // cos(2j theta_i), theta_i = pi (2i + 19) / 72
    V longOdd[9][longOutputs];    // cos((2j + 1) 2 theta_i)
    V shortEven[4][shortOutputs]; // cos(2j theta_i), theta_i = pi (2i + 7) / 24
    V shortOdd[3][shortOutputs];
    /** By block type: even lanes the window, odd lanes its frequency-inverted twin. */
    V windows[4][36];
};

template <typename V>
inline void Fill(V& target, float value) noexcept
{
    for (int lane = 0; lane < lanesOf<V>; ++lane)
        target[lane] = value;
}

/** Rows of cos(2 j theta_i) and cos((2 j + 1) 2 theta_i), with 2 theta_i = pi (2i + shift) / period. */
template <int evenRows, int oddRows, int outputs, typename V>
void FillFactors(V (&even)[evenRows][outputs], V (&odd)[oddRows][outputs], int shift, double period)
{
    for (int i = 0; i < outputs; ++i)
    {
        const double twoTheta = std::numbers::pi * (2 * i + shift) / period;
        for (int j = 0; j < evenRows; ++j)
            Fill(even[j][i], float(std::cos(2 * j * twoTheta)));
        for (int j = 0; j < oddRows; ++j)
            Fill(odd[j][i], float(std::cos((2 * j + 1) * twoTheta)));
    }
}

template <typename V>
void BuildLaneTables(LaneTables<V>& lanes)
{
    FillFactors(lanes.longEven, lanes.longOdd, 19, 36.0);
    FillFactors(lanes.shortEven, lanes.shortOdd, 7, 12.0);
    const Mp3Tables& tables = GetMp3Tables();
    for (int type = 0; type < 4; ++type)
        for (int i = 0; i < 36; ++i)
            for (int lane = 0; lane < lanesOf<V>; ++lane)
                lanes.windows[type][i][lane] = (lane & 1) != 0 ? tables.imdctWindowOdd[type][i]
                                                               : tables.imdctWindow[type][i];
}

/** Built on first use; the guard makes concurrent first calls wait for one build. */
template <typename V>
const LaneTables<V>& GetLaneTables()
{
    static const LaneTables<V>* const lanes = [] {
        static LaneTables<V> built;
        BuildLaneTables(built);
        return &built;
    }();
    return *lanes;
}

/** x[k] = line k of each of four sub-bands 18 lines apart, for k from first to first + 3: a 4 x 4 transpose. */
inline void TransposeFour(const float* lines, int first, mp3vector::Floats* x) noexcept
{
    using namespace mp3vector;
    const Floats r0 = Load(lines + first);
    const Floats r1 = Load(lines + 18 + first);
    const Floats r2 = Load(lines + 36 + first);
    const Floats r3 = Load(lines + 54 + first);
    const Floats low01 = Pick<0, 4, 1, 5>(r0, r1);
    const Floats high01 = Pick<2, 6, 3, 7>(r0, r1);
    const Floats low23 = Pick<0, 4, 1, 5>(r2, r3);
    const Floats high23 = Pick<2, 6, 3, 7>(r2, r3);
    x[0] = Pick<0, 1, 4, 5>(low01, low23);
    x[1] = Pick<2, 3, 6, 7>(low01, low23);
    x[2] = Pick<0, 1, 4, 5>(high01, high23);
    x[3] = Pick<2, 3, 6, 7>(high01, high23);
}

/** The 18 lines of four sub-bands as 18 vectors; the last four are read from line 14 on, so no read passes line 17. */
inline void GatherFour(const float* lines, mp3vector::Floats (&x)[18]) noexcept
{
    mp3vector::Floats tail[4];
    for (int first = 0; first < 16; first += 4)
        TransposeFour(lines, first, x + first);
    TransposeFour(lines, 14, tail);
    x[16] = tail[2];
    x[17] = tail[3];
}

/** x[k]: line k of each sub-band of the group starting at lines. */
template <typename V>
inline void GatherLines(const float* lines, V (&x)[18]) noexcept
{
    if constexpr (lanesOf<V> == 4)
        GatherFour(lines, x);
    else
    {
        mp3vector::Floats low[18];
        mp3vector::Floats high[18];
        GatherFour(lines, low);
        GatherFour(lines + 4 * 18, high);
        for (int k = 0; k < 18; ++k)
            x[k] = __builtin_shufflevector(low[k], high[k], 0, 1, 2, 3, 4, 5, 6, 7);
    }
}

/** A group's new outputs (rows of the hybrid array) and its overlap for the next granule. */
template <typename V>
struct GroupResult
{
    V out[18];
    V overlap[18];
};

/** sum[i] += the sum over rows of values[row * 2] times factors[row][i], rows in order. */
template <int rows, int outputs, typename V>
inline void Accumulate(V (&sum)[outputs], const V* values, const V (*factors)[outputs]) noexcept
{
    for (int row = 0; row < rows; ++row)
        for (int i = 0; i < outputs; ++i)
            sum[i] += values[2 * row] * factors[row][i];
}

template <typename V>
inline void LongGroup(const V (&x)[18], const V* window, const float* overlapIn,
                      GroupResult<V>& result) noexcept
{
    const LaneTables<V>& lanes = GetLaneTables<V>();
    V sums[19];
    sums[18] = x[17];
    for (int k = 17; k > 0; --k)
        sums[k] = x[k] + x[k - 1];
    sums[0] = x[0];
    V even[longOutputs] = {};
    V odd[longOutputs] = {};
    Accumulate<10>(even, sums, lanes.longEven);
    Accumulate<9>(odd, sums + 1, lanes.longOdd);

    V values[36];
    for (int i = 0; i < longOutputs; ++i)
    {
        values[i] = values[17 - i] = even[i] + odd[i];
        values[18 + i] = values[35 - i] = even[i] - odd[i];
    }
    for (int i = 0; i < 18; ++i)
    {
        V old;
        LoadLanes(old, overlapIn + i * mp3HybridStride);
        result.out[i] = values[i] * window[i] + old;
        result.overlap[i] = values[18 + i] * window[18 + i];
    }
}

template <typename V>
inline void ShortGroup(const V (&x)[18], const V* window, const float* overlapIn,
                       GroupResult<V>& result) noexcept
{
    // The three windows overlap-add 6 entries apart, from entry 6 of the 36.
    const LaneTables<V>& lanes = GetLaneTables<V>();
    V block[36] = {};
    for (int w = 0; w < 3; ++w)
    {
        V sums[7];
        sums[6] = x[w + 15];
        for (int k = 5; k > 0; --k)
            sums[k] = x[w + 3 * k] + x[w + 3 * (k - 1)];
        sums[0] = x[w];
        V even[shortOutputs] = {};
        V odd[shortOutputs] = {};
        Accumulate<4>(even, sums, lanes.shortEven);
        Accumulate<3>(odd, sums + 1, lanes.shortOdd);

        V* target = block + 6 + 6 * w;
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
        V old;
        LoadLanes(old, overlapIn + i * mp3HybridStride);
        result.out[i] = block[i] + old;
        result.overlap[i] = block[18 + i];
    }
}

/** Lanes of target from count on replaced by those of other. */
template <typename V>
inline void KeepFirstLanes(V& target, const V& other, int count) noexcept
{
    using Ints = std::conditional_t<lanesOf<V> == 4, Ints4, Ints8>;
    Ints mask;
    for (int lane = 0; lane < lanesOf<V>; ++lane)
        mask[lane] = lane < count ? -1 : 0;
    target = V((Ints(target) & mask) | (Ints(other) & ~mask));
}

/** Stores a group's results; lanes from live on only release the old overlap and leave silence. */
template <typename V>
inline void StoreGroup(GroupResult<V>& result, int live, const float* overlapIn, float* overlapOut,
                       float* out) noexcept
{
    for (int i = 0; i < 18; ++i)
    {
        if (live < lanesOf<V>)
        {
            V old;
            LoadLanes(old, overlapIn + i * mp3HybridStride);
            KeepFirstLanes(result.out[i], old, live);
            KeepFirstLanes(result.overlap[i], V {}, live);
        }
        StoreLanes(out + i * mp3HybridStride, result.out[i]);
        StoreLanes(overlapOut + i * mp3HybridStride, result.overlap[i]);
    }
}

/** The group of sub-bands from sb; live of them are transformed, the rest only release their overlap. */
template <typename V>
inline void FilterGroup(const float* lines, int sb, int live, const Mp3HybridBlock& block, const float* overlapIn,
                        float* overlapOut, float* out) noexcept
{
    if (live == 0)
    {
        for (int i = 0; i < 18; ++i)
        {
            const int at = i * mp3HybridStride + sb;
            V old;
            LoadLanes(old, overlapIn + at);
            StoreLanes(out + at, old);
            StoreLanes(overlapOut + at, V {});
        }
        return;
    }
    const LaneTables<V>& lanes = GetLaneTables<V>();
    GroupResult<V> result;
    V x[18];
    GatherLines(lines + 18 * sb, x);
    if (block.blockType == 2)
        ShortGroup(x, lanes.windows[2], overlapIn + sb, result);
    else
        LongGroup(x, lanes.windows[block.blockType], overlapIn + sb, result);
    if (block.mixed && sb == 0)
    {
        // The two lowest sub-bands of a mixed block are long, with the normal window.
        GroupResult<V> low;
        LongGroup(x, lanes.windows[0], overlapIn, low);
        for (int i = 0; i < 18; ++i)
        {
            KeepFirstLanes(low.out[i], result.out[i], 2);
            KeepFirstLanes(low.overlap[i], result.overlap[i], 2);
            result.out[i] = low.out[i];
            result.overlap[i] = low.overlap[i];
        }
    }
    StoreGroup(result, live, overlapIn + sb, overlapOut + sb, out + sb);
}

template <typename V>
inline void Filterbank(const float* lines, const Mp3HybridBlock& block, const float* overlapIn, float* overlapOut,
                       float* out) noexcept
{
    // Sub-bands are transformed in pairs, so an odd limit takes the sub-band above it too; a
    // mixed block always transforms its two long sub-bands.
    const int end = std::max((block.limit + 1) & ~1, block.mixed ? 2 : 0);
    for (int sb = 0; sb < 32; sb += lanesOf<V>)
        FilterGroup<V>(lines, sb, std::clamp(end - sb, 0, lanesOf<V>), block, overlapIn, overlapOut, out);
}

#if defined(__x86_64__)
#define KVO_MP3_WIDE_IMDCT 1
/** Eight sub-bands a step in AVX's wider vectors, the same arithmetic in every lane. */
__attribute__((target("avx"), flatten)) void FilterbankWide(const float* lines, const Mp3HybridBlock& block,
                                                             const float* overlapIn, float* overlapOut,
                                                             float* out) noexcept
{
    Filterbank<Floats8>(lines, block, overlapIn, overlapOut, out);
}
#endif

} // namespace

void hybridFilterbank(const float* lines, const Mp3HybridBlock& block, const float* overlapIn, float* overlapOut,
                      float* out)
{
#if defined(KVO_MP3_WIDE_IMDCT)
    if (mp3WideFilterbank)
        return FilterbankWide(lines, block, overlapIn, overlapOut, out);
#endif
    Filterbank<mp3vector::Floats>(lines, block, overlapIn, overlapOut, out);
}

} // namespace kvo
