#include "core/daemonstage.h"
#include "support/privatebus.h"

#include <QFile>

#include <climits>
#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

class TestDaemonSessions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void aRequestWithoutConsentWaits();
    void anUnknownIdIsRefused();
    void wildArgumentsAreAnswered();
    void commandsAreLoggedInTheirOrder();
    void prestartClientsGoOldestFirst();
    void aSatelliteClientRunsOnTheEngine();
    void nothingReachesAnEngineThatIsNotReady();
    void aClientWithoutMethodsIsToldAtEachPlan();
    void aNetworkClientRidesOnTheFixWhileItLasts();
    void disabledPositioningIsLogged();
    void switchingTheReceiverEndsItsSessions();
    void aLostEngineComesBack();
    void aLostEngineEndsNetworkPositionsOnlyWhenItServesThem_data();
    void aLostEngineEndsNetworkPositionsOnlyWhenItServesThem();
    void anEngineLostBeforeItIsReadyIsNotAskedEarly();
    void aFailedAttemptCallsOffWhatWasPending();
    void oneLossAfterAnotherLeadsToOneAttempt();
    void removingAClientSendsNothing();
};

void TestDaemonSessions::aRequestWithoutConsentWaits()
{
    DaemonStage stage;
    QVERIFY(QFile::remove(stage.tree.at(u"/home/user/.location_ok"_s)));
    stage.startReady();
    const int id = addSilent(stage);
    stage.log.takeLines();
    QCOMPARE(stage.daemon->configRequest(id, Start | SetMethod, Satellite, 1000), 0);
    QCOMPARE(stage.daemon->configRequest(12345, Start, 0, 0), 0); // the id is looked up when it is replayed
    QCOMPARE(stage.log.takeLines(), QStringList(u"debug: There is already another dialog open!"_s));
    QCOMPARE(stage.requests(), QStringList());

    // Without start nothing waits.
    QCOMPARE(stage.daemon->configRequest(id, SetMethod, Satellite, 1000), 0);
    QVERIFY(stage.log.takeLines().contains(u"debug: PositionDaemon::configRequest: Set Method:  255"_s));
}

void TestDaemonSessions::anUnknownIdIsRefused()
{
    DaemonStage stage;
    stage.startReady();
    QCOMPARE(stage.daemon->configRequest(5999, 13, All, 1000), -1);
    const QStringList expected{u"critical: *** Warning! Config request from client with invalid Id!"_s,
                               u"critical: *** id: 5999  command: 13"_s};
    QCOMPARE(stage.log.takeLines(), expected);
}

void TestDaemonSessions::wildArgumentsAreAnswered()
{
    DaemonStage stage;
    stage.startReady();
    const int id = addSilent(stage);
    for (const int wild : {INT_MIN, -1, 0, INT_MAX}) {
        QCOMPARE(stage.daemon->configRequest(id, wild, wild, wild), 0);
        QCOMPARE(stage.daemon->configRequest(wild, 0, 0, 0), -1);
    }
    QCOMPARE(stage.daemon->configRequest(id, Start | SetMethod | SetInterval, Satellite, INT_MAX), 0);
    QVERIFY(
        stage.log.takeLines().contains(u"debug: PositionDaemon::configRequest: Set interval:  2147484"_s));
    stage.daemon->onClientDisconnected(INT_MIN);
    QVERIFY(stage.log.takeLines().contains(u"debug: onClientDisconnected: Remove client  -2147483648"_s));
}

void TestDaemonSessions::commandsAreLoggedInTheirOrder()
{
    DaemonStage stage;
    stage.startReady();
    QCOMPARE(stage.daemon->registerListener(u"prestart"_s, u"/path"_s), 6000);
    const QStringList registered{u"debug: ## Adding new client with Id:  6000"_s,
                                 u"debug: ## Service:  prestart"_s, u"debug: ##    Path:  /path"_s};
    QCOMPARE(stage.log.takeLines(), registered);
    QCOMPARE(addSilent(stage), 6001);

    stage.daemon->configRequest(6000, 0x3f, NonSatellite, FreeFixMs);
    const QStringList commands{u"debug: PositionDaemon::configRequest: Set Method:  4294967040"_s,
                               u"debug: PositionDaemon::configRequest: Set interval:  666"_s,
                               u"debug: PositionDaemon::configRequest: Start!"_s,
                               u"debug: PositionDaemon::configRequest: Stop!"_s,
                               u"debug: PositionDaemon::configRequest: SatInfoStart"_s,
                               u"debug: PositionDaemon::configRequest: SatInfoStop"_s};
    const QStringList enrolled{u"debug: PositionDaemon::configRequest: Free fix client added"_s};
    QCOMPARE(stage.logged({u"debug: PositionDaemon::config"_s}), commands + enrolled);
    stage.daemon->configRequest(6000, 0x3f, NonSatellite, FreeFixMs);
    QCOMPARE(stage.logged({u"debug: PositionDaemon::config"_s}), commands); // enrolled once
}

