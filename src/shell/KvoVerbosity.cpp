#include "shell/KvoVerbosity.h"

namespace kvo
{

const NamedValueTable<Verbosity::Level>& Verbosity::GetLevelNames()
{
    static const NamedValueTable<Level> table = BuildNameTable<Level>({
        {normal, {"normal", "default"}},
        {minimal, {"minimal"}},
        {silent, {"silent"}},
        {detailed, {"detailed"}},
    });
    return table;
}

int Verbosity::FindLevel(const String& name)
{
    return FindValue(GetLevelNames(), name);
}

} // namespace kvo
