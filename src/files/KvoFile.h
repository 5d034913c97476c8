#pragma once

#include "core/KvoString.h"

namespace kvo
{

/**
    Names a path on disk. The path need not exist; an empty path means "no file".
*/
class File
{
public:
    File() = default;
    explicit File(const String& path);

    const String& GetFullPath() const noexcept { return fullPath; }

private:
    String fullPath;
};

} // namespace kvo
