#include "shell/KvoShellTool.h"

#include <iostream>

#include "shell/KvoConsoleText.h"
#include "shell/KvoVersion.h"

namespace kvo
{

ShellTool::ShellTool(const String& name) : toolName(name)
{
    PrintBanner(std::cout);
}

void ShellTool::PrintBanner(std::ostream& stream) const
{
    const String& lineEnd = LineEnd();
    const String text = SeparatorLine('=') + lineEnd
                        + toolName + " [" + GetArchitectureName() + "]" + lineEnd
                        + "Build date: " + GetBuildDate() + lineEnd
                        + "Based on: " + GetVersionText(true) + lineEnd
                        + "Copyright " + NoticeSign() + " 2010-" + FromInteger(GetCurrentYear()) + " Orvane" + lineEnd
                        + "https://www.orvane.example" + lineEnd
                        + SeparatorLine('=') + lineEnd
                        + lineEnd;
    stream << text.GetStdString() << std::flush;
}

String FormatNotification(int kind, const String& message)
{
    static const String fileWritten("file written: ");
    static const String whenProcessing("when processing ");

    switch (kind)
    {
        case 0:
            // A message already carrying the prefix reads the same after it is put back.
            if (StartsWith(message, fileWritten))
                return fileWritten + SubString(message, fileWritten.GetLength());
            return message;
        case 1:
            return StartsWith(message, whenProcessing) ? "warning occurred " + message : "warning occurred: " + message;
        case 2:
            if (StartsWith(message, whenProcessing))
                return "error occurred " + message;
            if (message == "unknown error occurred")
                return message;
            return "error occurred: " + message;
        case 3:
            return message;
        default:
            return {};
    }
}

void ShellTool::HandleNotification(HostNotifier* /*sender*/, const int& kind, const String& message)
{
    if (kind < 0 || kind > 3)
        return;
    std::cerr << StyledText(FormatNotification(kind, message)).GetStdString() << LineEnd().GetStdString() << std::flush;
}

} // namespace kvo
