#include "core/powersavecycle.h"

#include <QTest>

using namespace std::chrono_literals;

using Round = PowerSaveCycle::Round;
using Report = PowerSaveCycle::Report;
using Screen = PowerSaveCycle::Screen;
Q_DECLARE_METATYPE(std::chrono::seconds)
Q_DECLARE_METATYPE(ReceiverState)
Q_DECLARE_METATYPE(Report)
Q_DECLARE_METATYPE(Screen)

namespace {

constexpr Round allowed(std::chrono::seconds length)
{
    return {.length = length, .countSatellitesAfresh = true, .replan = true};
}

constexpr Round withheld(std::chrono::seconds length)
{
    return {.length = length, .replan = true};
}

// A cycle in this round, in which no satellite was heard so far.
PowerSaveCycle inRound(int round)
{
    PowerSaveCycle cycle;
    if (round >= 0)
        cycle.arm();
    while (cycle.round() < round)
        cycle.next(0);
    return cycle;
}

} // namespace

class TestPowerSaveCycle : public QObject
{
    Q_OBJECT

private slots:
    void offAtFirst();
    void timeline_data();
    void timeline();
    void heardSatellitesDelayAWithheldRoundOnce_data();
    void heardSatellitesDelayAWithheldRoundOnce();
    void theDelayEndsInTheRoundItDelayed();
    void everyWithheldRoundMayBeDelayedAnew();
    void disablingForgetsTheDelay();
    void rearming_data();
    void rearming();
    void reports_data();
    void reports();
    void aReportDuringTheDelayCountsAsInAnAllowedRound();
    void screen_data();
    void screen();
};

void TestPowerSaveCycle::offAtFirst()
{
    PowerSaveCycle cycle;
    QVERIFY(cycle.isOff());
    QCOMPARE(cycle.round(), -1);
    QVERIFY(!cycle.withholdsSatellites());
    QVERIFY(!cycle.next(0));
    QVERIFY(!cycle.next(7));
    QCOMPARE(cycle.round(), -1);
    cycle.arm();
    QVERIFY(!cycle.isOff());
    QCOMPARE(cycle.round(), 0);
    QVERIFY(!cycle.withholdsSatellites());
}

void TestPowerSaveCycle::timeline_data()
{
    QTest::addColumn<int>("round");
    QTest::addColumn<std::chrono::seconds>("length");
    const auto row = [](int round, std::chrono::seconds length) {
        QTest::addRow("round %d %s satellites for %lld s", round, round % 2 ? "allows" : "withholds",
                      qlonglong(length.count()))
            << round << length;
    };
    row(1, 300s);
    row(2, 60s);
    row(3, 20s);
    row(4, 90s);
    row(5, 10s);
    row(6, 120s);
    row(7, 20s);
    row(8, 120s);
    row(9, 10s);
    row(10, 120s);
    row(11, 20s);
    row(12, 120s);
    row(13, 10s);
    row(99, 20s);
    row(100, 120s);
    row(101, 10s);
}

void TestPowerSaveCycle::timeline()
{
    QFETCH(int, round);
    QFETCH(std::chrono::seconds, length);
    PowerSaveCycle cycle = inRound(round - 1);
    QCOMPARE(cycle.next(0), round % 2 ? allowed(length) : withheld(length));
    QCOMPARE(cycle.round(), round);
    QCOMPARE(cycle.withholdsSatellites(), round % 2 == 0);
}

void TestPowerSaveCycle::heardSatellitesDelayAWithheldRoundOnce_data()
{
    QTest::addColumn<int>("round");
    QTest::addColumn<int>("heard");
    QTest::addColumn<std::chrono::seconds>("delay");
    QTest::newRow("none heard, no delay") << 4 << 0 << 0s;
    QTest::newRow("round 2 is never delayed") << 2 << 5 << 0s;
    QTest::newRow("one satellite is worth 20 s") << 4 << 1 << 20s;
    QTest::newRow("twelve satellites are worth 4 minutes") << 6 << 12 << 240s;
    QTest::newRow("as many as a report can hold") << 100 << 255 << 5100s;
    QTest::newRow("allowed rounds are not delayed") << 5 << 5 << 0s;
}

void TestPowerSaveCycle::heardSatellitesDelayAWithheldRoundOnce()
{
    QFETCH(int, round);
    QFETCH(int, heard);
    QFETCH(std::chrono::seconds, delay);
    PowerSaveCycle cycle = inRound(round - 1);
    if (delay != 0s) {
        // Satellites stay allowed meanwhile, and counted: nothing is planned, nothing is reset.
        QCOMPARE(cycle.next(heard), Round{.length = delay});
        QCOMPARE(cycle.round(), round - 1);
        QVERIFY(!cycle.withholdsSatellites());
    }
    const auto entered = cycle.next(heard);
    QVERIFY(entered && entered->replan);
    QCOMPARE(cycle.round(), round);
}

void TestPowerSaveCycle::theDelayEndsInTheRoundItDelayed()
{
    PowerSaveCycle cycle = inRound(3);
    QCOMPARE(cycle.next(3), Round{.length = 60s});
    QCOMPARE(cycle.next(8), withheld(90s)); // more were heard meanwhile: once is enough
    QCOMPARE(cycle.next(8), allowed(10s));
}

