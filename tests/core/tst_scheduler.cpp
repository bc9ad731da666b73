#include "core/scheduler.h"
#include "support/logcapture.h"
#include "support/stillclock.h"

#include <QSignalSpy>
#include <QTest>

#include <climits>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int Day = 86400000;

// A scheduler on a clock that the test winds, and what it said.
struct Bench {
    StillClock clock;
    LogCapture log;
    Scheduler scheduler{clock};
    QTimer *timer = scheduler.findChild<QTimer *>();
    QSignalSpy asked{&scheduler, &Scheduler::reqSUPL};

    void wind(std::chrono::milliseconds time) { clock.elapsed += time; }
    // As the daemon does when a position arrives.
    QList<int> take() { return scheduler.takeDueClients(); }
    QStringList lines()
    {
        QStringList texts = log.takeLines();
        for (QString &text : texts)
            text.remove(u"debug: Scheduler::"_s);
        return texts;
    }
    int asksSince()
    {
        const int count = int(asked.count());
        asked.clear();
        return count;
    }
};

QStringList table(const QStringList &rows)
{
    QStringList lines{u"debug: ### Scheduler::dumpClientTable: clients: %1 ###"_s.arg(rows.size())};
    for (const QString &row : rows)
        lines << u"debug: "_s + row;
    return lines;
}

} // namespace

class TestScheduler : public QObject
{
    Q_OBJECT

private slots:
    void itStartsEmptyAndQuiet();
    void theFirstClientIsAskedForAtOnce();
    void theSecondJoinsTheBatchAndGetsIntoPhase();
    void oneBatchAtATime();
    void theTimerIsPlannedForTheNextClient_data();
    void theTimerIsPlannedForTheNextClient();
    void anEmptyTableIsLookedAtADayLater();
    void theTimerTakesTheNextStep();
    void theSameIntervalChangesNothing();
    void aNewIntervalStartsInPhase();
    void aClientGoesWithItsPlaceInTheBatch();
    void clientsMayComeTwice();
    void aReceiverMayAnswerAtOnce();
};

void TestScheduler::itStartsEmptyAndQuiet()
{
    Bench bench;
    QCOMPARE(bench.lines(), QStringList());
    QVERIFY(!bench.timer->isActive());
    QVERIFY(!bench.scheduler.hasClient(6000));
    QCOMPARE(bench.scheduler.intervalOf(6000), -1);
    QCOMPARE(bench.take(), QList<int>());
}

void TestScheduler::theFirstClientIsAskedForAtOnce()
{
    Bench bench;
    QObject::connect(&bench.scheduler, &Scheduler::reqSUPL, [] { qDebug("asked"); });
    QCOMPARE(bench.scheduler.addClient(6000, 10), 0);
    QCOMPARE(bench.lines(), QStringList{u"addClient: id: 6000, interval: 10"_s}
                                << u"nextStep"_s << table({u"id: 6000, interval: 10s, elapsed: 10000ms"_s})
                                << u"debug: asked"_s << u"nextTimeStep: next step in 10000ms"_s
                                << table({u"id: 6000, interval: 10s, elapsed: 0ms"_s}));
    QCOMPARE(bench.asksSince(), 1);
    QVERIFY(bench.timer->isActive());
    QVERIFY(!bench.timer->isSingleShot());
    QCOMPARE(bench.timer->timerType(), Qt::PreciseTimer);
    QCOMPARE(bench.timer->interval(), 10000);
    QVERIFY(bench.scheduler.hasClient(6000));
    QCOMPARE(bench.scheduler.intervalOf(6000), 10);
    QCOMPARE(bench.take(), QList<int>{6000});
}

void TestScheduler::theSecondJoinsTheBatchAndGetsIntoPhase()
{
    Bench bench;
    bench.scheduler.addClient(6000, 4);
    bench.wind(1500ms);
    bench.lines();
    bench.scheduler.addClient(6001, 10);
    // The timer was planned before the row got into phase, and stays as it is.
    QCOMPARE(bench.lines(), QStringList{u"addClient: id: 6001, interval: 10"_s}
                                << u"nextStep"_s
                                << table({u"id: 6000, interval: 4s, elapsed: 1500ms"_s,
                                          u"id: 6001, interval: 10s, elapsed: 10000ms"_s})
                                << u"nextTimeStep: next step in 2500ms"_s
                                << table({u"id: 6000, interval: 4s, elapsed: 1500ms"_s,
                                          u"id: 6001, interval: 10s, elapsed: 1500ms"_s}));
    QCOMPARE(bench.asksSince(), 1); // the first one's batch still waits
    QCOMPARE(bench.take(), (QList<int>{6000, 6001}));

    bench.scheduler.addClient(6002, 3);
    QCOMPARE(bench.lines().last(), u"debug: id: 6002, interval: 3s, elapsed: 500ms"_s);
    QCOMPARE(bench.asksSince(), 1);
    QCOMPARE(bench.take(), QList<int>{6002});

    bench.scheduler.addClient(6003, 1); // due in half a second, but the timer is not planned for that
    QCOMPARE(bench.lines().last(), u"debug: id: 6003, interval: 1s, elapsed: 500ms"_s);
    QCOMPARE(bench.timer->interval(), 1000);
}

