#pragma once

#include "platform/veskpositioning.h"

#include <QGeoPositionInfo>

class QDateTime;

// The rules of network positioning without the library: what to ask it for, and what its records mean.
namespace veskfix {

// Technologies of a position request; 0 when nothing may be used.
unsigned positionTechnologies(bool wifi, bool cellular);
// The same for measurements, which know two more cellular technologies.
unsigned measurementTechnologies(bool wifi, bool cellular);

constexpr VeskPacketDataUsage packetDataUsage(bool gprs)
{
    return gprs ? VeskPacketDataUsage::Allowed : VeskPacketDataUsage::NotAllowed;
}

// A guess from a whole region's cells, more than 30 km wide or of unknown width: success, but no place.
bool isTooVague(const VeskPosition &position);

// What is not known is left out. A record without a time gets `now`; otherwise the stamp is its
// second in local time with the milliseconds added, which wrap past midnight and keep the date.
QGeoPositionInfo positionInfo(const VeskPosition &position, const QDateTime &now);

} // namespace veskfix
