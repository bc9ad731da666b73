#include "core/daemonstage.h"
#include "support/fakebluez.h"
#include "support/fakegypsy.h"
#include "support/privatebus.h"

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

const QString Address = u"00:11:22:33:44:55"_s;
const QString Path = u"/org/freedesktop/Gypsy/00_11_22_33_44_55"_s;
const QStringList Lookup{u"DefaultAdapter"_s, u"FindDevice "_s + Address};
const QStringList BluetoothSession{u"DefaultAdapter"_s, u"RequestSession"_s};
const QStringList Gypsy{u"Create "_s + Address, u"Start "_s + Path};

// A paired receiver that Gypsy can drive.
struct Receiver {
    Receiver()
    {
        bluez->plugAdapter();
        bluez->pair(Address);
    }

    std::unique_ptr<FakeBluez> bluez = std::make_unique<FakeBluez>();
    FakeGypsy gypsy;
};

// A daemon whose user has selected the receiver; it ends before its peers do.
struct ReceiverStage : Receiver, DaemonStage {
    ReceiverStage()
    {
        setDefault("SatellitePositioningInternal=false");
        setDefault("SatellitePositioningExternalAddress=" + Address.toLatin1());
        startReady();
    }

    void startClients(int count, int method)
    {
        for (int i = 0; i < count; ++i)
            daemon->configRequest(addSilent(*this), SetMethod | Start, method, 1000);
    }
    // Forgets what was asked and logged until now.
    void forget()
    {
        bluez->takeCalls();
        gypsy.takeCalls();
        log.takeLines();
    }
};

} // namespace

// The satellite methods while an external receiver is selected.
class TestExternalReceiver : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void withoutAnAddressThereAreNoSatellites();
    void aKnownReceiverIsAskedForOncePerPlan();
    void theReceiverIsSharedByAllClients();
    void aNewIntervalIsNoCall();
    void aRefusedReceiverIsNotTriedAgain();
    void fixStatusesAreTheReceiversState();
    void connectionsHaveNoEffectOfTheirOwn();
    void aReceiverForgottenInsideAPlanCausesOneMorePlan();
    void aRemovedReceiverIsShutDownOnce();
};

void TestExternalReceiver::withoutAnAddressThereAreNoSatellites()
{
    DaemonStage stage;
    stage.setDefault("SatellitePositioningInternal=false");
    stage.startReady();
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, All, 1000);
    QCOMPARE(
        stage.logged({u"debug: startSessions"_s, u"debug: GypsyComm"_s}),
        QStringList{
            u"debug: startSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0"_s});
    QCOMPARE(stage.requests(), QStringList());
}

void TestExternalReceiver::aKnownReceiverIsAskedForOncePerPlan()
{
    ReceiverStage stage;
    for (int i = 0; i < 3; ++i)
        addSilent(stage);
    stage.forget();
    stage.daemon->configRequest(6002, SetMethod | Start, All, 1000);
    QCOMPARE(stage.bluez->takeCalls(), Lookup + BluetoothSession); // looked up for all three clients
    QCOMPARE(
        stage.logged({u"debug: startSessions: client: id=6002"_s}),
        QStringList{
            u"debug: startSessions: client: id=6002, stopped=0, methods=0xffffffff, actGNSS=0, actSUPL=0"_s});
    QCOMPARE(stage.gypsy.takeCalls(), Gypsy);
    QCOMPARE(stage.requests(), QStringList()); // it is not the engine's session
}

