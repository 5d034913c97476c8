#include "audiofiles/KvoAudioFileWriter.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "audiofiles/KvoAiffFileWriter.h"
#include "audiofiles/KvoAudioFilesUtilities.h"
#include "audiofiles/KvoPcmFileReader.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "audiofiles/KvoWavFileWriter.h"
#include "core/KvoException.h"
#include "files/KvoFileWriter.h"

namespace kvo
{
namespace
{

/** Frames converted to fixed point per call of writeRawSamples. */
constexpr uint64_t conversionBlockLength = 8192;

// The rates a writer accepts, in the order they are searched. 4410 and 8820 belong to the
// list and 8000, 16000 and 24000 do not, although any of them reads without complaint.
constexpr double writableSampleRates[] = { 44100, 48000, 96000, 4410, 8820, 11025, 22050,
                                           32000, 88200, 176400, 192000, 352800, 384000, 768000 };

String quotedPath(const File& file)
{
    return Quoted(file.GetFullPath());
}

} // namespace

ScopedPointer<AudioFileWriter> AudioFileWriter::CreateWriterFor(const File& file, double sampleRate,
                                                                unsigned int numChannels, int bitsDepth,
                                                                const Overwrite& overwrite)
{
    // The destination's extension alone decides the format.
    if (file.GetFullPath().IsEmpty())
        return nullptr;
    if (HasAiffExtension(file))
        return AiffFileWriter::CreateWriterFor(file, sampleRate, numChannels, bitsDepth, overwrite);
    if (HasWavExtension(file))
        return WavFileWriter::CreateWriterFor(file, sampleRate, numChannels, bitsDepth, overwrite);
    if (HasMp3Extension(file))
        throw Exception(String("MP3 encoding is not supported. Cannot write file ") + quotedPath(file),
                        KVO_CODE_LOCATION);
    throw Exception(String("Cannot determine file type ") + quotedPath(file), KVO_CODE_LOCATION);
}

void AudioFileWriter::checkDepthAndRate(double sampleRate, int bitsDepth)
{
    // 8, 16, 24 and 32 are the only depths whose distance from 8 lies within the bits 0x18.
    if (((bitsDepth - 8) & ~0x18) != 0)
        throw Exception(String("Invalid bits depth : ") + FromInteger(static_cast<int32_t>(bitsDepth)),
                        KVO_CODE_LOCATION);

    // The rate counts by its integer part, so 44100.7 passes. NaN and infinities match nothing.
    const double wholeRate = std::trunc(sampleRate);
    if (std::find(std::begin(writableSampleRates), std::end(writableSampleRates), wholeRate)
        == std::end(writableSampleRates))
        throw Exception(String("Invalid samplerate : ") + FromDouble(sampleRate), KVO_CODE_LOCATION);
}

bool AudioFileWriter::prepareDestination(const File& file, double sampleRate, int bitsDepth,
                                         const Overwrite& overwrite)
{
    // Refusals come before the file is touched, so a refused rate leaves an existing file alone.
    checkDepthAndRate(sampleRate, bitsDepth);
    file.OverwriteIfNeeded(overwrite);
    return file.CreateParentDirectory();
}

AudioFileWriter::AudioFileWriter(const File& destination, double sampleRate, unsigned int numChannels, int bitsDepth)
    : file(destination), fileWriter(new FileWriter(destination))
{
    headerPosition = fileWriter->GetPosition();
    metadata.sampleRate = sampleRate;
    metadata.bitsPerSample = static_cast<uint32_t>(bitsDepth);
    metadata.numChannels = numChannels;
}

AudioFileWriter::~AudioFileWriter() = default;

void AudioFileWriter::setAdmChunks(const String& /*axml*/, const ChnaData& /*chna*/)
{
}

void AudioFileWriter::setForceRf64(bool /*shouldForceRf64*/)
{
}

template <typename SampleType>
bool AudioFileWriter::writeSamples(const AudioBufferBase<SampleType>& buffer, uint64_t startSample,
                                   uint64_t numSamples, bool throwOnFailure)
{
    if (numSamples == 0)
        return true;

    const bool written = fitsBuffer(buffer, startSample, numSamples)
                         && (metadata.isFloat ? writeFloatSamples(buffer, startSample, numSamples)
                                              : writeFixedPointSamples(buffer, startSample, numSamples));
    if (!written && throwOnFailure)
        throw exceptions::ErrorWritingFile(file, KVO_CODE_LOCATION);
    return written;
}

template bool AudioFileWriter::writeSamples<float>(const AudioBufferBase<float>&, uint64_t, uint64_t, bool);

SampleCoding AudioFileWriter::getSampleCoding() const noexcept
{
    return { forms, metadata.bitsPerSample, metadata.isFloat, metadata.numChannels };
}

uint64_t AudioFileWriter::writeFramesFrom(PcmFileReader& source, uint64_t startFrame, uint64_t numFrames,
                                          uint64_t blockLength)
{
    if (writeFailed || numFrames == 0)
        return 0;
    uint64_t bytes = 0;
    if (!admitsFrames(numFrames, bytes))
        return numFrames > blockLength ? writeBlocksFrom(source, startFrame, numFrames, blockLength) : (failWrite(), 0);

    const int64_t start = fileWriter->GetPosition();
    if (source.writeFrameBytes(*fileWriter, startFrame, numFrames))
    {
        finishBlock(true, bytes, numFrames);
        return numFrames;
    }
    // Every frame has bytesPerFrame bytes at the depths copied, so whole blocks are counted in bytes.
    const uint64_t blockBytes = bytes / numFrames * blockLength;
    const uint64_t numBlocks = uint64_t(fileWriter->GetPosition() - start) / blockBytes;
    finishBlock(true, numBlocks * blockBytes, numBlocks * blockLength);
    failWrite();
    return numBlocks * blockLength;
}

uint64_t AudioFileWriter::writeBlocksFrom(PcmFileReader& source, uint64_t startFrame, uint64_t numFrames,
                                          uint64_t blockLength)
{
    // A cap met within the frames: one block at a time, so the one that meets it fails.
    uint64_t stored = 0;
    while (stored < numFrames)
    {
        const uint64_t count = std::min(blockLength, numFrames - stored);
        const uint64_t got = writeFramesFrom(source, startFrame + stored, count, blockLength);
        stored += got;
        if (got < count)
            break;
    }
    return stored;
}

bool AudioFileWriter::writeRawSamples(int** channels, uint64_t numSamples)
{
    if (writeFailed)
        return false;
    uint64_t bytes = 0;
    if (!admitsFrames(numSamples, bytes))
        return failWrite();
    if (uint64_t(packBuffer.size) < bytes)
        packBuffer.SetSize(int64_t(bytes), false);
    if (uint64_t(packBuffer.size) < bytes) // the allocation failed
        return failWrite();

    const auto pack = forms == ByteForms::aiff ? PackAiffSamples : PackWavSamples;
    pack(int(metadata.bitsPerSample), channels, metadata.numChannels, numSamples,
         reinterpret_cast<char*>(packBuffer.data));
    return finishBlock(fileWriter->Write(packBuffer.data, bytes), bytes, numSamples);
}

bool AudioFileWriter::admitsFrames(uint64_t numFrames, uint64_t& bytes) const noexcept
{
    bytes = uint64_t { metadata.bitsPerSample } * metadata.numChannels * numFrames >> 3;
    return true;
}

bool AudioFileWriter::finishBlock(bool stored, uint64_t bytes, uint64_t numFrames)
{
    if (!stored)
        return failWrite();
    bytesWritten += bytes;
    metadata.numSamples += numFrames;
    return true;
}

bool AudioFileWriter::failWrite()
{
    // The whole block is dropped; the header is made right for what is stored so far.
    writeHeader();
    writeFailed = true;
    return false;
}

bool AudioFileWriter::fitsBuffer(const AudioBufferBase<float>& buffer, uint64_t startSample,
                                 uint64_t numSamples) const noexcept
{
    const uint64_t length = buffer.GetNumSamples();
    return buffer.GetNumChannels() >= metadata.numChannels && startSample <= length
           && numSamples <= length - startSample;
}

bool AudioFileWriter::writeBlock(uint64_t numFrames)
{
    // Once a block has failed nothing more is stored; the writer keeps what it had.
    if (writeFailed)
        return false;
    if (!writeRawSamples(channelPointers.GetData(), numFrames))
        writeFailed = true;
    return !writeFailed;
}

bool AudioFileWriter::writeFloatSamples(const AudioBufferBase<float>& buffer, uint64_t startSample,
                                        uint64_t numSamples)
{
    // Float output takes the samples as they are, unclipped, straight from the buffer.
    const uint32_t numChannels = metadata.numChannels;
    channelPointers.Resize(static_cast<uint64_t>(numChannels) + 1);
    for (uint32_t channel = 0; channel < numChannels; ++channel)
        channelPointers[channel] = const_cast<int*>(reinterpret_cast<const int*>(buffer.GetReadPointer(channel) + startSample));
    channelPointers[numChannels] = nullptr;
    return writeBlock(numSamples);
}

bool AudioFileWriter::writeFixedPointSamples(const AudioBufferBase<float>& buffer, uint64_t startSample,
                                             uint64_t numSamples)
{
    // The scratch keeps its storage between calls, so blocks allocate nothing.
    const uint32_t numChannels = metadata.numChannels;
    intScratch.Resize(static_cast<uint64_t>(numChannels) * conversionBlockLength);
    channelPointers.Resize(static_cast<uint64_t>(numChannels) + 1);
    for (uint32_t channel = 0; channel < numChannels; ++channel)
        channelPointers[channel] = intScratch.GetData() + channel * conversionBlockLength;
    channelPointers[numChannels] = nullptr;

    // A failed block does not end the loop: the latch makes the remaining ones fail at once.
    bool allWritten = true;
    for (uint64_t done = 0; done < numSamples;)
    {
        const uint64_t count = std::min(conversionBlockLength, numSamples - done);
        for (uint32_t channel = 0; channel < numChannels; ++channel)
            ConvertFloatToFixed(buffer.GetReadPointer(channel) + startSample + done, channelPointers[channel], count);
        allWritten = writeBlock(count) && allWritten;
        done += count;
    }
    return allWritten;
}

} // namespace kvo
