#include "geometry/KvoEulerAngles.h"

namespace kvo
{

const NamedValueTable<EulerAngles::Mode>& EulerAngles::GetModeNames()
{
    // Each sequence has three spellings: "Euler" and the axes, the bare axes, and the
    // axes between dashes.
    return SharedNameTable<Mode>({
        {eulerXYX, {"EulerXYX", "XYX", "x-y-x"}},
        {eulerYXY, {"EulerYXY", "YXY", "y-x-y"}},
        {eulerYZY, {"EulerYZY", "YZY", "y-z-y"}},
        {eulerZXZ, {"EulerZXZ", "ZXZ", "z-x-z"}},
        {eulerZYZ, {"EulerZYZ", "ZYZ", "z-y-z"}},
        {eulerXYZ, {"EulerXYZ", "XYZ", "x-y-z"}},
        {eulerXZY, {"XZY", "x-z-y", "EulerXZY"}},
        {eulerYXZ, {"YXZ", "y-x-z", "EulerYXZ"}},
        {eulerYZX, {"YZX", "y-z-x", "EulerYZX"}},
        {eulerZXY, {"ZXY", "z-x-y", "EulerZXY"}},
        {eulerZYX, {"EulerZYX", "z-y-x", "ZYX"}},
    });
}

int EulerAngles::FindMode(const String& name)
{
    return FindValue(GetModeNames(), name);
}

} // namespace kvo
