#include "core/KvoString.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <locale>
#include <ostream>

#include "core/KvoStackArrayStream.h"

namespace kvo
{
namespace
{

constexpr int64_t notFound = -1;

// Folding and white-space tests go through the C library one byte at a time. Bytes
// above 0x7F belong to multi-byte characters: they are never folded nor taken for
// white space, whatever the C locale would say about them.
char foldByte(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 ? static_cast<char>(std::tolower(byte)) : c;
}

bool isSpaceByte(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 && std::isspace(byte) != 0;
}

bool isAsciiLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int64_t positionOrNotFound(size_t position)
{
    return position == std::string::npos ? notFound : static_cast<int64_t>(position);
}

} // namespace

// ---------------------------------------------------------------------------------------
// Predicates

bool ContainsNonWhitespace(const String& s)
{
    const std::string& text = s.GetStdString();
    return std::any_of(text.begin(), text.end(), [](char c) { return !isSpaceByte(c); });
}

bool ContainsWhitespace(const String& s)
{
    const std::string& text = s.GetStdString();
    return std::any_of(text.begin(), text.end(), isSpaceByte);
}

bool ContainsOnly(const String& s, char c)
{
    return s.GetStdString().find_first_not_of(c) == std::string::npos;
}

bool ContainsChar(const String& s, char c)
{
    return s.GetStdString().find(c) != std::string::npos;
}

bool ContainsString(const String& s, const String& t)
{
    return IndexOf(s, t) != notFound;
}

bool ContainsAnyOf(const String& s, const char* chars)
{
    if (chars == nullptr || *chars == 0)
        return false;
    return s.GetStdString().find_first_of(chars) != std::string::npos;
}

bool ContainsWildcard(const String& s)
{
    return ContainsAnyOf(s, "*?");
}

bool EndsWith(const String& s, const String& t)
{
    const std::string& text = s.GetStdString();
    const std::string& tail = t.GetStdString();
    return tail.size() <= text.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bool EndsWith(const String& s, char c)
{
    return !s.IsEmpty() && s.GetStdString().back() == c;
}

bool StartsWith(const String& s, const String& t)
{
    return s.GetStdString().starts_with(t.GetStdString());
}

bool IsQuoted(const String& s)
{
    if (s.IsEmpty())
        return false;
    const char first = s.GetStdString().front();
    const char last = s.GetStdString().back();
    return first == last && (first == '"' || first == '\'');
}

// ---------------------------------------------------------------------------------------
// Comparison and search

bool Equals(const String& s, const String& t, const CaseSensitivity& cs)
{
    if (s.GetLength() != t.GetLength())
        return false;

    // C string semantics: the comparison ends at the first zero byte, so whatever lies
    // behind an embedded zero is not looked at.
    const char* a = s.GetCharPointer();
    const char* b = t.GetCharPointer();
    for (;; ++a, ++b)
    {
        const char x = cs == insensitive ? foldByte(*a) : *a;
        const char y = cs == insensitive ? foldByte(*b) : *b;
        if (x != y)
            return false;
        if (x == 0)
            return true;
    }
}

int64_t IndexOf(const String& s, const String& t, const CaseSensitivity& cs)
{
    if (s.IsEmpty() || t.IsEmpty())
        return notFound;
    if (cs == insensitive)
        return IndexOf(ToLowerCaseCopy(s), ToLowerCaseCopy(t), sensitive);
    return positionOrNotFound(s.GetStdString().find(t.GetStdString()));
}

int64_t IndexOf(const String& s, char c, const CaseSensitivity& cs)
{
    if (cs == insensitive)
        return IndexOf(ToLowerCaseCopy(s), foldByte(c), sensitive);
    return positionOrNotFound(s.GetStdString().find(c));
}

int64_t LastIndexOf(const String& s, char c, const CaseSensitivity& cs)
{
    if (cs == insensitive)
        return LastIndexOf(ToLowerCaseCopy(s), foldByte(c), sensitive);
    return positionOrNotFound(s.GetStdString().rfind(c));
}

int64_t CountOf(const String& s, char c, const CaseSensitivity& cs)
{
    if (cs == insensitive)
        return CountOf(ToLowerCaseCopy(s), foldByte(c), sensitive);
    const std::string& text = s.GetStdString();
    return static_cast<int64_t>(std::count(text.begin(), text.end(), c));
}

// ---------------------------------------------------------------------------------------
// Slices

String SubString(const String& s, int64_t start, int64_t end)
{
    // A negative start counts from the beginning rather than reading before it.
    start = std::max<int64_t>(start, 0);
    end = std::min(end, s.GetLength());
    if (end <= start)
        return {};
    return String(s.GetCharPointer() + start, static_cast<size_t>(end - start));
}

String SubString(const String& s, int64_t start)
{
    return SubString(s, start, s.GetLength());
}

String FromFirstOccurrenceOf(const String& s, const String& t, const CaseSensitivity& cs)
{
    const int64_t position = IndexOf(s, t, cs);
    return position == notFound ? String() : SubString(s, position + t.GetLength());
}

String FromFirstOccurrenceOf(const String& s, char c, const CaseSensitivity& cs)
{
    const int64_t position = IndexOf(s, c, cs);
    return position == notFound ? String() : SubString(s, position + 1);
}

String FromLastOccurrenceOf(const String& s, char c, bool include, const CaseSensitivity& cs)
{
    const int64_t position = LastIndexOf(s, c, cs);
    return position == notFound ? String() : SubString(s, include ? position : position + 1);
}

// The UpTo forms answer the empty text, never the whole text, when the delimiter is
// missing: a name without a "/" has an empty folder part, not itself as its folder.
String UpToFirstOccurrenceOf(const String& s, const String& t, bool include, const CaseSensitivity& cs)
{
    const int64_t position = IndexOf(s, t, cs);
    return position == notFound ? String() : SubString(s, 0, include ? position + t.GetLength() : position);
}

String UpToLastOccurrenceOf(const String& s, char c, bool include, const CaseSensitivity& cs)
{
    const int64_t position = LastIndexOf(s, c, cs);
    return position == notFound ? String() : SubString(s, 0, include ? position + 1 : position);
}

// ---------------------------------------------------------------------------------------
// Changes in place

void ToLowerCase(String& s)
{
    for (char& c : s.GetStdString())
        c = foldByte(c);
}

void TrimStart(String& s)
{
    std::string& text = s.GetStdString();
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isSpaceByte));
}

