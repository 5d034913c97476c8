// Canonical paths and the queries and changes around them, input lists and folder walks, on
// real temporary folders the tests build.

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KvoTestUtilities.h"
#include "core/KvoException.h"
#include "files/KvoFile.h"
#include "files/KvoFolderIterator.h"

namespace kvo::testing
{
namespace
{

std::string pathOf(const std::string& text) { return File(text.c_str()).GetFullPath().GetStdString(); }

std::string repeated(const std::string& text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST(FilePath, AbsolutePathsAndHomeFold)
{
    // Blank text and the exact word "none" are the empty path; a trailing ".." with nothing
    // behind it stays; ":" is an ordinary byte; "~user" is not expanded.
    ScopedEnvironment home("HOME", "/home/someone/");
    const std::pair<std::string, std::string> cases[] = {
        { "", "" },          { "   ", "" },        { "\t", "" },      { "none", "" },   { "/a//b/./c/../d/", "/a/b/d" },
        { "//x", "/x" },     { "///x", "/x" },     { "/", "/" },      { "//", "/" },    { "  /a/b  ", "/a/b" },
        { "/a/b/../../c", "/c" },                  { "/a/..", "/a/.." },                { "/a:b/c", "/a:b/c" },
        { "~", "/home/someone" }, { "~/x", "/home/someone/x" }, { "~//x/", "/home/someone/x" }, { "~x/", "~x" },
        // Long paths fold in one pass, without recursion.
        { repeated("../", 100000) + "x", "/x" },   { "/a" + repeated("/./b/../", 100000) + "c", "/a/c" },
    };
    for (const auto& [text, path] : cases)
        EXPECT_EQ(pathOf(text), path) << '"' << text.substr(0, 40) << '"';
    EXPECT_NE(pathOf("None"), ""); // only the exact word is reserved
    EXPECT_TRUE(!File("").Exists() && !File("").IsDirectory() && !File("").IsFile() && File("").GetSize() == 0u);
}

TEST(FilePath, HomeValuesThatAskForTildeThemselvesArePassedOverDownToTheWorkingFolder)
{
    // Each of these, taken as the home folder, would expand "~" again without end.
    ScopedEnvironment lower("home", "~/again");
    ScopedEnvironment drive("HOMEDRIVE", "/mnt");
    ScopedEnvironment homePath("HOMEPATH", "/user");
    for (const char* value : { "~", " ~", "\t~/x", "~//", "a/../~", "a/../~/b", "/../~" })
    {
        ScopedEnvironment home("HOME", value);
        EXPECT_EQ(pathOf("~/x"), "/mnt/user/x") << '"' << value << '"';
    }

    // "~abc" asks for no expansion, nor do blank text and "none": they serve as they stand.
    for (const auto& [value, path] : { std::pair { "~abc", "~abc/x" }, { "", "/x" }, { "none", "/x" } })
    {
        ScopedEnvironment home("HOME", value);
        EXPECT_EQ(pathOf("~/x"), path) << '"' << value << '"';
    }

    TemporaryFolder folder;
    const std::string real = RealPath(folder.GetPath());
    ScopedWorkingDirectory inside(real);
    ScopedEnvironment noHome("HOME", nullptr);
    ScopedEnvironment lowerTilde("home", "~");
    ScopedEnvironment noDrive("HOMEDRIVE", "");
    ScopedEnvironment tildePath("HOMEPATH", " ~");
    EXPECT_EQ(pathOf("~"), real);
    EXPECT_EQ(pathOf("~/a.wav"), real + "/a.wav");
    ScopedEnvironment lowerSet("home", "relative");
    EXPECT_EQ(pathOf("~"), real + "/relative");
}

TEST(FilePath, ChildFilesConsumeLeadingDotPiecesAndNamesSplit)
{
    // Nothing above the root to cut.
    const File base("/u/v");
    const std::pair<const char*, const char*> cases[] = {
        { "../x", "/u/x" },   { "./..//../x/", "/x" }, { "../../../../x", "/x" }, { ".hidden", "/u/v/.hidden" },
        { "..x/y", "/u/v/..x/y" }, { "...", "/u/v/..." }, { "", "/u/v" }, { "//abs//y", "/abs/y" },
    };
    for (const auto& [relative, path] : cases)
        EXPECT_EQ(base.GetChildFile(relative).GetFullPath().GetStdString(), path) << relative;
    EXPECT_EQ(File("/").GetChildFile("..").GetFullPath().GetStdString(), "/");

    EXPECT_EQ(File("/b.wav").GetFileName().GetStdString(), "b.wav"); // the separator at index 0 too
    EXPECT_EQ(File("/a").GetParentDirectory().GetFullPath().GetStdString(), "/");
    EXPECT_EQ(File("/").GetParentDirectory().GetFullPath().GetStdString(), "/");
    // "~user" stays relative text, without a separator to split at.
    EXPECT_EQ(File("~x").GetParentDirectory().GetFullPath().GetStdString(), "~x");
    struct Case { const char* path; const char* extensions; bool has; };
    for (const Case& c : { Case { "/x/a.wav", ".WAV aif", true }, Case { "/x/a.AIF", ".WAV aif", true },
                           Case { "/x/a.aiff", ".WAV aif", false }, Case { "/x.d/a", "d", false }, Case { "/a.b/c", "", true },
                           Case { "/x/a.", "", false } })
        EXPECT_EQ(File(c.path).HasFileExtension(c.extensions), c.has) << c.path << " " << c.extensions;
}

TEST(FileOperations, CreateDirectoryMakesTheWholeChain)
{
    TemporaryFolder folder;
    const File nested((folder / "a/b/c").c_str());
    EXPECT_TRUE(nested.CreateDirectoryA() && nested.IsDirectory());
    EXPECT_TRUE(nested.CreateDirectoryA()); // already there

    const File child((folder / "x/y/z.wav").c_str());
    EXPECT_TRUE(child.CreateParentDirectory());
    EXPECT_TRUE(File((folder / "x/y").c_str()).IsDirectory());
    EXPECT_FALSE(child.Exists());

    WriteWholeFile(folder / "plain", "x");
    EXPECT_FALSE(File((folder / "plain/sub").c_str()).CreateDirectoryA()); // a file stands in the way
    // Tens of thousands of missing levels are walked without recursion; a name far beyond the
    // system's limits is a plain "no".
    EXPECT_FALSE(File((folder / "plain" + repeated("/d", 30000)).c_str()).CreateDirectoryA());
    const File longName((folder / std::string(100000, 'n') + "/x.wav").c_str());
    EXPECT_TRUE(!longName.Exists() && !longName.IsDirectory() && longName.GetSize() == 0u && longName.Delete());
    EXPECT_FALSE(longName.CreateParentDirectory());

    // "~nobody" stays relative text, and its parent is itself: the chain has nowhere to start.
    StreamCapture err(std::cerr);
    EXPECT_EQ(MessageOf([] { File("~nobody/sub").CreateDirectoryA(); }), "Cannot create directory \"~nobody\"");
    EXPECT_FALSE(File("~nobody").Exists());
}

TEST(FileOperations, QueriesAnswerForLinkTargetsAndDeleteTakesFilesAndEmptyFolders)
{
    TemporaryFolder folder;
    ::mkdir((folder / "d").c_str(), 0777);
    WriteWholeFile(folder / "d/f", "x");
    ASSERT_EQ(::symlink((folder / "d").c_str(), (folder / "toFolder").c_str()), 0);
    ASSERT_EQ(::symlink((folder / "nowhere").c_str(), (folder / "dangling").c_str()), 0);
    EXPECT_TRUE(File((folder / "toFolder").c_str()).IsDirectory());
    const File dangling((folder / "dangling").c_str());
    EXPECT_TRUE(!dangling.Exists() && !dangling.IsFile() && !dangling.IsDirectory() && dangling.GetSize() == 0u);

    EXPECT_FALSE(File((folder / "d").c_str()).Delete()); // not empty
    for (const char* name : { "d/f", "d", "never" })
    {
        EXPECT_TRUE(File((folder / name).c_str()).Delete()) << name;
        EXPECT_FALSE(File((folder / name).c_str()).Exists()) << name;
    }
}

std::string overwriteMessage(const File& file, uint32_t policy)
{
    StreamCapture err(std::cerr);
    return MessageOf([&] { file.OverwriteIfNeeded(Overwrite(policy)); });
}

TEST(FileOperations, OverwritePolicies)
{
    TemporaryFolder folder;
    const File target((folder / "out.wav").c_str());
    EXPECT_EQ(overwriteMessage(target, 0), "(no exception)"); // nothing there yet
    WriteWholeFile(folder / "out.wav", "x");
    EXPECT_EQ(overwriteMessage(target, 0), "File already exists " + InQuotes(folder / "out.wav"));
    EXPECT_TRUE(target.Exists());
    EXPECT_EQ(overwriteMessage(target, 7), "bug : unexpected overwrite flag");
    EXPECT_EQ(overwriteMessage(target, 1), "(no exception)");
    EXPECT_FALSE(target.Exists());
    WriteWholeFile(folder / "out.wav", "x");
    EXPECT_EQ(overwriteMessage(target, 2), "(no exception)");
    EXPECT_FALSE(target.Exists());
    EXPECT_EQ(overwriteMessage(File(folder.GetPath().c_str()), 0), InQuotes(folder.GetPath()) + " is a folder");
    EXPECT_EQ(overwriteMessage(File(""), 0), "(no exception)");

    // A file that cannot be deleted says so.
    ::chmod(folder.GetPath().c_str(), 0755);
    ::mkdir((folder / "ro").c_str(), 0777);
    WriteWholeFile(folder / "ro/out.wav", "x");
    ::chmod((folder / "ro").c_str(), 0555);
    const File locked((folder / "ro/out.wav").c_str());
    const std::string expected =
        "Error overwriting file " + InQuotes(folder / "ro/out.wav") + " (probably a permission issue?)";
    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return overwriteMessage(locked, 2) == expected; }));
    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return overwriteMessage(locked, 1) == expected; }));
    EXPECT_TRUE(locked.IsFile());
    ::chmod((folder / "ro").c_str(), 0777);
}

