#include "core/powersavecycle.h"

using namespace std::chrono_literals;

namespace {

constexpr auto DelayPerSatellite = 20s;

std::chrono::seconds allowedLength(int round)
{
    if (round == 1)
        return 300s;
    return round % 4 == 3 ? 20s : 10s;
}

std::chrono::seconds withheldLength(int round)
{
    if (round == 2)
        return 60s;
    return round == 4 ? 90s : 120s;
}

} // namespace

PowerSaveCycle::Report PowerSaveCycle::afterReport(ReceiverState state) const
{
    switch (state) {
    case ReceiverState::Searching:
        return isOff() ? Report::Enable : Report::Nothing;
    case ReceiverState::Fix:
        return Report::Disable;
    case ReceiverState::Idle:
        break;
    }
    // In an even round the receiver is idle because it was withheld.
    return isOff() || withholdsSatellites() ? Report::Nothing : Report::Disable;
}

PowerSaveCycle::Screen PowerSaveCycle::afterScreen(bool blanked) const
{
    if (isOff())
        return Screen::Nothing;
    if (!blanked)
        return Screen::Rearm;
    return powerSaveRound == 0 ? Screen::Begin : Screen::Nothing;
}

void PowerSaveCycle::arm()
{
    powerSaveRound = 0;
    powerSaveExtended = false;
}

void PowerSaveCycle::disable()
{
    powerSaveRound = -1;
    powerSaveExtended = false;
}

bool PowerSaveCycle::rearm()
{
    if (powerSaveRound < 1)
        return false;
    arm();
    return true;
}

std::optional<PowerSaveCycle::Round> PowerSaveCycle::next(int peakSatellites)
{
    if (isOff())
        return std::nullopt;
    const int following = powerSaveRound + 1;
    const bool allowed = following % 2 == 1;
    if (!allowed && following > 2 && peakSatellites > 0 && !powerSaveExtended) {
        // The allowed round goes on; its end leads here again.
        powerSaveExtended = true;
        return Round{.length = peakSatellites * DelayPerSatellite};
    }
    powerSaveRound = following;
    powerSaveExtended = false;
    return Round{.length = allowed ? allowedLength(following) : withheldLength(following),
                 .countSatellitesAfresh = allowed,
                 .replan = true};
}
