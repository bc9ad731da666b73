#include "core/scheduletable.h"

#include <QTest>

#include <algorithm>
#include <climits>

using namespace std::chrono_literals;
using Milliseconds = ScheduleTable::Milliseconds;

namespace {

constexpr Milliseconds Start = 86399s; // the table must not care what time of the day it is

QList<qint64> phases(const ScheduleTable &table)
{
    QList<qint64> result;
    for (const ClientEntry &row : table.rows())
        result << qint64((row.phaseStart - Start).count());
    return result;
}

QList<int> ids(const ScheduleTable &table)
{
    QList<int> result;
    for (const ClientEntry &row : table.rows())
        result << row.id;
    return result;
}

// One step of time, with an engine that has answered what was asked before.
QList<int> step(ScheduleTable &table, Milliseconds now)
{
    table.dropTaken();
    return table.collectDue(now) ? table.takeDue() : QList<int>();
}

// As a client is added: due at once, then put in phase.
void add(ScheduleTable &table, int id, int interval, Milliseconds now)
{
    table.append(id, interval, now);
    step(table, now);
    if (table.rows().size() > 1)
        table.alignLast(now);
}

} // namespace

class TestScheduleTable : public QObject
{
    Q_OBJECT

private slots:
    void anEmptyTableWaitsADay();
    void aNewRowIsDueAtOnce_data();
    void aNewRowIsDueAtOnce();
    void aRowIsDueWithinTheTolerance_data();
    void aRowIsDueWithinTheTolerance();
    void theWaitIsTheShortest_data();
    void theWaitIsTheShortest();
    void rowsThatAreNotDueKeepTheirPhase();
    void whoFallsDueJoinsTheWaitingBatch();
    void aTakenBatchStaysUntilTheNextStep();
    void anIdStandsInABatchOnce();
    void removalTakesTheIdOutOfTheBatch();
    void removalPassesOverTheNeighbour();
    void aRowGetsIntoPhase_data();
    void aRowGetsIntoPhase();
    void anIntervalIsThatOfTheFirstRow();
    void midnightIsAMomentLikeAnyOther();
    void anHourOfThreeClients();
    void aThousandRowsShareOneBatch();
};

void TestScheduleTable::anEmptyTableWaitsADay()
{
    ScheduleTable table;
    QVERIFY(table.isEmpty());
    QCOMPARE(table.nextWait(Start), Milliseconds(24h));
    QCOMPARE(step(table, Start), QList<int>());
    QCOMPARE(table.intervalOf(6000), -1);
    QCOMPARE(table.remove(6000), QList<int>());
    QCOMPARE(table.rowsOf(6000), QList<int>());
    QCOMPARE(table.takeDue(), QList<int>());
}

void TestScheduleTable::aNewRowIsDueAtOnce_data()
{
    QTest::addColumn<int>("interval");
    QTest::newRow("a second") << 1;
    QTest::newRow("the longest that a client can ask for") << 2147484;
    QTest::newRow("the longest number of seconds") << INT_MAX;
}

void TestScheduleTable::aNewRowIsDueAtOnce()
{
    QFETCH(int, interval);
    const Milliseconds length = std::chrono::seconds(interval);
    ScheduleTable table;
    table.append(6000, interval, Start);
    QCOMPARE(table.nextWait(Start), 0ms);
    QCOMPARE(step(table, Start), QList<int>{6000});
    QCOMPARE(table.nextWait(Start), std::min(length, Milliseconds(24h)));
    QCOMPARE(step(table, Start + length - 100ms), QList<int>());
    QCOMPARE(step(table, Start + length - 99ms), QList<int>{6000});
}

void TestScheduleTable::aRowIsDueWithinTheTolerance_data()
{
    QTest::addColumn<qint64>("elapsed");
    QTest::addColumn<bool>("due");
    QTest::newRow("100 ms early is too early") << qint64(9900) << false;
    QTest::newRow("99 ms early is early enough") << qint64(9901) << true;
    QTest::newRow("on time") << qint64(10000) << true;
    QTest::newRow("late") << qint64(123456789) << true;
    QTest::newRow("25 days late") << qint64(25) * 86400000 << true;
    QTest::newRow("just started") << qint64(0) << false;
}

void TestScheduleTable::aRowIsDueWithinTheTolerance()
{
    QFETCH(qint64, elapsed);
    QFETCH(bool, due);
    ScheduleTable table;
    add(table, 6000, 10, Start);
    const Milliseconds now = Start + Milliseconds(elapsed);
    QCOMPARE(table.nextWait(now), 10s - Milliseconds(elapsed));
    QCOMPARE(step(table, now), due ? QList<int>{6000} : QList<int>());
    QCOMPARE(phases(table), QList<qint64>{due ? elapsed : 0});
}

