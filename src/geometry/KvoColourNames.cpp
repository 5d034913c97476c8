#include "geometry/KvoColourNames.h"

namespace kvo
{

const NamedValueTable<uint32_t>& ColourNames::GetTable()
{
    // The sixteen basic colours of the web, with their usual aliases, and orange.
    static const NamedValueTable<uint32_t> table = BuildNameTable<uint32_t>({
        {0x000000, {"black"}},
        {0xc0c0c0, {"silver"}},
        {0x808080, {"gray", "grey"}},
        {0xffffff, {"white"}},
        {0x800000, {"maroon"}},
        {0xff0000, {"red"}},
        {0x800080, {"purple"}},
        {0xff00ff, {"fuchsia", "magenta"}},
        {0x008000, {"green"}},
        {0x00ff00, {"lime"}},
        {0x808000, {"olive"}},
        {0xffff00, {"yellow"}},
        {0x000080, {"navy", "navy blue"}},
        {0x0000ff, {"blue"}},
        {0x008080, {"teal"}},
        {0x00ffff, {"aqua", "cyan"}},
        {0xffa500, {"orange"}},
    });
    return table;
}

int64_t ColourNames::FindColour(const String& name)
{
    uint32_t value = 0;
    return GetTable().Lookup(name, value) ? static_cast<int64_t>(value) : -1;
}

} // namespace kvo
