#pragma once

#include "platform/clock.h"

// A clock that shows what it was set to.
class StillClock final : public Clock
{
public:
    QDateTime time{QDate(2026, 3, 7), QTime(9, 5, 2)};
    std::chrono::milliseconds elapsed{0};

    QDateTime now() const override { return time; }
    std::chrono::milliseconds monotonic() const override { return elapsed; }
};
