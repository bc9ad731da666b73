#include "engine/messagereader.h"

#include <QTest>

#include <vector>

using namespace Qt::StringLiterals;

// What the engine sends, from bytes to structs, whole and cut short.
class TestMessageReader : public QObject
{
    Q_OBJECT
private slots:
    void headers();
    void gnssResponses();
    void gnssNotificationBits_data();
    void gnssNotificationBits();
    void suplResponses();
    void deletionAndRegistrationSucceedOppositely_data();
    void deletionAndRegistrationSucceedOppositely();
    void locationRequests();
    void messagesCutShortGiveNothing_data();
    void messagesCutShortGiveNothing();
    void positionBlock();
    void timeBlock();
    void velocityBlock();
    void defaultAnswers_data();
    void defaultAnswers();
    void blocksCutShortGiveNothing_data();
    void blocksCutShortGiveNothing();
};

namespace {
const QByteArray positionBytes = QByteArray::fromHex("EF01"     // id
                                                     "001E"     // length
                                                     "20000000" // latitude, 45 degrees
                                                     "F0000000" // longitude, -22.5 degrees
                                                     "000003E8" // along, cm
                                                     "000001F4" // across, cm
                                                     "5A"       // orientation
                                                     "AAAAAA"   // not read
                                                     "FF38"     // altitude, -200 half metres
                                                     "8001"     // its uncertainty, unsigned
                                                     "FFD8");   // geoid separation, -40 half metres
const QByteArray timeBytes = QByteArray::fromHex("EF02"         // id
                                                 "000E"         // length
                                                 "07DA"         // year
                                                 "0C"           // month
                                                 "1F"           // day
                                                 "AA"           // not read
                                                 "17"           // hours
                                                 "3B"           // minutes
                                                 "AA"           // not read
                                                 "EA5F");       // milliseconds
const QByteArray velocityBytes = QByteArray::fromHex("EF03"     // id
                                                     "0012"     // length
                                                     "FC18"     // heading, -10.00 degrees
                                                     "FFFF"     // its uncertainty, unsigned
                                                     "00C8"     // variation, 2.00 degrees
                                                     "03E8"     // speed, 10.00 m/s
                                                     "0032"     // its uncertainty
                                                     "FF9C"     // climb, -1.00 m/s
                                                     "8000");   // its uncertainty, unsigned

using IsRead = bool (*)(PacketView);
template <auto Read>
bool isRead(PacketView view)
{
    return Read(view).has_value();
}
} // namespace

void TestMessageReader::headers()
{
    const auto packet = QByteArray::fromHex("EF03 1234");
    QCOMPARE(wire::readHeader(PacketView::of(packet)).value(), (Header{0xEF03, 0x1234}));
    for (qsizetype length = 0; length < 4; ++length) {
        const auto cut = packet.first(length);
        QVERIFY(!wire::readHeader(PacketView::of(cut)));
    }
}

void TestMessageReader::gnssResponses()
{
    const auto packet = QByteArray::fromHex("EF02 0008 1770 05 00");
    QCOMPARE(wire::readGnssResponse(PacketView::of(packet)).value(), (GnssResponse{6000, 5}));
}

void TestMessageReader::gnssNotificationBits_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("isToBeProcessed");
    QTest::addColumn<bool>("hasFix");
    QTest::newRow("nothing") << 0x00 << false << false;
    QTest::newRow("bit 0: to be processed") << 0x01 << true << false;
    QTest::newRow("bit 6: with a fix") << 0x40 << false << true;
    QTest::newRow("both") << 0x41 << true << true;
    QTest::newRow("the other bits say nothing") << 0xBE << false << false;
    QTest::newRow("all") << 0xFF << true << true;
}

void TestMessageReader::gnssNotificationBits()
{
    QFETCH(int, status);
    auto packet = QByteArray::fromHex("EF03 0008 1770 00 00");
    packet[6] = char(status);
    const auto notification = wire::readGnssNotification(PacketView::of(packet));
    QCOMPARE(notification.value(), (GnssNotification{6000, quint8(status)}));
    QTEST(notification->isToBeProcessed(), "isToBeProcessed");
    QTEST(notification->hasFix(), "hasFix");
}

void TestMessageReader::suplResponses()
{
    auto packet = QByteArray::fromHex("EF05 0008 FFFF 00 00");
    const auto status = [&packet](int value) {
        packet[6] = char(value);
        return wire::readSuplResponse(PacketView::of(packet)).value().status;
    };
    QCOMPARE(status(0), SuplStatus::Success);
    QCOMPARE(status(1), SuplStatus::ConnectionError);
    QCOMPARE(status(2), SuplStatus::Timeout);
    QCOMPARE(status(200), SuplStatus{200});
}

void TestMessageReader::deletionAndRegistrationSucceedOppositely_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("deleted");
    QTest::addColumn<bool>("registered");
    QTest::newRow("0") << 0 << false << true;
    QTest::newRow("1") << 1 << true << false;
    QTest::newRow("any other value failed") << 2 << false << false;
    QTest::newRow("the largest value failed") << 255 << false << false;
}

