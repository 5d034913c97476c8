#include "files/KvoFolderIterator.h"

#include <algorithm>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <utility>

namespace kvo
{
namespace
{

// The bits of DirectoryIterator's whatToLookFor.
constexpr uint32_t lookForFolders = 1u;
constexpr uint32_t lookForFiles = 2u;

bool isHiddenName(const String& name)
{
    return StartsWith(name, ".");
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

NativeIterator::NativeIterator(const File& folder, const String& namePattern)
    : folderPath(folder.GetFullPath().IsEmpty() ? String() : withTrailingSeparator(folder.GetFullPath())),
      pattern(namePattern)
{
}

bool NativeIterator::readFolder()
{
    if (folderPath.IsEmpty())
        return false;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(folderPath.GetCharPointer()), ::closedir);
    if (folder == nullptr)
        return false;

    std::vector<Entry> found;
    while (const dirent* entry = ::readdir(folder.get()))
    {
        const String name(entry->d_name);
        if (!MatchesWildcard(name, pattern, insensitive))
            continue;
        // stat follows links, so a link to a folder counts as a folder and a dangling one as a file.
        const String path = folderPath + name;
        struct stat info {};
        const bool isDirectory = ::stat(path.GetCharPointer(), &info) == 0 && S_ISDIR(info.st_mode);
        found.push_back({ name, ToLowerCaseCopy(name).GetStdString(), isDirectory });
    }

    // Case-blind order of names, ties broken byte by byte, so that every walk is reproducible.
    std::sort(found.begin(), found.end(), [](const Entry& a, const Entry& b) {
        return a.sortKey != b.sortKey ? a.sortKey < b.sortKey : a.name.GetStdString() < b.name.GetStdString();
    });
    entries = std::move(found);
    return true;
}

bool NativeIterator::Next(String& name, bool* isDirectory, bool* isHidden)
{
    // A folder too large for memory becomes a library Exception, like any other failed growth.
    bool found = false;
    details::translateAllocationFailures(KVO_CODE_LOCATION, [&] {
        if (!started)
            started = readFolder();
        if (nextEntry >= entries.size())
            return;

        const Entry& entry = entries[nextEntry++];
        name = entry.name;
        if (isDirectory != nullptr)
            *isDirectory = entry.isDirectory;
        if (isHidden != nullptr)
            *isHidden = isHiddenName(entry.name);
        found = true;
    });
    return found;
}

// ---------------------------------------------------------------------------------------
// DirectoryIterator

DirectoryIterator::DirectoryIterator(const File& folder, const Recursion& mode, const String& pattern,
                                     uint32_t lookFor, bool skipHidden)
    : DirectoryIterator(folder, mode, pattern, lookFor, skipHidden, identify(folder.GetFullPath()))
{
}

DirectoryIterator::DirectoryIterator(const File& folder, const Recursion& mode, const String& pattern,
                                     uint32_t lookFor, bool skipHidden, std::vector<FolderIdentity> ancestors)
    : nativeIterator(new NativeIterator(folder, mode == notRecursive ? pattern : String("*"))),
      wildcard(pattern),
      folderPath(withTrailingSeparator(folder.GetFullPath())),
      whatToLookFor(lookFor),
      ignoreHidden(skipHidden),
      recursion(mode),
      enclosingFolders(std::move(ancestors))
{
    wildcards = Split(wildcard, ';', false);
    TrimAll(wildcards);
    RemoveEmpty(wildcards, true);
}

std::vector<DirectoryIterator::FolderIdentity> DirectoryIterator::identify(const String& path)
{
    struct stat info {};
    if (path.IsEmpty() || ::stat(path.GetCharPointer(), &info) != 0)
        return {};
    return { FolderIdentity { static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino) } };
}

void DirectoryIterator::startSubIterator(const String& name)
{
    const String path = folderPath + name;
    std::vector<FolderIdentity> chain = identify(path);
    if (chain.empty())
        return;
    // A folder the walk is already inside is reached through a link back up the tree: walking it would never end.
    if (std::find(enclosingFolders.begin(), enclosingFolders.end(), chain.front()) != enclosingFolders.end())
        return;

    chain.insert(chain.end(), enclosingFolders.begin(), enclosingFolders.end());
    subIterator.reset(new DirectoryIterator(File::FromCanonicalPath(path), recursion, wildcard, whatToLookFor,
                                            ignoreHidden, std::move(chain)));
}

bool DirectoryIterator::matches(const String& name, bool isDirectory) const
{
    const bool wanted = (whatToLookFor & (isDirectory ? lookForFolders : lookForFiles)) != 0;
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

        const bool skipHidden = ignoreHidden && entryIsHidden;
        if (entryIsDirectory && recursion == recursive && !skipHidden)
            startSubIterator(name);

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
        collectMatches(files, File(SubString(text, 0, last + 1)), SubString(text, last + 1), recursion, lookForFiles);
    }
    else
    {
        // Folders are asked for here too; like every folder found, they are dropped below.
        collectMatches(files, File::GetCurrentWorkingDirectory(), text, recursion, lookForFiles | lookForFolders);
    }

    files.erase(std::remove_if(files.begin(), files.end(), [](const File& file) { return file.IsDirectory(); }),
                files.end());
    return files;
}

} // namespace kvo
