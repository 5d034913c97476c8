#include "KvoTestUtilities.h"

#include "containers/KvoAudioBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvo::testing
{
ProgramRun RunSonaJoin(const std::vector<std::string>& arguments, const std::string& workingDirectory)
{
    TemporaryFolder capture;
    const std::string outPath = capture / "stdout", errPath = capture / "stderr";
    std::vector<std::string> words { SONAJOIN_EXECUTABLE };
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0)
    {
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (in < 0 || out < 0 || err < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0
            || (!workingDirectory.empty() && chdir(workingDirectory.c_str()) != 0))
            _exit(127);
        alarm(60); // a run that waits on something ends by signal rather than hanging the suite
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return { ReadWholeFile(outPath), ReadWholeFile(errPath), WIFEXITED(status) ? WEXITSTATUS(status) : -1 };
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

ScopedEnvironment::ScopedEnvironment(const char* variable, const char* value) : name(variable)
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

std::string RealPath(const std::string& path) { return std::filesystem::canonical(path).string(); }

std::string ExpectedBanner(const std::string& toolName)
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    const std::string separator(78, '=');
    return separator + "\n"
           + toolName + " [" KVO_BUILD_ARCHITECTURE "]\n"
           "Build date: Mar 18 2024\n"
           "Based on: libkvo v5.0.2 [32-bit float]\n"
           "Copyright (c) 2010-" + std::to_string(local.tm_year + 1900) + " Orvane\n"
           "https://www.orvane.example\n"
           + separator + "\n\n";
}

std::string TripleError(const std::string& text)
{
    std::string joined = text, dashed = text;
    joined.erase(std::remove(joined.begin(), joined.end(), ' '), joined.end());
    std::replace(dashed.begin(), dashed.end(), ' ', '-');
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
    const std::string bytes = LittleEndian(value, numBytes);
    return { bytes.rbegin(), bytes.rend() };
}

bool HoldsWithoutPrivileges(const std::function<bool()>& check)
{
    if (::geteuid() != 0)
        return check();
    constexpr uid_t nobody = 65534;
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0)
        ::_exit(::setgid(nobody) == 0 && ::setuid(nobody) == 0 && check() ? 0 : 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

Guid W64Id(const char (&fourcc)[5])
{
    Guid id { 0, 0, 0, 0, 0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
    std::memcpy(id.data(), fourcc, 4);
    return id;
}

const Guid w64Riff { 'r', 'i', 'f', 'f', 0x2E, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
const Guid w64List { 'l', 'i', 's', 't', 0x2F, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
const Guid pcmGuid { 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
const Guid floatGuid { 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
const std::string rate44100("\x40\x0E\xAC\x44\0\0\0\0\0\0", 10);

namespace
{
uint64_t SizeOr(int64_t sizeField, uint64_t size) { return sizeField >= 0 ? uint64_t(sizeField) : size; }
} // namespace

std::string Chunk(const std::string& id, const std::string& payload, int64_t sizeField)
{
    return Bytes().Text(id).U32(SizeOr(sizeField, payload.size())).Text(payload).Text(std::string(payload.size() % 2, '\0'));
}

std::string Fmt(uint16_t tag, int channels, int rate, int bits, int64_t bytesPerSecond)
{
    const int blockAlign = channels * bits / 8;
    return Bytes().U16(tag).U16(uint16_t(channels)).U32(uint32_t(rate))
        .U32(SizeOr(bytesPerSecond, uint64_t(int64_t(rate) * blockAlign))).U16(uint16_t(blockAlign))
        .U16(uint16_t(bits));
}

std::string Extensible(int channels, int rate, int bits, const Guid& subformat, uint32_t mask)
{
    return Bytes().Text(Fmt(0xFFFE, channels, rate, bits)).U16(22).U16(uint16_t(bits)).U32(mask).Id(subformat);
}

std::string Riff(const std::string& chunks, int64_t sizeField)
{
    return Bytes().Text("RIFF").U32(SizeOr(sizeField, chunks.size() + 4)).Text("WAVE").Text(chunks);
}

std::string Rf64(const std::string& chunks, uint64_t dataSize)
{
    const std::string ds64 = Bytes().U64(chunks.size() + 40).U64(dataSize).U64(0).U32(0);
    return Bytes().Text("RF64").U32(0xFFFFFFFF).Text("WAVE").Text(Chunk("ds64", ds64)).Text(chunks);
}

std::string W64Chunk(const Guid& id, const std::string& payload, int64_t sizeField)
{
    return Bytes().Id(id).U64(SizeOr(sizeField, payload.size() + 24)).Text(payload)
        .Text(std::string((8 - payload.size() % 8) % 8, '\0'));
}

std::string Wave64(const std::string& chunks, int64_t sizeField)
{
    return Bytes().Id(w64Riff).U64(SizeOr(sizeField, chunks.size() + 40)).Id(W64Id("wave")).Text(chunks);
}

std::string Pcm16(const std::vector<int>& samples)
{
    Bytes b;
    for (const int s : samples)
        b.U16(uint16_t(s));
    return b;
}

std::string CanonicalWav(uint16_t tag, uint16_t numChannels, uint32_t sampleRate, uint16_t bits, const std::string& data)
{
    return Riff(Chunk("fmt ", Fmt(tag, numChannels, int(sampleRate), bits)) + Chunk("data", data));
}

std::string WavWriterHeader(int channels, uint32_t rate, int bits, uint64_t dataSize, uint32_t mask)
{
    const bool extensible = channels > 2;
    const std::string fmt = extensible ? Extensible(channels, int(rate), bits, bits < 32 ? pcmGuid : floatGuid, mask)
                                       : Fmt(bits < 32 ? 1 : 3, channels, int(rate), bits);
    const std::string junk(extensible ? 28 : 52, '\0');
    return Bytes().Text("RIFF").U32(96 + dataSize + (dataSize & 1)).Text("WAVE").Text(Chunk("JUNK", junk))
        .Text(Chunk("fmt ", fmt)).Text("data").U32(dataSize);
}

std::string AiffChunk(const std::string& id, const std::string& payload, int64_t sizeField)
{
    return Bytes().Text(id).Be(SizeOr(sizeField, payload.size()), 4).Text(payload).Text(std::string(payload.size() % 2, '\0'));
}

std::string Form(const std::string& type, const std::string& chunks)
{
    return Bytes().Text("FORM").Be(chunks.size() + 4, 4).Text(type).Text(chunks);
}

std::string Comm(int channels, uint32_t frames, int bits, const std::string& rate, const char* compression)
{
    Bytes b;
    b.Be(uint16_t(channels), 2).Be(frames, 4).Be(uint16_t(bits), 2).Text(rate);
    if (compression != nullptr)
        b.Text(compression).Text(Z("\x04name\0"));
    return AiffChunk("COMM", b);
}

std::string Ssnd(const std::string& samples, uint32_t offset)
{
    return AiffChunk("SSND", Bytes().Be(offset, 4).Be(0, 4).Text(std::string(offset, '\xEE')).Text(samples));
}

std::string AiffWriterHeader(int channels, uint32_t frames, int bits, const std::string& rate, uint32_t paddedData)
{
    return Bytes().Text("FORM").Be(paddedData + 46, 4).Text("AIFF").Text(Comm(channels, frames, bits, rate))
        .Text("SSND").Be(paddedData + 8, 4).Be(0, 8);
}

ChannelRead ReadChannels(AudioFileReader& reader, uint64_t start, uint64_t numSamples)
{
    AudioBuffer<float> buffer(reader.getNumChannels(), numSamples);
    ChannelRead result;
    result.ok = reader.readSamples(buffer, 0, numSamples, start);
    for (uint32_t c = 0; c < reader.getNumChannels(); ++c)
        result.channels.emplace_back(buffer.GetReadPointer(c), buffer.GetReadPointer(c) + numSamples);
    return result;
}

Channels ReadFrames(AudioFileReader& reader, uint64_t start, uint64_t numSamples)
{
    ChannelRead read = ReadChannels(reader, start, numSamples);
    EXPECT_TRUE(read.ok);
    return std::move(read.channels);
}

std::string DescribeMarkers(const AudioFilesMetadata& record)
{
    std::string text;
    for (const AudioFilesMetadata::Marker* marker : record.markers)
        text += std::to_string(marker->identifier) + "@" + std::to_string(marker->position) + ":" + marker->label.GetStdString() + " ";
    return text;
}

} // namespace kvo::testing
