#include "engine/attributes.h"
#include "network/veskfix.h"
#include "support/scoped.h"

#include <QDateTime>
#include <QGeoCoordinate>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr float Unknown = std::numeric_limits<float>::quiet_NaN();
constexpr unsigned Noon = 1709294400; // 2024-03-01 12:00:00 UTC
const QDateTime Now(QDate(2026, 3, 7), QTime(9, 5, 2));

VeskPosition helsinki()
{
    VeskPosition position;
    position.setLatitude(60.17);
    position.setLongitude(24.94);
    return position;
}

} // namespace

class TestVeskFix : public QObject
{
    Q_OBJECT

private slots:
    void technologies_data();
    void technologies();
    void packetData();
    void aGuessWiderThanThirtyKilometresIsTooVague_data();
    void aGuessWiderThanThirtyKilometresIsTooVague();
    void aRecordBecomesAFix();
    void whatIsNotKnownIsLeftOut();
    void accuraciesAreSinglePrecision();
    void aRecordWithoutAPlaceIsNoValidFix();
    void stamps_data();
    void stamps();
    void withoutATimeItIsNow();
    void anHourThatComesTwiceStaysTheOneItWas();
};

void TestVeskFix::technologies_data()
{
    QTest::addColumn<bool>("wifi");
    QTest::addColumn<bool>("cellular");
    QTest::addColumn<unsigned>("position");
    QTest::addColumn<unsigned>("measurement");
    QTest::newRow("neither") << false << false << 0x00U << 0x00U;
    QTest::newRow("WLAN only") << true << false << 0x01U << 0x01U;
    QTest::newRow("cellular only") << false << true << 0x0EU << 0x3EU;
    QTest::newRow("both") << true << true << 0x0FU << 0x3FU;
}

void TestVeskFix::technologies()
{
    QFETCH(bool, wifi);
    QFETCH(bool, cellular);
    QTEST(veskfix::positionTechnologies(wifi, cellular), "position");
    QTEST(veskfix::measurementTechnologies(wifi, cellular), "measurement");
}

void TestVeskFix::packetData()
{
    QCOMPARE(unsigned(veskfix::packetDataUsage(true)), 1U);
    QCOMPARE(unsigned(veskfix::packetDataUsage(false)), 2U);
}

void TestVeskFix::aGuessWiderThanThirtyKilometresIsTooVague_data()
{
    QTest::addColumn<unsigned>("technologies");
    QTest::addColumn<float>("accuracy");
    QTest::addColumn<bool>("vague");
    QTest::newRow("30 km exactly") << 0x08U << 30000.0F << false;
    QTest::newRow("half a metre more") << 0x08U << 30000.5F << true;
    QTest::newRow("of unknown width") << 0x08U << Unknown << true;
    QTest::newRow("beside other technologies") << 0x0FU << 30000.5F << true;
    QTest::newRow("not from a region's cells") << 0x07U << 30000.5F << false;
    QTest::newRow("WLAN of unknown width") << 0x01U << Unknown << false;
    QTest::newRow("small") << 0x08U << 0.0F << false;
}

void TestVeskFix::aGuessWiderThanThirtyKilometresIsTooVague()
{
    QFETCH(unsigned, technologies);
    QFETCH(float, accuracy);
    VeskPosition position = helsinki();
    position.setTechnologyMask(technologies);
    position.setHorizontalAccuracy(accuracy);
    QTEST(veskfix::isTooVague(position), "vague");
}

void TestVeskFix::aRecordBecomesAFix()
{
    VeskPosition position = helsinki();
    position.setAltitude(25.5F);
    position.setHorizontalAccuracy(80.0F);
    position.setAltitudeAccuracy(12.0F);
    const QGeoPositionInfo fix = veskfix::positionInfo(position, Now);
    QVERIFY(fix.isValid());
    QCOMPARE(fix.coordinate().type(), QGeoCoordinate::Coordinate3D);
    QCOMPARE(fix.coordinate().latitude(), 60.17);
    QCOMPARE(fix.coordinate().longitude(), 24.94);
    QCOMPARE(fix.coordinate().altitude(), 25.5);
    QCOMPARE(attribute(fix, QGeoPositionInfo::HorizontalAccuracy), std::optional(80.0));
    QCOMPARE(attribute(fix, QGeoPositionInfo::VerticalAccuracy), std::optional(12.0));
    for (const auto other : {QGeoPositionInfo::Direction, QGeoPositionInfo::GroundSpeed,
                             QGeoPositionInfo::VerticalSpeed, QGeoPositionInfo::MagneticVariation})
        QVERIFY(!fix.hasAttribute(other));
}

