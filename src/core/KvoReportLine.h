#pragma once

#include "core/KvoString.h"

namespace kvo
{

/** Where exception reports go: 1 standard error, 2 standard output, anything else nowhere. */
extern int ConsoleTarget;

/** One line feed, the line end of all console text. */
const String& LineEnd();

/**
    Writes one report under the console lock, tidied and ended with a line feed.
    Reports that start with an exception's location get the location on a line of its own.
*/
void ReportLine(const String& text);

/** The tidied form ReportLine writes, without the closing line feed it may add. */
String TidyReport(const String& text);

} // namespace kvo
