#include "core/methodselection.h"

#include <QTest>

Q_DECLARE_METATYPE(MethodInputs)
Q_DECLARE_METATYPE(MethodChoice)
Q_DECLARE_METATYPE(Availability)
Q_DECLARE_METATYPE(ReceiverState)

using namespace Methods;

namespace {

constexpr auto Idle = ReceiverState::Idle;
constexpr auto Searching = ReceiverState::Searching;
constexpr auto Fix = ReceiverState::Fix;

} // namespace

class TestMethodSelection : public QObject
{
    Q_OBJECT

private slots:
    void effectiveMethods_data();
    void effectiveMethods();
    void theExternalReceiverIsAskedForOnlyWhenItIsSelected();
    void externalReceiver_data();
    void externalReceiver();
    void availability_data();
    void availability();
    void engineReports_data();
    void engineReports();
    void gypsyReports_data();
    void gypsyReports();
};

void TestMethodSelection::effectiveMethods_data()
{
    QTest::addColumn<MethodInputs>("inputs");
    QTest::addColumn<quint32>("requested");
    QTest::addColumn<quint32>("expected");

    const MethodInputs plain{.veskInUse = true, .internalGps = true};
    const auto row = [](const char *name, const MethodInputs &inputs, quint32 requested, quint32 expected) {
        QTest::newRow(name) << inputs << requested << expected;
    };
    const auto with = [&plain](auto change) {
        MethodInputs inputs = plain;
        change(inputs);
        return inputs;
    };

    row("everything is offered when nothing stands against it", plain, All, All);
    row("a client gets no more than it asks for", plain, 0x00000102, 0x00000102);
    row("a client that asks for nothing gets nothing", plain, 0, 0);

    row("nothing is offered while positioning is off", with([](auto &i) { i.positioningOff = true; }), All,
        0);
    row("positioning off wins over a running fix", with([](auto &i) {
            i.positioningOff = i.satelliteClientStarted = true;
            i.receiverState = Fix;
        }),
        NonSatellite, 0);

    row("disabled satellites leave the network methods", with([](auto &i) { i.satelliteDisabled = true; }),
        All, NonSatellite);
    row("disabled satellites leave a satellite client nothing",
        with([](auto &i) { i.satelliteDisabled = true; }), Satellite, 0);

    // Network-only clients and a running fix
    row("a network-only client rides on a running satellite fix", with([](auto &i) {
            i.satelliteClientStarted = true;
            i.receiverState = Fix;
        }),
        NonSatellite, Satellite);
    row("a network-only client stays on the network when no satellite client is started",
        with([](auto &i) { i.receiverState = Fix; }), NonSatellite, NonSatellite);
    row("a network-only client stays on the network when satellites are disabled", with([](auto &i) {
            i.satelliteDisabled = i.satelliteClientStarted = true;
            i.receiverState = Fix;
        }),
        NonSatellite, NonSatellite);
    row("a network-only client stays on the network while the receiver searches", with([](auto &i) {
            i.satelliteClientStarted = true;
            i.receiverState = Searching;
        }),
        NonSatellite, NonSatellite);
    row("a network-only client stays on the network while the receiver is idle", with([](auto &i) {
            i.satelliteClientStarted = true;
            i.receiverState = Idle;
        }),
        NonSatellite, NonSatellite);
    row("only the whole network mask rides on a fix", with([](auto &i) {
            i.satelliteClientStarted = true;
            i.receiverState = Fix;
        }),
        0x00000100, 0x00000100);
    row("a riding client keeps the satellites when the network is disabled", with([](auto &i) {
            i.satelliteClientStarted = i.cellularDisabled = i.wifiDisabled = true;
            i.receiverState = Fix;
        }),
        NonSatellite, Satellite);
    row("a riding client has nothing while power save withholds satellites", with([](auto &i) {
            i.satelliteClientStarted = i.satellitesWithheld = true;
            i.receiverState = Fix;
        }),
        NonSatellite, 0);

    // The network methods through the library
    row("the library needs only one radio: WLAN", with([](auto &i) { i.cellularDisabled = true; }), All, All);
    row("the library needs only one radio: cellular", with([](auto &i) { i.wifiDisabled = true; }), All, All);
    row("the library needs one radio at least",
        with([](auto &i) { i.cellularDisabled = i.wifiDisabled = true; }), All, Satellite);
    row("the library needs no data connection", with([](auto &i) { i.connectivityDisabled = true; }), All,
        All);

    // ... and through SUPL
    row("SUPL works with cellular and connectivity", with([](auto &i) { i.veskInUse = false; }), All, All);
    row("SUPL needs the cellular method", with([](auto &i) {
            i.veskInUse = false;
            i.cellularDisabled = true;
        }),
        All, Satellite);
    row("SUPL needs a data connection", with([](auto &i) {
            i.veskInUse = false;
            i.connectivityDisabled = true;
        }),
        All, Satellite);
    row("SUPL does not care about WLAN", with([](auto &i) {
            i.veskInUse = false;
            i.wifiDisabled = true;
        }),
        All, All);

    // A running fix
    row("a client of both methods gets satellites only while they give fixes",
        with([](auto &i) { i.receiverState = Fix; }), All, Satellite);
    row("a client of both methods gets both while the receiver searches",
        with([](auto &i) { i.receiverState = Searching; }), All, All);
    row("one satellite bit is enough to drop the network during a fix",
        with([](auto &i) { i.receiverState = Fix; }), 0xffffff01, 0x01);
    row("disabled satellites keep the network during a fix", with([](auto &i) {
            i.satelliteDisabled = true;
            i.receiverState = Fix;
        }),
        All, NonSatellite);

    // An engine that is not ready
    row("a blocked engine leaves the library's network positions",
        with([](auto &i) { i.orvClientsBlocked = true; }), All, NonSatellite);
    row("a blocked engine has no SUPL either", with([](auto &i) {
            i.orvClientsBlocked = true;
            i.veskInUse = false;
        }),
        All, 0);
    row("a blocked engine leaves the external receiver's satellites", with([](auto &i) {
            i.orvClientsBlocked = true;
            i.internalGps = false;
        }),
        All, All);
    row("a blocked engine has no SUPL beside an external receiver", with([](auto &i) {
            i.orvClientsBlocked = true;
            i.internalGps = i.veskInUse = false;
        }),
        All, Satellite);
    row("during a stale fix a blocked engine leaves nothing to a client of both methods", with([](auto &i) {
            i.orvClientsBlocked = true;
            i.receiverState = Fix;
        }),
        All, 0);

    // Power save
    row("power save withholds the satellites only", with([](auto &i) { i.satellitesWithheld = true; }), All,
        NonSatellite);
    row("power save leaves a satellite client nothing", with([](auto &i) { i.satellitesWithheld = true; }),
        Satellite, 0);
}

