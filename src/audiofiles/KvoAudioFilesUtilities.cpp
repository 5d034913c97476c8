#include "audiofiles/KvoAudioFilesUtilities.h"

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <locale>
#include <sstream>

#include "audiofiles/KvoAudioFileReader.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "audiofiles/KvoByteOrder.h"
#include "audiofiles/KvoPcmFileReader.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"
#include "core/KvoReportLine.h"
#include "files/KvoFileReader.h"
#include "shell/KvoConsoleProgress.h"
#include "shell/KvoSonaJoin.h"
#include "shell/KvoStopwatch.h"

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

/**
    The first four bytes of the file as a little-endian integer; 0 when the file is shorter
    or is not a file. A file that exists but cannot be opened throws as FileReader does.
*/
uint32_t readMagic(const File& file)
{
    if (!file.IsFile())
        return 0;

    FileReader reader(file);
    return static_cast<uint32_t>(ReadLittleEndian(reader, 4));
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
    if (magic == LittleEndianFourCC("FORM"))
        return aiffFileType;
    if (magic == LittleEndianFourCC("RIFF") || magic == LittleEndianFourCC("RF64") || magic == LittleEndianFourCC("BW64"))
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

void CopyWithGain(float* destination, const float* source, float gain, uint64_t count) noexcept
{
    if (count == 0)
        return;

    if (gain == 1.0f)
    {
        std::copy_n(source, count, destination);
    }
    else if (gain == 0.0f)
    {
        ClearSamples(destination, count);
    }
    else if (gain == -1.0f)
    {
        for (uint64_t i = 0; i < count; ++i)
            destination[i] = -source[i]; // negation flips the sign bit only, NaNs included
    }
    else
    {
        for (uint64_t i = 0; i < count; ++i)
            destination[i] = source[i] * gain;
    }
}

void ClearSamples(float* destination, uint64_t count) noexcept
{
    std::fill_n(destination, count, 0.0f);
}

namespace
{

/** Frames per channel that pass from reader to writer at a time. */
constexpr uint64_t blockLength = 8192;
/** Blocks whose bytes are copied at a time where they need no conversion: 2 MiB of stereo 16-bit. */
constexpr uint64_t blocksPerCopy = 64;

/** A line of the join's report on standard output, flushed at once. */
void printLine(const String& text)
{
    std::cout << text.GetStdString() << LineEnd().GetStdString() << std::flush;
}

/**
    The record of one input as the first pass sees it: a missing file counts as empty,
    while one that exists but cannot be read ends the run here.
*/
AudioFilesMetadata readFirstPassRecord(const File& input)
{
    // A path that exists is not empty, so there is always a reader.
    return input.Exists() ? AudioFileReader::CreateReaderFor(input)->getMetadata() : AudioFilesMetadata();
}

/**
    Moves one block into the destination's channels by index. Destination channels that
    the source lacks are silenced, so a narrow input never leaves stale samples behind.
    The whole block length is moved, whatever part of it holds new frames.
*/
void transferBlock(const AudioBuffer<float>& source, AudioBuffer<float>& destination)
{
    const uint32_t common = std::min(source.GetNumChannels(), destination.GetNumChannels());
    const uint64_t length = std::min(source.GetNumSamples(), destination.GetNumSamples());

    for (uint32_t channel = 0; channel < common; ++channel)
    {
        destination.SetClearFlag(false);
        if (source.IsClear())
            ClearSamples(destination.GetWritePointer(channel), length);
        else
            CopyWithGain(destination.GetWritePointer(channel), source.GetReadPointer(channel), 1.0f, length);
    }

    for (uint32_t channel = common; channel < destination.GetNumChannels(); ++channel)
    {
        if (destination.IsClear())
            continue;
        destination.SetClearFlag(false);
        ClearSamples(destination.GetWritePointer(channel), destination.GetNumSamples());
    }
}

/**
    The reader as a source of bytes the writer may store as they are: where both code their
    samples alike and the trip through float would change no bit of them. Null otherwise.
*/
PcmFileReader* getPassThroughSource(AudioFileReader& reader, const AudioFileWriter& writer)
{
    auto* pcm = dynamic_cast<PcmFileReader*>(&reader);
    if (pcm == nullptr)
        return nullptr;
    const SampleCoding coding = pcm->getSampleCoding();
    return coding == writer.getSampleCoding() && coding.isExactThroughFloat() ? pcm : nullptr;
}

/**
    Appends the frames of reader to writer, decoded and encoded again block by block,
    reporting progress. False as soon as a block cannot be written.
*/
bool appendConverted(AudioFileReader& reader, AudioFileWriter& writer, AudioBuffer<float>& destinationBuffer,
                     ConsoleProgress& progress, uint64_t& totalWritten)
{
    const uint64_t numSamples = reader.getNumSamples();
    AudioBuffer<float> sourceBuffer(reader.getNumChannels(), blockLength);

    for (uint64_t position = 0; position < numSamples;)
    {
        const uint64_t count = std::min(numSamples - position, blockLength);
        // A failed read is not fatal: the block goes out with what the buffer held.
        reader.readSamples(sourceBuffer, 0, count, position);
        position += count;

        transferBlock(sourceBuffer, destinationBuffer);
        if (!writer.writeSamples(destinationBuffer, 0, count, false))
            return false;

        totalWritten += count;
        progress.Update(totalWritten);
    }
    return true;
}

/**
    appendConverted for a reader whose bytes are the writer's: they are copied, many blocks
    at a time, and the progress is reported block by block as if they had been converted.
*/
bool appendCopied(PcmFileReader& reader, AudioFileWriter& writer, ConsoleProgress& progress, uint64_t& totalWritten)
{
    const uint64_t numSamples = reader.getNumSamples();
    for (uint64_t position = 0; position < numSamples;)
    {
        const uint64_t span = std::min(numSamples - position, blocksPerCopy * blockLength);
        const uint64_t stored = writer.writeFramesFrom(reader, position, span, blockLength);
        position += span;

        for (uint64_t done = 0; done < stored;)
        {
            const uint64_t count = std::min(stored - done, blockLength);
            done += count;
            totalWritten += count;
            progress.Update(totalWritten);
        }
        if (stored < span)
            return false;
    }
    return true;
}

/**
    Appends every frame of input to writer. False as soon as a block cannot be written; a
    missing or unreadable input throws.
*/
bool appendInput(const File& input, AudioFileWriter& writer, AudioBuffer<float>& destinationBuffer,
                 ConsoleProgress& progress, uint64_t& totalWritten)
{
    const ScopedPointer<AudioFileReader> reader = AudioFileReader::CreateReaderFor(input);
    // An empty entry of a comma list gets no reader: it is as missing as a path that is not there.
    if (reader == nullptr)
        throw exceptions::NoSuchFile(input, KVO_CODE_LOCATION);
    if (PcmFileReader* const source = getPassThroughSource(*reader, writer))
        return appendCopied(*source, writer, progress, totalWritten);
    return appendConverted(*reader, writer, destinationBuffer, progress, totalWritten);
}

/** The elapsed time as the standard stream writes a double: six significant digits. */
String formatMilliseconds(double milliseconds)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << milliseconds;
    return text.str();
}

} // namespace