void TestScheduleTable::theWaitIsTheShortest_data()
{
    QTest::addColumn<qint64>("elapsed");
    QTest::addColumn<qint64>("wait");
    QTest::newRow("the client with the shorter interval") << qint64(0) << qint64(4000);
    QTest::newRow("20 ms left") << qint64(3980) << qint64(20);
    QTest::newRow("overdue by a second") << qint64(5000) << qint64(-1000);
    QTest::newRow("overdue by a month") << qint64(30) * 86400000 << 4000 - qint64(30) * 86400000;
}

void TestScheduleTable::theWaitIsTheShortest()
{
    QFETCH(qint64, elapsed);
    QFETCH(qint64, wait);
    ScheduleTable table;
    add(table, 6000, 10, Start);
    add(table, 6001, 4, Start);
    add(table, 6002, 200000, Start); // more than a day
    QCOMPARE(table.nextWait(Start + Milliseconds(elapsed)).count(), wait);
}

void TestScheduleTable::rowsThatAreNotDueKeepTheirPhase()
{
    ScheduleTable table;
    add(table, 6000, 4, Start);
    add(table, 6001, 10, Start);
    QCOMPARE(step(table, Start + 4s + 7ms), QList<int>{6000});
    QCOMPARE(phases(table), (QList<qint64>{4007, 0}));
    // Counted from the step, not from when it should have been
    QCOMPARE(step(table, Start + 7907ms), QList<int>());
    QCOMPARE(step(table, Start + 7908ms), QList<int>{6000});
}

void TestScheduleTable::whoFallsDueJoinsTheWaitingBatch()
{
    ScheduleTable table;
    table.append(6000, 4, Start);
    table.dropTaken();
    QVERIFY(table.collectDue(Start));
    table.append(6001, 3, Start + 1s);
    for (const Milliseconds later : {1s, 4s, 400s}) {
        table.dropTaken();
        QVERIFY(!table.collectDue(Start + later)); // nobody has answered yet
    }
    QCOMPARE(table.takeDue(), (QList<int>{6000, 6001}));
    table.dropTaken();
    QVERIFY(!table.collectDue(Start + 400s));
    table.dropTaken();
    QVERIFY(table.collectDue(Start + 404s));
    QCOMPARE(table.takeDue(), (QList<int>{6000, 6001}));
}

void TestScheduleTable::aTakenBatchStaysUntilTheNextStep()
{
    ScheduleTable table;
    add(table, 6000, 4, Start);
    QCOMPARE(table.takeDue(), QList<int>{6000}); // a second answer finds the same receivers
    table.dropTaken();
    QVERIFY(!table.collectDue(Start + 1s));
    QCOMPARE(table.takeDue(), QList<int>());
}

void TestScheduleTable::anIdStandsInABatchOnce()
{
    ScheduleTable table;
    table.append(6000, 4, Start);
    table.append(6000, 8, Start);
    table.dropTaken();
    QVERIFY(table.collectDue(Start));
    QCOMPARE(table.takeDue(), QList<int>{6000});
    QCOMPARE(phases(table), (QList<qint64>{0, 0})); // both rows start anew
}

void TestScheduleTable::removalTakesTheIdOutOfTheBatch()
{
    ScheduleTable table;
    table.append(6000, 4, Start);
    table.append(6001, 4, Start);
    table.dropTaken();
    QVERIFY(table.collectDue(Start));
    QCOMPARE(table.remove(6000), QList<int>{0});
    table.append(6002, 4, Start);
    table.dropTaken();
    QVERIFY(!table.collectDue(Start)); // 6001 still waits
    QCOMPARE(table.remove(6001), QList<int>{0});
    QCOMPARE(table.remove(6002), QList<int>{0});
    // Nobody waits any more, though no answer came: the next one to fall due begins a batch.
    table.append(6003, 4, Start);
    table.dropTaken();
    QVERIFY(table.collectDue(Start));
    QCOMPARE(table.takeDue(), QList<int>{6003});
}

void TestScheduleTable::removalPassesOverTheNeighbour()
{
    ScheduleTable table;
    for (const int id : {6000, 6001, 6000, 6000, 6000, 6002, 6000})
        table.append(id, 4, Start);
    QCOMPARE(table.rowsOf(6000), (QList<int>{0, 2, 3, 4, 6}));
    QCOMPARE(table.remove(6000), (QList<int>{0, 1, 2, 3})); // numbers at the moment of each removal
    QCOMPARE(ids(table), (QList<int>{6001, 6000, 6002}));
    QCOMPARE(table.remove(6000), QList<int>{1});
    QCOMPARE(table.remove(6000), QList<int>());
}

