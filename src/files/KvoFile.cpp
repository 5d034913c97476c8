#include "files/KvoFile.h"

namespace kvo
{

File::File(const String& path) : fullPath(path)
{
}

} // namespace kvo
