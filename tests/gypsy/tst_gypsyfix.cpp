#include "engine/attributes.h"
#include "gypsy/gypsyfix.h"

#include <QDBusMetaType>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QTest>

#include <cmath>
#include <limits>
#include <optional>

using namespace Qt::StringLiterals;
using Info = QGeoPositionInfo;

namespace {

using Value = std::optional<double>;

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double TooLarge = 8e38; // for single precision, also in metres per second

const QGeoCoordinate Before(10, 20, 30);

QByteArray text(const Value &value)
{
    return value ? QByteArray::number(*value, 'g', 17) : QByteArray("none");
}

} // namespace

// What Gypsy's reports make of a fix.
class TestGypsyFix : public QObject
{
    Q_OBJECT

private slots:
    void positions_data();
    void positions();
    void aPlaceOffTheEarthIsNoPlace();
    void courses_data();
    void courses();
    void aCourseLeavesTheRestAlone();
    void accuracies_data();
    void accuracies();
    void anAccuracyLeavesTheRestAlone();
    void attributesAreSinglePrecisionRoundedOnce();
    void noAttributeIsEverInfinite_data();
    void noAttributeIsEverInfinite();
    void stamps_data();
    void stamps();
    void satellites();
    void satellitesAreListedAnew();
    void numbersThatOnlyUnsignedOnesHold();
    void theStructureOnTheBus();
    void sameReceivers_data();
    void sameReceivers();
};

void TestGypsyFix::positions_data()
{
    QTest::addColumn<int>("fields");
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("longitude");
    QTest::addColumn<double>("altitude");
    QTest::addColumn<QGeoCoordinate>("expected");
    QTest::newRow("a place") << 3 << 60.25 << 24.5 << 99.0 << QGeoCoordinate(60.25, 24.5);
    QTest::newRow("a place and its height") << 7 << 60.25 << 24.5 << 99.0 << QGeoCoordinate(60.25, 24.5, 99);
    QTest::newRow("south and west, below the sea")
        << 7 << -60.25 << -24.5 << -3.0 << QGeoCoordinate(-60.25, -24.5, -3);
    QTest::newRow("other bits mean nothing") << 0x7ffffffb << 1.0 << 2.0 << 3.0 << QGeoCoordinate(1, 2);
    QTest::newRow("nothing known keeps the place before") << 0 << 60.25 << 24.5 << 99.0 << Before;
    QTest::newRow("a latitude alone keeps it") << 1 << 60.25 << 24.5 << 99.0 << Before;
    QTest::newRow("a longitude alone keeps it") << 2 << 60.25 << 24.5 << 99.0 << Before;
    QTest::newRow("a height alone keeps it") << 4 << 60.25 << 24.5 << 99.0 << Before;
    QTest::newRow("all but the longitude keeps it") << 5 << 60.25 << 24.5 << 99.0 << Before;
    QTest::newRow("a latitude that is no number keeps it") << 7 << NaN << 24.5 << 99.0 << Before;
    QTest::newRow("an infinite longitude keeps it") << 7 << 60.25 << -Infinity << 99.0 << Before;
    QTest::newRow("an infinite height is left out")
        << 7 << 60.25 << 24.5 << Infinity << QGeoCoordinate(60.25, 24.5);
    QTest::newRow("a height that is no number is left out")
        << 7 << 60.25 << 24.5 << NaN << QGeoCoordinate(60.25, 24.5);
}

void TestGypsyFix::positions()
{
    QFETCH(int, fields);
    QFETCH(double, latitude);
    QFETCH(double, longitude);
    QFETCH(double, altitude);
    Info info(Before, QDateTime(QDate(2011, 1, 2), QTime(3, 4)));
    info.setAttribute(Info::Direction, 90);
    gypsyfix::applyPosition({fields, latitude, longitude, altitude}, info);
    QTEST(info.coordinate(), "expected");
    QFETCH(QGeoCoordinate, expected);
    QCOMPARE(info.coordinate().type(), expected.type());
    QCOMPARE(info.attribute(Info::Direction), 90.0);
    QCOMPARE(info.timestamp(), QDateTime(QDate(2011, 1, 2), QTime(3, 4)));
}

void TestGypsyFix::aPlaceOffTheEarthIsNoPlace()
{
    Info info(Before, {});
    gypsyfix::applyPosition({3, 90.5, 24.5, 0}, info);
    QVERIFY(!info.coordinate().isValid());
}

