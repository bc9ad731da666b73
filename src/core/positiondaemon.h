#pragma once

#include "client/clientdbusserverif.h"
#include "client/locationui.h"
#include "core/clientregistry.h"
#include "core/contextstate.h"
#include "core/fixdistribution.h"
#include "core/magneticvariation.h"
#include "core/methodselection.h"
#include "core/powersavecycle.h"
#include "core/sessionplan.h"
#include "core/settingeffects.h"
#include "core/supervision.h"
#include "engine/orvcomm.h"
#include "gypsy/gypsycomm.h"
#include "network/dbusserverveskif.h"
#include "platform/clock.h"
#include "platform/devicepaths.h"
#include "settings/locationsecuresettingsif.h"

#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class ClientDBusServer;
class ContextProperty;
class ContextPublisher;
class DBusServerVESK;
class LocationGConfSettings;
class LocationSecureSettings;
class Scheduler;
class SignalPipe;
class VESKComm;

// Owns every component and is the only place where they meet. It holds no rule: it gathers what a
// decision depends on, asks the value that decides, carries out the answer and logs.
class PositionDaemon : public QObject,
                       public ClientDBusServerIF,
                       public LocationSecureSettingsIF,
                       public DBusServerVESKIF
{
    Q_OBJECT
public:
    explicit PositionDaemon(const DevicePaths &paths = {}, const Clock &clock = Clock::system());
    ~PositionDaemon() override;

    // 0, or -1 when the daemon cannot serve; what it cannot live without ends the process.
    int init();

    // For the client service
    int registerListener(const QString &service, const QString &path) override;
    int configRequest(int id, int command, int method, int interval) override;
    QGeoPositionInfo latestPosition(bool satelliteOnly) override;
    quint32 supportedMethods() override;
    quint32 minimumInterval() override; // ms
    void prestartPositioning(bool satellite, bool nonSatellite) override;

    // For the settings service: deletes the kinds of assistance data in the mask
    void clearAssistanceData(int data) override;

    // For the side channel
    void VESKRequest(int command) override;

signals:
    // A NetworkSetting code, and 1 for on or 0 for off
    void settingVESK(int setting, int enabled);

public slots: // the order is part of the interface
    void userSettingsChanged(QString key);
    void onPositionUpdateGNSS(quint16 sessionId, QGeoPositionInfo &fix);
    void onPositionUpdateSUPL(QGeoPositionInfo &fix);
    void onPositionUpdateVESK(QGeoPositionInfo &fix, int error);
    void onSatellitesInView(QList<QGeoSatelliteInfo> &satellites);
    void onSatellitesInUse(QList<QGeoSatelliteInfo> &satellites);
    void onGNSSStateUpdated(ORVComm::GNSSState state);
    void onUpdateTimeoutGNSS(quint16 sessionId);
    void onFixStatusUpdate(GypsyComm::FixStatus status);
    void onConnectionStatusUpdate(GypsyComm::ConnectionStatus status);
    void requestPositionSUPL();
    void privacyDialogFinished(LocationUI::DialogReply result);
    void onSigUsr1();
    void onClientDisconnected(int id);
    void onOrvDisconnected();
    void reconnectOrv();
    void allowOrvClients();
    void addContextFWPositionClient(QString client);
    void delContextFWPositionClient(QString client);
    void addContextFWStateClient(QString client);
    void delContextFWStateClient(QString client);
    void removePrestartClient();
    void onPowerSaveTimeout(bool doAssignClients = true);
    void onPowerSaveContextUnsubscribe();
    void onScreenBlanked();

private:
    // init(), one step each, in init()'s order
    void checkSingleInstance();
    void initStatusKeys();
    void initSettings();
    bool initSettingsService();
    void initEngineLink();
    void connectDialogs(ORVComm &engine);
    void initNetworkAdapter();
    void initGypsy();
    bool initClientService();
    bool initSideChannel();
    void initContext();
    void initSignals();
    void startBrisd();

    // settings
    QVariant setting(QLatin1StringView key);
    void updateMethodAvailability();
    void sendSuplSettings();
    void stopSatelliteSessions();

    // clients
    void addPrestartClient(bool sat, bool nonsat);
    int removeClient(int id);

    // sessions
    void assignClients();
    void assignClient(ClientApp &client);
    MethodInputs currentInputs();
    quint32 effectiveMethods(quint32 requested);
    bool isExternalReceiverKnown();
    void startSessions(ClientApp &client, quint32 methods);
    void stopSessions(ClientApp &client, quint32 methods); // those that may not go on
    void modifySessions(const ClientApp &client);
    void endSatelliteSession(ClientApp &client);
    void endNetworkEnrolment(ClientApp &client);
    void loseEngineSessions(ClientApp &client);
    void startGNSS(int id, int interval); // s
    void setGNSSInterval(int id, int interval);
    void stopGNSS(int id);
    ORVComm *engineFor(SatelliteRequest request) const;
    GypsyComm *gypsyFor(SatelliteRequest request) const;

    // network positions
    bool askEngineForNetworkFix(); // false when there is no engine to ask, or not yet
    void handOnEmptyFix();
    void repeatRefusedRequest();

    // fixes
    void deliver(ClientApp &client, QGeoPositionInfo &fix, FixSource source);
    void serveFreeFixClients(QGeoPositionInfo &fix, FixSource source);

    // context properties and power save
    void contextSetState();
    void updateContextCoordinates(const QGeoPositionInfo &fix);
    bool isContextClient(const ClientApp &client) const;
    void powerSaveAfterReport(ReceiverState state);
    void enablePowerSave();
    void disablePowerSave();
    void resetPowerSave();

    // Answers that hold for a whole plan: asked for once, however many clients there are.
    struct PlanCache {
        std::optional<bool> satelliteClientStarted;
        std::optional<bool> externalReceiverKnown;
    };

    // The objects on the bus come first: adaptors are their children, and members die in reverse order.
    QObject m_clientHost;
    QObject m_veskHost;
    QObject m_settingsHost;
    std::unique_ptr<ORVComm> orvComm; // none when the internal GPS is disabled
    std::unique_ptr<VESKComm> veskComm;
    std::unique_ptr<GypsyComm> gypsyComm;
    std::unique_ptr<ClientDBusServer> clientServer;
    std::unique_ptr<DBusServerVESK> veskServer;
    std::unique_ptr<Scheduler> scheduler;
    std::unique_ptr<LocationSecureSettings> secureSettings;
    std::unique_ptr<LocationGConfSettings> gconfSettings;
    std::unique_ptr<LocationUI> locationUI;
    std::unique_ptr<SignalPipe> m_signalPipe;
    std::unique_ptr<ContextPublisher> m_context;
    std::unique_ptr<ContextProperty> m_screen; // subscribed while power save needs it
    ClientRegistry m_registry;
    SettingFlags m_flags;
    RespawnGuard m_respawns;
    ReconnectBackoff m_backoff;
    QTimer m_allowTimer;     // to allowOrvClients()
    QTimer m_reconnectTimer; // to reconnectOrv()
    ReceiverState receiverState = ReceiverState::Idle;
    NetworkState nonsatelliteState = NetworkState::None;
    PublishedState m_publishedState;
    bool stateSubscribed = false;
    bool positionSubscribed = false;
    int contextClientId = 0; // the client behind the published coordinates, while they are subscribed
    PowerSaveCycle m_powerSave;
    QTimer powerSaveTimer;   // ends a round
    QTimer unsubscribeTimer; // lets go of the screen
    QGeoPositionInfo m_latestSatelliteFix;
    QGeoPositionInfo m_latestNetworkFix;
    WrittenVariation m_variation;
    bool initDone = false;
    bool orvClientsBlocked = false; // while true, no session, position or SUPL server goes to the engine
    bool m_suplAwaited = false;     // the engine was asked for a network position and has not answered
    bool m_networkRefused = false;  // the last request for a network position was, and its batch waits
    bool assigning = false;
    bool m_planAgain = false; // a setting changed inside a plan
    PlanCache m_planCache;
    quint32 availableMethods = 0;
    QString clientInterface;
    QString externalAddress;
    DevicePaths m_paths;
    const Clock &m_clock;
};
