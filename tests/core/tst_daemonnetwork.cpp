#include "client/fakeclient.h"
#include "core/daemonstage.h"
#include "support/fakegeoclue.h"
#include "support/privatebus.h"

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

QGeoPositionInfo fixAt(double latitude)
{
    QGeoPositionInfo fix(QGeoCoordinate(latitude, 24.94), QDateTime(QDate(2024, 3, 1), QTime(12, 0)));
    fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, 300.0F); // without it no fix is a repeat
    return fix;
}

constexpr int StartWith = SetMethod | SetInterval | Start;
const QString asking = u"debug: PositionDaemon: Sending SUPL Location request to ORV."_s;
const QString taking = u"debug: PositionDaemon::onPositionUpdateSUPL"_s;

// What the daemon says of network positions.
QStringList said(DaemonStage &stage)
{
    return stage.logged({u"debug: PositionDaemon: Sending"_s, u"debug: PositionDaemon::onPositionUpdateS"_s,
                         u"debug: Sending"_s, u"critical"_s});
}

// Network positions through the engine, and an engine that is ready.
void startWithSupl(DaemonStage &stage)
{
    stage.setDefault("SuplForced=true");
    stage.startReady();
}

} // namespace

class TestDaemonNetwork : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void aNetworkClientIsAskedForWhenItStarts();
    void thePositionGoesToWhoWaitsForIt();
    void aPositionFromTheEngineReachesItsClient();
    void aReceiverThatLeftIsReported();
    void aStoppedClientIsTakenOut();
    void aNewIntervalReachesTheScheduler();
    void anAnsweredBatchIsAskedForAgain();
    void anEmptyAnswerIsHandedOnToo();
    void anEngineThatIsLostAnswersWithNothing();
    void nobodyWaitsForAnEngineThatIsNotThere();
    void anEngineThatIsNotReadyYetIsNotAsked();
    void theLibraryIsAskedWhenItIsInUse();
    void whatTheEngineIsAskedIsNotAskedAgain();
    void whatWasAnsweredIsNotAskedAgain();
    void withoutInternalReceiverNobodyIsAsked();
    void aRadioThatIsBackIsUsedAtOnce();
};

void TestDaemonNetwork::aNetworkClientIsAskedForWhenItStarts()
{
    DaemonStage stage;
    startWithSupl(stage);
    const int id = addSilent(stage);
    stage.log.takeLines();
    stage.daemon->configRequest(id, StartWith, NonSatellite, 5000);
    QCOMPARE(stage.requests(), QStringList{u"locate 1 20"_s});
    QCOMPARE(stage.logged({u"debug: Scheduler::addClient"_s, u"debug: PositionDaemon: "_s}),
             (QStringList{u"debug: Scheduler::addClient: id: 6000, interval: 5"_s, asking}));
    stage.daemon->configRequest(id, Start, 0, 0); // runs already
    QCOMPARE(stage.requests(), QStringList());

    // A second one joins the batch: one request serves both.
    stage.daemon->configRequest(addSilent(stage), StartWith, All, 1000);
    QCOMPARE(stage.requests(), QStringList{u"start 6001 1 mode 2"_s});
}

void TestDaemonNetwork::thePositionGoesToWhoWaitsForIt()
{
    FakeClient first;
    FakeClient second;
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->configRequest(add(stage, first), StartWith, NonSatellite, 60000);
    stage.log.takeLines();
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    QCOMPARE(said(stage), (QStringList{taking, u"debug: Sending update to ClientId:  6000"_s}));

    // The first one is not due; a fix that it knows would be withheld from it anyway, not from the other.
    stage.daemon->configRequest(add(stage, second), StartWith, NonSatellite, 60000);
    stage.log.takeLines();
    stage.daemon->onPositionUpdateSUPL(fix);
    QCOMPARE(said(stage), (QStringList{taking, u"debug: Sending update to ClientId:  6001"_s}));
    stage.daemon->onPositionUpdateSUPL(fix); // once more: nobody is told twice
    fix = fixAt(61.0);
    stage.daemon->onPositionUpdateSUPL(fix); // the same receivers, until the next step
    QTRY_COMPARE(second.callCount(), 2);
    first.settle();
    QCOMPARE(latitudes(second), (QList<double>{60.0, 61.0}));
    QCOMPARE(latitudes(first), QList<double>{60.0});
    QCOMPARE(stage.daemon->latestPosition(false).coordinate().latitude(), 61.0);
}

