#pragma once

#include "watchoptions.h"

#include <QDBusServiceWatcher>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QObject>

class QDBusPendingCallWatcher;

// This application's registration with the daemon: registers, asks to be started, and registers
// anew when the daemon comes back. Bytes in, values out; what is shown is somebody else's business.
class WatchSession : public QObject
{
    Q_OBJECT
public:
    explicit WatchSession(const WatchOptions &options);
    void begin();

signals:
    void registered(int id, quint32 methods);
    void daemonMissing(const QString &why); // nobody answers: not there, or gone
    void methodsChanged(quint32 methods);
    void fixArrived(const QGeoPositionInfo &fix);
    void satellitesInViewArrived(const QList<QGeoSatelliteInfo> &satellites);
    void satellitesInUseArrived(const QList<QGeoSatelliteInfo> &satellites);

private:
    void registerListener();
    void onRegistered(QDBusPendingCallWatcher *call);
    void onFix(const QByteArray &bytes);

    WatchOptions m_options;
    QDBusServiceWatcher m_daemon;
    QObject m_callbackHost;
};
