#include "shell/KvoStopwatch.h"

#include <chrono>
#include <cmath>

namespace kvo
{
namespace
{

template <typename Clock, typename Ticks>
int64_t readClock()
{
    return std::chrono::duration_cast<Ticks>(Clock::now().time_since_epoch()).count();
}

using SystemTicks = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;

int64_t readSteady() { return readClock<std::chrono::steady_clock, std::chrono::nanoseconds>(); }
int64_t readSystem() { return readClock<std::chrono::system_clock, SystemTicks>(); }
int64_t readHighResolution() { return readClock<std::chrono::high_resolution_clock, std::chrono::nanoseconds>(); }

} // namespace

Stopwatch::Stopwatch(ClockKind clockKind)
    : kind(clockKind), steadyStart(readSteady()), systemStart(readSystem()), highResolutionStart(readHighResolution())
{
}

double Stopwatch::ElapsedMilliseconds() const
{
    double seconds = 0.0;
    switch (kind)
    {
        case steadyClock: seconds = static_cast<double>(readSteady() - steadyStart) / 1e9; break;
        case systemClock: seconds = static_cast<double>(readSystem() - systemStart) / 1e7; break;
        case highResolutionClock: seconds = static_cast<double>(readHighResolution() - highResolutionStart) / 1e9; break;
        default: return 0.0;
    }
    return std::trunc(seconds * 1000.0);
}

} // namespace kvo
