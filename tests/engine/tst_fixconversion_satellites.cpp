#include "engine/attributes.h"
#include "engine/fixconversion.h"

#include <QTest>

using namespace Qt::StringLiterals;

// From wire units to satellite lists and their debug text.
class TestFixConversionSatellites : public QObject
{
    Q_OBJECT
private slots:
    void satellites_data();
    void satellites();
    void satelliteListsAreFilledAnew();
    void anEmptySatelliteBlockEmptiesTheLists();
    void satelliteTextBreaksBeforeEverySixth_data();
    void satelliteTextBreaksBeforeEverySixth();
    void satelliteTextShowsRawFields();
};

namespace {
QByteArray satelliteBlock(const QByteArray &records)
{
    return QByteArray::fromHex("EF04 0000") + char(records.size() / 8) + QByteArray(3, '\0') + records;
}
} // namespace

void TestFixConversionSatellites::satellites_data()
{
    using Value = std::optional<double>;
    QTest::addColumn<SatelliteRecord>("record");
    QTest::addColumn<int>("prn");
    QTest::addColumn<int>("signal");
    QTest::addColumn<Value>("elevation");
    QTest::addColumn<Value>("azimuth");
    QTest::addColumn<bool>("heard");
    QTest::addColumn<bool>("inView");
    QTest::addColumn<bool>("inUse");
    QTest::newRow("heard, place not known, used") << SatelliteRecord{4, 1, 0x0280, 0xFF80, 0xFFFF} << 5 << 40
                                                  << Value() << Value() << true << true << true;
    QTest::newRow("too weak and azimuth not known: not in view")
        << SatelliteRecord{4, 1, 0x000F, 4500, 0xFFFF} << 5 << 0 << Value(45) << Value() << false << false
        << false;
    QTest::newRow("too weak and elevation not known: not in view")
        << SatelliteRecord{4, 1, 0x000F, 0xFF80, 9000} << 5 << 0 << Value() << Value(90) << false << false
        << false;
    QTest::newRow("the first number is PRN 1")
        << SatelliteRecord{0, 0, 0x0010, 0, 0} << 1 << 1 << Value(0) << Value(0) << true << true << false;
    QTest::newRow("the last number is PRN 256")
        << SatelliteRecord{255, 0, 0x0010, 0, 0} << 256 << 1 << Value(0) << Value(0) << true << true << false;
    QTest::newRow("signal not known, place known: in view")
        << SatelliteRecord{9, 1, 0x8000, 4500, 35999} << 10 << -1 << Value(45) << Value(float(359.99))
        << false << true << true;
    QTest::newRow("nothing known: not in view, whatever its used byte")
        << SatelliteRecord{9, 1, 0x8000, 0xFF80, 0xFFFF} << 10 << -1 << Value() << Value() << false << false
        << false;
    QTest::newRow("only 1 means used") << SatelliteRecord{9, 2, 0x0280, 4500, 9000} << 10 << 40 << Value(45)
                                       << Value(90) << true << true << false;
    QTest::newRow("elevations are signed") << SatelliteRecord{9, 0, 0, 0xFF81, 9000} << 10 << 0
                                           << Value(float(-1.27)) << Value(90) << false << true << false;
    QTest::newRow("fractions of a decibel are cut")
        << SatelliteRecord{9, 0, 0x02FF, 0, 0} << 10 << 47 << Value(0) << Value(0) << true << true << false;
    QTest::newRow("next to the unknown signal") << SatelliteRecord{9, 0, 0x8001, 0xFF80, 0xFFFF} << 10 << 2048
                                                << Value() << Value() << true << true << false;
}

void TestFixConversionSatellites::satellites()
{
    QFETCH(SatelliteRecord, record);
    QGeoSatelliteInfo info; // of another satellite, in the last report
    fixconversion::describe({.number = 99, .used = 1, .cno = 700, .elevation = 1234, .azimuth = 4321}, info);
    fixconversion::describe(record, info);
    QTEST(info.satelliteIdentifier(), "prn");
    QTEST(info.signalStrength(), "signal");
    QTEST(attribute(info, QGeoSatelliteInfo::Elevation), "elevation");
    QTEST(attribute(info, QGeoSatelliteInfo::Azimuth), "azimuth");
    QTEST(fixconversion::isInView(record), "inView");
    QTEST(fixconversion::hasSignal(record), "heard");

    QByteArray bytes(8, '\0');
    bytes[0] = char(record.number);
    bytes[1] = char(record.used);
    qToBigEndian(record.cno, bytes.data() + 2);
    qToBigEndian(record.elevation, bytes.data() + 4);
    qToBigEndian(record.azimuth, bytes.data() + 6);
    const auto block = satelliteBlock(bytes);
    QList<QGeoSatelliteInfo> inView;
    QList<QGeoSatelliteInfo> inUse;
    const int withSignal =
        fixconversion::splitSatellites(wire::readSatellites(PacketView::of(block)).value(), inView, inUse);
    QTEST(withSignal == 1, "heard");
    QTEST(!inView.isEmpty(), "inView");
    QTEST(!inUse.isEmpty(), "inUse");
}

