#pragma once

#include <QDBusAbstractAdaptor>

class ClientDBusServerIF;

// The bus face of the client service: unpacks a call, asks the handler, packs the answer.
class ClientDBusServer : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.lodestard.client")
public:
    // host is the object on the bus and owns the adaptor; handler outlives both.
    ClientDBusServer(QObject *host, ClientDBusServerIF *handler);

public slots: // all of these are on the bus, and so are their parameter names and their order
    void registerListener(const QString &service, const QString &path, int &id, quint32 &methods,
                          quint32 &minInterval);
    // Always 0: a refused request shows in the daemon's log only.
    int configSession(int id, int command, int method, int interval);
    // One fix in the format of FixStream.
    QByteArray latestPosition(bool satelliteOnly);
    void prestartPositioning(bool satellite, bool nonSatellite);

private:
    ClientDBusServerIF *handler;
};
