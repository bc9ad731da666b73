#pragma once

// What the settings service asks of the daemon.
class LocationSecureSettingsIF
{
public:
    virtual ~LocationSecureSettingsIF() = default;
    virtual void clearAssistanceData(int data) = 0; // data: mask of the kinds to delete
};
