#include "engine/layout.h"
#include "orvd-gpsd/epochblocks.h"

#include <QTest>

#include <limits>

using namespace orvdgpsd;
using namespace std::chrono_literals;

namespace {
FixReport somewhere()
{
    FixReport fix;
    fix.hasFix = true;
    fix.latitude = 45.0;
    fix.longitude = 22.5;
    return fix;
}

SatelliteRecord record(const Satellite &satellite)
{
    const auto records = satelliteRecords({{}, {satellite}});
    return records.size() == 1 ? records.front() : SatelliteRecord{};
}

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();
Known known(double value)
{
    return value == value ? Known(value) : std::nullopt;
}
} // namespace

class TestEpochBlocks : public QObject
{
    Q_OBJECT
private slots:
    void coordinates_data()
    {
        QTest::addColumn<double>("degrees");
        QTest::addColumn<qint32>("units");
        QTest::newRow("an eighth of a turn") << 45.0 << 0x20000000;
        QTest::newRow("a sixteenth of a turn") << 22.5 << 0x10000000;
        QTest::newRow("south and west are negative") << -45.0 << -0x20000000;
        QTest::newRow("rounded, not cut off") << 8.381903171539307e-08 * 1.6 << 2;
        QTest::newRow("the date line from the east is not wrapped") << 180.0 << 0x7FFFFFFF;
        QTest::newRow("the date line from the west") << -180.0 << std::numeric_limits<qint32>::min();
        QTest::newRow("beyond what can be") << 200.0 << 0x7FFFFFFF;
    }
    void coordinates()
    {
        QFETCH(double, degrees);
        FixReport fix = somewhere();
        fix.longitude = degrees;
        QTEST(positionBlock(fix).longitude, "units");
        fix = somewhere();
        fix.latitude = degrees;
        QTEST(positionBlock(fix).latitude, "units");
    }

    void heights_data()
    {
        QTest::addColumn<double>("ellipsoid");
        QTest::addColumn<double>("seaLevel");
        QTest::addColumn<double>("separation");
        QTest::addColumn<int>("altitude");
        QTest::addColumn<int>("geoid");
        QTest::newRow("both known") << 155.0 << 109.5 << nothing << 310 << -91;
        // 10.2 and -20.2 rounded apart would give -10.5 m where -9.9 is true.
        QTest::newRow("the sum is rounded once") << 10.24 << -9.9 << 20.14 << 20 << -40;
        QTest::newRow("sea level is taken as reported, not worked out")
            << 25.424 << 28.895 << -1.662 << 51 << 7;
        QTest::newRow("only the ellipsoid, and the separation") << 100.0 << nothing << 40.0 << 200 << -80;
        QTest::newRow("only sea level, and the separation") << nothing << 60.0 << 40.0 << 200 << -80;
        QTest::newRow("only the ellipsoid") << 100.0 << nothing << nothing << 200 << 0;
        QTest::newRow("only sea level") << nothing << 60.0 << nothing << 120 << 0;
        QTest::newRow("nothing known") << nothing << nothing << nothing << 0 << 0;
        QTest::newRow("below the ellipsoid") << -13.1504 << 20.9275 << -34.078 << -26 << 68;
        QTest::newRow("the highest") << 16383.5 << 16383.5 << nothing << 32767 << 0;
        QTest::newRow("higher than the field can say") << 20000.0 << 19950.0 << nothing << 32767 << -100;
        QTest::newRow("deeper than the field can say") << -20000.0 << -20000.0 << nothing << -32768 << 0;
        QTest::newRow("a separation that no field holds") << 0.0 << 30000.0 << nothing << 0 << 32767;
    }
    void heights()
    {
        QFETCH(double, ellipsoid);
        QFETCH(double, seaLevel);
        QFETCH(double, separation);
        FixReport fix = somewhere();
        fix.heightAboveEllipsoid = known(ellipsoid);
        fix.heightAboveSeaLevel = known(seaLevel);
        fix.geoidSeparation = known(separation);
        const PositionBlock block = positionBlock(fix);
        QTEST(int(block.altitude), "altitude");
        QTEST(int(block.geoid), "geoid");
    }

