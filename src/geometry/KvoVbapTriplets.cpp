#include "geometry/KvoVbapTriplets.h"

#include "core/KvoException.h"

namespace kvo
{

const NamedValueTable<VbapTriplets::TriangulationMode>& VbapTriplets::GetTriangulationModeNames()
{
    return SharedNameTable<TriangulationMode>({
        {legacy, {"legacy"}},
        {delaunay, {"delaunay", "spherical delaunay"}},
    });
}

VbapTriplets::TriangulationMode VbapTriplets::GetTriangulationMode(const String& name)
{
    TriangulationMode mode = legacy;
    if (!GetTriangulationModeNames().Lookup(name, mode))
        throw Exception(String("invalid triangulation mode : ") + Quoted(name), KVO_CODE_LOCATION);
    return mode;
}

} // namespace kvo