void TestFixConversionSatellites::satelliteListsAreFilledAnew()
{
    const auto block =
        satelliteBlock(QByteArray::fromHex("00 01 0100 FF80 FFFF"    // PRN 1, heard, used
                                           "01 00 8000 0064 0064"    // PRN 2, place known
                                           "02 01 8000 FF80 FFFF"    // PRN 3, nothing known
                                           "03 01 0000 0064 0064")); // PRN 4, place known, used
    QList<QGeoSatelliteInfo> inView(7);
    QList<QGeoSatelliteInfo> inUse(7);
    const int withSignal =
        fixconversion::splitSatellites(wire::readSatellites(PacketView::of(block)).value(), inView, inUse);
    const auto prns = [](const QList<QGeoSatelliteInfo> &satellites) {
        QList<int> numbers;
        for (const auto &info : satellites)
            numbers << info.satelliteIdentifier();
        return numbers;
    };
    QCOMPARE(prns(inView), QList<int>({1, 2, 4}));
    QCOMPARE(prns(inUse), QList<int>({1, 4}));
    QCOMPARE(withSignal, 1);
}

void TestFixConversionSatellites::anEmptySatelliteBlockEmptiesTheLists()
{
    QList<QGeoSatelliteInfo> inView(1);
    QList<QGeoSatelliteInfo> inUse(1);
    QCOMPARE(fixconversion::splitSatellites({}, inView, inUse), 0);
    QVERIFY(inView.isEmpty());
    QVERIFY(inUse.isEmpty());
    QCOMPARE(fixconversion::satellitesText("satellitesUpdateMessage", {}, {}),
             u"ORVComm::satellitesUpdateMessage: sat: 0/0/0, (id,used,cno,elev,azim):"_s);
}

void TestFixConversionSatellites::satelliteTextBreaksBeforeEverySixth_data()
{
    QTest::addColumn<int>("records");
    QTest::addColumn<int>("lines");
    QTest::newRow("none") << 0 << 0;
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("six") << 6 << 1;
    QTest::newRow("seven") << 7 << 2;
    QTest::newRow("thirteen") << 13 << 3;
}

void TestFixConversionSatellites::satelliteTextBreaksBeforeEverySixth()
{
    QFETCH(int, records);
    const auto block = satelliteBlock(QByteArray(records * 8, '\0'));
    const auto text = fixconversion::satellitesText("satellitesUpdateMessage", {1, 2, 3},
                                                    wire::readSatellites(PacketView::of(block)).value());
    auto lines = text.split(u'\n');
    QCOMPARE(lines.takeFirst(), u"ORVComm::satellitesUpdateMessage: sat: 1/2/3, (id,used,cno,elev,azim):"_s);
    QTEST(int(lines.size()), "lines");
    for (qsizetype line = 0; line < lines.size(); ++line) {
        const auto inLine = qMin(6, records - int(line) * 6);
        QCOMPARE(lines[line], u"SATDBG:"_s + u" 0,0,0,0,0"_s.repeated(inLine));
    }
}

void TestFixConversionSatellites::satelliteTextShowsRawFields()
{
    const auto block = satelliteBlock(QByteArray::fromHex("04 01 0280 FF80 FFFF"    // nothing hidden
                                                          "00 02 8000 1194 8C9F")); // no field converted
    QCOMPARE(fixconversion::satellitesText("satellitesUpdateMessage",
                                           {.inUse = 1, .withSignal = 1, .inView = 2},
                                           wire::readSatellites(PacketView::of(block)).value()),
             u"ORVComm::satellitesUpdateMessage: sat: 1/1/2, (id,used,cno,elev,azim):"
             "\nSATDBG: 4,1,640,65408,65535 0,2,32768,4500,35999"_s);
}

QTEST_GUILESS_MAIN(TestFixConversionSatellites)
#include "tst_fixconversion_satellites.moc"
