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

std::string pathOf(const char* text)
{
    return File(text).GetFullPath().GetStdString();
}

void touch(const std::string& path)
{
    WriteWholeFile(path, "x");
}

TEST(FilePath, AbsolutePathsFold)
{
    // Blank text and the exact word "none" are the empty path; a trailing ".." with nothing
    // behind it stays; ":" is an ordinary byte.
    const std::pair<const char*, const char*> cases[] = {
        { "", "" },           { "   ", "" },    { "\t", "" },  { "none", "" }, { "/a//b/./c/../d/", "/a/b/d" },
        { "//x", "/x" },      { "///x", "/x" }, { "/", "/" }, { "//", "/" },  { "  /a/b  ", "/a/b" },
        { "/a/b/../../c", "/c" }, { "/a/..", "/a/.." }, { "/a:b/c", "/a:b/c" },
    };
    for (const auto& [text, path] : cases)
        EXPECT_EQ(pathOf(text), path) << '"' << text << '"';
    EXPECT_NE(pathOf("None"), ""); // only the exact word is reserved
    EXPECT_TRUE(!File("").Exists() && !File("").IsDirectory() && !File("").IsFile() && File("").GetSize() == 0u);
}

TEST(FilePath, RelativePathsHangBelowTheWorkingFolder)
{
    TemporaryFolder folder;
    ::mkdir((folder / "u").c_str(), 0777);
    ::mkdir((folder / "u/v").c_str(), 0777);
    const std::string base = RealPath(folder.GetPath());

    ScopedWorkingDirectory inside(base + "/u/v");
    for (const auto& [text, path] : { std::pair { "../x", "/u/x" }, { "./a.wav", "/u/v/a.wav" }, { "a.wav", "/u/v/a.wav" },
                                      { "../../u/./v", "/u/v" }, { ".hidden", "/u/v/.hidden" }, { "..x", "/u/v/..x" } })
        EXPECT_EQ(pathOf(text), base + path) << text;
    EXPECT_EQ(File::GetCurrentWorkingDirectory().GetFullPath().GetStdString(), base + "/u/v");
}

TEST(FilePath, TildeExpandsToHome)
{
    // "~user" is not expanded.
    ScopedEnvironment home("HOME", "/home/someone/");
    for (const auto& [text, path] : { std::pair { "~", "/home/someone" }, { "~/x", "/home/someone/x" },
                                      { "~//x/", "/home/someone/x" }, { "~x", "~x" }, { "~x/", "~x" } })
        EXPECT_EQ(pathOf(text), path) << text;
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

    // "~abc" asks for no expansion, so it serves as it stands.
    ScopedEnvironment ownHome("HOME", "~abc");
    EXPECT_EQ(pathOf("~/x"), "~abc/x");

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

TEST(FilePath, ChildFilesConsumeLeadingDotPieces)
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
}

TEST(FilePath, LongPathsStayLinearAndWhole)
{
    std::string upward;
    for (int i = 0; i < 100000; ++i)
        upward += "../";
    EXPECT_EQ(pathOf((upward + "x").c_str()), "/x");

    std::string deep = "/a";
    for (int i = 0; i < 100000; ++i)
        deep += "/./b/../";
    EXPECT_EQ(pathOf((deep + "c").c_str()), "/a/c");

    const std::string longName = "/" + std::string(100000, 'n') + "/x.wav";
    const File file(longName.c_str());
    EXPECT_EQ(file.GetFullPath().GetStdString(), longName);
    EXPECT_FALSE(file.Exists());
    EXPECT_FALSE(file.IsDirectory());
    EXPECT_EQ(file.GetSize(), 0u);
    EXPECT_TRUE(file.Delete()); // nothing there to delete
    EXPECT_FALSE(file.CreateParentDirectory());
}

TEST(FilePath, BytesAboveAsciiPassThroughUntouched)
{
    TemporaryFolder folder;
    const std::string utf8 = "\xC3\xA9t\xC3\xA9.WAV";
    const std::string invalid = "\xFF\xFE.wav";
    touch(folder / utf8);
    touch(folder / invalid);

    for (const std::string& name : { utf8, invalid })
    {
        const File file((folder / name).c_str());
        EXPECT_TRUE(file.IsFile()) << name;
        EXPECT_EQ(file.GetSize(), 1u);
        EXPECT_EQ(file.GetFileName().GetStdString(), name);
        EXPECT_TRUE(file.HasFileExtension("wav"));
    }
    EXPECT_FALSE(File((folder / "\xC3\x89t\xC3\xA9.WAV").c_str()).Exists()); // no folding beyond ASCII
}

TEST(FilePath, NamesParentsAndExtensions)
{
    EXPECT_EQ(File("/a/b.wav").GetFileName().GetStdString(), "b.wav");
    EXPECT_EQ(File("/a").GetParentDirectory().GetFullPath().GetStdString(), "/");
    EXPECT_EQ(File("/").GetParentDirectory().GetFullPath().GetStdString(), "/");
    // "~user" stays relative text, without a separator to split at.
    EXPECT_EQ(File("~x").GetParentDirectory().GetFullPath().GetStdString(), "~x");

    struct Case { const char* path; const char* extensions; bool has; };
    for (const Case& c : { Case { "/x/a.wav", ".WAV aif", true }, Case { "/x/a.AIF", ".WAV aif", true },
                           Case { "/x/a.aiff", ".WAV aif", false }, Case { "/x.d/a", "d", false }, Case { "/a.b/c", "", true } })
        EXPECT_EQ(File(c.path).HasFileExtension(c.extensions), c.has) << c.path << " " << c.extensions;
}

