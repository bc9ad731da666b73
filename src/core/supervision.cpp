#include "core/supervision.h"

#include <algorithm>

bool RespawnGuard::tooFrequent(quint32 nowSeconds)
{
    constexpr quint32 Window = 3600;
    constexpr quint32 Shortest = 20;

    const quint32 sinceMark = nowSeconds - lastRespawnMark;
    lastRespawnMark = nowSeconds - (sinceMark > Window ? Window : sinceMark / 2);
    return nowSeconds - lastRespawnMark < Shortest;
}

int ReconnectBackoff::failed()
{
    reconnectDelay = std::min(reconnectDelay * 5, LongestDelayMs);
    return reconnectDelay;
}
