#pragma once

#include "core/KvoString.h"

namespace kvo
{

/** The names of the readable formats, in the order "WAV File", "AIFF File", "MP3 File". */
String GetSupportedFormats(const String& separator);

} // namespace kvo