void TestDaemonSessions::prestartClientsGoOldestFirst()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->prestartPositioning(false, false);
    QCOMPARE(stage.log.takeLines(),
             QStringList{u"debug: PositionDaemon::addPrestartClient sat:0, nonsat:0"_s});

    stage.daemon->prestartPositioning(true, false);
    stage.daemon->prestartPositioning(true, true);
    QVERIFY(stage.log.takeLines().contains(u"debug: PositionDaemon::addPrestartClient sat:1, nonsat:1"_s));
    QCOMPARE(stage.requests(), (QStringList{u"start 6000 1 mode 2"_s, u"start 6001 1 mode 2"_s}));

    for (const int id : {6000, 6001}) {
        stage.daemon->removePrestartClient();
        const QStringList expected{u"debug: PositionDaemon::removePrestartClient"_s,
                                   u"debug: PositionDaemon: Removing client with id: %1"_s.arg(id)};
        QCOMPARE(stage.log.takeLines(), expected);
    }
    stage.daemon->removePrestartClient();
    const QStringList none{u"debug: PositionDaemon::removePrestartClient"_s,
                           u"warning: PositionDaemon::removePrestartClient: No prestart client to stop"_s};
    QCOMPARE(stage.log.takeLines(), none);
}

void TestDaemonSessions::aSatelliteClientRunsOnTheEngine()
{
    DaemonStage stage;
    stage.startReady();
    const int id = addSilent(stage);
    stage.log.takeLines();
    stage.daemon->configRequest(id, SetMethod | SetInterval | Start, Satellite, 5000);
    QCOMPARE(stage.requests(), QStringList{u"start 6000 5 mode 2"_s});
    const QStringList plan{
        u"debug: assignClients"_s,
        u"debug: stopSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0"_s,
        u"debug: modifySessions: client: id=6000, modified=1, interval=5, actGNSS=0, actSUPL=0"_s,
        u"debug: startSessions: client: id=6000, stopped=0, methods=0xff, actGNSS=0, actSUPL=0"_s};
    QCOMPARE(stage.logged({u"debug: assign"_s, u"debug: stopS"_s, u"debug: modify"_s, u"debug: startS"_s}),
             plan);

    stage.daemon->configRequest(id, SetInterval, 0, 7000);
    QCOMPARE(stage.requests(), QStringList{u"interval 6000 7"_s});
    stage.daemon->configRequest(id, Stop, 0, 0);
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
    stage.daemon->configRequest(id, Stop, 0, 0);
    QCOMPARE(stage.requests(), QStringList());

    QVERIFY(DaemonStage::set(u"NetworkConnectivity"_s, false));
    stage.daemon->configRequest(id, Start, 0, 0);
    QCOMPARE(stage.requests(), QStringList{u"start 6000 7 mode 1"_s});
    QVERIFY(DaemonStage::set(u"SatellitePositioning"_s, false));
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
}

void TestDaemonSessions::nothingReachesAnEngineThatIsNotReady()
{
    FakeClient client;
    DaemonStage stage;
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    const int id = add(stage, client);
    stage.daemon->configRequest(id, SetMethod | Start, Satellite, 1000);
    QCOMPARE(stage.requests(), QStringList());
    stage.daemon->allowOrvClients();
    QCOMPARE(stage.requests().last(), u"start 6000 1 mode 2"_s);
}

void TestDaemonSessions::aClientWithoutMethodsIsToldAtEachPlan()
{
    FakeClient client;
    FakeClient watcher; // wants satellite information: not told
    DaemonStage stage;
    stage.startReady();
    QVERIFY(DaemonStage::set(u"SatellitePositioning"_s, false));
    stage.log.takeLines();
    stage.daemon->configRequest(add(stage, client), SetMethod | Start, Satellite, 1000);
    QTRY_COMPARE(client.callCount(), 1);
    QCOMPARE(stage.logged({u"debug: Could"_s}),
             QStringList{u"debug: Could not find any available location methods"_s});
    QVERIFY(qIsNaN(latitudes(client).constFirst()));

    stage.daemon->configRequest(add(stage, watcher), SatInfoStart | SetMethod | Start, Satellite, 1000);
    QTRY_COMPARE(client.callCount(), 1); // planned again, and told again
    watcher.settle();
    QCOMPARE(watcher.callCount(), 0);
}