void TestMethodSelection::effectiveMethods()
{
    QFETCH(MethodInputs, inputs);
    QFETCH(quint32, requested);
    QTEST(selectMethods(inputs, requested).methods, "expected");
    QCOMPARE(selectMethods(inputs, requested).positioningOff, inputs.positioningOff);
}

void TestMethodSelection::theExternalReceiverIsAskedForOnlyWhenItIsSelected()
{
    QVERIFY(!selectMethods({.internalGps = true}, All).needsExternalReceiver);
    QVERIFY(selectMethods({.internalGps = false}, All).needsExternalReceiver);
    QVERIFY(!selectMethods({.positioningOff = true, .internalGps = false}, All).needsExternalReceiver);
}

void TestMethodSelection::externalReceiver_data()
{
    QTest::addColumn<quint32>("mask");
    QTest::addColumn<bool>("addressKnown");
    QTest::addColumn<quint32>("expected");

    QTest::newRow("without an address there are no satellites") << All << false << NonSatellite;
    QTest::newRow("without an address a satellite client has nothing") << Satellite << false << 0U;
    QTest::newRow("with an address everything stays") << All << true << All;
}

void TestMethodSelection::externalReceiver()
{
    QFETCH(quint32, mask);
    QFETCH(bool, addressKnown);
    QTEST(withExternalReceiver(mask, addressKnown), "expected");
}

