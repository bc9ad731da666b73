#include "engine/orvcommtest.h"

using namespace Qt::StringLiterals;

// The watchdogs of the sessions: how long fixes and intervals make them, and what they do when they fire.
class TestOrvCommWatchdogs : public OrvCommTest
{
    Q_OBJECT
private slots:
    void aSessionStartedWhileTrackingGetsTheShortWatchdog();
    void aFixRestartsTheWatchdogByTheInterval_data();
    void aFixRestartsTheWatchdogByTheInterval();
    void aNewIntervalCountsFromTheNextFix();
    void anIntervalBeyondTheFieldIsTheNearestThatFits_data();
    void anIntervalBeyondTheFieldIsTheNearestThatFits();
    void anIntervalForAnUnknownSessionAddsASilentOne();
    void aReceiverOfTrackingFindsTheStateChanged();
    void aWatchdogThatFiresTellsTheSilentSessions();
    void aTimeoutWhileTrackingGoesBackToSearch();
    void aReceiverOfATimeoutMayStopSessions();
};

void TestOrvCommWatchdogs::aSessionStartedWhileTrackingGetsTheShortWatchdog()
{
    const LogCapture quiet;
    m_orv->startGNSS(7, 1);
    feed(*m_orv, positionReport(7));
    m_seen->take();
    m_orv->startGNSS(8, 30);
    QCOMPARE(m_seen->take(), QStringList());
    QCOMPARE(watchdogs(*m_orv).at(1)->interval(), 45000);
    QVERIFY(watchdogs(*m_orv).at(1)->isActive());
}

void TestOrvCommWatchdogs::aFixRestartsTheWatchdogByTheInterval_data()
{
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("9 s") << 9 << 19000;
    QTest::newRow("30 s") << 30 << 45000;
    QTest::newRow("59 s") << 59 << 74000;
    QTest::newRow("599 s") << 599 << 629000;
    QTest::newRow("600 s") << 600 << 660000;
}

void TestOrvCommWatchdogs::aFixRestartsTheWatchdogByTheInterval()
{
    QFETCH(int, interval);
    QFETCH(int, milliseconds);
    const LogCapture quiet;
    m_orv->startGNSS(7, interval);
    QTimer *watchdog = watchdogs(*m_orv).first();
    QCOMPARE(watchdog->interval(), 120000);

    feed(*m_orv, positionReport(7));
    QCOMPARE(watchdog->interval(), milliseconds);
    QVERIFY(watchdog->isActive());

    watchdog->stop();
    feed(*m_orv, positionReport(7));
    QVERIFY(watchdog->isActive());
}

void TestOrvCommWatchdogs::aNewIntervalCountsFromTheNextFix()
{
    m_orv->startGNSS(7, 1);
    feed(*m_orv, positionReport(7));
    m_engine->takeReceived();
    m_seen->take();

    LogCapture log;
    QCOMPARE(m_orv->setGNSSInterval(7, 60), 0);
    QCOMPARE(log.lines(), QStringList(u"debug: ORVComm::setGNSSInterval( 7 , 60 )"_s));
    QCOMPARE(m_engine->takeReceived(),
             QList<QByteArray>{QByteArray::fromHex("EF01000C 0007 0000 01 02 003C")});
    QCOMPARE(watchdogs(*m_orv).size(), 1);
    QCOMPARE(watchdogs(*m_orv).first()->interval(), 11000);
    feed(*m_orv, positionReport(7));
    QCOMPARE(watchdogs(*m_orv).first()->interval(), 90000);
    QCOMPARE(m_seen->take(), QStringList(u"fix 7"_s));
}

void TestOrvCommWatchdogs::anIntervalBeyondTheFieldIsTheNearestThatFits_data()
{
    QTest::addColumn<int>("interval");
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("the longest that fits") << 65535 << QByteArray("FFFF") << 65595000;
    QTest::newRow("a second more") << 65536 << QByteArray("FFFF") << 65595000;
    QTest::newRow("the longest that a client may ask for") << 2147483 << QByteArray("FFFF") << 65595000;
    QTest::newRow("none") << 0 << QByteArray("0000") << 10000;
    QTest::newRow("below none") << -1 << QByteArray("0000") << 10000;
}

