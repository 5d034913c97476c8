#pragma once

#include <cstdint>

#include "core/KvoString.h"

namespace kvo
{

/** What to do when a file is about to be written where one already exists. */
class Overwrite
{
public:
    /** 0 refuses, 1 deletes after checking again that the file is there, 2 deletes at once. */
    explicit Overwrite(uint32_t value = 1) noexcept : policy(value) {}

    uint32_t GetPolicy() const noexcept { return policy; }

private:
    uint32_t policy;
};

/**
    Names a path on disk by its canonical absolute form. The path need not exist; an empty
    path means "no file", and every query answers false or 0 for it. Queries never throw.
*/
class File
{
public:
    File() = default;
    /** Canonicalises text: "~" expanded, "." and ".." resolved, separators collapsed, relative paths made absolute. */
    explicit File(const String& text);
    explicit File(const char* text);
    /** A File of a path that is canonical already, such as one built from a folder's entries: taken as it stands. */
    static File FromCanonicalPath(const String& path) { return File(path, Unparsed {}); }

    const String& GetFullPath() const noexcept { return fullPath; }

    bool Exists() const;
    bool IsDirectory() const;
    bool IsFile() const;
    /** The size in bytes; 0 when the path cannot be queried. */
    uint64_t GetSize() const;

    /** The text behind the last "/", or the whole path when there is none. */
    String GetFileName() const;
    /** The path up to the last "/"; "/" for a child of the root; the path itself when it has no "/". */
    File GetParentDirectory() const;
    /** relativePath resolved against this folder; an absolute relativePath stands on its own. */
    File GetChildFile(const String& relativePath) const;
    /** True when the extension is one of the blank-separated list, ignoring case; "" asks for no extension. */
    bool HasFileExtension(const String& extensions) const;

    /** Removes the file or the empty folder; true when nothing is left or there was nothing. */
    bool Delete() const;
    /** Creates this folder and any missing parents; throws when the chain reaches a root that is not there. */
    bool CreateDirectoryA() const;
    /** True when this path is a folder already, otherwise CreateDirectoryA on the parent. */
    bool CreateParentDirectory() const;
    /** Applies the overwrite policy to an existing file at this path; throws when the file must stay. */
    void OverwriteIfNeeded(const Overwrite& overwrite) const;

    static File GetCurrentWorkingDirectory();
    static File GetHomeDirectory();

    bool operator==(const File& other) const { return fullPath == other.fullPath; }

private:
    struct Unparsed {};
    File(const String& canonicalPath, Unparsed) : fullPath(canonicalPath) {}

    static String ParseAbsolutePath(const String& text);

    String fullPath;
};

/** Removes "." pieces and ".." pieces with their predecessors from a "/"-separated path. */
String RemoveDotSegments(const String& path);
/** Folds every run of "/" into one. */
String CollapseSeparators(const String& path);

} // namespace kvo
