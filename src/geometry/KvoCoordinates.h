#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** The layouts in which the library reads and writes positions. */
class Coordinates
{
public:
    /**
        By family: cartesian (xyFlat is "xy_", xIncrement "x++"); azimuth, elevation and
        distance in the order their letters give (aed is navigation order); single
        spherical components (distScale is "dist*="); sonel3 and wfs; single cartesian
        components; the SOFA conventions.
    */
    enum Format : int
    {
        xyz = 0, xy = 1, xyFlat = 2, xIncrement = 3, yIncrement = 4, zIncrement = 5,
        ade = 6, aed = 7, ae = 8, ad = 9, az = 10,
        azim = 11, azimIncrement = 12, elev = 13, elevIncrement = 14, azimElev = 15, azimDist = 16,
        dist = 17, distIncrement = 18, distScale = 19,
        sonel3 = 20, wfs = 21,
        x = 22, y = 23, z = 24,
        sofaCartesian = 25, sofaSpherical = 26
    };

    /** The names of Format, built on first use and shared by all threads. */
    static const NamedValueTable<Format>& GetFormatNames();
    /** The Format that name stands for, or -1. */
    static int FindFormat(const String& name);
};

} // namespace kvo
