#include "engine/enginesidecodec.h"
#include "engine/messagebuilder.h"
#include "engine/messagereader.h"

#include <QTest>

#include <array>

using namespace Qt::StringLiterals;
using engineside::ReportWriter;
using engineside::Request;

// The engine's side: reads what the daemon builds, writes what the daemon reads.
class TestEngineSideCodec : public QObject
{
    Q_OBJECT
private slots:
    void readsWhatTheDaemonBuilds_data();
    void readsWhatTheDaemonBuilds();
    void requestsCutShortAreRefused_data();
    void requestsCutShortAreRefused();
    void serverNamesBeyondThePacketAreRefused();
    void refusesWhatNoDaemonSends_data();
    void refusesWhatNoDaemonSends();
    void answers();
    void notificationBytes();
    void reportsComeBackAsTheyWere();
    void locationRequestsComeBackAsTheyWere();
    void theLongestMessage();
    void noMoreSubBlocksThanTheCountCanSay();
    void noMoreThanACountCanSay();
};

void TestEngineSideCodec::readsWhatTheDaemonBuilds_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Request>("request");
    const auto gnss = [](const GnssRequest &request) {
        QTest::addRow("session command %d", int(request.command))
            << wire::gnssRequest(request) << Request(request);
    };
    gnss({6000, GnssCommand::Start, 2, 1});
    gnss({6001, GnssCommand::ChangeInterval, 1, 65535});
    gnss({65535, GnssCommand::Stop, 2, 0});
    QTest::newRow("SUPL request") << wire::suplRequest({4095, 20, 2}) << Request(SuplRequest{4095, 20, 2});
    QTest::newRow("deletion") << wire::deleteAssistance(0x11111111) << Request(DeleteAssistance{0x11111111});
    QTest::newRow("registration") << wire::registerPrivacy() << Request(RegisterPrivacy{});
    QTest::newRow("accepted") << wire::locationReply(true) << Request(LocationReply{true});
    QTest::newRow("rejected") << wire::locationReply(false) << Request(LocationReply{false});
    const SuplServers servers{{1, "first.example"}, {0, QByteArray(255, 'x')}};
    QTest::newRow("servers") << wire::suplServers(servers) << Request(servers);
    QTest::newRow("no servers") << wire::suplServers({}) << Request(SuplServers{});
}

void TestEngineSideCodec::readsWhatTheDaemonBuilds()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Request, request);
    const auto read = engineside::readRequest(PacketView::of(bytes));
    QVERIFY(read == request);
}

void TestEngineSideCodec::requestsCutShortAreRefused_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("needed");
    QTest::newRow("session request") << wire::gnssRequest({}) << 12;
    QTest::newRow("SUPL request, but its zeroes") << wire::suplRequest({}) << 9;
    QTest::newRow("deletion") << wire::deleteAssistance(1) << 8;
    QTest::newRow("reply, but its zero") << wire::locationReply(true) << 5;
    QTest::newRow("registration, but its zeroes") << wire::registerPrivacy() << 4;
    QTest::newRow("servers, but their padding") << wire::suplServers({{1, "abc"}, {2, "de"}}) << 13;
}

void TestEngineSideCodec::requestsCutShortAreRefused()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, needed);
    for (int length = 0; length <= bytes.size(); ++length) {
        const auto cut = bytes.first(length);
        QCOMPARE(engineside::readRequest(PacketView::of(cut)).has_value(), length >= needed);
    }
}

void TestEngineSideCodec::serverNamesBeyondThePacketAreRefused()
{
    auto bytes = wire::suplServers({{1, "abcd"}, {2, "efgh"}});
    bytes[5] = '\x05'; // the secondary name would end one byte behind the packet
    QVERIFY(!engineside::readRequest(PacketView::of(bytes)));
}

