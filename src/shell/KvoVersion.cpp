#include "shell/KvoVersion.h"

#include <climits>
#include <ctime>

namespace kvo
{
namespace
{

constexpr int32_t versionMajor = 5;
constexpr int32_t versionMinor = 0;
constexpr int32_t versionPatch = 2;

} // namespace

String GetVersionText(bool detailed)
{
    String text = String("libkvo v") + FromInteger(versionMajor) + "." + FromInteger(versionMinor) + "."
                  + FromInteger(versionPatch);
    if (detailed)
        text += String(" [") + GetPrecisionText() + "]";
    return text;
}

String GetPrecisionText()
{
    // The library computes in float samples: the precision is their width.
    return FromInteger(static_cast<int32_t>(sizeof(float) * CHAR_BIT)) + "-bit float";
}

String GetArchitectureName()
{
#if defined(__x86_64__) || defined(_M_X64)
    return "x86_64";
#elif defined(__aarch64__) || defined(_M_ARM64)
    return "aarch64";
#elif defined(__i386__)
    return "i386";
#else
    return "unknown";
#endif
}

String GetBuildDate()
{
    return "Mar 18 2024";
}

int GetCurrentYear()
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    return local.tm_year + 1900;
}

} // namespace kvo
