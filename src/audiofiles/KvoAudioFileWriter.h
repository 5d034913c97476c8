#pragma once

#include "audiofiles/KvoAudioFilesManager.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoMemoryBlock.h"
#include "core/KvoScopedPointer.h"
#include "files/KvoFile.h"

namespace kvo
{

class FileWriter;
class Overwrite;
class PcmFileReader;

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

    /** The coding the writer stores samples in. */
    SampleCoding getSampleCoding() const noexcept;

    /**
        Stores numFrames frames of source from startFrame on as the bytes its file holds,
        without converting them: source's coding must be this writer's, and one whose bytes
        come back unchanged through float. The file is the one writeSamples would make
        storing the frames in blocks of blockLength, after a failure too: the blocks wholly
        stored before it count and no others. Returns the frames stored.
    */
    uint64_t writeFramesFrom(PcmFileReader& source, uint64_t startFrame, uint64_t numFrames, uint64_t blockLength);

protected:
    /**
        Creates the FileWriter (which may throw), records its position as headerPosition and
        sets sampleRate, bitsPerSample and numChannels. The format's constructor then sets
        formatName and isFloat and writes the first header; its destructor rewrites it.
    */
    AudioFileWriter(const File& file, double sampleRate, unsigned int numChannels, int bitsDepth);

    /** Packs numSamples frames from the channel arrays into the file. */
    virtual bool writeRawSamples(int** channels, uint64_t numSamples);
    /** Writes or rewrites the header at headerPosition. */
    virtual void writeHeader() = 0;

    /**
        Whether numFrames more frames may be stored, and their size in bytes (set even when
        they may not). Every count may, unless the format caps its data.
    */
    virtual bool admitsFrames(uint64_t numFrames, uint64_t& bytes) const noexcept;
    /**
        Ends the storing of a block: counts it when stored, and otherwise rewrites the header
        for what is stored so far and latches the failure. Returns stored.
    */
    bool finishBlock(bool stored, uint64_t bytes, uint64_t numFrames);
    /** finishBlock for a block that was not stored. */
    bool failWrite();

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
    ByteForms forms = ByteForms::wav;
    MemoryBlock packBuffer;
    Vector<int*> channelPointers;
    Vector<int> intScratch;

private:
    bool fitsBuffer(const AudioBufferBase<float>& buffer, uint64_t startSample, uint64_t numSamples) const noexcept;
    /** One call of writeRawSamples over channelPointers, unless an earlier one failed. */
    bool writeBlock(uint64_t numFrames);
    bool writeFloatSamples(const AudioBufferBase<float>& buffer, uint64_t startSample, uint64_t numSamples);
    /** writeFramesFrom for frames that cross a cap: block by block. */
    uint64_t writeBlocksFrom(PcmFileReader& source, uint64_t startFrame, uint64_t numFrames, uint64_t blockLength);
    bool writeFixedPointSamples(const AudioBufferBase<float>& buffer, uint64_t startSample, uint64_t numSamples);
};

extern template bool AudioFileWriter::writeSamples<float>(const AudioBufferBase<float>&, uint64_t, uint64_t, bool);

} // namespace kvo