void TestDaemonNetwork::aPositionFromTheEngineReachesItsClient()
{
    FakeClient client;
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->configRequest(add(stage, client), StartWith, NonSatellite, 60000);
    stage.log.takeLines();
    engineside::ReportWriter report(SuplResponse{});
    PositionBlock block;
    block.latitude = qint32(60.0 / 360.0 * 4294967296.0);
    QVERIFY(report.add(block));
    QVERIFY(stage.engine->send(report.bytes()));
    QTRY_COMPARE(client.callCount(), 1);
    QVERIFY(qAbs(latitudes(client).constFirst() - 60.0) < 1e-6);
    // A network fix, as the client's proxy sees it
    QCOMPARE(stage.logged({u"debug: ClientApp::sendPositionUpdate: clientId=6000, type=1"_s}).size(), 1);
}

void TestDaemonNetwork::aReceiverThatLeftIsReported()
{
    FakeClient staying;
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    stage.daemon->configRequest(add(stage, staying), StartWith, NonSatellite, 60000);
    stage.daemon->onClientDisconnected(6000);
    stage.log.takeLines();
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    QCOMPARE(said(stage), (QStringList{taking, u"debug: Sending update to ClientId:  6000"_s,
                                       u"critical: onPositionUpdateSUPL: Invalid client in receiver list."_s,
                                       u"debug: Sending update to ClientId:  6001"_s}));
    QTRY_COMPARE(staying.callCount(), 1);
}

void TestDaemonNetwork::aStoppedClientIsTakenOut()
{
    DaemonStage stage;
    startWithSupl(stage);
    const int id = addSilent(stage);
    stage.daemon->configRequest(id, StartWith, NonSatellite, 60000);
    stage.log.takeLines();
    stage.daemon->configRequest(id, Stop, 0, 0);
    QCOMPARE(stage.logged({u"debug: Scheduler::remove"_s, u"debug: Removed"_s}),
             (QStringList{u"debug: Scheduler::removeClient: id: 6000"_s, u"debug: Removed index:  0"_s}));
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix); // the answer comes too late
    QCOMPARE(said(stage), QStringList{taking});

    stage.daemon->configRequest(id, Start, 0, 0);
    QCOMPARE(stage.requests(), (QStringList{u"locate 1 20"_s, u"locate 2 20"_s}));
}

void TestDaemonNetwork::aNewIntervalReachesTheScheduler()
{
    DaemonStage stage;
    startWithSupl(stage);
    const int id = addSilent(stage);
    stage.daemon->configRequest(id, StartWith, NonSatellite, 60000);
    stage.log.takeLines();
    stage.daemon->configRequest(id, SetInterval, 0, 20000);
    QCOMPARE(stage.logged({u"debug: Scheduler::setClient"_s}),
             QStringList{u"debug: Scheduler::setClientInterval: id: 6000, interval: 20"_s});
    stage.daemon->configRequest(id, Stop, 0, 0);
    stage.log.takeLines();
    stage.daemon->configRequest(id, SetInterval, 0, 30000); // it does not run
    QCOMPARE(stage.logged({u"debug: Scheduler"_s}), QStringList());
}

