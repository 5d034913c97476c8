#pragma once

#include "core/KvoStringArray.h"
#include "math/KvoVector.h"

namespace kvo
{

/**
    Names with one value each, searched by forgiving spellings.

    With addVariants set, a name holding white space is also stored in two derived
    forms, blanks removed and blanks turned into dashes, so "sample rate" is found as
    "samplerate" and "sample-rate" too. With unquotedLookup set, a quoted name that is
    not found is searched again without its quotes.
*/
template <typename ValueType>
class NamedValueTable
{
public:
    NamedValueTable(CaseSensitivity sensitivity, bool withVariants, bool retryUnquoted)
        : caseMode(sensitivity), addVariants(withVariants), unquotedLookup(retryUnquoted)
    {
    }

    /** Appends name with value, then its derived forms that are not yet present. */
    void Add(const String& name, const ValueType& value)
    {
        append(name, value);
        if (!addVariants || !ContainsWhitespace(name))
            return;

        String single = Trimmed(name);
        ReplaceAll(single, "  ", " "); // one pass: a run of three blanks keeps two

        const String joined = Replaced(single, " ", "");
        const String dashed = ReplacedChar(single, ' ', '-');
        if (IndexOf(joined) < 0)
            append(joined, value);
        if (IndexOf(dashed) < 0)
            append(dashed, value);
    }

    /** Index of the entry for name, or -1. */
    int64_t IndexOf(const String& name) const
    {
        const int64_t index = find(name);
        if (index < 0 && unquotedLookup && IsQuoted(name))
            return find(Unquoted(name));
        return index;
    }

    bool Contains(const String& name) const { return IndexOf(name) >= 0; }

    /** Stores the value of name in value and answers true, or answers false and leaves it. */
    bool Lookup(const String& name, ValueType& value) const
    {
        const int64_t index = IndexOf(name);
        if (index < 0)
            return false;
        value = values[static_cast<uint64_t>(index)];
        return true;
    }

    uint64_t GetNumNames() const noexcept { return names.GetSize(); }
    const String& GetName(uint64_t index) const noexcept { return names[index]; }
    const ValueType& GetValue(uint64_t index) const noexcept { return values[index]; }
    const Vector<ValueType>& GetDistinctValues() const noexcept { return distinctValues; }

    void Clear()
    {
        names.DeleteAll();
        values.Clear();
        distinctValues.Clear();
    }

private:
    void append(const String& name, const ValueType& value)
    {
        names.Add(name);
        values.PushBack(value);
        for (const ValueType& known : distinctValues)
            if (known == value)
                return;
        distinctValues.PushBack(value);
    }

    int64_t find(const String& name) const
    {
        for (uint64_t i = 0; i < names.GetSize(); ++i)
            if (names[i].GetLength() == name.GetLength() && Equals(names[i], name, caseMode))
                return static_cast<int64_t>(i);
        return -1;
    }

    CaseSensitivity caseMode;
    bool addVariants;
    bool unquotedLookup;
    StringArray names;
    Vector<ValueType> values;
    Vector<ValueType> distinctValues;
};

} // namespace kvo
