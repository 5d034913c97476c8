#pragma once

#include <string>
#include <vector>

namespace kvo::testing
{

/** What one run of a program printed and returned. */
struct ProgramRun
{
    std::string standardOutput;
    std::string standardError;
    int exitCode = -1;
};

/** Runs the sonajoin executable with arguments, in workingDirectory when it is not empty. */
ProgramRun RunSonaJoin(const std::vector<std::string>& arguments, const std::string& workingDirectory = {});

/** A fresh, empty folder below the system's temporary folder, removed with its contents on destruction. */
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& GetPath() const noexcept { return path; }
    std::string operator/(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

/** The banner every run of sonajoin opens with, for the current year. */
std::string ExpectedBanner();

} // namespace kvo::testing
