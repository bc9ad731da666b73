#include "core/daemonstage.h"
#include "support/fakescreensaver.h"
#include "support/privatebus.h"

#include <QRegularExpression>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

// Power save without its timers: a round ends when the test says so.
class TestDaemonPowerSave : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void roundsWithholdSatellites();
    void theScreenIsWatchedWhilePowerSaveNeedsIt();
    void aSearchUnderAKnownDarkScreenBeginsAtOnce();
    void theScreenPlansOnceInEveryCase();
    void anEngineThatComesBackIsAskedWhenTheRoundAllows();
    void whatResetsPowerSave();
    void networkClientsKeepTheirMethods();

private:
    static void searching(DaemonStage &stage) { stage.daemon->onGNSSStateUpdated(ORVComm::Search); }
    static int satelliteClient(DaemonStage &stage, int methods = Satellite)
    {
        const int id = addSilent(stage);
        stage.daemon->configRequest(id, Start | SetMethod | SetInterval, methods, 1000);
        return id;
    }
    // A search under a dark screen: round 1 runs.
    static void darkSearch(DaemonStage &stage)
    {
        satelliteClient(stage);
        QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});
        QTRY_VERIFY(
            stage.log.lines().contains(u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=1"_s));
        stage.log.takeLines();
    }
};

void TestDaemonPowerSave::roundsWithholdSatellites()
{
    const FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    DaemonStage stage;
    stage.startReady();
    darkSearch(stage);
    QCOMPARE(stage.requests(), QStringList()); // round 1 allows what runs already

    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
    QCOMPARE(stage.logged(
                 {u"debug: PositionDaemon::onPower"_s, u"debug: GNSS"_s, u"debug: PositionDaemon::dis"_s}),
             (QStringList{u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=2"_s,
                          u"debug: GNSS mode: Idle"_s})); // idle by our own doing: power save goes on
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});

    // Three satellites were heard: the next withheld round is delayed once, without a plan.
    stage.log.takeLines();
    const std::vector<SatelliteRecord> heard(3, SatelliteRecord{.number = 1, .used = 0, .cno = 16 * 30});
    engineside::ReportWriter report(GnssNotification{.sessionId = 6000, .status = 0x01});
    QVERIFY(report.addSatellites(heard));
    QVERIFY(stage.engine->send(report.bytes()));
    const QString arrived = u"debug: ORVComm::handleGNSSNotification() session id: 6000, status: 0x1"_s;
    QTRY_VERIFY(stage.log.lines().contains(arrived));
    stage.log.takeLines();
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.log.takeLines(),
             QStringList{u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=4"_s});
    QCOMPARE(stage.requests(), QStringList());
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
    // The count starts afresh with the next allowed round.
    stage.daemon->onPowerSaveTimeout();
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), (QStringList{u"start 6000 1 mode 2"_s, u"stop 6000"_s}));
}

