#pragma once

#include <cstdint>
#include <iosfwd>

namespace kvo
{

/** Milliseconds since the epoch, from the system's time of day. */
int64_t WallClockMilliseconds();

/**
    The progress report of a long job on standard output.

    Reports follow one another on one line: none ends with a line feed, so the next
    console text starts right behind the last report. 100 % is reported exactly once.
*/
class ConsoleProgress
{
public:
    using WallClock = int64_t (*)();

    /** Prints the first report, "Progress : 0 % ". step is the smallest gain in percent worth a report. */
    ConsoleProgress(uint64_t total, unsigned int step);
    /** The same, printing to stream and timing with wallClock. */
    ConsoleProgress(uint64_t total, unsigned int step, std::ostream& stream, WallClock wallClock);

    /** Records position and prints a report when one is due. */
    void Update(uint64_t position);

private:
    std::ostream& stream;
    WallClock wallClock;
    uint64_t total;
    uint64_t current = 0;
    uint32_t lastPercent = 0;
    uint32_t step;
    int64_t startTime;
};

/** "Progress : <n> % " for value out of scale, when value falls on one of the divisions. */
void PrintProgressStart(double value, int scale, int divisions, std::ostream& stream);

/** "Progress : <n> %  (elapsed <t> | remaining <t>)", timed from startTime. */
void PrintProgressLine(double value, int64_t startTime, int scale, int divisions, std::ostream& stream,
                       int64_t now);

} // namespace kvo
