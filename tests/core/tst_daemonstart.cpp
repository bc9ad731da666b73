#include "client/fakeclient.h"
#include "core/daemonstage.h"
#include "support/leavebus.h"
#include "support/privatebus.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QFile>
#include <QSignalSpy>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

class Brisd : public QObject
{
    Q_OBJECT
public:
    int starts = 0;

public slots:
    void start() { ++starts; }
};

} // namespace

class TestDaemonStart : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void initGoesThroughItsSteps();
    void withoutAnEngineInitGoesOn();
    void anObjectInTheClientServicesPlaceEndsTheStart();
    void aDisabledInternalGpsMeansNoEngineLink();
    void markersOverrideTheSettings();
    void brisdIsStartedWithConsentOnly();
    void settingsAreLoggedAndToldOnce();
    void thePeerIsToldInOrder();
    void suplSettingsGoToAReadyEngine();
    void assistanceDataIsDeletedOnRequestAndBySignal();
};

void TestDaemonStart::initGoesThroughItsSteps()
{
    DaemonStage stage;
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    const QStringList expected{u"debug: PositionDaemon::init()"_s,
                               u"debug: Checking if already running."_s,
                               u"debug: VESK in use:  true"_s,
                               u"debug: Settings: Satellite positioning [ ON]"_s,
                               u"debug: Settings: Network positioning [ ON]"_s,
                               u"debug: PositionDaemon::init() Settings done."_s,
                               u"debug: PositionDaemon::init() ORVComm done."_s,
                               u"debug: PositionDaemon::init() VESKComm done."_s,
                               u"debug: PositionDaemon::init() GypsyComm done."_s,
                               u"debug: PositionDaemon::init() Client server done."_s,
                               u"debug: PositionDaemon::init() VESK server done."_s,
                               u"debug: PositionDaemon::init() ContextProvider init done."_s,
                               u"debug: PositionDaemon::init() GNSS power save done"_s,
                               u"debug: PositionDaemon::init() Signal handler done."_s,
                               u"debug: startBrisd()"_s,
                               u"debug: PositionDaemon::init() done."_s};
    QCOMPARE(stage.logged({u"debug: PositionDaemon"_s, u"debug: Checking"_s, u"debug: VESK"_s,
                           u"debug: Settings:"_s, u"debug: startBrisd"_s, u"warning"_s, u"critical"_s}),
             expected);
    auto *bus = QDBusConnection::sessionBus().interface();
    QVERIFY(bus->isServiceRegistered(u"com.varn.lodestard.client"_s));
    QVERIFY(bus->isServiceRegistered(u"com.varn.lodestard.settings"_s));

    // The engine is given half a second before it hears more than the privacy registration.
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    QCOMPARE(stage.awaitRequests(1), QStringList{QStringLiteral("supl 3 " LODESTARD_DEFAULT_SUPL_SERVER)});
}

void TestDaemonStart::withoutAnEngineInitGoesOn()
{
    DaemonStage stage;
    QCOMPARE(stage.start(), 0);
    const QStringList lines = stage.log.takeLines();
    QVERIFY(lines.contains(u"warning: lodestard: ORVComm init failed."_s));
    QVERIFY(lines.contains(u"debug: PositionDaemon::init() ORVComm done."_s));

    // Each failed attempt waits five times as long; one success starts afresh.
    for (const int wait : {2, 12, 62}) {
        stage.daemon->reconnectOrv();
        const QStringList expected{u"warning: lodestard: ORVComm reconnection failed."_s,
                                   u"debug: lodestard: Trying to reconnect after %1 s"_s.arg(wait)};
        QCOMPARE(stage.logged({u"warning: lodestard"_s, u"debug: lodestard"_s}), expected);
    }
    stage.makeEngine();
    stage.daemon->reconnectOrv();
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    stage.engine.reset();
    stage.log.takeLines();
    stage.daemon->reconnectOrv();
    QVERIFY(stage.log.takeLines().contains(u"debug: lodestard: Trying to reconnect after 2 s"_s));
}