void TestGypsyFix::courses_data()
{
    QTest::addColumn<int>("fields");
    QTest::addColumn<double>("knots");
    QTest::addColumn<double>("direction");
    QTest::addColumn<double>("climb");
    QTest::addColumn<Value>("speed");
    QTest::addColumn<Value>("heading");
    QTest::addColumn<Value>("vertical");
    const Value none;
    const auto single = [](double value) { return Value(double{static_cast<float>(value)}); };
    const Value fiveOne = single(10 * 1.852 / 3.6);
    QTest::newRow("ten knots") << 1 << 10.0 << 90.0 << 2.0 << fiveOne << none << none;
    QTest::newRow("a direction") << 2 << 10.0 << 90.0 << 2.0 << none << Value(90) << none;
    QTest::newRow("a climb") << 4 << 10.0 << 90.0 << -2.5 << none << none << Value(-2.5);
    QTest::newRow("all of them") << 7 << 10.0 << 90.0 << 2.0 << fiveOne << Value(90) << Value(2);
    QTest::newRow("nothing takes all away") << 0 << 10.0 << 90.0 << 2.0 << none << none << none;
    QTest::newRow("other bits mean nothing") << 0x78 << 10.0 << 90.0 << 2.0 << none << none << none;
    QTest::newRow("standing still, northwards") << 7 << 0.0 << 0.0 << 0.0 << Value(0) << Value(0) << Value(0);
    QTest::newRow("an infinite climb is left out")
        << 7 << 10.0 << 90.0 << Infinity << fiveOne << Value(90) << none;
    QTest::newRow("a climb that is no number too")
        << 7 << 10.0 << 90.0 << NaN << fiveOne << Value(90) << none;
    QTest::newRow("an infinite speed") << 7 << -Infinity << 90.0 << 2.0 << none << Value(90) << Value(2);
    QTest::newRow("a direction that is no number") << 7 << 10.0 << NaN << 2.0 << fiveOne << none << Value(2);
}

void TestGypsyFix::courses()
{
    QFETCH(int, fields);
    QFETCH(double, knots);
    QFETCH(double, direction);
    QFETCH(double, climb);
    QFETCH(Value, speed);
    QFETCH(Value, heading);
    QFETCH(Value, vertical);
    Info info;
    for (const auto which : {Info::GroundSpeed, Info::Direction, Info::VerticalSpeed})
        info.setAttribute(which, 77); // from the report before
    gypsyfix::applyCourse({fields, knots, direction, climb}, info);
    QCOMPARE(text(attribute(info, Info::GroundSpeed)), text(speed));
    QCOMPARE(text(attribute(info, Info::Direction)), text(heading));
    QCOMPARE(text(attribute(info, Info::VerticalSpeed)), text(vertical));
}

void TestGypsyFix::aCourseLeavesTheRestAlone()
{
    const QDateTime stamp(QDate(2011, 1, 2), QTime(3, 4));
    Info info(Before, stamp);
    info.setAttribute(Info::HorizontalAccuracy, 6);
    gypsyfix::applyCourse({7, 1, 2, 3}, info);
    QCOMPARE(info.coordinate(), Before);
    QCOMPARE(info.timestamp(), stamp);
    QCOMPARE(info.attribute(Info::HorizontalAccuracy), 6.0);
}

void TestGypsyFix::accuracies_data()
{
    QTest::addColumn<int>("fields");
    QTest::addColumn<double>("hdop");
    QTest::addColumn<double>("vdop");
    QTest::addColumn<Value>("horizontal");
    QTest::addColumn<Value>("vertical");
    const Value none;
    QTest::newRow("five metres for each dilution") << 6 << 1.2 << 2.5 << Value(6) << Value(12.5);
    QTest::newRow("horizontal alone, as receivers have it") << 2 << 1.2 << 2.5 << Value(6) << none;
    QTest::newRow("vertical alone") << 4 << 1.2 << 2.5 << none << Value(12.5);
    QTest::newRow("the dilution of position is not used") << 1 << 1.2 << 2.5 << none << none;
    QTest::newRow("nothing takes both away") << 0 << 1.2 << 2.5 << none << none;
    QTest::newRow("a dilution of 0") << 6 << 0.0 << 0.0 << Value(0) << Value(0);
    QTest::newRow("infinite ones are left out") << 6 << Infinity << -Infinity << none << none;
    QTest::newRow("so are those that are no number") << 6 << NaN << NaN << none << none;
    QTest::newRow("too large only once it is in metres") << 6 << 1e38 << 0.5 << none << Value(2.5);
}

