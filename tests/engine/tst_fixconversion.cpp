#include "engine/attributes.h"
#include "engine/fixconversion.h"

#include <QGeoPositionInfo>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;
using Attribute = QGeoPositionInfo::Attribute;

// From wire units to fixes, raw records and debug texts.
class TestFixConversion : public QObject
{
    Q_OBJECT
private slots:
    void coordinates_data();
    void coordinates();
    void horizontalAccuracy_data();
    void horizontalAccuracy();
    void attributesAreSinglePrecisionRoundedOnce();
    void theRawRecordKeepsDoublePrecision();
    void positionLeavesVelocityAndTimeAlone();
    void velocitySetsWhatIsKnown_data();
    void velocitySetsWhatIsKnown();
    void rawSpeed_data();
    void rawSpeed();
    void velocityWithoutRawRecord();
    void timeGoesIntoTheRawRecordAsItIs();
    void positionText();
    void velocityText();
    void timeText_data();
    void timeText();
};

namespace {
QByteArray bytesOf(double value)
{
    QByteArray bytes(8, Qt::Uninitialized);
    qToBigEndian(value, bytes.data());
    return bytes;
}
} // namespace

void TestFixConversion::coordinates_data()
{
    QTest::addColumn<PositionBlock>("block");
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("longitude");
    QTest::addColumn<double>("altitude");
    QTest::newRow("an eighth and a sixteenth of a turn")
        << PositionBlock{.latitude = 0x20000000, .longitude = 0x10000000} << 45.0 << 22.5 << 0.0;
    QTest::newRow("south and west are negative")
        << PositionBlock{.latitude = -0x20000000, .longitude = -0x10000000} << -45.0 << -22.5 << 0.0;
    QTest::newRow("the poles") << PositionBlock{.latitude = 0x40000000} << 90.0 << 0.0 << 0.0;
    QTest::newRow("the date line") << PositionBlock{.longitude = std::numeric_limits<qint32>::min()} << 0.0
                                   << -180.0 << 0.0;
    QTest::newRow("one unit") << PositionBlock{.latitude = 1, .longitude = -1} << 8.381903171539307e-08
                              << -8.381903171539307e-08 << 0.0;
    QTest::newRow("the geoid separation is added to the altitude")
        << PositionBlock{.altitude = 200, .geoid = 40} << 0.0 << 0.0 << 120.0;
    QTest::newRow("half metres, both signed")
        << PositionBlock{.altitude = -7, .geoid = -2} << 0.0 << 0.0 << -4.5;
    QTest::newRow("the largest sum does not wrap")
        << PositionBlock{.altitude = 32767, .geoid = 32767} << 0.0 << 0.0 << 32767.0;
}

void TestFixConversion::coordinates()
{
    QFETCH(PositionBlock, block);
    QFETCH(double, latitude);
    QFETCH(double, longitude);
    QFETCH(double, altitude);
    QGeoPositionInfo info;
    RawFix raw;
    fixconversion::applyPosition(block, info, &raw);
    QVERIFY(info.coordinate().latitude() == latitude); // exactly, not about
    QVERIFY(info.coordinate().longitude() == longitude);
    QVERIFY(info.coordinate().altitude() == altitude);
    QVERIFY(raw.lat == latitude);
    QVERIFY(raw.lon == longitude);
    QVERIFY(raw.alt == altitude);
}

void TestFixConversion::horizontalAccuracy_data()
{
    QTest::addColumn<int>("along");
    QTest::addColumn<int>("ortho");
    QTest::addColumn<double>("metres");
    QTest::newRow("10 m along and 5 m across") << 1000 << 500 << 11.358;
    QTest::newRow("nothing") << 0 << 0 << 0.0;
    QTest::newRow("one centimetre") << 1 << 0 << 0.007572;
    QTest::newRow("the sum wraps as a 32-bit integer") << 0x7fffffff << 1 << -2147483648.0 * 0.007572;
}

void TestFixConversion::horizontalAccuracy()
{
    QFETCH(int, along);
    QFETCH(int, ortho);
    QFETCH(double, metres);
    QGeoPositionInfo info;
    fixconversion::applyPosition({.along = along, .ortho = ortho}, info, nullptr);
    QCOMPARE(attribute(info, Attribute::HorizontalAccuracy), std::optional<double>(float(metres)));
}

