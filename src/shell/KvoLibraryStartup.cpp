#include "shell/KvoLibraryStartup.h"

#include <algorithm>

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include "geometry/KvoColourNames.h"
#include "geometry/KvoCoordinates.h"
#include "geometry/KvoDelayModes.h"
#include "geometry/KvoDimension.h"
#include "geometry/KvoEulerAngles.h"
#include "geometry/KvoSphericalHarmonic.h"
#include "geometry/KvoVbapTriplets.h"
#include "osc/KvoOscAddressConstants.h"
#include "shell/KvoVerbosity.h"

namespace kvo
{
namespace
{

StartupValues startupValues;

int64_t microseconds(const timeval& time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_usec;
}

StartupValues recordProcessValues()
{
    StartupValues values;
    // sysconf answers -1 when it cannot tell; one processor is the safe assumption.
    values.numProcessors = std::max<int64_t>(sysconf(_SC_NPROCESSORS_ONLN), 1);

    timespec now {};
    if (clock_gettime(CLOCK_REALTIME, &now) == 0)
        values.systemTimeNanoseconds = static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;

    values.processId = getpid();

    rusage usage {};
    if (getrusage(RUSAGE_SELF, &usage) == 0)
    {
        values.userTimeMicroseconds = microseconds(usage.ru_utime);
        values.kernelTimeMicroseconds = microseconds(usage.ru_stime);
    }
    return values;
}

/** Builds each name table now, by one look-up each, so that no later first use pays for it. */
void buildNameTables()
{
    Coordinates::FindFormat("aed");
    ColourNames::FindColour("blue");
    SphericalHarmonic::FindSorting("ACN");
    SphericalHarmonic::FindNorm("N3D");
    FindDimension("2D");
    DelayInterpolationSettings::FindMode("linear");
    EulerAngles::FindMode("zyx");
    Verbosity::FindLevel("normal");
    VaryingDelay::FindMode("vdelay");
    FindValue(VbapTriplets::GetTriangulationModeNames(), "legacy");
}

} // namespace

// The numeric kernels are plain loops, so there is no processor-specific dispatcher to
// set up before recording the process values.
LibraryStartup::LibraryStartup()
{
    startupValues = recordProcessValues();
    OscAddressConstants::GetInstance().Build();
    buildNameTables();
}

LibraryStartup::~LibraryStartup()
{
    OscAddressConstants::GetInstance().Clear();
}

const StartupValues& LibraryStartup::GetStartupValues() noexcept
{
    return startupValues;
}

} // namespace kvo