void TestDaemonStart::anObjectInTheClientServicesPlaceEndsTheStart()
{
    auto bus = QDBusConnection::sessionBus();
    QObject squatter;
    QVERIFY(bus.registerObject(u"/com/varn/lodestard/client"_s, &squatter));
    DaemonStage stage;
    stage.makeEngine();
    QCOMPARE(stage.start(), -1);
    const QStringList expected{u"debug: PositionDaemon::init() GypsyComm done."_s,
                               u"critical: "_s + bus.lastError().message(),
                               u"critical: PositionDaemon::init() Client server registerObject() failed."_s};
    QCOMPARE(stage.log.takeLines().last(expected.size()), expected);
    QVERIFY(!bus.interface()->isServiceRegistered(u"com.varn.lodestard.client"_s));
}

void TestDaemonStart::aDisabledInternalGpsMeansNoEngineLink()
{
    DaemonStage stage;
    QVERIFY(stage.tree.write(u"/etc/lodestard/sysinfo/certs/ccc/pp/internal-gps-raw"_s, QByteArray(1, '\0')));
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    const QStringList expected{u"debug: lodestard: Internal GPS disabled, skipping ORVComm init"_s,
                               u"debug: PositionDaemon::init() ORVComm done."_s};
    QCOMPARE(stage.logged({u"debug: lodestard"_s, u"debug: PositionDaemon::init() ORV"_s, u"warning"_s}),
             expected);

    // None of these has an engine to talk to.
    const int id = addSilent(stage);
    stage.daemon->configRequest(id, Start | SetMethod, Satellite, 1000);
    stage.daemon->configRequest(id, Stop, 0, 0);
    stage.daemon->allowOrvClients();
    stage.daemon->reconnectOrv();
    stage.daemon->clearAssistanceData(0xff);
    QVERIFY(DaemonStage::set(u"PrimarySuplServer"_s, u"supl.example"_s));
    QVERIFY(DaemonStage::set(u"NetworkConnectivity"_s, false));
    stage.log.takeLines();
    ::raise(SIGUSR1);
    QCoreApplication::processEvents();
    stage.daemon->onSigUsr1();
    QCOMPARE(stage.log.takeLines(), QStringList());
    QVERIFY(!stage.engine->isConnected());
}

void TestDaemonStart::markersOverrideTheSettings()
{
    DaemonStage stage;
    QVERIFY(stage.tree.write(u"/home/user/.use_supl"_s, {}));
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    QVERIFY(stage.log.takeLines().contains(u"debug: VESK in use:  false"_s));

    // A later change of the setting wins again.
    QSignalSpy told(stage.daemon.get(), &PositionDaemon::settingVESK);
    QVERIFY(DaemonStage::set(u"WiFiPositioning"_s, false));
    QCOMPARE(told.count(), 0);
    QVERIFY(DaemonStage::set(u"SuplForced"_s, false));
    QCOMPARE(told.count(), 3);
}

void TestDaemonStart::brisdIsStartedWithConsentOnly()
{
    Brisd brisd;
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, u"brisd"_s);
    QVERIFY(bus.registerObject(u"/com/varn/location/brisd"_s, &brisd, QDBusConnection::ExportAllSlots));
    QVERIFY(bus.registerService(u"com.varn.location.brisd"_s));
    {
        DaemonStage accepted;
        accepted.makeEngine();
        QCOMPARE(accepted.start(), 0);
        QTRY_COMPARE(brisd.starts, 1);
    }
    leaveBus(bus);

    DaemonStage stage;
    QVERIFY(QFile::remove(stage.tree.at(u"/home/user/.location_ok"_s)));
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    QVERIFY(!stage.log.takeLines().contains(u"debug: startBrisd()"_s));

    // Consent given as a setting does not start it either.
    QVERIFY(DaemonStage::set(u"LocationDisclaimerAccepted"_s, true));
    const QStringList lines = stage.log.takeLines();
    QVERIFY(lines.contains(u"debug: PositionDaemon::userSettingsChanged():  Disclaimer accepted [ true ]"_s));
    QVERIFY(!lines.contains(u"debug: startBrisd()"_s));
}

