#pragma once

#include <cstdint>
#include <vector>

#include "core/KvoScopedPointer.h"
#include "core/KvoStringArray.h"
#include "files/KvoFile.h"

namespace kvo
{

/** Whether a wildcard search also walks the sub-folders. */
enum Recursion
{
    recursive = 0,
    notRecursive = 1
};

/**
    The entries of one folder whose names match a pattern ("*" and "?", case ignored), in
    the order of their names compared without case, ties broken byte by byte. The folder
    is read when the first entry is asked for.
*/
class NativeIterator
{
public:
    NativeIterator(const File& folder, const String& pattern);

    /** The next entry's name and kinds; false when there is none, or the folder cannot be read. */
    bool Next(String& name, bool* isDirectory, bool* isHidden);
    /** Whether the entry Next returned last is a symbolic link (to a folder or not). */
    bool IsLink() const noexcept;

private:
    struct Entry
    {
        String name;
        bool isDirectory = false;
        bool isLink = false;
    };

    void readFolder();

    String folderPath;
    String pattern;
    bool started = false;
    std::vector<Entry> entries;
    size_t nextEntry = 0;
};

/**
    Walks a folder for files and/or sub-folders that match a ";"-separated list of
    patterns, depth first when recursive: a folder comes before its contents.
*/
class DirectoryIterator
{
public:
    /** whatToLookFor: bit 0 asks for folders, bit 1 for files. */
    DirectoryIterator(const File& folder, const Recursion& recursion, const String& wildcard,
                      uint32_t whatToLookFor, bool ignoreHidden);

    /** Moves to the next entry; both out-arguments may be null. */
    bool Next(bool* isDirectory, bool* isHidden);
    /** The entry Next moved to, at the deepest level that has started. */
    File GetFile() const;

private:
    bool matches(const String& name, bool isDirectory) const;

    StringArray wildcards;
    ScopedPointer<NativeIterator> nativeIterator;
    String wildcard;
    String folderPath;
    int64_t entriesSeen = -1;
    uint32_t whatToLookFor;
    bool ignoreHidden;
    Recursion recursion;
    bool hasBeenAdvanced = false;
    ScopedPointer<DirectoryIterator> subIterator;
    File currentFile;
};

/**
    The files one input value names, in join order: a comma list as written (no piece
    expanded), a plain path, or a wildcard pattern in a folder; folders are dropped.
*/
std::vector<File> ExpandInputList(const String& input, const Recursion& recursion);

} // namespace kvo
