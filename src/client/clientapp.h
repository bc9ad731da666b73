#pragma once

#include "client/fixfilters.h"

#include <QList>
#include <QObject>
#include <QString>

class QDBusServiceWatcher;
class QGeoPositionInfo;
class QGeoSatelliteInfo;
class UpdatesInterface;

// One registered client: what it asked for, and the road by which it is called back.
class ClientApp : public QObject
{
    Q_OBJECT
public:
    // The daemon's own clients register under these services and are never called.
    static constexpr QLatin1String ContextService{"context"};
    static constexpr QLatin1String PrestartService{"prestart"};

    ClientApp(int id, const QString &service, const QString &path, const QString &interfaceName);

    int id() const { return m_id; }
    quint32 methods() const { return quint32(method); } // positioning-method mask
    int interval() const { return intervalSeconds; }    // s
    bool isStopped() const { return stopped; }
    bool wantsSatelliteInfo() const { return satelliteInfo; }
    bool isModified() const { return modified; }
    bool isGnssActive() const { return actGNSS; }
    bool isSuplActive() const { return actSUPL; }

    void setMethods(quint32 mask) { method = int(mask); }
    void setInterval(int seconds) { intervalSeconds = seconds; }
    void setStopped(bool value) { stopped = value; }
    void setSatelliteInfo(bool wanted) { satelliteInfo = wanted; }
    void setModified(bool value); // forgets the ground speeds, whichever the value
    void setGnssActive(bool active);
    void setSuplActive(bool active);
    void resetLastNetworkFix() { m_lastNetworkFix.reset(); }

    // Whether a network fix tells this client nothing new; remembers it if it does.
    bool isRepeatedFix(const QGeoPositionInfo &fix);

    // type: a FixSource. May lend the fix a ground speed. Always 0.
    int sendPositionUpdate(QGeoPositionInfo &fix, int type);
    // These two block until the client answered; -1 when it answered with an error or not at all.
    int satellitesInUseUpdate(const QList<QGeoSatelliteInfo> &satellites);
    int satellitesInViewUpdate(const QList<QGeoSatelliteInfo> &satellites);
    // methods: mask of the methods on offer; minInterval: ms. Always 0.
    int currentSettings(quint32 methods, quint32 minInterval);

signals:
    void clientDisconnected(int id);

private slots:
    void serviceHasJustLeftTheBuilding(const QString &name);

private:
    enum class Delivery { Ready, Dropped };

    Delivery prepareDelivery();
    int connectClient();
    void lendGroundSpeed(QGeoPositionInfo &fix);
    int satellitesUpdate(const QString &member, const QList<QGeoSatelliteInfo> &satellites);

    UpdatesInterface *callbackInterface = nullptr;
    QDBusServiceWatcher *serviceWatcher = nullptr;
    const QString service;
    const QString path;
    const QString interfaceName;
    const int m_id;
    bool actGNSS = false;
    bool actSUPL = false;
    int intervalSeconds = 1;
    int method = -1;
    bool stopped = true;
    bool satelliteInfo = false;
    bool modified = false;
    bool callbacksConnected = false; // a delivery was tried once, well or badly
    InvalidFixGate m_gate;
    SpeedHistory m_speeds;
    LastNetworkFix m_lastNetworkFix;
};
