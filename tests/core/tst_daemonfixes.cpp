#include "client/fakeclient.h"
#include "core/daemonstage.h"
#include "support/privatebus.h"

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

QGeoPositionInfo fixAt(double latitude, int second = 0)
{
    return QGeoPositionInfo(QGeoCoordinate(latitude, 24.94),
                            QDateTime(QDate(2024, 3, 1), QTime(12, 0, second)));
}

QStringList members(FakeClient &client)
{
    QStringList names;
    const auto calls = client.takeCalls();
    for (const QDBusMessage &call : calls)
        names << call.member();
    return names;
}

} // namespace

class TestDaemonFixes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void aFixReachesItsClientAndIsKept();
    void disabledSatellitesReachNobodyAndAreKept();
    void freeFixClientsGetNewPositionsOnly();
    void aFreeFixClientMustBeStopped();
    void networkFixesServeFreeFixClients();
    void anUnknownSessionIsReported();
    void aTimeOutSendsAnEmptyFix();
    void satelliteListsGoToThoseWhoWantThem();
    void theLatestPositionIsTheNewer();
};

void TestDaemonFixes::aFixReachesItsClientAndIsKept()
{
    FakeClient client;
    DaemonStage stage;
    stage.startReady();
    const int id = add(stage, client);
    stage.daemon->configRequest(id, SetMethod | Start, Satellite, 1000);
    stage.log.takeLines();

    // From the engine's packet to the client's callback
    engineside::ReportWriter report(GnssNotification{.sessionId = 6000, .status = 0x41});
    PositionBlock block;
    block.latitude = qint32(60.0 / 360.0 * 4294967296.0);
    QVERIFY(report.add(block));
    QVERIFY(stage.engine->send(report.bytes()));
    QTRY_COMPARE(client.callCount(), 1);
    QVERIFY(stage.log.takeLines().contains(u"debug: Sending GNSS fix to ClientId: 6000"_s));
    QVERIFY(qAbs(latitudes(client).constFirst() - 60.0) < 1e-6);
    QVERIFY(qAbs(stage.daemon->latestPosition(true).coordinate().latitude() - 60.0) < 1e-6);

    // A stopped client gets nothing, but the fix is kept.
    stage.daemon->configRequest(id, Stop, 0, 0);
    QGeoPositionInfo fix = fixAt(61.0);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QCOMPARE(stage.daemon->latestPosition(true).coordinate().latitude(), 61.0);
    stage.daemon->configRequest(id, Start, 0, 0);
    fix = fixAt(62.0);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QTRY_COMPARE(client.callCount(), 1);
    QCOMPARE(latitudes(client), QList<double>{62.0});
}

void TestDaemonFixes::disabledSatellitesReachNobodyAndAreKept()
{
    FakeClient client;
    DaemonStage stage;
    stage.setDefault("SatellitePositioning=false");
    stage.startReady();
    stage.daemon->configRequest(add(stage, client), SetMethod | Start, All, 1000);
    stage.log.takeLines();
    QGeoPositionInfo fix = fixAt(60.0); // still on its way when satellites were switched off
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QCOMPARE(stage.log.takeLines(), QStringList());
    QCOMPARE(stage.daemon->latestPosition(true).coordinate().latitude(), 60.0);
}

void TestDaemonFixes::freeFixClientsGetNewPositionsOnly()
{
    FakeClient owner;
    FakeClient free;
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(add(stage, owner), SetMethod | Start, Satellite, 1000);
    stage.daemon->configRequest(add(stage, free), SetMethod | SetInterval, All, FreeFixMs);
    stage.log.takeLines();

    QGeoPositionInfo first = fixAt(60.0, 0), again = fixAt(60.0, 1), moved = fixAt(60.1, 2);
    for (QGeoPositionInfo *fix : {&first, &again, &moved})
        stage.daemon->onPositionUpdateGNSS(6000, *fix);
    QTRY_COMPARE(owner.callCount(), 3);
    QTRY_COMPARE(free.callCount(), 2);
    QCOMPARE(latitudes(owner), (QList<double>{60.0, 60.0, 60.1}));
    QCOMPARE(latitudes(free), (QList<double>{60.0, 60.1}));
    QCOMPARE(stage.daemon->latestPosition(true).timestamp(), moved.timestamp());
    const QString line =
        u"debug: PositionDaemon::onPositionUpdateGNSS: Sending GNSS fix to free fix client"_s;
    QCOMPARE(stage.logged({u"debug: PositionDaemon"_s}), (QStringList{line, line}));
}

