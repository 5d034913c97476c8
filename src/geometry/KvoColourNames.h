#pragma once

#include <cstdint>

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** Colours by name, as 24-bit 0xRRGGBB values. */
class ColourNames
{
public:
    static const NamedValueTable<uint32_t>& GetTable();
    /** The 0xRRGGBB value of the colour called name, or -1. */
    static int64_t FindColour(const String& name);
};

} // namespace kvo
