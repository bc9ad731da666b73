#include "gypsy/satellitedata.h"

#include <QDBusArgument>
#include <QDBusMetaType>

QDBusArgument &operator<<(QDBusArgument &argument, const SatelliteData &satellite)
{
    argument.beginStructure();
    argument << satellite.prn << satellite.inUse << satellite.elevation << satellite.azimuth << satellite.snr;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SatelliteData &satellite)
{
    argument.beginStructure();
    argument >> satellite.prn >> satellite.inUse >> satellite.elevation >> satellite.azimuth >> satellite.snr;
    argument.endStructure();
    return argument;
}

void SatelliteData::registerWithDBus()
{
    qDBusRegisterMetaType<SatelliteData>();
    qDBusRegisterMetaType<QList<SatelliteData>>();
}