void TestDaemonFixes::aFreeFixClientMustBeStopped()
{
    FakeClient free;
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    const int id = add(stage, free);
    stage.daemon->configRequest(id, SetMethod | SetInterval | Start, Satellite, FreeFixMs);
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    stage.daemon->configRequest(id, Stop, 0, 0);
    fix = fixAt(61.0);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QTRY_COMPARE(free.callCount(), 1);
    QCOMPARE(latitudes(free), QList<double>{61.0}); // and not 60
}

void TestDaemonFixes::networkFixesServeFreeFixClients()
{
    FakeClient network;
    FakeClient satellite;
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(add(stage, network), SetMethod | SetInterval, NonSatellite, FreeFixMs);
    stage.daemon->configRequest(add(stage, satellite), SetMethod | SetInterval, Satellite, FreeFixMs);
    stage.log.takeLines();
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateSUPL(fix);
    QTRY_COMPARE(network.callCount(), 1);
    QCOMPARE(latitudes(network), QList<double>{60.0});
    satellite.settle();
    QCOMPARE(satellite.callCount(), 0);
    const QStringList expected{
        u"debug: PositionDaemon::onPositionUpdateSUPL"_s,
        u"debug: PositionDaemon::onPositionUpdateSUPL: Sending SUPL fix to free fix client"_s};
    QCOMPARE(stage.logged({u"debug: PositionDaemon::onPosition"_s}), expected);
    QCOMPARE(stage.daemon->latestPosition(false).coordinate().latitude(), 60.0);
    QVERIFY(!stage.daemon->latestPosition(true).isValid());
}

void TestDaemonFixes::anUnknownSessionIsReported()
{
    DaemonStage stage;
    stage.startReady();
    QGeoPositionInfo fix = fixAt(60.0);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QCOMPARE(
        stage.log.takeLines(),
        QStringList{u"critical: PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV."_s});
    QVERIFY(!stage.daemon->latestPosition(true).isValid());
    stage.daemon->onUpdateTimeoutGNSS(6000);
    QCOMPARE(
        stage.log.takeLines(),
        QStringList{u"critical: PositionDaemon::onUpdateTimeoutGNSS: Invalid GNSS session id from ORV."_s});
}

void TestDaemonFixes::aTimeOutSendsAnEmptyFix()
{
    FakeClient client;
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(add(stage, client), SetMethod | Start, Satellite, 1000);
    stage.daemon->onUpdateTimeoutGNSS(6000);
    QTRY_COMPARE(client.callCount(), 1);
    QVERIFY(qIsNaN(latitudes(client).constFirst()));
}

void TestDaemonFixes::satelliteListsGoToThoseWhoWantThem()
{
    FakeClient curious;
    FakeClient other;
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(add(stage, curious), SatInfoStart, 0, 0);
    add(stage, other);
    QGeoSatelliteInfo satellite;
    satellite.setSatelliteIdentifier(7);
    QList<QGeoSatelliteInfo> satellites{satellite};
    stage.daemon->onSatellitesInView(satellites);
    stage.daemon->onSatellitesInUse(satellites);
    QCOMPARE(members(curious), (QStringList{u"satellitesInViewUpdate"_s, u"satellitesInUseUpdate"_s}));
    other.settle();
    QCOMPARE(other.callCount(), 0);
}

void TestDaemonFixes::theLatestPositionIsTheNewer()
{
    DaemonStage stage;
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QGeoPositionInfo fix = fixAt(60.0, 10);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QCOMPARE(stage.daemon->latestPosition(false).coordinate().latitude(), 60.0);
    fix = fixAt(61.0, 11);
    stage.daemon->onPositionUpdateSUPL(fix);
    QCOMPARE(stage.daemon->latestPosition(false).coordinate().latitude(), 61.0);
    QCOMPARE(stage.daemon->latestPosition(true).coordinate().latitude(), 60.0);
    QCOMPARE(stage.daemon->minimumInterval(), 1000U);
}

PRIVATE_BUS_TEST_MAIN(TestDaemonFixes)
#include "tst_daemonfixes.moc"
