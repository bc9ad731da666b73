#include "client/fixfilters.h"

#include <QTest>

#include <vector>

using Fix = LastNetworkFix::Fix;
using Verdict = InvalidFixGate::Verdict;

Q_DECLARE_METATYPE(std::vector<double>)

namespace {

constexpr double None = -1.0;

struct GateStep {
    FixSource source;
    bool valid;
    Verdict expected;
};

constexpr Verdict Pass{};
constexpr Verdict HoldBack{.holdBack = true};
constexpr Verdict HoldBackAndForget{.holdBack = true, .forgetNetworkFix = true};
constexpr Verdict Forget{.forgetNetworkFix = true};

} // namespace

Q_DECLARE_METATYPE(std::vector<GateStep>)

class TestFixFilters : public QObject
{
    Q_OBJECT
private slots:
    void theSameNetworkFixIsARepeat()
    {
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(last.isRepeat(Fix{60.1, 24.9, 50.0}));
    }

    void aNetworkFixIsNews_data()
    {
        QTest::addColumn<Fix>("fix");
        QTest::newRow("when its latitude moved by one step of a double")
            << Fix{std::nextafter(60.1, 61.0), 24.9, 50.0};
        QTest::newRow("when its longitude moved by one step of a double")
            << Fix{60.1, std::nextafter(24.9, 25.0), 50.0};
        QTest::newRow("when only its accuracy changed") << Fix{60.1, 24.9, 51.0};
        QTest::newRow("when it came without accuracy") << Fix{60.1, 24.9, std::nullopt};
    }
    void aNetworkFixIsNews()
    {
        QFETCH(Fix, fix);
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(!last.isRepeat(fix));
        // What was news is what the next one is held against.
        QCOMPARE(last.isRepeat(fix), fix.accuracy.has_value());
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
    }

