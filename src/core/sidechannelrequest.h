#pragma once

#include "core/settingeffects.h"

// What a command of the network-positioning peer asks for.
struct SideChannelAction {
    enum class Kind { Stream, Answer, Unknown };
    Kind kind = Kind::Unknown;
    bool stream = false;     // with Stream: on or off
    PeerSetting answer = {}; // with Answer

    bool operator==(const SideChannelAction &) const = default;
};

// command: 0x01 and 0x02 switch the stream of engine fixes on and off, 0x81 to 0x83 query a network
// setting and 0x84 the fixed value 1; an answer carries the code of its query.
SideChannelAction sideChannelAction(int command, const SettingFlags &flags);
