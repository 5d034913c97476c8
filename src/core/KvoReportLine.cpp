#include "core/KvoReportLine.h"

#include <iostream>
#include <mutex>

namespace kvo
{

int ConsoleTarget = 1;

const String& LineEnd()
{
    static const String lineEnd("\n");
    return lineEnd;
}

String TidyReport(const String& text)
{
    static const String locationStart("Exception occurred in [");
    static const String locationEnd("] :");

    if (!StartsWith(text, locationStart))
        return text;

    const int64_t end = IndexOf(text, locationEnd);
    if (end < 0)
        return text;

    const int64_t split = end + locationEnd.GetLength();
    String message = SubString(text, split);
    TrimStart(message);
    return SubString(text, 0, split) + LineEnd() + message;
}

void ReportLine(const String& text)
{
    static std::mutex consoleMutex;

    const int target = ConsoleTarget;
    if (target != 1 && target != 2)
        return; // there is no debugger channel to copy the report to on this platform

    const String tidied = TidyReport(text);
    std::lock_guard<std::mutex> lock(consoleMutex);
    std::ostream& stream = target == 1 ? std::cerr : std::cout;
    stream << tidied.GetStdString();
    if (!EndsWith(tidied, '\n'))
        stream << LineEnd().GetStdString();
    stream.flush();
}

} // namespace kvo
