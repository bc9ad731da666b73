#include "jsonline.h"

#include "watchstate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

struct NamedAttribute {
    QGeoPositionInfo::Attribute attribute;
    const char *name;
};

constexpr std::array attributeNames{
    NamedAttribute{QGeoPositionInfo::GroundSpeed, "speed"},
    NamedAttribute{QGeoPositionInfo::VerticalSpeed, "climb"},
    NamedAttribute{QGeoPositionInfo::MagneticVariation, "magneticVariation"},
    NamedAttribute{QGeoPositionInfo::HorizontalAccuracy, "horizontalAccuracy"},
    NamedAttribute{QGeoPositionInfo::VerticalAccuracy, "verticalAccuracy"},
};

QJsonObject satelliteObject(const QGeoSatelliteInfo &satellite, bool used)
{
    QJsonObject object{{u"prn"_s, satellite.satelliteIdentifier()}, {u"used"_s, used}};
    if (satellite.signalStrength() >= 0)
        object[u"signal"_s] = satellite.signalStrength();
    if (satellite.hasAttribute(QGeoSatelliteInfo::Elevation))
        object[u"elevation"_s] = satellite.attribute(QGeoSatelliteInfo::Elevation);
    if (satellite.hasAttribute(QGeoSatelliteInfo::Azimuth))
        object[u"azimuth"_s] = satellite.attribute(QGeoSatelliteInfo::Azimuth);
    return object;
}

QJsonObject fixObject(const QGeoPositionInfo &fix)
{
    QJsonObject object{{u"valid"_s, fix.isValid()}};
    if (fix.timestamp().isValid()) {
        const QDateTime stamp = fix.timestamp();
        object[u"time"_s] = stamp.toOffsetFromUtc(stamp.offsetFromUtc()).toString(Qt::ISODateWithMs);
    }
    if (fix.coordinate().isValid()) {
        object[u"latitude"_s] = fix.coordinate().latitude();
        object[u"longitude"_s] = fix.coordinate().longitude();
        if (!std::isnan(fix.coordinate().altitude()))
            object[u"altitude"_s] = fix.coordinate().altitude();
    }
    if (fix.hasAttribute(QGeoPositionInfo::Direction))
        object[u"heading"_s] = normalisedHeading(fix.attribute(QGeoPositionInfo::Direction));
    for (const auto &[attribute, name] : attributeNames) {
        if (fix.hasAttribute(attribute))
            object[QLatin1StringView(name)] = fix.attribute(attribute);
    }
    return object;
}

} // namespace

QByteArray jsonLine(const QGeoPositionInfo &fix, const WatchState &state, bool withSatellites)
{
    QJsonObject object = fixObject(fix);
    object[u"satellitesInView"_s] = state.inView.size();
    object[u"satellitesUsed"_s] = state.usedPrns.size();
    if (withSatellites) {
        QJsonArray satellites;
        for (const auto &satellite : state.inView)
            satellites.append(satelliteObject(satellite, state.isUsed(satellite)));
        object[u"satellites"_s] = satellites;
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray networkJsonLine(const QGeoPositionInfo &fix)
{
    QJsonObject object = fixObject(fix);
    object[u"client"_s] = u"network"_s;
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}
