// Preloaded into the daemon by a test: the system calls that LODESTARD_FAIL names, separated by
// commas, fail with EAGAIN; all others are the C library's.
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <string>

#include <sys/types.h>

namespace {

bool fails(const char *name)
{
    const char *list = std::getenv("LODESTARD_FAIL");
    if (!list)
        return false;
    const std::string names = std::string(",") + list + ',';
    if (names.find(std::string(",") + name + ',') == std::string::npos)
        return false;
    errno = EAGAIN;
    return true;
}

template <typename Function>
Function next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

pid_t fork() noexcept
{
    return fails("fork") ? -1 : next<pid_t (*)()>("fork")();
}

pid_t setsid() noexcept
{
    return fails("setsid") ? -1 : next<pid_t (*)()>("setsid")();
}

int chdir(const char *path) noexcept
{
    return fails("chdir") ? -1 : next<int (*)(const char *)>("chdir")(path);
}

int socketpair(int domain, int type, int protocol, int descriptors[2]) noexcept
{
    return fails("socketpair")
               ? -1
               : next<int (*)(int, int, int, int *)>("socketpair")(domain, type, protocol, descriptors);
}
}
