#pragma once

#include <chrono>

// The time that is left for an answer. Nothing here reads a clock: every question takes the time.
class Countdown
{
public:
    using Milliseconds = std::chrono::milliseconds;

    constexpr Countdown(std::chrono::seconds length, Milliseconds start)
        : m_length(length)
        , m_start(start)
    {
    }

    constexpr bool isOver(Milliseconds now) const { return left(now) <= Milliseconds{0}; }
    // Rounded up: the last second shows as 1, and 0 is the end.
    constexpr int secondsLeft(Milliseconds now) const
    {
        return isOver(now) ? 0 : int(std::chrono::ceil<std::chrono::seconds>(left(now)).count());
    }
    // When secondsLeft() changes next; 0 when nothing changes any more.
    constexpr Milliseconds untilNextChange(Milliseconds now) const
    {
        return isOver(now) ? Milliseconds{0} : left(now) - std::chrono::seconds(secondsLeft(now) - 1);
    }
    // Between 1 (all of it) and 0.
    constexpr double share(Milliseconds now) const
    {
        return isOver(now) ? 0 : double(left(now).count()) / double(Milliseconds(m_length).count());
    }

private:
    constexpr Milliseconds left(Milliseconds now) const { return m_start + m_length - now; }

    std::chrono::seconds m_length;
    Milliseconds m_start;
};

// Whether a screen reader says how much time is left: often enough to know, too seldom to disturb.
constexpr bool isSpoken(int secondsLeft)
{
    return secondsLeft == 5 || secondsLeft == 10 || secondsLeft == 20 ||
           (secondsLeft > 0 && secondsLeft % 30 == 0);
}
