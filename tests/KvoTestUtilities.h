#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/KvoException.h"

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

/** Sets an environment variable (or removes it, for nullptr) while it lives. */
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const char* value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name;
    std::string previous;
    bool hadValue = false;
};

/** Makes folder the working directory while it lives. */
class ScopedWorkingDirectory
{
public:
    explicit ScopedWorkingDirectory(const std::string& folder);
    ~ScopedWorkingDirectory();
    ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
    ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

private:
    std::string previous;
};

/** The canonical form of an existing path, links resolved, as the library's paths come out. */
std::string RealPath(const std::string& path);

/** The banner every run of a tool opens with, for the current year. */
std::string ExpectedBanner(const std::string& toolName = "sonajoin");

/** The three listings of one command line error: as written, blanks removed, blanks as dashes. */
std::string TripleError(const std::string& text);

std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& bytes);

/** numBytes bytes of value, least significant first. */
std::string LittleEndian(uint64_t value, int numBytes);
/** numBytes bytes of value, most significant first. */
std::string BigEndian(uint64_t value, int numBytes);

/** A canonical WAV file: the 44-byte header, then data and a pad byte if its size is odd. */
std::string CanonicalWav(uint16_t tag, uint16_t numChannels, uint32_t sampleRate, uint16_t bits, const std::string& data);

/** text between double quotes, as the library's messages quote paths. */
inline std::string InQuotes(const std::string& text)
{
    return "\"" + text + "\"";
}

/** The message of the kvo::Exception that action throws, or "(no exception)". */
template <typename Action>
std::string MessageOf(Action&& action)
{
    try
    {
        action();
    }
    catch (const Exception& e)
    {
        return e.GetMessage().GetStdString();
    }
    return "(no exception)";
}

} // namespace kvo::testing
