// Every file under data/malformed once broke a reader. Each is read through the library the
// way the fuzzers read it, and joined by the tool, which must end with its report, not a signal.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "KvoFuzzUtilities.h"
#include "KvoTestUtilities.h"

namespace kvo::testing
{
namespace
{

std::vector<std::filesystem::path> MalformedFiles()
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(KVO_TEST_DATA_DIR "/malformed"))
        if (entry.is_regular_file() && entry.path().extension() != ".md")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    EXPECT_FALSE(files.empty()) << "no inputs in data/malformed";
    return files;
}

TEST(MalformedFiles, AreReadSafelyAndRefusedByTheToolWithItsReport)
{
    const int savedTarget = ConsoleTarget;
    TemporaryFolder folder;
    for (const std::filesystem::path& path : MalformedFiles())
    {
        SCOPED_TRACE(path.filename().string());
        std::ifstream stream(path, std::ios::binary);
        const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
        kvo::fuzzing::ReadAsAudioFile(bytes.data(), bytes.size(), path.extension().string());
        ConsoleTarget = savedTarget;

        const ProgramRun run = RunSonaJoin({ "-i", path.string(), "-d", folder / "out.wav" });
        EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 1) << run.exitCode;
        const size_t report = run.standardError.find("Exception occurred in [");
        EXPECT_TRUE(run.exitCode == 0 || report != std::string::npos) << run.standardError;
        EXPECT_EQ(run.standardError.find("Exception occurred in [", report + 1), std::string::npos); // one at most
    }
}

} // namespace
} // namespace kvo::testing
