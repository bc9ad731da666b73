#include "daemon/daemonize.h"

#include <sys/stat.h>
#include <unistd.h>

const ProcessCalls &ProcessCalls::system()
{
    static constexpr ProcessCalls calls{::getppid, ::fork, ::setsid, ::chdir, ::umask};
    return calls;
}

std::optional<int> daemonize(const ProcessCalls &calls)
{
    if (calls.getppid() == 1)
        return std::nullopt;
    const pid_t child = calls.fork();
    if (child < 0)
        return 1;
    if (child > 0)
        return 0;
    if (calls.setsid() < 0 || calls.chdir("/") < 0)
        return 1;
    calls.umask(0);
    return std::nullopt;
}