class InputList : public ::testing::Test
{
protected:

    void touch(const std::string& name) { WriteWholeFile(root + "/" + name, "x"); }
    void makeFolder(const std::string& name) { ::mkdir((root + "/" + name).c_str(), 0777); }
    /** Makes each entry in turn: a folder where the name ends in "/", else a file. */
    void build(std::initializer_list<std::string> names)
    {
        for (const std::string& name : names)
            name.back() == '/' ? makeFolder(name) : touch(name);
    }

    /** The expanded paths, relative to the root where they lie below it. */
    std::vector<std::string> expand(const char* input, Recursion recursion = notRecursive)
    {
        std::vector<std::string> names;
        for (const File& file : ExpandInputList(String(input), recursion))
        {
            std::string path = file.GetFullPath().GetStdString();
            if (path.rfind(root + "/", 0) == 0)
                path = path.substr(root.size() + 1);
            names.push_back(path);
        }
        return names;
    }

    /** Every entry a walk of folder returns, relative to the root, folders with a trailing "/". */
    std::vector<std::string> walk(const std::string& subfolder, const char* wildcard, uint32_t whatToLookFor,
                                  Recursion recursion = recursive)
    {
        DirectoryIterator iterator(File((root + "/" + subfolder).c_str()), recursion, wildcard, whatToLookFor, true);
        std::vector<std::string> seen;
        bool isDirectory = false;
        while (iterator.Next(&isDirectory, nullptr))
            seen.push_back(iterator.GetFile().GetFullPath().GetStdString().substr(root.size() + 1)
                           + (isDirectory ? "/" : ""));
        return seen;
    }

