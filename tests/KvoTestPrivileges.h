#pragma once

#include <functional>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvo::testing
{

/**
    Runs check as an ordinary user and tells whether it held. Tests of permission failures
    mean nothing to root, who reads and deletes everywhere: under root, check runs in a
    child process that has given up root's rights for those of "nobody". Files the check
    touches must be reachable by others then.
*/
inline bool HoldsWithoutPrivileges(const std::function<bool()>& check)
{
    if (::geteuid() != 0)
        return check();

    constexpr uid_t nobody = 65534;
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0)
    {
        const bool dropped = ::setgid(nobody) == 0 && ::setuid(nobody) == 0;
        ::_exit(dropped && check() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace kvo::testing
