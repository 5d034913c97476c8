// Input lists and folder walks, in temporary folders the tests build.

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KvoTestUtilities.h"
#include "files/KvoFolderIterator.h"

namespace kvo::testing
{
namespace
{

/**
    A chain of folders, each holding "f.wav" and the next, deeper than the system's path
    limit. It is built and removed through folder handles, since the deep end has no path
    that the system accepts in one piece.
*/
class DeepChain
{
public:
    DeepChain(const std::string& root, const std::string& folderName, int depth) : name(folderName)
    {
        folders.push_back(::open(root.c_str(), O_RDONLY | O_DIRECTORY));
        for (int i = 0; i < depth && folders.back() >= 0; ++i)
        {
            ::mkdirat(folders.back(), name.c_str(), 0777);
            folders.push_back(::openat(folders.back(), name.c_str(), O_RDONLY | O_DIRECTORY));
            ::close(::openat(folders.back(), "f.wav", O_WRONLY | O_CREAT, 0666));
        }
    }
    ~DeepChain()
    {
        for (size_t i = folders.size() - 1; i > 0; --i)
        {
            ::unlinkat(folders[i], "f.wav", 0);
            ::close(folders[i]);
            ::unlinkat(folders[i - 1], name.c_str(), AT_REMOVEDIR);
        }
        ::close(folders.front());
    }
    DeepChain(const DeepChain&) = delete;
    DeepChain& operator=(const DeepChain&) = delete;

private:
    std::string name;
    std::vector<int> folders;
};

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

TEST_F(InputList, CommaListsKeepTheirOrderAndAreNotExpanded)
{
    EXPECT_EQ(expand("file1.wav, file2.wav , file3.wav"), (Names { "file1.wav", "file2.wav", "file3.wav" }));
    EXPECT_EQ(expand("a.wav,"), (Names { "a.wav" }));
    EXPECT_EQ(expand(",a.wav"), (Names { "", "a.wav" }));
    touch("x1.wav");
    EXPECT_EQ(expand("*.wav, b.wav"), (Names { "*.wav", "b.wav" }));
    touch(".hidden.wav");
    EXPECT_EQ(expand(".hidden.wav, x1.wav"), (Names { ".hidden.wav", "x1.wav" })); // named, so kept
}

TEST_F(InputList, PlainPathsAndEscapedBlanks)
{
    EXPECT_EQ(expand("a\\ b.wav"), (Names { "a b.wav" }));
    EXPECT_EQ(expand("  missing.wav  "), (Names { "missing.wav" })); // existence is checked later
    makeFolder("folder");
    EXPECT_EQ(expand("folder"), Names {});
    build({ "my dir/", "my dir/a b.wav" });
    EXPECT_EQ(expand("my\\ dir/*.wav"), (Names { "my dir/a b.wav" }));
    EXPECT_EQ(expand("  my dir/a?b.wav "), (Names { "my dir/a b.wav" }));
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

TEST_F(InputList, WildcardsInAFolder)
{
    build({ "dir/", "dir/sub/", "dir/.secret/", "dir/2.wav", "dir/10.wav", "dir/sub/1.wav", "dir/.secret/0.wav",
            "dir/sub/note.txt" });

    EXPECT_EQ(expand("dir/*.wav"), (Names { "dir/10.wav", "dir/2.wav" }));
    EXPECT_EQ(expand((root + "/dir/*.wav").c_str()), (Names { "dir/10.wav", "dir/2.wav" }));
    // A sub-folder's matches stand where the walk met the folder.
    EXPECT_EQ(expand("dir/*.wav", recursive), (Names { "dir/10.wav", "dir/2.wav", "dir/sub/1.wav" }));
    touch("dir/z.wav");
    EXPECT_EQ(expand("dir/*.wav", recursive), (Names { "dir/10.wav", "dir/2.wav", "dir/sub/1.wav", "dir/z.wav" }));
    EXPECT_EQ(expand("dir/*.mp3"), Names {});
    EXPECT_EQ(expand("nowhere/*.wav"), Names {});
}

TEST_F(InputList, HomeExpandsInWildcardForms)
{
    build({ "home/", "home/sub/", "home/sub/t.wav", "home/sub/u.aif" });
    ScopedEnvironment home("HOME", (root + "/home").c_str());
    EXPECT_EQ(expand("~/sub/*.wav"), (Names { "home/sub/t.wav" }));
    EXPECT_EQ(expand("~/*.wav", recursive), (Names { "home/sub/t.wav" }));
    EXPECT_EQ(expand("~/sub/t.wav, ~/sub/u.aif"), (Names { "home/sub/t.wav", "home/sub/u.aif" }));
    ScopedEnvironment missingHome("HOME", (root + "/nobody-home").c_str());
    EXPECT_EQ(expand("~/*.wav", recursive), Names {});
}

TEST_F(InputList, SeveralPatternsFindNextToNothingUnlessRecursive)
{
    build({ "a.wav", "b.aif" });
    EXPECT_EQ(expand("*.wav;*.aif"), Names {});
    EXPECT_EQ(expand("*.wav;*.aif", recursive), (Names { "a.wav", "b.aif" }));
}

TEST_F(InputList, HiddenNamesAreLeftOutOfWildcardFormsOnly)
{
    build({ "d/", "d/.h/", "d/s/", "d/.a.wav", "d/.h/b.wav", "d/s/.c.wav", "d/s/d.wav", "d/..." });
    EXPECT_EQ(expand("d/*.wav", recursive), (Names { "d/s/d.wav" }));
    EXPECT_EQ(expand("d/.*", recursive), Names {});
    EXPECT_EQ(expand("d/*"), Names {}); // "..." is a name of dots alone
    EXPECT_EQ(expand("d/.a.wav"), (Names { "d/.a.wav" }));
    EXPECT_EQ(expand("d/..."), (Names { "d/..." }));
    EXPECT_EQ(expand("d/.h/b.wav, d/s/.c.wav"), (Names { "d/.h/b.wav", "d/s/.c.wav" }));
}

TEST_F(InputList, RecursionWalksDepthFirstWhereItMeetsEachFolder)
{
    for (const char* name : { "r", "r/b", "r/b/c", "r/D", "r/x.wav" })
        makeFolder(name);
    for (const char* name : { "r/a.wav", "r/b/c/1.wav", "r/b/2.wav", "r/c.wav", "r/D/3.WAV", "r/x.wav/4.wav" })
        touch(name);
    // The folder "x.wav" matches as well and is dropped at the end; its contents stay.
    const Names all { "r/a.wav", "r/b/2.wav", "r/b/c/1.wav", "r/c.wav", "r/D/3.WAV", "r/x.wav/4.wav" };
    EXPECT_EQ(expand("r/*.wav", recursive), all);
    EXPECT_EQ(expand("*.wav", recursive), all);
    EXPECT_EQ(expand("r/*.wav"), (Names { "r/a.wav", "r/c.wav" }));
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

TEST_F(InputList, UnreadableFoldersGiveNothing)
{
    ::chmod(folder.GetPath().c_str(), 0755);
    build({ "open/", "open/closed/", "open/a.wav", "open/closed/b.wav", "open/z.wav" });
    ::chmod((root + "/open/closed").c_str(), 0);

    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return expand("open/closed/*.wav").empty(); }));
    EXPECT_TRUE(HoldsWithoutPrivileges(
        [&] { return expand("open/*.wav", recursive) == Names { "open/a.wav", "open/z.wav" }; }));
    ::chmod((root + "/open/closed").c_str(), 0777);
    EXPECT_EQ(expand("open/*.wav", recursive), (Names { "open/a.wav", "open/closed/b.wav", "open/z.wav" }));
}

TEST_F(InputList, FoldersDeeperThanThePathLimitEndTheWalkQuietly)
{
    // 60 levels of 100 bytes pass the system's 4096-byte path limit about half way down.
    const std::string level(100, 'l');
    DeepChain chain(root, level, 60);
    const Names found = expand("*.wav", recursive);
    ASSERT_FALSE(found.empty());
    ASSERT_LT(found.size(), 60u);
    std::string expected;
    for (const std::string& path : found)
    {
        expected += level + "/";
        EXPECT_EQ(path, expected + "f.wav");
    }
}

// ---------------------------------------------------------------------------------------
// The iterator itself

TEST_F(InputList, FolderIteratorReturnsAFolderBeforeItsContents)
{
    build({ "top/", "top/mid/", "top/mid/low/", "top/mid/low/f", "top/mid/e", "top/g" });

    // GetFile walks down to the deepest level that has moved.
    EXPECT_EQ(walk("top", "*", 3), (Names { "top/g", "top/mid/", "top/mid/e", "top/mid/low/", "top/mid/low/f" }));
    EXPECT_EQ(walk("top", "*", 1), (Names { "top/mid/", "top/mid/low/" }));
    EXPECT_EQ(walk("top", "*", 2), (Names { "top/g", "top/mid/e", "top/mid/low/f" }));
    EXPECT_EQ(walk("top", "l*;E", 3), (Names { "top/mid/e", "top/mid/low/" }));
    EXPECT_EQ(walk("top", "*", 3, notRecursive), (Names { "top/g", "top/mid/" }));
}

TEST_F(InputList, FolderIteratorTriesAMissingFolderAgainAndCanShowHiddenEntries)
{
    DirectoryIterator iterator(File((root + "/later").c_str()), recursive, "*", 3, false);
    EXPECT_FALSE(iterator.Next(nullptr, nullptr));
    build({ "later/", "later/.h/", "later/.h/f", "later/.g" });
    Names seen;
    bool isHidden = false;
    while (iterator.Next(nullptr, &isHidden))
        seen.push_back(iterator.GetFile().GetFileName().GetStdString() + (isHidden ? " hidden" : ""));
    EXPECT_EQ(seen, (Names { ".g hidden", ".h hidden", "f" }));
}

} // namespace
} // namespace kvo::testing
