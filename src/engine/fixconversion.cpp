#include "engine/fixconversion.h"

#include "engine/layout.h"

#include <QGeoCoordinate>
#include <QGeoPositionInfo>

namespace unit = layout::unit;

namespace {
// Clients get single precision: one rounding, here.
void setAttribute(QGeoPositionInfo &info, QGeoPositionInfo::Attribute attribute, double value)
{
    info.setAttribute(attribute, static_cast<float>(value));
}

// Two's complement: an absurd uncertainty gives an absurd sum, not undefined behaviour.
qint32 wrappingSum(qint32 a, qint32 b)
{
    return qint32(quint32(a) + quint32(b));
}

// Truncated; a negative speed, which no receiver measures, counts as standing still.
ushort kilometresPerHour(qint16 speed)
{
    if (speed == layout::velocity::speedUnknown)
        return RawFix::NoSpeed;
    return speed < 0 ? ushort{0} : ushort(speed * unit::hundredth * 3.6);
}
} // namespace

namespace fixconversion {
void applyPosition(const PositionBlock &block, QGeoPositionInfo &info, RawFix *raw)
{
    const double latitude = block.latitude * unit::angle32;
    const double longitude = block.longitude * unit::angle32;
    const double altitude = block.altitude * unit::halfMetre + block.geoid * unit::halfMetre;

    // Both half axes of the error ellipse together, times a fixed factor, are the radius that clients know.
    constexpr double ellipseFactor = 0.7572;
    info.setCoordinate(QGeoCoordinate(latitude, longitude, altitude));
    setAttribute(info, QGeoPositionInfo::HorizontalAccuracy,
                 wrappingSum(block.along, block.ortho) * ellipseFactor * unit::centimetre);
    setAttribute(info, QGeoPositionInfo::VerticalAccuracy, block.altitudeError * unit::halfMetre);

    if (!raw)
        return;
    raw->lat = latitude;
    raw->lon = longitude;
    raw->alt = altitude;
    raw->u_along = block.along * unit::centimetre;
    raw->u_ortho = block.ortho * unit::centimetre;
    raw->u_angle = block.angle;
    raw->u_alt = ushort(block.altitudeError >> 1);
}

void applyVelocity(const VelocityBlock &block, QGeoPositionInfo &info, RawFix *raw)
{
    using namespace layout::velocity;
    if (block.heading != headingUnknown)
        setAttribute(info, QGeoPositionInfo::Direction, block.heading * unit::hundredth);
    if (block.variation != variationUnknown)
        setAttribute(info, QGeoPositionInfo::MagneticVariation, block.variation * unit::hundredth);
    if (block.speed != speedUnknown)
        setAttribute(info, QGeoPositionInfo::GroundSpeed, block.speed * unit::hundredth);
    if (block.climb != climbUnknown)
        setAttribute(info, QGeoPositionInfo::VerticalSpeed, block.climb * unit::hundredth);
    if (raw)
        raw->g_speed = kilometresPerHour(block.speed);
}

void applyTime(const TimeBlock &block, RawFix &raw)
{
    raw.year = block.year;
    raw.month = block.month;
    raw.day = block.day;
    raw.hours = block.hours;
    raw.minutes = block.minutes;
    raw.mseconds = block.milliseconds;
}

bool hasSignal(const SatelliteRecord &record)
{
    return record.cno != layout::satellite::cnoUnknown &&
           (record.cno >> unit::carrierToNoiseFractionBits) > 0;
}

bool isInView(const SatelliteRecord &record)
{
    using namespace layout::satellite;
    return hasSignal(record) || (record.elevation != elevationUnknown && record.azimuth != azimuthUnknown);
}

void describe(const SatelliteRecord &record, QGeoSatelliteInfo &info)
{
    using namespace layout::satellite;
    info.setSatelliteIdentifier(record.number + 1);
    info.setSignalStrength(record.cno != cnoUnknown ? record.cno >> unit::carrierToNoiseFractionBits : -1);
    if (record.elevation != elevationUnknown) {
        info.setAttribute(QGeoSatelliteInfo::Elevation,
                          static_cast<float>(qint16(record.elevation) * unit::hundredth));
    } else {
        info.removeAttribute(QGeoSatelliteInfo::Elevation);
    }
    if (record.azimuth != azimuthUnknown)
        info.setAttribute(QGeoSatelliteInfo::Azimuth, static_cast<float>(record.azimuth * unit::hundredth));
    else
        info.removeAttribute(QGeoSatelliteInfo::Azimuth);
}

int splitSatellites(const SatelliteRecords &records, QList<QGeoSatelliteInfo> &inView,
                    QList<QGeoSatelliteInfo> &inUse)
{
    // Making a satellite allocates several times: those of the last report are described anew. The
    // satellites in use share them, so they go first.
    inUse.clear();
    int withSignal = 0;
    qsizetype seen = 0;
    for (const SatelliteRecord &record : records) {
        if (hasSignal(record))
            ++withSignal;
        if (!isInView(record))
            continue;
        if (seen == inView.size())
            inView.emplaceBack();
        QGeoSatelliteInfo &info = inView[seen++];
        describe(record, info);
        if (record.used == layout::satellite::usedInFix)
            inUse.append(info);
    }
    inView.resize(seen);
    return withSignal;
}

QString positionText(const PositionBlock &block)
{
    return QString::asprintf("POSDBG: lat=%.7f, lon=%.7f, unc_alo=%.2f, unc_ort=%.2f, unc_ang=%d, "
                             "alt_w84=%.1f, alt_unc=%.1f, geo_sep=%.1f",
                             block.latitude * unit::angle32, block.longitude * unit::angle32,
                             block.along * unit::centimetre, block.ortho * unit::centimetre, int(block.angle),
                             block.altitude * unit::halfMetre, block.altitudeError * unit::halfMetre,
                             block.geoid * unit::halfMetre);
}

QString velocityText(const VelocityBlock &block)
{
    return QString::asprintf("VELDBG: head=%.2f+-%.2f, magn=%.2f, speed=%.2f+-%.2f, climb=%.2f+-%.2f",
                             block.heading * unit::hundredth, block.headingError * unit::hundredth,
                             block.variation * unit::hundredth, block.speed * unit::hundredth,
                             block.speedError * unit::hundredth, block.climb * unit::hundredth,
                             block.climbError * unit::hundredth);
}

QString timeText(const TimeBlock &block)
{
    return QString::asprintf("processSubBlocks(): Time: %d:%d:%.3f", int(block.hours), int(block.minutes),
                             block.milliseconds * unit::millisecond);
}

QString satellitesText(const char *operation, SatelliteCounts counts, const SatelliteRecords &records)
{
    constexpr int perLine = 6;
    auto text = QString::asprintf("ORVComm::%s: sat: %d/%d/%d, (id,used,cno,elev,azim):", operation,
                                  counts.inUse, counts.withSignal, counts.inView);
    int index = 0;
    for (const SatelliteRecord &record : records) {
        if (index++ % perLine == 0)
            text += QLatin1String("\nSATDBG:");
        text += QString::asprintf(" %d,%d,%d,%d,%d", int(record.number), int(record.used), int(record.cno),
                                  int(record.elevation), int(record.azimuth));
    }
    return text;
}
} // namespace fixconversion
