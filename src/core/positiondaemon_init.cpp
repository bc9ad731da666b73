#include "client/clientdbusserver.h"
#include "core/contextpublisher.h"
#include "core/positiondaemon.h"
#include "core/processsignals.h"
#include "core/scheduler.h"
#include "core/signalpipe.h"
#include "core/singleinstance.h"
#include "network/dbusservervesk.h"
#include "network/veskcomm.h"
#include "platform/contextproperty.h"
#include "settings/locationgconfsettings.h"
#include "settings/locationsecuresettings.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDebug>
#include <QFile>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto ReadyDelay = 500ms;        // what a freshly connected engine needs before requests
constexpr auto FirstRetryDelay = 30000ms; // an engine that was not there at start-up

void logBusError(const QDBusConnection &bus)
{
    qCritical("%s", qPrintable(bus.lastError().message()));
}

} // namespace

PositionDaemon::PositionDaemon(const DevicePaths &paths, const Clock &clock)
    : scheduler(std::make_unique<Scheduler>(clock))
    , locationUI(std::make_unique<LocationUI>())
    , m_signalPipe(std::make_unique<SignalPipe>())
    , m_paths(paths)
    , m_clock(clock)
{
    connect(scheduler.get(), &Scheduler::reqSUPL, this, &PositionDaemon::requestPositionSUPL);
    connect(locationUI.get(), &LocationUI::privacyDialogResult, this, &PositionDaemon::privacyDialogFinished);
    if (!m_signalPipe->isValid())
        qFatal("Couldn't create USR1 socketpair");
    connect(m_signalPipe.get(), &SignalPipe::raised, this, &PositionDaemon::onSigUsr1);

    for (QTimer *timer : {&m_allowTimer, &m_reconnectTimer}) {
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer); // a coarse one may come a twentieth early
    }
    connect(&m_allowTimer, &QTimer::timeout, this, &PositionDaemon::allowOrvClients);
    connect(&m_reconnectTimer, &QTimer::timeout, this, &PositionDaemon::reconnectOrv);
}

PositionDaemon::~PositionDaemon() = default;

int PositionDaemon::init()
{
    qDebug("PositionDaemon::init()");
    checkSingleInstance();
    initStatusKeys();
    initSettings();
    if (!initSettingsService())
        return -1;
    initEngineLink();
    initNetworkAdapter();
    initGypsy();
    if (!initClientService() || !initSideChannel())
        return -1;
    initContext();
    initSignals();
    if (m_flags.disclaimerAccepted)
        startBrisd();
    initDone = true;
    qDebug("PositionDaemon::init() done.");
    return 0;
}

void PositionDaemon::checkSingleInstance()
{
    const auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        qFatal("lodestard: Cannot connect to the D-BUS session bus.");
    if (const int pid = checkAlreadyRunning(bus))
        qFatal("lodestard: Already running. pid: %d", pid);
}

void PositionDaemon::initStatusKeys()
{
    gconfSettings = std::make_unique<LocationGConfSettings>(this);
    gconfSettings->setDefaults(); // a store that takes nothing stops nobody
}

void PositionDaemon::initSettings()
{
    secureSettings = std::make_unique<LocationSecureSettings>(&m_settingsHost, this, m_paths);
    for (const StartSetting &row : startSettings())
        assignFlag(m_flags, row.binding, setting(row.key).toBool());

    // The two marker files are developer overrides.
    m_flags.veskInUse = !m_flags.suplForced && !QFile::exists(m_paths.marker(".use_supl"));
    qDebug() << "VESK in use: " << (m_flags.veskInUse ? "true" : "false");
    updateMethodAvailability();
    m_flags.disclaimerAccepted =
        setting("LocationDisclaimerAccepted"_L1).toBool() || QFile::exists(m_paths.marker(".location_ok"));

    connect(secureSettings.get(), &LocationSecureSettings::valueChanged, this,
            &PositionDaemon::userSettingsChanged);
}

