#include "engine/orvcommtest.h"

using namespace Qt::StringLiterals;

// The requests: their bytes on a real socket and the state they lead to.
class TestOrvComm : public OrvCommTest
{
    Q_OBJECT
private slots:
    void aFirstSessionStartsTheSearch();
    void aSecondStartOfTheSameIdIsASecondRecord();
    void theModeByteGoesOutWithEveryLaterRequest();
    void stoppingTheLastSessionIsIdle();
    void stoppingAnUnknownSessionStillTellsIdle();
    void aReceiverOfIdleMayStartAnew();
    void deletionIsLoggedInBinaryForTheKnownMasks_data();
    void deletionIsLoggedInBinaryForTheKnownMasks();
    void suplRequestIdsCountToTwelveBits();
    void suplServersAreLoggedAndSent_data();
    void suplServersAreLoggedAndSent();
    void theAnswerToALocationRequestIsSixBytes_data();
    void theAnswerToALocationRequestIsSixBytes();
    void requestsWithoutAnEngineGoOnAsIfSent();
};

void TestOrvComm::aFirstSessionStartsTheSearch()
{
    LogCapture log;
    QCOMPARE(m_orv->startGNSS(7, 1), 0);
    QCOMPARE(log.lines(), QStringList(u"debug: ORVComm::startGNSS( 7 , 1 )"_s));
    QCOMPARE(m_engine->takeReceived(),
             QList<QByteArray>{QByteArray::fromHex("EF01000C 0007 0000 00 02 0001")});
    QCOMPARE(m_seen->take(), QStringList(u"state 1"_s));

    QCOMPARE(watchdogs(*m_orv).size(), 1);
    const QTimer *watchdog = watchdogs(*m_orv).first();
    QVERIFY(watchdog->isActive());
    QVERIFY(watchdog->isSingleShot());
    QCOMPARE(watchdog->interval(), 120000);
}

void TestOrvComm::aSecondStartOfTheSameIdIsASecondRecord()
{
    const LogCapture quiet;
    m_orv->startGNSS(7, 1);
    m_orv->startGNSS(7, 600);
    QCOMPARE(m_engine->takeReceived().size(), 2);
    QCOMPARE(m_seen->take(), QStringList(u"state 1"_s));
    QCOMPARE(watchdogs(*m_orv).size(), 2);

    // The first record in order is the one that counts, and the one that goes.
    feed(*m_orv, positionReport(7));
    QCOMPARE(m_seen->take(), QStringList({u"state 2"_s, u"fix 7"_s}));
    QCOMPARE(watchdogs(*m_orv).at(0)->interval(), 11000);
    QCOMPARE(watchdogs(*m_orv).at(1)->interval(), 120000);

    m_orv->stopGNSS(7);
    QCOMPARE(m_seen->take(), QStringList());
    feed(*m_orv, positionReport(7));
    QCOMPARE(m_seen->take(), QStringList(u"fix 7"_s));
    m_orv->stopGNSS(7);
    QCOMPARE(m_seen->take(), QStringList(u"state 0"_s));
}

void TestOrvComm::theModeByteGoesOutWithEveryLaterRequest()
{
    const LogCapture quiet;
    m_orv->setGNSSMode(1);
    m_orv->startGNSS(0x1234, 0x0102);
    m_orv->setGNSSInterval(0x1234, 5);
    m_orv->setGNSSMode(2);
    m_orv->stopGNSS(0x1234);
    QCOMPARE(m_engine->takeReceived(), QList<QByteArray>({
                                           QByteArray::fromHex("EF01000C 1234 0000 00 01 0102"),
                                           QByteArray::fromHex("EF01000C 1234 0000 01 01 0005"),
                                           QByteArray::fromHex("EF01000C 1234 0000 02 02 0000"),
                                       }));
}

void TestOrvComm::stoppingTheLastSessionIsIdle()
{
    m_orv->startGNSS(7, 1);
    m_orv->startGNSS(8, 1);
    m_engine->takeReceived();
    m_seen->take();

    LogCapture log;
    QCOMPARE(m_orv->stopGNSS(8), 0);
    QCOMPARE(log.lines(), QStringList(u"debug: ORVComm::stopGNSS( 8 )"_s));
    QCOMPARE(m_engine->takeReceived(),
             QList<QByteArray>{QByteArray::fromHex("EF01000C 0008 0000 02 02 0000")});
    QCOMPARE(m_seen->take(), QStringList());
    QVERIFY(!watchdogs(*m_orv).at(1)->isActive());

    m_orv->stopGNSS(7);
    QCOMPARE(m_seen->take(), QStringList(u"state 0"_s));
    QTRY_COMPARE(watchdogs(*m_orv).size(), 0);

    // A late report moves nothing.
    feed(*m_orv, positionReport(7));
    QCOMPARE(m_seen->take(), QStringList());
}