void SonaJoin::Process()
{
    const Stopwatch stopwatch(Stopwatch::steadyClock);
    if (inputFiles.empty())
        return;

    // First pass: headers only, for the widest channel count and the total length.
    uint32_t numChannelsForDestination = 0;
    uint64_t totalNumSamples = 0;
    for (const File& input : inputFiles)
    {
        const AudioFilesMetadata record = readFirstPassRecord(input);
        numChannelsForDestination = std::max(numChannelsForDestination, record.numChannels);
        totalNumSamples += record.numSamples;
    }
    printLine(String("numChannelsForDestination = ") + FromInteger(numChannelsForDestination));
    printLine(String("totalNumSamples = ") + FromInteger(totalNumSamples));

    // The first input alone decides the rate and the depth of the output.
    const AudioFilesMetadata first = GetMetadataFor(inputFiles.front());
    ScopedPointer<AudioFileWriter> writer = AudioFileWriter::CreateWriterFor(
        destination, first.sampleRate, numChannelsForDestination, static_cast<int>(first.bitsPerSample), overwrite);
    if (writer == nullptr)
        throw exceptions::ErrorWritingFile(destination, KVO_CODE_LOCATION);

    AudioBuffer<float> destinationBuffer(numChannelsForDestination, blockLength);
    ConsoleProgress progress(totalNumSamples, 1);

    // Second pass: the samples. Should it fail, the writer still completes the partial file's header.
    uint64_t totalWritten = 0;
    for (const File& input : inputFiles)
    {
        printLine(String("reading file ") + Quoted(input.GetFullPath()));
        if (!appendInput(input, *writer, destinationBuffer, progress, totalWritten))
            throw exceptions::ErrorWritingFile(destination, KVO_CODE_LOCATION);
    }

    writer.reset(); // completes the file's header
    std::cout << "Finished: " << formatMilliseconds(stopwatch.ElapsedMilliseconds()).GetStdString() << " msec"
              << "\n";
}

} // namespace kvo
