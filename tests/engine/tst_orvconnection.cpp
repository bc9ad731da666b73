#include "engine/orvconnectiontest.h"
#include "engine/orvrecorder.h"

using namespace Qt::StringLiterals;

// Which engine is connected to, what is said on the way, and what its loss leaves behind.
class TestOrvConnection : public OrvConnectionTest
{
    Q_OBJECT
private slots:
    void theRealEngineIsRegisteredWith();
    void anUnreachableRealEngineIsNoEnd();
    void theSourceDecidesWhoIsConnected_data();
    void theSourceDecidesWhoIsConnected();
    void theSourceIsChosenAnewEveryTime();
    void losingTheEngineEndsTheSessionsWithoutAStateSignal();
    void anArmedWatchdogOutlivesTheConnection();
    void aReconnectionDoublesNothing();
    void aReceiverOfTheLossMayConnectAtOnce();
    void suplRequestsCountFromOneAfterAReconnection();
    void packetsFromTheSocketAreHandled();

private:
    void connectTo(FakeEngine &engine, ORVComm &orv);
};

void TestOrvConnection::connectTo(FakeEngine &engine, ORVComm &orv)
{
    QCOMPARE(orv.init(), 0);
    QCOMPARE(engine.takeReceived(), QList<QByteArray>{Registration});
}

void TestOrvConnection::theRealEngineIsRegisteredWith()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    QCOMPARE(orv.init(), 0);
    QCOMPARE(engine.takeReceived(), QList<QByteArray>{Registration});
    QCOMPARE(take(), QStringList({u"debug: Connecting to orvd."_s,
                                  u"debug: MsgSockClient::connect: Connected to orv."_s}));
    QCOMPARE(seen.take(), QStringList());
}

void TestOrvConnection::anUnreachableRealEngineIsNoEnd()
{
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    QCOMPARE(orv.init(), -1);
    QCOMPARE(take(), QStringList({u"debug: Connecting to orvd."_s,
                                  u"critical: MsgSockClient::connect: (socket) connect() : "
                                  "No such file or directory"_s,
                                  u"warning: Connection to orvd failed."_s}));
    QCOMPARE(orv.init(), -1);

    FakeEngine engine(m_paths.engineSocket());
    connectTo(engine, orv);
    QCOMPARE(seen.take(), QStringList());
}

void TestOrvConnection::theSourceDecidesWhoIsConnected_data()
{
    QTest::addColumn<QByteArray>("environment");
    QTest::addColumn<QStringList>("markers");
    QTest::addColumn<bool>("testEngine");
    const QString fake = u".fake_positioning"_s;
    const QString real = u".real_positioning"_s;

    QTest::newRow("nothing said") << QByteArray() << QStringList() << false;
    QTest::newRow("fake in lower case") << QByteArray("fake") << QStringList() << true;
    QTest::newRow("FAKE") << QByteArray("FAKE") << QStringList() << true;
    QTest::newRow("TEST is not FAKE") << QByteArray("TEST") << QStringList() << false;
    QTest::newRow("REAL") << QByteArray("REAL") << QStringList() << false;
    QTest::newRow("the marker beats REAL") << QByteArray("REAL") << QStringList(fake) << true;
    QTest::newRow("the other marker beats FAKE") << QByteArray("FAKE") << QStringList(real) << false;
    QTest::newRow("both markers") << QByteArray("FAKE") << QStringList({fake, real}) << false;
}

void TestOrvConnection::theSourceDecidesWhoIsConnected()
{
    QFETCH(QByteArray, environment);
    QFETCH(QStringList, markers);
    QFETCH(bool, testEngine);
    const ScopedVariable source("POSITIONING_SOURCE", environment);
    for (const QString &marker : markers)
        QVERIFY(write(m_paths.marker(marker.toLatin1().constData())));
    FakeEngine realEngine(m_paths.engineSocket());
    FakeEngine fakeEngine(m_paths.testEngineSocket());

    ORVComm orv(m_paths);
    QCOMPARE(orv.init(), 0);
    QCOMPARE(fakeEngine.takeReceived().size(), testEngine ? 1 : 0);
    QCOMPARE(realEngine.takeReceived().size(), testEngine ? 0 : 1);
    const QString connected = u"debug: MsgSockClient::connect: Connected to orv."_s;
    QCOMPARE(take(), testEngine ? QStringList({u"debug: Connecting to fake orvd."_s, connected,
                                               u"warning: >>>>> Using fake position source! <<<<<<"_s})
                                : QStringList({u"debug: Connecting to orvd."_s, connected}));
}

