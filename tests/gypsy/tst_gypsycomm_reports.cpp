#include "engine/attributes.h"
#include "gypsy/gypsystage.h"
#include "support/leavebus.h"
#include "support/privatebus.h"

#include <limits>

using namespace Qt::StringLiterals;
using Info = QGeoPositionInfo;

namespace {

const QString &Path = GypsyStage::Path;
constexpr int Given = 1316608496; // a time stamp of Gypsy's

} // namespace

// Gypsy's signals, and what the sessions hear of them.
class TestGypsyReports : public QObject
{
    Q_OBJECT

private slots:
    void fixStatusesArePassedOnUnchanged();
    void aConnectionAsksForTheFixStatus();
    void aLostConnectionIsALostFix();
    void aLostConnectionWithoutSessions();
    void positionsReachEverySessionInOrder();
    void halfAPositionKeepsThePlaceAndSendsAgain();
    void aFixGrowsFromReportToReport();
    void stampsAreGypsysOrTheClocks();
    void anAccuracyKeepsTheStamp();
    void anInfiniteClimbIsLeftOut();
    void whatAReceiverLendsTheFixDoesNotStay();
    void aReceiverThatEndsTheNextSession();
    void reportsWithoutSessionsAreKept();
    void satelliteListsInViewComeFirst();
    void theLinesOfTheReports();
    void signalsOfAnyObjectOfGypsysCount();
    void signalsOfOthersDoNot();
    void reportsGoOnAfterTheShutdown();
};

void TestGypsyReports::fixStatusesArePassedOnUnchanged()
{
    GypsyStage stage;
    for (const int status : {1, 2, 3, 0, 7, -1})
        stage.gypsy->fixStatus(Path, status);
    stage.settle();
    QCOMPARE(stage.takeEvents(),
             QStringList({u"fix 1"_s, u"fix 2"_s, u"fix 3"_s, u"fix 0"_s, u"fix 7"_s, u"fix -1"_s}));
    QCOMPARE(stage.takeLines().first(2), QStringList({u"debug: GypsyComm::fixStatusChanged fix_status=1"_s,
                                                      u"debug: GypsyComm::fixStatusChanged fix_status=2"_s}));
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyReports::aConnectionAsksForTheFixStatus()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->setFixStatus(3);
    stage.gypsy->connectionStatus(Path, true);
    stage.settle();
    QCOMPARE(stage.takeCalls(), QStringList{u"GetFixStatus "_s + Path});
    QCOMPARE(stage.takeEvents(), QStringList({u"fix 3"_s, u"connection 0"_s}));
    QCOMPARE(stage.takeLines(), QStringList({
                                    u"debug: GypsyComm::connectionStatusChanged conn_status=1"_s,
                                    u"debug: GypsyComm::getFixStatus"_s,
                                    u"debug: GypsyComm::fixStatusChanged fix_status=3"_s,
                                }));
}

void TestGypsyReports::aLostConnectionIsALostFix()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->connectionStatus(Path, false);
    stage.settle();
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeEvents(), QStringList({u"fix 0"_s, u"connection 1"_s}));
    QCOMPARE(stage.takeLines(), QStringList({
                                    u"debug: GypsyComm::connectionStatusChanged conn_status=0"_s,
                                    u"debug: GypsyComm::fixStatusChanged fix_status=0"_s,
                                }));
}

void TestGypsyReports::aLostConnectionWithoutSessions()
{
    GypsyStage stage;
    stage.gypsy->connectionStatus(Path, false);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList({u"fix 0"_s, u"connection 1"_s}));
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyReports::positionsReachEverySessionInOrder()
{
    GypsyStage stage;
    for (const quint16 session : std::initializer_list<quint16>{7000, 6001, 65535, 6000})
        stage.start(session);
    stage.gypsy->position(Path, 7, Given, 60.25, 24.5, 30);
    stage.settle();
    QCOMPARE(stage.takeEvents(),
             QStringList({u"position 6000"_s, u"position 6001"_s, u"position 7000"_s, u"position 65535"_s}));
    QCOMPARE(stage.updates.size(), 4);
    for (const Info &update : stage.updates)
        QCOMPARE(update.coordinate(), QGeoCoordinate(60.25, 24.5, 30));
}