void TestDaemonPowerSave::theScreenIsWatchedWhilePowerSaveNeedsIt()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, false);
    DaemonStage stage;
    stage.startReady();
    QCOMPARE(saver.calls(), QStringList());
    const int id = satelliteClient(stage);
    QTRY_VERIFY(stage.log.lines().contains(u"debug: PositionDaemon::onScreenBlanked screenBlanked=0"_s));
    QCOMPARE(saver.takeCalls(), QStringList{u"GetActive"_s});
    stage.requests();
    stage.log.takeLines();

    // Dark, light in a withheld round, dark again.
    saver.setActive(true);
    QTRY_VERIFY(stage.log.lines().contains(u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=1"_s));
    QTRY_VERIFY(stage.log.lines().contains(u"debug: assignClients"_s));
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
    saver.setActive(false);
    QCOMPARE(stage.awaitRequests(1), QStringList{u"start 6000 1 mode 2"_s});
    stage.log.takeLines();
    saver.setActive(true);
    QTRY_VERIFY(stage.log.lines().contains(u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=1"_s));

    // Over: the screen is let go later, unless power save is on again by then.
    stage.daemon->configRequest(id, Stop, 0, 0);
    stage.log.takeLines();
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.log.takeLines(),
             QStringList{u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=0"_s});
    stage.daemon->onPowerSaveContextUnsubscribe();
    QCOMPARE(stage.log.takeLines(), QStringList{u"debug: PositionDaemon::onPowerSaveContextUnsubscribe"_s});
    saver.setActive(false);
    QVERIFY(DaemonStage::set(u"VeskDisclaimerAccepted"_s, true)); // something later has happened
    QCOMPARE(stage.logged({u"debug: PositionDaemon::onScreen"_s}), QStringList());

    stage.daemon->configRequest(id, Start, 0, 0);
    stage.daemon->onPowerSaveContextUnsubscribe();
    saver.setActive(true);
    QTRY_VERIFY(stage.log.lines().contains(u"debug: PositionDaemon::onScreenBlanked screenBlanked=1"_s));
}

void TestDaemonPowerSave::aSearchUnderAKnownDarkScreenBeginsAtOnce()
{
    const FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    DaemonStage stage;
    stage.startReady();
    darkSearch(stage);
    stage.daemon->onGNSSStateUpdated(ORVComm::Tracking); // over, and the screen is watched on
    stage.log.takeLines();
    searching(stage);
    QCOMPARE(stage.logged({u"debug: PositionDaemon::enable"_s, u"debug: PositionDaemon::onPower"_s,
                           u"debug: assign"_s}),
             (QStringList{u"debug: PositionDaemon::enablePowerSave"_s,
                          u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=1"_s,
                          u"debug: assignClients"_s})); // one plan, the report's own
    QCOMPARE(stage.requests(), QStringList());
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
}

void TestDaemonPowerSave::theScreenPlansOnceInEveryCase()
{
    const QStringList kinds{u"debug: PositionDaemon::onScreen"_s, u"debug: PositionDaemon::onPower"_s,
                            u"debug: assign"_s};
    const QString dark = u"debug: PositionDaemon::onScreenBlanked screenBlanked=1"_s;
    const QString lit = u"debug: PositionDaemon::onScreenBlanked screenBlanked=0"_s;
    const QString round = u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=1"_s;
    const QString plan = u"debug: assignClients"_s;
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, false);
    DaemonStage stage;
    stage.startReady();
    satelliteClient(stage);
    stage.log.takeLines();
    const auto shows = [&](const QString &line) {
        return QTest::qWaitFor([&] { return stage.log.lines().contains(line); });
    };

    QVERIFY(shows(lit)); // while armed, too
    QCOMPARE(stage.logged(kinds), (QStringList{lit, plan}));
    saver.setActive(true);
    QVERIFY(shows(dark));
    QCOMPARE(stage.logged(kinds), (QStringList{dark, round, plan}));
    stage.daemon->onScreenBlanked(); // as dark as before
    QCOMPARE(stage.logged(kinds), QStringList{dark});
    saver.setActive(false);
    QVERIFY(shows(lit));
    QCOMPARE(stage.logged(kinds), (QStringList{lit, plan}));

    stage.daemon->onGNSSStateUpdated(ORVComm::Tracking); // off: the screen is only looked at
    stage.log.takeLines();
    for (const bool active : {true, false}) {
        saver.setActive(active);
        QVERIFY(shows(active ? dark : lit));
        QCOMPARE(stage.logged(kinds), QStringList{active ? dark : lit});
    }
}

void TestDaemonPowerSave::anEngineThatComesBackIsAskedWhenTheRoundAllows()
{
    const FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    DaemonStage stage;
    stage.startReady();
    darkSearch(stage);
    const QStringList kinds{u"debug: PositionDaemon::enable"_s, u"debug: PositionDaemon::disable"_s,
                            u"debug: PositionDaemon::onPower"_s, u"debug: PositionDaemon::reset"_s};
    // What the engine is asked when it is back, behind the greeting and the SUPL servers.
    const auto askedOnReturn = [&] {
        stage.log.takeLines();
        stage.engine->drop();
        const QStringList words = stage.awaitRequests(2);
        return words.value(0) == "privacy"_L1 && words.value(1).startsWith("supl"_L1)
                   ? words.sliced(2)
                   : QStringList{u"no greeting"_s};
    };

    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
    QCOMPARE(askedOnReturn(), QStringList());
    QCOMPARE(stage.logged(kinds), QStringList()); // the cycle goes on as if nothing had happened
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});

    QCOMPARE(askedOnReturn(), QStringList{u"start 6000 1 mode 2"_s}); // at once where they are allowed
    QCOMPARE(stage.logged(kinds), QStringList());
    stage.daemon->onPowerSaveTimeout();
    QCOMPARE(stage.requests(), QStringList{u"stop 6000"_s});
}

void TestDaemonPowerSave::whatResetsPowerSave()
{
    const FakeScreenSaver saver(FakeScreenSaver::Gnome, true);
    DaemonStage stage;
    stage.startReady();
    darkSearch(stage);
    const int network = addSilent(stage);
    const QString reset = u"debug: PositionDaemon::resetPowerSave"_s;
    const QString first = u"debug: PositionDaemon::onPowerSaveTimeout: powerSaveRound=1"_s;
    const QString plan = u"debug: assignClients"_s;
    // The engine may also be asked for the network client.
    const auto satelliteRequests = [&] {
        return stage.requests().filter(QRegularExpression(u"^(start|stop|interval) "_s));
    };
    const auto withhold = [&] {
        stage.daemon->onPowerSaveTimeout();
        QCOMPARE(satelliteRequests(), QStringList{u"stop 6000"_s});
        stage.log.takeLines();
    };

    withhold();
    stage.daemon->configRequest(network, SetMethod | Start, NonSatellite, 0); // nothing of satellites
    QCOMPARE(stage.logged({reset, first}), QStringList());
    QCOMPARE(satelliteRequests(), QStringList());
    stage.daemon->configRequest(6000, SetInterval, 0, 2000);
    QCOMPARE(stage.logged({reset, first, plan}), (QStringList{reset, first, plan})); // the request's own plan
    QCOMPARE(satelliteRequests(), QStringList{u"start 6000 2 mode 2"_s});

    for (const QString &key :
         {u"Positioning"_s, u"SatellitePositioning"_s, u"SatellitePositioningInternal"_s}) {
        withhold();
        QVERIFY(DaemonStage::set(key, true));
        // An answer to the network client may come meanwhile, and its lines before these.
        QStringList lines = stage.log.takeLines();
        while (!lines.isEmpty() && !lines.first().startsWith(u"debug: PositionDaemon::userSettingsChanged()"))
            lines.removeFirst();
        QVERIFY(lines.size() >= 4);
        QVERIFY(lines.at(1).startsWith(u"debug: PositionDaemon::contextSetState"));
        QCOMPARE(lines.sliced(2, 2), (QStringList{reset, first}));
        QCOMPARE(lines.count(plan), 1);
        QCOMPARE(satelliteRequests(), QStringList{u"start 6000 2 mode 2"_s});
    }
    withhold();
    QVERIFY(DaemonStage::set(u"WiFiPositioning"_s, true));
    QCOMPARE(stage.logged({reset, first}), QStringList());

    // Without a round there is nothing to begin again.
    stage.daemon->onPowerSaveTimeout();
    stage.daemon->onGNSSStateUpdated(ORVComm::Tracking);
    stage.log.takeLines();
    stage.daemon->configRequest(6000, SetInterval, 0, 3000);
    QCOMPARE(stage.logged({reset, first}), QStringList{reset});
}

void TestDaemonPowerSave::networkClientsKeepTheirMethods()
{
    const FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    DaemonStage stage;
    stage.startReady();
    darkSearch(stage);
    stage.daemon->onPowerSaveTimeout();
    stage.log.takeLines();
    satelliteClient(stage, NonSatellite);
    QVERIFY(stage.log.takeLines().contains(
        u"debug: startSessions: client: id=6001, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0"_s));
}

PRIVATE_BUS_TEST_MAIN(TestDaemonPowerSave)
#include "tst_daemonpowersave.moc"
