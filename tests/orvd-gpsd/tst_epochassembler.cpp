#include "orvd-gpsd/epochfeed.h"

#include <QTest>

using namespace orvdgpsd;
using namespace orvdgpsd::test;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(Known FixReport::*)

// Where an epoch begins and ends, and which fix is its own.
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
};

QTEST_APPLESS_MAIN(TestEpochAssembler)
#include "tst_epochassembler.moc"
