#include "orvd-gpsd/epochassembler.h"

#include <QTest>

using namespace orvdgpsd;
using namespace std::chrono_literals;

namespace {
ReceiverTime at(std::chrono::milliseconds sinceStart)
{
    return ReceiverTime(1700000000s + sinceStart);
}

FixReport fixAt(std::optional<std::chrono::milliseconds> time, double latitude = 50.0)
{
    FixReport report;
    if (time)
        report.time = at(*time);
    report.hasFix = true;
    report.latitude = latitude;
    report.longitude = 4.0;
    return report;
}

FixReport noFixAt(std::optional<std::chrono::milliseconds> time)
{
    FixReport report;
    if (time)
        report.time = at(*time);
    return report;
}

FixReport moving(FixReport report)
{
    report.speed = 3.0;
    report.track = 120.0;
    return report;
}

FixReport high(FixReport report)
{
    report.heightAboveEllipsoid = 155.0;
    report.heightAboveSeaLevel = 109.0;
    report.climb = 0.0;
    return report;
}

SkyReport sky(std::initializer_list<int> prns, std::optional<std::chrono::milliseconds> time = {})
{
    SkyReport report;
    if (time)
        report.time = at(*time);
    for (int prn : prns)
        report.satellites.push_back({prn, false, 30.0, 45.0, 90.0});
    return report;
}

// Feeds reports in order and collects the epochs.
class Feed
{
public:
    template <typename Report>
    Feed &operator<<(const Report &report)
    {
        keep(assembler.add(report));
        return *this;
    }
    void end() { keep(assembler.end()); }

    EpochAssembler assembler;
    std::vector<Epoch> epochs;

private:
    void keep(const std::optional<Epoch> &epoch)
    {
        if (epoch)
            epochs.push_back(*epoch);
    }
};
} // namespace

Q_DECLARE_METATYPE(Known FixReport::*)

class TestEpochAssembler : public QObject
{
    Q_OBJECT
private slots:
    void nothingComesFromNothing()
    {
        Feed feed;
        QVERIFY(!feed.assembler.isPending());
        feed.end();
        QVERIFY(feed.epochs.empty());
    }

    void anEpochEndsWithTheNextOnesFirstReport()
    {
        Feed feed;
        feed << fixAt(0ms) << fixAt(0ms) << fixAt(0ms);
        QVERIFY(feed.epochs.empty());
        QVERIFY(feed.assembler.isPending());
        feed << fixAt(1000ms);
        QCOMPARE(feed.epochs.size(), 1u);
        QCOMPARE(*feed.epochs[0].fix, fixAt(0ms));
        QVERIFY(feed.assembler.isPending());
    }

    void anEpochEndsWithSilence()
    {
        Feed feed;
        feed << fixAt(0ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 1u);
        QVERIFY(!feed.assembler.isPending());
        feed.end();
        QCOMPARE(feed.epochs.size(), 1u);
    }

