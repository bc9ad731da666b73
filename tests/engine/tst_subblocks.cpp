#include "engine/layout.h"
#include "engine/messagereader.h"

#include <QTest>

#include <vector>

using namespace Qt::StringLiterals;

// What has a count or a length of its own: the walk over sub-blocks, satellite records, texts.
class TestSubBlocks : public QObject
{
    Q_OBJECT
private slots:
    void theWalk_data();
    void theWalk();
    void everyPrefixOfAMessageEndsTheWalkInTime();
    void aSubBlockEndsWhereItsLengthSays();
    void aWalkCanBeginAgain();
    void satelliteRecordsAreReadInPlace();
    void satelliteCountsAreClampedToWhatIsThere_data();
    void satelliteCountsAreClampedToWhatIsThere();
    void clientNames_data();
    void clientNames();
    void clientIds_data();
    void clientIds();
    void aTextEndsWithItsSubBlock();
};

namespace {
using Ids = std::vector<int>;
const Ids none;

// A notification with the given number of sub-blocks, as byte 7 claims it.
QByteArray message(int count, const QByteArray &blocks)
{
    auto bytes = QByteArray::fromHex("EF03 0000 0001 41 00") + blocks;
    bytes[7] = char(count);
    return bytes;
}

Ids idsOf(const QByteArray &packet)
{
    Ids ids;
    for (const SubBlock &sub : wire::subBlocks(PacketView::of(packet)))
        ids.push_back(sub.id);
    return ids;
}

std::vector<SatelliteRecord> recordsOf(const QByteArray &block)
{
    const auto read = wire::readSatellites(PacketView::of(block)).value();
    std::vector<SatelliteRecord> records;
    for (const SatelliteRecord &record : read)
        records.push_back(record);
    return records;
}
} // namespace

void TestSubBlocks::theWalk_data()
{
    const auto skipped = QByteArray::fromHex("EF06 0004");
    const auto unknown = QByteArray::fromHex("EF09 0006 BEEF");
    const auto answer = QByteArray::fromHex("EF14 0008 0000 01 00");

    QTest::addColumn<QByteArray>("packet");
    QTest::addColumn<Ids>("ids");
    QTest::newRow("no sub-blocks, nothing behind the header") << message(0, {}) << none;
    QTest::newRow("a count of 0 leaves what follows alone") << message(0, answer) << none;
    QTest::newRow("a sub-block of its header only") << message(1, skipped) << Ids{0xEF06};
    QTest::newRow("each is stepped over by its own length")
        << message(3, skipped + unknown + answer) << Ids{0xEF06, 0xEF09, 0xEF14};
    QTest::newRow("the count ends the walk before the packet does")
        << message(2, skipped + unknown + answer) << Ids{0xEF06, 0xEF09};
    QTest::newRow("the packet ends the walk before the count does")
        << message(255, skipped + unknown + answer) << Ids{0xEF06, 0xEF09, 0xEF14};
    QTest::newRow("a length of 0 ends the walk")
        << message(2, QByteArray::fromHex("EF06 0000") + answer) << none;
    QTest::newRow("a length of 3 ends the walk")
        << message(2, QByteArray::fromHex("EF06 0003") + answer) << none;
    QTest::newRow("a length of 0 behind others ends the walk there")
        << message(3, answer + QByteArray::fromHex("EF06 0000") + answer) << Ids{0xEF14};
    QTest::newRow("a length one beyond the packet ends the walk")
        << message(1, QByteArray::fromHex("EF14 0009 0000 01 00")) << none;
    QTest::newRow("the longest length ends the walk")
        << message(2, answer + QByteArray::fromHex("EF14 FFFF 0000 01 00")) << Ids{0xEF14};
    QTest::newRow("half a sub-block header ends the walk")
        << message(2, answer + QByteArray::fromHex("EF14 00")) << Ids{0xEF14};
    QTest::newRow("a packet without its byte 7 has none") << QByteArray::fromHex("EF03 0008 0001 41") << none;
    QTest::newRow("an empty packet has none") << QByteArray() << none;
}

void TestSubBlocks::theWalk()
{
    QFETCH(QByteArray, packet);
    QTEST(idsOf(packet), "ids");
}

