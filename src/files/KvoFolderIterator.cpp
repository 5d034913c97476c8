#include "files/KvoFolderIterator.h"

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>

namespace kvo
{
namespace
{

bool isHiddenName(const String& name)
{
    return StartsWith(name, ".");
}

/** Case-blind order of names, ties broken byte by byte, so that every walk is reproducible. */
bool namesInOrder(const String& a, const String& b)
{
    const String lowerA = ToLowerCaseCopy(a);
    const String lowerB = ToLowerCaseCopy(b);
    if (lowerA != lowerB)
        return lowerA.GetStdString() < lowerB.GetStdString();
    return a.GetStdString() < b.GetStdString();
}

String withTrailingSeparator(const String& path)
{
    return EndsWith(path, '/') ? path : path + "/";
}

/** The files a wildcard finds in folder, in walk order. */
void collectMatches(std::vector<File>& files, const File& folder, const String& pattern, const Recursion& recursion,
                    uint32_t whatToLookFor)
{
    DirectoryIterator iterator(folder, recursion, pattern, whatToLookFor, true);
    while (iterator.Next(nullptr, nullptr))
        files.push_back(iterator.GetFile());
}

} // namespace

// ---------------------------------------------------------------------------------------
// NativeIterator

NativeIterator::NativeIterator(const File& folder, const String& pattern)
    : folderPath(folder.GetFullPath().IsEmpty() ? String() : withTrailingSeparator(folder.GetFullPath())),
      pattern(pattern)
{
}

void NativeIterator::readFolder()
{
    if (folderPath.IsEmpty())
        return;
    DIR* folder = ::opendir(folderPath.GetCharPointer());
    if (folder == nullptr)
        return;

    while (const dirent* entry = ::readdir(folder))
    {
        const String name(entry->d_name);
        if (!MatchesWildcard(name, pattern, insensitive))
            continue;
        // stat follows links, so a link to a folder is walked as a folder; a dangling one is a file.
        const String path = folderPath + name;
        struct stat info {};
        const bool isDirectory = ::stat(path.GetCharPointer(), &info) == 0 && S_ISDIR(info.st_mode);
        const bool isLink = ::lstat(path.GetCharPointer(), &info) == 0 && S_ISLNK(info.st_mode);
        entries.push_back({ name, isDirectory, isLink });
    }
    ::closedir(folder);

    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return namesInOrder(a.name, b.name); });
}

bool NativeIterator::Next(String& name, bool* isDirectory, bool* isHidden)
{
    if (!started)
    {
        started = true;
        readFolder();
    }
    if (nextEntry >= entries.size())
        return false;

    const Entry& entry = entries[nextEntry++];
    name = entry.name;
    if (isDirectory != nullptr)
        *isDirectory = entry.isDirectory;
    if (isHidden != nullptr)
        *isHidden = isHiddenName(entry.name);
    return true;
}

bool NativeIterator::IsLink() const noexcept
{
    return nextEntry > 0 && entries[nextEntry - 1].isLink;
}

// ---------------------------------------------------------------------------------------
// DirectoryIterator

DirectoryIterator::DirectoryIterator(const File& folder, const Recursion& recursion, const String& wildcard,
                                     uint32_t whatToLookFor, bool ignoreHidden)
    : nativeIterator(new NativeIterator(folder, recursion == notRecursive ? wildcard : String("*"))),
      wildcard(wildcard),
      folderPath(withTrailingSeparator(folder.GetFullPath())),
      whatToLookFor(whatToLookFor),
      ignoreHidden(ignoreHidden),
      recursion(recursion)
{
    wildcards = Split(wildcard, ';', false);
    TrimAll(wildcards);
    RemoveEmpty(wildcards, true);
}

bool DirectoryIterator::matches(const String& name, bool isDirectory) const
{
    const bool wanted = (whatToLookFor & (isDirectory ? 1u : 2u)) != 0;
    if (!wanted)
        return false;
    // A single pattern without recursion was already applied by the folder's own search.
    if (recursion == notRecursive && wildcards.GetSize() < 2)
        return true;
    for (uint64_t i = 0; i < wildcards.GetSize(); ++i)
        if (MatchesWildcard(name, wildcards[i], insensitive))
            return true;
    return false;
}

bool DirectoryIterator::Next(bool* isDirectory, bool* isHidden)
{
    hasBeenAdvanced = true;
    for (;;)
    {
        if (subIterator != nullptr)
        {
            if (subIterator->Next(isDirectory, isHidden))
                return true;
            subIterator.reset();
        }

        String name;
        bool entryIsDirectory = false;
        bool entryIsHidden = false;
        if (!nativeIterator->Next(name, &entryIsDirectory, &entryIsHidden))
            return false;
        ++entriesSeen;
        if (ContainsOnly(name, '.'))
            continue;

        // Linked folders are listed but not entered: a link back up the tree would make the walk endless.
        const bool skipHidden = ignoreHidden && entryIsHidden;
        if (entryIsDirectory && recursion == recursive && !skipHidden && !nativeIterator->IsLink())
            subIterator.reset(new DirectoryIterator(File::FromCanonicalPath(folderPath + name), recursion, wildcard,
                                                    whatToLookFor, ignoreHidden));

        if (!matches(name, entryIsDirectory) || skipHidden)
            continue; // the new sub-iterator, if any, is walked first on the next turn

        currentFile = File::FromCanonicalPath(folderPath + name);
        if (isDirectory != nullptr)
            *isDirectory = entryIsDirectory;
        if (isHidden != nullptr)
            *isHidden = entryIsHidden;
        return true;
    }
}

File DirectoryIterator::GetFile() const
{
    if (subIterator != nullptr && subIterator->hasBeenAdvanced)
        return subIterator->GetFile();
    return currentFile;
}

// ---------------------------------------------------------------------------------------
// ExpandInputList

std::vector<File> ExpandInputList(const String& input, const Recursion& recursion)
{
    String text = Trimmed(input);
    ReplaceAll(text, "\\ ", " ");

    std::vector<File> files;
    if (ContainsChar(text, ','))
    {
        StringArray pieces = Split(text, ',', true);
        TrimAll(pieces);
        for (uint64_t i = 0; i < pieces.GetSize(); ++i)
            files.emplace_back(pieces[i]);
    }
    else if (!ContainsWildcard(text))
    {
        files.emplace_back(text);
    }
    else if (ContainsChar(text, '/'))
    {
        const int64_t last = LastIndexOf(text, '/');
        collectMatches(files, File(SubString(text, 0, last + 1)), SubString(text, last + 1), recursion, 2);
    }
    else
    {
        collectMatches(files, File::GetCurrentWorkingDirectory(), text, recursion, 3);
    }

    files.erase(std::remove_if(files.begin(), files.end(), [](const File& file) { return file.IsDirectory(); }),
                files.end());
    return files;
}

} // namespace kvo
