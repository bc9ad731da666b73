#pragma once

// What the side channel asks of the daemon.
class DBusServerVESKIF
{
public:
    virtual ~DBusServerVESKIF() = default;

    // command: 0x01 and 0x02 start and stop streaming, 0x81 to 0x84 query a setting. There is no
    // answer here: what was asked for goes out as a broadcast.
    virtual void VESKRequest(int command) = 0;
};
