#include "shell/KvoSonaJoin.h"

namespace kvo
{

SonaJoin::SonaJoin() : ShellTool("sonajoin")
{
}

void SonaJoin::SetInputs(const String& inputList, const int& /*recursion*/)
{
    // Input lists are taken as one path until folder walking and wildcards arrive.
    inputFiles.clear();
    if (ContainsNonWhitespace(inputList))
        inputFiles.emplace_back(inputList);
}

void SonaJoin::SetDestination(const File& file)
{
    destination = file;
}

} // namespace kvo
