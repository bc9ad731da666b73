#pragma once

#include <QtGlobal>

// Tells an engine that dies in a tight loop from one that is merely restarted.
class RespawnGuard
{
public:
    // Seconds since 1970, at each loss of the engine; the mark follows the losses at half the distance.
    [[nodiscard]] bool tooFrequent(quint32 nowSeconds);

private:
    quint32 lastRespawnMark = 0;
};

// How long to wait before the engine is tried again: five times as long after each failure.
class ReconnectBackoff
{
public:
    static constexpr int FirstDelayMs = 500;
    static constexpr int LongestDelayMs = 3600000;

    void succeeded() { reconnectDelay = FirstDelayMs; }
    [[nodiscard]] int failed(); // the delay before the next attempt, ms

private:
    int reconnectDelay = FirstDelayMs;
};
