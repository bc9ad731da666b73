#include "gypsy/gypsystage.h"
#include "support/privatebus.h"

using namespace Qt::StringLiterals;

namespace {

const QString &Address = GypsyStage::Address;
const QString &Path = GypsyStage::Path;

const QString Removed = u"warning: Currently used bluetooth device has been removed. Stopping gypsy."_s;

QStringList warnings(const QStringList &lines)
{
    return lines.filter(u"warning: "_s);
}

} // namespace

// What bluez and Gypsy refuse, and receivers that go away.
class TestGypsyTrouble : public QObject
{
    Q_OBJECT

private slots:
    void aStartThatFails_data();
    void aStartThatFails();
    void aFailedStartShutsTheReceiverDown();
    void aFailedSessionDoesNotDisturbTheOthers();
    void aFailedStartLeavesTheAddressFree();
    void aShutdownThatFails();
    void anUnknownFixStatusIsOnlyLogged();
    void aConnectionBeforeAnyReceiver();
    void withoutGypsy();
    void withoutBluez();
    void aGypsyThatWasStartedAnew();
    void aBluezThatWasStartedAnew();
    void anAnswerOfAnotherType();

    void theReceiverIsRemoved();
    void otherDevicesAreRemoved();
    void aRemovalAfterTheLastStopIsNotHeard();
    void aRemovalAfterAFailedStartIsNotHeard();
    void sessionsOutliveTheirReceiver();
    void stoppingInsideTheShutdownShutsDownOnce();
    void whatStartsInsideTheShutdownStays();
};

void TestGypsyTrouble::aStartThatFails_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("warning");
    QTest::addColumn<QStringList>("calls");
    const QStringList bluetooth{u"DefaultAdapter"_s, u"RequestSession"_s};
    const QString create = u"Create "_s + Address;
    QTest::newRow("bluez has no adapter")
        << u"DefaultAdapter"_s << u"warning: Could not find default bluetooth adapter"_s
        << QStringList{u"DefaultAdapter"_s};
    QTest::newRow("the user refuses")
        << u"RequestSession"_s << u"warning: Bluetooth session rejected"_s << bluetooth;
    QTest::newRow("Gypsy has no such device")
        << u"Create"_s << u"warning: Gypsy session creation failed:  \"Not today\""_s
        << bluetooth + QStringList{create};
    QTest::newRow("the receiver does not start")
        << u"Start"_s << u"warning: Gypsy session starting failed:  \"Not today\""_s
        << bluetooth + QStringList({create, u"Start "_s + Path, u"Shutdown "_s + Path});
}

