#pragma once

#include <vector>

#include "files/KvoFile.h"
#include "shell/KvoShellTool.h"

namespace kvo
{

/**
    The join tool: appends audio files, in list order, into one new file. The output
    takes the first input's rate and depth, the widest input's channel count and the
    sum of the input lengths.
*/
class SonaJoin : public ShellTool
{
public:
    SonaJoin();

    /** Expands inputList into the files to join; recursion 0 searches folders recursively, 1 not. */
    void SetInputs(const String& inputList, const int& recursion);
    void SetDestination(const File& file);

    /**
        Runs the join; failures are reported by exception. Defined in
        audiofiles/KvoAudioFilesUtilities.cpp, beside the helpers that move the samples.
    */
    void Process();

    const std::vector<File>& GetInputFiles() const noexcept { return inputFiles; }
    const File& GetDestination() const noexcept { return destination; }

private:
    std::vector<File> inputFiles;
    File destination;
    Overwrite overwrite { 1 }; // an existing destination is always replaced
};

} // namespace kvo
