#include "audiofiles/KvoAudioFileReader.h"

#include <cstdint>

#include "audiofiles/KvoAiffFileReader.h"
#include "audiofiles/KvoAudioFilesUtilities.h"
#include "audiofiles/KvoMP3FileReader.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "audiofiles/KvoWavFileReader.h"
#include "core/KvoException.h"
#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

const char* const unknownFileType = "unknown";

/** The file's path for messages, in double quotes. */
String quotedPath(const File& file)
{
    return Quoted(file.GetFullPath());
}

ScopedPointer<AudioFileReader> createAiffReader(const File& file)
{
    return ScopedPointer<AudioFileReader>(new AiffFileReader(file));
}

ScopedPointer<AudioFileReader> createMp3Reader(const File& file)
{
    return ScopedPointer<AudioFileReader>(new MP3FileReader(file));
}

// ---------------------------------------------------------------------------------------

ScopedPointer<AudioFileReader> createWavReader(const File& file)
{
    return ScopedPointer<AudioFileReader>(new WavFileReader(file));
}

} // namespace

AudioFilesMetadata GetMetadataFor(const File& file)
{
    // A file's path is not empty, so there is always a reader.
    return file.IsFile() ? AudioFileReader::CreateReaderFor(file)->getMetadata() : AudioFilesMetadata();
}

// ---------------------------------------------------------------------------------------
// AudioFileReader

AudioFileReader::AudioFileReader(const File& file) : fileReader(new FileReader(file))
{
}

AudioFileReader::AudioFileReader(FileReader* reader) : fileReader(reader)
{
}

AudioFileReader::~AudioFileReader() = default;

ScopedPointer<AudioFileReader> AudioFileReader::CreateReaderFor(const File& file)
{
    if (file.GetFullPath().IsEmpty())
        return nullptr;
    if (!file.IsFile())
        throw exceptions::NoSuchFile(file, KVO_CODE_LOCATION);

    // The file's start is read once for all three tests; the readers throw themselves on a bad header.
    const String fileType = GetFileType(file);
    ScopedPointer<AudioFileReader> reader;
    if (fileType == "AIFF File")
        reader = createAiffReader(file);
    else if (fileType == "WAV File")
        reader = createWavReader(file);
    else if (fileType == "MP3 File")
        reader = createMp3Reader(file);

    if (reader != nullptr && reader->isValid())
        return reader;
    throw Exception(String("File ") + quotedPath(file) + " is not a valid audio file (?)", KVO_CODE_LOCATION);
}

bool AudioFileReader::isValid() const
{
    return metadata.formatName != unknownFileType && metadata.sampleRate > 0.0 && metadata.bitsPerSample != 0
           && metadata.numChannels != 0;
}

bool AudioFileReader::readSamples(AudioBuffer<float>& buffer, uint64_t startInBuffer, uint64_t numSamples,
                                  uint64_t startSampleInFile)
{
    if (numSamples == 0)
        return true;

    const uint64_t bufferLength = buffer.GetNumSamples();
    if (startInBuffer > bufferLength || numSamples > bufferLength - startInBuffer)
        return false;
    const uint32_t numChannels = metadata.numChannels;
    if (numChannels > buffer.GetNumChannels())
        return false;

    // The raw samples land in the float memory itself and are converted in place.
    channelPointers.Resize(numChannels);
    for (uint32_t channel = 0; channel < numChannels; ++channel)
        channelPointers[channel] = reinterpret_cast<int*>(buffer.GetWritePointer(channel) + startInBuffer);

    if (!readRawSamples(channelPointers.GetData(), numSamples, startSampleInFile))
        return false;
    if (!metadata.isFloat)
        ConvertFixedToFloat(channelPointers.GetData(), numChannels, numSamples);
    return true;
}

} // namespace kvo
