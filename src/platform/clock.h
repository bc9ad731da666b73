#pragma once

#include <QDateTime>

#include <chrono>

// The only way the daemon learns the time. Tests hand in a clock they can wind.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0; // local wall time with its offset from UTC, stamps fixes
    virtual std::chrono::milliseconds monotonic() const = 0; // never set back, for intervals
    quint32 secondsSinceEpoch() const { return quint32(now().toSecsSinceEpoch()); }

    static const Clock &system();
};
