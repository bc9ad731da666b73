#include "core/supervision.h"

#include <QList>
#include <QTest>

class TestSupervision : public QObject
{
    Q_OBJECT

private slots:
    void theFirstLossIsNeverTooFrequent();
    void oneSecondBetweenLossesIsEnoughForEver();
    void lossesWhileTheClockStandsStillEndIt();
    void lossesWhileTheClockGoesBackEndItToo_data();
    void lossesWhileTheClockGoesBackEndItToo();
    void anHourOfQuietStartsAfresh();
    void delaysGrowToAnHourAndStay();
    void oneSuccessResetsTheDelays();
};

constexpr quint32 Now = 1'700'000'000;

void TestSupervision::theFirstLossIsNeverTooFrequent()
{
    RespawnGuard guard;
    QVERIFY(!guard.tooFrequent(Now));
}

void TestSupervision::oneSecondBetweenLossesIsEnoughForEver()
{
    RespawnGuard guard;
    for (quint32 second = 0; second < 10000; ++second)
        QVERIFY(!guard.tooFrequent(Now + second));
}

// The distance to the mark halves with each loss: 3600, 1800, 900, 450, 225, 112, 56, 28, 14 s.
void TestSupervision::lossesWhileTheClockStandsStillEndIt()
{
    RespawnGuard guard;
    for (int loss = 1; loss <= 8; ++loss)
        QVERIFY2(!guard.tooFrequent(Now), qPrintable(QString::number(loss)));
    QVERIFY(guard.tooFrequent(Now));
}

void TestSupervision::lossesWhileTheClockGoesBackEndItToo_data()
{
    QTest::addColumn<quint32>("secondsBack");
    QTest::addColumn<bool>("ends");
    QTest::newRow("40 s after the mark: half of it is enough") << 3560U << false;
    QTest::newRow("39 s: half of it counts as 19") << 3561U << true;
    QTest::newRow("at the mark") << 3600U << true;
    QTest::newRow("before the mark it is as if it had never been") << 3601U << false;
    QTest::newRow("at the beginning of time") << Now << false;
}

void TestSupervision::lossesWhileTheClockGoesBackEndItToo()
{
    QFETCH(quint32, secondsBack);
    QFETCH(bool, ends);
    RespawnGuard guard;
    QVERIFY(!guard.tooFrequent(Now)); // mark an hour back
    QCOMPARE(guard.tooFrequent(Now - secondsBack), ends);
}

void TestSupervision::anHourOfQuietStartsAfresh()
{
    RespawnGuard guard;
    for (int loss = 0; loss < 8; ++loss)
        QVERIFY(!guard.tooFrequent(Now));
    QVERIFY(!guard.tooFrequent(Now + 3601));
    QVERIFY(!guard.tooFrequent(Now + 3601)); // the mark is an hour back again
}

void TestSupervision::delaysGrowToAnHourAndStay()
{
    ReconnectBackoff backoff;
    QList<int> delays;
    for (int attempt = 0; attempt < 8; ++attempt)
        delays << backoff.failed();
    const QList<int> expected{2500, 12500, 62500, 312500, 1562500, 3600000, 3600000, 3600000};
    QCOMPARE(delays, expected);
}

void TestSupervision::oneSuccessResetsTheDelays()
{
    ReconnectBackoff backoff;
    for (int attempt = 0; attempt < 7; ++attempt)
        QVERIFY(backoff.failed() > ReconnectBackoff::FirstDelayMs);
    backoff.succeeded();
    QCOMPARE(backoff.failed(), 2500);
}

QTEST_APPLESS_MAIN(TestSupervision)
#include "tst_supervision.moc"
