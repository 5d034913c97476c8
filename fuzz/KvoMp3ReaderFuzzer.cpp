// Feeds arbitrary bytes named "*.mp3" to the reader factory and decodes them, seeking at
// random through the stream.

#include "KvoFuzzUtilities.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A few blocks from the start are enough to walk the reservoir and every layer; the
    // seeks then decode on from wherever the input sends them.
    kvo::fuzzing::ReadAsAudioFile(data, size, ".mp3", 3 * 4096);
    return 0;
}
