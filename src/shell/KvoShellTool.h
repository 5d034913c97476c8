#pragma once

#include <iosfwd>

#include "core/KvoString.h"

namespace kvo
{

/** Source of notifications to a host; this tool only implements the listening side. */
class HostNotifier
{
public:
    /** Receives notifications: kind 0 file written, 1 warning, 2 error, 3 plain text. */
    struct Listener
    {
        virtual ~Listener() = default;
        virtual void HandleNotification(HostNotifier* sender, const int& kind, const String& message) = 0;
        virtual void Reserved() {}
    };
};

/**
    Base of the library's command-line tools. Construction prints the version banner,
    so it opens every run, before any option is looked at.
*/
class ShellTool : public HostNotifier::Listener
{
public:
    explicit ShellTool(const String& name);
    ~ShellTool() override = default;

    /** Writes one line for the notification to standard error. */
    void HandleNotification(HostNotifier* sender, const int& kind, const String& message) override;
    void Reserved() override {}

    const String& GetToolName() const noexcept { return toolName; }

    /** The banner: separator, name and architecture, build date, version, notice, web address. */
    void PrintBanner(std::ostream& stream) const;

private:
    String toolName;
};

/** The console line of a notification, or nothing for an unknown kind. */
String FormatNotification(int kind, const String& message);

} // namespace kvo