void TestDaemonSessions::aNetworkClientRidesOnTheFixWhileItLasts()
{
    DaemonStage stage;
    stage.startReady();
    const int satellite = addSilent(stage);
    stage.daemon->configRequest(satellite, SetMethod | Start, Satellite, 1000);
    const int network = addSilent(stage);
    const auto plannedFor = [&stage](const QString &operation) {
        return stage.logged({u"debug: %1: client: id=6001"_s.arg(operation)});
    };
    stage.daemon->onGNSSStateUpdated(ORVComm::Tracking);
    stage.requests();
    stage.log.takeLines();
    stage.daemon->configRequest(network, SetMethod | Start, NonSatellite, 1000);
    QCOMPARE(stage.requests(), QStringList{u"start 6001 1 mode 2"_s});
    QCOMPARE(plannedFor(u"startSessions"_s),
             QStringList{
                 u"debug: startSessions: client: id=6001, stopped=0, methods=0xff, actGNSS=0, actSUPL=0"_s});

    // The fix is lost: back to the network, enrolled.
    stage.daemon->onGNSSStateUpdated(ORVComm::Search);
    QCOMPARE(stage.requests(), QStringList{u"stop 6001"_s});
    QCOMPARE(
        plannedFor(u"startSessions"_s),
        QStringList{
            u"debug: startSessions: client: id=6001, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0"_s});
    stage.daemon->onGNSSStateUpdated(ORVComm::Idle);
    const QStringList idle = stage.logged({u"debug: GNSS"_s, u"debug: stopSessions: client: id=6001"_s});
    const QStringList expected{
        u"debug: GNSS mode: Idle"_s,
        u"debug: stopSessions: client: id=6001, stopped=0, methods=0xff, actGNSS=0, actSUPL=1"_s};
    QCOMPARE(idle, expected);
}

void TestDaemonSessions::disabledPositioningIsLogged()
{
    DaemonStage stage;
    stage.startReady();
    const int id = addSilent(stage);
    stage.daemon->configRequest(id, SetMethod | Start, Satellite, 1000);
    stage.requests();
    QVERIFY(DaemonStage::set(u"Positioning"_s, false));
    QVERIFY(stage.log.takeLines().contains(u"debug: Positioning has been disabled. No available method."_s));
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
    QCOMPARE(stage.daemon->supportedMethods(), 0U);
    QVERIFY(DaemonStage::set(u"Positioning"_s, true));
    QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});
    QCOMPARE(stage.daemon->supportedMethods(), 0xffffffffU);
}

void TestDaemonSessions::switchingTheReceiverEndsItsSessions()
{
    DaemonStage stage;
    stage.startReady();
    for (int i = 0; i < 2; ++i)
        stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    stage.requests();
    stage.log.takeLines();

    QVERIFY(DaemonStage::set(u"SatellitePositioningInternal"_s, false));
    QCOMPARE(stage.requests(), (QStringList{u"stop 6000"_s, u"stop 6001"_s}));
    // One plan, after both sessions have ended; the idle engine starts none of its own. Without an
    // address there is nothing to start.
    QCOMPARE(stage.logged({u"debug: assignClients"_s, u"debug: GNSS mode"_s, u"debug: Could not find"_s}),
             (QStringList{u"debug: GNSS mode: Idle"_s, u"debug: assignClients"_s,
                          u"debug: Could not find any available location methods"_s,
                          u"debug: Could not find any available location methods"_s}));
    QVERIFY(DaemonStage::set(u"SatellitePositioningInternal"_s, false)); // no change
    QCOMPARE(stage.requests(), QStringList());

    QVERIFY(DaemonStage::set(u"SatellitePositioningInternal"_s, true));
    QCOMPARE(stage.requests(), (QStringList{u"start 6000 1 mode 2"_s, u"start 6001 1 mode 2"_s}));
}

