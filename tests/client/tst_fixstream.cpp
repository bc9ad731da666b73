#include "client/fixstream.h"

#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QTest>
#include <QTimeZone>
#include <QtEndian>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr auto NaN = "7F F8 00 00 00 00 00 00 ";

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

QByteArray attributeCount(quint32 count)
{
    QByteArray bytes(sizeof count, '\0');
    qToBigEndian(count, bytes.data());
    return bytes;
}

QGeoPositionInfo wholeFix()
{
    QGeoPositionInfo fix(QGeoCoordinate(60.169856, 24.938379, 25.5),
                         QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789)));
    fix.setAttribute(QGeoPositionInfo::Direction, 271.25);
    fix.setAttribute(QGeoPositionInfo::GroundSpeed, double(1.4F));
    fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, double(11.358F));
    return fix;
}

// docs/dbus.md takes this fix apart for application programmers.
const QByteArray WholeFixBytes = hex("00 25 79 12"             // 2011-09-21
                                     "02 B3 2C 95"             // 12:34:56.789
                                     "00"                      // local time
                                     "40 4E 15 BD D7 66 83 C3" // 60.169856 degrees
                                     "40 38 F0 39 9B 2C 40 D1" // 24.938379 degrees
                                     "40 39 80 00 00 00 00 00" // 25.5 m
                                     "00 00 00 03"
                                     "00 00 00 00 40 70 F4 00 00 00 00 00"   // direction 271.25 degrees
                                     "00 00 00 01 3F F6 66 66 60 00 00 00"   // ground speed 1.4 m/s
                                     "00 00 00 04 40 26 B7 4B C0 00 00 00"); // horizontal accuracy 11.358 m

QGeoSatelliteInfo satellite(int prn, int signal)
{
    QGeoSatelliteInfo info;
    info.setSatelliteIdentifier(prn);
    info.setSignalStrength(signal);
    return info;
}

QList<QGeoSatelliteInfo> threeSatellites()
{
    QList<QGeoSatelliteInfo> list{satellite(7, 42), satellite(32, -1), satellite(193, 0)};
    list[0].setAttribute(QGeoSatelliteInfo::Elevation, 63.0);
    list[0].setAttribute(QGeoSatelliteInfo::Azimuth, 311.5);
    list[2].setAttribute(QGeoSatelliteInfo::Azimuth, 0.0);
    return list;
}

const QByteArray ThreeSatellitesBytes = hex("00 00 00 03"
                                            "00 00 00 07 00 00 00 2A 00 00 00 02"   // PRN 7, 42 dB-Hz
                                            "00 00 00 00 40 4F 80 00 00 00 00 00"   // elevation 63
                                            "00 00 00 01 40 73 78 00 00 00 00 00"   // azimuth 311.5
                                            "00 00 00 20 FF FF FF FF 00 00 00 00"   // PRN 32, nothing known
                                            "00 00 00 C1 00 00 00 00 00 00 00 01"   // PRN 193, 0 dB-Hz
                                            "00 00 00 01 00 00 00 00 00 00 00 00"); // azimuth 0

} // namespace

class TestFixStream : public QObject
{
    Q_OBJECT
private slots:
    void anInvalidFixIs37Bytes()
    {
        const QByteArray bytes = FixStream::writeFix(QGeoPositionInfo());
        const QByteArray nan(NaN);
        QCOMPARE(
            bytes.toHex(),
            QByteArray::fromHex("00 00 00 00 FF FF FF FF 00 " + nan + nan + nan + "00 00 00 00").toHex());
        QCOMPARE(bytes.size(), 37);
    }

    void aWholeFixIsWrittenInOrder()
    {
        QCOMPARE(FixStream::writeFix(wholeFix()).toHex(), WholeFixBytes.toHex());
    }