void TrimEnd(String& s)
{
    std::string& text = s.GetStdString();
    text.erase(std::find_if_not(text.rbegin(), text.rend(), isSpaceByte).base(), text.end());
}

void Trim(String& s)
{
    TrimEnd(s);
    TrimStart(s);
}

void PopBack(String& s)
{
    s.GetStdString().pop_back();
}

void ReplaceAll(String& s, const String& find, const String& with)
{
    if (find.IsEmpty())
        return;

    // Built into a new text, so the search resumes behind each insertion and never sees
    // inserted bytes again; find and with may even be s itself.
    const std::string& text = s.GetStdString();
    const std::string& pattern = find.GetStdString();
    std::string result;
    size_t from = 0;
    for (size_t at = text.find(pattern); at != std::string::npos; at = text.find(pattern, from))
    {
        result.append(text, from, at - from).append(with.GetStdString());
        from = at + pattern.size();
    }
    if (from == 0)
        return;
    result.append(text, from, std::string::npos);
    s.GetStdString() = std::move(result);
}

void ReplaceChar(String& s, char from, char to)
{
    std::replace(s.GetStdString().begin(), s.GetStdString().end(), from, to);
}

void ReplaceLast(String& s, const String& find, const String& with)
{
    if (find.IsEmpty() || find.GetLength() > s.GetLength())
        return;
    const size_t at = s.GetStdString().rfind(find.GetStdString());
    if (at != std::string::npos)
        s.GetStdString().replace(at, find.GetStdString().size(), std::string(with.GetStdString()));
}

