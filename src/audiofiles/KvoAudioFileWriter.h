#pragma once

#include "audiofiles/KvoAudioFilesManager.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoMemoryBlock.h"
#include "core/KvoScopedPointer.h"
#include "files/KvoFile.h"

namespace kvo
{

class FileWriter;
class Overwrite;

/**
    Base of the format writers. The header is written at construction, after a failed
    write and again by the destructor, so the file is well-formed at each of those
    moments; it is complete only once the writer is destroyed.
*/
class AudioFileWriter : public AudioFilesManager
{
public:
    ~AudioFileWriter() override;

    /**
        The writer for file's extension (".wav" family or ".aif"/".aiff"); null for an empty
        path or a parent folder that cannot be made. Throws for an unknown or MP3
        extension, or a refused depth or rate.
    */
    static ScopedPointer<AudioFileWriter> CreateWriterFor(const File& file, double sampleRate,
                                                          unsigned int numChannels, int bitsDepth,
                                                          const Overwrite& overwrite);

    virtual void setAdmChunks(const String& axml, const ChnaData& chna);
    virtual void setForceRf64(bool shouldForceRf64);

    /**
        Stores numSamples frames of buffer from startSample on; false (or a throw, if asked) on
        failure. A buffer with fewer channels than the writer, or too short for the span, is a
        failure too, with nothing stored.
    */
    template <typename SampleType>
    bool writeSamples(const AudioBufferBase<SampleType>& buffer, uint64_t startSample, uint64_t numSamples,
                      bool throwOnFailure);

protected:
    /**
        Creates the FileWriter (which may throw), records its position as headerPosition and
        sets sampleRate, bitsPerSample and numChannels. The format's constructor then sets
        formatName and isFloat and writes the first header; its destructor rewrites it.
    */
    AudioFileWriter(const File& file, double sampleRate, unsigned int numChannels, int bitsDepth);

    /** Packs numSamples frames from the channel arrays into the file. */
    virtual bool writeRawSamples(int** channels, uint64_t numSamples) = 0;
    /** Writes or rewrites the header at headerPosition. */
    virtual void writeHeader() = 0;

    /** The checks every format writer makes before touching the file; throws on a refused depth or rate. */
    static void checkDepthAndRate(double sampleRate, int bitsDepth);

    /**
        What every format writer's CreateWriterFor does before it constructs the writer:
        checkDepthAndRate, then the file's OverwriteIfNeeded (both may throw), then its
        CreateParentDirectory. False when the folder cannot be made: the factory then
        returns a null pointer.
    */
    static bool prepareDestination(const File& file, double sampleRate, int bitsDepth, const Overwrite& overwrite);

    /** A format's CreateWriterFor: prepareDestination, then a Writer on file; null when the folder cannot be made. */
    template <typename Writer>
    static ScopedPointer<Writer> createPrepared(const File& file, double sampleRate, unsigned int numChannels,
                                                int bitsDepth, const Overwrite& overwrite)
    {
        if (!prepareDestination(file, sampleRate, bitsDepth, overwrite))
            return nullptr;
        return ScopedPointer<Writer>(new Writer(file, sampleRate, numChannels, bitsDepth));
    }

    File file;
    ScopedPointer<FileWriter> fileWriter;
    int64_t headerPosition = 0;
    uint64_t bytesWritten = 0;
    bool writeFailed = false;
    MemoryBlock packBuffer;
    Vector<int*> channelPointers;
    Vector<int> intScratch;

private:
    bool fitsBuffer(const AudioBufferBase<float>& buffer, uint64_t startSample, uint64_t numSamples) const noexcept;
    /** One call of writeRawSamples over channelPointers, unless an earlier one failed. */
    bool writeBlock(uint64_t numFrames);
    bool writeFloatSamples(const AudioBufferBase<float>& buffer, uint64_t startSample, uint64_t numSamples);
    bool writeFixedPointSamples(const AudioBufferBase<float>& buffer, uint64_t startSample, uint64_t numSamples);
};

extern template bool AudioFileWriter::writeSamples<float>(const AudioBufferBase<float>&, uint64_t, uint64_t, bool);

} // namespace kvo