    TemporaryFolder folder;
    const std::string root = RealPath(folder.GetPath());
    ScopedWorkingDirectory inside { root };
};

using Names = std::vector<std::string>;

TEST_F(InputList, ListsPathsAndWildcardsExpand)
{
    build({ "x1.wav", ".hidden.wav", "folder/", "my dir/", "my dir/a b.wav", "dir/", "dir/sub/", "dir/.secret/",
            "dir/2.wav", "dir/10.wav", "dir/sub/1.wav", "dir/.secret/0.wav", "dir/sub/note.txt", "dir/z.wav",
            "home/", "home/sub/", "home/sub/t.wav", "home/sub/u.aif", "p/", "p/a.wav", "p/b.aif",
            "d/", "d/.h/", "d/s/", "d/.a.wav", "d/.h/b.wav", "d/s/.c.wav", "d/s/d.wav", "d/...", "r/", "r/b/", "r/b/c/",
            "r/D/", "r/x.wav/", "r/a.wav", "r/b/c/1.wav", "r/b/2.wav", "r/c.wav", "r/D/3.WAV", "r/x.wav/4.wav" });
    ScopedEnvironment home("HOME", (root + "/home").c_str());
    struct Case { std::string input; Recursion recursion; Names names; };
    const Case cases[] = {
        // Comma lists keep their order and are not expanded; hidden files, named, are kept.
        { "file1.wav, file2.wav , file3.wav", notRecursive, { "file1.wav", "file2.wav", "file3.wav" } },
        { "a.wav,", notRecursive, { "a.wav" } },
        { ",a.wav", notRecursive, { "", "a.wav" } },
        { "*.wav, b.wav", notRecursive, { "*.wav", "b.wav" } },
        { ".hidden.wav, x1.wav", notRecursive, { ".hidden.wav", "x1.wav" } },
        { "~/sub/t.wav, ~/sub/u.aif", notRecursive, { "home/sub/t.wav", "home/sub/u.aif" } },
        // Plain paths: blanks escaped or trimmed, existence checked later, a folder dropped.
        { "a\\ b.wav", notRecursive, { "a b.wav" } },
        { "  missing.wav  ", notRecursive, { "missing.wav" } },
        { "folder", notRecursive, {} },
        // Wildcards in a folder; a sub-folder's matches stand where the walk met the folder.
        { "my\\ dir/*.wav", notRecursive, { "my dir/a b.wav" } },
        { "  my dir/a?b.wav ", notRecursive, { "my dir/a b.wav" } },
        { "dir/*.wav", notRecursive, { "dir/10.wav", "dir/2.wav", "dir/z.wav" } },
        { root + "/dir/*.wav", notRecursive, { "dir/10.wav", "dir/2.wav", "dir/z.wav" } },
        { "dir/*.wav", recursive, { "dir/10.wav", "dir/2.wav", "dir/sub/1.wav", "dir/z.wav" } },
        { "dir/*.mp3", notRecursive, {} },
        { "nowhere/*.wav", recursive, {} },
        { "~/sub/*.wav", notRecursive, { "home/sub/t.wav" } },
        { "~/*.wav", recursive, { "home/sub/t.wav" } },
        // Several patterns find next to nothing unless recursive.
        { "p/*.wav;*.aif", notRecursive, {} },
        { "p/*.wav;*.aif", recursive, { "p/a.wav", "p/b.aif" } },
        // Hidden names are left out of wildcard forms only; "..." is a name of dots alone.
        { "d/*.wav", recursive, { "d/s/d.wav" } },
        { "d/.*", recursive, {} },
        { "d/*", notRecursive, {} },
        { "d/.a.wav", notRecursive, { "d/.a.wav" } },
        { "d/...", notRecursive, { "d/..." } },
        { "d/.h/b.wav, d/s/.c.wav", notRecursive, { "d/.h/b.wav", "d/s/.c.wav" } },
        // Recursion walks depth first where it meets each folder; the folder "x.wav" is dropped, not its contents.
        { "r/*.wav", notRecursive, { "r/a.wav", "r/c.wav" } },
        { "r/*.wav", recursive, { "r/a.wav", "r/b/2.wav", "r/b/c/1.wav", "r/c.wav", "r/D/3.WAV", "r/x.wav/4.wav" } },
    };
    for (const Case& c : cases)
        EXPECT_EQ(expand(c.input.c_str(), c.recursion), c.names) << c.input << " " << (c.recursion == recursive);
}

