// Input lists and folder walks, in temporary folders the tests build.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "KvoTestUtilities.h"
#include "files/KvoFolderIterator.h"

namespace kvo::testing
{
namespace
{

class InputList : public ::testing::Test
{
protected:
    InputList()
    {
        char buffer[4096];
        previousFolder = ::getcwd(buffer, sizeof(buffer));
        char real[4096];
        root = ::realpath(folder.GetPath().c_str(), real);
        EXPECT_EQ(::chdir(root.c_str()), 0);
    }
    ~InputList() override { EXPECT_EQ(::chdir(previousFolder.c_str()), 0); }

    void touch(const std::string& name) { std::ofstream(root + "/" + name) << "x"; }
    void makeFolder(const std::string& name) { ::mkdir((root + "/" + name).c_str(), 0777); }

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

    TemporaryFolder folder;
    std::string root;
    std::string previousFolder;
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
}

TEST_F(InputList, WildcardsInTheWorkingFolderSortByNameAndDropFolders)
{
    touch("b.wav");
    touch("A.wav");
    touch("a.WAV");
    touch("c.aif");
    touch(".h.wav");
    makeFolder("y.wav");
    EXPECT_EQ(expand("*.wav"), (Names { "A.wav", "a.WAV", "b.wav" }));
    EXPECT_EQ(expand("?.wav"), (Names { "A.wav", "a.WAV", "b.wav" }));
}

TEST_F(InputList, WildcardsInAFolder)
{
    makeFolder("dir");
    makeFolder("dir/sub");
    makeFolder("dir/.secret");
    touch("dir/2.wav");
    touch("dir/10.wav");
    touch("dir/sub/1.wav");
    touch("dir/.secret/0.wav");
    touch("dir/sub/note.txt");

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
    makeFolder("home");
    makeFolder("home/sub");
    touch("home/sub/t.wav");
    const char* old = std::getenv("HOME");
    const std::string previous = old != nullptr ? old : "";
    ::setenv("HOME", (root + "/home").c_str(), 1);
    const Names found = expand("~/sub/*.wav");
    if (old != nullptr)
        ::setenv("HOME", previous.c_str(), 1);
    else
        ::unsetenv("HOME");
    EXPECT_EQ(found, (Names { "home/sub/t.wav" }));
}

TEST_F(InputList, SeveralPatternsFindNextToNothingUnlessRecursive)
{
    touch("a.wav");
    touch("b.aif");
    EXPECT_EQ(expand("*.wav;*.aif"), Names {});
    EXPECT_EQ(expand("*.wav;*.aif", recursive), (Names { "a.wav", "b.aif" }));
}

TEST_F(InputList, LinkedFoldersAreNotEnteredSoLoopsEnd)
{
    makeFolder("d");
    touch("d/a.wav");
    ASSERT_EQ(::symlink((root + "/d").c_str(), (root + "/d/loop").c_str()), 0);
    ASSERT_EQ(::symlink((root + "/nowhere").c_str(), (root + "/d/dangling.wav").c_str()), 0);
    EXPECT_EQ(expand("d/*.wav", recursive), (Names { "d/a.wav", "d/dangling.wav" }));
}

TEST_F(InputList, UnreadableFoldersGiveNothing)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root reads every folder";
    makeFolder("closed");
    touch("closed/a.wav");
    ::chmod((root + "/closed").c_str(), 0);
    EXPECT_EQ(expand("closed/*.wav"), Names {});
    ::chmod((root + "/closed").c_str(), 0777);
}

TEST_F(InputList, FolderIteratorReturnsAFolderBeforeItsContents)
{
    makeFolder("top");
    makeFolder("top/mid");
    touch("top/mid/f");
    touch("top/g");
    DirectoryIterator iterator(File((root + "/top").c_str()), recursive, "*", 3, true);
    Names seen;
    bool isDirectory = false;
    while (iterator.Next(&isDirectory, nullptr))
        seen.push_back(iterator.GetFile().GetFullPath().GetStdString().substr(root.size() + 1)
                       + (isDirectory ? "/" : ""));
    EXPECT_EQ(seen, (Names { "top/g", "top/mid/", "top/mid/f" }));
}

} // namespace
} // namespace kvo::testing