    void anEpochEndsWithTheStream()
    {
        Feed feed;
        feed << fixAt(0ms) << fixAt(1000ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
    }

    void theFullerReportWinsWhereverItStands()
    {
        Feed feed;
        feed << moving(fixAt(0ms)) << high(moving(fixAt(0ms))) << moving(fixAt(0ms)) << fixAt(0ms);
        feed.end();
        QCOMPARE(*feed.epochs.at(0).fix, high(moving(fixAt(0ms))));
    }

    void theLaterOfTwoEquallyFullReportsWins()
    {
        Feed feed;
        feed << moving(fixAt(0ms, 50.0)) << moving(fixAt(0ms, 51.0));
        feed.end();
        QCOMPARE(feed.epochs.at(0).fix->latitude, 51.0);
    }

    void fieldsOfTwoReportsAreNotMixed()
    {
        Feed feed;
        feed << moving(fixAt(0ms)) << high(fixAt(0ms));
        feed.end();
        QCOMPARE(*feed.epochs.at(0).fix, high(fixAt(0ms)));
    }

    void nothingOfAnEpochReachesTheNext()
    {
        Feed feed;
        feed << sky({1}) << high(moving(fixAt(0ms))) << fixAt(1000ms);
        feed.end();
        QCOMPARE(*feed.epochs.at(1).fix, fixAt(1000ms));
        QVERIFY(!feed.epochs.at(1).sky);
    }

    void epochsWithinASecondAreApart()
    {
        Feed feed;
        for (int i = 0; i < 10; ++i)
            feed << fixAt(200ms * i) << moving(fixAt(200ms * i));
        feed.end();
        QCOMPARE(feed.epochs.size(), 10u);
        for (int i = 0; i < 10; ++i)
            QCOMPARE(*feed.epochs[std::size_t(i)].fix, moving(fixAt(200ms * i)));
    }

    void timeThatGoesBackBeginsAnEpoch()
    {
        Feed feed; // the end of a recording, and its start again; the last jump is one of a real receiver
        feed << fixAt(8000ms) << fixAt(9000ms) << fixAt(0ms) << fixAt(1000ms) << fixAt(710ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 5u);
        QCOMPARE(feed.epochs[2].time(), at(0ms));
        QCOMPARE(feed.epochs[4].time(), at(710ms));
    }

    void reportsOfAnEpochThatIsDoneAreDropped()
    {
        Feed feed;
        feed << moving(fixAt(0ms));
        feed.end();
        feed << moving(fixAt(0ms)) << fixAt(0ms) << noFixAt(0ms);
        QVERIFY(!feed.assembler.wasLate());
        QVERIFY(!feed.assembler.isPending());
        feed.end();
        QCOMPARE(feed.epochs.size(), 1u);
    }

    void aFullerReportAfterTheSilenceIsToldAsLate()
    {
        Feed feed;
        feed << fixAt(0ms);
        feed.end();
        feed << moving(fixAt(0ms));
        QVERIFY(feed.assembler.wasLate());
        feed << fixAt(1000ms);
        QVERIFY(!feed.assembler.wasLate());
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
    }

    void aFixThatComesBeforeTheTimeBelongsToTheEpochThatNamesIt()
    {
        Feed feed;
        feed << high(moving(fixAt({}))) << high(moving(fixAt({}))) << fixAt(0ms) << fixAt(1000ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[0].fix, fixAt(0ms)); // with a time, though it knows less
        QCOMPARE(*feed.epochs[1].fix, fixAt(1000ms));
    }

    void aFixWithoutTimeAtAnotherPlaceIsAnEpochOfItsOwn()
    {
        Feed feed;
        feed << fixAt({}, 49.0) << moving(fixAt({}, 49.5)) << fixAt(0ms, 50.0);
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[0].fix, moving(fixAt({}, 49.5)));
        QCOMPARE(*feed.epochs[1].fix, fixAt(0ms, 50.0));
    }

    void aFixThatNeverGetsATimeIsAnEpochOfItsOwn_data()
    {
        QTest::addColumn<bool>("bySilence");
        QTest::newRow("ended by silence") << true;
        QTest::newRow("ended by the loss of the fix") << false;
    }
    void aFixThatNeverGetsATimeIsAnEpochOfItsOwn()
    {
        QFETCH(bool, bySilence);
        Feed feed;
        feed << noFixAt({}) << fixAt({}) << moving(fixAt({}));
        if (bySilence)
            feed.end();
        else
            feed << noFixAt({});
        QCOMPARE(feed.epochs.size(), 2u);
        QVERIFY(!feed.epochs[0].fix);
        QCOMPARE(*feed.epochs[1].fix, moving(fixAt({})));
    }

    void aFixWithoutTimeCanComeAgainAndAgain()
    {
        Feed feed;
        for (int i = 0; i < 3; ++i) {
            feed << fixAt({}, 50.0 + i);
            feed.end();
        }
        QCOMPARE(feed.epochs.size(), 3u);
        QCOMPARE(feed.epochs[2].fix->latitude, 52.0);
    }

    void aFixThatIsLostWithinItsEpochWasThere()
    {
        Feed feed;
        feed << moving(fixAt(0ms)) << noFixAt(0ms) << noFixAt({});
        QCOMPARE(feed.epochs.size(), 1u);
        QCOMPARE(*feed.epochs[0].fix, moving(fixAt(0ms)));
    }

