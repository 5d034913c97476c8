// Tokenises arbitrary text as an OSC address and as an OSC address pattern.

#include "KvoFuzzUtilities.h"
#include "osc/KvoOscAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kvo::fuzzing::Quiet();
    const kvo::String text(reinterpret_cast<const char*>(data), size);
    try
    {
        const kvo::OscAddress address(text);
        for (uint64_t i = 0; i < address.GetNumTokens(); ++i)
            (void) address.GetToken(i);
    }
    catch (const kvo::Exception&)
    {
    }
    try
    {
        const kvo::OscAddressPattern pattern(text);
        (void) pattern.GetHash();
    }
    catch (const kvo::Exception&)
    {
    }
    return 0;
}
