#pragma once

#include <cstdint>
#include <unordered_map>
#include <variant>

#include "osc/KvoOscAddress.h"

namespace kvo
{

/**
    The library's own OSC addresses and patterns, built once at start-up and looked up
    by their text. Building them also fills the token pool with the library's
    vocabulary, so later addresses find their tokens already there.
*/
class OscAddressConstants
{
public:
    using Entry = std::variant<OscAddress, OscAddressPattern>;

    static OscAddressConstants& GetInstance();

    /** Builds every constant; one that is not valid OSC throws, as its constructor does. */
    void Build();
    /** Empties the table and gives its memory back; the token pool keeps its tokens. */
    void Clear();

    /** The constant whose text is text, or nullptr. */
    const Entry* Find(const String& text) const;
    uint64_t GetSize() const noexcept { return entries.size(); }
    const std::unordered_map<uint64_t, Entry>& GetEntries() const noexcept { return entries; }

private:
    OscAddressConstants() = default;

    std::unordered_map<uint64_t, Entry> entries;
};

} // namespace kvo
