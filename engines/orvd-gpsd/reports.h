#pragma once

#include <chrono>
#include <optional>
#include <vector>

// What gpsd reports, as plain values: TPV becomes a FixReport, SKY a SkyReport. A field that gpsd
// left out, or that is no finite number, is empty.
namespace orvdgpsd {
using ReceiverTime = std::chrono::sys_time<std::chrono::nanoseconds>; // UTC
using Known = std::optional<double>;

struct FixReport {
    std::optional<ReceiverTime> time;
    bool hasFix = false; // 2D or 3D, and coordinates are there
    double latitude = 0.0;
    double longitude = 0.0;
    Known heightAboveEllipsoid; // m
    Known heightAboveSeaLevel;  // m
    Known geoidSeparation;      // m, sea level above the ellipsoid
    Known eastError;            // m
    Known northError;           // m
    Known horizontalError;      // m
    Known verticalError;        // m
    Known track;                // degrees from true north
    Known trackError;           // degrees
    Known magneticVariation;    // degrees
    Known speed;                // m/s
    Known speedError;           // m/s
    Known climb;                // m/s
    Known climbError;           // m/s

    // How much of what the engine protocol carries is known here.
    int knownFields() const
    {
        int known = 0;
        for (const Known &field : {heightAboveEllipsoid, heightAboveSeaLevel, geoidSeparation, eastError,
                                   northError, horizontalError, verticalError, track, trackError,
                                   magneticVariation, speed, speedError, climb, climbError})
            known += field.has_value() ? 1 : 0;
        return known;
    }
    bool operator==(const FixReport &) const = default;
};

struct Satellite {
    int prn = 0; // from 1; beyond 256 for some systems
    bool used = false;
    Known signal;    // dB-Hz
    Known elevation; // degrees
    Known azimuth;   // degrees
    bool operator==(const Satellite &) const = default;
};

struct SkyReport {
    std::optional<ReceiverTime> time;
    std::vector<Satellite> satellites;
    bool operator==(const SkyReport &) const = default;
};

// All that gpsd said of one measurement.
struct Epoch {
    std::optional<FixReport> fix; // the fullest report that had one
    std::optional<SkyReport> sky; // what is new since the epoch before
    bool isSkyAlone = false; // the receiver said nothing of a fix, neither that it has nor that it lost one
    bool operator==(const Epoch &) const = default;

    std::optional<ReceiverTime> time() const { return fix ? fix->time : std::nullopt; }
};
} // namespace orvdgpsd
