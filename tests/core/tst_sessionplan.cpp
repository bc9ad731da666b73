#include "core/methodselection.h"
#include "core/sessionplan.h"

#include <QTest>

Q_DECLARE_METATYPE(ServiceState)
Q_DECLARE_METATYPE(StopPlan)
Q_DECLARE_METATYPE(ModifyPlan)
Q_DECLARE_METATYPE(StartPlan)
Q_DECLARE_METATYPE(LossPlan)
Q_DECLARE_METATYPE(SatelliteRequest)
Q_DECLARE_METATYPE(SatelliteRoute)

using namespace Methods;

class TestSessionPlan : public QObject
{
    Q_OBJECT

private slots:
    void stop_data();
    void stop();
    void modify_data();
    void modify();
    void start_data();
    void start();
    void engineLost_data();
    void engineLost();
    void route_data();
    void route();
};

void TestSessionPlan::stop_data()
{
    QTest::addColumn<ServiceState>("client");
    QTest::addColumn<quint32>("methods");
    QTest::addColumn<StopPlan>("expected");

    const auto row = [](const char *name, const ServiceState &client, quint32 methods,
                        const StopPlan &expected) { QTest::newRow(name) << client << methods << expected; };
    const ServiceState both{.stopped = false, .actGNSS = true, .actSUPL = true};
    const ServiceState none{.stopped = false};

    row("nothing to stop leaves both sessions", both, 0, {});
    row("satellite methods end the satellite session only", both, Satellite, {.gnss = true});
    row("one satellite bit is enough", both, 0x01, {.gnss = true});
    row("network methods end the network enrolment only", both, NonSatellite,
        {.supl = true, .networkCleared = true});
    row("one network bit is enough", both, 0x100, {.supl = true, .networkCleared = true});
    row("all methods end both", both, All, {.gnss = true, .supl = true, .networkCleared = true});
    row("a stopped client loses both whatever the mask", {.actGNSS = true, .actSUPL = true}, 0,
        {.gnss = true, .supl = true, .networkCleared = true});
    row("what does not run is not stopped", none, Satellite, {});
    row("the network state is cleared without an enrolment too", none, NonSatellite,
        {.networkCleared = true});
    row("a stopped client without sessions clears the network state", {}, 0, {.networkCleared = true});
}

void TestSessionPlan::stop()
{
    QFETCH(ServiceState, client);
    QFETCH(quint32, methods);
    QFETCH(StopPlan, expected);
    const StopPlan plan = planStop(client, methods);
    QCOMPARE(plan.gnss, expected.gnss);
    QCOMPARE(plan.supl, expected.supl);
    QCOMPARE(plan.networkCleared, expected.networkCleared);
}

void TestSessionPlan::modify_data()
{
    QTest::addColumn<ServiceState>("client");
    QTest::addColumn<ModifyPlan>("expected");

    const auto row = [](const char *name, const ServiceState &client, const ModifyPlan &expected) {
        QTest::newRow(name) << client << expected;
    };
    row("an unmodified client is left alone", {.stopped = false, .actGNSS = true, .actSUPL = true}, {});
    row("a modified client's satellite session gets the interval",
        {.stopped = false, .actGNSS = true, .modified = true}, {.gnss = true});
    row("a modified client's network enrolment gets the interval",
        {.stopped = false, .actSUPL = true, .modified = true}, {.supl = true});
    row("a modified client's both sessions get the interval",
        {.stopped = false, .actGNSS = true, .actSUPL = true, .modified = true}, {.gnss = true, .supl = true});
    row("a modified client without sessions has nothing to change", {.stopped = false, .modified = true}, {});
}

void TestSessionPlan::modify()
{
    QFETCH(ServiceState, client);
    QFETCH(ModifyPlan, expected);
    QCOMPARE(planModify(client).gnss, expected.gnss);
    QCOMPARE(planModify(client).supl, expected.supl);
}

