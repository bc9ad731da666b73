#pragma once

#include <QtGlobal>

#include <chrono>

// How long a GNSS session may go without a fix before it counts as lost.
namespace FixWatchdog {

// Until the first fix the receiver may have to search the whole sky.
inline constexpr std::chrono::milliseconds FirstFix{120000};

// With fixes arriving: the session's interval and a margin that grows with it.
constexpr std::chrono::milliseconds timeout(quint16 intervalSeconds)
{
    using std::chrono::seconds;
    seconds margin{60};
    if (intervalSeconds < 10)
        margin = seconds{10};
    else if (intervalSeconds < 60)
        margin = seconds{15};
    else if (intervalSeconds < 600)
        margin = seconds{30};
    return seconds{intervalSeconds} + margin;
}

} // namespace FixWatchdog