void TestGypsyFix::accuracies()
{
    QFETCH(int, fields);
    QFETCH(double, hdop);
    QFETCH(double, vdop);
    QFETCH(Value, horizontal);
    QFETCH(Value, vertical);
    Info info;
    info.setAttribute(Info::HorizontalAccuracy, 77);
    info.setAttribute(Info::VerticalAccuracy, 77);
    gypsyfix::applyAccuracy({fields, hdop, vdop}, info);
    QCOMPARE(text(attribute(info, Info::HorizontalAccuracy)), text(horizontal));
    QCOMPARE(text(attribute(info, Info::VerticalAccuracy)), text(vertical));
}

void TestGypsyFix::anAccuracyLeavesTheRestAlone()
{
    const QDateTime stamp(QDate(2011, 1, 2), QTime(3, 4));
    Info info(Before, stamp);
    info.setAttribute(Info::GroundSpeed, 5);
    gypsyfix::applyAccuracy({7, 1, 2}, info);
    QCOMPARE(info.coordinate(), Before);
    QCOMPARE(info.timestamp(), stamp);
    QCOMPARE(info.attribute(Info::GroundSpeed), 5.0);
}

void TestGypsyFix::attributesAreSinglePrecisionRoundedOnce()
{
    Info info;
    gypsyfix::applyCourse({7, 12.3, 271.3, 0.1}, info);
    gypsyfix::applyAccuracy({6, 1.1, 3.3}, info);
    QVERIFY(info.attribute(Info::GroundSpeed) == double{float(12.3 * 1.852 / 3.6)}); // exactly
    QVERIFY(info.attribute(Info::Direction) == double{271.3F});
    QVERIFY(info.attribute(Info::VerticalSpeed) == double{0.1F});
    QVERIFY(info.attribute(Info::HorizontalAccuracy) == double{float(1.1 * 5.0)});
    QVERIFY(info.attribute(Info::VerticalAccuracy) == double{float(3.3 * 5.0)});
}

void TestGypsyFix::noAttributeIsEverInfinite_data()
{
    QTest::addColumn<double>("value");
    QTest::newRow("infinity") << Infinity;
    QTest::newRow("minus infinity") << -Infinity;
    QTest::newRow("no number") << NaN;
    QTest::newRow("infinite in single precision") << TooLarge;
    QTest::newRow("minus infinite in single precision") << -TooLarge;
    QTest::newRow("the largest there is") << std::numeric_limits<double>::max();
}

void TestGypsyFix::noAttributeIsEverInfinite()
{
    QFETCH(double, value);
    Info info;
    gypsyfix::applyCourse({7, value, value, value}, info);
    gypsyfix::applyAccuracy({7, value, value}, info);
    for (int which = Info::Direction; which <= Info::VerticalAccuracy; ++which)
        QVERIFY2(!info.hasAttribute(Info::Attribute(which)), QByteArray::number(which).constData());
}

void TestGypsyFix::stamps_data()
{
    QTest::addColumn<int>("timestamp");
    QTest::addColumn<qint64>("seconds"); // -1 stands for the clock
    QTest::newRow("no date yet: now") << 0 << qint64{-1};
    QTest::newRow("a summer's day") << 1316608496 << qint64{1316608496};
    QTest::newRow("the first second") << 1 << qint64{1};
    QTest::newRow("the last one of a signed field") << 0x7fffffff << qint64{0x7fffffff};
    QTest::newRow("the field goes on, unsigned") << std::numeric_limits<int>::min() << qint64{0x80000000};
}

void TestGypsyFix::stamps()
{
    QFETCH(int, timestamp);
    QFETCH(qint64, seconds);
    const QDateTime now(QDate(2026, 3, 7), QTime(9, 5, 2, 345));
    const QDateTime stamp = gypsyfix::stamp(timestamp, now);
    QCOMPARE(stamp.timeSpec(), Qt::LocalTime);
    QCOMPARE(stamp, seconds < 0 ? now : QDateTime::fromSecsSinceEpoch(seconds));
}

