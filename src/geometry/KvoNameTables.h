#pragma once

#include <initializer_list>
#include <type_traits>

#include "core/KvoNamedValueTable.h"

namespace kvo
{

/** One enumerator with the spellings users may give it, the preferred one first. */
template <typename Enum>
struct NameGroup
{
    Enum value;
    std::initializer_list<const char*> spellings;
};

/**
    Builds the name table of an enumeration from its groups, in order.

    Every enumeration table shares the same settings: names compare without regard to
    case, a quoted name is found by its unquoted text, and a spelling holding blanks
    also brings its joined and dashed forms. A spelling already present, whether
    written out or derived earlier, is skipped, so it keeps its first enumerator.
*/
template <typename Enum>
NamedValueTable<Enum> BuildNameTable(std::initializer_list<NameGroup<Enum>> groups)
{
    NamedValueTable<Enum> table(insensitive, true, true);
    for (const NameGroup<Enum>& group : groups)
        for (const char* spelling : group.spellings)
            if (!table.Contains(spelling))
                table.Add(spelling, group.value);
    return table;
}

/**
    The name table of the enumeration Enum, built from groups on the first call and shared
    by all threads after it: every later call returns that table and ignores its groups.
    One table per enumeration type, so only the enumeration's own accessor may call this.
*/
template <typename Enum>
const NamedValueTable<Enum>& SharedNameTable(std::initializer_list<NameGroup<Enum>> groups)
{
    static_assert(std::is_enum_v<Enum>, "one table per enumeration type");
    static const NamedValueTable<Enum> table = BuildNameTable<Enum>(groups);
    return table;
}

/** The enumerator that name stands for as an integer, or -1 when the table does not know it. */
template <typename Enum>
int FindValue(const NamedValueTable<Enum>& table, const String& name)
{
    Enum value {};
    return table.Lookup(name, value) ? static_cast<int>(value) : -1;
}

} // namespace kvo