void TestGypsyReports::halfAPositionKeepsThePlaceAndSendsAgain()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->position(Path, 3, Given, 60.25, 24.5, 0);
    stage.gypsy->position(Path, 1, Given + 1, 61, 25, 0);
    stage.settle();
    QCOMPARE(stage.updates.size(), 2);
    QCOMPARE(stage.updates.at(1).coordinate(), QGeoCoordinate(60.25, 24.5));
    QCOMPARE(stage.updates.at(1).timestamp(), QDateTime::fromSecsSinceEpoch(Given + 1));
}

void TestGypsyReports::aFixGrowsFromReportToReport()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->course(Path, 3, Given, 10, 90, 0);
    stage.gypsy->accuracy(Path, 6, 0, 1.2, 2);
    stage.gypsy->position(Path, 3, Given, 60.25, 24.5, 0);
    stage.gypsy->course(Path, 2, Given, 10, 91, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents().size(), 4);
    QVERIFY(!stage.updates.at(0).coordinate().isValid());
    QCOMPARE(stage.updates.at(0).attribute(Info::GroundSpeed), double{float(10 * 1.852 / 3.6)});
    QVERIFY(!stage.updates.at(0).hasAttribute(Info::HorizontalAccuracy));
    QCOMPARE(stage.updates.at(1).attribute(Info::HorizontalAccuracy), 6.0);
    QVERIFY(stage.updates.at(1).hasAttribute(Info::GroundSpeed));
    QVERIFY(stage.updates.at(2).coordinate().isValid());
    QVERIFY(stage.updates.at(2).hasAttribute(Info::GroundSpeed));
    QVERIFY(stage.updates.at(3).coordinate().isValid());
    QVERIFY(!stage.updates.at(3).hasAttribute(Info::GroundSpeed));
    QCOMPARE(stage.updates.at(3).attribute(Info::Direction), 91.0);
    QCOMPARE(stage.updates.at(3).attribute(Info::VerticalAccuracy), 10.0);
}

void TestGypsyReports::stampsAreGypsysOrTheClocks()
{
    GypsyStage stage;
    stage.start();
    stage.clock.time = QDateTime(QDate(2026, 3, 7), QTime(10, 0, 0, 250));
    stage.gypsy->position(Path, 3, 0, 1, 2, 0);
    stage.gypsy->position(Path, 3, Given, 1, 2, 0);
    stage.gypsy->course(Path, 0, 0, 0, 0, 0);
    stage.gypsy->course(Path, 0, Given, 0, 0, 0);
    stage.settle();
    QCOMPARE(stage.updates.size(), 4);
    QCOMPARE(stage.updates.at(0).timestamp(), stage.clock.time);
    QCOMPARE(stage.updates.at(1).timestamp(), QDateTime::fromSecsSinceEpoch(Given));
    QCOMPARE(stage.updates.at(2).timestamp(), stage.clock.time);
    QCOMPARE(stage.updates.at(3).timestamp(), QDateTime::fromSecsSinceEpoch(Given));
}

void TestGypsyReports::anAccuracyKeepsTheStamp()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->accuracy(Path, 2, 0, 1, 0);
    stage.gypsy->position(Path, 3, Given, 1, 2, 0);
    stage.gypsy->accuracy(Path, 2, 0, 2, 0);
    stage.settle();
    QCOMPARE(stage.updates.size(), 3);
    QVERIFY(!stage.updates.at(0).timestamp().isValid());
    QCOMPARE(stage.updates.at(2).timestamp(), QDateTime::fromSecsSinceEpoch(Given));
    QCOMPARE(stage.updates.at(2).attribute(Info::HorizontalAccuracy), 10.0);
}

void TestGypsyReports::anInfiniteClimbIsLeftOut()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->course(Path, 7, Given, 0, 0, std::numeric_limits<double>::infinity());
    stage.settle();
    QCOMPARE(stage.updates.size(), 1);
    QVERIFY(!stage.updates.at(0).hasAttribute(Info::VerticalSpeed));
    QCOMPARE(attribute(stage.updates.at(0), Info::GroundSpeed), std::optional(0.0));
}

void TestGypsyReports::whatAReceiverLendsTheFixDoesNotStay()
{
    GypsyStage stage;
    stage.start(6000);
    stage.start(6001);
    const auto lending = connect(&stage.comm, &GypsyComm::positionUpdateGypsy, &stage.comm,
                                 [](quint16, Info &update) { update.setAttribute(Info::GroundSpeed, 3); });
    stage.gypsy->position(Path, 3, Given, 1, 2, 0);
    stage.settle();
    QVERIFY(!stage.updates.at(0).hasAttribute(Info::GroundSpeed));
    QCOMPARE(attribute(stage.updates.at(1), Info::GroundSpeed), std::optional(3.0)); // the next one sees it
    QObject::disconnect(lending);
    stage.gypsy->accuracy(Path, 2, 0, 1, 0);
    stage.settle();
    QVERIFY(!stage.updates.at(2).hasAttribute(Info::GroundSpeed));
}

