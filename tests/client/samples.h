#pragma once

#include "client/clientapp.h"

#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>

#include <optional>

// What tests of the client proxy send.
namespace samples {

using namespace Qt::StringLiterals;

inline constexpr int Satellite = 0;
inline constexpr int Network = 1;
inline constexpr int Other = 2;

inline const QString Interface = u"com.varn.qlocation.updates"_s;

inline QGeoPositionInfo fixAt(double latitude, std::optional<double> speed = {})
{
    QGeoPositionInfo fix(QGeoCoordinate(latitude, 24.938379, 25.5),
                         QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789)));
    fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, double(11.358F));
    if (speed)
        fix.setAttribute(QGeoPositionInfo::GroundSpeed, *speed);
    return fix;
}

inline QList<QGeoSatelliteInfo> oneSatellite()
{
    QGeoSatelliteInfo satellite;
    satellite.setSatelliteIdentifier(7);
    satellite.setSignalStrength(42);
    satellite.setAttribute(QGeoSatelliteInfo::Elevation, 63.0);
    return {satellite};
}

inline int send(ClientApp &app, QGeoPositionInfo fix, int type)
{
    return app.sendPositionUpdate(fix, type);
}

} // namespace samples
