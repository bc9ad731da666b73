#include "orvd-gpsd/sessiontable.h"

#include <QTest>

using namespace orvdgpsd;
using namespace std::chrono_literals;

namespace {
using Deliveries = std::vector<SessionTable::Delivery>;

Epoch fixAt(std::optional<std::chrono::milliseconds> time)
{
    FixReport report;
    report.hasFix = true;
    if (time)
        report.time = ReceiverTime(1700000000s + *time);
    return {report, std::nullopt};
}

Epoch noFix()
{
    return {std::nullopt, SkyReport{}};
}
} // namespace

class TestSessionTable : public QObject
{
    Q_OBJECT
private slots:
    void nobodyIsDueWithoutSessions()
    {
        SessionTable table;
        QVERIFY(table.isEmpty());
        QVERIFY(table.take(fixAt(0ms), 1, 0ms).empty());
    }

    // How many of so many epochs, so far apart in receiver time, reach a session. All arrive at once, as
    // those of a recording do.
    void everySessionGetsItsEpochs_data()
    {
        QTest::addColumn<int>("intervalSeconds");
        QTest::addColumn<int>("apartMs");
        QTest::addColumn<int>("epochs");
        QTest::addColumn<int>("delivered");
        QTest::newRow("1 s of 1 Hz: all") << 1 << 1000 << 60 << 60;
        QTest::newRow("1 s of 5 Hz: all") << 1 << 200 << 50 << 50;
        QTest::newRow("1 s of a receiver whose seconds are short: all") << 1 << 850 << 60 << 60;
        QTest::newRow("no interval: all") << 0 << 1000 << 10 << 10;
        QTest::newRow("2 s of 1 Hz: every other") << 2 << 1000 << 60 << 30;
        QTest::newRow("2 s of 5 Hz: every tenth") << 2 << 200 << 100 << 10;
        QTest::newRow("5 s of a receiver whose seconds are short: every fifth") << 5 << 999 << 60 << 12;
        QTest::newRow("60 s of 1 Hz") << 60 << 1000 << 181 << 4;
        QTest::newRow("2 s of a receiver that is slower: all") << 2 << 5000 << 10 << 10;
        QTest::newRow("the longest interval: the first") << 65535 << 1000 << 100 << 1;
    }
    void everySessionGetsItsEpochs()
    {
        QFETCH(int, intervalSeconds);
        QFETCH(int, apartMs);
        QFETCH(int, epochs);
        SessionTable table;
        table.start(7, quint16(intervalSeconds));
        int delivered = 0;
        for (int i = 0; i < epochs; ++i)
            delivered += int(table.take(fixAt(i * std::chrono::milliseconds(apartMs)), 0, 0ms).size());
        QTEST(delivered, "delivered");
    }

    void sessionsAreDueEachForItself()
    {
        SessionTable table;
        table.start(7, 1);
        table.start(8, 3);
        QCOMPARE(table.take(fixAt(0s), 0, 0ms).size(), 2u);
        QVERIFY((table.take(fixAt(1s), 0, 0ms) == Deliveries{{7, false}}));
        table.start(9, 60);
        QVERIFY((table.take(fixAt(2s), 0, 0ms) == Deliveries{{7, false}, {9, false}}));
        QVERIFY((table.take(fixAt(3s), 0, 0ms) == Deliveries{{7, false}, {8, false}}));
    }

    void timeThatGoesBackMakesDueAtOnce()
    {
        SessionTable table;
        table.start(7, 60);
        QCOMPARE(table.take(fixAt(500s), 0, 0ms).size(), 1u);
        QCOMPARE(table.take(fixAt(0s), 0, 1ms).size(), 1u);
        QCOMPARE(table.take(fixAt(1s), 0, 2ms).size(), 0u);
    }

