#pragma once

#include "gypsy/satellitedata.h"
#include "platform/clock.h"

#include <QDBusObjectPath>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <optional>

// Drives one external Bluetooth receiver through Gypsy, for any number of sessions. Gypsy and
// bluez are asked on the system bus with blocking calls, under the bus library's time-out.
class GypsyComm : public QObject
{
    Q_OBJECT
public:
    // Gypsy's own numbers; others are passed on as they are.
    enum FixStatus : int { Invalid = 0, NoFix = 1, Fix2D = 2, Fix3D = 3 };
    enum ConnectionStatus : int { Connected = 0, Disconnected = 1 };

    explicit GypsyComm(const Clock &clock = Clock::system());
    ~GypsyComm() override;

    // The first session sets the receiver up; a second one shares it, and is refused (false) when it
    // names another address. False also when bluez or Gypsy does not do what it is asked.
    bool startSession(quint16 sessionId, int value, const QString &address);
    // True for an unknown session. The last one shuts the receiver down; false when that fails.
    bool stopSession(quint16 sessionId);
    // Replaces what startSession was given, without a call; nothing for an unknown session.
    void setSessionValue(quint16 sessionId, int value);
    std::optional<int> sessionValue(quint16 sessionId) const;

signals: // the order is part of the interface, as is that of the slots
    void fixStatusUpdate(GypsyComm::FixStatus status);
    void connectionStatusUpdate(GypsyComm::ConnectionStatus status);
    // The fix is valid during the call only, and receivers may change it for those after them.
    void positionUpdateGypsy(quint16 sessionId, QGeoPositionInfo &update);
    void satellitesInView(QList<QGeoSatelliteInfo> &satellites);
    void satellitesInUse(QList<QGeoSatelliteInfo> &satellites);

public slots: // for the D-Bus signals of Gypsy and bluez, and for the restart timer
    void fixStatusChanged(int status);
    void connectionStatusChanged(bool connected);
    void accuracyChanged(int fields, double pdop, double hdop, double vdop);
    void courseChanged(int fields, int timestamp, double speed, double direction, double climb);
    void positionChanged(int fields, int timestamp, double latitude, double longitude, double altitude);
    void satellitesChanged(QList<SatelliteData> list);
    void restartGypsy();
    void bluetoothDeviceRemoved(QDBusObjectPath path);

private:
    void connectToGypsy();
    bool setupBluetoothConnection();
    bool createGypsy();
    bool startGypsy();
    bool shutdownGypsy();
    void getFixStatus();
    void watchAdapter(const QString &path); // an empty path ends it
    void sendToSessions();

    QString deviceAddress;
    QString devicePath;           // as Gypsy's Create returned it
    QHash<quint16, int> sessions; // the value is kept for the session and means nothing here
    int fixStatus = Invalid;
    int connectionStatus = Disconnected;
    QGeoPositionInfo info; // grows from report to report
    QList<QGeoSatelliteInfo> m_satellitesInView;
    QList<QGeoSatelliteInfo> m_satellitesInUse;
    QString m_adapterPath;        // the default adapter at the last start
    QString m_watchedAdapterPath; // whose removed devices are heard of, empty for none
    QTimer m_restartTimer;
    bool m_shutdownDue = false; // while reporting the end, ahead of the call
    const Clock &m_clock;
};
