#include "watchstate.h"

#include <QStringList>

#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Steps shorter than this are receiver noise rather than movement.
constexpr double StandingStillMetres = 0.5;

} // namespace

void WatchState::takeFix(const QGeoPositionInfo &report, const QDateTime &now)
{
    lastReport = now;
    fixLost = !report.isValid();
    if (fixLost)
        return;
    if (fix) {
        const double step = fix->coordinate().distanceTo(report.coordinate());
        if (step >= StandingStillMetres)
            travelledMetres += step;
    }
    fix = report;
    ++fixes;
}

void WatchState::takeSatellitesInView(const QList<QGeoSatelliteInfo> &satellites)
{
    inView = satellites;
}

void WatchState::takeSatellitesInUse(const QList<QGeoSatelliteInfo> &satellites)
{
    usedPrns.clear();
    for (const auto &satellite : satellites)
        usedPrns.append(satellite.satelliteIdentifier());
}

bool WatchState::isUsed(const QGeoSatelliteInfo &satellite) const
{
    return usedPrns.contains(satellite.satelliteIdentifier());
}

QString methodNames(quint32 mask)
{
    QStringList names;
    if (mask & 0x000000ffU)
        names.append(u"satellite"_s);
    if (mask & 0xffffff00U)
        names.append(u"network"_s);
    return names.isEmpty() ? u"none"_s : names.join(u", "_s);
}

double normalisedHeading(double degrees)
{
    const double turned = std::fmod(degrees, 360.0);
    const double positive = turned < 0.0 ? turned + 360.0 : turned;
    return positive >= 360.0 ? 0.0 : positive;
}

QString compassPoint(double degrees)
{
    static constexpr std::array points{"N", "NNE", "NE", "ENE", "E", "ESE", "SE", "SSE",
                                       "S", "SSW", "SW", "WSW", "W", "WNW", "NW", "NNW"};
    const auto index = std::size_t(std::lround(normalisedHeading(degrees) / 22.5)) % points.size();
    return QString::fromLatin1(points[index]);
}