    void withoutReceiverTimeTheArrivalCounts()
    {
        SessionTable table;
        table.start(7, 10);
        QCOMPARE(table.take(fixAt({}), 0, 1000ms).size(), 1u);
        QCOMPARE(table.take(fixAt({}), 0, 10000ms).size(), 0u);
        QCOMPARE(table.take(fixAt({}), 0, 11000ms).size(), 1u);
        QCOMPARE(table.take(fixAt(0s), 0, 15000ms).size(), 0u);
        QCOMPARE(table.take(fixAt(0s), 0, 21000ms).size(), 1u);
    }

    void aSearchDoesNotDelayTheFirstFix()
    {
        SessionTable table;
        table.start(7, 60);
        QCOMPARE(table.take(noFix(), 1, 0ms).size(), 1u);
        QCOMPARE(table.take(noFix(), 2, 1000ms).size(), 0u);
        QCOMPARE(table.take(fixAt(0s), 2, 2000ms).size(), 1u);
    }

    void everySkyOfASearchIsSentAtTheShortestInterval()
    {
        SessionTable table;
        table.start(7, 1);
        for (quint64 sky = 1; sky <= 5; ++sky)
            QVERIFY((table.take(noFix(), sky, 0ms) == Deliveries{{7, true}}));
    }

    void aSearchWithoutANewSkySaysNothing()
    {
        SessionTable table;
        table.start(7, 1);
        QCOMPARE(table.take(noFix(), 1, 0ms).size(), 1u);
        QCOMPARE(table.take(noFix(), 1, 5000ms).size(), 0u);
    }

    void aSkyIsSentToEachSessionOnce()
    {
        SessionTable table;
        table.start(7, 1);
        QVERIFY((table.take(fixAt(0s), 1, 0ms) == Deliveries{{7, true}}));
        QVERIFY((table.take(fixAt(1s), 1, 0ms) == Deliveries{{7, false}}));
        table.start(8, 1);
        QVERIFY((table.take(fixAt(2s), 1, 0ms) == Deliveries{{7, false}, {8, true}}));
        QVERIFY((table.take(fixAt(3s), 2, 0ms) == Deliveries{{7, true}, {8, true}}));
    }

    void aSkyThatCameWhileNotDueIsSentWithTheNext()
    {
        SessionTable table;
        table.start(7, 2);
        QVERIFY((table.take(fixAt(0s), 1, 0ms) == Deliveries{{7, true}}));
        QVERIFY(table.take(fixAt(1s), 2, 0ms).empty());
        QVERIFY((table.take(fixAt(2s), 2, 0ms) == Deliveries{{7, true}}));
    }

    void aNewIntervalCountsFromTheLastFix()
    {
        SessionTable table;
        table.start(7, 60);
        QCOMPARE(table.take(fixAt(0s), 0, 0ms).size(), 1u);
        table.setInterval(7, 5);
        QCOMPARE(table.take(fixAt(4s), 0, 0ms).size(), 0u);
        QCOMPARE(table.take(fixAt(5s), 0, 0ms).size(), 1u);
    }

    void aNewIntervalStartsAnUnknownSession()
    {
        SessionTable table;
        table.setInterval(7, 5);
        QCOMPARE(table.take(fixAt(0s), 0, 0ms).size(), 1u);
    }

    void aSecondStartReplacesTheFirst()
    {
        SessionTable table;
        table.start(7, 60);
        QCOMPARE(table.take(fixAt(0s), 0, 0ms).size(), 1u);
        table.start(7, 1);
        QCOMPARE(table.take(fixAt(1s), 0, 0ms).size(), 1u);
    }

    void aStoppedSessionGetsNothing()
    {
        SessionTable table;
        table.start(7, 1);
        table.start(8, 1);
        QVERIFY(table.stop(7));
        QVERIFY(!table.stop(7));
        QVERIFY((table.take(fixAt(0s), 0, 0ms) == Deliveries{{8, false}}));
        QVERIFY(table.stop(8));
        QVERIFY(table.isEmpty());
    }
};

QTEST_APPLESS_MAIN(TestSessionTable)
#include "tst_sessiontable.moc"
