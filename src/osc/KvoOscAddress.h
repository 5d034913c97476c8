#pragma once

#include <cstdint>
#include <unordered_map>

#include "core/KvoString.h"
#include "math/KvoVector.h"

namespace kvo
{

/** A text with its 64-bit FNV-1a hash, taken over the bytes before the first zero byte. */
class HashedString
{
public:
    static constexpr uint64_t offsetBasis = 0xcbf29ce484222325ull;
    static constexpr uint64_t prime = 0x100000001b3ull;

    HashedString() = default;
    explicit HashedString(const String& initialText) : text(initialText), hash(Hash(initialText.GetCharPointer())) {}

    /** Stores text, unless it hashes as the stored one does: then the stored text stays. */
    void Set(const String& newText);

    const String& GetText() const noexcept { return text; }
    uint64_t GetHash() const noexcept { return hash; }

    static uint64_t Hash(const char* text) noexcept;

private:
    String text;
    uint64_t hash = offsetBasis;
};

/**
    The tokens of every OSC address of the process, each stored once and keyed by its hash.

    The pool only grows. Equal hashes count as the same token: the first text stays and
    later ones are dropped unread. Insertion and look-up take no lock, so threads that
    build addresses must take turns.
*/
class HashedStringPool
{
public:
    static HashedStringPool& GetInstance();

    void Insert(const HashedString& token);
    /** The token of hash, or nullptr when the pool does not hold it. */
    const HashedString* Find(uint64_t hash) const;
    uint64_t GetSize() const noexcept { return entries.size(); }

private:
    HashedStringPool();

    std::unordered_map<uint64_t, HashedString> entries;
};

/** The tokens of an address as hashes into the pool. */
class PooledHashedStringArray : public Vector<uint64_t>
{
public:
    /** The text of token index, looked up in the pool; empty if the pool lacks it. */
    String GetString(uint64_t index) const;
};

class OscAddress;
class OscAddressPattern;

/** Cuts OSC paths into pooled tokens and refuses the characters a path may not hold. */
class OscAddressTokeniser
{
public:
    /**
        The tokens of text: the first byte is skipped, whatever it is, the rest is cut at
        each "/" and empty pieces are dropped. Throws an Exception at the first token
        with a character that Path forbids, or, for a pattern, with unbalanced brackets.
    */
    template <typename Path>
    static PooledHashedStringArray Tokenise(const String& text);

    /** Checks the brackets, commas and dashes of one token of a pattern. */
    template <typename Path>
    static void sanityCheck(const String& token, const String& address);
};

template <>
void OscAddressTokeniser::sanityCheck<OscAddressPattern>(const String& token, const String& address);

/** What OscAddress and OscAddressPattern share: the pooled tokens and the whole text. */
class OscPath
{
public:
    uint64_t GetNumTokens() const noexcept { return tokens.GetSize(); }
    /** The text of token index, from the pool. */
    String GetToken(uint64_t index) const { return tokens.GetString(index); }
    const PooledHashedStringArray& GetTokens() const noexcept { return tokens; }
    /** The path as given, less one trailing "/". */
    const String& GetText() const noexcept { return text.GetText(); }
    uint64_t GetHash() const noexcept { return text.GetHash(); }

protected:
    OscPath() = default;
    ~OscPath() = default;

    /** Tokenises text with Path's rules and stores both. */
    template <typename Path>
    void assign(const String& newText);

private:
    PooledHashedStringArray tokens;
    HashedString text;
};

/** The constructors of a kind of path: Path's isPattern and forbiddenCharacters decide how text is tokenised. */
template <typename Path>
class OscPathOf : public OscPath
{
public:
    OscPathOf() = default;
    explicit OscPathOf(const char* pathText);
    explicit OscPathOf(const String& pathText);
};

/** A concrete OSC address: none of the pattern characters "*,?[]{}" allowed. */
class OscAddress : public OscPathOf<OscAddress>
{
public:
    static constexpr bool isPattern = false;
    static constexpr const char* forbiddenCharacters = " #*,/?[]{}";
    using OscPathOf::OscPathOf;
};

/** An OSC address pattern: may hold "*", ",", "?" and balanced "[]" and "{}". */
class OscAddressPattern : public OscPathOf<OscAddressPattern>
{
public:
    static constexpr bool isPattern = true;
    static constexpr const char* forbiddenCharacters = " #/";
    using OscPathOf::OscPathOf;
};

} // namespace kvo
