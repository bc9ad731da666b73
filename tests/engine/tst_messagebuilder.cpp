#include "engine/messagebuilder.h"

#include <QTest>

// What the daemon sends, byte for byte.
class TestMessageBuilder : public QObject
{
    Q_OBJECT
private slots:
    void gnssRequests_data();
    void gnssRequests();
    void suplRequest();
    void deleteAssistance_data();
    void deleteAssistance();
    void registerPrivacy();
    void locationReplies();
    void suplServersAreCountedAndPadded_data();
    void suplServersAreCountedAndPadded();
    void suplServerNamesFollowEachOther();
    void aLongServerNameIsCutToItsCount();
};

void TestMessageBuilder::gnssRequests_data()
{
    QTest::addColumn<GnssRequest>("request");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("start a session with a fix each second, network allowed")
        << GnssRequest{0x1770, GnssCommand::Start, 2, 1}
        << QByteArray::fromHex("EF01"   // id
                               "000C"   // length
                               "1770"   // session id
                               "0000"   // zero
                               "00"     // start
                               "02"     // network connectivity allowed
                               "0001"); // interval, s
    QTest::newRow("change the interval, network not allowed")
        << GnssRequest{7, GnssCommand::ChangeInterval, 1, 0x0258}
        << QByteArray::fromHex("EF01 000C 0007 0000 01 01 0258");
    QTest::newRow("stop") << GnssRequest{0xFFFF, GnssCommand::Stop, 2, 0}
                          << QByteArray::fromHex("EF01 000C FFFF 0000 02 02 0000");
}

void TestMessageBuilder::gnssRequests()
{
    QFETCH(GnssRequest, request);
    QTEST(wire::gnssRequest(request), "bytes");
}

void TestMessageBuilder::suplRequest()
{
    QCOMPARE(wire::suplRequest({0x0FFF, 20, 2}), QByteArray::fromHex("EF04"      // id
                                                                     "000C"      // length
                                                                     "0FFF"      // request id
                                                                     "0014"      // parameter
                                                                     "02"        // constant
                                                                     "000000")); // zero
}

void TestMessageBuilder::deleteAssistance_data()
{
    QTest::addColumn<quint32>("mask");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("one kind") << 0x01u << QByteArray::fromHex("EF0A 0008 00000001");
    QTest::newRow("all but one kind") << 0xFDu << QByteArray::fromHex("EF0A 0008 000000FD");
    QTest::newRow("a mask beyond a byte travels whole")
        << 0x11111111u << QByteArray::fromHex("EF0A 0008 11111111");
}

void TestMessageBuilder::deleteAssistance()
{
    QFETCH(quint32, mask);
    QTEST(wire::deleteAssistance(mask), "bytes");
}

void TestMessageBuilder::registerPrivacy()
{
    QCOMPARE(wire::registerPrivacy(), QByteArray::fromHex("EF0C 0006 0000"));
}

void TestMessageBuilder::locationReplies()
{
    QCOMPARE(wire::locationReply(true), QByteArray::fromHex("EF0F 0006 01 00"));
    QCOMPARE(wire::locationReply(false), QByteArray::fromHex("EF0F 0006 00 00"));
}

void TestMessageBuilder::suplServersAreCountedAndPadded_data()
{
    QTest::addColumn<int>("primary");
    QTest::addColumn<int>("secondary");
    QTest::addColumn<int>("primaryCount");
    QTest::addColumn<int>("secondaryCount");
    QTest::addColumn<int>("total");
    QTest::newRow("5 and 7 bytes make 20") << 5 << 7 << 5 << 7 << 20;
    QTest::newRow("4 and 4 bytes make 16") << 4 << 4 << 4 << 4 << 16;
    QTest::newRow("no names leave the fixed part") << 0 << 0 << 0 << 0 << 8;
    QTest::newRow("one byte is padded by three") << 1 << 0 << 1 << 0 << 12;
    QTest::newRow("two bytes are padded by two") << 1 << 1 << 1 << 1 << 12;
    QTest::newRow("three bytes are padded by one") << 0 << 3 << 0 << 3 << 12;
    QTest::newRow("the longest names") << 255 << 255 << 255 << 255 << 520;
    QTest::newRow("256 bytes count as none") << 256 << 4 << 0 << 4 << 12;
    QTest::newRow("261 bytes count as five") << 4 << 261 << 4 << 5 << 20;
    QTest::newRow("512 and 513 bytes") << 512 << 513 << 0 << 1 << 12;
}

void TestMessageBuilder::suplServersAreCountedAndPadded()
{
    QFETCH(int, primary);
    QFETCH(int, secondary);
    QFETCH(int, primaryCount);
    QFETCH(int, secondaryCount);
    QFETCH(int, total);
    const auto bytes = wire::suplServers({{1, QByteArray(primary, 'p')}, {2, QByteArray(secondary, 's')}});
    QCOMPARE(bytes.size(), total);
    QCOMPARE(bytes.first(2), QByteArray::fromHex("EF11"));
    QCOMPARE(quint8(bytes[2]) * 256 + quint8(bytes[3]), total);
    QCOMPARE(int(quint8(bytes[4])), primaryCount);
    QCOMPARE(int(quint8(bytes[5])), secondaryCount);
    QCOMPARE(bytes.mid(6, 2), QByteArray::fromHex("01 02"));
    QCOMPARE(bytes.mid(8, primaryCount), QByteArray(primaryCount, 'p'));
    QCOMPARE(bytes.mid(8 + primaryCount, secondaryCount), QByteArray(secondaryCount, 's'));
    const auto used = 8 + primaryCount + secondaryCount;
    QCOMPARE(bytes.mid(used), QByteArray(total - used, '\0'));
}

void TestMessageBuilder::suplServerNamesFollowEachOther()
{
    QCOMPARE(wire::suplServers({{3, "a.org"}, {0xFF, "bb.test"}}),
             QByteArray::fromHex("EF11"              // id
                                 "0014"              // length
                                 "05"                // bytes of the primary name
                                 "07"                // bytes of the secondary name
                                 "03"                // primary usage
                                 "FF"                // secondary usage
                                 "612E6F7267"        // a.org
                                 "62622E74657374")); // bb.test
}

void TestMessageBuilder::aLongServerNameIsCutToItsCount()
{
    const QByteArray name = "first" + QByteArray(256, '.');
    QCOMPARE(wire::suplServers({{0, name}, {0, "end"}}),
             QByteArray::fromHex("EF11 0010 05 03 00 00 6669727374 656E64"));
}

QTEST_GUILESS_MAIN(TestMessageBuilder)
#include "tst_messagebuilder.moc"