void TestFixConversion::attributesAreSinglePrecisionRoundedOnce()
{
    QGeoPositionInfo info;
    fixconversion::applyPosition({.along = 1000, .ortho = 500, .altitudeError = 21}, info, nullptr);
    QCOMPARE(bytesOf(info.attribute(Attribute::HorizontalAccuracy)),
             QByteArray::fromHex("40 26 B7 4B C0 00 00 00"));
    QCOMPARE(info.attribute(Attribute::VerticalAccuracy), 10.5);

    // Every value that a field can hold: the float next to the exact hundredth.
    for (int raw = -32767; raw <= 32767; raw += 7) {
        fixconversion::applyVelocity({.variation = qint16(raw)}, info, nullptr);
        QVERIFY(info.attribute(Attribute::MagneticVariation) == double(float(raw * 0.01)));
    }
}

void TestFixConversion::theRawRecordKeepsDoublePrecision()
{
    QGeoPositionInfo info;
    RawFix raw;
    fixconversion::applyPosition({.latitude = 0x20000000,
                                  .longitude = 0x10000000,
                                  .along = 1001,
                                  .ortho = -7,
                                  .angle = 200,
                                  .altitude = 200,
                                  .altitudeError = 21,
                                  .geoid = 40},
                                 info, &raw);
    QCOMPARE(raw, (RawFix{.lat = 45,
                          .lon = 22.5,
                          .alt = 120,
                          .u_along = 1001 * 0.01,
                          .u_ortho = -7 * 0.01,
                          .u_angle = 200,
                          .u_alt = 10}));
    fixconversion::applyPosition({.altitudeError = 0xFFFF}, info, &raw);
    QCOMPARE(raw.u_alt, ushort(0x7FFF));
}

void TestFixConversion::positionLeavesVelocityAndTimeAlone()
{
    QGeoPositionInfo info;
    RawFix raw{.g_speed = 5, .year = 2010, .month = 1, .day = 2, .hours = 3, .minutes = 4, .mseconds = 5};
    fixconversion::applyPosition({}, info, &raw);
    QCOMPARE(
        raw,
        (RawFix{.g_speed = 5, .year = 2010, .month = 1, .day = 2, .hours = 3, .minutes = 4, .mseconds = 5}));
    QVERIFY(!info.hasAttribute(Attribute::Direction));
    QVERIFY(!info.hasAttribute(Attribute::GroundSpeed));
    QVERIFY(!info.hasAttribute(Attribute::VerticalSpeed));
    QVERIFY(!info.hasAttribute(Attribute::MagneticVariation));
    QVERIFY(!info.timestamp().isValid());
}

void TestFixConversion::velocitySetsWhatIsKnown_data()
{
    using Value = std::optional<double>;
    QTest::addColumn<VelocityBlock>("block");
    QTest::addColumn<Value>("direction");
    QTest::addColumn<Value>("variation");
    QTest::addColumn<Value>("speed");
    QTest::addColumn<Value>("climb");
    QTest::newRow("nothing known, nothing set")
        << VelocityBlock{.heading = -1, .variation = -32768, .speed = -1, .climb = -32768} << Value()
        << Value() << Value() << Value();
    QTest::newRow("everything known")
        << VelocityBlock{.heading = 9000, .variation = 250, .speed = 1000, .climb = -150} << Value(90)
        << Value(2.5) << Value(10) << Value(-1.5);
    QTest::newRow("zeroes are known") << VelocityBlock{.heading = 0, .variation = 0, .speed = 0, .climb = 0}
                                      << Value(0) << Value(0) << Value(0) << Value(0);
    QTest::newRow("a heading west of north stays negative")
        << VelocityBlock{.heading = -1000} << Value(-10) << Value() << Value() << Value();
    QTest::newRow("-1 is a variation and a climb") << VelocityBlock{.variation = -1, .climb = -1} << Value()
                                                   << Value(float(-0.01)) << Value() << Value(float(-0.01));
    QTest::newRow("-32768 is a heading and a speed")
        << VelocityBlock{.heading = -32768, .speed = -32768} << Value(float(-327.68)) << Value()
        << Value(float(-327.68)) << Value();
    QTest::newRow("uncertainties set nothing")
        << VelocityBlock{.headingError = 1, .speedError = 2, .climbError = 3} << Value() << Value() << Value()
        << Value();
}

void TestFixConversion::velocitySetsWhatIsKnown()
{
    QFETCH(VelocityBlock, block);
    QGeoPositionInfo info;
    fixconversion::applyVelocity(block, info, nullptr);
    QTEST(attribute(info, Attribute::Direction), "direction");
    QTEST(attribute(info, Attribute::MagneticVariation), "variation");
    QTEST(attribute(info, Attribute::GroundSpeed), "speed");
    QTEST(attribute(info, Attribute::VerticalSpeed), "climb");
    QVERIFY(!info.hasAttribute(Attribute::HorizontalAccuracy));
    QVERIFY(!info.hasAttribute(Attribute::VerticalAccuracy));
    QVERIFY(!info.coordinate().isValid());
}

