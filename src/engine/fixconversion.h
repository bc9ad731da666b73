#pragma once

#include "engine/messagereader.h"
#include "engine/messages.h"

#include <QGeoSatelliteInfo>
#include <QList>
#include <QString>

class QGeoPositionInfo;

// What updateVESK hands to the network-positioning side.
struct RawFix {
    double lat = 0; // degrees
    double lon = 0;
    double alt = 0;     // metres, above the ellipsoid plus geoid separation
    double u_along = 0; // metres
    double u_ortho = 0; // metres
    uchar u_angle = 0;  // as received
    ushort u_alt = 0;   // whole metres
    ushort g_speed = 0; // km/h, 0xFFFF when the engine has no speed
    ushort year = 0;    // this and the following: as received
    uchar month = 0;
    uchar day = 0;
    uchar hours = 0;
    uchar minutes = 0;
    ushort mseconds = 0; // within the minute
    bool operator==(const RawFix &) const = default;

    static constexpr ushort NoSpeed = 0xFFFF;
};

// Wire units to degrees, metres and metres per second. Coordinates are double; every attribute is
// computed in double and rounded to single precision once. A raw fix is filled when there is one.
namespace fixconversion {
void applyPosition(const PositionBlock &block, QGeoPositionInfo &info, RawFix *raw);
void applyVelocity(const VelocityBlock &block, QGeoPositionInfo &info, RawFix *raw);
void applyTime(const TimeBlock &block, RawFix &raw);

// In view: where the satellite stands is known, or it is heard.
bool hasSignal(const SatelliteRecord &record);
bool isInView(const SatelliteRecord &record);
// Sets everything the record knows, and takes away what it does not.
void describe(const SatelliteRecord &record, QGeoSatelliteInfo &info);

// Fills both lists anew; returns how many satellites have a signal above 0.
int splitSatellites(const SatelliteRecords &records, QList<QGeoSatelliteInfo> &inView,
                    QList<QGeoSatelliteInfo> &inUse);

// Texts of the debug log. Formatting costs more than reading the packet: ask whether anyone sees
// debug lines before calling these, the satellite text above all.
QString positionText(const PositionBlock &block);
QString velocityText(const VelocityBlock &block);
QString timeText(const TimeBlock &block);
struct SatelliteCounts {
    int inUse = 0;
    int withSignal = 0;
    int inView = 0;
};
// The whole line; operation is the name of the function that logs it.
QString satellitesText(const char *operation, SatelliteCounts counts, const SatelliteRecords &records);
} // namespace fixconversion
