#pragma once

#include "audiofiles/KvoAudioFilesManager.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoScopedPointer.h"
#include "files/KvoFile.h"

namespace kvo
{

class FileReader;

/**
    Base of the format readers. A reader parses its file's header in its constructor and
    throws if the file is unusable; afterwards it delivers float samples from any frame on.
*/
class AudioFileReader : public AudioFilesManager
{
public:
    ~AudioFileReader() override;

    /** The reader for file's format; null for an empty path. Throws for a missing or unreadable file. */
    static ScopedPointer<AudioFileReader> CreateReaderFor(const File& file);

    /**
        Reads numSamples frames from startSampleInFile into the buffer's channels from
        startInBuffer on, as floats. False, touching nothing, if the span does not fit the
        buffer or the file has more channels than the buffer.
    */
    bool readSamples(AudioBuffer<float>& buffer, uint64_t startInBuffer, uint64_t numSamples,
                     uint64_t startSampleInFile);

    /** True when the header gave a format, a positive rate, a depth and channels. */
    bool isValid() const;

    uint32_t getNumChannels() const noexcept { return metadata.numChannels; }
    uint64_t getNumSamples() const noexcept { return metadata.numSamples; }

protected:
    /** Opens fileReader on file; throws as FileReader does for a missing or unopenable file. */
    explicit AudioFileReader(const File& file);
    /** Takes ownership of reader as fileReader: a reader of a kind of its own, opened on the file. */
    explicit AudioFileReader(FileReader* reader);

    /**
        Fills each channel array with numSamples values from frame startSampleInFile on:
        32-bit left-justified fixed point, or float bits when the metadata says isFloat.
        Frames past the end read as zero.
    */
    virtual bool readRawSamples(int** channels, uint64_t numSamples, uint64_t startSampleInFile) = 0;

    ScopedPointer<FileReader> fileReader;
    AudioBuffer<float> scratchBuffer { 1, 512 };
    Vector<int*> channelPointers;
};

/** A copy of file's record, or the default record when it is not a file. */
AudioFilesMetadata GetMetadataFor(const File& file);

} // namespace kvo
