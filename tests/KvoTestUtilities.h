#pragma once

// The one test kit: running sonajoin, temporary folders and settings, the console, and audio
// files built byte by byte (RIFF, RF64, Wave64, AIFF) with the headers the writers make.

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "core/KvoException.h"
#include "core/KvoReportLine.h"

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
    ScopedEnvironment(const char* variable, const char* value);
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

/** Redirects a standard stream (std::cout, std::cerr) into a string while it lives. */
class StreamCapture
{
public:
    explicit StreamCapture(std::ostream& captured) : stream(captured), saved(captured.rdbuf(text.rdbuf())) {}
    ~StreamCapture() { stream.rdbuf(saved); }
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;

    std::string GetText() const { return text.str(); }

private:
    std::ostream& stream;
    std::ostringstream text;
    std::streambuf* saved;
};

/** Sets the library's ConsoleTarget (0 silences its reports) while it lives. */
class ScopedConsoleTarget
{
public:
    explicit ScopedConsoleTarget(int target = 0) { ConsoleTarget = target; }
    ~ScopedConsoleTarget() { ConsoleTarget = saved; }
    ScopedConsoleTarget(const ScopedConsoleTarget&) = delete;
    ScopedConsoleTarget& operator=(const ScopedConsoleTarget&) = delete;

private:
    int saved = ConsoleTarget;
};

/**
    Runs check as an ordinary user and tells whether it held. Permission failures mean
    nothing to root: under root, check runs in a child that has taken the rights of "nobody",
    so the files it touches must be reachable by others.
*/
bool HoldsWithoutPrivileges(const std::function<bool()>& check);

/** The canonical form of an existing path, links resolved, as the library's paths come out. */
std::string RealPath(const std::string& path);

/** The banner every run of a tool opens with, for the current year and the architecture built for. */
std::string ExpectedBanner(const std::string& toolName = "sonajoin");

/** The three listings of one command line error: as written, blanks removed, blanks as dashes. */
std::string TripleError(const std::string& text);

std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& bytes);

/** numBytes bytes of value, least significant first. */
std::string LittleEndian(uint64_t value, int numBytes);
/** numBytes bytes of value, most significant first. */
std::string BigEndian(uint64_t value, int numBytes);

/** text between double quotes, as the library's messages quote paths. */
inline std::string InQuotes(const std::string& text) { return "\"" + text + "\""; }

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

/** Text with its zero bytes, which std::string's constructor from a literal would drop. */
template <size_t size>
std::string Z(const char (&text)[size]) { return std::string(text, size - 1); }

// ---------------------------------------------------------------------------------------
// Audio files byte by byte

using Guid = std::array<uint8_t, 16>;
using Channels = std::vector<std::vector<float>>;
/** Channels of fixed-point values, as the formats hand them over before they become floats. */
using Fixed = std::vector<std::vector<int32_t>>;

/** The Wave64 identifier of a chunk named by four characters ("fmt ", "data", "wave", ...). */
Guid W64Id(const char (&fourcc)[5]);
extern const Guid w64Riff;
extern const Guid w64List;
extern const Guid pcmGuid;
extern const Guid floatGuid;

/** Bytes appended field by field, little-endian unless Be says otherwise. */
struct Bytes
{
    std::string s;

    Bytes& Int(uint64_t value, int numBytes) { return Text(LittleEndian(value, numBytes)); }
    Bytes& Be(uint64_t value, int numBytes) { return Text(BigEndian(value, numBytes)); }
    Bytes& U8(uint64_t v) { return Int(v, 1); }
    Bytes& U16(uint64_t v) { return Int(v, 2); }
    Bytes& U24(uint64_t v) { return Int(v, 3); }
    Bytes& U32(uint64_t v) { return Int(v, 4); }
    Bytes& U64(uint64_t v) { return Int(v, 8); }
    Bytes& Text(const std::string& t) { s += t; return *this; }
    /** t followed by zero bytes up to width, or its first width bytes. */
    Bytes& Field(const std::string& t, size_t width)
    {
        s += t.substr(0, width) + std::string(width - std::min(width, t.size()), '\0');
        return *this;
    }
    Bytes& Id(const Guid& g) { s.append(g.begin(), g.end()); return *this; }
    Bytes& F32(float v) { uint32_t u; std::memcpy(&u, &v, 4); return U32(u); }
    Bytes& F64(double v) { uint64_t u; std::memcpy(&u, &v, 8); return U64(u); }
    operator std::string() const { return s; }
    friend std::string operator+(const std::string& a, const Bytes& b) { return a + b.s; }
    friend std::string operator+(const Bytes& a, const std::string& b) { return a.s + b; }
};