    void everyAttributeHasItsCode()
    {
        QGeoPositionInfo fix;
        QByteArray expected = FixStream::writeFix(fix).first(33) + attributeCount(6);
        const struct {
            QGeoPositionInfo::Attribute attribute;
            double value;
            const char *bytes;
        } rows[]{
            {QGeoPositionInfo::Direction, -10.0, "00 00 00 00 C0 24 00 00 00 00 00 00"},
            {QGeoPositionInfo::GroundSpeed, 0.0, "00 00 00 01 00 00 00 00 00 00 00 00"},
            {QGeoPositionInfo::VerticalSpeed, -0.5, "00 00 00 02 BF E0 00 00 00 00 00 00"},
            {QGeoPositionInfo::MagneticVariation, 7.5, "00 00 00 03 40 1E 00 00 00 00 00 00"},
            {QGeoPositionInfo::HorizontalAccuracy, 3.0, "00 00 00 04 40 08 00 00 00 00 00 00"},
            {QGeoPositionInfo::VerticalAccuracy, 4.0, "00 00 00 05 40 10 00 00 00 00 00 00"},
        };
        for (const auto &row : rows) {
            fix.setAttribute(row.attribute, row.value);
            expected += hex(row.bytes);
        }
        QCOMPARE(FixStream::writeFix(fix).toHex(), expected.toHex());
    }

