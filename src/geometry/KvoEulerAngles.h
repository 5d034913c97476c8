#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** Rotations given as three angles about successive axes. */
class EulerAngles
{
public:
    /**
        The order of the axes: six proper Euler sequences, then six Tait-Bryan ones.
        eulerXZX is kept for its value, but no name leads to it.
    */
    enum Mode : int
    {
        eulerXYX = 0, eulerXZX = 1, eulerYXY = 2, eulerYZY = 3, eulerZXZ = 4, eulerZYZ = 5,
        eulerXYZ = 6, eulerXZY = 7, eulerYXZ = 8, eulerYZX = 9, eulerZXY = 10, eulerZYX = 11
    };

    static const NamedValueTable<Mode>& GetModeNames();
    /** The Mode that name stands for, or -1. */
    static int FindMode(const String& name);
};

} // namespace kvo
