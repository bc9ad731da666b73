#include "gypsy/gypsystage.h"
#include "support/privatebus.h"

#include <QMetaMethod>

using namespace Qt::StringLiterals;

namespace {

const QString &Address = GypsyStage::Address;
const QString &Path = GypsyStage::Path;

const QStringList BluetoothCalls{u"DefaultAdapter"_s, u"RequestSession"_s};
const QStringList StartLines{
    u"debug: GypsyComm::startSession"_s,
    u"debug: GypsyComm::setupBluetoothConnection"_s,
    u"debug: GypsyComm::createGypsy"_s,
    u"debug: GypsyComm::startGypsy"_s,
};
const QStringList ShutdownLines{
    u"debug: GypsyComm::shutdownGypsy"_s,
    u"debug: GypsyComm::fixStatusChanged fix_status=0"_s,
};

} // namespace

// Sessions of the external receiver: what they ask of bluez and of Gypsy.
class TestGypsyComm : public QObject
{
    Q_OBJECT

private slots:
    void signalsAndSlotsStandInTheirOrder();
    void nothingIsAskedBeforeASession();
    void theFirstSessionSetsTheReceiverUp();
    void aSecondSessionSharesTheReceiver();
    void anotherAddressIsRefusedWhileOneIsInUse();
    void anotherAddressFollowsTheLastStop();
    void theSameSessionAgainReplacesItsValue();
    void aChangedIntervalIsKeptWithoutACall();
    void anUnknownSessionStopsWithoutEffect();
    void theLastStopShutsTheReceiverDown();
    void aReceiverStartsOnceMore();
};

void TestGypsyComm::signalsAndSlotsStandInTheirOrder()
{
    constexpr const char *Order[] = {
        "fixStatusUpdate(GypsyComm::FixStatus)",
        "connectionStatusUpdate(GypsyComm::ConnectionStatus)",
        "positionUpdateGypsy(quint16,QGeoPositionInfo&)",
        "satellitesInView(QList<QGeoSatelliteInfo>&)",
        "satellitesInUse(QList<QGeoSatelliteInfo>&)",
        "fixStatusChanged(int)",
        "connectionStatusChanged(bool)",
        "accuracyChanged(int,double,double,double)",
        "courseChanged(int,int,double,double,double)",
        "positionChanged(int,int,double,double,double)",
        "satellitesChanged(QList<SatelliteData>)",
        "restartGypsy()",
        "bluetoothDeviceRemoved(QDBusObjectPath)",
    };
    const QMetaObject &meta = GypsyComm::staticMetaObject;
    QStringList declared;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
        const QMetaMethod method = meta.method(index);
        declared << QString::fromLatin1(method.methodSignature()).replace(u"ushort"_s, u"quint16"_s);
        QCOMPARE(method.methodType(), declared.size() <= 5 ? QMetaMethod::Signal : QMetaMethod::Slot);
    }
    QStringList expected;
    for (const char *signature : Order)
        expected << QString::fromLatin1(signature);
    QCOMPARE(declared, expected);
}

void TestGypsyComm::nothingIsAskedBeforeASession()
{
    GypsyStage stage;
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeLines().join(u'\n'), QString());
    QVERIFY(!stage.gypsy->wasIntrospected());
}

void TestGypsyComm::theFirstSessionSetsTheReceiverUp()
{
    GypsyStage stage;
    QVERIFY(stage.comm.startSession(6000, 5, Address));
    QCOMPARE(stage.takeCalls(),
             BluetoothCalls + QStringList({u"Create 00:1A:7D:DA:71:13"_s, u"Start "_s + Path}));
    QCOMPARE(stage.takeLines(), StartLines);
    QCOMPARE(stage.takeEvents(), QStringList());
    QCOMPARE(stage.comm.sessionValue(6000), std::optional(5));
    QVERIFY(!stage.gypsy->wasIntrospected());
}