void TestGypsyFix::satellites()
{
    QList<QGeoSatelliteInfo> inView;
    QList<QGeoSatelliteInfo> inUse;
    gypsyfix::splitSatellites({{7, true, 63, 311, 42}, {32, false, 5, 0, 0}, {120, true, 90, 359, 99}},
                              inView, inUse);
    QCOMPARE(inView.size(), 3);
    QCOMPARE(inUse.size(), 2);
    QCOMPARE(inView.at(0).satelliteIdentifier(), 7);
    QCOMPARE(inView.at(0).signalStrength(), 42);
    QCOMPARE(inView.at(0).attribute(QGeoSatelliteInfo::Elevation), 63.0);
    QCOMPARE(inView.at(0).attribute(QGeoSatelliteInfo::Azimuth), 311.0);
    QCOMPARE(inView.at(1).satelliteIdentifier(), 32);
    QCOMPARE(inView.at(1).signalStrength(), 0);
    QCOMPARE(attribute(inView.at(1), QGeoSatelliteInfo::Azimuth), Value(0));
    QCOMPARE(inUse, (QList<QGeoSatelliteInfo>{inView.at(0), inView.at(2)}));
}

void TestGypsyFix::satellitesAreListedAnew()
{
    QList<QGeoSatelliteInfo> inView;
    QList<QGeoSatelliteInfo> inUse;
    gypsyfix::splitSatellites({{7, true, 63, 311, 42}, {8, true, 63, 311, 42}}, inView, inUse);
    gypsyfix::splitSatellites({{9, false, 1, 2, 3}}, inView, inUse);
    QCOMPARE(inView.size(), 1);
    QCOMPARE(inUse.size(), 0);
    gypsyfix::splitSatellites({}, inView, inUse);
    QCOMPARE(inView.size(), 0);
}

void TestGypsyFix::numbersThatOnlyUnsignedOnesHold()
{
    QList<QGeoSatelliteInfo> inView;
    QList<QGeoSatelliteInfo> inUse;
    constexpr quint32 Most = 0xffffffff;
    gypsyfix::splitSatellites({{Most, true, Most, Most, Most}}, inView, inUse);
    QCOMPARE(inView.at(0).satelliteIdentifier(), -1);
    QCOMPARE(inView.at(0).signalStrength(), -1); // which is "not known"
    QCOMPARE(inView.at(0).attribute(QGeoSatelliteInfo::Azimuth), 4294967296.0);
}

void TestGypsyFix::theStructureOnTheBus()
{
    SatelliteData::registerWithDBus();
    QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::fromType<SatelliteData>()), "(ubuuu)");
    QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::fromType<QList<SatelliteData>>()), "a(ubuuu)");
}

void TestGypsyFix::sameReceivers_data()
{
    QTest::addColumn<QString>("gypsy");
    QTest::addColumn<QString>("bluez");
    QTest::addColumn<bool>("expected");
    const QString gypsy = u"/org/freedesktop/Gypsy/00_1A_7D_DA_71_13"_s;
    const QString bluez = u"/org/bluez/4711/hci0/dev_00_1A_7D_DA_71_13"_s;
    QTest::newRow("the same address") << gypsy << bluez << true;
    QTest::newRow("another address") << gypsy << u"/org/bluez/4711/hci0/dev_00_1A_7D_DA_71_14"_s << false;
    QTest::newRow("Gypsy keeps the case of the setting, and case counts")
        << u"/org/freedesktop/Gypsy/00_1a_7d_da_71_13"_s << bluez << false;
    QTest::newRow("the address and nothing else") << u"00_1A_7D_DA_71_13"_s << bluez << true;
    QTest::newRow("shorter than an address") << u"0_1A_7D_DA_71_13"_s << bluez << false;
    QTest::newRow("no device yet") << QString() << bluez << false;
    QTest::newRow("no device, no path") << QString() << QString() << false;
    QTest::newRow("a serial port") << u"/org/freedesktop/Gypsy/ttyGPS0"_s << bluez << false;
    QTest::newRow("the address in the middle") << gypsy << bluez + u"/service"_s << false;
}

void TestGypsyFix::sameReceivers()
{
    QFETCH(QString, gypsy);
    QFETCH(QString, bluez);
    QTEST(gypsyfix::isSameReceiver(gypsy, bluez), "expected");
}

QTEST_APPLESS_MAIN(TestGypsyFix)
#include "tst_gypsyfix.moc"
