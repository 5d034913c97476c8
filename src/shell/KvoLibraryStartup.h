#pragma once

#include <cstdint>

namespace kvo
{

/** The values the library records about its process when it starts. */
struct StartupValues
{
    int64_t numProcessors = 1;        // processors online
    int64_t systemTimeNanoseconds = 0; // wall-clock time since the epoch
    int64_t processId = 0;
    int64_t userTimeMicroseconds = 0;   // CPU time spent so far in the program
    int64_t kernelTimeMicroseconds = 0; // CPU time spent so far in the system for it
};

/**
    Starts the library: records the process-wide values, builds the OSC address
    constants and every name table, so that none of that work lands in the middle of a
    run. The entry point builds it first, so it is also the last to go; its destructor
    empties the table of OSC constants.

    Runs on the main thread before any other work, which is what makes the unguarded
    process-wide values safe to read afterwards.
*/
class LibraryStartup
{
public:
    LibraryStartup();
    ~LibraryStartup();
    LibraryStartup(const LibraryStartup&) = delete;
    LibraryStartup& operator=(const LibraryStartup&) = delete;

    /** The values of the latest start-up; defaults before the first. */
    static const StartupValues& GetStartupValues() noexcept;
};

} // namespace kvo
