#include "shell/KvoSonaJoin.h"

#include "files/KvoFolderIterator.h"

namespace kvo
{

SonaJoin::SonaJoin() : ShellTool("sonajoin")
{
}

void SonaJoin::SetInputs(const String& inputList, const int& recursion)
{
    inputFiles = ExpandInputList(inputList, recursion == kvo::recursive ? kvo::recursive : notRecursive);
}

void SonaJoin::SetDestination(const File& file)
{
    destination = file;
}

// Process, the join itself, is in audiofiles/KvoAudioFilesUtilities.cpp.

} // namespace kvo
