#include "osc/KvoOscAddressConstants.h"

namespace kvo
{
namespace
{

// The addresses a renderer built on the library answers to, one per setting.
constexpr const char* addressTexts[] = {
    "/ping",
    "/version",
    "/verbosity",
    "/source/xyz",
    "/source/aed",
    "/source/gain",
    "/source/mute",
    "/source/name",
    "/source/colour",
    "/listener/xyz",
    "/listener/orientation",
    "/room/dimension",
    "/master/gain",
    "/master/mute",
    "/delay/interpolation",
    "/delay/varying",
    "/vbap/triangulation",
    "/ambisonic/order",
    "/ambisonic/sorting",
    "/ambisonic/norm",
};

// Patterns that reach many sources or both ends of a scene at once.
constexpr const char* patternTexts[] = {
    "/source/*/xyz",
    "/source/*/aed",
    "/source/[0-9]/gain",
    "/source/*/mute",
    "/{source,listener}/xyz",
    "/master/*",
    "/ambisonic/{sorting,norm}",
};

} // namespace

OscAddressConstants& OscAddressConstants::GetInstance()
{
    static OscAddressConstants constants;
    return constants;
}

void OscAddressConstants::Build()
{
    for (const char* text : addressTexts)
    {
        OscAddress address(text);
        const uint64_t hash = address.GetHash();
        entries.try_emplace(hash, std::move(address));
    }
    for (const char* text : patternTexts)
    {
        OscAddressPattern pattern(text);
        const uint64_t hash = pattern.GetHash();
        entries.try_emplace(hash, std::move(pattern));
    }
}

void OscAddressConstants::Clear()
{
    // clear() would keep the bucket array; swapping with an empty table frees it too.
    std::unordered_map<uint64_t, Entry>().swap(entries);
}

const OscAddressConstants::Entry* OscAddressConstants::Find(const String& text) const
{
    const auto entry = entries.find(HashedString::Hash(text.GetCharPointer()));
    return entry == entries.end() ? nullptr : &entry->second;
}

} // namespace kvo