    void theHeightAboveSeaLevelArrivesWithinAQuarterMetre()
    {
        FixReport fix = somewhere();
        for (int i = -400; i <= 400; ++i) {
            fix.heightAboveSeaLevel = i * 0.13;
            fix.heightAboveEllipsoid = i * 0.13 + 47.37;
            const PositionBlock block = positionBlock(fix);
            const double arrives = (block.altitude + block.geoid) * 0.5;
            QVERIFY(std::abs(arrives - *fix.heightAboveSeaLevel) <= 0.25 + 1e-9);
        }
    }

    void horizontalErrors_data()
    {
        QTest::addColumn<double>("east");
        QTest::addColumn<double>("north");
        QTest::addColumn<double>("both");
        QTest::addColumn<qint32>("along");
        QTest::addColumn<qint32>("ortho");
        QTest::addColumn<int>("angle");
        constexpr qint32 most = 1073741823;
        QTest::newRow("longer to the north") << 15.076 << 31.255 << 42.75 << 3126 << 1508 << 0;
        QTest::newRow("longer to the east") << 287.499 << 58.512 << 400.9 << 28750 << 5851 << 90;
        QTest::newRow("a circle") << 2.0 << 2.0 << nothing << 200 << 200 << 0;
        QTest::newRow("only one figure for both") << nothing << nothing << 14.142135 << 1000 << 1000 << 0;
        QTest::newRow("one axis is missing") << 5.0 << nothing << 14.142135 << 1000 << 1000 << 0;
        QTest::newRow("not known is not perfect") << nothing << nothing << nothing << most << most << 0;
        QTest::newRow("the sum of the largest fits too") << 1e9 << 2e9 << nothing << most << most << 0;
        QTest::newRow("negative is no error") << -1.0 << -2.0 << nothing << 0 << 0 << 90;
    }
    void horizontalErrors()
    {
        QFETCH(double, east);
        QFETCH(double, north);
        QFETCH(double, both);
        FixReport fix = somewhere();
        fix.eastError = known(east);
        fix.northError = known(north);
        fix.horizontalError = known(both);
        const PositionBlock block = positionBlock(fix);
        QTEST(block.along, "along");
        QTEST(block.ortho, "ortho");
        QTEST(int(block.angle), "angle");
        QVERIFY(qint64(block.along) + block.ortho <= std::numeric_limits<qint32>::max());
    }

    void verticalError_data()
    {
        QTest::addColumn<double>("metres");
        QTest::addColumn<int>("halfMetres");
        QTest::newRow("rounded") << 20.7 << 41;
        QTest::newRow("none") << 0.0 << 0;
        QTest::newRow("the largest") << 32767.5 << 65535;
        QTest::newRow("larger than the field can say") << 50000.0 << 65535;
        QTest::newRow("not known is not perfect") << nothing << 65535;
    }
    void verticalError()
    {
        QFETCH(double, metres);
        FixReport fix = somewhere();
        fix.verticalError = known(metres);
        QTEST(int(positionBlock(fix).altitudeError), "halfMetres");
    }

    void heading_data()
    {
        QTest::addColumn<double>("track");
        QTest::addColumn<int>("hundredths");
        QTest::newRow("north") << 0.0 << 0;
        QTest::newRow("east") << 90.0 << 9000;
        QTest::newRow("just before south") << 179.99 << 17999;
        QTest::newRow("rounded to south") << 179.995 << 18000;
        QTest::newRow("south") << 180.0 << 18000;
        QTest::newRow("just beyond south") << 180.01 << -17999;
        QTest::newRow("west") << 270.0 << -9000;
        QTest::newRow("north by west") << 350.0 << -1000;
        QTest::newRow("two hundredths beside north") << 359.98 << -2;
        QTest::newRow("the value for not known gives way to north") << 359.99 << 0;
        QTest::newRow("nearly a full turn") << 359.999 << 0;
        QTest::newRow("a full turn") << 360.0 << 0;
        QTest::newRow("signed already") << -10.0 << -1000;
        QTest::newRow("not known") << nothing << -1;
    }
    void heading()
    {
        QFETCH(double, track);
        FixReport fix = somewhere();
        fix.track = known(track);
        fix.speed = 1.0;
        QTEST(int(velocityBlock(fix)->heading), "hundredths");
    }

