#include "platform/clock.h"

namespace {

class SystemClock final : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
    std::chrono::milliseconds monotonic() const override
    {
        const auto elapsed = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed);
    }
};

} // namespace

const Clock &Clock::system()
{
    static const SystemClock clock;
    return clock;
}
