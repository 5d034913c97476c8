#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** The conventions of ambisonic signals: channel order and normalisation. */
class SphericalHarmonic
{
public:
    /** The order of the channels: ambisonic channel number, single index designation, Furse-Malham. */
    enum Sorting : int { acn = 0, sid = 1, fmh = 2 };

    /** The scaling of each spherical harmonic. */
    enum Norm : int { sn3d = 0, sn2d = 1, n3d = 2, n2d = 3, fuma = 4, maxN = 5, unnormalized = 6 };

    static const NamedValueTable<Sorting>& GetSortingNames();
    static const NamedValueTable<Norm>& GetNormNames();
    /** The Sorting that name stands for, or -1. */
    static int FindSorting(const String& name);
    /** The Norm that name stands for, or -1. */
    static int FindNorm(const String& name);
};

} // namespace kvo
