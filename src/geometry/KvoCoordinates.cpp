#include "geometry/KvoCoordinates.h"

namespace kvo
{

const NamedValueTable<Coordinates::Format>& Coordinates::GetFormatNames()
{
    // By family, as in the enumeration.
    return SharedNameTable<Format>({
        {xyz, {"xyz", "cartesian"}}, {xy, {"xy"}}, {xyFlat, {"xy_"}},
        {xIncrement, {"x++"}}, {yIncrement, {"y++"}}, {zIncrement, {"z++"}},
        {ade, {"ade"}}, {aed, {"aed", "navigation"}}, {ae, {"ae"}}, {ad, {"ad"}}, {az, {"az"}},
        {azim, {"azim"}}, {azimIncrement, {"azim++"}}, {elev, {"elev"}}, {elevIncrement, {"elev++"}},
        {azimElev, {"azimelev"}}, {azimDist, {"azimdist"}},
        {dist, {"dist"}}, {distIncrement, {"dist++"}}, {distScale, {"dist*="}},
        {sonel3, {"sonel3", "bbox", "binauralbox"}}, {wfs, {"wfs"}},
        {x, {"x"}}, {y, {"y"}}, {z, {"z"}},
        {sofaCartesian, {"sofacartesian"}}, {sofaSpherical, {"sofaspherical"}},
    });
}

int Coordinates::FindFormat(const String& name)
{
    return FindValue(GetFormatNames(), name);
}

} // namespace kvo