void TestMethodSelection::availability_data()
{
    QTest::addColumn<MethodInputs>("inputs");
    QTest::addColumn<Availability>("expected");

    const auto row = [](const char *name, const MethodInputs &inputs, const Availability &expected) {
        QTest::newRow(name) << inputs << expected;
    };
    row("everything through the library", {.veskInUse = true},
        {.methods = All, .satellite = true, .network = true, .vesk = true});
    row("everything through SUPL", {}, {.methods = All, .satellite = true, .network = true});
    row("positioning off offers nothing, the library included", {.positioningOff = true, .veskInUse = true},
        {});
    row("positioning off does not disable the network as such",
        {.positioningOff = true, .cellularDisabled = true}, {.networkDisabled = true});
    row("satellites off leaves the network", {.satelliteDisabled = true, .veskInUse = true},
        {.methods = NonSatellite, .network = true, .vesk = true});
    row("both radios off disables the library's network",
        {.cellularDisabled = true, .wifiDisabled = true, .veskInUse = true},
        {.methods = Satellite, .satellite = true, .networkDisabled = true, .vesk = true});
    row("one radio is enough for the library", {.cellularDisabled = true, .veskInUse = true},
        {.methods = All, .satellite = true, .network = true, .vesk = true});
    row("WLAN off changes nothing for SUPL", {.wifiDisabled = true},
        {.methods = All, .satellite = true, .network = true});
    row("no connectivity disables SUPL", {.connectivityDisabled = true},
        {.methods = Satellite, .satellite = true, .networkDisabled = true});
    row("no connectivity changes nothing for the library", {.connectivityDisabled = true, .veskInUse = true},
        {.methods = All, .satellite = true, .network = true, .vesk = true});
    row("what is offered does not follow the engine, the receiver or power save",
        {.veskInUse = true, .orvClientsBlocked = true, .satellitesWithheld = true, .receiverState = Fix},
        {.methods = All, .satellite = true, .network = true, .vesk = true});
}

void TestMethodSelection::availability()
{
    QFETCH(MethodInputs, inputs);
    QFETCH(Availability, expected);
    const Availability offered = methodAvailability(inputs);
    QCOMPARE(offered.methods, expected.methods);
    QCOMPARE(offered.satellite, expected.satellite);
    QCOMPARE(offered.network, expected.network);
    QCOMPARE(offered.networkDisabled, expected.networkDisabled);
    QCOMPARE(offered.vesk, expected.vesk);
}

void TestMethodSelection::engineReports_data()
{
    QTest::addColumn<int>("report");
    QTest::addColumn<ReceiverState>("state");
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("0 is idle") << 0 << Idle << QByteArray("Idle");
    QTest::newRow("1 is searching") << 1 << Searching << QByteArray("Search");
    QTest::newRow("2 is a fix") << 2 << Fix << QByteArray("Tracking");
    QTest::newRow("anything else is idle") << 3 << Idle << QByteArray("Idle");
    QTest::newRow("a negative report is idle") << -1 << Idle << QByteArray("Idle");
}

void TestMethodSelection::engineReports()
{
    QFETCH(int, report);
    QTEST(engineReport(report).state, "state");
    QTEST(QByteArray(engineReport(report).name), "name");
}

void TestMethodSelection::gypsyReports_data()
{
    QTest::addColumn<int>("report");
    QTest::addColumn<ReceiverState>("state");
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("0 is idle") << 0 << Idle << QByteArray("Idle");
    QTest::newRow("1, no fix yet, is searching") << 1 << Searching << QByteArray("Search");
    QTest::newRow("2 is a fix in two dimensions") << 2 << Fix << QByteArray("Fix");
    QTest::newRow("3 is a fix in three dimensions") << 3 << Fix << QByteArray("Fix");
    QTest::newRow("anything else is idle") << 4 << Idle << QByteArray("Idle");
    QTest::newRow("a negative report is idle") << -1 << Idle << QByteArray("Idle");
}

void TestMethodSelection::gypsyReports()
{
    QFETCH(int, report);
    QTEST(gypsyReport(report).state, "state");
    QTEST(QByteArray(gypsyReport(report).name), "name");
}

QTEST_APPLESS_MAIN(TestMethodSelection)
#include "tst_methodselection.moc"