    void aFixThatIsFoundWithinItsEpochIsThere()
    {
        Feed feed;
        feed << noFixAt(0ms);
        feed.end();
        feed << fixAt(0ms) << fixAt(1000ms);
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[1].fix, fixAt(0ms));
    }

    void theSkyBeforeAFixBelongsToIt()
    {
        Feed feed;
        for (int i = 0; i < 3; ++i)
            feed << sky({1, i + 2}) << fixAt(1000ms * i);
        feed.end();
        QCOMPARE(feed.epochs.size(), 3u);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(*feed.epochs[std::size_t(i)].sky, sky({1, i + 2}));
    }

    void theSkyAmongTheReportsOfAnEpochBelongsToIt()
    {
        Feed feed;
        for (int i = 0; i < 3; ++i)
            feed << fixAt(1000ms * i) << sky({1, i + 2}) << moving(fixAt(1000ms * i));
        feed.end();
        for (int i = 0; i < 3; ++i)
            QCOMPARE(*feed.epochs.at(std::size_t(i)).sky, sky({1, i + 2}));
    }

    void theSkyOfAReceiverThatSendsItLastBelongsToTheFixBefore()
    {
        Feed feed;
        for (int i = 0; i < 3; ++i)
            feed << fixAt(1000ms * i) << sky({1, i + 2});
        feed.end();
        QCOMPARE(feed.epochs.size(), 3u);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(*feed.epochs[std::size_t(i)].sky, sky({1, i + 2}));
    }

    void aSkyThatComesAmongTheReportsCanComeAfterTheLastToo()
    {
        Feed feed;
        feed << fixAt(0ms) << sky({1}) << fixAt(0ms); // among
        feed << fixAt(1000ms) << sky({2});            // after the last
        feed << fixAt(2000ms) << sky({3}) << fixAt(2000ms);
        feed.end();
        QCOMPARE(*feed.epochs.at(0).sky, sky({1}));
        QCOMPARE(*feed.epochs.at(1).sky, sky({2}));
        QCOMPARE(*feed.epochs.at(2).sky, sky({3}));
    }

    void silenceTellsWhetherTheSkyComesLast()
    {
        Feed feed; // it came first once, so the order is not clear before the silence
        feed << sky({1}) << fixAt(0ms) << sky({1, 2});
        feed.end();
        QCOMPARE(*feed.epochs.at(0).sky, sky({1, 2}));
        feed << fixAt(1000ms) << sky({1, 3}) << fixAt(2000ms);
        QCOMPARE(*feed.epochs.at(1).sky, sky({1, 3}));
    }

    void aSkyWithATimeGoesByIt()
    {
        Feed feed;
        feed << fixAt(0ms) << sky({1}, 1000ms) << fixAt(1000ms) << sky({2}, 1000ms) << fixAt(2000ms);
        feed.end();
        QVERIFY(!feed.epochs.at(0).sky);
        QCOMPARE(*feed.epochs.at(1).sky, sky({2}, 1000ms));
        QVERIFY(!feed.epochs.at(2).sky);
    }

    void aGrowingSkyIsOne()
    {
        Feed feed;
        feed << fixAt(0ms) << sky({}, 9ms) << sky({6}, 9ms) << sky({6, 29}, 9ms) << sky({6, 29, 2}, 9ms)
             << sky({6, 29}, 9ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 1u);
        QCOMPARE(*feed.epochs[0].sky, sky({6, 29, 2}, 9ms));
    }

    void aGrowingSkyWithoutATimeIsOne()
    {
        Feed feed;
        feed << sky({6}) << sky({6, 29}) << sky({6, 29, 2}) << noFixAt({}) << sky({6, 29, 2}) << noFixAt({});
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[0].sky, sky({6, 29, 2}));
    }

    void everySkyWithoutAFixComesOut()
    {
        Feed feed;
        feed << noFixAt({}) << sky({1, 2}) << noFixAt({}) << noFixAt({}) << sky({1, 3}) << noFixAt({})
             << sky({4}) << sky({5});
        feed.end();
        std::vector<SkyReport> skies;
        for (const Epoch &epoch : feed.epochs) {
            QVERIFY(!epoch.fix);
            if (epoch.sky)
                skies.push_back(*epoch.sky);
        }
        QVERIFY((skies == std::vector{sky({1, 2}), sky({1, 3}), sky({4}), sky({5})}));
    }

    void everySkyWithATimeButWithoutAFixComesOut()
    {
        Feed feed; // a receiver whose sky keeps another time than its fix
        feed << noFixAt(0ms) << sky({1}, 100ms) << noFixAt(0ms) << sky({2}, 5000ms) << noFixAt(9000ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[0].sky, sky({1}, 100ms));
        QCOMPARE(*feed.epochs[1].sky, sky({2}, 5000ms));
    }

    void anEmptySkyIsASky()
    {
        Feed feed;
        feed << sky({}) << noFixAt({});
        feed.end();
        QCOMPARE(*feed.epochs.at(0).sky, sky({}));
    }

    void theSkyOfTheLastSearchIsNotThatOfTheFix()
    {
        Feed feed;
        feed << sky({1}) << noFixAt({}) << sky({1, 2}) << noFixAt({}) << fixAt(0ms);
        feed.end();
        QCOMPARE(feed.epochs.size(), 3u);
        QCOMPARE(*feed.epochs[1].sky, sky({1, 2}));
        QVERIFY(!feed.epochs[1].fix);
        QVERIFY(feed.epochs[2].fix);
        QVERIFY(!feed.epochs[2].sky);
    }

    void aSkyAloneWaitsForTheNextFix()
    {
        Feed feed;
        feed << fixAt(0ms);
        feed.end();
        feed << sky({1, 2});
        QVERIFY(feed.assembler.isPending());
        QVERIFY(feed.assembler.isSkyWaiting());
        feed << fixAt(1000ms);
        QVERIFY(!feed.assembler.isSkyWaiting());
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[1].sky, sky({1, 2}));
    }

    void aReceiverThatSendsNothingButSkiesAfterAFixIsHeard()
    {
        Feed feed;
        feed << fixAt(0ms);
        feed.end();
        feed << sky({1, 2}) << sky({1, 3}) << sky({4});
        QCOMPARE(feed.epochs.size(), 3u);
        QCOMPARE(*feed.epochs[1].sky, sky({1, 2}));
        QCOMPARE(*feed.epochs[2].sky, sky({1, 3}));
        QVERIFY(feed.assembler.isSkyWaiting());
        feed.end();
        QCOMPARE(feed.epochs.size(), 4u);
        QCOMPARE(*feed.epochs[3].sky, sky({4}));
        QVERIFY(!feed.assembler.isPending());
    }

    void onlyAnEpochWithoutFixReportsIsASkyAlone()
    {
        Feed feed;
        feed << sky({1}) << fixAt(0ms);
        feed.end();
        feed << sky({1, 2});
        feed.end();
        feed << sky({1, 2, 3}) << noFixAt({});
        feed.end();
        feed << sky({1, 2, 4});
        QVERIFY(!feed.assembler.isSkyWaiting()); // for a fix that was lost
        feed.end();
        std::vector<bool> alone;
        for (const Epoch &epoch : feed.epochs)
            alone.push_back(epoch.isSkyAlone);
        QVERIFY((alone == std::vector{false, true, false, true}));
    }

    void everyFieldThatIsSentCounts_data()
    {
        QTest::addColumn<Known FixReport::*>("field");
        QTest::newRow("height above the ellipsoid") << &FixReport::heightAboveEllipsoid;
        QTest::newRow("height above sea level") << &FixReport::heightAboveSeaLevel;
        QTest::newRow("geoid separation") << &FixReport::geoidSeparation;
        QTest::newRow("east error") << &FixReport::eastError;
        QTest::newRow("north error") << &FixReport::northError;
        QTest::newRow("horizontal error") << &FixReport::horizontalError;
        QTest::newRow("vertical error") << &FixReport::verticalError;
        QTest::newRow("track") << &FixReport::track;
        QTest::newRow("track error") << &FixReport::trackError;
        QTest::newRow("magnetic variation") << &FixReport::magneticVariation;
        QTest::newRow("speed") << &FixReport::speed;
        QTest::newRow("speed error") << &FixReport::speedError;
        QTest::newRow("climb") << &FixReport::climb;
        QTest::newRow("climb error") << &FixReport::climbError;
    }
    void everyFieldThatIsSentCounts()
    {
        QFETCH(Known FixReport::*, field);
        FixReport fuller = fixAt(0ms);
        fuller.*field = 1.0;
        Feed feed;
        feed << fuller << fixAt(0ms);
        feed.end();
        QCOMPARE(*feed.epochs.at(0).fix, fuller);
    }

    void aSkyAloneComesOutAtTheEnd()
    {
        Feed feed;
        feed << fixAt(0ms);
        feed.end();
        feed << sky({1, 2});
        feed.end();
        QCOMPARE(feed.epochs.size(), 2u);
        QCOMPARE(*feed.epochs[1].sky, sky({1, 2}));
        QVERIFY(!feed.epochs[1].fix);
    }

    void aSkyWithoutAnyFixReportComesOutAfterSilence()
    {
        Feed feed;
        feed << sky({1, 2});
        QVERIFY(feed.assembler.isPending());
        feed.end();
        QCOMPARE(feed.epochs.size(), 1u);
    }
};

QTEST_APPLESS_MAIN(TestEpochAssembler)
#include "tst_epochassembler.moc"
