#include "client/clientdbusserver.h"

#include "client/clientdbusserverif.h"
#include "client/fixstream.h"

#include <QGeoPositionInfo>

ClientDBusServer::ClientDBusServer(QObject *host, ClientDBusServerIF *handler_)
    : QDBusAbstractAdaptor(host)
    , handler(handler_)
{
}

void ClientDBusServer::registerListener(const QString &service, const QString &path, int &id,
                                        quint32 &methods, quint32 &minInterval)
{
    id = handler->registerListener(service, path);
    methods = handler->supportedMethods();
    minInterval = handler->minimumInterval();
}

int ClientDBusServer::configSession(int id, int command, int method, int interval)
{
    handler->configRequest(id, command, method, interval);
    return 0;
}

QByteArray ClientDBusServer::latestPosition(bool satelliteOnly)
{
    return FixStream::writeFix(handler->latestPosition(satelliteOnly));
}

void ClientDBusServer::prestartPositioning(bool satellite, bool nonSatellite)
{
    handler->prestartPositioning(satellite, nonSatellite);
}