void TestSessionPlan::start_data()
{
    QTest::addColumn<ServiceState>("client");
    QTest::addColumn<quint32>("methods");
    QTest::addColumn<StartPlan>("expected");

    const auto row = [](const char *name, const ServiceState &client, quint32 methods,
                        const StartPlan &expected) { QTest::newRow(name) << client << methods << expected; };
    const ServiceState started{.stopped = false};

    row("a stopped client starts nothing", {}, All, {});
    row("a stopped client is not told that nothing is available", {}, 0, {});
    row("no method available is told to the client", started, 0,
        {.nothingAvailable = true, .tellClient = true});
    row("a client that wants satellite information is not told", {.stopped = false, .satelliteInfo = true}, 0,
        {.nothingAvailable = true});
    row("a satellite method starts a satellite session", started, Satellite, {.gnss = true});
    row("one satellite bit starts a satellite session", started, 0x80, {.gnss = true});
    row("a network method enrols", started, NonSatellite, {.supl = true});
    row("the lowest network bit enrols", started, 0x100, {.supl = true});
    row("all methods start both", started, All, {.gnss = true, .supl = true});
    row("a running satellite session is not started again", {.stopped = false, .actGNSS = true}, All,
        {.supl = true});
    row("a running enrolment is not made again", {.stopped = false, .actSUPL = true}, All, {.gnss = true});
    row("running sessions of both kinds need nothing", {.stopped = false, .actGNSS = true, .actSUPL = true},
        All, {});
}

void TestSessionPlan::start()
{
    QFETCH(ServiceState, client);
    QFETCH(quint32, methods);
    QFETCH(StartPlan, expected);
    const StartPlan plan = planStart(client, methods);
    QCOMPARE(plan.nothingAvailable, expected.nothingAvailable);
    QCOMPARE(plan.tellClient, expected.tellClient);
    QCOMPARE(plan.gnss, expected.gnss);
    QCOMPARE(plan.supl, expected.supl);
}

void TestSessionPlan::engineLost_data()
{
    QTest::addColumn<ServiceState>("client");
    QTest::addColumn<bool>("libraryLocates");
    QTest::addColumn<LossPlan>("expected");

    const auto row = [](const char *name, const ServiceState &client, bool libraryLocates,
                        const LossPlan &expected) {
        QTest::newRow(name) << client << libraryLocates << expected;
    };
    const ServiceState both{.stopped = false, .actGNSS = true, .actSUPL = true};

    row("both go when the engine locates by the network too", both, false, {.gnss = true, .supl = true});
    row("the enrolment stays when the library locates", both, true, {.gnss = true});
    row("a satellite client loses its session", {.stopped = false, .actGNSS = true}, false, {.gnss = true});
    row("a network client of the engine loses its enrolment", {.stopped = false, .actSUPL = true}, false,
        {.supl = true});
    row("a network client of the library loses nothing", {.stopped = false, .actSUPL = true}, true, {});
    row("a stopped client whose sessions still run loses them", {.actGNSS = true, .actSUPL = true}, false,
        {.gnss = true, .supl = true});
    row("who has nothing loses nothing", {.stopped = false}, false, {});
}

void TestSessionPlan::engineLost()
{
    QFETCH(ServiceState, client);
    QFETCH(bool, libraryLocates);
    QTEST(planEngineLost(client, libraryLocates), "expected");
}

void TestSessionPlan::route_data()
{
    QTest::addColumn<SatelliteRequest>("request");
    QTest::addColumn<bool>("internalGps");
    QTest::addColumn<bool>("internalGpsDisabled");
    QTest::addColumn<SatelliteRoute>("expected");

    using enum SatelliteRequest;
    using enum SatelliteRoute;
    QTest::newRow("the internal receiver starts on the engine") << Start << true << false << Engine;
    QTest::newRow("the internal receiver changes on the engine") << ChangeInterval << true << false << Engine;
    QTest::newRow("the internal receiver stops on the engine") << Stop << true << false << Engine;
    QTest::newRow("without an internal receiver nobody starts") << Start << true << true << Nobody;
    QTest::newRow("without an internal receiver Gypsy changes")
        << ChangeInterval << true << true << ExternalReceiver;
    QTest::newRow("without an internal receiver Gypsy stops") << Stop << true << true << ExternalReceiver;
    QTest::newRow("the external receiver starts") << Start << false << false << ExternalReceiver;
    QTest::newRow("the external receiver changes") << ChangeInterval << false << false << ExternalReceiver;
    QTest::newRow("the external receiver stops") << Stop << false << false << ExternalReceiver;
    QTest::newRow("the external receiver needs no internal one")
        << Start << false << true << ExternalReceiver;
}

void TestSessionPlan::route()
{
    QFETCH(SatelliteRequest, request);
    QFETCH(bool, internalGps);
    QFETCH(bool, internalGpsDisabled);
    QTEST(routeOf(request, internalGps, internalGpsDisabled), "expected");
}

QTEST_APPLESS_MAIN(TestSessionPlan)
#include "tst_sessionplan.moc"
