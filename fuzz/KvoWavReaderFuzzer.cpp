// Feeds arbitrary bytes to the WAV reader: Wave64 files are known by their name alone, so
// inputs that begin as Wave64 are named ".w64" and all others ".wav".

#include <cstring>

#include "KvoFuzzUtilities.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const bool wave64 = size >= 4 && std::memcmp(data, "riff", 4) == 0;
    kvo::fuzzing::ReadAsAudioFile(data, size, wave64 ? ".w64" : ".wav");
    return 0;
}
