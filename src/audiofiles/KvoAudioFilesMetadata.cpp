#include "audiofiles/KvoAudioFilesMetadata.h"

#include <utility>

namespace kvo
{

// ---------------------------------------------------------------------------------------
// StringDictionary

void StringDictionary::set(const String& key, const String& value)
{
    const int64_t index = indexOf(key);
    if (index >= 0)
    {
        values[static_cast<uint64_t>(index)] = value;
        return;
    }

    keys.Add(key);
    try
    {
        values.Add(value);
    }
    catch (...)
    {
        Remove(keys, static_cast<int64_t>(keys.GetSize()) - 1); // keep the two arrays parallel
        throw;
    }
}

String StringDictionary::get(const String& key, const String& defaultValue) const
{
    const int64_t index = indexOf(key);
    return index >= 0 ? values[static_cast<uint64_t>(index)] : defaultValue;
}

bool StringDictionary::contains(const String& key) const
{
    return indexOf(key) >= 0;
}

void StringDictionary::clear()
{
    keys.DeleteAll();
    values.DeleteAll();
}

int64_t StringDictionary::indexOf(const String& key) const
{
    const CaseSensitivity cs = ignoreCase != 0 ? insensitive : sensitive;
    for (uint64_t i = 0; i < keys.GetSize(); ++i)
    {
        const String& candidate = keys[i];
        if (candidate.GetLength() == key.GetLength() && Equals(candidate, key, cs))
            return static_cast<int64_t>(i);
    }
    return -1;
}

// ---------------------------------------------------------------------------------------
// AudioFilesMetadata

namespace
{

using Marker = AudioFilesMetadata::Marker;

void deleteMarkers(Vector<Marker*>& markers) noexcept
{
    for (Marker* marker : markers)
        delete marker;
    markers.Clear();
}

/** Owned copies of every marker; nothing leaks if an allocation fails half way. */
Vector<Marker*> copyMarkers(const Vector<Marker*>& source)
{
    Vector<Marker*> copies;
    try
    {
        copies.Reserve(source.GetSize());
        for (const Marker* marker : source)
            copies.PushBack(new Marker(*marker));
    }
    catch (...)
    {
        deleteMarkers(copies);
        throw;
    }
    return copies;
}

} // namespace

AudioFilesMetadata::MarkerList::MarkerList(const MarkerList& other) : Vector<Marker*>(copyMarkers(other))
{
}

AudioFilesMetadata::MarkerList& AudioFilesMetadata::MarkerList::operator=(const MarkerList& other)
{
    if (this == &other)
        return *this;
    // The copies change hands before anything else can throw, so that none is left unowned.
    Vector<Marker*> copies = copyMarkers(other);
    deleteMarkers(*this);
    Vector<Marker*>::operator=(std::move(copies));
    return *this;
}

AudioFilesMetadata::MarkerList::~MarkerList()
{
    deleteMarkers(*this);
}

void AudioFilesMetadata::addMarker(uint16_t identifier, uint32_t position, const String& label)
{
    auto* marker = new Marker { identifier, position, label };
    try
    {
        markers.PushBack(marker);
    }
    catch (...)
    {
        delete marker;
        throw;
    }
}

void AudioFilesMetadata::clearMarkers()
{
    deleteMarkers(markers);
}

} // namespace kvo
