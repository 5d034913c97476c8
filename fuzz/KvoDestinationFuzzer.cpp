// Takes arbitrary text as the destination the tool writes: the overwrite policy, the making of
// the parent folders and the writers, as a command line reaches them. Every input works in a
// fresh folder under the scratch folder, which holds a file and a folder to collide with and
// is removed afterwards, as the scratch folder is when the process ends. ".." is taken out of the text and the text is appended to that
// folder's path, so no input can reach outside it.

#include <sys/stat.h>

#include "KvoFuzzUtilities.h"
#include "audiofiles/KvoAudioFileWriter.h"
#include "files/KvoFileWriter.h"

namespace
{

const std::string& WorkFolder()
{
    static const std::string folder = kvo::fuzzing::ScratchFolder() + "/work";
    return folder;
}

void MakeWorkFolder()
{
    const std::string& work = WorkFolder();
    mkdir(work.c_str(), 0700);
    mkdir((work + "/dir").c_str(), 0700);
    std::ofstream(work + "/dir/in.wav") << "x";
    std::ofstream(work + "/f.wav") << "x";
}

/** The text with no ".." left in it, so that no piece can climb out of the work folder. */
std::string Confined(std::string text)
{
    for (size_t at = text.find(".."); at != std::string::npos; at = text.find("..", at))
        text[at + 1] = '_';
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    kvo::fuzzing::Quiet();
    MakeWorkFolder();
    // The first byte picks the policy; 3 is no policy at all, and must be refused.
    const kvo::Overwrite overwrite(data[0] % 4);
    const std::string typed(reinterpret_cast<const char*>(data + 1), size - 1);
    const kvo::File destination(kvo::String(WorkFolder() + "/" + Confined(typed)));
    try
    {
        destination.OverwriteIfNeeded(overwrite);
        if (destination.CreateParentDirectory())
            kvo::FileWriter(destination).WriteInt32(1);
        kvo::ScopedPointer<kvo::AudioFileWriter> writer =
            kvo::AudioFileWriter::CreateWriterFor(destination, 44100, 1, 16, kvo::Overwrite(2));
    }
    catch (const kvo::Exception&)
    {
    }
    kvo::fuzzing::RemoveTree(WorkFolder().c_str());
    return 0;
}
