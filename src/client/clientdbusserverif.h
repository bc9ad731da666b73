#pragma once

#include <QtGlobal>

class QGeoPositionInfo;
class QString;

// What the client service asks of the daemon. The order of the operations is part of the interface.
class ClientDBusServerIF
{
public:
    virtual ~ClientDBusServerIF() = default;

    // The new client's id.
    virtual int registerListener(const QString &service, const QString &path) = 0;
    // command: bit set; method: positioning-method mask; interval: ms. 0, or -1 for an unknown id.
    virtual int configRequest(int id, int command, int method, int interval) = 0;
    virtual QGeoPositionInfo latestPosition(bool satelliteOnly) = 0;
    // The mask of the methods on offer.
    virtual quint32 supportedMethods() = 0;
    // ms
    virtual quint32 minimumInterval() = 0;
    virtual void prestartPositioning(bool satellite, bool nonSatellite) = 0;
};
