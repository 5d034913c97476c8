#include "geometry/KvoDimension.h"

namespace kvo
{

const NamedValueTable<Dimension>& GetDimensionNames()
{
    return SharedNameTable<Dimension>({
        {twoDimensional, {"2", "2d", "2D", "2-D", "hoa2d", "hoa-2d", "2dhoa"}},
        {threeDimensional, {"3", "3d", "3D", "3-D", "hoa3d", "hoa-3d", "3dhoa"}},
    });
}

int FindDimension(const String& name)
{
    return FindValue(GetDimensionNames(), name);
}

} // namespace kvo