void TestVeskFix::whatIsNotKnownIsLeftOut()
{
    const QGeoPositionInfo fix = veskfix::positionInfo(helsinki(), Now);
    QVERIFY(fix.isValid());
    QCOMPARE(fix.coordinate().type(), QGeoCoordinate::Coordinate2D);
    QVERIFY(!fix.hasAttribute(QGeoPositionInfo::HorizontalAccuracy));
    QVERIFY(!fix.hasAttribute(QGeoPositionInfo::VerticalAccuracy));
}

void TestVeskFix::accuraciesAreSinglePrecision()
{
    VeskPosition position = helsinki();
    position.setHorizontalAccuracy(11.358F);
    const QGeoPositionInfo fix = veskfix::positionInfo(position, Now);
    QCOMPARE(attribute(fix, QGeoPositionInfo::HorizontalAccuracy), std::optional(double(11.358F)));
}

void TestVeskFix::aRecordWithoutAPlaceIsNoValidFix()
{
    QVERIFY(!veskfix::positionInfo(VeskPosition(), Now).isValid());
}

void TestVeskFix::stamps_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<unsigned>("seconds");
    QTest::addColumn<unsigned>("microseconds");
    QTest::addColumn<QDateTime>("expected"); // what a clock on the wall shows
    const auto wall = [](int month, int day, int hour, int minute, int second, int ms = 0) {
        return QDateTime(QDate(2024, month, day), QTime(hour, minute, second, ms), Qt::UTC);
    };
    constexpr unsigned LastSecond = 1709337599; // 2024-03-01 23:59:59 UTC
    QTest::newRow("whole seconds") << "UTC0"_ba << Noon << 0U << wall(3, 1, 12, 0, 0);
    QTest::newRow("milliseconds are cut off") << "UTC0"_ba << Noon << 1999U << wall(3, 1, 12, 0, 0, 1);
    QTest::newRow("the last millisecond of the day")
        << "UTC0"_ba << LastSecond << 999999U << wall(3, 1, 23, 59, 59, 999);
    QTest::newRow("past midnight the date stays")
        << "UTC0"_ba << LastSecond << 1000000U << wall(3, 1, 0, 0, 0);
    QTest::newRow("far past midnight too") << "UTC0"_ba << LastSecond << 4000000000U << wall(3, 1, 1, 6, 39);
    QTest::newRow("in local time") << "IST-5:30"_ba << Noon << 500000U << wall(3, 1, 17, 30, 0, 500);
    QTest::newRow("the midnight is the local one")
        << "IST-5:30"_ba << unsigned(Noon + 6.5 * 3600 - 1) << 1250000U << wall(3, 1, 0, 0, 0, 250);
    QTest::newRow("a day earlier in the west")
        << "PST8"_ba << 1709251200U << 0U << QDateTime(QDate(2024, 2, 29), QTime(16, 0), Qt::UTC);
    QTest::newRow("beyond 2038") << "UTC0"_ba << 4294967295U << 0U
                                 << QDateTime(QDate(2106, 2, 7), QTime(6, 28, 15), Qt::UTC);
}

void TestVeskFix::stamps()
{
    QFETCH(QByteArray, zone);
    QFETCH(unsigned, seconds);
    QFETCH(unsigned, microseconds);
    QFETCH(QDateTime, expected);
    const ScopedVariable timeZone("TZ", zone);
    VeskPosition position = helsinki();
    position.setTimestamp(seconds, microseconds);
    const QDateTime stamp = veskfix::positionInfo(position, Now).timestamp();
    QCOMPARE(stamp.date(), expected.date());
    QCOMPARE(stamp.time(), expected.time());
}

void TestVeskFix::withoutATimeItIsNow()
{
    VeskPosition position = helsinki();
    position.setTimestamp(0, 999999);
    QCOMPARE(veskfix::positionInfo(position, Now).timestamp(), Now);
}

// 03:30 on the night when Helsinki's clocks go back: first in summer time, an hour later in winter time.
void TestVeskFix::anHourThatComesTwiceStaysTheOneItWas()
{
    const ScopedVariable zone("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    for (const unsigned seconds : {1729989000U, 1729992600U}) {
        VeskPosition position = helsinki();
        position.setTimestamp(seconds);
        const QDateTime stamp = veskfix::positionInfo(position, Now).timestamp();
        QCOMPARE(stamp.time(), QTime(3, 30));
        QCOMPARE(stamp.toSecsSinceEpoch(), qint64(seconds));
    }
}

QTEST_APPLESS_MAIN(TestVeskFix)
#include "tst_veskfix.moc"
