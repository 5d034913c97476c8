#include "shell/KvoConsoleProgress.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <sys/time.h>

#include "core/KvoString.h"
#include "shell/KvoConsoleText.h"

namespace kvo
{
namespace
{

constexpr int progressScale = 100;
constexpr int progressDivisions = 100;

/** Reports are only printed for values on a division of the scale. */
bool isOnDivision(double value, int scale, int divisions)
{
    const int64_t divisor = divisions > 0 && scale / divisions > 0 ? scale / divisions : 1;
    return std::llround(value) % divisor == 0;
}

/**
    The percentage shown: the whole part of value as a share of scale. Multiplying before
    dividing keeps whole percentages exact; (29 / 100.0) * 100.0 falls just short of 29.
*/
int64_t shownPercent(double value, int scale)
{
    return static_cast<int64_t>(value * 100.0 / scale);
}

/** The head of every report: "Progress : " and the percentage shown. */
String progressHead(double value, int scale)
{
    return String("Progress : ") + FromInteger(static_cast<uint64_t>(shownPercent(value, scale))) + " %";
}

} // namespace

int64_t WallClockMilliseconds()
{
    timeval now {};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

void PrintProgressStart(double value, int scale, int divisions, std::ostream& stream)
{
    value = std::clamp(value, 0.0, 100.0);
    if (!isOnDivision(value, scale, divisions))
        return;

    stream << StyledText(progressHead(value, scale) + " ").GetStdString();
}

void PrintProgressLine(double value, int64_t startTime, int scale, int divisions, std::ostream& stream, int64_t now)
{
    if (!isOnDivision(value, scale, divisions))
        return;

    const double fraction = value / scale;
    const double elapsed = static_cast<double>(now - startTime);
    double remaining = elapsed / fraction - elapsed;
    if (!std::isfinite(remaining))
        remaining = 0.0; // nothing done yet: no estimate to give

    const String text = progressHead(value, scale) + "  (elapsed " + FormatDuration(elapsed) + " | remaining "
                        + FormatDuration(remaining) + ")";
    stream << StyledText(text).GetStdString();
}

ConsoleProgress::ConsoleProgress(uint64_t totalCount, unsigned int percentStep)
    : ConsoleProgress(totalCount, percentStep, std::cout, &WallClockMilliseconds)
{
}

ConsoleProgress::ConsoleProgress(uint64_t totalCount, unsigned int percentStep, std::ostream& output, WallClock clock)
    : stream(output), wallClock(clock), total(totalCount), step(percentStep), startTime(clock())
{
    PrintProgressStart(0.0, progressScale, progressDivisions, output);
}

void ConsoleProgress::Update(uint64_t position)
{
    current = position;

    // An empty job counts as complete rather than dividing by zero.
    const double ratio = total > 0 ? static_cast<double>(current) / static_cast<double>(total) : 1.0;
    const auto percent = static_cast<uint32_t>(std::lround(std::clamp(ratio * 100.0, 0.0, 100.0)));

    const bool due = current == 0
                     || (current >= total && lastPercent != 100)
                     || percent >= lastPercent + step;
    if (!due)
        return;

    lastPercent = percent;
    PrintProgressLine(std::clamp(static_cast<double>(percent), 0.0, 100.0), startTime, progressScale,
                      progressDivisions, stream, wallClock());
}

} // namespace kvo
