#pragma once

#include <cstdint>
#include <exception>

#include "core/KvoString.h"

namespace kvo
{

/** The place of a throw: source path below src/ or tools/, line and function signature. */
struct CodeLocation
{
    CodeLocation() = default;
    CodeLocation(const char* file, uint64_t line, const char* signature)
        : sourceFile(file), lineNumber(line), functionSignature(signature) {}

    String sourceFile;
    uint64_t lineNumber = 0;
    String functionSignature;
};

/** "[file:line  'signature']", or "[file:line]" without a signature. */
String FormatLocation(const String& sourceFile, uint64_t lineNumber, const String& functionSignature);

/**
    Base of every failure of the library.

    An Exception prints its own report on the console when it is constructed, so
    whoever catches it has nothing left to say.
*/
class Exception : public std::exception
{
public:
    Exception(const String& message, const CodeLocation& location,
              bool withLocation = true, bool fatal = false);
    Exception(const std::exception& cause, const CodeLocation& location,
              bool withLocation = true, bool fatal = false);
    ~Exception() override = default;

    const char* what() const noexcept override { return message.GetCharPointer(); }

    const String& GetMessage() const noexcept { return message; }
    const String& GetSourceFile() const noexcept { return sourceFile; }
    uint64_t GetLineNumber() const noexcept { return lineNumber; }
    const String& GetFunctionSignature() const noexcept { return functionSignature; }

    /** The text Report hands to the console. */
    String ComposeReport(bool withLocation) const;

protected:
    /** Prints the report; ends the program with exit(1) when fatal. */
    void Report(bool withLocation, bool fatal) const;

private:
    String message;
    String sourceFile;
    uint64_t lineNumber = 0;
    String functionSignature;
};

class File;

namespace exceptions
{

class NoSuchFile : public Exception
{
public:
    NoSuchFile(const File& file, const CodeLocation& location);
};

class ErrorWritingFile : public Exception
{
public:
    ErrorWritingFile(const File& file, const CodeLocation& location);
};

class UnsupportedFile : public Exception
{
public:
    UnsupportedFile(const File& file, const CodeLocation& location);
};

class Unknown : public Exception
{
public:
    explicit Unknown(const CodeLocation& location);
};

} // namespace exceptions
} // namespace kvo

/** The location of the statement it stands in. */
#define KVO_CODE_LOCATION ::kvo::CodeLocation(__FILE__, __LINE__, __PRETTY_FUNCTION__)
