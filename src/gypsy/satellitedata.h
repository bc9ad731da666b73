#pragma once

#include <QList>
#include <QMetaType>

class QDBusArgument;

// One satellite as Gypsy's "SatellitesChanged" carries it: the D-Bus structure (ubuuu).
struct SatelliteData {
    quint32 prn = 0;
    bool inUse = false;
    quint32 elevation = 0; // degrees
    quint32 azimuth = 0;   // degrees
    quint32 snr = 0;

    bool operator==(const SatelliteData &) const = default;

    // Makes the structure and a list of it known to D-Bus; once is enough, more does no harm.
    static void registerWithDBus();
};

QDBusArgument &operator<<(QDBusArgument &argument, const SatelliteData &satellite);
const QDBusArgument &operator>>(const QDBusArgument &argument, SatelliteData &satellite);

Q_DECLARE_METATYPE(SatelliteData)