void TestOrvComm::stoppingAnUnknownSessionStillTellsIdle()
{
    const LogCapture quiet;
    m_orv->stopGNSS(99);
    QCOMPARE(m_engine->takeReceived(),
             QList<QByteArray>{QByteArray::fromHex("EF01000C 0063 0000 02 02 0000")});
    QCOMPARE(m_seen->take(), QStringList(u"state 0"_s));
    m_orv->stopGNSS(99);
    QCOMPARE(m_seen->take(), QStringList(u"state 0"_s));
    m_orv->startGNSS(7, 1);
    m_seen->take();
    m_orv->stopGNSS(99);
    QCOMPARE(m_seen->take(), QStringList());
}

void TestOrvComm::aReceiverOfIdleMayStartAnew()
{
    const LogCapture quiet;
    m_orv->startGNSS(7, 1);
    connect(m_orv.get(), &ORVComm::GNSSStateUpdated, this, [this](ORVComm::GNSSState state) {
        if (state == ORVComm::Idle)
            m_orv->startGNSS(8, 1);
    });
    m_seen->take();
    m_orv->stopGNSS(7);
    QCOMPARE(m_seen->take(), QStringList({u"state 0"_s, u"state 1"_s}));
    feed(*m_orv, positionReport(8));
    QCOMPARE(m_seen->take(), QStringList({u"state 2"_s, u"fix 8"_s}));
}

void TestOrvComm::deletionIsLoggedInBinaryForTheKnownMasks_data()
{
    QTest::addColumn<quint32>("mask");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("0x01 has a line") << 0x01U << QStringList(u"debug: deleteAssistanceData 0x 1"_s)
                                     << QByteArray::fromHex("EF0A0008 00000001");
    QTest::newRow("0xFD has a line") << 0xFDU << QStringList(u"debug: deleteAssistanceData 0x 11111101"_s)
                                     << QByteArray::fromHex("EF0A0008 000000FD");
    QTest::newRow("0xFF has a line") << 0xFFU << QStringList(u"debug: deleteAssistanceData 0x 11111111"_s)
                                     << QByteArray::fromHex("EF0A0008 000000FF");
    QTest::newRow("0x02 goes without a line")
        << 0x02U << QStringList() << QByteArray::fromHex("EF0A0008 00000002");
    QTest::newRow("0x11111111 goes without a line")
        << 0x11111111U << QStringList() << QByteArray::fromHex("EF0A0008 11111111");
}

void TestOrvComm::deletionIsLoggedInBinaryForTheKnownMasks()
{
    QFETCH(quint32, mask);
    QFETCH(QByteArray, bytes);
    LogCapture log;
    QCOMPARE(m_orv->deleteAssistanceData(mask), 0);
    QTEST(log.lines(), "lines");
    QCOMPARE(m_engine->takeReceived(), QList<QByteArray>{bytes});
}

void TestOrvComm::suplRequestIdsCountToTwelveBits()
{
    LogCapture log;
    QList<QByteArray> sent;
    for (int request = 1; request <= 4097; ++request) {
        QCOMPARE(m_orv->sendSUPLLocationRequest(20), 0);
        sent.append(m_engine->takeReceived());
    }
    QCOMPARE(sent.size(), 4097);
    QCOMPARE(sent.at(0), QByteArray::fromHex("EF04000C 0001 0014 02 000000"));
    QCOMPARE(sent.at(1), QByteArray::fromHex("EF04000C 0002 0014 02 000000"));
    QCOMPARE(sent.at(4094), QByteArray::fromHex("EF04000C 0FFF 0014 02 000000"));
    QCOMPARE(sent.at(4095), QByteArray::fromHex("EF04000C 0000 0014 02 000000"));
    QCOMPARE(sent.at(4096), QByteArray::fromHex("EF04000C 0001 0014 02 000000"));
    QCOMPARE(log.lines(), QStringList());
}