TEST_F(InputList, WildcardsInTheWorkingFolderSortWithoutCaseThenByteByByteAndDropFolders)
{
    for (const char* name : { "b.wav", "A.wav", "a.WAV", "_x.wav", "\xC3\xA9.wav", "Z1.wav", "c.aif", ".h.wav" })
        touch(name);
    makeFolder("y.wav");
    // "_" sorts before letters because names compare in lower case; bytes above 127 come last.
    EXPECT_EQ(expand("*.wav"), (Names { "_x.wav", "A.wav", "a.WAV", "b.wav", "Z1.wav", "\xC3\xA9.wav" }));
    EXPECT_EQ(expand("*.WAV"), expand("*.wav"));
    EXPECT_EQ(expand("?.wav"), (Names { "A.wav", "a.WAV", "b.wav" }));
}

TEST_F(InputList, LinkedFoldersAreWalkedButLoopsEnd)
{
    build({ "d/", "elsewhere/", "d/a.wav", "elsewhere/e.wav" });
    ASSERT_EQ(::symlink((root + "/d").c_str(), (root + "/d/loop").c_str()), 0);
    ASSERT_EQ(::symlink("..", (root + "/d/up").c_str()), 0);
    ASSERT_EQ(::symlink((root + "/elsewhere").c_str(), (root + "/d/linked").c_str()), 0);
    ASSERT_EQ(::symlink((root + "/nowhere").c_str(), (root + "/d/dangling.wav").c_str()), 0);
    // "loop" leads back into d and is not entered; "up" leads out of the walk, to the root,
    // whose "d" is passed over in turn. A dangling link counts as a file, to fail when opened.
    EXPECT_EQ(expand("d/*.wav", recursive),
              (Names { "d/a.wav", "d/dangling.wav", "d/linked/e.wav", "d/up/elsewhere/e.wav" }));
}