void TestDaemonNetwork::anAnsweredBatchIsAskedForAgain()
{
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 1000);
    for (const QString &request : {u"locate 1 20"_s, u"locate 2 20"_s, u"locate 3 20"_s}) {
        QCOMPARE(stage.awaitRequests(1), QStringList{request});
        QGeoPositionInfo fix = fixAt(60.0);
        stage.daemon->onPositionUpdateSUPL(fix);
    }
}

void TestDaemonNetwork::anEmptyAnswerIsHandedOnToo()
{
    FakeClient client;
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->configRequest(add(stage, client), StartWith, NonSatellite, 60000);
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    QTRY_COMPARE(client.callCount(), 1);
    QGeoPositionInfo nowhere;
    stage.daemon->onPositionUpdateSUPL(nowhere);
    QTRY_COMPARE(client.callCount(), 2);
    QVERIFY(qIsNaN(latitudes(client).constLast()));
    QVERIFY(!stage.daemon->latestPosition(false).isValid());
}

void TestDaemonNetwork::anEngineThatIsLostAnswersWithNothing()
{
    FakeClient client;
    FakeClient free;
    DaemonStage stage;
    startWithSupl(stage);
    const int gone = addSilent(stage);
    stage.daemon->configRequest(gone, StartWith, NonSatellite, 60000);
    stage.daemon->configRequest(add(stage, client), StartWith, NonSatellite, 60000);
    stage.daemon->configRequest(add(stage, free), SetMethod | SetInterval, NonSatellite, FreeFixMs);
    stage.daemon->onClientDisconnected(gone); // stays in the scheduler and in the batch
    QCOMPARE(stage.requests(), QStringList{u"locate 1 20"_s});
    stage.log.takeLines();

    stage.engine->drop();
    QTRY_COMPARE(stage.engine->connections(), 2);
    QCOMPARE(said(stage), (QStringList{taking, u"debug: Sending update to ClientId:  6000"_s,
                                       u"critical: onPositionUpdateSUPL: Invalid client in receiver list."_s,
                                       taking + u": Sending SUPL fix to free fix client"_s}));
    QTRY_COMPARE(free.callCount(), 1);
    QVERIFY(qIsNaN(latitudes(free).constFirst()));

    // Enrolled anew when the engine is ready, and asked for, though nobody answered for the other.
    QCOMPARE(stage.awaitRequests(3).constLast(), u"locate 1 20"_s);
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    QTRY_COMPARE(client.callCount(), 1);
    QCOMPARE(latitudes(client), QList<double>{60.0});

    // Nothing is awaited: nothing is made up.
    stage.log.takeLines();
    stage.daemon->onOrvDisconnected();
    QCOMPARE(said(stage), QStringList());
}

void TestDaemonNetwork::nobodyWaitsForAnEngineThatIsNotThere()
{
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 1000);
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    stage.daemon->onClientDisconnected(6000); // its row stays and falls due for ever
    stage.engine.reset();
    stage.log.takeLines();
    QStringList lines;
    QTRY_VERIFY((lines += said(stage)).size() >= 8);
    const QStringList round{asking, taking, u"debug: Sending update to ClientId:  6000"_s,
                            u"critical: onPositionUpdateSUPL: Invalid client in receiver list."_s};
    QCOMPARE(lines.last(8), round + round);
}

// An application that left may fall due within the second that a new engine has to get ready.
void TestDaemonNetwork::anEngineThatIsNotReadyYetIsNotAsked()
{
    DaemonStage stage;
    startWithSupl(stage);
    stage.daemon->onOrvDisconnected();
    stage.daemon->requestPositionSUPL();
    QCOMPARE(said(stage), (QStringList{asking, taking}));
    QCOMPARE(stage.requests(), QStringList());
    stage.daemon->allowOrvClients();
    stage.daemon->requestPositionSUPL();
    QCOMPARE(stage.requests().constLast(), u"locate 1 20"_s);
}

void TestDaemonNetwork::theLibraryIsAskedWhenItIsInUse()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    QVERIFY(stage.log.takeLines().contains(
        u"debug: PositionDaemon: Sending Network Location request to VESK."_s));
    QCOMPARE(stage.requests(), QStringList());
}