void TestScheduler::oneBatchAtATime()
{
    Bench bench;
    bench.scheduler.addClient(6000, 4);
    bench.wind(3900ms);
    bench.scheduler.nextStep(); // a tenth of a second early is too early
    QCOMPARE(bench.take(), QList<int>{6000});
    bench.wind(1ms);
    bench.scheduler.nextStep();
    QCOMPARE(bench.asksSince(), 2);

    bench.wind(1s);
    bench.scheduler.addClient(6001, 60);
    for (int i = 0; i < 3; ++i) {
        bench.wind(4s);
        bench.scheduler.nextStep();
    }
    QCOMPARE(bench.asksSince(), 0); // nobody has answered
    QCOMPARE(bench.take(), (QList<int>{6000, 6001}));
    QCOMPARE(bench.take(), (QList<int>{6000, 6001}));
    bench.scheduler.nextStep();
    QCOMPARE(bench.asksSince(), 0);
    QCOMPARE(bench.take(), QList<int>());
    bench.wind(4s);
    bench.scheduler.nextStep();
    QCOMPARE(bench.asksSince(), 1);
    QCOMPARE(bench.take(), QList<int>{6000});
}

void TestScheduler::theTimerIsPlannedForTheNextClient_data()
{
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("elapsed"); // ms, when the timer is planned
    QTest::addColumn<QString>("logged");
    QTest::addColumn<int>("period");
    QTest::newRow("a client's interval") << 4 << 0 << u"4000ms"_s << 4000;
    QTest::newRow("what is left of it") << 4 << 3000 << u"1000ms"_s << 1000;
    QTest::newRow("50 ms") << 4 << 3950 << u"50ms"_s << 50;
    QTest::newRow("20 ms become 50") << 4 << 3980 << u"20ms"_s << 50;
    QTest::newRow("an overdue client is served in 50 ms") << 4 << 5000 << u"-1000ms"_s << 50;
    QTest::newRow("a day") << 86400 << 0 << u"86400000ms"_s << Day;
    QTest::newRow("a day at most") << 86401 << 0 << u"86400000ms"_s << Day;
    QTest::newRow("a day at most of the longest") << INT_MAX << 0 << u"86400000ms"_s << Day;
}

void TestScheduler::theTimerIsPlannedForTheNextClient()
{
    QFETCH(int, interval);
    QFETCH(int, elapsed);
    QFETCH(QString, logged);
    QFETCH(int, period);
    Bench bench;
    bench.scheduler.addClient(6000, interval);
    bench.wind(std::chrono::milliseconds(elapsed));
    bench.lines();
    bench.scheduler.removeClient(5999); // plans, and takes no step
    QCOMPARE(bench.lines().value(1), u"nextTimeStep: next step in "_s + logged);
    QCOMPARE(bench.timer->interval(), period);
    QVERIFY(bench.timer->isActive());
}

void TestScheduler::anEmptyTableIsLookedAtADayLater()
{
    Bench bench;
    bench.scheduler.nextStep();
    QCOMPARE(bench.lines(),
             QStringList{u"nextStep"_s} << table({}) << u"nextTimeStep: next step in 86400000ms"_s);
    QCOMPARE(bench.timer->interval(), Day);
    QCOMPARE(bench.asksSince(), 0);
}

void TestScheduler::theTimerTakesTheNextStep()
{
    Bench bench;
    bench.scheduler.addClient(6000, 1);
    bench.take();
    bench.wind(1s);
    bench.scheduler.removeClient(5999); // plans anew: now
    QTRY_COMPARE(bench.asked.count(), 2);
    QCOMPARE(bench.take(), QList<int>{6000});
    QCOMPARE(bench.timer->interval(), 1000);
}

void TestScheduler::theSameIntervalChangesNothing()
{
    Bench bench;
    bench.scheduler.setClientInterval(6000, 4); // nobody there
    QCOMPARE(bench.lines(), QStringList{u"setClientInterval: id: 6000, interval: 4"_s} << table({}));
    bench.scheduler.setClientInterval(6000, -1);
    QCOMPARE(bench.lines(), QStringList{u"setClientInterval: id: 6000, interval: -1"_s} << table({}));
    QVERIFY(!bench.timer->isActive());

    bench.scheduler.addClient(6000, 4);
    bench.scheduler.addClient(6001, 10);
    bench.wind(1200ms);
    bench.lines();
    const QStringList listing =
        table({u"id: 6000, interval: 4s, elapsed: 1200ms"_s, u"id: 6001, interval: 10s, elapsed: 1200ms"_s});
    QCOMPARE(bench.scheduler.setClientInterval(6001, 10), 0);
    QCOMPARE(bench.lines(), QStringList{u"setClientInterval: id: 6001, interval: 10"_s} << listing);
    bench.scheduler.setClientInterval(6002, 10); // not in the table
    QCOMPARE(bench.lines(), QStringList{u"setClientInterval: id: 6002, interval: 10"_s} << listing);
    QCOMPARE(bench.timer->interval(), 4000);
}

