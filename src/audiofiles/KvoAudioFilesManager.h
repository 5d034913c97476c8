#pragma once

#include "audiofiles/KvoAudioFilesMetadata.h"

namespace kvo
{

/** Common base of the audio file readers and writers: the file's metadata record. */
class AudioFilesManager
{
public:
    /** The format's default extension with its dot, such as ".wav". */
    virtual String getDefaultExtension() const = 0;
    virtual ~AudioFilesManager() = default;

    const AudioFilesMetadata& getMetadata() const noexcept { return metadata; }

protected:
    AudioFilesMetadata metadata;
};

} // namespace kvo