void TestOrvComm::suplServersAreLoggedAndSent_data()
{
    QTest::addColumn<QString>("primary");
    QTest::addColumn<int>("primaryUsage");
    QTest::addColumn<QString>("secondary");
    QTest::addColumn<int>("secondaryUsage");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("names of 5 and 7 bytes make 20")
        << u"a.com"_s << 1 << u"bb.name"_s << 2
        << QByteArray::fromHex("EF110014 05 07 01 02 612E636F6D 62622E6E616D65");
    QTest::newRow("names of 4 and 4 bytes make 16")
        << u"abcd"_s << 0 << u"efgh"_s << 255
        << QByteArray::fromHex("EF110010 04 04 00 FF 61626364 65666768");
    QTest::newRow("no names make 8") << QString() << 3 << QString() << 4
                                     << QByteArray::fromHex("EF110008 00 00 03 04");
    QTest::newRow("padding is zero") << u"a"_s << 1 << QString() << 1
                                     << QByteArray::fromHex("EF11000C 01 00 01 01 61 000000");
    QTest::newRow("a name of 257 bytes counts as 1")
        << QString(257, u'z') << 1 << u"b"_s << 1 << QByteArray::fromHex("EF11000C 01 01 01 01 7A 62 0000");
}

void TestOrvComm::suplServersAreLoggedAndSent()
{
    QFETCH(QString, primary);
    QFETCH(int, primaryUsage);
    QFETCH(QString, secondary);
    QFETCH(int, secondaryUsage);
    QFETCH(QByteArray, bytes);
    LogCapture log;
    QCOMPARE(m_orv->sendSUPLServerInfo(primaryUsage, primary, secondaryUsage, secondary), 0);
    QCOMPARE(m_engine->takeReceived(), QList<QByteArray>{bytes});
    QCOMPARE(log.lines(),
             QStringList({
                 u"debug: Sending SUPL server information to ORV"_s,
                 u"debug: Primary SUPL server:  \"%1\"  usage: %2"_s.arg(primary).arg(primaryUsage),
                 u"debug: Secondary SUPL server:  \"%1\" usage:  %2"_s.arg(secondary).arg(secondaryUsage),
                 u"debug: Sending SUPL server information to ORV"_s,
             }));
}

void TestOrvComm::theAnswerToALocationRequestIsSixBytes_data()
{
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("accepted") << true << u"debug: Sending location request reply: true"_s
                              << QByteArray::fromHex("EF0F0006 01 00");
    QTest::newRow("rejected") << false << u"debug: Sending location request reply: false"_s
                              << QByteArray::fromHex("EF0F0006 00 00");
}

void TestOrvComm::theAnswerToALocationRequestIsSixBytes()
{
    QFETCH(bool, accepted);
    QFETCH(QString, line);
    QFETCH(QByteArray, bytes);
    LogCapture log;
    m_orv->sendLocationRequestReply(accepted);
    QCOMPARE(log.lines(), QStringList(line));
    QCOMPARE(m_engine->takeReceived(), QList<QByteArray>{bytes});
}

void TestOrvComm::requestsWithoutAnEngineGoOnAsIfSent()
{
    LogCapture log;
    ORVComm orv(DevicePaths{m_root->path()});
    OrvRecorder seen(orv);
    QCOMPARE(orv.startGNSS(7, 1), 0);
    QCOMPARE(log.lines(), QStringList({u"debug: ORVComm::startGNSS( 7 , 1 )"_s,
                                       u"critical: MsgSockClient::send: send() : Bad file descriptor"_s}));
    QCOMPARE(orv.sendSUPLLocationRequest(20), 0);
    QCOMPARE(orv.deleteAssistanceData(1), 0);
    QCOMPARE(orv.sendSUPLServerInfo(1, {}, 1, {}), 0);
    QCOMPARE(seen.take(), QStringList(u"state 1"_s));
    QVERIFY(watchdogs(orv).first()->isActive());
    watchdogs(orv).first()->start(0);
    QTRY_COMPARE(seen.events, QStringList(u"timeout 7"_s)); // that is how a lost engine shows
    QCOMPARE(orv.setGNSSInterval(7, 2), 0);
    QCOMPARE(orv.stopGNSS(7), 0);
}

QTEST_GUILESS_MAIN(TestOrvComm)
#include "tst_orvcomm.moc"