// ---------------------------------------------------------------------------------------
// Copies

String ToLowerCaseCopy(const String& s)
{
    String copy(s);
    ToLowerCase(copy);
    return copy;
}

String Trimmed(const String& s)
{
    String copy(s);
    Trim(copy);
    return copy;
}

String DropLast(const String& s, char c)
{
    return EndsWith(s, c) ? SubString(s, 0, s.GetLength() - 1) : s;
}

String Replaced(const String& s, const String& find, const String& with)
{
    String copy(s);
    ReplaceAll(copy, find, with);
    return copy;
}

String ReplacedChar(const String& s, char from, char to)
{
    String copy(s);
    ReplaceChar(copy, from, to);
    return copy;
}

String Quoted(const String& s, char quote)
{
    return IsQuoted(s) ? s : String(1, quote) + s + quote;
}

String Unquoted(const String& s)
{
    return IsQuoted(s) ? SubString(s, 1, s.GetLength() - 1) : s;
}

// ---------------------------------------------------------------------------------------
// Numbers to text

namespace
{

template <typename Integer>
String integerText(Integer value)
{
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof(digits), value);
    return String(digits, static_cast<size_t>(result.ptr - digits));
}

// Decimal text of a double that holds a whole number, of any magnitude.
String wholeNumberText(double value)
{
    char digits[320];
    const auto result = std::to_chars(digits, digits + sizeof(digits), value, std::chars_format::fixed, 0);
    return String(digits, static_cast<size_t>(result.ptr - digits));
}

// The digits of scaled with a point numDecimals digits from the right ("0.05" for 5 and 2).
String scaledIntegerText(uint64_t scaled, int numDecimals, bool negative)
{
    char digits[24];
    const auto numDigits = static_cast<int>(std::to_chars(digits, digits + sizeof(digits), scaled).ptr - digits);
    const int numLeadingZeros = std::max(0, numDecimals + 1 - numDigits);

    char text[48];
    int length = 0;
    if (negative)
        text[length++] = '-';
    for (int i = 0; i < numLeadingZeros + numDigits; ++i)
    {
        if (i == numLeadingZeros + numDigits - numDecimals)
            text[length++] = '.';
        text[length++] = i < numLeadingZeros ? '0' : digits[i - numLeadingZeros];
    }
    return String(text, static_cast<size_t>(length));
}

String streamedDoubleText(double value, int numDecimals)
{
    char array[48];
    details::StackArrayStream buffer(array, sizeof(array));
    std::ostream stream(&buffer);
    stream.imbue(std::locale::classic());
    if (numDecimals > 0)
        stream << std::fixed << std::setprecision(numDecimals);

    // Text beyond the array is lost; the stream's failure state is deliberately ignored.
    stream << value;
    return String(array, static_cast<size_t>(buffer.GetLength()));
}

bool looksLikeWholeNumber(const String& text)
{
    const std::string& bytes = text.GetStdString();
    return std::none_of(bytes.begin(), bytes.end(), [](char c) { return c == '.' || isAsciiLetter(c); });
}

} // namespace

String FromInteger(int32_t value)
{
    return integerText(value);
}

String FromInteger(uint32_t value)
{
    return integerText(value);
}

String FromInteger(uint64_t value)
{
    return integerText(value);
}

String FromDouble(double value, int numDecimals, bool asIs)
{
    static constexpr double powersOfTen[] = { 1.0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6 };
    static constexpr double twoToThe64 = 18446744073709551616.0;

    if (numDecimals >= 1 && numDecimals <= 6 && value > -1e20 && value < 1e20)
    {
        // Round half away from zero on the scaled magnitude. Near 1e20 the scaled value
        // can pass 64 bits; those values go to the stream below, whose fixed notation
        // with the same precision prints the digits of the value itself.
        const double scaled = std::fabs(value) * powersOfTen[numDecimals] + 0.5;
        if (scaled < twoToThe64)
            return scaledIntegerText(static_cast<uint64_t>(scaled), numDecimals, value < 0.0);
    }

    String text = streamedDoubleText(value, numDecimals);
    // "8" reads as "8.0"; exponents, "inf" and "nan" carry letters and stay as they are.
    if (!asIs && looksLikeWholeNumber(text))
        text += ".0";
    return text;
}

