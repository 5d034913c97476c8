#include "geometry/KvoDelayModes.h"

namespace kvo
{

const NamedValueTable<DelayInterpolationSettings::Mode>& DelayInterpolationSettings::GetModeNames()
{
    // The cubic kernels are also known by their bare names, the order left out; "lin"
    // is the same kind of shortening for the linear one.
    return SharedNameTable<Mode>({
        {nearest, {"nearest"}},
        {linear, {"linear", "lin"}},
        {lagrange3, {"lagrange3", "lagrange 3"}},
        {allpass, {"allpass", "allpass 1", "thiran 1", "thiran 1st order", "allpass 1st order"}},
        {nearestXfade, {"nearestXfade"}},
        {hermite3, {"hermite3", "hermite"}},
        {watte3, {"watte3", "watte"}},
        {bspline3, {"bspline3", "bspline"}},
        {parabolic, {"parabolic"}},
        {thiran2, {"thiran2", "thiran 2nd order", "allpass 2nd order"}},
        {thiran3, {"thiran3", "thiran 3rd order", "allpass 3rd order"}},
    });
}

int DelayInterpolationSettings::FindMode(const String& name)
{
    return FindValue(GetModeNames(), name);
}

const NamedValueTable<VaryingDelay::Mode>& VaryingDelay::GetModeNames()
{
    // "FDL" and "XDL" are the initials of the two long names.
    return SharedNameTable<Mode>({
        {interpolation, {"vdelay", "vdelay~", "interpolation", "fractional-delay-line", "FDL"}},
        {crossfade, {"xdelay", "xdelay~", "crossfade", "crossfading-delay-line", "XDL"}},
    });
}

int VaryingDelay::FindMode(const String& name)
{
    return FindValue(GetModeNames(), name);
}

} // namespace kvo
