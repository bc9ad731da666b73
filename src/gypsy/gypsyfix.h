#pragma once

#include "gypsy/satellitedata.h"

#include <QDateTime>
#include <QGeoSatelliteInfo>
#include <QList>
#include <QString>

class QGeoPositionInfo;

// What Gypsy's reports say, with their masks of the fields that are known. Values of other fields
// mean nothing.
struct GypsyPosition {
    static constexpr int Latitude = 1, Longitude = 2, Altitude = 4;

    int fields = 0;
    double latitude = 0; // degrees
    double longitude = 0;
    double altitude = 0; // metres
};

struct GypsyCourse {
    static constexpr int Speed = 1, Direction = 2, Climb = 4;

    int fields = 0;
    double speed = 0;     // knots
    double direction = 0; // degrees
    double climb = 0;     // metres per second; Gypsy divides by a time that can be 0
};

struct GypsyAccuracy {
    static constexpr int Pdop = 1, Hdop = 2, Vdop = 4;

    int fields = 0;
    double hdop = 0; // dilution of precision, without a unit
    double vdop = 0;
};

// From Gypsy's reports to fixes and satellites. Attributes are computed in double and rounded to
// single precision once; a number that is not finite there counts as not known.
namespace gypsyfix {

// Without both a latitude and a longitude the coordinate stays as it was.
void applyPosition(const GypsyPosition &position, QGeoPositionInfo &info);
// What a report does not know is taken away from the fix.
void applyCourse(const GypsyCourse &course, QGeoPositionInfo &info);
void applyAccuracy(const GypsyAccuracy &accuracy, QGeoPositionInfo &info);

// Seconds since 1970 as local time; 0 stands for now, since Gypsy does not know the date yet.
QDateTime stamp(int timestamp, const QDateTime &now);

// Fills both lists anew.
void splitSatellites(const QList<SatelliteData> &satellites, QList<QGeoSatelliteInfo> &inView,
                     QList<QGeoSatelliteInfo> &inUse);

// Both bluez's and Gypsy's paths end in the receiver's address, written with underscores.
bool isSameReceiver(const QString &gypsyPath, const QString &bluezPath);

} // namespace gypsyfix
