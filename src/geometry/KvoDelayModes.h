#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** How a delay line reads between its samples. */
class DelayInterpolationSettings
{
public:
    /** allpass is the first-order Thiran; the digit in a name is the kernel's order. */
    enum Mode : int
    {
        nearest = 0, linear = 1, lagrange3 = 2, allpass = 3, nearestXfade = 4,
        hermite3 = 5, watte3 = 6, bspline3 = 7, parabolic = 8, thiran2 = 9, thiran3 = 10
    };

    static const NamedValueTable<Mode>& GetModeNames();
    /** The Mode that name stands for, or -1. */
    static int FindMode(const String& name);
};

/** How a delay line follows a delay time that changes. */
class VaryingDelay
{
public:
    /**
        interpolation reads between samples along the way; crossfade fades between two
        fixed read positions.
    */
    enum Mode : int { interpolation = 0, crossfade = 1 };

    static const NamedValueTable<Mode>& GetModeNames();
    /** The Mode that name stands for, or -1. */
    static int FindMode(const String& name);
};

} // namespace kvo
