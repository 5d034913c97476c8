#pragma once

#include <iosfwd>

#include "core/KvoNamedValueTable.h"
#include "core/KvoStringArray.h"
#include "math/KvoVector.h"

namespace kvo
{

/**
    The option parser of the library's tools.

    A tool registers its options ("-i | --input"), asks for each value and finally asks
    whether anything went wrong. A bad command line never throws: errors are collected
    with a severity, and the tool decides when to print them. Each getter consumes its
    option and value from the argument list, so the order of calls matters.
*/
class CommandLineParser
{
public:
    enum ErrorSeverity : int
    {
        minorError = 0, // an unrecognized option
        majorError = 1  // a missing, mandatory or malformed option
    };

    enum OptionKind : int
    {
        booleanOption = 0,
        floatingPointOption = 1,
        integerOption = 2,
        wideIntegerOption = 3,
        textOption = 4,
        mandatoryOption = 5
    };

    CommandLineParser(int argc, const char* const* argv);
    ~CommandLineParser();
    CommandLineParser(const CommandLineParser&) = delete;
    CommandLineParser& operator=(const CommandLineParser&) = delete;

    void SetDescription(const String& text);
    void AddOption(const String& specifier, const String& description);
    void AddBoolOption(const String& specifier, const String& description, bool defaultValue);

    /** True for -h/--help, or when no argument starts with "-" and some option is mandatory. */
    bool IsHelpRequested() const;
    void PrintHelp() const;
    void PrintHelp(std::ostream& stream) const;

    void GetValue(const String& key, String& value);
    void GetBool(const String& key, bool& value);

    /** Records every remaining dash argument that no option matches. */
    void CheckUnrecognized(const ErrorSeverity& severity);
    bool HasErrors(const ErrorSeverity& minimum) const;
    void PrintErrors(const ErrorSeverity& minimum) const;
    void PrintErrors(const ErrorSeverity& minimum, std::ostream& stream) const;

private:
    struct Option
    {
        String specifier;
        StringArray aliases;
        String description;
        OptionKind kind = mandatoryOption;
        double defaultNumber = 0.0;
        String defaultText;

        bool Matches(const String& argument) const;
        String GetDefaultText() const;
    };

    void addRecord(const String& specifier, const String& description, OptionKind kind, double defaultNumber);
    const Option& findOption(const String& key) const;
    int64_t findArgument(const String& key) const;
    bool optionGiven(const String& key) const;
    bool takeValue(int64_t index, const String& key, String& value);
    void consumeArguments(int64_t index);
    void addError(const String& text, ErrorSeverity severity);

    StringArray arguments;
    int32_t argumentCount;
    String helpHeader;
    Vector<Option*> options;
    NamedValueTable<ErrorSeverity> errors { sensitive, true, true };
};

} // namespace kvo