namespace
{

String formatShortDuration(double milliseconds)
{
    if (milliseconds < 100.0)
        return FromDouble(milliseconds, 1) + " ms";
    return integerText(static_cast<int32_t>(std::floor(milliseconds))) + " ms";
}

String formatClockDuration(double seconds)
{
    // Kept in double: the values are whole numbers, and no duration can overflow them.
    double h = std::floor(seconds / 3600.0);
    double m = std::floor((seconds - 3600.0 * h) / 60.0);
    double s = std::round(seconds) - 60.0 * (60.0 * h + m);

    // Rounding the seconds up may complete a minute, and that minute an hour.
    if (s == 60.0)
    {
        s = 0.0;
        if (++m == 60.0)
        {
            m = 0.0;
            ++h;
        }
    }

    String text;
    if (h != 0.0)
        text += wholeNumberText(h) + " h";
    if (m == 0.0 && h != 0.0 && s == 0.0)
        return text;
    if (m != 0.0 || h != 0.0)
        text += (h != 0.0 ? " " : "") + wholeNumberText(m) + " min";
    if (s != 0.0)
        text += (m != 0.0 || h != 0.0 ? " " : "") + wholeNumberText(s) + " sec";
    return text;
}

} // namespace

String FormatDuration(double milliseconds)
{
    // An estimate made at the very start can be infinite or not a number; it has no
    // hours or minutes, so it reads "inf ms" or "nan ms".
    if (!std::isfinite(milliseconds))
        return FromDouble(milliseconds, 1) + " ms";

    const double seconds = milliseconds / 1000.0;
    if (seconds < 1.0)
        return formatShortDuration(milliseconds);
    if (seconds <= 30.0)
        return FromDouble(seconds, 2) + " sec";
    return formatClockDuration(seconds);
}

// ---------------------------------------------------------------------------------------
// Wildcards

namespace
{

bool wildcardByteMatches(char c, char x, bool insensitive)
{
    return c == x || c == '?' || (insensitive && foldByte(c) == foldByte(x));
}

// p walks the zero-terminated pattern, t the zero-terminated text. A star is only tried
// against text that has not ended, so "a**" does not match "a" while "a*" does, and "?" never
// matches the end of the text: a run of stars that ends the pattern matches any rest when it
// is one star long, and a rest of at least one byte when it is longer.
//
// Only the latest star is ever resumed: whatever an earlier star could still swallow, the
// latest one can swallow too, so going back further finds nothing new. A run of stars counts
// as one. So the stack is constant and each byte of a run of stars is looked at once.
bool matchesFrom(const char* p, const char* t, bool insensitive)
{
    const char* resumePattern = nullptr; // just behind the latest run of stars
    const char* resumeText = nullptr;    // where that run's swallowing ends so far
    for (;;)
    {
        if (*p == '*')
        {
            const char* run = p;
            while (*p == '*')
                ++p;
            if (*p == 0)
                return p - run == 1 || *t != 0;
            resumePattern = p;
            resumeText = t;
        }
        else if (*t != 0 && *p != 0 && wildcardByteMatches(*p, *t, insensitive))
        {
            ++p;
            ++t;
        }
        else if (*p == 0 && *t == 0)
        {
            return true;
        }
        else if (resumePattern == nullptr || *resumeText == 0)
        {
            return false;
        }
        else
        {
            p = resumePattern;
            t = ++resumeText;
        }
    }
}

} // namespace

bool MatchesWildcard(const String& s, const String& pattern, const CaseSensitivity& cs)
{
    if (s.IsEmpty() || pattern.IsEmpty())
        return false;
    return matchesFrom(pattern.GetCharPointer(), s.GetCharPointer(), cs == insensitive);
}

} // namespace kvo
