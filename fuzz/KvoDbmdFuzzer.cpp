// Feeds arbitrary bytes to the dbmd parser as the body of a chunk. The chunk's stated size is
// mostly the input's own, and now and then, steered by the input, more or fewer bytes than
// the file holds.

#include <algorithm>

#include "KvoFuzzUtilities.h"
#include "audiofiles/KvoDolbyAtmosMetadata.h"
#include "files/KvoFileReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kvo::fuzzing::Quiet();
    const kvo::File file = kvo::fuzzing::WriteInputFile(data, size, ".dbmd");
    const uint64_t steering = kvo::fuzzing::Steering(data, size);
    int chunkSize = int(std::min<size_t>(size, kvo::DolbyAtmosMetadata::maxChunkSize + 1));
    if ((steering & 7) == 0)
        chunkSize += int((steering >> 8) & 0xFF) - 128;
    try
    {
        kvo::FileReader reader(file);
        kvo::DolbyAtmosMetadata::CreateFrom(reader, chunkSize);
    }
    catch (const kvo::Exception&)
    {
    }
    return 0;
}
