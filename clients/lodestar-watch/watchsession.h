#pragma once

#include <QDBusServiceWatcher>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QObject>

class QDBusPendingCallWatcher;

// One client of the daemon, as this program asks for it.
struct Registration {
    QString path;                  // of the object that is called back
    quint32 methods = 0x000000ffU; // QGeoPositionInfoSource::PositioningMethods
    int intervalMilliseconds = 1000;
    bool satelliteInformation = false;
};

// This application's registration with the daemon: registers, asks to be started, and registers
// anew when the daemon comes back. Bytes in, values out; what is shown is somebody else's business.
class WatchSession : public QObject
{
    Q_OBJECT
public:
    explicit WatchSession(const Registration &registration);
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

    Registration m_registration;
    QDBusServiceWatcher m_daemon;
    QObject m_callbackHost;
};