void TestExternalReceiver::theReceiverIsSharedByAllClients()
{
    ReceiverStage stage;
    stage.startClients(3, Satellite);
    QCOMPARE(stage.gypsy.takeCalls(), Gypsy);
    for (const int id : {6000, 6002, 6001}) {
        QCOMPARE(stage.gypsy.takeCalls(), QStringList());
        stage.daemon->configRequest(id, Stop, 0, 0);
    }
    QCOMPARE(stage.gypsy.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QCOMPARE(stage.requests(), QStringList());
}

void TestExternalReceiver::aNewIntervalIsNoCall()
{
    ReceiverStage stage;
    stage.startClients(1, Satellite);
    stage.forget();
    stage.daemon->configRequest(6000, SetInterval, 0, 5000);
    QCOMPARE(stage.gypsy.takeCalls(), QStringList());
    QCOMPARE(stage.bluez->takeCalls(), Lookup);
    QCOMPARE(stage.requests(), QStringList());
}

void TestExternalReceiver::aRefusedReceiverIsNotTriedAgain()
{
    ReceiverStage stage;
    stage.gypsy.refuse(u"Create"_s, u"Not today"_s);
    stage.startClients(1, Satellite);
    QCOMPARE(stage.logged({u"warning: "_s}),
             QStringList{u"warning: Gypsy session creation failed:  \"Not today\""_s});
    stage.gypsy.obey(u"Create"_s);
    stage.gypsy.takeCalls();
    stage.daemon->configRequest(6000, SetInterval, 0, 2000);
    QCOMPARE(stage.gypsy.takeCalls(), QStringList()); // the session counts as running
    stage.daemon->configRequest(6000, Stop, 0, 0);
    QCOMPARE(stage.gypsy.takeCalls(), QStringList());
    stage.daemon->configRequest(6000, Start, 0, 0);
    QCOMPARE(stage.gypsy.takeCalls(), Gypsy);
}

void TestExternalReceiver::fixStatusesAreTheReceiversState()
{
    ReceiverStage stage;
    stage.startClients(1, All);
    stage.forget();
    // Each report plans anew: a fix takes the network session away, its loss brings it back.
    const QString start = u"debug: startSessions"_s;
    const QString plan = u"debug: assignClients"_s;
    const QString mode = u"debug: Gypsy mode: "_s;
    const auto line = [](const char *methods, int supl) {
        return u"debug: startSessions: client: id=6000, stopped=0, methods=%1, actGNSS=1, actSUPL=%2"_s
            .arg(QLatin1StringView(methods))
            .arg(supl);
    };
    struct Step {
        int status;
        QString name;
        QString planned;
    };
    for (const Step &step :
         {Step{1, u"Search"_s, line("0xffffffff", 1)}, Step{2, u"Fix"_s, line("0xff", 0)},
          Step{3, u"Fix"_s, line("0xff", 0)}, Step{1, u"Search"_s, line("0xffffffff", 0)},
          Step{0, u"Idle"_s, line("0xffffffff", 1)}, Step{9, u"Idle"_s, line("0xffffffff", 1)}}) {
        stage.daemon->onFixStatusUpdate(GypsyComm::FixStatus(step.status));
        QCOMPARE(stage.logged({mode, plan, start}), QStringList({mode + step.name, plan, step.planned}));
    }
}

void TestExternalReceiver::connectionsHaveNoEffectOfTheirOwn()
{
    ReceiverStage stage;
    stage.startClients(1, All);
    stage.forget();
    stage.daemon->onConnectionStatusUpdate(GypsyComm::Disconnected);
    stage.daemon->onConnectionStatusUpdate(GypsyComm::Connected);
    QCOMPARE(stage.log.takeLines(), QStringList());
}

void TestExternalReceiver::aReceiverForgottenInsideAPlanCausesOneMorePlan()
{
    ReceiverStage stage;
    stage.startClients(2, Satellite);
    QCOMPARE(stage.requests(), QStringList());
    QCOMPARE(stage.gypsy.takeCalls(), Gypsy);
    stage.forget();

    stage.bluez.reset();
    stage.daemon->configRequest(6000, SetInterval, 0, 2000);
    // The first plan notices, the internal receiver is back, and the second plan starts what the
    // first could not.
    QCOMPARE(stage.logged({u"debug: assignClients"_s, u"debug: PositionDaemon::userSettings"_s,
                           u"debug: GypsyComm::s"_s, u"debug: Gypsy mode"_s}),
             (QStringList{
                 u"debug: assignClients"_s,
                 u"debug: PositionDaemon::userSettingsChanged():  Sat method external address [  ]"_s,
                 u"debug: GypsyComm::stopSession"_s,
                 u"debug: GypsyComm::stopSession"_s,
                 u"debug: GypsyComm::shutdownGypsy"_s,
                 u"debug: Gypsy mode: Idle"_s,
                 u"debug: PositionDaemon::userSettingsChanged():  Sat method internal [ true ]"_s,
                 u"debug: assignClients"_s,
             }));
    QCOMPARE(stage.gypsy.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QStringList requests = stage.requests();
    requests.sort();
    QCOMPARE(requests, (QStringList{u"start 6000 2 mode 2"_s, u"start 6001 1 mode 2"_s}));
}

void TestExternalReceiver::aRemovedReceiverIsShutDownOnce()
{
    // Reporting the end plans, the plan finds the receiver unknown, and that stops the last session.
    ReceiverStage stage;
    stage.startClients(2, Satellite);
    stage.forget();
    stage.bluez->remove(Address);
    QStringList requests = stage.awaitRequests(2);
    requests.sort();
    QCOMPARE(requests, (QStringList{u"start 6000 1 mode 2"_s, u"start 6001 1 mode 2"_s}));
    QCOMPARE(stage.gypsy.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QCOMPARE(stage.logged({u"warning: "_s}),
             QStringList{u"warning: Currently used bluetooth device has been removed. Stopping gypsy."_s});
}

PRIVATE_BUS_TEST_MAIN(TestExternalReceiver)
#include "tst_externalreceiver.moc"