void TestDaemonStart::settingsAreLoggedAndToldOnce()
{
    FakeClient client;
    DaemonStage stage;
    stage.startReady();
    add(stage, client); // stopped, and told all the same
    stage.log.takeLines();
    QVERIFY(DaemonStage::set(u"SatellitePositioning"_s, false));
    const QStringList expected{
        u"debug: PositionDaemon::userSettingsChanged():  Sat method enable [ false ]"_s,
        u"debug: Settings: Satellite positioning [OFF]"_s, u"debug: Settings: Network positioning [ ON]"_s,
        u"debug: assignClients"_s};
    QCOMPARE(stage.logged({u"debug: PositionDaemon::user"_s, u"debug: Settings:"_s, u"debug: assign"_s}),
             expected);
    QTRY_COMPARE(client.callCount(), 1);
    const QDBusMessage told = client.takeCalls().constFirst();
    QCOMPARE(told.member(), u"currentSettings"_s);
    QCOMPARE(told.arguments(), (QVariantList{0xffffff00U, 1000U}));

    // The mask stays as it is: nobody is told, but every key is planned for.
    QVERIFY(DaemonStage::set(u"SatellitePositioning"_s, false));
    QVERIFY(DaemonStage::set(u"VeskDisclaimerAccepted"_s, true));
    QCOMPARE(
        stage.logged({u"debug: PositionDaemon::user"_s, u"debug: assign"_s}),
        (QStringList{u"debug: PositionDaemon::userSettingsChanged():  Sat method enable [ false ]"_s,
                     u"debug: assignClients"_s,
                     u"debug: PositionDaemon::userSettingsChanged():  Unknown key: VeskDisclaimerAccepted"_s,
                     u"debug: assignClients"_s}));
    QVERIFY(DaemonStage::set(u"SatellitePositioning"_s, true));
    QTRY_COMPARE(client.callCount(), 1);
}

void TestDaemonStart::thePeerIsToldInOrder()
{
    DaemonStage stage;
    stage.startReady();
    QSignalSpy told(stage.daemon.get(), &PositionDaemon::settingVESK);
    QVERIFY(DaemonStage::set(u"CellularPositioning"_s, false));
    QVERIFY(DaemonStage::set(u"SuplForced"_s, true));
    QVERIFY(DaemonStage::set(u"WiFiPositioning"_s, false));
    QVERIFY(DaemonStage::set(u"SuplForced"_s, false));
    QList<QVariantList> expected{{129, 0}, {131, 1}, {129, 0}, {130, 0}};
    QCOMPARE(QList<QVariantList>(told), expected);
}

void TestDaemonStart::suplSettingsGoToAReadyEngine()
{
    DaemonStage stage;
    stage.setDefault("PrimarySuplAllowHome=false");
    stage.startReady();
    QVERIFY(DaemonStage::set(u"PrimarySuplServer"_s, u"one.example"_s));
    QVERIFY(DaemonStage::set(u"PrimarySuplOnlyGprs"_s, true));
    QVERIFY(DaemonStage::set(u"SecondarySuplServer"_s, u"two.example"_s)); // the primary goes again
    QCOMPARE(stage.requests(),
             (QStringList{u"supl 2 one.example"_s, u"supl 6 one.example"_s, u"supl 6 one.example"_s}));
    stage.daemon->onOrvDisconnected(); // blocked from here on
    QVERIFY(DaemonStage::set(u"PrimarySuplServer"_s, u"three.example"_s));
    QCOMPARE(stage.requests(), QStringList());
}

void TestDaemonStart::assistanceDataIsDeletedOnRequestAndBySignal()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->clearAssistanceData(0xfd);
    QVERIFY(stage.log.takeLines().contains(u"debug: Deleting GPS assistance data ( 253 )."_s));
    QCOMPARE(stage.requests(), QStringList{u"delete 000000fd"_s});
    ::raise(SIGUSR1);
    QCOMPARE(stage.awaitRequests(1), QStringList{u"delete 11111111"_s});
    QVERIFY(stage.log.takeLines().contains(u"debug: Deleting all GPS assistance data."_s));
}

PRIVATE_BUS_TEST_MAIN(TestDaemonStart)
#include "tst_daemonstart.moc"