void TestPowerSaveCycle::everyWithheldRoundMayBeDelayedAnew()
{
    PowerSaveCycle cycle = inRound(3);
    QCOMPARE(cycle.next(1), Round{.length = 20s});
    QCOMPARE(cycle.next(1), withheld(90s));
    QCOMPARE(cycle.next(1), allowed(10s));
    QCOMPARE(cycle.next(2), Round{.length = 40s});
    QCOMPARE(cycle.next(2), withheld(120s));
}

void TestPowerSaveCycle::disablingForgetsTheDelay()
{
    PowerSaveCycle cycle = inRound(3);
    cycle.next(1);
    cycle.disable();
    QVERIFY(cycle.isOff());
    cycle.arm();
    while (cycle.round() < 3)
        cycle.next(0);
    QCOMPARE(cycle.next(1), Round{.length = 20s});
}

void TestPowerSaveCycle::rearming_data()
{
    QTest::addColumn<int>("round");
    QTest::addColumn<bool>("left");
    QTest::newRow("off stays off") << -1 << false;
    QTest::newRow("armed stays armed") << 0 << false;
    QTest::newRow("the first round is left") << 1 << true;
    QTest::newRow("a withheld round is left") << 6 << true;
}

void TestPowerSaveCycle::rearming()
{
    QFETCH(int, round);
    QFETCH(bool, left);
    PowerSaveCycle cycle = inRound(round);
    QCOMPARE(cycle.rearm(), left);
    QCOMPARE(cycle.round(), left ? 0 : round);
    QVERIFY(!cycle.withholdsSatellites());
    if (left)
        QCOMPARE(cycle.next(5), allowed(300s));
}

void TestPowerSaveCycle::reports_data()
{
    QTest::addColumn<int>("round");
    QTest::addColumn<ReceiverState>("state");
    QTest::addColumn<Report>("expected");
    using enum ReceiverState;
    QTest::newRow("a search arms it") << -1 << Searching << Report::Enable;
    QTest::newRow("a search while armed is nothing new") << 0 << Searching << Report::Nothing;
    QTest::newRow("a search in an allowed round is nothing new") << 3 << Searching << Report::Nothing;
    QTest::newRow("a search in a withheld round is nothing new") << 4 << Searching << Report::Nothing;
    QTest::newRow("a fix ends it while armed") << 0 << Fix << Report::Disable;
    QTest::newRow("a fix ends it in an allowed round") << 1 << Fix << Report::Disable;
    QTest::newRow("a fix ends it in a withheld round") << 2 << Fix << Report::Disable;
    QTest::newRow("a fix is heeded while it is off") << -1 << Fix << Report::Disable;
    QTest::newRow("an idle receiver ends it while armed") << 0 << Idle << Report::Disable;
    QTest::newRow("an idle receiver ends it in round 1") << 1 << Idle << Report::Disable;
    QTest::newRow("an idle receiver ends it in round 5") << 5 << Idle << Report::Disable;
    QTest::newRow("an idle receiver keeps it in round 2") << 2 << Idle << Report::Nothing;
    QTest::newRow("an idle receiver keeps it in round 4") << 4 << Idle << Report::Nothing;
    QTest::newRow("an idle receiver changes nothing while it is off") << -1 << Idle << Report::Nothing;
}

void TestPowerSaveCycle::reports()
{
    QFETCH(int, round);
    QFETCH(ReceiverState, state);
    QTEST(inRound(round).afterReport(state), "expected");
}

void TestPowerSaveCycle::aReportDuringTheDelayCountsAsInAnAllowedRound()
{
    PowerSaveCycle cycle = inRound(3);
    QVERIFY(cycle.next(1));
    QCOMPARE(cycle.afterReport(ReceiverState::Idle), Report::Disable);
}

void TestPowerSaveCycle::screen_data()
{
    QTest::addColumn<int>("round");
    QTest::addColumn<bool>("blanked");
    QTest::addColumn<Screen>("expected");
    QTest::newRow("going dark while off") << -1 << true << Screen::Nothing;
    QTest::newRow("lighting up while off") << -1 << false << Screen::Nothing;
    QTest::newRow("going dark while armed") << 0 << true << Screen::Begin;
    QTest::newRow("lighting up while armed") << 0 << false << Screen::Rearm;
    QTest::newRow("dark already in an allowed round") << 1 << true << Screen::Nothing;
    QTest::newRow("dark already in a withheld round") << 6 << true << Screen::Nothing;
    QTest::newRow("lighting up in an allowed round") << 3 << false << Screen::Rearm;
    QTest::newRow("lighting up in a withheld round") << 6 << false << Screen::Rearm;
}

void TestPowerSaveCycle::screen()
{
    QFETCH(int, round);
    QFETCH(bool, blanked);
    QTEST(inRound(round).afterScreen(blanked), "expected");
}

QTEST_APPLESS_MAIN(TestPowerSaveCycle)
#include "tst_powersavecycle.moc"