void TestSubBlocks::everyPrefixOfAMessageEndsTheWalkInTime()
{
    const auto packet = message(3, QByteArray::fromHex("EF02 000E") + QByteArray(10, 'x') +
                                       QByteArray::fromHex("EF06 0004 EF14 0008 0000 0100"));
    for (qsizetype length = 0; length <= packet.size(); ++length) {
        const std::size_t whole = length >= 34 ? 3 : length >= 26 ? 2 : length >= 22 ? 1 : 0;
        QCOMPARE(idsOf(packet.first(length)).size(), whole);
    }
}

void TestSubBlocks::aSubBlockEndsWhereItsLengthSays()
{
    const auto packet = message(2, QByteArray::fromHex("EF06 0006 1122 EF14 0008 0000 01 00"));
    std::vector<std::size_t> sizes;
    for (SubBlock sub : wire::subBlocks(PacketView::of(packet))) {
        sizes.push_back(sub.block.size());
        QCOMPARE(sub.block.get(layout::header::id), sub.id); // offsets count from the sub-block's start
    }
    QCOMPARE(sizes, (std::vector<std::size_t>{6, 8}));
}

void TestSubBlocks::aWalkCanBeginAgain()
{
    const auto packet = message(2, QByteArray::fromHex("EF06 0004 EF15 0004"));
    const auto blocks = wire::subBlocks(PacketView::of(packet));
    for (int round = 0; round < 2; ++round) {
        auto sub = blocks.begin();
        QCOMPARE(sub->id, quint16(0xEF06));
        QCOMPARE((*++sub).id, quint16(0xEF15));
        QVERIFY(++sub == blocks.end());
    }
}

void TestSubBlocks::satelliteRecordsAreReadInPlace()
{
    const auto block = QByteArray::fromHex("EF04"   // id
                                           "0018"   // length
                                           "02"     // records
                                           "AAAAAA" // not read
                                           "04"     // number, PRN 5
                                           "01"     // used
                                           "0280"   // C/N0, 40 dB-Hz
                                           "FF80"   // elevation not known
                                           "FFFF"   // azimuth not known
                                           "00"     // number, PRN 1
                                           "02"     // not used
                                           "8000"   // C/N0 not known
                                           "1194"   // elevation, 45.00 degrees
                                           "8C9F"); // azimuth, 359.99 degrees
    QCOMPARE(wire::readSatellites(PacketView::of(block)).value().size(), std::size_t{2});
    QCOMPARE(recordsOf(block),
             (std::vector<SatelliteRecord>{{4, 1, 0x0280, 0xFF80, 0xFFFF}, {0, 2, 0x8000, 4500, 35999}}));
}

void TestSubBlocks::satelliteCountsAreClampedToWhatIsThere_data()
{
    QTest::addColumn<int>("claimed");
    QTest::addColumn<int>("bytesBehindTheCount");
    QTest::addColumn<int>("records");
    QTest::newRow("none") << 0 << 3 << 0;
    QTest::newRow("none, though there would be one") << 0 << 11 << 0;
    QTest::newRow("as many as claimed") << 2 << 19 << 2;
    QTest::newRow("fewer than there would be") << 1 << 19 << 1;
    QTest::newRow("more than there are") << 255 << 19 << 2;
    QTest::newRow("a record cut short is none") << 2 << 18 << 1;
    QTest::newRow("a first record cut short is none") << 1 << 10 << 0;
    QTest::newRow("nothing behind the count") << 1 << 0 << 0;
    QTest::newRow("the largest count") << 255 << 3 + 255 * 8 << 255;
}

void TestSubBlocks::satelliteCountsAreClampedToWhatIsThere()
{
    QFETCH(int, claimed);
    QFETCH(int, bytesBehindTheCount);
    QFETCH(int, records);
    const auto block =
        QByteArray::fromHex("EF04 FFFF") + char(claimed) + QByteArray(bytesBehindTheCount, '\x11');
    QCOMPARE(int(wire::readSatellites(PacketView::of(block)).value().size()), records);
    QCOMPARE(recordsOf(block),
             std::vector<SatelliteRecord>(std::size_t(records), {0x11, 0x11, 0x1111, 0x1111, 0x1111}));
}

