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

} // namespace kvo
