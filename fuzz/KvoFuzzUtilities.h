#pragma once

// Shared plumbing of the libFuzzer targets: inputs reach the library through real files,
// the way the tool meets them, and the library's console reports are switched off.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <ftw.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "audiofiles/KvoAudioFileReader.h"
#include "containers/KvoAudioBuffer.h"
#include "core/KvoException.h"
#include "core/KvoReportLine.h"
#include "files/KvoFile.h"

namespace kvo::fuzzing
{

/** Removes path and everything below it, without following links. */
inline void RemoveTree(const char* path)
{
    const auto remove = [](const char* each, const struct stat*, int, struct FTW*) { return ::remove(each); };
    nftw(path, remove, 16, FTW_DEPTH | FTW_PHYS);
}

/** A folder of this process's own, made once and removed with all it holds when the process exits. */
inline const std::string& ScratchFolder()
{
    // A plain array outlives every static object, so the exit handler can still name it.
    static char path[] = "/tmp/kvo-fuzz-XXXXXX";
    static const std::string folder = [] {
        if (mkdtemp(path) == nullptr)
            std::abort();
        std::atexit([] { RemoveTree(path); });
        return std::string(path);
    }();
    return folder;
}

/** Silences the reports every Exception prints as it is made. */
inline void Quiet()
{
    ConsoleTarget = 0;
}

/** Stores size bytes in the scratch folder under a name with extension and returns it. */
inline File WriteInputFile(const uint8_t* data, size_t size, const std::string& extension)
{
    const std::string path = ScratchFolder() + "/input" + extension;
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                  static_cast<std::streamsize>(size));
    return File(path.c_str());
}

/** A 64-bit value taken from the input's last bytes, to steer the reads. */
inline uint64_t Steering(const uint8_t* data, size_t size)
{
    uint64_t value = 0x9E3779B97F4A7C15ull;
    for (size_t i = size > 8 ? size - 8 : 0; i < size; ++i)
        value = (value ^ data[i]) * 0x100000001B3ull;
    return value;
}

/**
    Opens the bytes as a file named with extension, through the reader factory, then reads
    from the start in blocks, up to maxFrames, and at a few positions picked from the input.
    Refusals by Exception are the expected way out; anything else reaches the fuzzer.
*/
inline void ReadAsAudioFile(const uint8_t* data, size_t size, const std::string& extension,
                            uint64_t maxFrames = 16 * 4096)
{
    Quiet();
    const File file = WriteInputFile(data, size, extension);
    try
    {
        ScopedPointer<AudioFileReader> reader = AudioFileReader::CreateReaderFor(file);
        if (reader == nullptr || !reader->isValid() || reader->getNumChannels() > 64)
            return;

        constexpr uint64_t blockFrames = 4096;
        AudioBuffer<float> buffer(reader->getNumChannels(), blockFrames);
        const uint64_t numSamples = reader->getNumSamples();
        // A header may claim far more frames than the file holds: reading stops at a bound.
        const uint64_t readable = std::min<uint64_t>(numSamples + 1, maxFrames);
        for (uint64_t start = 0; start < readable; start += blockFrames)
            reader->readSamples(buffer, 0, std::min(blockFrames, readable - start), start);

        uint64_t steering = Steering(data, size);
        for (int seek = 0; seek < 4; ++seek, steering >>= 16)
        {
            const uint64_t start = numSamples > 0 ? (steering & 0xFFFF) * numSamples / 0xFFFF : 0;
            reader->readSamples(buffer, 0, blockFrames, start);
        }
    }
    catch (const Exception&)
    {
    }
}

} // namespace kvo::fuzzing