void TestMessageReader::deletionAndRegistrationSucceedOppositely()
{
    QFETCH(int, result);
    auto packet = QByteArray::fromHex("EF0B 0008 00 000000");
    packet[4] = char(result);
    QTEST(wire::readAssistanceDeleted(PacketView::of(packet)).value().deleted, "deleted");
    packet[1] = '\x0D';
    QTEST(wire::readPrivacyRegistered(PacketView::of(packet)).value().registered, "registered");
}

void TestMessageReader::locationRequests()
{
    const auto packet = QByteArray::fromHex("EF0E 0008 04 09 AA 00");
    QCOMPARE(wire::readLocationRequest(PacketView::of(packet)).value(), (LocationRequest{4, 9}));
}

void TestMessageReader::messagesCutShortGiveNothing_data()
{
    QTest::addColumn<int>("needed");
    QTest::addColumn<IsRead>("read");
    QTest::newRow("session response") << 7 << IsRead(isRead<wire::readGnssResponse>);
    QTest::newRow("notification") << 8 << IsRead(isRead<wire::readGnssNotification>);
    QTest::newRow("SUPL response") << 8 << IsRead(isRead<wire::readSuplResponse>);
    QTest::newRow("deletion response") << 5 << IsRead(isRead<wire::readAssistanceDeleted>);
    QTest::newRow("registration response") << 5 << IsRead(isRead<wire::readPrivacyRegistered>);
    QTest::newRow("location request") << 8 << IsRead(isRead<wire::readLocationRequest>);
}

void TestMessageReader::messagesCutShortGiveNothing()
{
    QFETCH(int, needed);
    QFETCH(IsRead, read);
    const QByteArray packet(8, '\x01'); // the length it claims does not help it
    for (int length = 0; length <= packet.size(); ++length) {
        const auto cut = packet.first(length);
        QCOMPARE(read(PacketView::of(cut)), length >= needed);
    }
}

void TestMessageReader::positionBlock()
{
    const auto block = wire::readPosition(PacketView::of(positionBytes));
    QCOMPARE(block.value(), (PositionBlock{.latitude = 0x20000000,
                                           .longitude = -0x10000000,
                                           .along = 1000,
                                           .ortho = 500,
                                           .angle = 90,
                                           .altitude = -200,
                                           .altitudeError = 0x8001,
                                           .geoid = -40}));
}

void TestMessageReader::timeBlock()
{
    const auto block = wire::readTime(PacketView::of(timeBytes));
    QCOMPARE(
        block.value(),
        (TimeBlock{.year = 2010, .month = 12, .day = 31, .hours = 23, .minutes = 59, .milliseconds = 59999}));
}

void TestMessageReader::velocityBlock()
{
    const auto block = wire::readVelocity(PacketView::of(velocityBytes));
    QCOMPARE(block.value(), (VelocityBlock{.heading = -1000,
                                           .headingError = 0xFFFF,
                                           .variation = 200,
                                           .speed = 1000,
                                           .speedError = 50,
                                           .climb = -100,
                                           .climbError = 0x8000}));
}

void TestMessageReader::defaultAnswers_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<bool>("accept");
    QTest::newRow("one accepts") << QByteArray::fromHex("EF14 0008 AAAA 01 AA") << true;
    QTest::newRow("any non-zero value accepts") << QByteArray::fromHex("EF14 0007 0000 80") << true;
    QTest::newRow("zero rejects") << QByteArray::fromHex("EF14 0008 FFFF 00 FF") << false;
}

void TestMessageReader::defaultAnswers()
{
    QFETCH(QByteArray, block);
    QTEST(wire::readDefaultAnswer(PacketView::of(block)).value(), "accept");
}

void TestMessageReader::blocksCutShortGiveNothing_data()
{
    QTest::addColumn<int>("needed");
    QTest::addColumn<IsRead>("read");
    QTest::newRow("position") << 30 << IsRead(isRead<wire::readPosition>);
    QTest::newRow("time") << 14 << IsRead(isRead<wire::readTime>);
    QTest::newRow("velocity") << 18 << IsRead(isRead<wire::readVelocity>);
    QTest::newRow("satellites need their count") << 5 << IsRead(isRead<wire::readSatellites>);
    QTest::newRow("a client name needs its count") << 8 << IsRead(isRead<wire::readClientName>);
    QTest::newRow("a client id needs its count") << 8 << IsRead(isRead<wire::readClientId>);
    QTest::newRow("default answer") << 7 << IsRead(isRead<wire::readDefaultAnswer>);
}

void TestMessageReader::blocksCutShortGiveNothing()
{
    QFETCH(int, needed);
    QFETCH(IsRead, read);
    const QByteArray block(32, '\x01');
    for (int length = 0; length <= block.size(); ++length) {
        const auto cut = block.first(length);
        QCOMPARE(read(PacketView::of(cut)), length >= needed);
    }
}

QTEST_GUILESS_MAIN(TestMessageReader)
#include "tst_messagereader.moc"
