// A plain double-precision reference for the MPEG audio synthesis filterbank: the published
// window D[i] and the matrixing, gathering and windowing steps written out directly; and a
// writer of the bit fields that the tests build frames from.

#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace kvo::testing
{

// Synthesis window D[i] of ISO/IEC 11172-3 Table 3-B.3 in units of 2^-16, i from 0 to 256
// (the published decimals are these integers over 65536). The other half mirrors it:
// D[512 - i] = -D[i], except at multiples of 64 where the sign stays.
inline const int32_t windowHalf[257] = {
    0, -1, -1, -1, -1, -1, -1, -2, -2, -2, -2, -3, -3, -4, -4, -5,
    -5, -6, -7, -7, -8, -9, -10, -11, -13, -14, -16, -17, -19, -21, -24, -26,
    -29, -31, -35, -38, -41, -45, -49, -53, -58, -63, -68, -73, -79, -85, -91, -97,
    -104, -111, -117, -125, -132, -139, -147, -154, -161, -169, -176, -183, -190, -196, -202, -208,
    213, 218, 222, 225, 227, 228, 228, 227, 224, 221, 215, 208, 200, 189, 177, 163,
    146, 127, 106, 83, 57, 29, -2, -36, -72, -111, -153, -197, -244, -294, -347, -401,
    -459, -519, -581, -645, -711, -779, -848, -919, -991, -1064, -1137, -1210, -1283, -1356, -1428, -1498,
    -1567, -1634, -1698, -1759, -1817, -1870, -1919, -1962, -2001, -2032, -2057, -2075, -2085, -2087, -2080, -2063,
    2037, 2000, 1952, 1893, 1822, 1739, 1644, 1535, 1414, 1280, 1131, 970, 794, 605, 402, 185,
    -45, -288, -545, -814, -1095, -1388, -1692, -2006, -2330, -2663, -3004, -3351, -3705, -4063, -4425, -4788,
    -5153, -5517, -5879, -6237, -6589, -6935, -7271, -7597, -7910, -8209, -8491, -8755, -8998, -9219, -9416, -9585,
    -9727, -9838, -9916, -9959, -9966, -9935, -9863, -9750, -9592, -9389, -9139, -8840, -8492, -8092, -7640, -7134,
    6574, 5959, 5288, 4561, 3776, 2935, 2037, 1082, 70, -998, -2122, -3300, -4533, -5818, -7154, -8540,
    -9975, -11455, -12980, -14548, -16155, -17799, -19478, -21189, -22929, -24694, -26482, -28289, -30112, -31947, -33791, -35640,
    -37489, -39336, -41176, -43006, -44821, -46617, -48390, -50137, -51853, -53534, -55178, -56778, -58333, -59838, -61289, -62684,
    -64019, -65290, -66494, -67629, -68692, -69679, -70590, -71420, -72169, -72835, -73415, -73908, -74313, -74630, -74856, -74992,
    75038,
};

inline double WindowCoefficient(int i)
{
    if (i <= 256)
        return windowHalf[i] / 65536.0;
    const int mirror = 512 - i;
    return (mirror % 64 == 0 ? 1.0 : -1.0) * windowHalf[mirror] / 65536.0;
}

/** The standard's synthesis flow, one channel: shift, matrix into V, gather U, window, sum. */
class ReferenceSynthesis
{
public:
    void Row(const double* s, std::vector<double>& out)
    {
        std::copy_backward(v.begin(), v.end() - 64, v.end());
        for (int i = 0; i < 64; ++i)
        {
            double sum = 0.0;
            for (int k = 0; k < 32; ++k)
                sum += std::cos((16 + i) * (2 * k + 1) * 3.14159265358979323846 / 64.0) * s[k];
            v[size_t(i)] = sum;
        }
        double u[512];
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 32; ++j)
            {
                u[i * 64 + j] = v[size_t(i * 128 + j)];
                u[i * 64 + 32 + j] = v[size_t(i * 128 + 96 + j)];
            }
        for (int j = 0; j < 32; ++j)
        {
            double sum = 0.0;
            for (int i = 0; i < 16; ++i)
                sum += u[j + 32 * i] * WindowCoefficient(j + 32 * i);
            out.push_back(sum);
        }
    }

private:
    std::vector<double> v = std::vector<double>(1024, 0.0);
};

/** Bits appended most significant first, as MPEG streams hold them. */
struct BitWriter
{
    std::vector<uint8_t> bytes;
    int32_t used = 0;

    BitWriter& Put(uint32_t value, int32_t count)
    {
        for (int32_t i = count - 1; i >= 0; --i)
        {
            if (used % 8 == 0)
                bytes.push_back(0);
            bytes.back() |= uint8_t(((value >> i) & 1) << (7 - used % 8));
            ++used;
        }
        return *this;
    }
};

} // namespace kvo::testing