void TestSubBlocks::clientNames_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<QString>("name");
    QTest::newRow("five letters") << QByteArray::fromHex("EF12"     // id
                                                         "0012"     // length
                                                         "AAAAAA"   // not read
                                                         "05"       // code units
                                                         "0041006C" // Al
                                                         "00690063" // ic
                                                         "0065")    // e
                                  << u"Alice"_s;
    QTest::newRow("letters outside Latin-1")
        << QByteArray::fromHex("EF12 000C 000000 02 0416 4E2D") << u"\u0416\u4E2D"_s;
    QTest::newRow("a surrogate pair counts as two units")
        << QByteArray::fromHex("EF12 000C 000000 02 D83D DE00") << u"\U0001F600"_s;
    QTest::newRow("an unpaired surrogate stays one unit")
        << QByteArray::fromHex("EF12 000C 000000 02 D83D 0041") << QString(QChar(0xD83D)) + u'A';
    QTest::newRow("the text ends at its first zero")
        << QByteArray::fromHex("EF12 000E 000000 03 0041 0000 0042") << u"A"_s;
    QTest::newRow("a zero at the start leaves nothing")
        << QByteArray::fromHex("EF12 000C 000000 02 0000 0041") << QString();
    QTest::newRow("no units") << QByteArray::fromHex("EF12 000A 000000 00 0041") << QString();
    QTest::newRow("the count ends the text")
        << QByteArray::fromHex("EF12 000C 000000 01 0041 0042") << u"A"_s;
    QTest::newRow("the count is clamped to what is there")
        << QByteArray::fromHex("EF12 000C 000000 FF 0041 0042") << u"AB"_s;
    QTest::newRow("half a unit is none") << QByteArray::fromHex("EF12 000B 000000 02 0041 00") << u"A"_s;
    QTest::newRow("a byte-order mark of the sender's own is a character")
        << QByteArray::fromHex("EF12 000C 000000 02 FEFF 0041") << u"\uFEFFA"_s;
    QTest::newRow("a turned mark does not turn the text")
        << QByteArray::fromHex("EF12 000C 000000 02 FFFE 0041") << QString(QChar(0xFFFE)) + u'A';
}

void TestSubBlocks::clientNames()
{
    QFETCH(QByteArray, block);
    QTEST(wire::readClientName(PacketView::of(block)).value(), "name");
}

void TestSubBlocks::clientIds_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<QString>("id");
    QTest::newRow("the count comes least significant byte first")
        << QByteArray::fromHex("EF13"              // id
                               "0010"              // length
                               "AAAA"              // not read
                               "0400"              // code units
                               "0041004200430044") // ABCD
        << u"ABCD"_s;
    QTest::newRow("three units of four")
        << QByteArray::fromHex("EF13 0010 0000 0300 0041 0042 0043 0044") << u"ABC"_s;
    QTest::newRow("more than a byte can count")
        << QByteArray::fromHex("EF13 0000 0000 2C01") + QByteArray::fromHex("0078").repeated(301)
        << QString(300, u'x');
    QTest::newRow("the largest count is clamped")
        << QByteArray::fromHex("EF13 000A 0000 FFFF 0041") << u"A"_s;
    QTest::newRow("no units") << QByteArray::fromHex("EF13 0008 0000 0000") << QString();
}

void TestSubBlocks::clientIds()
{
    QFETCH(QByteArray, block);
    QTEST(wire::readClientId(PacketView::of(block)).value(), "id");
}

void TestSubBlocks::aTextEndsWithItsSubBlock()
{
    // The count of the first reaches into the second.
    const auto packet = message(2, QByteArray::fromHex("EF12 000A 000000 07 0041 EF12 000A 000000 01 0042"));
    QStringList names;
    for (const SubBlock &sub : wire::subBlocks(PacketView::of(packet)))
        names << wire::readClientName(sub.block).value();
    QCOMPARE(names, QStringList({u"A"_s, u"B"_s}));
}

QTEST_GUILESS_MAIN(TestSubBlocks)
#include "tst_subblocks.moc"
