#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** The loudspeaker triplets of vector-base amplitude panning. */
class VbapTriplets
{
public:
    /** How the loudspeaker positions are cut into triangles. */
    enum TriangulationMode : int
    {
        legacy = 0,
        delaunay = 1 // on the sphere
    };

    static const NamedValueTable<TriangulationMode>& GetTriangulationModeNames();
    /** The mode that name stands for; throws an Exception naming it when it is unknown. */
    static TriangulationMode GetTriangulationMode(const String& name);
};

} // namespace kvo
