#include "network/veskfix.h"

#include <QDateTime>
#include <QGeoCoordinate>

#include <cmath>

namespace {

constexpr unsigned MeasuredCells = 0x30; // the technologies that only measurements know
constexpr float WidestRegion = 30000.0F; // m

QDateTime stamp(const VeskPosition &position, const QDateTime &now)
{
    if (position.timestamp() == 0)
        return now;
    const QDateTime local = QDateTime::fromSecsSinceEpoch(position.timestamp());
    // With its offset, so that an hour that the zone's clock shows twice stays the one it was.
    QDateTime result = local.toOffsetFromUtc(local.offsetFromUtc());
    result.setTime(local.time().addMSecs(int(position.timestampMicroseconds() / 1000)));
    return result;
}

} // namespace

namespace veskfix {

unsigned positionTechnologies(bool wifi, bool cellular)
{
    return (wifi ? vesk::Wlan : 0) | (cellular ? vesk::Cellular : 0);
}

unsigned measurementTechnologies(bool wifi, bool cellular)
{
    return (wifi ? vesk::Wlan : 0) | (cellular ? vesk::Cellular | MeasuredCells : 0);
}

bool isTooVague(const VeskPosition &position)
{
    const float accuracy = position.horizontalAccuracy();
    const bool coarse = (position.technologyMask() & vesk::CellCoarse) != 0;
    return coarse && (std::isnan(accuracy) || accuracy > WidestRegion);
}

QGeoPositionInfo positionInfo(const VeskPosition &position, const QDateTime &now)
{
    QGeoCoordinate coordinate(position.latitude(), position.longitude());
    if (!std::isnan(position.altitude()))
        coordinate.setAltitude(double(position.altitude()));

    QGeoPositionInfo info(coordinate, stamp(position, now));
    if (!std::isnan(position.horizontalAccuracy()))
        info.setAttribute(QGeoPositionInfo::HorizontalAccuracy, double(position.horizontalAccuracy()));
    if (!std::isnan(position.altitudeAccuracy()))
        info.setAttribute(QGeoPositionInfo::VerticalAccuracy, double(position.altitudeAccuracy()));
    return info;
}

} // namespace veskfix
