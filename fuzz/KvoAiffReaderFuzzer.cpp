// Feeds arbitrary bytes named "*.aif" to the reader factory and reads them as audio.

#include "KvoFuzzUtilities.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kvo::fuzzing::ReadAsAudioFile(data, size, ".aif");
    return 0;
}
