#include "shell/KvoCommandLineParser.h"

#include <algorithm>
#include <iostream>

#include "shell/KvoConsoleText.h"

namespace kvo
{

bool CommandLineParser::Option::Matches(const String& argument) const
{
    const String trimmed = Trimmed(argument);
    for (const String* alias : aliases)
        if (Equals(trimmed, *alias, sensitive))
            return true;
    return false;
}

String CommandLineParser::Option::GetDefaultText() const
{
    switch (kind)
    {
        case booleanOption: return defaultNumber != 0.0 ? "true" : "false";
        case floatingPointOption: return FromDouble(defaultNumber);
        case integerOption:
        case wideIntegerOption: return String(std::to_string(static_cast<int64_t>(defaultNumber)));
        case textOption: return defaultText;
        case mandatoryOption: break;
    }
    return {};
}

CommandLineParser::CommandLineParser(int argc, const char* const* argv)
    : argumentCount(std::max(argc, 0))
{
    for (int i = 0; i < argumentCount; ++i)
        arguments.Add(String(argv[i]));
}

CommandLineParser::~CommandLineParser()
{
    for (Option* option : options)
        delete option;
}

void CommandLineParser::SetDescription(const String& text)
{
    helpHeader += text;
}

void CommandLineParser::addRecord(const String& specifier, const String& description, OptionKind kind,
                                  double defaultNumber)
{
    auto* option = new Option();
    option->specifier = specifier;
    option->aliases = Split(specifier, '|', true);
    TrimAll(option->aliases);
    option->description = description;
    option->kind = kind;
    option->defaultNumber = defaultNumber;
    options.PushBack(option);
}

void CommandLineParser::AddOption(const String& specifier, const String& description)
{
    addRecord(specifier, description, mandatoryOption, 0.0);
}

void CommandLineParser::AddBoolOption(const String& specifier, const String& description, bool defaultValue)
{
    addRecord(specifier, description, booleanOption, defaultValue ? 1.0 : 0.0);
}

const CommandLineParser::Option& CommandLineParser::findOption(const String& key) const
{
    static const Option noOption;
    for (const Option* option : options)
        if (option->Matches(key))
            return *option;
    return noOption;
}

int64_t CommandLineParser::findArgument(const String& key) const
{
    const Option& option = findOption(key);
    for (int64_t i = 1; i < argumentCount; ++i)
        if (option.Matches(arguments[static_cast<uint64_t>(i)]))
            return i;
    return -1;
}

bool CommandLineParser::optionGiven(const String& key) const
{
    if (key.IsEmpty() || !ContainsChar(key, '|'))
        return findArgument(key) != -1;

    StringArray pieces = Split(key, '|', true);
    TrimAll(pieces);
    for (const String* piece : pieces)
        if (optionGiven(*piece))
            return true;
    return false;
}

void CommandLineParser::consumeArguments(int64_t index)
{
    const auto size = static_cast<int64_t>(arguments.GetSize());
    for (int64_t i = index + 2; i < size; ++i)
        arguments[static_cast<uint64_t>(i - 2)] = arguments[static_cast<uint64_t>(i)];
    for (int64_t i = std::max<int64_t>(argumentCount - 2, 0); i < argumentCount && i < size; ++i)
        arguments[static_cast<uint64_t>(i)] = String();
    argumentCount -= 2;
}

bool CommandLineParser::takeValue(int64_t index, const String& key, String& value)
{
    const int64_t valueIndex = index + 1;
    if (valueIndex < argumentCount && valueIndex < static_cast<int64_t>(arguments.GetSize())
        && !arguments[static_cast<uint64_t>(valueIndex)].IsEmpty())
    {
        value = arguments[static_cast<uint64_t>(valueIndex)];
        consumeArguments(index);
        return true;
    }

    addError(String("missing argument after ") + Quoted(key) + " option", majorError);
    return false;
}

void CommandLineParser::GetValue(const String& key, String& value)
{
    const int64_t index = findArgument(key);
    if (index >= 1)
    {
        takeValue(index, key, value);
        return;
    }

    const Option& option = findOption(key);
    if (option.kind == mandatoryOption)
        addError(String("option ") + Quoted(option.specifier) + " is mandatory", majorError);
    else
        value = option.defaultText;
}

void CommandLineParser::GetBool(const String& key, bool& value)
{
    const int64_t index = findArgument(key);
    if (index >= 1)
    {
        String text;
        takeValue(index, key, text);

        const bool isTrue = Equals(text, "true", insensitive) || text == "1";
        const bool isFalse = Equals(text, "false", insensitive) || text == "0";
        if (isTrue || isFalse)
            value = isTrue;
        else
            addError(String("option ") + Quoted(key) + " must be of type boolean", majorError);
        return;
    }

    // The key, not the specifier, is quoted here, unlike the text getter's message.
    const Option& option = findOption(key);
    if (option.kind == mandatoryOption)
        addError(String("option ") + Quoted(key) + " is mandatory", majorError);
    else
        value = option.defaultNumber != 0.0;
}

void CommandLineParser::addError(const String& text, ErrorSeverity severity)
{
    if (!errors.Contains(text))
        errors.Add(text, severity);
}

void CommandLineParser::CheckUnrecognized(const ErrorSeverity& severity)
{
    for (int64_t i = 1; i < argumentCount; ++i)
    {
        const String& argument = arguments[static_cast<uint64_t>(i)];
        if (argument.IsEmpty() || argument[0] != '-')
            continue;

        const bool known = std::any_of(options.begin(), options.end(),
                                       [&](const Option* option) { return option->Matches(argument); });
        if (!known)
            addError(String("unrecognized option ") + Quoted(argument), severity);
    }
}

bool CommandLineParser::HasErrors(const ErrorSeverity& minimum) const
{
    for (uint64_t i = 0; i < errors.GetNumNames(); ++i)
        if (errors.GetValue(i) >= minimum)
            return true;
    return false;
}

void CommandLineParser::PrintErrors(const ErrorSeverity& minimum) const
{
    PrintErrors(minimum, std::cout);
}

void CommandLineParser::PrintErrors(const ErrorSeverity& minimum, std::ostream& stream) const
{
    // Every name of the table is listed, so each error also shows in its two derived spellings.
    for (uint64_t i = 0; i < errors.GetNumNames(); ++i)
        if (errors.GetValue(i) >= minimum)
            stream << "Error : " << errors.GetName(i).GetStdString() << LineEnd().GetStdString() << std::flush;
}

bool CommandLineParser::IsHelpRequested() const
{
    if (optionGiven("-h|--help"))
        return true;

    for (int64_t i = 1; i < argumentCount; ++i)
    {
        const String& argument = arguments[static_cast<uint64_t>(i)];
        if (!argument.IsEmpty() && argument[0] == '-')
            return false;
    }

    if (options.GetSize() < 2)
        return false;

    return std::any_of(options.begin(), options.end(), [](const Option* option) {
        return !option->Matches("-h") && option->kind == mandatoryOption;
    });
}

void CommandLineParser::PrintHelp() const
{
    PrintHelp(std::cout);
}

void CommandLineParser::PrintHelp(std::ostream& stream) const
{
    const std::string& lineEnd = LineEnd().GetStdString();
    auto printLine = [&](const String& text) { stream << text.GetStdString() << lineEnd << std::flush; };

    if (!helpHeader.IsEmpty())
        printLine(helpHeader);
    printLine(SeparatorLine('='));
    printLine("command line options : ");

    int64_t width = 6;
    for (const Option* option : options)
        width = std::max(width, option->specifier.GetLength());

    for (const Option* option : options)
    {
        String line = String("     ") + option->specifier
                      + String(static_cast<size_t>(width - option->specifier.GetLength()), ' ') + " : ";
        String description = option->description;
        TrimEnd(description);
        line += description;

        if (option->kind != mandatoryOption)
        {
            // The full-stop test looks at the untrimmed text, as users have always seen it.
            if (!EndsWith(option->description, '.'))
                line += ".";
            line += String(" Default = ") + Quoted(option->GetDefaultText());
        }
        printLine(line);
    }
    printLine(SeparatorLine('='));
}

} // namespace kvo
