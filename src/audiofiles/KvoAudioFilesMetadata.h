#pragma once

#include <cstdint>

#include "core/KvoStringArray.h"
#include "math/KvoVector.h"

namespace kvo
{

/** Text keys to text values in insertion order; keys compare ignoring case by default. */
class StringDictionary
{
public:
    StringDictionary() = default;
    StringDictionary(const StringDictionary& other) = default;
    StringDictionary& operator=(const StringDictionary& other) = default;

    /** Assigns value to an existing key in place (keeping the key's first spelling), or appends both. */
    void set(const String& key, const String& value);
    /** The value of key, or defaultValue when the key is absent; nothing is inserted. */
    String get(const String& key, const String& defaultValue = {}) const;
    bool contains(const String& key) const;
    uint64_t size() const noexcept { return keys.GetSize(); }
    const String& keyAt(uint64_t index) const noexcept { return keys[index]; }
    const String& valueAt(uint64_t index) const noexcept { return values[index]; }
    void clear();

    bool ignoresCase() const noexcept { return ignoreCase != 0; }
    void setIgnoreCase(bool shouldIgnoreCase) noexcept { ignoreCase = shouldIgnoreCase ? 1 : 0; }

private:
    int64_t indexOf(const String& key) const;

    StringArray keys;
    StringArray values;
    int32_t ignoreCase = 1;
};

/** The ADM channel table of a WAV file's chna chunk. */
struct ChnaData
{
    uint16_t numTracks = 0;
    uint16_t numUids = 0;
    Vector<unsigned short> trackIndices;
    StringArray trackUids; // 12 bytes each in the file
    StringArray trackRefs; // 14 bytes each
    StringArray packRefs;  // 11 bytes each
};

/**
    The record that describes an audio file, open or to be written: its shape, its
    container flags, and the text tables and markers its reader found. Copies are deep.
*/
class AudioFilesMetadata
{
public:
    struct Marker
    {
        uint16_t identifier = 0;
        uint32_t position = 0; // in frames
        String label;
    };

    /** Markers owned by the list: copies are deep, and destruction deletes them. */
    class MarkerList : public Vector<Marker*>
    {
    public:
        MarkerList() = default;
        MarkerList(const MarkerList& other);
        /** Should copying other's markers fail, this list keeps its own. */
        MarkerList& operator=(const MarkerList& other);
        ~MarkerList() override;
    };

    /** Appends a marker the record owns. */
    void addMarker(uint16_t identifier, uint32_t position, const String& label);
    void clearMarkers();

    // First, so that a copy of a record takes the markers before anything else: should
    // that fail, the record assigned to keeps all it had.
    MarkerList markers;
    double sampleRate = 0.0;
    uint32_t bitsPerSample = 0;
    uint64_t numSamples = 0;
    uint32_t numChannels = 0;
    bool isFloat = false;
    String formatName { "unknown" };
    bool isRf64 = false;
    bool hasBext = false;
    bool isW64 = false;
    StringDictionary bextEntries;
    String axmlText;
    StringDictionary listEntries;
};

} // namespace kvo
