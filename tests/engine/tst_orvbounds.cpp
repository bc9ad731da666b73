#include "engine/orvbench.h"

#include <random>

using namespace Qt::StringLiterals;
using engineside::ReportWriter;

// Packets that are not what they should be cost nothing but themselves.
class TestOrvBounds : public OrvBenchTest
{
    Q_OBJECT
private slots:
    void aTruncatedMessageLosesNoLaterOne_data();
    void aTruncatedMessageLosesNoLaterOne();
    void aMessageTooShortForItsFieldsIsDropped_data();
    void aMessageTooShortForItsFieldsIsDropped();
    void theReceivedLengthCountsNotTheHeaders();
    void aBlockThatCannotBeEndsTheWalk_data();
    void aBlockThatCannotBeEndsTheWalk();
    void garbageLosesNoLaterMessage();
};

void TestOrvBounds::aTruncatedMessageLosesNoLaterOne_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("a notification") << sample::fullNotification();
    QTest::newRow("a SUPL response") << sample::fullReport(SuplResponse{});
    QTest::newRow("a location request") << sample::fullLocationRequest();
    QTest::newRow("a session response") << sample::hex("EF020008 0102 A5 00");
    QTest::newRow("an answer to a deletion") << sample::hex("EF0B0008 01 000000");
    QTest::newRow("an answer to the registration") << sample::hex("EF0D0008 00 000000");
}

void TestOrvBounds::aTruncatedMessageLosesNoLaterOne()
{
    QFETCH(QByteArray, message);
    m_bench->startSession(7);
    m_bench->hear(positionReport(7)); // tracking
    for (qsizetype length = 0; length < message.size(); ++length) {
        // Exactly that many bytes on the heap: a sanitizer sees a read beyond them.
        const QByteArray packet(message.constData(), length);
        m_bench->hear(packet);
        QVERIFY(m_bench->log().first().startsWith(u"debug: ORV Message received. id: 0x"_s));
        m_bench->seen();

        m_bench->hear(sample::fullNotification());
        QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"fix 7"_s}));
        QCOMPARE(m_bench->reports().fix.coordinate(), QGeoCoordinate(45.0, 22.5, 120.0));
        m_bench->log();
    }
}

void TestOrvBounds::aMessageTooShortForItsFieldsIsDropped_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QString>("line");
    const auto received = [](const char *id, int length) {
        return u"debug: ORV Message received. id: 0x%1 length: %2"_s.arg(QLatin1String(id)).arg(length);
    };
    QTest::newRow("nothing of a header") << QByteArray() << received("0000", 0);
    QTest::newRow("half a header") << sample::hex("EF03") << received("0000", 0);
    QTest::newRow("a notification without its status")
        << sample::hex("EF030030 0007") << received("ef03", 48);
    QTest::newRow("a notification without its count")
        << sample::hex("EF030030 0007 41") << received("ef03", 48);
    QTest::newRow("a SUPL response without its count")
        << sample::hex("EF050030 0000 00") << received("ef05", 48);
    QTest::newRow("a session response without its status")
        << sample::hex("EF020008 0007") << received("ef02", 8);
    QTest::newRow("an answer without its result") << sample::hex("EF0B0008") << received("ef0b", 8);
    QTest::newRow("a registration without its result") << sample::hex("EF0D0008") << received("ef0d", 8);
    QTest::newRow("a location request without its count")
        << sample::hex("EF0E0008 01 02 00") << received("ef0e", 8);
}

void TestOrvBounds::aMessageTooShortForItsFieldsIsDropped()
{
    QFETCH(QByteArray, message);
    QFETCH(QString, line);
    m_bench->startSession(7);
    m_bench->hear(message);
    QCOMPARE(m_bench->log(), QStringList(line));
    QCOMPARE(m_bench->seen(), QStringList());
}

void TestOrvBounds::theReceivedLengthCountsNotTheHeaders()
{
    m_bench->startSession(7);
    QByteArray report = positionReport(7);
    report[3] = 8; // the header says: no room for sub-blocks
    m_bench->hear(report);
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 7"_s}));
    QCOMPARE(m_bench->log().first(), u"debug: ORV Message received. id: 0xef03 length: 8"_s);
    report[2] = char(0xFF); // the header says: far more than came
    m_bench->hear(report);
    QCOMPARE(m_bench->seen(), QStringList(u"fix 7"_s));
}

void TestOrvBounds::aBlockThatCannotBeEndsTheWalk_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::newRow("a length of 0") << sample::hex("EF060000");
    QTest::newRow("a length below its header") << sample::hex("EF060003");
    QTest::newRow("a length beyond the packet") << sample::hex("EF06FFFF");
}

void TestOrvBounds::aBlockThatCannotBeEndsTheWalk()
{
    QFETCH(QByteArray, block);
    m_bench->startSession(7);
    QByteArray report = positionReport(7);
    report.insert(8, block);
    report[7] = 2;
    m_bench->hear(report);
    QCOMPARE(m_bench->seen(), QStringList());

    // What stands before it counts.
    report = positionReport(7) + block;
    report[7] = 2;
    m_bench->hear(report);
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 7"_s}));
}

void TestOrvBounds::garbageLosesNoLaterMessage()
{
    std::mt19937 random(20061); // the same garbage every time
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(0, 300);
    m_bench->startSession(7);
    m_bench->hear(positionReport(7));
    for (int round = 0; round < 3000; ++round) {
        QByteArray packet(length(random), '\0');
        for (char &c : packet)
            c = char(byte(random));
        if (packet.size() > 8) {
            packet[0] = char(0xEF); // most of it gets past the dispatch
            packet[1] = char(round % 18);
            packet[6] = char(round % 3 == 0 ? 0x41 : packet[6]);
        }
        m_bench->hear(packet);
    }
    m_bench->seen();
    m_bench->hear(sample::fullNotification());
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"fix 7"_s}));
    QCOMPARE(m_bench->reports().fix.coordinate(), QGeoCoordinate(45.0, 22.5, 120.0));
}

QTEST_GUILESS_MAIN(TestOrvBounds)
#include "tst_orvbounds.moc"
