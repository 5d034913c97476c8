#include "KvoTestUtilities.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace kvo::testing
{
ProgramRun RunSonaJoin(const std::vector<std::string>& arguments, const std::string& workingDirectory)
{
    TemporaryFolder capture;
    const std::string outPath = capture / "stdout";
    const std::string errPath = capture / "stderr";

    std::vector<char*> argv;
    std::string program = SONAJOIN_EXECUTABLE;
    argv.push_back(program.data());
    std::vector<std::string> copies(arguments);
    for (std::string& argument : copies)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0)
    {
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int in = open("/dev/null", O_RDONLY);
        if (out < 0 || err < 0 || in < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || dup2(in, 0) < 0)
            _exit(127);
        if (!workingDirectory.empty() && chdir(workingDirectory.c_str()) != 0)
            _exit(127);
        alarm(60); // a run that waits on something ends by signal rather than hanging the suite
        execv(argv[0], argv.data());
        _exit(127);
    }

    int status = 0;
    waitpid(child, &status, 0);

    ProgramRun run;
    run.standardOutput = ReadWholeFile(outPath);
    run.standardError = ReadWholeFile(errPath);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kvo-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot make a temporary folder");
    path = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name(name)
{
    if (const char* old = std::getenv(name))
        previous = old, hadValue = true;
    if (value != nullptr)
        ::setenv(name, value, 1);
    else
        ::unsetenv(name);
}

ScopedEnvironment::~ScopedEnvironment()
{
    if (hadValue)
        ::setenv(name, previous.c_str(), 1);
    else
        ::unsetenv(name);
}

ScopedWorkingDirectory::ScopedWorkingDirectory(const std::string& folder)
    : previous(std::filesystem::current_path().string())
{
    std::filesystem::current_path(folder);
}

ScopedWorkingDirectory::~ScopedWorkingDirectory()
{
    std::error_code ignored;
    std::filesystem::current_path(previous, ignored);
}

std::string RealPath(const std::string& path)
{
    return std::filesystem::canonical(path).string();
}

std::string ExpectedBanner(const std::string& toolName)
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    const std::string separator(78, '=');
    return separator + "\n"
           + toolName + " [x86_64]\n"
           "Build date: Mar 18 2024\n"
           "Based on: libkvo v5.0.2 [32-bit float]\n"
           "Copyright (c) 2010-" + std::to_string(local.tm_year + 1900) + " Orvane\n"
           "https://www.orvane.example\n"
           + separator + "\n\n";
}

std::string TripleError(const std::string& text)
{
    std::string joined;
    std::string dashed;
    for (char c : text)
    {
        if (c != ' ')
            joined += c;
        dashed += c == ' ' ? '-' : c;
    }
    return "Error : " + text + "\nError : " + joined + "\nError : " + dashed + "\n";
}

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void WriteWholeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string LittleEndian(uint64_t value, int numBytes)
{
    std::string bytes;
    for (int i = 0; i < numBytes; ++i)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string BigEndian(uint64_t value, int numBytes)
{
    std::string bytes;
    for (int i = numBytes - 1; i >= 0; --i)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string CanonicalWav(uint16_t tag, uint16_t numChannels, uint32_t sampleRate, uint16_t bits, const std::string& data)
{
    const uint32_t blockAlign = numChannels * bits / 8u;
    const uint64_t dataSize = data.size();
    std::string bytes = "RIFF" + LittleEndian(36 + dataSize + (dataSize & 1), 4) + "WAVE" + "fmt " + LittleEndian(16, 4)
                        + LittleEndian(tag, 2) + LittleEndian(numChannels, 2) + LittleEndian(sampleRate, 4)
                        + LittleEndian(sampleRate * blockAlign, 4) + LittleEndian(blockAlign, 2) + LittleEndian(bits, 2)
                        + "data" + LittleEndian(dataSize, 4) + data;
    if (dataSize & 1)
        bytes += '\0';
    return bytes;
}

} // namespace kvo::testing