void TestScheduler::aNewIntervalStartsInPhase()
{
    Bench bench;
    bench.scheduler.addClient(6000, 4);
    bench.scheduler.addClient(6001, 10);
    bench.wind(3700ms);
    bench.lines();
    QCOMPARE(bench.scheduler.setClientInterval(6001, 6), 0);
    QCOMPARE(bench.lines(), QStringList{u"setClientInterval: id: 6001, interval: 6"_s}
                                << u"nextTimeStep: next step in 300ms"_s
                                << table({u"id: 6000, interval: 4s, elapsed: 3700ms"_s,
                                          u"id: 6001, interval: 6s, elapsed: 1700ms"_s}));
    QCOMPARE(bench.scheduler.intervalOf(6001), 6);
    QCOMPARE(bench.timer->interval(), 300);

    bench.scheduler.setClientInterval(6000, 20); // its own row is no reference for itself
    QCOMPARE(bench.lines().value(1), u"nextTimeStep: next step in 4300ms"_s);
    QCOMPARE(bench.asksSince(), 1); // a new interval asks for nothing
}

void TestScheduler::aClientGoesWithItsPlaceInTheBatch()
{
    Bench bench;
    bench.scheduler.addClient(6000, 4);
    bench.scheduler.addClient(6001, 10);
    bench.wind(1s);
    bench.lines();
    QCOMPARE(bench.scheduler.removeClient(6000), 0);
    QCOMPARE(bench.lines(), QStringList{u"removeClient: id: 6000"_s}
                                << u"debug: Removed index:  0"_s << u"nextTimeStep: next step in 9000ms"_s
                                << table({u"id: 6001, interval: 10s, elapsed: 1000ms"_s}));
    QVERIFY(bench.timer->isActive());
    QCOMPARE(bench.scheduler.takeDueClients(), QList<int>{6001});

    QCOMPARE(bench.scheduler.removeClient(6001), 0);
    QCOMPARE(bench.lines(),
             QStringList{u"removeClient: id: 6001"_s} << u"debug: Removed index:  0"_s << table({}));
    QVERIFY(!bench.timer->isActive());
    QVERIFY(!bench.scheduler.hasClient(6001));

    // Without an answer and without receivers: the next client is asked for all the same.
    bench.scheduler.addClient(6002, 4);
    bench.scheduler.removeClient(6002);
    bench.asksSince();
    bench.scheduler.addClient(6003, 4);
    QCOMPARE(bench.asksSince(), 1);
    bench.lines();
    bench.scheduler.removeClient(6002);
    QCOMPARE(bench.lines(), QStringList{u"removeClient: id: 6002"_s}
                                << u"nextTimeStep: next step in 4000ms"_s
                                << table({u"id: 6003, interval: 4s, elapsed: 0ms"_s}));
}

void TestScheduler::clientsMayComeTwice()
{
    Bench bench;
    for (int i = 0; i < 3; ++i)
        bench.scheduler.addClient(6000, 4 + i);
    QCOMPARE(bench.take(), QList<int>{6000});
    bench.lines();
    bench.scheduler.setClientInterval(6000, 9); // every row of it
    const QString row = u"id: 6000, interval: 9s, elapsed: 0ms"_s;
    QCOMPARE(bench.lines(), QStringList{u"setClientInterval: id: 6000, interval: 9"_s}
                                << u"nextTimeStep: next step in 5000ms"_s
                                << u"nextTimeStep: next step in 6000ms"_s
                                << u"nextTimeStep: next step in 9000ms"_s << table({row, row, row}));
    bench.scheduler.removeClient(6000);
    QCOMPARE(bench.lines(), QStringList{u"removeClient: id: 6000"_s}
                                << u"debug: Removed index:  0"_s << u"debug: Removed index:  1"_s
                                << u"nextTimeStep: next step in 9000ms"_s << table({row}));
    QVERIFY(bench.scheduler.hasClient(6000));
}

// The answer that comes before the request has returned: a peer that cannot be asked.
void TestScheduler::aReceiverMayAnswerAtOnce()
{
    Bench bench;
    QList<QList<int>> batches;
    QObject::connect(&bench.scheduler, &Scheduler::reqSUPL, [&] { batches << bench.take(); });
    bench.scheduler.addClient(6000, 4);
    bench.scheduler.addClient(6001, 4);
    bench.wind(4s);
    bench.scheduler.nextStep();
    QCOMPARE(batches, (QList<QList<int>>{{6000}, {6001}, {6000, 6001}}));
}

QTEST_GUILESS_MAIN(TestScheduler)
#include "tst_scheduler.moc"