// On the wire, in the record that the next fix looks at, and in the watchdog of a start while tracking.
void TestOrvCommWatchdogs::anIntervalBeyondTheFieldIsTheNearestThatFits()
{
    QFETCH(int, interval);
    QFETCH(QByteArray, field);
    QFETCH(int, milliseconds);
    const LogCapture quiet;
    m_orv->startGNSS(7, interval);
    QCOMPARE(m_engine->takeReceived(),
             QList<QByteArray>{QByteArray::fromHex("EF01000C 0007 0000 00 02" + field)});
    feed(*m_orv, positionReport(7));
    QCOMPARE(watchdogs(*m_orv).at(0)->interval(), milliseconds);

    m_orv->startGNSS(8, interval);
    QCOMPARE(watchdogs(*m_orv).at(1)->interval(), milliseconds);

    m_orv->setGNSSInterval(7, 1);
    m_orv->setGNSSInterval(7, interval);
    QCOMPARE(m_engine->takeReceived().last(), QByteArray::fromHex("EF01000C 0007 0000 01 02" + field));
    feed(*m_orv, positionReport(7));
    QCOMPARE(watchdogs(*m_orv).at(0)->interval(), milliseconds);
}

void TestOrvCommWatchdogs::anIntervalForAnUnknownSessionAddsASilentOne()
{
    const LogCapture quiet;
    m_orv->setGNSSInterval(9, 60);
    QCOMPARE(m_engine->takeReceived(),
             QList<QByteArray>{QByteArray::fromHex("EF01000C 0009 0000 01 02 003C")});
    QCOMPARE(m_seen->take(), QStringList()); // no state either
    QCOMPARE(watchdogs(*m_orv).size(), 1);
    QVERIFY(!watchdogs(*m_orv).first()->isActive());

    m_orv->startGNSS(7, 1);
    m_seen->take();
    watchdogs(*m_orv).at(1)->start(0); // the other session's watchdog runs out
    QTRY_COMPARE(m_seen->events, QStringList({u"timeout 9"_s, u"timeout 7"_s}));
    QVERIFY(!watchdogs(*m_orv).first()->isActive());

    m_seen->take();
    feed(*m_orv, positionReport(9));
    QCOMPARE(m_seen->take(), QStringList({u"state 2"_s, u"fix 9"_s}));
    QVERIFY(watchdogs(*m_orv).first()->isActive());
    QCOMPARE(watchdogs(*m_orv).first()->interval(), 90000);
}

void TestOrvCommWatchdogs::aReceiverOfTrackingFindsTheStateChanged()
{
    const LogCapture quiet;
    m_orv->startGNSS(7, 1);
    connect(m_orv.get(), &ORVComm::GNSSStateUpdated, this, [this](ORVComm::GNSSState state) {
        if (state == ORVComm::Tracking)
            m_orv->startGNSS(8, 30);
    });
    feed(*m_orv, positionReport(7));
    QCOMPARE(watchdogs(*m_orv).at(1)->interval(), 45000);
}

void TestOrvCommWatchdogs::aWatchdogThatFiresTellsTheSilentSessions()
{
    const LogCapture quiet;
    for (const quint16 id : {quint16{1}, quint16{2}, quint16{3}})
        m_orv->startGNSS(id, 1);
    m_seen->take();
    watchdogs(*m_orv).at(2)->stop(); // ran out earlier
    watchdogs(*m_orv).at(0)->start(0);
    QTRY_COMPARE(m_seen->events, QStringList({u"timeout 1"_s, u"timeout 3"_s}));
}

void TestOrvCommWatchdogs::aTimeoutWhileTrackingGoesBackToSearch()
{
    const LogCapture quiet;
    m_orv->startGNSS(7, 1);
    feed(*m_orv, positionReport(7));
    m_seen->take();
    watchdogs(*m_orv).first()->start(0);
    QTRY_COMPARE(m_seen->events, QStringList({u"state 1"_s, u"timeout 7"_s}));

    // In search again: no second word of it, and a new session has two minutes.
    m_seen->take();
    m_orv->timeoutGNSS();
    QCOMPARE(m_seen->take(), QStringList(u"timeout 7"_s));
    m_orv->startGNSS(8, 1);
    QCOMPARE(watchdogs(*m_orv).at(1)->interval(), 120000);
}

void TestOrvCommWatchdogs::aReceiverOfATimeoutMayStopSessions()
{
    const LogCapture quiet;
    m_orv->startGNSS(7, 1);
    m_orv->startGNSS(8, 1);
    m_seen->take();
    connect(m_orv.get(), &ORVComm::updateTimeoutGNSS, this, [this] {
        m_orv->stopGNSS(7);
        m_orv->stopGNSS(8);
    });
    watchdogs(*m_orv).at(1)->stop();
    watchdogs(*m_orv).at(0)->start(0);
    // No word of a session that is gone.
    QTRY_COMPARE(m_seen->events, QStringList({u"timeout 7"_s, u"state 0"_s}));
    QTRY_COMPARE(watchdogs(*m_orv).size(), 0);
}

QTEST_GUILESS_MAIN(TestOrvCommWatchdogs)
#include "tst_orvcomm_watchdogs.moc"