void TestGypsyTrouble::aStartThatFails()
{
    QFETCH(QString, method);
    GypsyStage stage;
    if (method == u"DefaultAdapter"_s)
        stage.renewBluez();
    else if (method == u"RequestSession"_s)
        stage.bluez->rejectSessions();
    else
        stage.gypsy->refuse(method, u"Not today"_s);

    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    QTEST(stage.takeCalls(), "calls");
    QFETCH(QString, warning);
    QCOMPARE(warnings(stage.takeLines()), QStringList{warning});
    QCOMPARE(stage.comm.sessionValue(6000), std::nullopt);
    QVERIFY(stage.comm.stopSession(6000)); // it never ran
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyTrouble::aFailedStartShutsTheReceiverDown()
{
    GypsyStage stage;
    stage.gypsy->refuse(u"Start"_s, u"No route"_s);
    stage.gypsy->refuse(u"Shutdown"_s, u"No device"_s);
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    QCOMPARE(stage.takeEvents(), QStringList{u"fix 0"_s});
    QCOMPARE(stage.takeLines(), QStringList({
                                    u"debug: GypsyComm::startSession"_s,
                                    u"debug: GypsyComm::setupBluetoothConnection"_s,
                                    u"debug: GypsyComm::createGypsy"_s,
                                    u"debug: GypsyComm::startGypsy"_s,
                                    u"warning: Gypsy session starting failed:  \"No route\""_s,
                                    u"debug: GypsyComm::shutdownGypsy"_s,
                                    u"debug: GypsyComm::fixStatusChanged fix_status=0"_s,
                                    u"warning: Gypsy session shutdown failed:  \"No device\""_s,
                                }));
}

void TestGypsyTrouble::aFailedSessionDoesNotDisturbTheOthers()
{
    GypsyStage stage;
    stage.start(6000);
    stage.bluez->rejectSessions();
    QVERIFY(!stage.comm.startSession(6001, 1, Address));
    QCOMPARE(warnings(stage.takeLines()), QStringList{u"warning: Bluetooth session rejected"_s});
    QCOMPARE(stage.comm.sessionValue(6001), std::nullopt);
    stage.takeCalls();
    stage.gypsy->position(Path, 3, 0, 1, 2, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList{u"position 6000"_s});
    QVERIFY(stage.comm.stopSession(6000));
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
}

void TestGypsyTrouble::aFailedStartLeavesTheAddressFree()
{
    GypsyStage stage;
    stage.gypsy->refuse(u"Create"_s, u"Not today"_s);
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    stage.gypsy->obey(u"Create"_s);
    stage.forget();
    QVERIFY(stage.comm.startSession(6000, 1, GypsyStage::Other));
    QVERIFY(stage.takeCalls().contains(u"Create "_s + GypsyStage::Other));
}

void TestGypsyTrouble::aShutdownThatFails()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->refuse(u"Shutdown"_s, u"Not mine"_s);
    QVERIFY(!stage.comm.stopSession(6000));
    QCOMPARE(warnings(stage.takeLines()),
             QStringList{u"warning: Gypsy session shutdown failed:  \"Not mine\""_s});
    QCOMPARE(stage.takeEvents(), QStringList{u"fix 0"_s});
    stage.gypsy->obey(u"Shutdown"_s);
    QVERIFY(stage.comm.startSession(6000, 1, Address)); // a new session, with all that it takes
    QVERIFY(stage.takeCalls().contains(u"Create "_s + Address));
}

void TestGypsyTrouble::anUnknownFixStatusIsOnlyLogged()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy->refuse(u"GetFixStatus"_s, u"Who knows"_s);
    stage.gypsy->connectionStatus(Path, true);
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList({
                                    u"debug: GypsyComm::connectionStatusChanged conn_status=1"_s,
                                    u"debug: GypsyComm::getFixStatus"_s,
                                    u"warning: Getting fix status from Gypsy failed:  \"Who knows\""_s,
                                }));
    QCOMPARE(stage.takeEvents(), QStringList{u"connection 0"_s});
}

void TestGypsyTrouble::aConnectionBeforeAnyReceiver()
{
    GypsyStage stage; // some other program has started a receiver
    stage.gypsy->connectionStatus(Path, true);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList{u"connection 0"_s});
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeLines(), QStringList({
                                    u"debug: GypsyComm::connectionStatusChanged conn_status=1"_s,
                                    u"debug: GypsyComm::getFixStatus"_s,
                                }));
}

void TestGypsyTrouble::withoutGypsy()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy = nullptr;
    QVERIFY(!stage.comm.stopSession(6000));
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    const QString reason = u"\"The name org.freedesktop.Gypsy was not provided by any .service files\""_s;
    QCOMPARE(warnings(stage.takeLines()),
             QStringList({u"warning: Gypsy session shutdown failed:  "_s + reason,
                          u"warning: Gypsy session creation failed:  "_s + reason}));
}

void TestGypsyTrouble::withoutBluez()
{
    GypsyStage stage;
    stage.bluez = nullptr;
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    QCOMPARE(warnings(stage.takeLines()),
             QStringList{u"warning: Could not find default bluetooth adapter"_s});
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyTrouble::aGypsyThatWasStartedAnew()
{
    GypsyStage stage;
    stage.start();
    stage.gypsy = nullptr;
    stage.gypsy = std::make_unique<FakeGypsy>(); // knows of no device
    QVERIFY(!stage.comm.stopSession(6000));
    QVERIFY(warnings(stage.takeLines())
                .value(0)
                .startsWith(u"warning: Gypsy session shutdown failed:  \"Method"_s));
    stage.start();
    stage.gypsy->position(Path, 3, 0, 1, 2, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList{u"position 6000"_s}); // the new owner of the name is heard
}

// Its adapter has another path, and is the one that is asked and watched from the next start.
void TestGypsyTrouble::aBluezThatWasStartedAnew()
{
    GypsyStage stage;
    stage.start();
    QVERIFY(stage.comm.stopSession(6000));
    stage.renewBluez();
    stage.bluez->plugAdapter();
    stage.start();
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeLines().value(0), Removed);
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
}

