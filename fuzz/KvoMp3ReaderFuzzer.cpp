// Feeds arbitrary bytes named "*.mp3" to the reader factory and decodes them, seeking at
// random through the stream.

#include "KvoFuzzUtilities.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kvo::fuzzing::ReadAsAudioFile(data, size, ".mp3");
    return 0;
}
