#include "platform/clock.h"

#include <atomic>
#include <ctime>

namespace {

// QDateTime::currentDateTime() looks at the zone's file every time, which costs more than reading a
// whole report. A user who travels changes the zone once in a while: one look a second will do.
class SystemClock final : public Clock
{
public:
    QDateTime now() const override
    {
        const QDateTime utc = QDateTime::currentDateTimeUtc();
        const std::time_t second = utc.toSecsSinceEpoch();
        if (m_zoneLookedAt.exchange(second, std::memory_order_relaxed) != second)
            tzset();
        std::tm local{};
        localtime_r(&second, &local);
        return utc.toOffsetFromUtc(int(local.tm_gmtoff));
    }
    std::chrono::milliseconds monotonic() const override
    {
        const auto elapsed = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed);
    }

private:
    mutable std::atomic<std::time_t> m_zoneLookedAt =
        0; // the second of the last look; the bus thread logs too
};

} // namespace

const Clock &Clock::system()
{
    static const SystemClock clock;
    return clock;
}
