#include "core/KvoException.h"

#include <cstdlib>

#include "core/KvoReportLine.h"
#include "files/KvoFile.h"

namespace kvo
{

String FormatLocation(const String& sourceFile, uint64_t lineNumber, const String& functionSignature)
{
    String text = String("[") + sourceFile + ":" + FromInteger(lineNumber);
    if (lineNumber != 0 && !functionSignature.IsEmpty())
        text += String("  '") + functionSignature + "'";
    return text + "]";
}

Exception::Exception(const String& text, const CodeLocation& location, bool withLocation, bool fatal)
    : message(text),
      sourceFile(location.sourceFile),
      lineNumber(location.lineNumber),
      functionSignature(location.functionSignature)
{
    Report(withLocation, fatal);
}

Exception::Exception(const std::exception& cause, const CodeLocation& location, bool withLocation, bool fatal)
    : Exception(String(cause.what()), location, withLocation, fatal)
{
}

String Exception::ComposeReport(bool withLocation) const
{
    // A long message starts on a line of its own below the location.
    static constexpr int64_t longMessage = 200;

    if (withLocation && !sourceFile.IsEmpty())
    {
        String text = String("Exception occurred in ") + FormatLocation(sourceFile, lineNumber, functionSignature) + " : ";
        if (message.GetLength() > longMessage)
            text += LineEnd();
        return text + message + LineEnd();
    }
    return String("Exception occurred: ") + message + LineEnd();
}

void Exception::Report(bool withLocation, bool fatal) const
{
    ReportLine(ComposeReport(withLocation));
    if (fatal)
        std::exit(1);
}

namespace exceptions
{

NoSuchFile::NoSuchFile(const File& file, const CodeLocation& location)
    : Exception(String("Could not find file ") + Quoted(file.GetFullPath()), location)
{
}

ErrorWritingFile::ErrorWritingFile(const File& file, const CodeLocation& location)
    : Exception(String("Error writing file ") + Quoted(file.GetFullPath()), location)
{
}

UnsupportedFile::UnsupportedFile(const File& file, const CodeLocation& location)
    : Exception(String("Could not open file ") + Quoted(file.GetFullPath()) + ". Unsupported format?", location)
{
}

Unknown::Unknown(const CodeLocation& location)
    : Exception(String("Unknown exception"), location)
{
}

} // namespace exceptions
} // namespace kvo
