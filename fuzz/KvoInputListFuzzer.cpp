// Parses arbitrary text as a path and as the tool's input list, from inside a small folder
// tree. Folders are walked flat: a recursive walk from "/" would measure the disk, not the
// parser.

#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "KvoFuzzUtilities.h"
#include "files/KvoFolderIterator.h"

namespace
{

void MakeTree()
{
    const std::string& root = kvo::fuzzing::ScratchFolder();
    for (const char* folder : { "/a", "/a/b", "/c d" })
        mkdir((root + folder).c_str(), 0700);
    for (const char* name : { "/x.wav", "/y.aif", "/a/z.wav", "/a/b/w.mp3", "/c d/v.wav", "/.hidden.wav" })
        std::ofstream(root + name) << "x";
    if (chdir(root.c_str()) != 0)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = (kvo::fuzzing::Quiet(), MakeTree(), true);
    (void) ready;

    const kvo::String text(reinterpret_cast<const char*>(data), size);
    try
    {
        const kvo::File file(text);
        (void) file.GetFullPath();
        (void) file.GetFileName();
        (void) file.GetParentDirectory();
        (void) file.HasFileExtension(".wav aif");
        (void) kvo::ExpandInputList(text, kvo::notRecursive);
    }
    catch (const kvo::Exception&)
    {
    }
    return 0;
}
