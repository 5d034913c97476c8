#include "osc/KvoOscAddress.h"

#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "core/KvoException.h"

namespace kvo
{

// ---------------------------------------------------------------------------------------
// HashedString and the pool

uint64_t HashedString::Hash(const char* text) noexcept
{
    uint64_t hash = offsetBasis;
    for (; *text != '\0'; ++text)
    {
        hash ^= static_cast<unsigned char>(*text);
        hash *= prime;
    }
    return hash;
}

void HashedString::Set(const String& newText)
{
    const uint64_t newHash = Hash(newText.GetCharPointer());
    if (newHash == hash)
        return;
    text = newText;
    hash = newHash;
}

HashedStringPool::HashedStringPool()
{
    entries.max_load_factor(1.0f);
}

HashedStringPool& HashedStringPool::GetInstance()
{
    static HashedStringPool pool;
    return pool;
}

void HashedStringPool::Insert(const HashedString& token)
{
    entries.try_emplace(token.GetHash(), token);
}

const HashedString* HashedStringPool::Find(uint64_t hash) const
{
    const auto entry = entries.find(hash);
    return entry == entries.end() ? nullptr : &entry->second;
}

String PooledHashedStringArray::GetString(uint64_t index) const
{
    const HashedString* token = HashedStringPool::GetInstance().Find((*this)[index]);
    return token != nullptr ? token->GetText() : String();
}

// ---------------------------------------------------------------------------------------
// Tokenising

namespace
{

/** The pieces of text between slashes, from its second byte on, empty ones left out. */
std::vector<String> cutTokens(const String& text)
{
    std::vector<String> pieces;
    const std::string_view rest = std::string_view(text).substr(text.IsEmpty() ? 0 : 1);
    size_t start = 0;
    while (start <= rest.size())
    {
        size_t end = rest.find('/', start);
        if (end == std::string_view::npos)
            end = rest.size();
        if (end > start)
            pieces.emplace_back(rest.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

/**
    The code point at position, which moves past it. A byte that does not open a
    complete, shortest-form UTF-8 sequence stands for itself, so every non-ASCII byte
    decodes to a code point above 127 and no sequence can pass for an ASCII character.
*/
uint32_t decodeCodePoint(std::string_view text, size_t& position)
{
    const auto lead = static_cast<unsigned char>(text[position++]);
    size_t length = 0;
    uint32_t codePoint = lead;
    uint32_t smallest = 0;
    if (lead >= 0xc0 && lead < 0xe0)
        length = 1, codePoint = lead & 0x1fu, smallest = 0x80;
    else if (lead >= 0xe0 && lead < 0xf0)
        length = 2, codePoint = lead & 0x0fu, smallest = 0x800;
    else if (lead >= 0xf0 && lead < 0xf8)
        length = 3, codePoint = lead & 0x07u, smallest = 0x10000;

    if (length == 0 || position + length > text.size())
        return lead;
    for (size_t i = 0; i < length; ++i)
    {
        const auto next = static_cast<unsigned char>(text[position + i]);
        if ((next & 0xc0u) != 0x80u)
            return lead;
        codePoint = (codePoint << 6) | (next & 0x3fu);
    }
    if (codePoint < smallest)
        return lead;
    position += length;
    return codePoint;
}

bool isForbidden(uint32_t codePoint, const char* forbiddenCharacters)
{
    if (codePoint < 32 || codePoint > 126)
        return true;
    return std::strchr(forbiddenCharacters, static_cast<int>(codePoint)) != nullptr;
}

/** The first forbidden code point of token, if it has one. */
std::optional<uint32_t> firstForbidden(const String& token, const char* forbiddenCharacters)
{
    const std::string_view text(token);
    for (size_t position = 0; position < text.size();)
    {
        const uint32_t codePoint = decodeCodePoint(text, position);
        if (isForbidden(codePoint, forbiddenCharacters))
            return codePoint;
    }
    return std::nullopt;
}

/**
    Refuses token when it holds a forbidden character. A blank in the last token most
    likely means arguments were sent as part of the address, so that case says so.
*/
void checkCharacters(const String& token, const String& address, bool isLastToken, const char* forbiddenCharacters)
{
    const std::optional<uint32_t> found = firstForbidden(token, forbiddenCharacters);
    if (!found)
        return;
    const uint32_t codePoint = *found;

    const String character = Quoted(String(1, static_cast<char>(codePoint & 0xffu)), '"');
    if (codePoint == ' ' && isLastToken)
        throw Exception(Quoted(address, '"') + " is not a valid OSC address pattern, as it" + " contains the "
                            + character + " character."
                            + " Maybe you wanted to send an address pattern followed by arguments, but things are"
                              " incorrectly typed as a string ?",
                        KVO_CODE_LOCATION);
    throw Exception(String("OSC format error: Character ") + character + " not allowed in address pattern "
                        + Quoted(address, '"'),
                    KVO_CODE_LOCATION);
}

} // namespace

template <typename Path>
PooledHashedStringArray OscAddressTokeniser::Tokenise(const String& text)
{
    const std::vector<String> pieces = cutTokens(text);

    // Every token enters the pool before any is checked; the ones a failure leaves
    // behind are harmless text.
    PooledHashedStringArray tokens;
    HashedStringPool& pool = HashedStringPool::GetInstance();
    for (const String& piece : pieces)
    {
        const HashedString token(piece);
        pool.Insert(token);
        tokens.PushBack(token.GetHash());
    }

    for (size_t i = 0; i < pieces.size(); ++i)
    {
        checkCharacters(pieces[i], text, i + 1 == pieces.size(), Path::forbiddenCharacters);
        if constexpr (Path::isPattern)
            sanityCheck<Path>(pieces[i], text);
    }
    return tokens;
}

template PooledHashedStringArray OscAddressTokeniser::Tokenise<OscAddress>(const String&);
template PooledHashedStringArray OscAddressTokeniser::Tokenise<OscAddressPattern>(const String&);

template <>
void OscAddressTokeniser::sanityCheck<OscAddressPattern>(const String& token, const String& address)
{
    const bool openSquare = ContainsChar(token, '[');
    const bool closeSquare = ContainsChar(token, ']');
    const bool openCurly = ContainsChar(token, '{');
    const bool closeCurly = ContainsChar(token, '}');
    const bool comma = ContainsChar(token, ',');
    const int64_t dashes = CountOf(token, '-');

    // Only presence and counts matter, not the order or nesting of the brackets.
    const struct
    {
        bool failed;
        const char* message;
    } checks[] = {
        {openSquare && !closeSquare, "OSC format error: missing ']' in address "},
        {closeSquare && !openSquare, "OSC format error: missing '[' in address "},
        {openCurly && !closeCurly, "OSC format error: missing '}' in address "},
        {closeCurly && !openCurly, "OSC format error: missing '}' in address "},
        {comma && !openCurly && !openSquare, "OSC format error: anormal ',' in address "},
        {openSquare && closeSquare && dashes > 1, "OSC format error: too many '-' in address "},
        {openSquare && closeSquare && comma, "OSC format error: use curly brackets for ',' separator in address "},
        {openCurly && closeCurly && dashes > 0, "OSC format error: use square brackets for '-' separator in address "},
    };
    for (const auto& check : checks)
        if (check.failed)
            throw Exception(String(check.message) + Quoted(address, '"'), KVO_CODE_LOCATION);
}

// ---------------------------------------------------------------------------------------
// Addresses and patterns

template <typename Path>
void OscPath::assign(const String& newText)
{
    if (newText == "/")
    {
        tokens.Clear();
        text.Set(String());
        return;
    }
    const String withoutSlash = DropLast(newText, '/');
    // A pattern reports its text less the trailing slash, an address as it was given.
    tokens = OscAddressTokeniser::Tokenise<Path>(Path::isPattern ? withoutSlash : newText);
    text.Set(withoutSlash);
}

template <typename Path>
OscPathOf<Path>::OscPathOf(const char* pathText) : OscPathOf(String(pathText))
{
}

template <typename Path>
OscPathOf<Path>::OscPathOf(const String& pathText)
{
    assign<Path>(pathText);
}

template class OscPathOf<OscAddress>;
template class OscPathOf<OscAddressPattern>;

} // namespace kvo
