#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** Whether a layout or a sound field spans the horizontal plane or the whole sphere. */
enum Dimension : int
{
    twoDimensional = 0,
    threeDimensional = 1
};

const NamedValueTable<Dimension>& GetDimensionNames();
/** The Dimension that name stands for, or -1. */
int FindDimension(const String& name);

} // namespace kvo