void TestScheduleTable::aRowGetsIntoPhase_data()
{
    QTest::addColumn<QList<int>>("intervals"); // of rows whose phases start at 0, 100, 200, ... ms
    QTest::addColumn<int>("interval");
    QTest::addColumn<qint64>("now");
    QTest::addColumn<qint64>("phase");

    const auto row = [](const char *name, const QList<int> &intervals, int interval, qint64 now,
                        qint64 phase) { QTest::newRow(name) << intervals << interval << now << phase; };
    row("10 s beside 4 s: modulo 2 s", {4}, 10, 3500, 2000);
    row("10 s beside 4 s, on the beat", {4}, 10, 2000, 2000);
    row("3 s beside 4 s: modulo 1 s of the first row", {4}, 3, 3500, 3000);
    row("the same interval: the same cycle", {10}, 10, 9400, 0);
    row("a multiple: the shorter one's cycle", {4}, 8, 9400, 8000);
    row("the greatest divisor wins", {4, 9, 6}, 12, 8000, 6200);
    row("of equals the first wins", {6, 10, 4}, 2, 3150, 2000);
    row("no common divisor: the first row, not the nearest", {7, 5}, 3, 2350, 2000);
    row("alone: its own full seconds", {}, 5, 3500, 3000);
    row("an overdue reference", {4}, 10, 1000700, 1000000);
    row("the longest interval with itself", {INT_MAX}, INT_MAX, 5000, 0);
}

void TestScheduleTable::aRowGetsIntoPhase()
{
    QFETCH(QList<int>, intervals);
    QFETCH(int, interval);
    QFETCH(qint64, now);
    QFETCH(qint64, phase);
    ScheduleTable table;
    for (qsizetype i = 0; i < intervals.size(); ++i)
        table.append(int(i), intervals[i], Start + i * 100ms + std::chrono::seconds(intervals[i]));
    table.append(99, interval, Start + std::chrono::seconds(interval));
    QList<qint64> expected = phases(table);
    expected.last() = phase;
    table.alignLast(Start + Milliseconds(now));
    QCOMPARE(phases(table), expected);
}

void TestScheduleTable::anIntervalIsThatOfTheFirstRow()
{
    ScheduleTable table;
    table.append(6000, 4, Start);
    table.append(6001, 5, Start);
    table.append(6000, 6, Start);
    QCOMPARE(table.intervalOf(6000), 4);
    QCOMPARE(table.intervalOf(6001), 5);
    table.setInterval(0, INT_MAX);
    QCOMPARE(table.intervalOf(6000), INT_MAX);
    QCOMPARE(table.rows().back().interval, 6);
}

void TestScheduleTable::midnightIsAMomentLikeAnyOther()
{
    ScheduleTable table;
    const Milliseconds beforeMidnight = 24h - 1s;
    add(table, 6000, 10, beforeMidnight);
    QCOMPARE(table.nextWait(beforeMidnight + 9s), 1s);
    QCOMPARE(step(table, beforeMidnight + 9s), QList<int>());
    QCOMPARE(step(table, beforeMidnight + 10s), QList<int>{6000});
    QCOMPARE(step(table, beforeMidnight + 24h + 10s), QList<int>{6000}); // to the second a day later
}

// At 4, 10 and 3 s, each started at a moment of its own, with a timer that is always on time.
void TestScheduleTable::anHourOfThreeClients()
{
    ScheduleTable table;
    add(table, 6000, 4, Start);
    add(table, 6001, 10, Start + 1300ms);
    add(table, 6002, 3, Start + 2700ms);
    QCOMPARE(phases(table), (QList<qint64>{0, 0, 2000}));

    QHash<int, int> served;
    int requests = 0;
    Milliseconds now = Start + 2700ms;
    while ((now += table.nextWait(now)) < Start + 1h) {
        const QList<int> batch = step(table, now);
        QVERIFY(!batch.isEmpty());
        ++requests;
        for (const int id : batch)
            ++served[id];
    }
    QCOMPARE(served, (QHash<int, int>{{6000, 899}, {6001, 359}, {6002, 1199}}));
    // The 15 + 6 + 20 moments of each minute are 32 different ones; those at 0 and 2 s are past.
    QCOMPARE(requests, 60 * 32 - 2);
}

void TestScheduleTable::aThousandRowsShareOneBatch()
{
    ScheduleTable table;
    QList<int> all;
    for (int i = 0; i < 1000; ++i) {
        all << 6000 + i;
        table.append(all.last(), 1 + i % 60, Start);
    }
    QCOMPARE(step(table, Start), all);
    QCOMPARE(table.nextWait(Start), 1s);
    for (int row = 0; row < 1000; ++row)
        table.align(row, Start + 500ms);
    QCOMPARE(table.nextWait(Start + 500ms), 500ms);
    const QList<int> batch = step(table, Start + 60s);
    QCOMPARE(batch, all);
    for (const int id : std::as_const(all))
        QCOMPARE(table.remove(id), QList<int>{0});
    QVERIFY(table.isEmpty());
}

QTEST_APPLESS_MAIN(TestScheduleTable)
#include "tst_scheduletable.moc"