void TestGypsyTrouble::anAnswerOfAnotherType()
{
    GypsyStage stage;
    stage.gypsy->misanswer(u"Create"_s);
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    QCOMPARE(warnings(stage.takeLines()).size(), 1);
    stage.gypsy->obey(u"Create"_s);
    stage.start();
    stage.gypsy->misanswer(u"GetFixStatus"_s);
    stage.gypsy->connectionStatus(Path, true);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList{u"connection 0"_s});
    QCOMPARE(warnings(stage.takeLines()).size(), 1);
}

void TestGypsyTrouble::theReceiverIsRemoved()
{
    GypsyStage stage;
    stage.start();
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList({
                                    Removed,
                                    u"debug: GypsyComm::shutdownGypsy"_s,
                                    u"debug: GypsyComm::fixStatusChanged fix_status=0"_s,
                                }));
    QCOMPARE(stage.takeEvents(), QStringList{u"fix 0"_s});
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
    stage.bluez->remove(Address); // not heard any more
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList());
}

void TestGypsyTrouble::otherDevicesAreRemoved()
{
    GypsyStage stage;
    stage.start();
    stage.bluez->remove(GypsyStage::Other);
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList());
    QCOMPARE(stage.takeCalls(), QStringList());
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeLines().value(0), Removed);
}

void TestGypsyTrouble::aRemovalAfterTheLastStopIsNotHeard()
{
    GypsyStage stage;
    stage.start();
    QVERIFY(stage.comm.stopSession(6000));
    stage.forget();
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList());
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyTrouble::aRemovalAfterAFailedStartIsNotHeard()
{
    GypsyStage stage;
    stage.gypsy->refuse(u"Start"_s, u"No route"_s);
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    stage.forget();
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeLines(), QStringList());
}

void TestGypsyTrouble::sessionsOutliveTheirReceiver()
{
    GypsyStage stage;
    stage.start(6000);
    stage.bluez->remove(Address);
    stage.settle();
    QVERIFY(stage.comm.sessionValue(6000).has_value());
    stage.forget();
    QVERIFY(stage.comm.startSession(6001, 1, Address)); // shares what was there: no Create
    QCOMPARE(stage.takeCalls(), QStringList({u"DefaultAdapter"_s, u"RequestSession"_s}));
    QVERIFY(!stage.comm.startSession(6002, 1, GypsyStage::Other));
    QVERIFY(stage.comm.stopSession(6000));
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyTrouble::stoppingInsideTheShutdownShutsDownOnce()
{
    GypsyStage stage;
    stage.start(6000);
    stage.start(6001);
    connect(&stage.comm, &GypsyComm::fixStatusUpdate, &stage.comm, [&stage] {
        stage.comm.stopSession(6000);
        stage.comm.stopSession(6001);
    });
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QCOMPARE(warnings(stage.takeLines()), QStringList{Removed});
    QVERIFY(!stage.comm.sessionValue(6000));
    QVERIFY(!stage.comm.sessionValue(6001));
}

void TestGypsyTrouble::whatStartsInsideTheShutdownStays()
{
    GypsyStage stage;
    stage.start(6000);
    const auto reaction = connect(&stage.comm, &GypsyComm::fixStatusUpdate, &stage.comm, [&stage] {
        if (!stage.comm.sessionValue(6000))
            return;
        stage.comm.stopSession(6000);
        stage.comm.startSession(6000, 1, GypsyStage::Other);
    });
    stage.bluez->remove(Address);
    stage.settle();
    QObject::disconnect(reaction);
    const QString otherPath = FakeGypsy::pathOf(GypsyStage::Other);
    QCOMPARE(stage.gypsy->takeCalls(),
             QStringList({u"Shutdown "_s + Path, u"Create "_s + GypsyStage::Other, u"Start "_s + otherPath}));
    stage.forget();
    stage.bluez->remove(GypsyStage::Other); // and is watched
    stage.settle();
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + otherPath});
}

PRIVATE_BUS_TEST_MAIN(TestGypsyTrouble)
#include "tst_gypsycomm_trouble.moc"