void TestEngineSideCodec::refusesWhatNoDaemonSends_data()
{
    QTest::addColumn<QByteArray>("bytes");
    for (int id : {0xEF00, 0xEF02, 0xEF03, 0xEF05, 0xEF0B, 0xEF0D, 0xEF0E, 0xEF10, 0xEF12, 0x0001}) {
        QTest::addRow("message 0x%04X", uint(id)) << PacketWriter(quint16(id), 16).take();
    }
    auto command = wire::gnssRequest({});
    command[8] = '\x03';
    QTest::newRow("a session command beyond stop") << command;
}

void TestEngineSideCodec::refusesWhatNoDaemonSends()
{
    QFETCH(QByteArray, bytes);
    QVERIFY(!engineside::readRequest(PacketView::of(bytes)));
}

void TestEngineSideCodec::answers()
{
    const auto response = engineside::gnssResponse({6000, 3});
    QCOMPARE(response, QByteArray::fromHex("EF02 0008 1770 03 00"));
    QCOMPARE(wire::readGnssResponse(PacketView::of(response)).value(), (GnssResponse{6000, 3}));

    const auto deleted = engineside::assistanceDeleted(true);
    QCOMPARE(deleted, QByteArray::fromHex("EF0B 0008 01 000000"));
    QVERIFY(wire::readAssistanceDeleted(PacketView::of(deleted)).value().deleted);
    const auto kept = engineside::assistanceDeleted(false);
    QVERIFY(!wire::readAssistanceDeleted(PacketView::of(kept)).value().deleted);

    const auto registered = engineside::privacyRegistered(true);
    QCOMPARE(registered, QByteArray::fromHex("EF0D 0008 00 000000"));
    QVERIFY(wire::readPrivacyRegistered(PacketView::of(registered)).value().registered);
    const auto refused = engineside::privacyRegistered(false);
    QVERIFY(!wire::readPrivacyRegistered(PacketView::of(refused)).value().registered);
}

void TestEngineSideCodec::notificationBytes()
{
    ReportWriter report(GnssNotification{6000, 0x41});
    QVERIFY(report.add(PositionBlock{.latitude = 0x20000000,
                                     .longitude = -0x10000000,
                                     .along = 1000,
                                     .ortho = 500,
                                     .angle = 90,
                                     .altitude = -200,
                                     .altitudeError = 21,
                                     .geoid = 40}));
    QVERIFY(report.add(TimeBlock{2010, 12, 31, 23, 59, 59999}));
    QVERIFY(report.add(VelocityBlock{-1000, 1, 200, 1000, 2, -100, 3}));
    const std::array records{SatelliteRecord{4, 1, 0x0280, 0xFF80, 0xFFFF}};
    QVERIFY(report.addSatellites(records));
    QVERIFY(report.addBlock(0xEF09, "\xBE\xEF"));
    QCOMPARE(report.bytes(),
             QByteArray::fromHex("EF03 005C 1770 41 05"                          // five sub-blocks
                                 "EF01 001E 20000000 F0000000 000003E8 000001F4" // position
                                 "5A 000000 FF38 0015 0028"                      //
                                 "EF02 000E 07DA 0C 1F 00 17 3B 00 EA5F"         // time
                                 "EF03 0012 FC18 0001 00C8 03E8 0002 FF9C 0003"  // velocity
                                 "EF04 0010 01 000000 04 01 0280 FF80 FFFF"      // satellites
                                 "EF09 0006 BEEF"));                             // something else
}

void TestEngineSideCodec::reportsComeBackAsTheyWere()
{
    const PositionBlock position{-5, 6, -7, 8, 9, -10, 11, -12};
    const TimeBlock time{1, 2, 3, 4, 5, 6};
    const VelocityBlock velocity{-1, 2, -3, 4, 5, -6, 7};
    const std::vector<SatelliteRecord> records(255, SatelliteRecord{1, 2, 3, 4, 5});
    ReportWriter report(SuplResponse{SuplStatus::Success});
    QVERIFY(report.addSatellites(records));
    QVERIFY(report.add(velocity));
    QVERIFY(report.add(time));
    QVERIFY(report.add(position));

    const auto message = PacketView::of(report.bytes());
    QCOMPARE(wire::readHeader(message).value(), (Header{0xEF05, quint16(report.bytes().size())}));
    QCOMPARE(wire::readSuplResponse(message).value(), SuplResponse{SuplStatus::Success});
    std::vector<quint16> order;
    for (const SubBlock &sub : wire::subBlocks(message)) {
        order.push_back(sub.id);
        switch (BlockId{sub.id}) {
        case BlockId::Position:
            QCOMPARE(wire::readPosition(sub.block).value(), position);
            break;
        case BlockId::Time:
            QCOMPARE(wire::readTime(sub.block).value(), time);
            break;
        case BlockId::Velocity:
            QCOMPARE(wire::readVelocity(sub.block).value(), velocity);
            break;
        default:
            QCOMPARE(wire::readSatellites(sub.block).value().size(), records.size());
        }
    }
    QCOMPARE(order, (std::vector<quint16>{0xEF04, 0xEF03, 0xEF02, 0xEF01}));
}

