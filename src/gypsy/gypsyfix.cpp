#include "gypsy/gypsyfix.h"

#include <QGeoCoordinate>
#include <QGeoPositionInfo>

#include <cmath>
#include <limits>

namespace {

constexpr double KilometresPerNauticalMile = 1.852;
constexpr double KilometresPerHourInMetresPerSecond = 3.6;
// Deliberately one factor for every receiver: what a dilution of 1 is taken to be.
constexpr double MetresPerDilution = 5.0;

constexpr qsizetype AddressLength = 17; // "00_1A_7D_DA_71_13"

// False also for what only single precision cannot hold.
bool isFinite(double value)
{
    return std::abs(value) <= double{std::numeric_limits<float>::max()};
}

void setOrRemove(QGeoPositionInfo &info, QGeoPositionInfo::Attribute attribute, bool known, double value)
{
    if (known && isFinite(value))
        info.setAttribute(attribute, static_cast<float>(value));
    else
        info.removeAttribute(attribute);
}

} // namespace

void gypsyfix::applyPosition(const GypsyPosition &position, QGeoPositionInfo &info)
{
    constexpr int Place = GypsyPosition::Latitude | GypsyPosition::Longitude;
    if ((position.fields & Place) != Place || !std::isfinite(position.latitude) ||
        !std::isfinite(position.longitude))
        return;
    QGeoCoordinate coordinate(position.latitude, position.longitude);
    if ((position.fields & GypsyPosition::Altitude) && std::isfinite(position.altitude))
        coordinate.setAltitude(position.altitude);
    info.setCoordinate(coordinate);
}

void gypsyfix::applyCourse(const GypsyCourse &course, QGeoPositionInfo &info)
{
    const double speed = course.speed * KilometresPerNauticalMile / KilometresPerHourInMetresPerSecond;
    setOrRemove(info, QGeoPositionInfo::GroundSpeed, course.fields & GypsyCourse::Speed, speed);
    setOrRemove(info, QGeoPositionInfo::Direction, course.fields & GypsyCourse::Direction, course.direction);
    setOrRemove(info, QGeoPositionInfo::VerticalSpeed, course.fields & GypsyCourse::Climb, course.climb);
}

void gypsyfix::applyAccuracy(const GypsyAccuracy &accuracy, QGeoPositionInfo &info)
{
    setOrRemove(info, QGeoPositionInfo::HorizontalAccuracy, accuracy.fields & GypsyAccuracy::Hdop,
                accuracy.hdop * MetresPerDilution);
    setOrRemove(info, QGeoPositionInfo::VerticalAccuracy, accuracy.fields & GypsyAccuracy::Vdop,
                accuracy.vdop * MetresPerDilution);
}

QDateTime gypsyfix::stamp(int timestamp, const QDateTime &now)
{
    // Unsigned seconds: what Gypsy's signed field holds goes on after January 2038.
    return timestamp == 0 ? now : QDateTime::fromSecsSinceEpoch(qint64{quint32(timestamp)});
}

void gypsyfix::splitSatellites(const QList<SatelliteData> &satellites, QList<QGeoSatelliteInfo> &inView,
                               QList<QGeoSatelliteInfo> &inUse)
{
    inView.clear();
    inUse.clear();
    for (const SatelliteData &satellite : satellites) {
        QGeoSatelliteInfo info;
        info.setSatelliteIdentifier(int(satellite.prn));
        info.setSignalStrength(int(satellite.snr));
        info.setAttribute(QGeoSatelliteInfo::Azimuth, static_cast<float>(satellite.azimuth));
        info.setAttribute(QGeoSatelliteInfo::Elevation, static_cast<float>(satellite.elevation));
        inView.append(info);
        if (satellite.inUse)
            inUse.append(info);
    }
}

bool gypsyfix::isSameReceiver(const QString &gypsyPath, const QString &bluezPath)
{
    return gypsyPath.size() >= AddressLength && bluezPath.endsWith(gypsyPath.right(AddressLength));
}