void TestGypsyComm::aSecondSessionSharesTheReceiver()
{
    GypsyStage stage;
    stage.start(6000);
    QVERIFY(stage.comm.startSession(6001, 7, Address));
    QCOMPARE(stage.takeCalls(), BluetoothCalls);
    QCOMPARE(stage.takeLines(), StartLines.first(2));
    QCOMPARE(stage.comm.sessionValue(6001), std::optional(7));

    QVERIFY(stage.comm.stopSession(6000));
    QCOMPARE(stage.takeCalls(), QStringList());
    QVERIFY(stage.comm.stopSession(6001));
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
}

void TestGypsyComm::anotherAddressIsRefusedWhileOneIsInUse()
{
    GypsyStage stage;
    stage.start(6000);
    QVERIFY(!stage.comm.startSession(6001, 1, GypsyStage::Other));
    QVERIFY(!stage.comm.startSession(6001, 1, Address.toLower())); // compared as it is written
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeLines(), StartLines.first(1) + StartLines.first(1));
    QCOMPARE(stage.comm.sessionValue(6001), std::nullopt);
    QVERIFY(stage.comm.startSession(6001, 1, Address)); // the one in use is still the first
    QCOMPARE(stage.takeCalls(), BluetoothCalls);
}

void TestGypsyComm::anotherAddressFollowsTheLastStop()
{
    GypsyStage stage;
    stage.start(6000);
    QVERIFY(stage.comm.stopSession(6000));
    stage.forget();
    QVERIFY(stage.comm.startSession(6000, 1, GypsyStage::Other));
    const QString otherPath = FakeGypsy::pathOf(GypsyStage::Other);
    QCOMPARE(stage.takeCalls(),
             BluetoothCalls + QStringList({u"Create 00:1A:7D:DA:71:14"_s, u"Start "_s + otherPath}));
    QVERIFY(stage.comm.stopSession(6000));
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + otherPath});
}

void TestGypsyComm::theSameSessionAgainReplacesItsValue()
{
    GypsyStage stage;
    stage.start(6000);
    QVERIFY(stage.comm.startSession(6000, 9, Address));
    QCOMPARE(stage.comm.sessionValue(6000), std::optional(9));
    QVERIFY(stage.comm.stopSession(6000)); // there is only one
    QVERIFY(stage.takeCalls().endsWith(u"Shutdown "_s + Path));
}

void TestGypsyComm::aChangedIntervalIsKeptWithoutACall()
{
    GypsyStage stage;
    stage.start(6000);
    stage.comm.setSessionValue(6000, 30);
    stage.comm.setSessionValue(6001, 40); // nobody's
    QCOMPARE(stage.comm.sessionValue(6000), std::optional(30));
    QCOMPARE(stage.comm.sessionValue(6001), std::nullopt);
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeLines(), QStringList());
    QVERIFY(stage.comm.stopSession(6000));
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
}

void TestGypsyComm::anUnknownSessionStopsWithoutEffect()
{
    GypsyStage stage;
    QVERIFY(stage.comm.stopSession(6000));
    stage.start(6000);
    QVERIFY(stage.comm.stopSession(6001));
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeLines(), QStringList{u"debug: GypsyComm::stopSession"_s});
    QCOMPARE(stage.takeEvents(), QStringList());
    QVERIFY(stage.comm.sessionValue(6000).has_value());
}

void TestGypsyComm::theLastStopShutsTheReceiverDown()
{
    GypsyStage stage;
    stage.start(6000);
    QVERIFY(stage.comm.stopSession(6000));
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path}); // the fake takes an object path only
    QCOMPARE(stage.takeLines(), QStringList{u"debug: GypsyComm::stopSession"_s} + ShutdownLines);
    QCOMPARE(stage.takeEvents(), QStringList{u"fix 0"_s});
    QVERIFY(stage.comm.stopSession(6000)); // unknown by now
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyComm::aReceiverStartsOnceMore()
{
    GypsyStage stage;
    for (int round = 0; round < 3; ++round) {
        QVERIFY(stage.comm.startSession(6000, 1, Address));
        QCOMPARE(stage.takeCalls(),
                 BluetoothCalls + QStringList({u"Create 00:1A:7D:DA:71:13"_s, u"Start "_s + Path}));
        QVERIFY(stage.comm.stopSession(6000));
        QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
    }
}

PRIVATE_BUS_TEST_MAIN(TestGypsyComm)
#include "tst_gypsycomm.moc"