    void aFixWithoutAccuracyIsNeverARepeat()
    {
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(Fix{0.0, 0.0, std::nullopt}));
        QVERIFY(!last.isRepeat(Fix{0.0, 0.0, std::nullopt}));
        // It leaves -1 behind, so that the invalid fix after it counts as told already.
        QVERIFY(last.isRepeat(std::nullopt));
    }

    void onlyTheFirstInvalidFixIsNews()
    {
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(!last.isRepeat(std::nullopt));
        QVERIFY(last.isRepeat(std::nullopt));
        QVERIFY(last.isRepeat(std::nullopt));
    }

    void theSameFixAfterAnInvalidOneIsNews()
    {
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(!last.isRepeat(std::nullopt));
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(!last.isRepeat(std::nullopt));
    }

    void anInvalidFixKeepsThePlace()
    {
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(Fix{60.1, 24.9, 50.0}));
        QVERIFY(!last.isRepeat(std::nullopt));
        QVERIFY(last.isRepeat(Fix{60.1, 24.9, None})); // nothing but the accuracy was replaced
    }

    void theFirstInvalidFixEverIsNews()
    {
        LastNetworkFix last;
        QVERIFY(!last.isRepeat(std::nullopt));
    }

    void afterAResetZeroesAreARepeat()
    {
        LastNetworkFix fresh;
        QVERIFY(fresh.isRepeat(Fix{0.0, 0.0, 0.0}));
        LastNetworkFix used;
        QVERIFY(!used.isRepeat(Fix{60.1, 24.9, 50.0}));
        used.reset();
        QVERIFY(used.isRepeat(Fix{0.0, 0.0, 0.0}));
        QVERIFY(!used.isRepeat(Fix{60.1, 24.9, 50.0}));
    }

    void speedIsLent_data()
    {
        QTest::addColumn<std::vector<double>>("before"); // oldest first
        QTest::addColumn<int>("interval");
        QTest::addColumn<double>("lent");
        const auto row = [](const char *name, std::vector<double> before, int interval, double lent) {
            QTest::newRow(name) << before << interval << lent;
        };
        row("nothing is known at the start", {}, 1, None);
        row("1 s: the newer of two known speeds", {4.0, 5.0}, 1, 5.0);
        row("2 s: the newer of two known speeds", {4.0, 5.0}, 2, 5.0);
        row("3 s: never", {3.0, 4.0, 5.0}, 3, None);
        row("60 s: never", {3.0, 4.0, 5.0}, 60, None);
        row("0 s: never", {3.0, 4.0, 5.0}, 0, None);
        row("1 s: a single known speed is not enough", {5.0}, 1, None);
        row("2 s: a single known speed is not enough", {5.0}, 2, None);
        row("1 s: one fix without speed is bridged", {3.0, 4.0, None}, 1, 4.0);
        row("2 s: one fix without speed is not bridged", {3.0, 4.0, None}, 2, None);
        row("1 s: a known speed beside a gap is not enough", {3.0, None, 5.0}, 1, None);
        row("1 s: two fixes without speed are not bridged", {2.0, 3.0, None, None}, 1, None);
        row("1 s: the fourth fix back no longer counts", {3.0, 4.0, None, None}, 1, None);
        row("1 s: standing still is a speed", {0.0, 0.0}, 1, 0.0);
        row("the ring of four turns over", {9.0, 8.0, 7.0, 6.0, 5.0, 4.0}, 1, 4.0);
        row("the ring of four turns over with a gap", {9.0, 8.0, 7.0, 6.0, 5.0, None}, 1, 5.0);
    }
    void speedIsLent()
    {
        QFETCH(std::vector<double>, before);
        QFETCH(int, interval);
        QFETCH(double, lent);
        SpeedHistory history;
        for (const double speed : before)
            history.record(speed == None ? std::nullopt : std::optional(speed));
        QCOMPARE(history.guess(interval).value_or(None), lent);
    }

    void aClearedHistoryLendsNothing()
    {
        SpeedHistory history;
        for (const double speed : {1.0, 2.0, 3.0, 4.0})
            history.record(speed);
        history.clear();
        QVERIFY(!history.guess(1));
        history.record(5.0);
        QVERIFY(!history.guess(1));
        history.record(6.0);
        QCOMPARE(history.guess(1), std::optional(6.0));
    }

    void invalidFixes_data()
    {
        QTest::addColumn<bool>("gnss");
        QTest::addColumn<bool>("supl");
        QTest::addColumn<std::vector<GateStep>>("steps");
        using enum FixSource;
        const auto row = [](const char *name, bool gnss, bool supl, std::vector<GateStep> steps) {
            QTest::newRow(name) << gnss << supl << steps;
        };
        row("satellite only: every invalid fix goes out", true, false,
            {{Satellite, false, Pass}, {Satellite, false, Pass}});
        row("network only: every invalid fix goes out", false, true, {{Network, false, Pass}});
        row("neither runs: an invalid fix goes out", false, false,
            {{Other, false, Pass}, {Satellite, false, Pass}});
        row("both: valid fixes always go out", true, true,
            {{Satellite, true, Pass}, {Network, true, Pass}, {Other, true, Pass}});
        row("both: the satellites' invalid fix waits for the network's", true, true,
            {{Satellite, false, HoldBackAndForget}, {Network, false, Pass}, {Satellite, false, Pass}});
        row("both: the network's invalid fix waits for the satellites'", true, true,
            {{Network, false, HoldBack}, {Satellite, false, Pass}, {Network, false, Pass}});
        row("both: a valid network fix holds back the satellites' again", true, true,
            {{Network, false, HoldBack},
             {Satellite, false, Pass},
             {Network, true, Pass},
             {Satellite, false, HoldBackAndForget}});
        row("both: a valid satellite fix holds back the network's again", true, true,
            {{Satellite, false, HoldBackAndForget},
             {Network, false, Pass},
             {Satellite, true, Pass},
             {Network, false, HoldBack}});
        row("both: any other invalid fix counts for neither", true, true,
            {{Other, false, HoldBack},
             {Network, false, HoldBack},
             {Satellite, false, Pass},
             {Other, false, Pass}});
        row("network without satellites: a lost satellite fix makes the next network fix news", false, true,
            {{Satellite, false, Forget}, {Network, false, Pass}, {Satellite, false, Pass}});
    }
    void invalidFixes()
    {
        QFETCH(bool, gnss);
        QFETCH(bool, supl);
        QFETCH(std::vector<GateStep>, steps);
        InvalidFixGate gate;
        for (const GateStep &step : steps) {
            const Verdict verdict = gate.judge(step.source, step.valid, gnss, supl);
            QCOMPARE(verdict.holdBack, step.expected.holdBack);
            QCOMPARE(verdict.forgetNetworkFix, step.expected.forgetNetworkFix);
        }
    }

    void startingAMethodForgetsItsInvalidFix()
    {
        InvalidFixGate gate;
        QCOMPARE(gate.judge(FixSource::Satellite, false, true, false), Pass);
        gate.clearSatellite();
        QCOMPARE(gate.judge(FixSource::Network, false, true, true), HoldBack);

        QCOMPARE(gate.judge(FixSource::Satellite, false, true, true), Pass);
        gate.clearNetwork();
        QCOMPARE(gate.judge(FixSource::Satellite, false, true, true), HoldBackAndForget);
    }
};

QTEST_APPLESS_MAIN(TestFixFilters)
#include "tst_fixfilters.moc"
