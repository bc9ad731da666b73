// Preloaded into the daemon by a test: its clocks are the one in the file that LODESTARD_CLOCK names,
// and the test moves that. A look at it reads one number, so any thread may look at any time. (The
// file that libfaketime can read each time is parsed into memory that all threads share: now and then
// one of them gets the machine's own time.)
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr std::int64_t Second = 1'000'000'000; // ns

struct Clock {
    std::int64_t wall;   // ns since 1970, when it begins
    std::int64_t steady; // CLOCK_MONOTONIC's ns, when it begins
    // How far the test has moved it, us times 4; below that, what it does by itself
    std::atomic<std::int64_t> hand;
};
enum Pace : std::int64_t { Stands = 0, Runs = 1, Creeps = 2 }; // the last: a thousandth as fast

const Clock *openClock()
{
    const char *name = std::getenv("LODESTARD_CLOCK");
    const int file = name ? ::open(name, O_RDONLY | O_CLOEXEC) : -1;
    void *const memory = ::mmap(nullptr, sizeof(Clock), PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    if (memory == MAP_FAILED) {
        std::fputs("hand_clock: no clock\n", stderr);
        std::abort();
    }
    return static_cast<const Clock *>(memory);
}

const Clock &theClock()
{
    static const Clock *const clock = openClock();
    return *clock;
}

// Not the C library's function: that name leads here, or to a sanitizer that is not ready yet.
int askTheKernel(clockid_t id, timespec *time)
{
    return int(::syscall(SYS_clock_gettime, id, time));
}

// ns since it began
std::int64_t passed(const Clock &clock)
{
    const std::int64_t hand = clock.hand.load();
    const std::int64_t moved = (hand >> 2) * 1000;
    if ((hand & 3) == Stands)
        return moved;
    timespec now;
    askTheKernel(CLOCK_MONOTONIC, &now);
    const std::int64_t ran = now.tv_sec * Second + now.tv_nsec - clock.steady;
    return moved + ((hand & 3) == Creeps ? ran / 1000 : ran);
}

std::int64_t wallTime()
{
    return theClock().wall + passed(theClock());
}

} // namespace

extern "C" {

int clock_gettime(clockid_t id, timespec *time) noexcept
{
    std::int64_t now = 0;
    switch (id) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
        now = wallTime();
        break;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_BOOTTIME:
        // It begins with a whole second: how Qt rounds coarse timers hangs on the fraction.
        now = theClock().steady / Second * Second + passed(theClock());
        break;
    default:
        return askTheKernel(id, time);
    }
    *time = {.tv_sec = now / Second, .tv_nsec = now % Second};
    return 0;
}

int gettimeofday(timeval *time, void *) noexcept
{
    const std::int64_t now = wallTime();
    *time = {.tv_sec = now / Second, .tv_usec = now % Second / 1000};
    return 0;
}

std::time_t time(std::time_t *time) noexcept
{
    const std::time_t now = wallTime() / Second;
    if (time)
        *time = now;
    return now;
}

} // extern "C"