void TestOrvConnection::theSourceIsChosenAnewEveryTime()
{
    FakeEngine realEngine(m_paths.engineSocket());
    FakeEngine fakeEngine(m_paths.testEngineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(realEngine, orv);
    realEngine.drop();
    QTRY_COMPARE(seen.events, QStringList(u"lost"_s));

    QVERIFY(write(m_paths.marker(".fake_positioning")));
    connectTo(fakeEngine, orv);
}

void TestOrvConnection::losingTheEngineEndsTheSessionsWithoutAStateSignal()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    feed(orv, positionReport(7));
    seen.take();

    engine.drop();
    QTRY_VERIFY(!seen.events.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(seen.take(), QStringList(u"lost"_s));
    feed(orv, positionReport(7)); // idle
    QCOMPARE(seen.take(), QStringList());
    orv.startGNSS(7, 1);
    QCOMPARE(seen.take(), QStringList(u"state 1"_s));
}

void TestOrvConnection::anArmedWatchdogOutlivesTheConnection()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    orv.startGNSS(8, 1);
    orv.setGNSSInterval(9, 1);
    QTimer *armed = watchdogs(orv).at(0);
    watchdogs(orv).at(1)->stop();
    seen.take();

    orv.onConnectionLost();
    QCOMPARE(seen.take(), QStringList(u"lost"_s));
    QTRY_COMPARE(watchdogs(orv), QList<QTimer *>{armed}); // the others would never fire
    QVERIFY(armed->isActive());
    QCOMPARE(armed->interval(), 120000);

    armed->start(0);
    QTRY_COMPARE(seen.events, QStringList(u"state 1"_s)); // and no session to tell of
    QTRY_COMPARE(watchdogs(orv).size(), 0);
}

void TestOrvConnection::aReconnectionDoublesNothing()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    engine.drop();
    QTRY_COMPARE(seen.events, QStringList(u"lost"_s));

    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    seen.take();
    QVERIFY(engine.send(positionReport(7)));
    QVERIFY(engine.send(positionReport(7)));
    QTRY_COMPARE(seen.events, QStringList({u"state 2"_s, u"fix 7"_s, u"fix 7"_s}));
    seen.take();
    engine.drop();
    QTRY_VERIFY(!seen.events.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(seen.take(), QStringList(u"lost"_s));
}

void TestOrvConnection::aReceiverOfTheLossMayConnectAtOnce()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connect(&orv, &ORVComm::connectionLost, &orv, [&orv] {
        QCOMPARE(orv.init(), 0);
        orv.startGNSS(8, 1);
    });
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    seen.take();
    engine.takeReceived();
    engine.drop();
    QTRY_COMPARE(engine.connections(), 2);
    QTRY_COMPARE(engine.received().size(), 2);
    QCOMPARE(engine.received().first(), Registration);
    QCOMPARE(seen.take(), QStringList({u"lost"_s, u"state 1"_s}));
    QVERIFY(engine.send(positionReport(8)));
    QTRY_COMPARE(seen.events, QStringList({u"state 2"_s, u"fix 8"_s}));
}

void TestOrvConnection::suplRequestsCountFromOneAfterAReconnection()
{
    const QByteArray first = QByteArray::fromHex("EF04000C 0001 0014 02 000000");
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.sendSUPLLocationRequest(20);
    orv.sendSUPLLocationRequest(20);
    QCOMPARE(engine.takeReceived().first(), first);
    engine.drop();
    QTRY_COMPARE(seen.events, QStringList(u"lost"_s));

    connectTo(engine, orv);
    orv.sendSUPLLocationRequest(20);
    QCOMPARE(engine.takeReceived(), QList<QByteArray>{first});
}

void TestOrvConnection::packetsFromTheSocketAreHandled()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    seen.take();
    take();

    // The packet ends inside its sub-block, although its header and count promise more.
    QVERIFY(engine.send(positionReport(7).left(20)));
    QVERIFY(engine.send(engineside::privacyRegistered(false)));
    QTRY_COMPARE(m_log->lines(),
                 QStringList({u"debug: ORV Message received. id: 0xef03 length: 38"_s,
                              u"debug: ORVComm::handleGNSSNotification() session id: 7, status: 0x41"_s,
                              u"debug: ORV Message received. id: 0xef0d length: 8"_s,
                              u"critical: ORVComm::handlePrivacyRegistrationResponse privacy req FAILED"_s}));
    QCOMPARE(seen.take(), QStringList());

    // Outside a reception there is no packet, whatever the pointer says.
    take();
    const QByteArray stray = positionReport(7);
    orv.orvInbox(stray.constData());
    orv.orvInbox(nullptr);
    QCOMPARE(take(), QStringList());
    QCOMPARE(seen.take(), QStringList());
}

QTEST_GUILESS_MAIN(TestOrvConnection)
#include "tst_orvconnection.moc"
