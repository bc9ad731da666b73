#pragma once

#include "platform/clock.h"
#include "platform/devicepaths.h"

#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QList>
#include <QObject>
#include <QString>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

class MsgSockClient;
class PacketView;
class QTimer;
struct RawFix;

// The one object that talks to the GNSS engine: requests go out, reports come back as signals.
class ORVComm : public QObject
{
    Q_OBJECT
public:
    // Idle: no session. Search: sessions, but no fix yet or no longer. Tracking: fixes arrive.
    enum GNSSState : int { Idle = 0, Search = 1, Tracking = 2 };
    Q_ENUM(GNSSState)

    explicit ORVComm(const DevicePaths &paths = {}, const Clock &clock = Clock::system());
    ~ORVComm() override;

    // Connects to the engine that is chosen at this moment; again after connectionLost(). -1 when the
    // real engine cannot be reached. An unreachable test engine ends the process.
    int init();
    [[nodiscard]] bool isConnected() const;

    // Requests. They always return 0: a lost engine shows as connectionLost() and updateTimeoutGNSS().
    // Intervals in s; one that the protocol cannot hold (0 to 65535) becomes the nearest that it can.
    int startGNSS(quint16 sessionId, int interval);
    int setGNSSInterval(quint16 sessionId, int interval);
    int stopGNSS(quint16 sessionId);
    int deleteAssistanceData(quint32 mask);
    int sendSUPLLocationRequest(quint16 parameter);
    int sendSUPLServerInfo(int primaryUsage, QString primary, int secondaryUsage, QString secondary);

    // Sent with later session requests: 2 when the engine may use the network, 1 when not.
    void setGNSSMode(quint8 mode) { gnssMode = mode; }
    void setVESKUpdatesEnabled(bool enabled) { veskUpdatesEnabled = enabled; }
    // The most satellites heard in one report since the last reset.
    void resetPeakSignalSatellites() { m_peakSignalSatellites = 0; }
    int peakSignalSatellites() const { return m_peakSignalSatellites; }

    // One message of the engine; exactly the bytes received.
    void handlePacket(std::span<const std::byte> packet);

signals: // the order is part of the interface
    // The fix and the lists are reused for the next report: a receiver copies what it keeps.
    void positionUpdateGNSS(quint16 sessionId, QGeoPositionInfo &update);
    void positionUpdateSUPL(QGeoPositionInfo &update);
    void satellitesInView(QList<QGeoSatelliteInfo> &satellites);
    void satellitesInUse(QList<QGeoSatelliteInfo> &satellites);
    void GNSSStateUpdated(ORVComm::GNSSState state);
    void updateTimeoutGNSS(quint16 sessionId);
    void locationRequest(quint8 transactionId, int type, bool defaultAccept, QString name, QString id);
    void locationRequestTimeout(quint8 transactionId);
    void connectionLost();
    // Degrees, metres, km/h (0xFFFF: no speed), milliseconds of the minute.
    void updateVESK(double lat, double lon, double alt, double u_along, double u_ortho, uchar u_angle,
                    ushort u_alt, ushort g_speed, ushort year, uchar month, uchar day, uchar hours,
                    uchar minutes, ushort mseconds);

public slots:
    void sendLocationRequestReply(bool reply);
    void onConnectionLost();
    void orvInbox(const char *msg); // as long as the packet that is being received
    void timeoutGNSS();

private:
    // One running session. The timer is a child of this object and fires when fixes stay away.
    struct GnssSession {
        quint16 sessionId;
        quint16 interval; // s
        QTimer *timer;
    };

    void connectToTestEngine();
    void send(const QByteArray &message);
    std::vector<GnssSession>::iterator findSession(quint16 sessionId);
    GnssSession &appendSession(quint16 sessionId, quint16 intervalSeconds);
    void setState(GNSSState state);

    void handleGNSSResponse(PacketView message);
    void handleGNSSNotification(PacketView message);
    void handleSUPLResponse(PacketView message);
    void handleAstncDelResponse(PacketView message);
    void handlePrivacyRegistrationResponse(PacketView message);
    void handleLocationRequest(PacketView message);
    bool processSubBlocks(QGeoPositionInfo &info, PacketView message, bool fixFlag, RawFix *raw);
    void satellitesUpdateMessage(PacketView block, bool fixFlag);

    std::unique_ptr<MsgSockClient> client;
    QGeoPositionInfo gnssInfo;
    QGeoPositionInfo suplInfo;
    QList<QGeoSatelliteInfo> satellitesInViewList, satellitesInUseList;
    quint32 suplRequestId = 0; // only its low 12 bits travel
    quint8 gnssMode = 2;
    GNSSState gnssState = Idle;
    std::vector<GnssSession> sessions; // in order of creation
    bool veskUpdatesEnabled = false;
    int m_peakSignalSatellites = 0;
    DevicePaths m_paths;
    const Clock &m_clock;
};
