#include "orvd-gpsd/epochfeed.h"

#include <QTest>

using namespace orvdgpsd;
using namespace orvdgpsd::test;
using namespace std::chrono_literals;

// Which epoch a sky belongs to, and when it is one of its own.
class TestEpochAssemblerSky : public QObject
{
    Q_OBJECT
private slots:
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

QTEST_APPLESS_MAIN(TestEpochAssemblerSky)
#include "tst_epochassembler_sky.moc"
