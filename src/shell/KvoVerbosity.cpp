#include "shell/KvoVerbosity.h"

namespace kvo
{

const NamedValueTable<Verbosity::Level>& Verbosity::GetLevelNames()
{
    return SharedNameTable<Level>({
        {normal, {"normal", "default"}},
        {minimal, {"minimal"}},
        {silent, {"silent"}},
        {detailed, {"detailed"}},
    });
}

int Verbosity::FindLevel(const String& name)
{
    return FindValue(GetLevelNames(), name);
}

} // namespace kvo
