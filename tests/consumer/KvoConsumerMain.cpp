// Prints the shape of one audio file through the installed library.

#include <iostream>

#include "audiofiles/KvoAudioFileReader.h"
#include "core/KvoException.h"

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: kvo_consumer <audio file>\n";
        return 2;
    }

    try
    {
        const kvo::AudioFilesMetadata metadata = kvo::GetMetadataFor(kvo::File(kvo::String(argv[1])));
        std::cout << metadata.formatName.GetStdString() << ", " << metadata.sampleRate << " Hz, "
                  << metadata.bitsPerSample << " bits, " << metadata.numChannels << " channels, "
                  << metadata.numSamples << " frames\n";
        return metadata.formatName == kvo::String("unknown") ? 1 : 0;
    }
    catch (const kvo::Exception&)
    {
        return 1; // the exception has reported itself
    }
}
