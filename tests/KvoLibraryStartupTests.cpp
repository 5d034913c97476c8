// Library start-up: the recorded process values, and the OSC constants it builds and
// empties again.

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <variant>

#include "KvoTestUtilities.h"
#include "osc/KvoOscAddressConstants.h"
#include "shell/KvoLibraryStartup.h"

namespace kvo::testing
{
namespace
{

int64_t cpuMicroseconds(const timeval& time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_usec;
}

TEST(LibraryStartup, RecordsTheProcessValues)
{
    timespec before {};
    clock_gettime(CLOCK_REALTIME, &before);
    rusage used[2] {};
    getrusage(RUSAGE_SELF, &used[0]);
    const LibraryStartup startup;
    getrusage(RUSAGE_SELF, &used[1]);

    const StartupValues& values = LibraryStartup::GetStartupValues();
    EXPECT_EQ(values.numProcessors, sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(values.processId, getpid());
    EXPECT_GE(values.systemTimeNanoseconds, static_cast<int64_t>(before.tv_sec) * 1000000000 + before.tv_nsec);
    // Process times only grow: what was recorded lies between what is read before and after.
    EXPECT_GE(values.userTimeMicroseconds, cpuMicroseconds(used[0].ru_utime));
    EXPECT_LE(values.userTimeMicroseconds, cpuMicroseconds(used[1].ru_utime));
    EXPECT_GE(values.kernelTimeMicroseconds, cpuMicroseconds(used[0].ru_stime));
    EXPECT_LE(values.kernelTimeMicroseconds, cpuMicroseconds(used[1].ru_stime));
}

TEST(LibraryStartup, BuildsTheOscConstantsAndEmptiesThemOnDestruction)
{
    OscAddressConstants& constants = OscAddressConstants::GetInstance();
    {
        const LibraryStartup startup;
        ASSERT_GT(constants.GetSize(), 0u);

        ASSERT_NE(constants.Find("/master/gain"), nullptr);
        EXPECT_EQ(std::get<OscAddress>(*constants.Find("/master/gain")).GetToken(1), "gain");
        ASSERT_NE(constants.Find("/source/*/aed"), nullptr);
        EXPECT_TRUE(std::holds_alternative<OscAddressPattern>(*constants.Find("/source/*/aed")));
        EXPECT_EQ(constants.Find("/no/such/constant"), nullptr);

        // Every constant keeps its own text under its own hash.
        for (const auto& [hash, entry] : constants.GetEntries())
            std::visit([&hash = hash](const auto& path) { EXPECT_EQ(path.GetHash(), hash) << path.GetText().GetStdString(); },
                       entry);
    }
    EXPECT_EQ(constants.GetSize(), 0u);
    // The tokens stay in the pool: it only ever grows.
    EXPECT_NE(HashedStringPool::GetInstance().Find(HashedString::Hash("listener")), nullptr);
}

} // namespace
} // namespace kvo::testing
