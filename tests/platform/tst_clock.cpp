#include "platform/clock.h"
#include "support/scoped.h"
#include "support/stillclock.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestClock : public QObject
{
    Q_OBJECT

private slots:
    void theSystemClockShowsLocalTime();
    void aChangedZoneIsNoticedWithinASecond();
    void monotonicTimeIsTheSteadyClocks();
    void secondsAreCountedFromTheEpoch();
};

void TestClock::theSystemClockShowsLocalTime()
{
    const QDateTime before = QDateTime::currentDateTime();
    const QDateTime shown = Clock::system().now();
    const QDateTime after = QDateTime::currentDateTime();
    QVERIFY(before <= shown);
    QVERIFY(shown <= after);
    const QDateTime local = shown.toLocalTime();
    QCOMPARE(shown.date(), local.date());
    QCOMPARE(shown.time(), local.time());
    QCOMPARE(shown.offsetFromUtc(), local.offsetFromUtc());
}

void TestClock::aChangedZoneIsNoticedWithinASecond()
{
    const ScopedVariable zone("TZ", "UTC0");
    QTRY_COMPARE(Clock::system().now().offsetFromUtc(), 0);
    qputenv("TZ", "IST-5:30"); // POSIX counts westwards
    QTRY_COMPARE(Clock::system().now().offsetFromUtc(), (5 * 60 + 30) * 60);
}

void TestClock::monotonicTimeIsTheSteadyClocks()
{
    using std::chrono::milliseconds;
    const auto steady = [] {
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
    };
    const milliseconds before = steady();
    const milliseconds shown = Clock::system().monotonic();
    const milliseconds after = steady();
    QVERIFY(before <= shown);
    QVERIFY(shown <= after);
}

void TestClock::secondsAreCountedFromTheEpoch()
{
    StillClock clock;
    clock.time = QDateTime(QDate(1970, 1, 2), QTime(0, 0, 1, 999), Qt::UTC);
    QCOMPARE(clock.secondsSinceEpoch(), quint32(86401));
    clock.time = QDateTime(QDate(2100, 1, 1), QTime(0, 0), Qt::UTC); // beyond 31 bits
    QCOMPARE(clock.secondsSinceEpoch(), quint32(4102444800));
}

QTEST_APPLESS_MAIN(TestClock)
#include "tst_clock.moc"