void TestDaemonSessions::aLostEngineComesBack()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});
    stage.engine->drop();
    QTRY_COMPARE(stage.engine->connections(), 2);
    // The session is not started before the engine has had its time.
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    stage.daemon->configRequest(6000, SetInterval, 0, 2000);
    QCOMPARE(stage.requests(), QStringList());
    const QStringList later = stage.awaitRequests(2);
    QVERIFY(later.constFirst().startsWith("supl"_L1));
    QCOMPARE(later.constLast(), u"start 6000 2 mode 2"_s);
}

void TestDaemonSessions::aLostEngineEndsNetworkPositionsOnlyWhenItServesThem_data()
{
    QTest::addColumn<QByteArray>("suplForced");
    QTest::addColumn<QString>("planned");

    QTest::newRow("the library goes on without it")
        << QByteArray("false") << u"stopped=0, methods=0xff, actGNSS=0, actSUPL=1"_s;
    QTest::newRow("SUPL goes with it")
        << QByteArray("true") << u"stopped=0, methods=0xffffffff, actGNSS=0, actSUPL=0"_s;
}

void TestDaemonSessions::aLostEngineEndsNetworkPositionsOnlyWhenItServesThem()
{
    QFETCH(QByteArray, suplForced);
    QFETCH(QString, planned);
    DaemonStage stage;
    stage.setDefault("SuplForced=" + suplForced);
    stage.startReady();
    const int id = addSilent(stage);
    stage.daemon->configRequest(id, SetMethod | Start, NonSatellite, 1000);
    stage.daemon->onOrvDisconnected();
    stage.log.takeLines();
    stage.daemon->configRequest(id, 0, 0, 0);
    QCOMPARE(stage.logged({u"debug: stopSessions"_s}),
             QStringList{u"debug: stopSessions: client: id=6000, "_s + planned});
}

void TestDaemonSessions::anEngineLostBeforeItIsReadyIsNotAskedEarly()
{
    DaemonStage stage;
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    stage.engine->drop(); // half a second was not over: that timer must not fire any more
    const QStringList later = stage.awaitRequests(3);
    QCOMPARE(later.constFirst(), u"privacy"_s);
    QCOMPARE(later.constLast(), u"start 6000 1 mode 2"_s);
    QCOMPARE(stage.logged({u"debug: Primary SUPL server"_s}).size(), 1);
}

// What is still connected then is not to be trusted with requests.
void TestDaemonSessions::aFailedAttemptCallsOffWhatWasPending()
{
    DaemonStage stage;
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    const QString socket = stage.tree.at(u"/var/run/orvd/orvd.socket"_s);
    QVERIFY(QFile::rename(socket, socket + u".away"_s));
    stage.daemon->reconnectOrv(); // within the half second that the engine has
    QVERIFY(stage.log.takeLines().contains(u"debug: lodestard: Trying to reconnect after 2 s"_s));
    QVERIFY(QFile::rename(socket + u".away"_s, socket));
    // The next attempt comes in 2.5 s; nothing was sent before, and the settings once, a second after it.
    QCOMPARE(stage.awaitRequests(1), QStringList{u"privacy"_s});
    QVERIFY(stage.awaitRequests(1).constFirst().startsWith("supl"_L1));
    QCOMPARE(stage.logged({u"debug: Primary SUPL server"_s}).size(), 1);
}

void TestDaemonSessions::oneLossAfterAnotherLeadsToOneAttempt()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->onOrvDisconnected();
    stage.daemon->onOrvDisconnected();
    // The settings go out a second after the attempts, of which a second one would come half a second
    // after the loss as well.
    QVERIFY(stage.awaitRequests(2).constLast().startsWith("supl"_L1));
    QCOMPARE(stage.engine->connections(), 2);
}

void TestDaemonSessions::removingAClientSendsNothing()
{
    DaemonStage stage;
    auto client = std::make_unique<FakeClient>();
    stage.startReady();
    const int id = add(stage, *client);
    stage.daemon->configRequest(id, SetMethod | Start, Satellite, 1000);
    stage.requests();
    stage.log.takeLines();
    client.reset();
    const QStringList expected{u"debug: onClientDisconnected: Remove client  6000"_s,
                               u"debug: PositionDaemon: Removing client with id: 6000"_s};
    QStringList lines;
    QTRY_VERIFY((lines += stage.logged({u"debug: onClient"_s, u"debug: PositionDaemon"_s})).size() >= 2);
    QCOMPARE(lines, expected);
    QVERIFY(DaemonStage::set(u"Positioning"_s, false));
    QCOMPARE(stage.requests(), QStringList());
}

PRIVATE_BUS_TEST_MAIN(TestDaemonSessions)
#include "tst_daemonsessions.moc"
