#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** How a delay line reads between its samples. */
class DelayInterpolationSettings
{
public:
    enum Mode : int
    {
        nearest = 0,
        linear = 1,
        lagrange3 = 2,
        allpass = 3,      // first-order Thiran
        nearestXfade = 4,
        hermite3 = 5,
        watte3 = 6,
        bspline3 = 7,
        parabolic = 8,
        thiran2 = 9,
        thiran3 = 10
    };

    static const NamedValueTable<Mode>& GetModeNames();
    /** The Mode that name stands for, or -1. */
    static int FindMode(const String& name);
};

/** How a delay line follows a delay time that changes. */
class VaryingDelay
{
public:
    enum Mode : int
    {
        interpolation = 0, // reads between samples along the way
        crossfade = 1      // fades between two fixed read positions
    };

    static const NamedValueTable<Mode>& GetModeNames();
    /** The Mode that name stands for, or -1. */
    static int FindMode(const String& name);
};

} // namespace kvo