TEST_F(InputList, FoldersDeeperThanThePathLimitEndTheWalkQuietly)
{
    // 17 levels of 250 bytes pass the system's 4096-byte path limit near the end. The deep end
    // has no path that the system takes in one piece: it is made and removed through handles.
    const std::string level(250, 'l');
    std::vector<int> folders { ::open(root.c_str(), O_RDONLY | O_DIRECTORY) };
    for (int i = 0; i < 17; ++i)
    {
        ::mkdirat(folders.back(), level.c_str(), 0777);
        folders.push_back(::openat(folders.back(), level.c_str(), O_RDONLY | O_DIRECTORY));
        ::close(::openat(folders.back(), "f.wav", O_WRONLY | O_CREAT, 0666));
    }
    const Names found = expand("*.wav", recursive);
    for (size_t i = folders.size() - 1; i > 0; --i)
    {
        ::unlinkat(folders[i], "f.wav", 0);
        ::close(folders[i]);
        ::unlinkat(folders[i - 1], level.c_str(), AT_REMOVEDIR);
    }
    ::close(folders[0]);
    EXPECT_TRUE(!found.empty() && found.size() < 17u) << found.size();
    std::string expected;
    for (const std::string& path : found)
        EXPECT_EQ(path, (expected += level + "/") + "f.wav");
}

// ---------------------------------------------------------------------------------------
// The iterator itself

TEST_F(InputList, FolderIteratorReturnsAFolderBeforeItsContentsAndTriesAMissingFolderAgain)
{
    DirectoryIterator later(File((root + "/later").c_str()), recursive, "*", 3, false);
    EXPECT_FALSE(later.Next(nullptr, nullptr));
    build({ "top/", "top/mid/", "top/mid/low/", "top/mid/low/f", "top/mid/e", "top/g", "later/", "later/.h/",
            "later/.h/f", "later/.g" });

    // GetFile walks down to the deepest level that has moved.
    EXPECT_EQ(walk("top", "*", 3), (Names { "top/g", "top/mid/", "top/mid/e", "top/mid/low/", "top/mid/low/f" }));
    EXPECT_EQ(walk("top", "*", 1), (Names { "top/mid/", "top/mid/low/" }));
    EXPECT_EQ(walk("top", "*", 2), (Names { "top/g", "top/mid/e", "top/mid/low/f" }));
    EXPECT_EQ(walk("top", "l*;E", 3), (Names { "top/mid/e", "top/mid/low/" }));
    EXPECT_EQ(walk("top", "*", 3, notRecursive), (Names { "top/g", "top/mid/" }));

    // The folder missing at first is there now; hidden entries show when asked for.
    Names seen;
    bool isHidden = false;
    while (later.Next(nullptr, &isHidden))
        seen.push_back(later.GetFile().GetFileName().GetStdString() + (isHidden ? " hidden" : ""));
    EXPECT_EQ(seen, (Names { ".g hidden", ".h hidden", "f" }));
}

} // namespace
} // namespace kvo::testing
