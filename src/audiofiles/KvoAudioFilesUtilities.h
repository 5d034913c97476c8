#pragma once

#include "files/KvoFile.h"
#include "math/KvoVector.h"

namespace kvo
{

/** The names of the readable formats, in the order "WAV File", "AIFF File", "MP3 File". */
String GetSupportedFormats(const String& separator);

// Format detection, by content first and extension second.
Vector<String> GetWavExtensions();
bool HasWavExtension(const File& file);
bool HasAiffExtension(const File& file);
bool HasMp3Extension(const File& file);
/** "AIFF File", "WAV File", "MP3 File" or "unknown". */
String GetFileType(const File& file);
bool IsAiffFile(const File& file);
bool IsWavFile(const File& file);
bool IsMp3File(const File& file);

/**
    Copies count floats from source to destination times gain. Gains of 1, 0 and -1 are
    exact: a bit copy, zeros whatever the source holds, and a flip of each sign bit.
*/
void CopyWithGain(float* destination, const float* source, float gain, uint64_t count) noexcept;

/** Sets count floats to zero. */
void ClearSamples(float* destination, uint64_t count) noexcept;

} // namespace kvo
