#include "audiofiles/KvoAudioFilesUtilities.h"

#include "shell/KvoSonaJoin.h"

namespace kvo
{

String GetSupportedFormats(const String& separator)
{
    return String("WAV File") + separator + "AIFF File" + separator + "MP3 File";
}

void SonaJoin::Process()
{
    // Nothing to join until the audio readers and writers arrive.
}

} // namespace kvo