    void everyHeadingArrivesWithinItsResolution()
    {
        FixReport fix = somewhere();
        for (int i = 0; i < 36000; ++i) {
            fix.track = i / 100.0;
            const int arrives = velocityBlock(fix)->heading;
            const int apart = (arrives - i + 72000) % 36000;
            QVERIFY2(apart == 0 || (i == 35999 && apart == 1), qPrintable(QString::number(i)));
        }
    }

    void velocity_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("speed");
        QTest::addColumn<int>("climb");
        QTest::addColumn<int>("variation");
        QTest::newRow("rounded") << 2.675 << 268 << 268 << 268;
        QTest::newRow("zero is known") << 0.0 << 0 << 0 << 0;
        QTest::newRow("a negative speed is none") << -0.01 << 0 << -1 << -1;
        QTest::newRow("the largest") << 327.67 << 32767 << 32767 << 32767;
        QTest::newRow("too large") << 400.0 << 32767 << 32767 << 32767;
        QTest::newRow("too small stops short of not known") << -400.0 << 0 << -32767 << -32767;
        QTest::newRow("not known") << nothing << -1 << -32768 << -32768;
    }
    void velocity()
    {
        QFETCH(double, value);
        FixReport fix = somewhere();
        fix.track = 10.0;
        fix.speed = fix.climb = fix.magneticVariation = known(value);
        const auto block = velocityBlock(fix);
        QTEST(int(block->speed), "speed");
        QTEST(int(block->climb), "climb");
        QTEST(int(block->variation), "variation");
    }

    void velocityErrors()
    {
        FixReport fix = somewhere();
        fix.speed = 1.0;
        fix.trackError = 1.234;
        fix.speedError = 700.0;
        const auto block = velocityBlock(fix);
        QCOMPARE(block->headingError, quint16(123));
        QCOMPARE(block->speedError, quint16(65535));
        QCOMPARE(block->climbError, quint16(65535)); // not known
    }

    void aFixThatSaysNothingOfMotionHasNoVelocity()
    {
        FixReport fix = somewhere();
        fix.speedError = 1.0;
        QVERIFY(!velocityBlock(fix));
        fix.climb = 0.0;
        QVERIFY(velocityBlock(fix));
    }

    void times_data()
    {
        QTest::addColumn<qint64>("milliseconds");
        QTest::addColumn<int>("year");
        QTest::addColumn<int>("month");
        QTest::addColumn<int>("day");
        QTest::addColumn<int>("hours");
        QTest::addColumn<int>("minutes");
        QTest::addColumn<int>("withinMinute");
        QTest::newRow("an ordinary one") << 1534758458408LL << 2018 << 8 << 20 << 9 << 47 << 38408;
        QTest::newRow("the end of a leap day") << 1583020799999LL << 2020 << 2 << 29 << 23 << 59 << 59999;
        QTest::newRow("a leap second's neighbour") << 1483228800000LL << 2017 << 1 << 1 << 0 << 0 << 0;
        QTest::newRow("beyond 32 bits of seconds") << 4294967296000LL << 2106 << 2 << 7 << 6 << 28 << 16000;
    }
    void times()
    {
        QFETCH(qint64, milliseconds);
        const TimeBlock block = timeBlock(ReceiverTime(std::chrono::milliseconds(milliseconds) + 999us));
        QTEST(int(block.year), "year");
        QTEST(int(block.month), "month");
        QTEST(int(block.day), "day");
        QTEST(int(block.hours), "hours");
        QTEST(int(block.minutes), "minutes");
        QTEST(int(block.milliseconds), "withinMinute");
    }

    void prns_data()
    {
        QTest::addColumn<int>("prn");
        QTest::addColumn<int>("number");
        QTest::newRow("the first") << 1 << 0;
        QTest::newRow("a GLONASS one") << 73 << 72;
        QTest::newRow("the last that the byte holds") << 256 << 255;
        QTest::newRow("one too many is left out") << 257 << -1;
        QTest::newRow("far too many is left out") << 437 << -1;
        QTest::newRow("none is left out") << 0 << -1;
    }
    void prns()
    {
        QFETCH(int, prn);
        QFETCH(int, number);
        const auto records = satelliteRecords({{}, {{prn, true, 40.0, 45.0, 90.0}}});
        QCOMPARE(records.size(), number < 0 ? 0u : 1u);
        if (number >= 0)
            QCOMPARE(int(records[0].number), number);
    }

    void oneThatIsLeftOutTakesNoOtherWithIt()
    {
        const auto records =
            satelliteRecords({{}, {{5, true, {}, {}, {}}, {301, true, {}, {}, {}}, {7, false, {}, {}, {}}}});
        QCOMPARE(records.size(), 2u);
        QCOMPARE(records[0].number, quint8(4));
        QCOMPARE(records[0].used, quint8(1));
        QCOMPARE(records[1].number, quint8(6));
        QCOMPARE(records[1].used, quint8(0));
    }

    void anEmptySkyHasNoRecords() { QVERIFY(satelliteRecords({}).empty()); }

    void moreSatellitesThanTheCountCanSay()
    {
        SkyReport sky;
        for (int i = 0; i < 300; ++i)
            sky.satellites.push_back({i % 256 + 1, false, {}, {}, {}});
        QCOMPARE(satelliteRecords(sky).size(), 255u);
    }

    void signal_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("field");
        QTest::newRow("sixteenths") << 44.2 << 707;
        QTest::newRow("no signal") << 0.0 << 0;
        QTest::newRow("gpsd's own not known") << -1.0 << 0x8000;
        QTest::newRow("not known") << nothing << 0x8000;
        QTest::newRow("too large stops short of not known") << 5000.0 << 0x7FFF;
    }
    void signal()
    {
        QFETCH(double, value);
        QTEST(int(record({1, false, known(value), {}, {}}).cno), "field");
    }

    void elevation_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("field");
        QTest::newRow("above") << 77.3 << 7730;
        QTest::newRow("overhead") << 90.0 << 9000;
        QTest::newRow("below the horizon") << -2.0 << 0xFF38;
        QTest::newRow("the value for not known gives way") << -1.28 << 0xFF81;
        QTest::newRow("impossible is not known") << -91.0 << 0xFF80;
        QTest::newRow("impossible the other way") << 90.5 << 0xFF80;
        QTest::newRow("not known") << nothing << 0xFF80;
    }
    void elevation()
    {
        QFETCH(double, value);
        QTEST(int(record({1, false, {}, known(value), {}}).elevation), "field");
    }

    void azimuth_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("field");
        QTest::newRow("north") << 0.0 << 0;
        QTest::newRow("all the way") << 359.99 << 35999;
        QTest::newRow("a full turn") << 360.0 << 36000;
        QTest::newRow("impossible is not known") << 361.0 << 0xFFFF;
        QTest::newRow("negative is not known") << -0.1 << 0xFFFF;
        QTest::newRow("not known") << nothing << 0xFFFF;
    }
    void azimuth()
    {
        QFETCH(double, value);
        QTEST(int(record({1, false, {}, {}, known(value)}).azimuth), "field");
    }
};

QTEST_APPLESS_MAIN(TestEpochBlocks)
#include "tst_epochblocks.moc"