    void attributesTravelInSinglePrecision()
    {
        QGeoPositionInfo fix;
        fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, 11.358);
        QCOMPARE(FixStream::writeFix(fix).last(8).toHex(), hex("40 26 B7 4B C0 00 00 00").toHex());
    }

    void coordinatesTravelInDoublePrecision()
    {
        const QGeoPositionInfo fix(QGeoCoordinate(-0.1, 179.9999999), {});
        const QByteArray bytes = FixStream::writeFix(fix);
        QCOMPARE(qFromBigEndian<double>(bytes.constData() + 9), -0.1);
        QCOMPARE(qFromBigEndian<double>(bytes.constData() + 17), 179.9999999);
        QCOMPARE(bytes.sliced(25, 8).toHex(), hex(NaN).toHex()); // no altitude
    }

    void timeStamps_data()
    {
        QTest::addColumn<QDateTime>("stamp");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("midnight is 0 milliseconds")
            << QDateTime(QDate(2011, 9, 21), QTime(0, 0)) << hex("00 25 79 12 00 00 00 00 00");
        QTest::newRow("the last millisecond of a day")
            << QDateTime(QDate(2011, 9, 21), QTime(23, 59, 59, 999)) << hex("00 25 79 12 05 26 5B FF 00");
        QTest::newRow("none") << QDateTime() << hex("00 00 00 00 FF FF FF FF 00");
        QTest::newRow("universal time goes out as local time")
            << QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789)).toUTC() << WholeFixBytes.first(9);
        QTest::newRow("a day before the first Julian day is none")
            << QDateTime(QDate(-5000, 1, 1), QTime(0, 0)) << hex("00 00 00 00 00 00 00 00 00");
    }
    void timeStamps()
    {
        QFETCH(QDateTime, stamp);
        QFETCH(QByteArray, bytes);
        QCOMPARE(FixStream::writeFix(QGeoPositionInfo({}, stamp)).first(9).toHex(), bytes.toHex());
    }

    void fixesReadBackAsTheyWere_data()
    {
        QTest::addColumn<QGeoPositionInfo>("fix");
        QTest::newRow("a whole fix") << wholeFix();
        QTest::newRow("an invalid fix") << QGeoPositionInfo();
        QTest::newRow("a fix without altitude")
            << QGeoPositionInfo(QGeoCoordinate(-33.9, 18.4), wholeFix().timestamp());
        QGeoPositionInfo velocity({}, wholeFix().timestamp());
        velocity.setAttribute(QGeoPositionInfo::GroundSpeed, 2.0);
        QTest::newRow("a velocity without position") << velocity;
    }
    void fixesReadBackAsTheyWere()
    {
        QFETCH(QGeoPositionInfo, fix);
        const auto read = FixStream::readFix(FixStream::writeFix(fix));
        QVERIFY(read);
        QCOMPARE(*read, fix);
        QCOMPARE(FixStream::writeFix(*read).toHex(), FixStream::writeFix(fix).toHex());
    }

    void attributesAreReadInAnyOrder()
    {
        const QByteArray bytes = WholeFixBytes.first(37) + WholeFixBytes.sliced(61, 12) +
                                 WholeFixBytes.sliced(49, 12) + WholeFixBytes.sliced(37, 12);
        QCOMPARE(FixStream::readFix(bytes), std::optional(wholeFix()));
    }

    void aFixInUniversalTimeIsRead()
    {
        QByteArray bytes = WholeFixBytes;
        bytes[8] = 1;
        const auto fix = FixStream::readFix(bytes);
        QVERIFY(fix);
        QCOMPARE(fix->timestamp(), QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789), QTimeZone::utc()));
    }

    void aFixCutAnywhereIsNoFix()
    {
        for (qsizetype length = 0; length < WholeFixBytes.size(); ++length)
            QVERIFY2(!FixStream::readFix(WholeFixBytes.first(length)),
                     QByteArray::number(length).constData());
        QVERIFY(FixStream::readFix(WholeFixBytes));
    }

    void malformedFixes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const auto with = [](qsizetype offset, const char *replacement) {
            QByteArray bytes = WholeFixBytes;
            return bytes.replace(offset, hex(replacement).size(), hex(replacement));
        };
        QTest::newRow("a byte left over") << WholeFixBytes + '\0';
        QTest::newRow("one attribute more than there is") << with(33, "00 00 00 04");
        QTest::newRow("one attribute fewer than there is") << with(33, "00 00 00 02");
        QTest::newRow("four thousand million attributes") << with(33, "FF FF FF FF");
        QTest::newRow("an attribute code beyond the last") << with(37, "00 00 00 06");
        QTest::newRow("a negative attribute code") << with(37, "FF FF FF FF");
        QTest::newRow("a time of day beyond midnight") << with(4, "05 26 5C 00");
        QTest::newRow("an unknown time specification") << with(8, "02");
        QTest::newRow("a negative time specification") << with(8, "FF");
    }
    void malformedFixes()
    {
        QFETCH(QByteArray, bytes);
        QVERIFY(!FixStream::readFix(bytes));
    }

    void satelliteListsAreWrittenInOrder()
    {
        QCOMPARE(FixStream::writeSatellites(threeSatellites()).toHex(), ThreeSatellitesBytes.toHex());
    }

    void anEmptySatelliteListIs4Bytes()
    {
        QCOMPARE(FixStream::writeSatellites({}).toHex(), hex("00 00 00 00").toHex());
        QCOMPARE(FixStream::readSatellites(hex("00 00 00 00")), std::optional(QList<QGeoSatelliteInfo>()));
    }

    void satelliteListsReadBackAsTheyWere()
    {
        QCOMPARE(FixStream::readSatellites(ThreeSatellitesBytes), std::optional(threeSatellites()));
    }

    void aSatelliteListCutAnywhereIsNone()
    {
        for (qsizetype length = 0; length < ThreeSatellitesBytes.size(); ++length)
            QVERIFY2(!FixStream::readSatellites(ThreeSatellitesBytes.first(length)),
                     QByteArray::number(length).constData());
    }

    void malformedSatelliteLists_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const auto with = [](qsizetype offset, const char *replacement) {
            QByteArray bytes = ThreeSatellitesBytes;
            return bytes.replace(offset, hex(replacement).size(), hex(replacement));
        };
        QTest::newRow("a byte left over") << ThreeSatellitesBytes + '\0';
        QTest::newRow("one satellite more than there is") << with(0, "00 00 00 04");
        QTest::newRow("one satellite fewer than there is") << with(0, "00 00 00 02");
        QTest::newRow("two thousand million satellites") << with(0, "7F FF FF FF");
        QTest::newRow("a negative count") << with(0, "FF FF FF FF");
        QTest::newRow("a negative count of nothing") << hex("FF FF FF FF");
        QTest::newRow("more attributes than there are") << with(12, "FF FF FF FF");
        QTest::newRow("an attribute code beyond the last") << with(16, "00 00 00 02");
        QTest::newRow("a negative attribute code") << with(16, "80 00 00 00");
    }
    void malformedSatelliteLists()
    {
        QFETCH(QByteArray, bytes);
        QVERIFY(!FixStream::readSatellites(bytes));
    }
};

QTEST_APPLESS_MAIN(TestFixStream)
#include "tst_fixstream.moc"
