#include "core/daemonstage.h"
#include "support/fakebluez.h"
#include "support/privatebus.h"

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

const QString Address = u"00:11:22:33:44:55"_s;

} // namespace

// The satellite methods while an external receiver is selected, as far as the daemon alone decides.
class TestExternalReceiver : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void withoutAnAddressThereAreNoSatellites();
    void aKnownReceiverIsAskedForOncePerPlan();
    void aReceiverForgottenInsideAPlanCausesOneMorePlan();

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
        stage.logged({u"debug: startSessions"_s}),
        QStringList{
            u"debug: startSessions: client: id=6000, stopped=0, methods=0xffffff00, actGNSS=0, actSUPL=0"_s});
    QCOMPARE(stage.requests(), QStringList());
}

void TestExternalReceiver::aKnownReceiverIsAskedForOncePerPlan()
{
    FakeBluez bluez;
    bluez.plugAdapter();
    bluez.pair(Address);
    DaemonStage stage;
    select(stage);
    for (int i = 0; i < 3; ++i)
        addSilent(stage);
    bluez.takeCalls();
    stage.log.takeLines();
    stage.daemon->configRequest(6002, SetMethod | Start, All, 1000);
    QCOMPARE(bluez.takeCalls().size(), 2); // the adapter and the device, for all three clients
    QCOMPARE(
        stage.logged({u"debug: startSessions: client: id=6002"_s}),
        QStringList{
            u"debug: startSessions: client: id=6002, stopped=0, methods=0xffffffff, actGNSS=0, actSUPL=0"_s});
    QCOMPARE(stage.requests(), QStringList()); // it is not the engine's session
}

void TestExternalReceiver::aReceiverForgottenInsideAPlanCausesOneMorePlan()
{
    auto bluez = std::make_unique<FakeBluez>();
    bluez->plugAdapter();
    bluez->pair(Address);
    DaemonStage stage;
    select(stage);
    for (int i = 0; i < 2; ++i)
        stage.daemon->configRequest(addSilent(stage), SetMethod | Start, Satellite, 1000);
    QCOMPARE(stage.requests(), QStringList());
    stage.log.takeLines();

    bluez.reset();
    stage.daemon->configRequest(6000, SetInterval, 0, 2000);
    // The first plan notices, the internal receiver is back, and the second plan starts what the
    // first could not.
    QCOMPARE(stage.logged({u"debug: assignClients"_s, u"debug: PositionDaemon::userSettings"_s}),
             (QStringList{
                 u"debug: assignClients"_s,
                 u"debug: PositionDaemon::userSettingsChanged():  Sat method external address [  ]"_s,
                 u"debug: PositionDaemon::userSettingsChanged():  Sat method internal [ true ]"_s,
                 u"debug: assignClients"_s,
             }));
    QStringList requests = stage.requests();
    requests.sort();
    QCOMPARE(requests, (QStringList{u"start 6000 2 mode 2"_s, u"start 6001 1 mode 2"_s}));
}

PRIVATE_BUS_TEST_MAIN(TestExternalReceiver)
#include "tst_externalreceiver.moc"
