#pragma once

#include "orvd-gpsd/epochassembler.h"

#include <chrono>
#include <initializer_list>
#include <optional>
#include <vector>

// What a receiver reports, in short, and what the assembler makes of it.
namespace orvdgpsd::test {

inline ReceiverTime at(std::chrono::milliseconds sinceStart)
{
    return ReceiverTime(std::chrono::seconds(1700000000) + sinceStart);
}

inline FixReport fixAt(std::optional<std::chrono::milliseconds> time, double latitude = 50.0)
{
    FixReport report;
    if (time)
        report.time = at(*time);
    report.hasFix = true;
    report.latitude = latitude;
    report.longitude = 4.0;
    return report;
}

inline FixReport noFixAt(std::optional<std::chrono::milliseconds> time)
{
    FixReport report;
    if (time)
        report.time = at(*time);
    return report;
}

inline FixReport moving(FixReport report)
{
    report.speed = 3.0;
    report.track = 120.0;
    return report;
}

inline FixReport high(FixReport report)
{
    report.heightAboveEllipsoid = 155.0;
    report.heightAboveSeaLevel = 109.0;
    report.climb = 0.0;
    return report;
}

inline SkyReport sky(std::initializer_list<int> prns, std::optional<std::chrono::milliseconds> time = {})
{
    SkyReport report;
    if (time)
        report.time = at(*time);
    for (int prn : prns)
        report.satellites.push_back({prn, false, 30.0, 45.0, 90.0});
    return report;
}

// Feeds reports in order and collects the epochs.
class Feed
{
public:
    template <typename Report>
    Feed &operator<<(const Report &report)
    {
        keep(assembler.add(report));
        return *this;
    }
    void end() { keep(assembler.end()); }

    EpochAssembler assembler;
    std::vector<Epoch> epochs;

private:
    void keep(const std::optional<Epoch> &epoch)
    {
        if (epoch)
            epochs.push_back(*epoch);
    }
};

} // namespace orvdgpsd::test