/** A RIFF chunk; sizeField replaces the stated size, and the pad byte follows an odd payload. */
std::string Chunk(const std::string& id, const std::string& payload, int64_t sizeField = -1);
/** A plain 16-byte fmt payload; bytesPerSecond replaces the one that rate and width make. */
std::string Fmt(uint16_t tag, int channels, int rate, int bits, int64_t bytesPerSecond = -1);
/** A 40-byte WAVE_FORMAT_EXTENSIBLE fmt payload. */
std::string Extensible(int channels, int rate, int bits, const Guid& subformat, uint32_t mask = 3);
std::string Riff(const std::string& chunks, int64_t sizeField = -1);
/** An RF64 file: the ds64 chunk first, then the chunks. */
std::string Rf64(const std::string& chunks, uint64_t dataSize);
/** A Wave64 chunk, padded to 8 bytes; its size counts its 24-byte header. */
std::string W64Chunk(const Guid& id, const std::string& payload, int64_t sizeField = -1);
std::string Wave64(const std::string& chunks, int64_t sizeField = -1);
std::string Pcm16(const std::vector<int>& samples);
/** A WAV file of one fmt and one data chunk. */
std::string CanonicalWav(uint16_t tag, uint16_t numChannels, uint32_t sampleRate, uint16_t bits, const std::string& data);

/** The 104-byte header the WAV writer makes for data bytes: plain up to two channels, else extensible. */
std::string WavWriterHeader(int channels, uint32_t rate, int bits, uint64_t dataSize, uint32_t mask = 0);

/** An AIFF chunk, big-endian, padded after an odd payload. */
std::string AiffChunk(const std::string& id, const std::string& payload, int64_t sizeField = -1);
std::string Form(const std::string& type, const std::string& chunks);
extern const std::string rate44100;
/** A COMM chunk; a compression type makes it the AIFF-C form. */
std::string Comm(int channels, uint32_t frames, int bits, const std::string& rate = rate44100,
                 const char* compression = nullptr);
std::string Ssnd(const std::string& samples, uint32_t offset = 0);
/** The 54-byte header the AIFF writer makes for paddedData bytes of sound. */
std::string AiffWriterHeader(int channels, uint32_t frames, int bits, const std::string& rate, uint32_t paddedData);

/** numSamples frames of reader from start, channel by channel, and what readSamples returned. */
struct ChannelRead
{
    Channels channels;
    bool ok = false;
};
ChannelRead ReadChannels(AudioFileReader& reader, uint64_t start, uint64_t numSamples);

/** The channels of ReadChannels, where a failed read fails the test. */
Channels ReadFrames(AudioFileReader& reader, uint64_t start, uint64_t numSamples);

/** A record's markers, each as "identifier@position:label ". */
std::string DescribeMarkers(const AudioFilesMetadata& record);

/** A writer of format Writer made directly, its raw sample path and byte count open to tests. */
template <typename Writer>
class OpenWriter : public Writer
{
public:
    OpenWriter(const std::string& path, double rate, unsigned int numChannels, int bits)
        : Writer(File(path.c_str()), rate, numChannels, bits)
    {
    }

    using Writer::bytesWritten;
    using Writer::metadata;

    bool WriteRaw(Fixed channels)
    {
        std::vector<int*> pointers;
        for (auto& channel : channels)
            pointers.push_back(channel.data());
        pointers.push_back(nullptr);
        return this->writeRawSamples(pointers.data(), channels[0].size());
    }
};

/** A fresh folder to write files into and open them from with any reader. */
class AudioFileTest : public ::testing::Test
{
protected:
    File Write(const std::string& bytes, const std::string& name = "test.wav")
    {
        WriteWholeFile(folder / name, bytes);
        return File(String(folder / name));
    }

    /** A reader of bytes, or null (and a failure) when it throws. */
    template <typename Reader>
    std::unique_ptr<Reader> Open(const std::string& bytes, const std::string& name = "test.wav")
    {
        const File file = Write(bytes, name);
        StreamCapture err(std::cerr);
        std::unique_ptr<Reader> reader;
        EXPECT_EQ(MessageOf([&] { reader = std::make_unique<Reader>(file); }), "(no exception)");
        return reader;
    }

    /** The message a reader throws for bytes, checked to be the one it reported on stderr, or "(no exception)". */
    template <typename Reader>
    std::string Refusal(const std::string& bytes, const std::string& name = "test.wav")
    {
        const File file = Write(bytes, name);
        StreamCapture err(std::cerr);
        const std::string message = MessageOf([&] { Reader { file }; });
        EXPECT_EQ(err.GetText().find(message) == std::string::npos, message == "(no exception)") << err.GetText();
        return message;
    }

    /** The reader's refusal of a file that is not of its format. */
    std::string NotValid(const std::string& format, const std::string& name = "test.wav") const
    {
        return "file " + InQuotes(folder / name) + " is not a valid " + format + " file";
    }

    TemporaryFolder folder;
};

} // namespace kvo::testing