void TestEngineSideCodec::locationRequestsComeBackAsTheyWere()
{
    ReportWriter request(LocationRequest{1, 9});
    QVERIFY(request.addClientName(u"Zo\u00EB"));
    QVERIFY(request.addClientId(QString(300, u'4')));
    QVERIFY(request.addDefaultAnswer(true));
    QCOMPARE(request.bytes().first(8 + 14), QByteArray::fromHex("EF0E 027E 01 09 00 03"
                                                                "EF12 000E 000000 03 005A 006F 00EB"));
    QCOMPARE(request.bytes().mid(22, 10), QByteArray::fromHex("EF13 0260 0000 2C01 0034")); // 300 is 2C 01
    QCOMPARE(request.bytes().last(8), QByteArray::fromHex("EF14 0008 0000 01 00"));

    const auto message = PacketView::of(request.bytes());
    QCOMPARE(wire::readLocationRequest(message).value(), (LocationRequest{1, 9}));
    auto sub = wire::subBlocks(message).begin();
    QCOMPARE(wire::readClientName(sub->block).value(), u"Zo\u00EB"_s);
    QCOMPARE(wire::readClientId((++sub)->block).value(), QString(300, u'4'));
    QCOMPARE(wire::readDefaultAnswer((++sub)->block).value(), true);
    QVERIFY(++sub == std::default_sentinel);
}

void TestEngineSideCodec::theLongestMessage()
{
    ReportWriter report(GnssNotification{1, 1});
    QVERIFY(!report.addBlock(0xEF06, QByteArray(8192 - 8 - 4 + 1, 'x')));
    QCOMPARE(report.bytes(), QByteArray::fromHex("EF03 0008 0001 01 00")); // as if it had not been asked
    QVERIFY(report.addBlock(0xEF06, QByteArray(8192 - 8 - 4, 'x')));
    QCOMPARE(report.bytes().first(8), QByteArray::fromHex("EF03 2000 0001 01 01"));
    QVERIFY(!report.addBlock(0xEF06, {}));
    QVERIFY(!report.addBlock(0xEF06, QByteArray(70000, 'x')));
    QVERIFY(!report.addClientId(QString(70000, u'x')));
}

void TestEngineSideCodec::noMoreSubBlocksThanTheCountCanSay()
{
    ReportWriter report(GnssNotification{1, 1});
    for (int i = 0; i < 255; ++i)
        QVERIFY(report.addBlock(0xEF06, {}));
    QVERIFY(!report.addBlock(0xEF06, {}));
    QCOMPARE(report.bytes().size(), 8 + 255 * 4);
    QCOMPARE(quint8(report.bytes()[7]), quint8(255));
}

void TestEngineSideCodec::noMoreThanACountCanSay()
{
    ReportWriter report(GnssNotification{1, 1});
    QVERIFY(!report.addSatellites(std::vector<SatelliteRecord>(256)));
    QVERIFY(!report.addClientName(QString(256, u'x')));
    QCOMPARE(report.bytes().size(), 8);
    QVERIFY(report.addSatellites({}));
    QVERIFY(report.addClientName(QString(255, u'x')));
}

QTEST_GUILESS_MAIN(TestEngineSideCodec)
#include "tst_enginesidecodec.moc"
