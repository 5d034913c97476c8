#pragma once

#include "core/KvoString.h"
#include "math/KvoVector.h"

namespace kvo
{

/**
    An ordered list of strings that owns them: each entry is a separately allocated
    String, deleted when the entry is removed or the array is destroyed.
*/
class StringArray : public Vector<String*>
{
public:
    StringArray() = default;
    StringArray(const StringArray& other);
    StringArray& operator=(const StringArray& other);
    /** Moving hands the strings over; the source is left empty. */
    StringArray(StringArray&& other) noexcept;
    StringArray& operator=(StringArray&& other) noexcept;
    ~StringArray() override;

    /** Appends an owned copy of text. */
    void Add(const String& text);

    String& operator[](uint64_t index) noexcept { return *Vector<String*>::operator[](index); }
    const String& operator[](uint64_t index) const noexcept { return *Vector<String*>::operator[](index); }

    /** Deletes every entry. */
    void DeleteAll();
};

/** Cuts s at each c; see the keepEmpty rules in the source. */
StringArray Split(const String& s, char c, bool keepEmpty);
String Join(const StringArray& array, const String& separator);
int64_t IndexOf(const StringArray& array, const String& s, const CaseSensitivity& cs = sensitive);
bool Remove(StringArray& array, int64_t index);
void RemoveEmpty(StringArray& array, bool alsoWhitespace);
void TrimAll(StringArray& array);
void Resize(StringArray& array, uint64_t newSize);

} // namespace kvo
