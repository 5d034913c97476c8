#include "files/KvoFile.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "core/KvoException.h"
#include "core/KvoStringArray.h"

namespace kvo
{
namespace
{

constexpr char separator = '/';

/** stat of the path, following links; false for the empty path and for any failure. */
bool statPath(const String& path, struct stat& info)
{
    return !path.IsEmpty() && ::stat(path.GetCharPointer(), &info) == 0;
}

/** The text as ParseAbsolutePath sees it before it resolves "~" and relative paths. */
String withoutDotsAndDoubleSeparators(const String& text)
{
    return CollapseSeparators(RemoveDotSegments(Trimmed(text)));
}

/** Whether text, once tidied, is "~" or starts with "~/" and so asks for the home folder. */
bool expandsHome(const String& text)
{
    if (!ContainsNonWhitespace(text) || text == String("none"))
        return false;
    const String path = withoutDotsAndDoubleSeparators(text);
    return path == String("~") || StartsWith(path, "~/");
}

/**
    An environment value that can serve as the home folder: set, and not a text that would
    itself ask for the home folder (" ~", "~/x", "a/../~"), which would recurse without end.
*/
bool isUsableHome(const char* value)
{
    return value != nullptr && !expandsHome(String(value));
}

/** The file's extension in lower case: the text behind a "." of the file name, or empty. */
String lowerCaseExtension(const String& path)
{
    const int64_t dot = LastIndexOf(path, '.');
    if (dot < 0 || dot < LastIndexOf(path, separator))
        return {};
    return ToLowerCaseCopy(SubString(path, dot + 1));
}

/** Whether text holds the dot piece of the given length at from, followed by a separator or the end. */
bool isDotPieceAt(const String& text, int64_t from, int64_t length)
{
    for (int64_t i = 0; i < length; ++i)
        if (from + i >= text.GetLength() || text[from + i] != '.')
            return false;
    return from + length == text.GetLength() || text[from + length] == separator;
}

int64_t skipSeparators(const String& text, int64_t from)
{
    while (from < text.GetLength() && text[from] == separator)
        ++from;
    return from;
}

/** Runs call on the first length bytes of path, as a zero-terminated text, and restores the path. */
template <typename Call>
auto onPrefix(std::string& path, size_t length, Call call)
{
    const char kept = path[length];
    path[length] = 0;
    const auto result = call(path.c_str());
    path[length] = kept;
    return result;
}

bool isDirectoryPrefix(std::string& path, size_t length)
{
    struct stat info {};
    return length > 0 && onPrefix(path, length, [&info](const char* p) { return ::stat(p, &info) == 0; })
        && S_ISDIR(info.st_mode);
}

/**
    The length of the parent folder's path within the first length bytes of path: up to the
    last separator, or "/" for a name at the root; length itself when there is no separator.
*/
size_t parentPrefixLength(const std::string& path, size_t length)
{
    const size_t last = length == 0 ? std::string::npos : path.rfind(separator, length - 1);
    if (last == std::string::npos)
        return length;
    return last > 0 ? last : 1;
}

/** mkdir on the first length bytes of path; a folder made meanwhile by someone else is as good as made here. */
bool makeDirectoryPrefix(std::string& path, size_t length)
{
    // A trailing separator is left out of the name given to mkdir.
    const size_t named = path[length - 1] == separator ? length - 1 : length;
    if (onPrefix(path, named, [](const char* p) { return ::mkdir(p, 0777); }) == 0)
        return true;
    return errno == EEXIST && isDirectoryPrefix(path, length);
}

} // namespace

// ---------------------------------------------------------------------------------------
// Canonical paths

String RemoveDotSegments(const String& path)
{
    if (!ContainsString(path, "./"))
        return path;

    // The pieces kept so far form a stack, so a path of many pieces costs one pass. The bottom
    // piece is taken as it comes, unexamined: it is the root's empty piece or a leading name,
    // or the piece that follows when ".." has removed the bottom one.
    const StringArray pieces = Split(path, separator, true);
    std::vector<const String*> kept;
    bool removed = false;
    for (const String* piece : pieces)
    {
        if (kept.empty())
        {
            kept.push_back(piece);
        }
        else if (*piece == String("..") && *kept.back() != String(".."))
        {
            kept.pop_back();
            removed = true;
        }
        else if (*piece == String("."))
        {
            removed = true;
        }
        else
        {
            kept.push_back(piece);
        }
    }
    if (!removed)
        return path;

    String joined;
    for (size_t i = 0; i < kept.size(); ++i)
    {
        if (i > 0)
            joined += separator;
        joined += *kept[i];
    }
    return joined;
}

String CollapseSeparators(const String& path)
{
    String collapsed = path;
    while (ContainsString(collapsed, "//"))
        ReplaceAll(collapsed, "//", "/");
    return collapsed;
}

String File::ParseAbsolutePath(const String& text)
{
    if (!ContainsNonWhitespace(text) || text == String("none"))
        return {};

    String path = withoutDotsAndDoubleSeparators(text);
    if (path[0] == '~')
    {
        if (path.GetLength() == 1)
            return GetHomeDirectory().GetFullPath();
        // "~user" is not expanded: the text stays as typed, and relative.
        if (path[1] == separator)
            path = CollapseSeparators(GetHomeDirectory().GetFullPath() + SubString(path, 1));
    }
    else if (path[0] != separator)
    {
        return GetCurrentWorkingDirectory().GetChildFile(path).GetFullPath();
    }

    while (path.GetLength() > 1 && EndsWith(path, separator))
        PopBack(path);
    return path;
}

File::File(const String& text) : fullPath(ParseAbsolutePath(text))
{
}

File::File(const char* text) : File(String(text))
{
}

File File::GetChildFile(const String& relativePath) const
{
    if (StartsWith(relativePath, "/"))
        return File(relativePath);

    // Leading "." and ".." pieces are consumed by moving an index, so a long run of them stays linear.
    String base = fullPath;
    int64_t from = 0;
    for (;;)
    {
        if (isDotPieceAt(relativePath, from, 2))
        {
            const int64_t last = LastIndexOf(base, separator);
            if (last >= 0)
                base.GetStdString().resize(static_cast<size_t>(last));
            from = skipSeparators(relativePath, from + 2);
        }
        else if (isDotPieceAt(relativePath, from, 1))
        {
            from = skipSeparators(relativePath, from + 1);
        }
        else
        {
            break;
        }
    }

    if (!EndsWith(base, separator))
        base += "/";
    return File(base + SubString(relativePath, from));
}

// ---------------------------------------------------------------------------------------
// Queries

bool File::Exists() const
{
    struct stat info {};
    return statPath(fullPath, info);
}

bool File::IsDirectory() const
{
    struct stat info {};
    return statPath(fullPath, info) && S_ISDIR(info.st_mode);
}

bool File::IsFile() const
{
    // One stat answers both questions.
    struct stat info {};
    return statPath(fullPath, info) && !S_ISDIR(info.st_mode);
}

uint64_t File::GetSize() const
{
    struct stat info {};
    return statPath(fullPath, info) ? static_cast<uint64_t>(info.st_size) : 0;
}

String File::GetFileName() const
{
    const int64_t last = LastIndexOf(fullPath, separator);
    return last < 0 ? fullPath : SubString(fullPath, last + 1);
}

File File::GetParentDirectory() const
{
    const std::string& path = fullPath.GetStdString();
    return File(String(path.substr(0, parentPrefixLength(path, path.size()))), Unparsed {});
}

bool File::HasFileExtension(const String& extensions) const
{
    const String extension = lowerCaseExtension(fullPath);
    if (extensions.IsEmpty())
        return extension.IsEmpty() && LastIndexOf(fullPath, '.') <= LastIndexOf(fullPath, separator);

    const StringArray pieces = Split(extensions, ' ', true);
    for (uint64_t i = 0; i < pieces.GetSize(); ++i)
    {
        String candidate = pieces[i];
        if (StartsWith(candidate, "."))
            candidate = SubString(candidate, 1);
        if (ToLowerCaseCopy(candidate) == extension)
            return true;
    }
    return false;
}

// ---------------------------------------------------------------------------------------
// Changes on disk

bool File::Delete() const
{
    if (!Exists())
        return true;
    const int result = IsDirectory() ? ::rmdir(fullPath.GetCharPointer()) : ::unlink(fullPath.GetCharPointer());
    return result == 0;
}

bool File::CreateDirectoryA() const
{
    // One copy of the path serves every level: a level is the copy cut short by a zero byte,
    // and only the lengths of the missing levels are kept. So a path of tens of thousands of
    // missing folders costs memory in proportion to its length, and no recursion.
    std::string path = fullPath.GetStdString();
    std::vector<size_t> missing; // deepest first
    size_t length = path.size();
    while (!isDirectoryPrefix(path, length))
    {
        missing.push_back(length);
        const size_t parent = parentPrefixLength(path, length);
        if (parent == length)
            throw Exception(String("Cannot create directory ") + Quoted(String(path.substr(0, length)), '"'),
                            KVO_CODE_LOCATION);
        length = parent;
    }
    for (auto level = missing.rbegin(); level != missing.rend(); ++level)
        if (!makeDirectoryPrefix(path, *level))
            return false;
    return true;
}

bool File::CreateParentDirectory() const
{
    return IsDirectory() || GetParentDirectory().CreateDirectoryA();
}

void File::OverwriteIfNeeded(const Overwrite& overwrite) const
{
    if (!Exists() || IsDirectory())
    {
        if (!IsDirectory() || fullPath.IsEmpty())
            return;
        throw Exception(Quoted(fullPath, '"') + " is a folder", KVO_CODE_LOCATION);
    }

    switch (overwrite.GetPolicy())
    {
        case 1:
            if (!Exists())
                return;
            [[fallthrough]];
        case 2:
            if (!Delete())
                throw Exception(String("Error overwriting file ") + Quoted(fullPath, '"')
                                    + " (probably a permission issue?)",
                                KVO_CODE_LOCATION);
            return;
        case 0:
            throw Exception(String("File already exists ") + Quoted(fullPath, '"'), KVO_CODE_LOCATION);
        default:
            throw Exception("bug : unexpected overwrite flag", KVO_CODE_LOCATION);
    }
}

// ---------------------------------------------------------------------------------------
// Well-known folders

File File::GetCurrentWorkingDirectory()
{
    std::string buffer(8192, '\0');
    for (;;)
    {
        if (::getcwd(buffer.data(), buffer.size()) != nullptr)
            return File(String(buffer.c_str()));
        if (errno != ERANGE || buffer.size() >= (size_t(1) << 24))
            return File();
        buffer.resize(buffer.size() * 2);
    }
}

File File::GetHomeDirectory()
{
    // A value that asks for "~" itself (HOME="~", "~/x") would expand without end: it is passed over.
    if (const char* home = std::getenv("HOME"); isUsableHome(home))
        return File(String(home));
    if (const char* home = std::getenv("home"); isUsableHome(home))
        return File(String(home));
    const char* drive = std::getenv("HOMEDRIVE");
    const char* homePath = std::getenv("HOMEPATH");
    if (drive != nullptr && homePath != nullptr)
    {
        const String joined = String(drive) + homePath;
        if (isUsableHome(joined.GetCharPointer()))
            return File(joined);
    }
    return GetCurrentWorkingDirectory();
}

} // namespace kvo