// The library refused the second batch, since it still worked for the first. What it then did not know,
// the engine was asked for, and a change of a setting is no reason to ask anybody once more.
void TestDaemonNetwork::whatTheEngineIsAskedIsNotAskedAgain()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    stage.log.takeLines();
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    QCOMPARE(stage.logged({u"warning"_s}),
             QStringList{u"warning: VESKComm::requestPositionVESK request failed, err: -2101"_s});
    QCOMPARE(stage.awaitRequests(1), QStringList{u"locate 1 20"_s});
    stage.log.takeLines();
    QVERIFY(DaemonStage::set(u"SuplForced"_s, true));
    QVERIFY(DaemonStage::set(u"SuplForced"_s, false));
    QCOMPARE(said(stage), QStringList());
    QCOMPARE(stage.requests(), QStringList());
}

// The refused batch went with the outstanding request's answer.
void TestDaemonNetwork::whatWasAnsweredIsNotAskedAgain()
{
    const FakeGeoClue geoclue; // finds nothing, and takes its time
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    QCOMPARE(stage.logged({u"warning"_s}),
             QStringList{u"warning: VESKComm::requestPositionVESK request failed, err: -2101"_s});
    stage.daemon->onPositionUpdateSUPL(fix);
    stage.log.takeLines();
    QVERIFY(DaemonStage::set(u"NetworkConnectivity"_s, false));
    QCOMPARE(said(stage), QStringList());
}

void TestDaemonNetwork::withoutInternalReceiverNobodyIsAsked()
{
    const FakeGeoClue geoclue; // finds nothing, and takes its time
    DaemonStage stage;
    QVERIFY(stage.tree.write(u"/etc/lodestard/sysinfo/certs/ccc/pp/internal-gps-raw"_s, QByteArray(1, '\0')));
    QCOMPARE(stage.start(), 0);
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    stage.daemon->onClientDisconnected(6000); // stays in a batch that waits for the library
    QVERIFY(DaemonStage::set(u"SuplForced"_s, true));
    stage.log.takeLines();
    stage.daemon->requestPositionSUPL();
    QCOMPARE(stage.log.takeLines(), QStringList());

    // Who is not answered does not keep others from being asked for.
    QVERIFY(DaemonStage::set(u"SuplForced"_s, false));
    stage.log.takeLines();
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 60000);
    QCOMPARE(said(stage), QStringList{u"debug: PositionDaemon: Sending Network Location request to VESK."_s});
}

// An application that left falls due while both radios are off: nobody can be asked, and its batch keeps
// every later one from being asked for.
void TestDaemonNetwork::aRadioThatIsBackIsUsedAtOnce()
{
    DaemonStage stage;
    stage.setDefault("SuplFallback=false");
    stage.setDefault("WiFiPositioning=false");
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), StartWith, NonSatellite, 1000);
    stage.daemon->onClientDisconnected(6000);
    QVERIFY(DaemonStage::set(u"CellularPositioning"_s, false));
    const QString inVain =
        u"debug: VESKComm::requestPositionVESK wifi: 0, cellular: 0, gprs: 1, timeout: 20"_s;
    QVERIFY(QTest::qWaitFor([&] { return stage.log.takeLines().contains(inVain); }));

    QVERIFY(DaemonStage::set(u"NetworkConnectivity"_s, false)); // locates nobody
    QCOMPARE(said(stage), QStringList());
    QVERIFY(DaemonStage::set(u"WiFiPositioning"_s, true));
    QCOMPARE(stage.logged({u"debug: VESKComm"_s}).value(0),
             u"debug: VESKComm::requestPositionVESK wifi: 1, cellular: 0, gprs: 0, timeout: 20"_s);
}

PRIVATE_BUS_TEST_MAIN(TestDaemonNetwork)
#include "tst_daemonnetwork.moc"