TEST(FileOperations, CreateDirectoryMakesTheWholeChain)
{
    TemporaryFolder folder;
    const File nested((folder / "a/b/c").c_str());
    EXPECT_TRUE(nested.CreateDirectoryA());
    EXPECT_TRUE(nested.IsDirectory());
    EXPECT_TRUE(nested.CreateDirectoryA()); // already there

    const File child((folder / "x/y/z.wav").c_str());
    EXPECT_TRUE(child.CreateParentDirectory());
    EXPECT_TRUE(File((folder / "x/y").c_str()).IsDirectory());
    EXPECT_FALSE(child.Exists());

    touch(folder / "plain");
    EXPECT_FALSE(File((folder / "plain/sub").c_str()).CreateDirectoryA()); // a file stands in the way
    std::string levels; // tens of thousands of missing levels are walked without recursion
    for (int i = 0; i < 30000; ++i)
        levels += "/d";
    EXPECT_FALSE(File((folder / "plain" + levels).c_str()).CreateDirectoryA());

    // "~nobody" stays relative text, and its parent is itself: the chain has nowhere to start.
    StreamCapture err(std::cerr);
    EXPECT_EQ(MessageOf([] { File("~nobody/sub").CreateDirectoryA(); }), "Cannot create directory \"~nobody\"");
    EXPECT_FALSE(File("~nobody").Exists());
}

TEST(FileOperations, QueriesAndLinksAnswerForTheirTargets)
{
    TemporaryFolder folder;
    EXPECT_FALSE(File((folder / std::string(300, 'n')).c_str()).Exists()); // too long for the system: a plain "no"
    ::mkdir((folder / "d").c_str(), 0777);
    touch(folder / "d/f");
    ASSERT_EQ(::symlink((folder / "d").c_str(), (folder / "toFolder").c_str()), 0);
    ASSERT_EQ(::symlink((folder / "d/f").c_str(), (folder / "toFile").c_str()), 0);
    ASSERT_EQ(::symlink((folder / "nowhere").c_str(), (folder / "dangling").c_str()), 0);

    EXPECT_TRUE(File((folder / "toFolder").c_str()).IsDirectory());
    EXPECT_TRUE(File((folder / "toFile").c_str()).IsFile());
    EXPECT_EQ(File((folder / "toFile").c_str()).GetSize(), 1u);

    const File dangling((folder / "dangling").c_str());
    EXPECT_TRUE(!dangling.Exists() && !dangling.IsFile() && !dangling.IsDirectory() && dangling.GetSize() == 0u);
    StreamCapture err(std::cerr);
    EXPECT_NO_THROW(dangling.OverwriteIfNeeded(Overwrite(0))); // nothing there to refuse
    EXPECT_FALSE(File((folder / "dangling/sub").c_str()).CreateParentDirectory());
    EXPECT_EQ(err.GetText(), "");
}

TEST(FileOperations, DeleteRemovesFilesAndEmptyFolders)
{
    TemporaryFolder folder;
    touch(folder / "f");
    ::mkdir((folder / "d").c_str(), 0777);
    for (const char* name : { "f", "d", "never" })
    {
        EXPECT_TRUE(File((folder / name).c_str()).Delete()) << name;
        EXPECT_FALSE(File((folder / name).c_str()).Exists()) << name;
    }

    ::mkdir((folder / "full").c_str(), 0777);
    touch(folder / "full/f");
    EXPECT_FALSE(File((folder / "full").c_str()).Delete());
    EXPECT_TRUE(File((folder / "full/f").c_str()).IsFile());
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
    const std::string quoted = "\"" + target.GetFullPath().GetStdString() + "\"";

    EXPECT_EQ(overwriteMessage(target, 0), "(no exception)"); // nothing there yet
    touch(folder / "out.wav");
    EXPECT_EQ(overwriteMessage(target, 0), "File already exists " + quoted);
    EXPECT_TRUE(target.Exists());
    EXPECT_EQ(overwriteMessage(target, 7), "bug : unexpected overwrite flag");
    EXPECT_EQ(overwriteMessage(target, 1), "(no exception)");
    EXPECT_FALSE(target.Exists());
    touch(folder / "out.wav");
    EXPECT_EQ(overwriteMessage(target, 2), "(no exception)");
    EXPECT_FALSE(target.Exists());

    const File asFolder(folder.GetPath().c_str());
    EXPECT_EQ(overwriteMessage(asFolder, 0), "\"" + asFolder.GetFullPath().GetStdString() + "\" is a folder");
    EXPECT_EQ(overwriteMessage(File(""), 0), "(no exception)");
}

TEST(FileOperations, OverwriteThatCannotDeleteSaysSo)
{
    TemporaryFolder folder;
    ::chmod(folder.GetPath().c_str(), 0755);
    ::mkdir((folder / "ro").c_str(), 0777);
    touch(folder / "ro/out.wav");
    ::chmod((folder / "ro").c_str(), 0555);
    const File target((folder / "ro/out.wav").c_str());
    const std::string expected =
        "Error overwriting file \"" + target.GetFullPath().GetStdString() + "\" (probably a permission issue?)";

    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return overwriteMessage(target, 2) == expected; }));
    EXPECT_TRUE(HoldsWithoutPrivileges([&] { return overwriteMessage(target, 1) == expected; }));
    EXPECT_TRUE(target.IsFile());
    ::chmod((folder / "ro").c_str(), 0777);
}

} // namespace
} // namespace kvo::testing
