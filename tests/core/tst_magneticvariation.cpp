#include "core/magneticvariation.h"

#include <QTest>

#include <limits>

using namespace std::chrono_literals;

Q_DECLARE_METATYPE(std::optional<int>)

class TestMagneticVariation : public QObject
{
    Q_OBJECT

private slots:
    void wholeDegrees_data();
    void wholeDegrees();
    void unknown();
    void theFirstIsWritten();
    void anotherIsWrittenAtOnce();
    void theSameIsLookedAtAgain();
};

void TestMagneticVariation::wholeDegrees_data()
{
    QTest::addColumn<double>("degrees");
    QTest::addColumn<std::optional<int>>("whole");

    using Whole = std::optional<int>;
    QTest::newRow("none at all") << 0.0 << Whole(0);
    QTest::newRow("below a half goes down") << 2.4 << Whole(2);
    QTest::newRow("a half goes up") << 2.5 << Whole(3);
    QTest::newRow("a negative one loses its fraction after the half was added") << -2.4 << Whole(-1);
    QTest::newRow("a negative whole number goes up with it") << -2.0 << Whole(-1);
    QTest::newRow("a bit below zero is zero") << -0.6 << Whole(0);
    QTest::newRow("one and a half below zero is minus one") << -1.5 << Whole(-1);
    QTest::newRow("the most that the engine can say") << 327.67 << Whole(328);
    QTest::newRow("the least that the engine can say") << -327.67 << Whole(-327);
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN() << Whole();
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << Whole();
    QTest::newRow("beyond what fits") << -3e9 << Whole();
}

void TestMagneticVariation::wholeDegrees()
{
    QFETCH(double, degrees);
    QFETCH(std::optional<int>, whole);
    QGeoPositionInfo fix;
    fix.setAttribute(QGeoPositionInfo::MagneticVariation, degrees);
    QCOMPARE(wholeVariation(fix), whole);
}

void TestMagneticVariation::unknown()
{
    QGeoPositionInfo fix;
    fix.setAttribute(QGeoPositionInfo::Direction, 90);
    QVERIFY(!wholeVariation(fix));
    QVERIFY(!wholeVariation({}));
}

void TestMagneticVariation::theFirstIsWritten()
{
    QVERIFY(WrittenVariation().isDue(0, 0ms)); // zero degrees is no lack of them
    QVERIFY(WrittenVariation().isDue(3, 5ms));
}

void TestMagneticVariation::anotherIsWrittenAtOnce()
{
    WrittenVariation written;
    QVERIFY(written.isDue(2, 100ms));
    QVERIFY(written.isDue(3, 100ms));
    QVERIFY(written.isDue(2, 100ms));
    QVERIFY(!written.isDue(2, 100ms));
}

void TestMagneticVariation::theSameIsLookedAtAgain()
{
    WrittenVariation written;
    QVERIFY(written.isDue(2, 100ms));
    QVERIFY(!written.isDue(2, 600ms));
    QVERIFY(!written.isDue(2, 1099ms));
    QVERIFY(written.isDue(2, 1100ms)); // counted from the writing, not from the last fix
    QVERIFY(!written.isDue(2, 2099ms));
    QVERIFY(written.isDue(2, 2100ms));
}

QTEST_APPLESS_MAIN(TestMagneticVariation)
#include "tst_magneticvariation.moc"
