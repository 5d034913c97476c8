#include "core/KvoStringArray.h"

#include <utility>

namespace kvo
{

// The base starts empty: copying the pointers would share the strings.
StringArray::StringArray(const StringArray& other) : Vector<String*>()
{
    try
    {
        Reserve(other.GetSize());
        for (const String* entry : other)
            Add(*entry);
    }
    catch (...)
    {
        DeleteAll(); // the destructor does not run for a half-built array
        throw;
    }
}

StringArray& StringArray::operator=(const StringArray& other)
{
    if (this != &other)
        *this = StringArray(other);
    return *this;
}

StringArray::StringArray(StringArray&& other) noexcept : Vector<String*>(std::move(other))
{
}

StringArray& StringArray::operator=(StringArray&& other) noexcept
{
    if (this != &other)
    {
        DeleteAll();
        Vector<String*>::operator=(std::move(other));
    }
    return *this;
}

StringArray::~StringArray()
{
    DeleteAll();
}

void StringArray::Add(const String& text)
{
    auto* entry = new String(text);
    try
    {
        PushBack(entry);
    }
    catch (...)
    {
        delete entry;
        throw;
    }
}

void StringArray::DeleteAll()
{
    for (String* entry : *this)
        delete entry;
    Clear();
}

namespace
{

// Every piece between delimiters is kept, empty ones too, except a trailing empty piece:
// "a,," gives "a" and "", ",a" gives "" and "a", "," gives one "".
StringArray splitKeepingEmpty(const String& s, char c)
{
    StringArray result;
    Resize(result, static_cast<uint64_t>(CountOf(s, c)));

    const std::string& text = s.GetStdString();
    size_t from = 0;
    for (uint64_t slot = 0; slot < result.GetSize(); ++slot)
    {
        const size_t at = text.find(c, from);
        result[slot] = String(text.substr(from, at - from));
        from = at + 1;
    }
    if (!EndsWith(s, c))
        result.Add(String(text.substr(from)));
    return result;
}

// Empty pieces are skipped, and so is the empty piece behind a final delimiter.
StringArray splitSkippingEmpty(const String& s, char c)
{
    StringArray result;
    const std::string& text = s.GetStdString();
    size_t from = 0;
    for (size_t at = text.find(c); at != std::string::npos; at = text.find(c, from))
    {
        if (at > from)
            result.Add(String(text.substr(from, at - from)));
        from = at + 1;
    }
    result.Add(String(text.substr(from)));

    if (result[result.GetSize() - 1].IsEmpty() && EndsWith(s, c))
        Remove(result, static_cast<int64_t>(result.GetSize()) - 1);
    return result;
}

} // namespace

StringArray Split(const String& s, char c, bool keepEmpty)
{
    if (s.IsEmpty())
        return {};
    return keepEmpty ? splitKeepingEmpty(s, c) : splitSkippingEmpty(s, c);
}

String Join(const StringArray& array, const String& separator)
{
    String result;
    for (uint64_t i = 0; i < array.GetSize(); ++i)
    {
        if (i > 0)
            result += separator;
        result += array[i];
    }
    return result;
}

int64_t IndexOf(const StringArray& array, const String& s, const CaseSensitivity& cs)
{
    for (uint64_t i = 0; i < array.GetSize(); ++i)
        if (Equals(array[i], s, cs))
            return static_cast<int64_t>(i);
    return -1;
}

bool Remove(StringArray& array, int64_t index)
{
    if (index < 0 || static_cast<uint64_t>(index) >= array.GetSize())
        return false;
    delete array.GetData()[index];
    array.Erase(static_cast<uint64_t>(index));
    return true;
}

void RemoveEmpty(StringArray& array, bool alsoWhitespace)
{
    for (auto i = static_cast<int64_t>(array.GetSize()) - 1; i >= 0; --i)
    {
        const String& entry = array[static_cast<uint64_t>(i)];
        if (entry.IsEmpty() || (alsoWhitespace && !ContainsNonWhitespace(entry)))
            Remove(array, i);
    }
}

void TrimAll(StringArray& array)
{
    for (String* entry : array)
        Trim(*entry);
}

void Resize(StringArray& array, uint64_t newSize)
{
    const uint64_t oldSize = array.GetSize();
    for (uint64_t i = newSize; i < oldSize; ++i)
        delete array.GetData()[i];

    // Growing zero-fills the new slots, so a failed allocation below leaves null entries
    // that the destructor deletes harmlessly.
    array.Vector<String*>::Resize(newSize);
    for (uint64_t i = oldSize; i < newSize; ++i)
        array.GetData()[i] = new String();
}

} // namespace kvo
