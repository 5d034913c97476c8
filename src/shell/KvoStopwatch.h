#pragma once

#include <cstdint>

namespace kvo
{

/** Measures elapsed time on one of three clocks, all read at construction. */
class Stopwatch
{
public:
    enum ClockKind : int32_t
    {
        steadyClock = 0,         // nanoseconds
        systemClock = 1,         // ticks of 100 nanoseconds
        highResolutionClock = 2  // nanoseconds
    };

    explicit Stopwatch(ClockKind kind = steadyClock);

    /** Whole milliseconds since construction on the chosen clock. */
    double ElapsedMilliseconds() const;

private:
    ClockKind kind;
    int64_t steadyStart;
    int64_t systemStart;
    int64_t highResolutionStart;
};

} // namespace kvo
