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
        bluez.plugAdapter();
        bluez.pair(Address);
    }

    FakeBluez bluez;
    FakeGypsy gypsy;
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

private:
    static void select(DaemonStage &stage)
    {
        stage.setDefault("SatellitePositioningInternal=false");
        stage.setDefault("SatellitePositioningExternalAddress=" + Address.toLatin1());
        stage.startReady();
    }
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
    Receiver receiver;
    DaemonStage stage;
    select(stage);
    for (int i = 0; i < 3; ++i)
        addSilent(stage);
    receiver.bluez.takeCalls();
    stage.log.takeLines();
    stage.daemon->configRequest(6002, SetMethod | Start, All, 1000);
    QCOMPARE(receiver.bluez.takeCalls(), Lookup + BluetoothSession); // looked up for all three clients
    QCOMPARE(
        stage.logged({u"debug: startSessions: client: id=6002"_s}),
        QStringList{
            u"debug: startSessions: client: id=6002, stopped=0, methods=0xffffffff, actGNSS=0, actSUPL=0"_s});
    QCOMPARE(receiver.gypsy.takeCalls(), Gypsy);
    QCOMPARE(stage.requests(), QStringList()); // it is not the engine's session
}

void TestExternalReceiver::theReceiverIsSharedByAllClients()
{
    Receiver receiver;
    DaemonStage stage;
    select(stage);
    for (int i = 0; i < 3; ++i)
        stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QCOMPARE(receiver.gypsy.takeCalls(), Gypsy);
    for (const int id : {6000, 6002, 6001}) {
        QCOMPARE(receiver.gypsy.takeCalls(), QStringList());
        stage.daemon->configRequest(id, Stop, 0, 0);
    }
    QCOMPARE(receiver.gypsy.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QCOMPARE(stage.requests(), QStringList());
}

void TestExternalReceiver::aNewIntervalIsNoCall()
{
    Receiver receiver;
    DaemonStage stage;
    select(stage);
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    receiver.gypsy.takeCalls();
    receiver.bluez.takeCalls();
    stage.daemon->configRequest(6000, SetInterval, 0, 5000);
    QCOMPARE(receiver.gypsy.takeCalls(), QStringList());
    QCOMPARE(receiver.bluez.takeCalls(), Lookup);
    QCOMPARE(stage.requests(), QStringList());
}

void TestExternalReceiver::aRefusedReceiverIsNotTriedAgain()
{
    Receiver receiver;
    receiver.gypsy.refuse(u"Create"_s, u"Not today"_s);
    DaemonStage stage;
    select(stage);
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QCOMPARE(stage.logged({u"warning: "_s}),
             QStringList{u"warning: Gypsy session creation failed:  \"Not today\""_s});
    receiver.gypsy.obey(u"Create"_s);
    receiver.gypsy.takeCalls();
    stage.daemon->configRequest(6000, SetInterval, 0, 2000);
    QCOMPARE(receiver.gypsy.takeCalls(), QStringList()); // the session counts as running
    stage.daemon->configRequest(6000, Stop, 0, 0);
    QCOMPARE(receiver.gypsy.takeCalls(), QStringList());
    stage.daemon->configRequest(6000, Start, 0, 0);
    QCOMPARE(receiver.gypsy.takeCalls(), Gypsy);
}

void TestExternalReceiver::fixStatusesAreTheReceiversState()
{
    Receiver receiver;
    DaemonStage stage;
    select(stage);
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, All, 1000);
    stage.log.takeLines();
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
    Receiver receiver;
    DaemonStage stage;
    select(stage);
    stage.daemon->configRequest(addSilent(stage), SetMethod | Start, All, 1000);
    stage.log.takeLines();
    stage.daemon->onConnectionStatusUpdate(GypsyComm::Disconnected);
    stage.daemon->onConnectionStatusUpdate(GypsyComm::Connected);
    QCOMPARE(stage.log.takeLines(), QStringList());
}

void TestExternalReceiver::aReceiverForgottenInsideAPlanCausesOneMorePlan()
{
    auto bluez = std::make_unique<FakeBluez>();
    bluez->plugAdapter();
    bluez->pair(Address);
    FakeGypsy gypsy;
    DaemonStage stage;
    select(stage);
    for (int i = 0; i < 2; ++i)
        stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QCOMPARE(stage.requests(), QStringList());
    QCOMPARE(gypsy.takeCalls(), Gypsy);
    stage.log.takeLines();

    bluez.reset();
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
    QCOMPARE(gypsy.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QStringList requests = stage.requests();
    requests.sort();
    QCOMPARE(requests, (QStringList{u"start 6000 2 mode 2"_s, u"start 6001 1 mode 2"_s}));
}

void TestExternalReceiver::aRemovedReceiverIsShutDownOnce()
{
    // Reporting the end plans, the plan finds the receiver unknown, and that stops the last session.
    Receiver receiver;
    DaemonStage stage;
    select(stage);
    for (int i = 0; i < 2; ++i)
        stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    receiver.gypsy.takeCalls();
    stage.log.takeLines();
    receiver.bluez.remove(Address);
    QStringList requests = stage.awaitRequests(2);
    requests.sort();
    QCOMPARE(requests, (QStringList{u"start 6000 1 mode 2"_s, u"start 6001 1 mode 2"_s}));
    QCOMPARE(receiver.gypsy.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QCOMPARE(stage.logged({u"warning: "_s}),
             QStringList{u"warning: Currently used bluetooth device has been removed. Stopping gypsy."_s});
}

PRIVATE_BUS_TEST_MAIN(TestExternalReceiver)
#include "tst_externalreceiver.moc"