void TestFixConversion::rawSpeed_data()
{
    QTest::addColumn<int>("raw");
    QTest::addColumn<int>("kilometresPerHour");
    QTest::newRow("10 m/s") << 1000 << 36;
    QTest::newRow("not known") << -1 << 0xFFFF;
    QTest::newRow("standing") << 0 << 0;
    QTest::newRow("truncated, not rounded") << 1018 << 36;
    QTest::newRow("just below a whole number") << 1111 << 39;
    QTest::newRow("a whole number is not lost to rounding") << 250 << 9;
    QTest::newRow("the largest") << 32767 << 1179;
    QTest::newRow("a negative speed counts as standing") << -100 << 0;
}

void TestFixConversion::rawSpeed()
{
    QFETCH(int, raw);
    QGeoPositionInfo info;
    RawFix fix;
    fixconversion::applyVelocity({.speed = qint16(raw)}, info, &fix);
    QTEST(int(fix.g_speed), "kilometresPerHour");
    fix.g_speed = 0;
    QCOMPARE(fix, RawFix{}); // nothing else
}

void TestFixConversion::velocityWithoutRawRecord()
{
    QGeoPositionInfo info;
    fixconversion::applyVelocity({.speed = 1000}, info, nullptr);
    QCOMPARE(info.attribute(Attribute::GroundSpeed), 10.0);
}

void TestFixConversion::timeGoesIntoTheRawRecordAsItIs()
{
    RawFix raw{.lat = 1};
    fixconversion::applyTime(
        {.year = 0xFFFF, .month = 13, .day = 32, .hours = 25, .minutes = 61, .milliseconds = 60999}, raw);
    QCOMPARE(raw, (RawFix{.lat = 1,
                          .year = 0xFFFF,
                          .month = 13,
                          .day = 32,
                          .hours = 25,
                          .minutes = 61,
                          .mseconds = 60999}));
}

void TestFixConversion::positionText()
{
    QCOMPARE(fixconversion::positionText({.latitude = 0x20000000,
                                          .longitude = -0x10000001,
                                          .along = 1001,
                                          .ortho = 500,
                                          .angle = 200,
                                          .altitude = -201,
                                          .altitudeError = 0xFFFF,
                                          .geoid = 40}),
             u"POSDBG: lat=45.0000000, lon=-22.5000001, unc_alo=10.01, unc_ort=5.00, unc_ang=200, "
             "alt_w84=-100.5, alt_unc=32767.5, geo_sep=20.0"_s);
}

void TestFixConversion::velocityText()
{
    QCOMPARE(fixconversion::velocityText({.heading = 9000,
                                          .headingError = 150,
                                          .variation = -250,
                                          .speed = 1000,
                                          .speedError = 0xFFFF,
                                          .climb = -150,
                                          .climbError = 5}),
             u"VELDBG: head=90.00+-1.50, magn=-2.50, speed=10.00+-655.35, climb=-1.50+-0.05"_s);
    QCOMPARE(fixconversion::velocityText({.heading = -1, .variation = -32768, .speed = -1, .climb = -32768}),
             u"VELDBG: head=-0.01+-0.00, magn=-327.68, speed=-0.01+-0.00, climb=-327.68+-0.00"_s);
}

void TestFixConversion::timeText_data()
{
    QTest::addColumn<TimeBlock>("block");
    QTest::addColumn<QString>("text");
    QTest::newRow("no leading zeroes") << TimeBlock{.hours = 1, .minutes = 2, .milliseconds = 3004}
                                       << u"processSubBlocks(): Time: 1:2:3.004"_s;
    QTest::newRow("the last millisecond of a day")
        << TimeBlock{.hours = 23, .minutes = 59, .milliseconds = 59999}
        << u"processSubBlocks(): Time: 23:59:59.999"_s;
    QTest::newRow("the largest values") << TimeBlock{.hours = 255, .minutes = 255, .milliseconds = 65535}
                                        << u"processSubBlocks(): Time: 255:255:65.535"_s;
}

void TestFixConversion::timeText()
{
    QFETCH(TimeBlock, block);
    QTEST(fixconversion::timeText(block), "text");
}

QTEST_GUILESS_MAIN(TestFixConversion)
#include "tst_fixconversion.moc"
