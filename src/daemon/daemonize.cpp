#include "daemon/daemonize.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const ProcessCalls &ProcessCalls::system()
{
    static constexpr ProcessCalls calls{::getppid, ::fork, ::setsid, ::chdir, ::umask};
    return calls;
}

void fillStandardStreams()
{
    int descriptor = 0;
    do
        descriptor = ::open("/dev/null", O_RDWR); // takes the lowest free number
    while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0)
        ::close(descriptor);
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
