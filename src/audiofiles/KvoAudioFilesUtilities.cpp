#include "audiofiles/KvoAudioFilesUtilities.h"

#include <cstdint>
#include <iterator>

#include "core/KvoException.h"
#include "files/KvoFileReader.h"
#include "shell/KvoSonaJoin.h"

namespace kvo
{
namespace
{

const char* const wavFileType = "WAV File";
const char* const aiffFileType = "AIFF File";
const char* const mp3FileType = "MP3 File";
const char* const unknownFileType = "unknown";

// In the order GetWavExtensions hands them out.
const char* const wavExtensions[] = { ".wav", ".w64", ".bwf", ".bw64", ".amb", ".uhj" };

/** A four-character code as it reads when a file's first four bytes are taken little-endian. */
constexpr uint32_t fourCC(const char (&code)[5]) noexcept
{
    return static_cast<uint32_t>(static_cast<uint8_t>(code[0]))
           | static_cast<uint32_t>(static_cast<uint8_t>(code[1])) << 8
           | static_cast<uint32_t>(static_cast<uint8_t>(code[2])) << 16
           | static_cast<uint32_t>(static_cast<uint8_t>(code[3])) << 24;
}

/**
    The first four bytes of the file as a little-endian integer; 0 when the file is shorter
    or is not a file. A file that exists but cannot be opened throws as FileReader does.
*/
uint32_t readMagic(const File& file)
{
    if (!file.IsFile())
        return 0;

    uint8_t bytes[4] = {};
    FileReader reader(file);
    reader.Read(bytes, sizeof(bytes));
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8
           | static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

} // namespace

String GetSupportedFormats(const String& separator)
{
    return String("WAV File") + separator + "AIFF File" + separator + "MP3 File";
}

// Format detection

Vector<String> GetWavExtensions()
{
    Vector<String> extensions;
    extensions.Reserve(std::size(wavExtensions));
    for (const char* extension : wavExtensions)
        extensions.PushBack(String(extension));
    return extensions;
}

bool HasWavExtension(const File& file)
{
    String list;
    for (const char* extension : wavExtensions)
        list += String(list.IsEmpty() ? "" : " ") + extension;
    return file.HasFileExtension(list);
}

bool HasAiffExtension(const File& file)
{
    return file.HasFileExtension(".aiff .aif");
}

bool HasMp3Extension(const File& file)
{
    return file.HasFileExtension(".mp3");
}

String GetFileType(const File& file)
{
    // Content first. Wave64 ("riff") and MP3 have no magic here: they are known by name only.
    const uint32_t magic = readMagic(file);
    if (magic == fourCC("FORM"))
        return aiffFileType;
    if (magic == fourCC("RIFF") || magic == fourCC("RF64") || magic == fourCC("BW64"))
        return wavFileType;

    if (HasAiffExtension(file))
        return aiffFileType;
    if (HasWavExtension(file))
        return wavFileType;
    if (HasMp3Extension(file))
        return mp3FileType;
    return unknownFileType;
}

bool IsAiffFile(const File& file)
{
    return GetFileType(file) == aiffFileType;
}

bool IsWavFile(const File& file)
{
    return GetFileType(file) == wavFileType;
}

bool IsMp3File(const File& file)
{
    return GetFileType(file) == mp3FileType;
}

void SonaJoin::Process()
{
    // Nothing to join until the audio readers and writers arrive.
}

} // namespace kvo
