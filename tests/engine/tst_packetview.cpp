#include "engine/packetview.h"
#include "engine/packetwriter.h"

#include <QTest>

#include <limits>

namespace {
const QByteArray eightBytes = QByteArray::fromHex("81 02 83 04 85 06 87 08");
}

class TestPacketView : public QObject
{
    Q_OBJECT
private slots:
    void fieldsAreBigEndianOfTheirOwnWidthAndSign();
    void oneAccessorIsLittleEndian();
    void aFieldFitsOrReadsAsZero_data();
    void aFieldFitsOrReadsAsZero();
    void aFailureIsNeverForgotten();
    void farOffsetsDoNotWrap();
    void bytesAreAllThereOrNone();
    void theRestBeginsAnywhereInsideAndAtTheEnd();
    void anEmptyPacketHoldsNothing();
    void theWriterZeroesAndFillsTheHeader();
    void theWriterPutsFieldsWhereTheReaderFindsThem();
    void appendingKeepsTheLengthTrue();
};

void TestPacketView::fieldsAreBigEndianOfTheirOwnWidthAndSign()
{
    auto view = PacketView::of(eightBytes);
    QCOMPARE(view.get(Field<quint8>{0}), quint8(0x81));
    QCOMPARE(view.get(Field<qint8>{0}), qint8(-0x7f));
    QCOMPARE(view.get(Field<quint16>{0}), quint16(0x8102));
    QCOMPARE(view.get(Field<qint16>{0}), qint16(0x8102 - 0x10000));
    QCOMPARE(view.get(Field<quint32>{2}), quint32(0x83048506));
    QCOMPARE(view.get(Field<qint32>{4}), qint32(0x85068708 - 0x100000000));
    QCOMPARE(view.get(Field<quint16>{5}), quint16(0x0687)); // fields need no alignment
    QVERIFY(view.ok());
}

void TestPacketView::oneAccessorIsLittleEndian()
{
    auto view = PacketView::of(eightBytes);
    QCOMPARE(view.getLittleEndian({6}), quint16(0x0887));
    QVERIFY(view.ok());
    QCOMPARE(view.getLittleEndian({7}), quint16(0));
    QVERIFY(!view.ok());
}

void TestPacketView::aFieldFitsOrReadsAsZero_data()
{
    QTest::addColumn<std::size_t>("offset");
    QTest::addColumn<quint32>("value");
    QTest::addColumn<bool>("ok");
    QTest::newRow("a field that ends with the packet fits") << std::size_t{4} << 0x85068708u << true;
    QTest::newRow("a field one byte beyond does not") << std::size_t{5} << 0u << false;
    QTest::newRow("a field with one byte inside does not") << std::size_t{7} << 0u << false;
    QTest::newRow("a field right behind the packet does not") << std::size_t{8} << 0u << false;
    QTest::newRow("a field far behind the packet does not") << std::size_t{9000} << 0u << false;
}

void TestPacketView::aFieldFitsOrReadsAsZero()
{
    QFETCH(std::size_t, offset);
    QFETCH(quint32, value);
    auto view = PacketView::of(eightBytes);
    QCOMPARE(view.get(Field<quint32>{offset}), value);
    QTEST(view.ok(), "ok");
}

void TestPacketView::aFailureIsNeverForgotten()
{
    auto view = PacketView::of(eightBytes);
    QCOMPARE(view.get(Field<quint8>{8}), quint8(0));
    QCOMPARE(view.get(Field<quint8>{7}), quint8(0x08)); // later fields still read
    QVERIFY(!view.ok());
}

void TestPacketView::farOffsetsDoNotWrap()
{
    constexpr auto farthest = std::numeric_limits<std::size_t>::max();
    for (std::size_t back = 0; back < 8; ++back) {
        auto view = PacketView::of(eightBytes);
        QCOMPARE(view.get(Field<quint32>{farthest - back}), 0u);
        QVERIFY(!view.ok());
    }
    auto view = PacketView::of(eightBytes);
    QVERIFY(view.bytes(1, farthest).empty());
    QVERIFY(!view.ok());
}

void TestPacketView::bytesAreAllThereOrNone()
{
    auto view = PacketView::of(eightBytes);
    QCOMPARE(view.bytes(6, 2).size(), std::size_t{2});
    QCOMPARE(view.bytes(6, 2)[1], std::byte{0x08});
    QCOMPARE(view.bytes(8, 0).size(), std::size_t{0});
    QVERIFY(view.ok());
    QCOMPARE(view.bytes(6, 3).size(), std::size_t{0});
    QVERIFY(!view.ok());
}

void TestPacketView::theRestBeginsAnywhereInsideAndAtTheEnd()
{
    auto view = PacketView::of(eightBytes);
    auto rest = view.from(6);
    QCOMPARE(rest.size(), std::size_t{2});
    QCOMPARE(rest.get(Field<quint16>{0}), quint16(0x8708));
    QCOMPARE(view.from(8).size(), std::size_t{0});
    QVERIFY(view.ok());
    QCOMPARE(view.from(9).size(), std::size_t{0});
    QVERIFY(!view.ok());
}

void TestPacketView::anEmptyPacketHoldsNothing()
{
    PacketView view{{}};
    QCOMPARE(view.size(), std::size_t{0});
    QVERIFY(view.ok());
    QCOMPARE(view.get(Field<quint8>{0}), quint8(0));
    QVERIFY(!view.ok());
}

void TestPacketView::theWriterZeroesAndFillsTheHeader()
{
    QCOMPARE(PacketWriter(0xEF0C, 6).take(), QByteArray::fromHex("EF0C 0006 0000"));
}

void TestPacketView::theWriterPutsFieldsWhereTheReaderFindsThem()
{
    constexpr Field<quint8> small{4};
    constexpr Field<qint32> negative{6};
    constexpr Field<quint16> backwards{10};
    const auto packet = PacketWriter(0xEF01, 14)
                            .set(small, quint8(7))
                            .set(negative, -2)
                            .setLittleEndian(backwards, 3)
                            .setBytes(12, "ab")
                            .take();
    QCOMPARE(packet, QByteArray::fromHex("EF01 000E 07 00 FFFFFFFE 0300 6162"));

    auto view = PacketView::of(packet);
    QCOMPARE(view.get(small), quint8(7));
    QCOMPARE(view.get(negative), -2);
    QCOMPARE(view.getLittleEndian(backwards), quint16(3));
    QVERIFY(view.ok());
}

void TestPacketView::appendingKeepsTheLengthTrue()
{
    PacketWriter writer(0xEF03, 8);
    writer.append(QByteArray(300, 'x'));
    QCOMPARE(writer.bytes().size(), 308);
    QCOMPARE(writer.bytes().first(4), QByteArray::fromHex("EF03 0134"));
}

QTEST_GUILESS_MAIN(TestPacketView)
#include "tst_packetview.moc"
