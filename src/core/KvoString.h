#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvo
{

/** How text comparisons treat letter case. Folding is byte-wise, ASCII only. */
enum CaseSensitivity : int
{
    sensitive = 0,
    insensitive = 1
};

/**
    Byte text: the text type of the whole library.

    A thin owner of a std::string. Bytes are bytes: no operation decodes multi-byte
    characters, and case folding and white-space tests go through tolower/isspace one
    byte at a time. Positions are 64-bit and a failed search answers -1.
*/
class String
{
public:
    String() = default;
    String(const char* chars) : text(chars != nullptr ? chars : "") {}
    String(const char* chars, size_t length) : text(chars, length) {}
    String(std::string source) : text(std::move(source)) {}
    String(std::string_view source) : text(source) {}
    String(size_t count, char c) : text(count, c) {}

    int64_t GetLength() const noexcept { return static_cast<int64_t>(text.size()); }
    bool IsEmpty() const noexcept { return text.empty(); }
    const char* GetCharPointer() const noexcept { return text.c_str(); }
    const std::string& GetStdString() const noexcept { return text; }
    std::string& GetStdString() noexcept { return text; }
    operator std::string_view() const noexcept { return text; }

    char operator[](int64_t index) const noexcept { return text[static_cast<size_t>(index)]; }
    char& operator[](int64_t index) noexcept { return text[static_cast<size_t>(index)]; }

    String& operator+=(const String& other) { text += other.text; return *this; }
    String& operator+=(const char* other) { text += other; return *this; }
    String& operator+=(char c) { text += c; return *this; }

    friend String operator+(String a, const String& b) { a.text += b.text; return a; }
    friend String operator+(String a, const char* b) { a.text += b; return a; }
    friend String operator+(const char* a, const String& b) { return String(a) + b; }
    friend String operator+(String a, char c) { a.text += c; return a; }

    friend bool operator==(const String& a, const String& b) noexcept { return a.text == b.text; }
    friend bool operator==(const String& a, const char* b) noexcept { return a.text == b; }

private:
    std::string text;
};

// Predicates
bool ContainsNonWhitespace(const String& s);
bool ContainsWhitespace(const String& s);
bool ContainsOnly(const String& s, char c);
bool ContainsChar(const String& s, char c);
bool ContainsString(const String& s, const String& t);
bool ContainsAnyOf(const String& s, const char* chars);
bool ContainsWildcard(const String& s);
bool EndsWith(const String& s, const String& t);
bool EndsWith(const String& s, char c);
bool StartsWith(const String& s, const String& t);
bool IsQuoted(const String& s);

// Comparison and search
bool Equals(const String& s, const String& t, const CaseSensitivity& cs = sensitive);
int64_t IndexOf(const String& s, const String& t, const CaseSensitivity& cs = sensitive);
int64_t IndexOf(const String& s, char c, const CaseSensitivity& cs = sensitive);
int64_t LastIndexOf(const String& s, char c, const CaseSensitivity& cs = sensitive);
int64_t CountOf(const String& s, char c, const CaseSensitivity& cs = sensitive);

// Slices
String SubString(const String& s, int64_t start, int64_t end);
String SubString(const String& s, int64_t start);
String FromFirstOccurrenceOf(const String& s, const String& t, const CaseSensitivity& cs = sensitive);
String FromFirstOccurrenceOf(const String& s, char c, const CaseSensitivity& cs = sensitive);
String FromLastOccurrenceOf(const String& s, char c, bool include, const CaseSensitivity& cs = sensitive);
String UpToFirstOccurrenceOf(const String& s, const String& t, bool include, const CaseSensitivity& cs = sensitive);
String UpToLastOccurrenceOf(const String& s, char c, bool include, const CaseSensitivity& cs = sensitive);

// Changes in place
void ToLowerCase(String& s);
void TrimStart(String& s);
void TrimEnd(String& s);
void Trim(String& s);
void PopBack(String& s);
void ReplaceAll(String& s, const String& find, const String& with);
void ReplaceChar(String& s, char from, char to);
void ReplaceLast(String& s, const String& find, const String& with);

// Copies
String ToLowerCaseCopy(const String& s);
String Trimmed(const String& s);
String DropLast(const String& s, char c);
String Replaced(const String& s, const String& find, const String& with);
String ReplacedChar(const String& s, char from, char to);
String Quoted(const String& s, char quote = '"');
String Unquoted(const String& s);

// Numbers to text
String FromInteger(int32_t value);
String FromInteger(uint32_t value);
String FromInteger(uint64_t value);
String FromDouble(double value, int numDecimals = 0, bool asIs = false);
String FormatDuration(double milliseconds);

// Wildcards: "*" any run, "?" one byte; no classes, no escapes.
bool MatchesWildcard(const String& s, const String& pattern, const CaseSensitivity& cs = sensitive);

} // namespace kvo
