// Canonical paths and the queries and changes around them, on real temporary folders.

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "KvoTestUtilities.h"
#include "core/KvoException.h"
#include "files/KvoFile.h"

namespace kvo::testing
{
namespace
{

std::string pathOf(const std::string& text)
{
    return File(text.c_str()).GetFullPath().GetStdString();
}

std::string repeated(const std::string& text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

void touch(const std::string& path)
{
    WriteWholeFile(path, "x");
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

    EXPECT_EQ(File("/a/b.wav").GetFileName().GetStdString(), "b.wav");
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

    touch(folder / "plain");
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
    touch(folder / "d/f");
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
    touch(folder / "out.wav");
    EXPECT_EQ(overwriteMessage(target, 0), "File already exists " + InQuotes(folder / "out.wav"));
    EXPECT_TRUE(target.Exists());
    EXPECT_EQ(overwriteMessage(target, 7), "bug : unexpected overwrite flag");
    EXPECT_EQ(overwriteMessage(target, 1), "(no exception)");
    EXPECT_FALSE(target.Exists());
    touch(folder / "out.wav");
    EXPECT_EQ(overwriteMessage(target, 2), "(no exception)");
    EXPECT_FALSE(target.Exists());
    EXPECT_EQ(overwriteMessage(File(folder.GetPath().c_str()), 0), InQuotes(folder.GetPath()) + " is a folder");
    EXPECT_EQ(overwriteMessage(File(""), 0), "(no exception)");

    // A file that cannot be deleted says so.
    ::chmod(folder.GetPath().c_str(), 0755);
    ::mkdir((folder / "ro").c_str(), 0777);
    touch(folder / "ro/out.wav");
    ::chmod((folder / "ro").c_str(), 0555);
    const File locked((folder / "ro/out.wav").c_str());
    const std::string expected =
        "Error overwriting file " + InQuotes(folder / "ro/out.wav") + " (probably a permission issue?)";
    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return overwriteMessage(locked, 2) == expected; }));
    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return overwriteMessage(locked, 1) == expected; }));
    EXPECT_TRUE(locked.IsFile());
    ::chmod((folder / "ro").c_str(), 0777);
}

} // namespace
} // namespace kvo::testing