void TestGypsyReports::aReceiverThatEndsTheNextSession()
{
    GypsyStage stage;
    for (const quint16 session : std::initializer_list<quint16>{6000, 6001, 6002})
        stage.start(session);
    connect(&stage.comm, &GypsyComm::positionUpdateGypsy, &stage.comm, [&stage](quint16 session) {
        if (session == 6000)
            stage.comm.stopSession(6001);
    });
    stage.gypsy->position(Path, 3, Given, 1, 2, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList({u"position 6000"_s, u"position 6002"_s}));
}

void TestGypsyReports::reportsWithoutSessionsAreKept()
{
    GypsyStage stage;
    stage.gypsy->position(Path, 3, Given, 60.25, 24.5, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList());
    stage.start();
    stage.gypsy->accuracy(Path, 2, 0, 1, 0);
    stage.settle();
    QCOMPARE(stage.updates.size(), 1);
    QCOMPARE(stage.updates.at(0).coordinate(), QGeoCoordinate(60.25, 24.5));
}

void TestGypsyReports::satelliteListsInViewComeFirst()
{
    GypsyStage stage; // no session is needed
    stage.gypsy->satellites(Path, {{7, true, 63, 311, 42}, {32, false, 5, 10, 0}, {8, true, 1, 2, 3}});
    stage.gypsy->satellites(Path, {});
    stage.settle();
    QCOMPARE(stage.takeEvents(),
             QStringList({u"in view: 7 32 8"_s, u"in use: 7 8"_s, u"in view:"_s, u"in use:"_s}));
    QCOMPARE(stage.takeLines(), QStringList({u"debug: GypsyComm::satellitesChanged size=3"_s,
                                             u"debug: GypsyComm::satellitesChanged size=0"_s}));
}

void TestGypsyReports::theLinesOfTheReports()
{
    GypsyStage stage;
    stage.gypsy->position(Path, 7, Given, 1, 2, 3);
    stage.gypsy->course(Path, 3, 0, 1, 2, 3);
    stage.gypsy->accuracy(Path, 2, 1, 2, 3);
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList({
                                    u"debug: GypsyComm::positionChanged fields=7 ts=1316608496"_s,
                                    u"debug: GypsyComm::courseChanged fields=3 ts=0"_s,
                                    u"debug: GypsyComm::accuracyChanged fields=2"_s,
                                }));
}

void TestGypsyReports::signalsOfAnyObjectOfGypsysCount()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->fixStatus(u"/org/freedesktop/Gypsy/ttyGPS0"_s, 2);
    stage.gypsy->position(u"/org/freedesktop/Gypsy/ttyGPS0"_s, 3, 0, 1, 2, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList({u"fix 2"_s, u"position 6000"_s}));
}

void TestGypsyReports::signalsOfOthersDoNot()
{
    GypsyStage stage;
    stage.start();
    auto stranger = QDBusConnection::connectToBus(QDBusConnection::SystemBus, u"a stranger"_s);
    auto forged = QDBusMessage::createSignal(Path, u"org.freedesktop.Gypsy.Device"_s, u"FixStatusChanged"_s);
    QVERIFY(stranger.send(forged << 3));
    const auto after = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/"_s,
                                                      u"org.freedesktop.DBus.Peer"_s, u"Ping"_s);
    QCOMPARE(stranger.call(after).type(), QDBusMessage::ReplyMessage);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList());
    leaveBus(u"a stranger"_s);
}

void TestGypsyReports::reportsGoOnAfterTheShutdown()
{
    GypsyStage stage;
    stage.start();
    QVERIFY(stage.comm.stopSession(6000));
    stage.forget();
    stage.gypsy->position(Path, 3, Given, 1, 2, 0);
    stage.gypsy->fixStatus(Path, 1);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList{u"fix 1"_s}); // Gypsy's state is its own, fixes need a session
}

PRIVATE_BUS_TEST_MAIN(TestGypsyReports)
#include "tst_gypsycomm_reports.moc"
