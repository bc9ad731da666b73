#include "engine/fixwatchdog.h"

#include <QTest>

class TestFixWatchdog : public QObject
{
    Q_OBJECT
private slots:
    void aSessionWithFixesWaitsForItsIntervalAndAMargin_data();
    void aSessionWithFixesWaitsForItsIntervalAndAMargin();
    void theFirstFixMayTakeTwoMinutes();
};

void TestFixWatchdog::aSessionWithFixesWaitsForItsIntervalAndAMargin_data()
{
    QTest::addColumn<quint16>("interval");
    QTest::addColumn<qint64>("milliseconds");

    QTest::newRow("no interval at all gets the smallest margin") << quint16{0} << qint64{10000};
    QTest::newRow("1 s gets 10 s more") << quint16{1} << qint64{11000};
    QTest::newRow("9 s is the last with 10 s more") << quint16{9} << qint64{19000};
    QTest::newRow("10 s is the first with 15 s more") << quint16{10} << qint64{25000};
    QTest::newRow("30 s gets 15 s more") << quint16{30} << qint64{45000};
    QTest::newRow("59 s is the last with 15 s more") << quint16{59} << qint64{74000};
    QTest::newRow("60 s is the first with 30 s more") << quint16{60} << qint64{90000};
    QTest::newRow("599 s is the last with 30 s more") << quint16{599} << qint64{629000};
    QTest::newRow("600 s is the first with 60 s more") << quint16{600} << qint64{660000};
    QTest::newRow("the longest interval still fits a timer") << quint16{65535} << qint64{65595000};
}

void TestFixWatchdog::aSessionWithFixesWaitsForItsIntervalAndAMargin()
{
    QFETCH(quint16, interval);
    QFETCH(qint64, milliseconds);
    QCOMPARE(qint64(FixWatchdog::timeout(interval).count()), milliseconds);
}

void TestFixWatchdog::theFirstFixMayTakeTwoMinutes()
{
    QCOMPARE(qint64(FixWatchdog::FirstFix.count()), qint64{120000});
}

QTEST_APPLESS_MAIN(TestFixWatchdog)
#include "tst_fixwatchdog.moc"
