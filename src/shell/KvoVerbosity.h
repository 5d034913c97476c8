#pragma once

#include "geometry/KvoNameTables.h"

namespace kvo
{

/** How much the library tells about its work. */
class Verbosity
{
public:
    enum Level : int { silent = 0, minimal = 1, normal = 2, detailed = 3 };

    static const NamedValueTable<Level>& GetLevelNames();
    /** The Level that name stands for, or -1. */
    static int FindLevel(const String& name);
};

} // namespace kvo
