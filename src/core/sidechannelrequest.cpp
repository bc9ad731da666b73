#include "core/sidechannelrequest.h"

namespace {

constexpr int StartStreaming = 0x01;
constexpr int StopStreaming = 0x02;
constexpr int FixedQuery = 0x84;

SideChannelAction stream(bool on)
{
    return {.kind = SideChannelAction::Kind::Stream, .stream = on, .answer = {}};
}

SideChannelAction answer(int command, bool allowed)
{
    return {.kind = SideChannelAction::Kind::Answer, .stream = false, .answer = {command, allowed ? 1 : 0}};
}

} // namespace

SideChannelAction sideChannelAction(int command, const SettingFlags &flags)
{
    switch (command) {
    case StartStreaming:
        return stream(true);
    case StopStreaming:
        return stream(false);
    case NetworkSetting::Cellular:
        return answer(command, !flags.cellularDisabled);
    case NetworkSetting::WiFi:
        return answer(command, !flags.wifiDisabled);
    case NetworkSetting::Connectivity:
        return answer(command, !flags.connectivityDisabled);
    case FixedQuery:
        return answer(command, true);
    default:
        return {};
    }
}