bool PositionDaemon::initSettingsService()
{
    auto bus = QDBusConnection::sessionBus();
    bus.registerObject(u"/com/varn/lodestard/settings"_s, &m_settingsHost);
    if (!bus.registerService(u"com.varn.lodestard.settings"_s)) {
        logBusError(bus);
        return false;
    }
    qDebug("PositionDaemon::init() Settings done.");
    return true;
}

void PositionDaemon::initEngineLink()
{
    orvClientsBlocked = true;
    if (m_flags.internalGpsDisabled) {
        qDebug("lodestard: Internal GPS disabled, skipping ORVComm init");
    } else {
        orvComm = std::make_unique<ORVComm>(m_paths, m_clock);
        if (orvComm->init() == -1) {
            qWarning("lodestard: ORVComm init failed.");
            m_reconnectTimer.start(FirstRetryDelay);
        } else {
            m_allowTimer.start(ReadyDelay);
        }
        ORVComm *engine = orvComm.get();
        connect(engine, &ORVComm::positionUpdateGNSS, this, &PositionDaemon::onPositionUpdateGNSS);
        connect(engine, &ORVComm::positionUpdateSUPL, this, &PositionDaemon::onPositionUpdateSUPL);
        connect(engine, &ORVComm::satellitesInView, this, &PositionDaemon::onSatellitesInView);
        connect(engine, &ORVComm::satellitesInUse, this, &PositionDaemon::onSatellitesInUse);
        connect(engine, &ORVComm::GNSSStateUpdated, this, &PositionDaemon::onGNSSStateUpdated);
        connect(engine, &ORVComm::updateTimeoutGNSS, this, &PositionDaemon::onUpdateTimeoutGNSS);
        connectDialogs(*engine);
        connect(engine, &ORVComm::connectionLost, this, &PositionDaemon::onOrvDisconnected);
        engine->setGNSSMode(engineMode(m_flags));
    }
    qDebug("PositionDaemon::init() ORVComm done.");
}

bool PositionDaemon::initClientService()
{
    clientServer = std::make_unique<ClientDBusServer>(&m_clientHost, this);
    auto bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(u"/com/varn/lodestard/client"_s, &m_clientHost)) {
        logBusError(bus);
        qCritical("PositionDaemon::init() Client server registerObject() failed.");
        return false;
    }
    if (!bus.registerService(QString::fromLatin1(ClientServiceName))) {
        logBusError(bus);
        qFatal("PositionDaemon::init() Client server registerService() failed.");
    }
    clientInterface = u"com.varn.qlocation.updates"_s;
    qDebug("PositionDaemon::init() Client server done.");
    return true;
}

bool PositionDaemon::initSideChannel()
{
    veskServer = std::make_unique<DBusServerVESK>(&m_veskHost, this);
    auto bus = QDBusConnection::systemBus();
    if (!bus.registerObject(u"/com/varn/lodestard/vesk"_s, &m_veskHost) ||
        !bus.registerService(u"com.varn.lodestard.vesk"_s)) {
        logBusError(bus);
        veskServer.reset();
        return false;
    }
    if (orvComm)
        connect(orvComm.get(), &ORVComm::updateVESK, veskServer.get(), &DBusServerVESK::positionMessage);
    connect(this, &PositionDaemon::settingVESK, veskServer.get(), &DBusServerVESK::settingMessage);
    qDebug("PositionDaemon::init() VESK server done.");
    return true;
}

void PositionDaemon::initSignals()
{
    installWakeHandler();
    qDebug("PositionDaemon::init() Signal handler done.");
    installExitHandlers();
}

void PositionDaemon::startBrisd()
{
    qDebug("startBrisd()");
    // No reply is asked for: brisd may be slow, refuse or be absent.
    QDBusConnection::systemBus().send(QDBusMessage::createMethodCall(
        u"com.varn.location.brisd"_s, u"/com/varn/location/brisd"_s, QString(), u"start"_s));
}
