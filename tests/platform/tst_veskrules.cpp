#include "platform/veskrules.h"

#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds RequestedAt{1750000000500}; // half past a second
constexpr double UnknownAltitude = -1.7976931348623157e308;

NetworkLocation fresh(double accuracy)
{
    return {.latitude = 60.17,
            .longitude = 24.94,
            .accuracy = accuracy,
            .altitude = UnknownAltitude,
            .seconds = 1750000001};
}

class Nobody : public VeskObserver
{
public:
    void veskRequestFinished(int, int) override {}
};

} // namespace

using Verdict = LocationChoice::Verdict;
Q_DECLARE_METATYPE(NetworkLocation)
Q_DECLARE_METATYPE(LocationChoice::Verdict)

class TestVeskRules : public QObject
{
    Q_OBJECT

private slots:
    void aNewRecordKnowsNothing();
    void usefulLocations_data();
    void usefulLocations();
    void whenToStopLooking_data();
    void whenToStopLooking();
    void theBestIsTheMostAccurate_data();
    void theBestIsTheMostAccurate();
    void whatAPositionSays();
    void whatIsUnknownStaysUnknown_data();
    void whatIsUnknownStaysUnknown();
    void technologies_data();
    void technologies();
    void refusals_data();
    void refusals();
    void accuracyLevels_data();
    void accuracyLevels();
    void anAnswerKeepsItsTimeout_data();
    void anAnswerKeepsItsTimeout();
    void codesOfErrors_data();
    void codesOfErrors();
    void packetData_data();
    void packetData();
};

void TestVeskRules::aNewRecordKnowsNothing()
{
    const VeskPosition position;
    QVERIFY(std::isnan(position.latitude()));
    QVERIFY(std::isnan(position.longitude()));
    QVERIFY(std::isnan(position.altitude()));
    QVERIFY(std::isnan(position.horizontalAccuracy()));
    QVERIFY(std::isnan(position.altitudeAccuracy()));
    QCOMPARE(position.timestamp(), 0U);
    QCOMPARE(position.timestampMicroseconds(), 0U);
    QCOMPARE(position.technologyMask(), 0U);
}

void TestVeskRules::usefulLocations_data()
{
    QTest::addColumn<NetworkLocation>("location");
    QTest::addColumn<Verdict>("verdict");
    const auto at = [](quint64 seconds, quint64 microseconds) {
        NetworkLocation location = fresh(500.0);
        location.seconds = seconds;
        location.microseconds = microseconds;
        return location;
    };
    const auto placed = [](double latitude, double longitude) {
        NetworkLocation location = fresh(500.0);
        location.latitude = latitude;
        location.longitude = longitude;
        return location;
    };
    constexpr double NotANumber = NetworkLocation::Unknown;
    QTest::newRow("found after the request") << at(1750000001, 0) << Verdict::First;
    QTest::newRow("30 s old") << at(1749999970, 500000) << Verdict::First;
    QTest::newRow("a millisecond older than that") << at(1749999970, 499999) << Verdict::Useless;
    QTest::newRow("an hour old") << at(1749996400, 0) << Verdict::Useless;
    QTest::newRow("from a clock that is ahead") << at(1750003600, 0) << Verdict::First;
    QTest::newRow("without a time") << at(0, 0) << Verdict::Useless;
    QTest::newRow("a second that the record cannot hold") << at(4294967296, 0) << Verdict::Useless;
    QTest::newRow("the last second that it can hold") << at(4294967295, 0) << Verdict::First;
    QTest::newRow("more microseconds than a second has, still 31 s old")
        << at(1749999969, 5000000) << Verdict::Useless;
    QTest::newRow("the south pole") << placed(-90.0, -180.0) << Verdict::First;
    QTest::newRow("the north pole") << placed(90.0, 180.0) << Verdict::First;
    QTest::newRow("north of the pole") << placed(90.1, 0.0) << Verdict::Useless;
    QTest::newRow("east of the date line") << placed(0.0, 180.1) << Verdict::Useless;
    QTest::newRow("no latitude") << placed(NotANumber, 0.0) << Verdict::Useless;
    QTest::newRow("no longitude") << placed(0.0, NotANumber) << Verdict::Useless;
}

void TestVeskRules::usefulLocations()
{
    QFETCH(NetworkLocation, location);
    LocationChoice choice(vesk::Wlan, RequestedAt);
    QTEST(choice.weigh(location), "verdict");
    QCOMPARE(choice.best().has_value(), choice.weigh(location) != Verdict::Useless);
}

void TestVeskRules::whenToStopLooking_data()
{
    QTest::addColumn<unsigned>("mask");
    QTest::addColumn<double>("accuracy");
    QTest::addColumn<Verdict>("first");
    QTest::addColumn<Verdict>("second");
    const auto stop = Verdict::GoodEnough;
    const auto [first, more] = std::pair(Verdict::First, Verdict::Useful);
    QTest::newRow("WLAN, 100 m") << 0x01U << 100.0 << stop << stop;
    QTest::newRow("WLAN, more") << 0x01U << 100.1 << first << more;
    QTest::newRow("both, 100 m") << 0x0FU << 100.0 << stop << stop;
    QTest::newRow("both, more") << 0x0FU << 100.1 << first << more;
    QTest::newRow("cells, 3 km") << 0x0EU << 3000.0 << stop << stop;
    QTest::newRow("cells, more") << 0x0EU << 3000.5 << first << more;
    QTest::newRow("one kind of cell, 3 km") << 0x08U << 3000.0 << stop << stop;
    QTest::newRow("accuracy not known") << 0x0EU << -1.0 << first << more;
    QTest::newRow("accuracy not there") << 0x01U << NetworkLocation::Unknown << first << more;
}

void TestVeskRules::whenToStopLooking()
{
    QFETCH(unsigned, mask);
    QFETCH(double, accuracy);
    LocationChoice choice(mask, RequestedAt);
    NetworkLocation old = fresh(1.0);
    old.seconds = 1;
    QCOMPARE(choice.weigh(old), Verdict::Useless); // an old one does not count as the first
    QTEST(choice.weigh(fresh(accuracy)), "first");
    QTEST(choice.weigh(fresh(accuracy)), "second");
}

void TestVeskRules::theBestIsTheMostAccurate_data()
{
    QTest::addColumn<QList<double>>("accuracies");
    QTest::addColumn<double>("latitude"); // counts the locations from 1
    QTest::newRow("the only one") << QList{2000.0} << 1.0;
    QTest::newRow("rising accuracy") << QList{25000.0, 2000.0, 500.0} << 3.0;
    QTest::newRow("a worse one follows") << QList{500.0, 2000.0} << 1.0;
    QTest::newRow("the later of equals") << QList{500.0, 500.0} << 2.0;
    QTest::newRow("known beats unknown") << QList{-1.0, 25000.0} << 2.0;
    QTest::newRow("unknown does not beat known") << QList{25000.0, -1.0} << 1.0;
    QTest::newRow("the later of unknowns") << QList{-1.0, -1.0} << 2.0;
}

void TestVeskRules::theBestIsTheMostAccurate()
{
    QFETCH(QList<double>, accuracies);
    LocationChoice choice(vesk::Wlan | vesk::Cellular, RequestedAt);
    double number = 0.0;
    for (const double accuracy : accuracies) {
        NetworkLocation location = fresh(accuracy);
        location.latitude = ++number;
        choice.weigh(location);
    }
    QTEST(choice.best()->latitude(), "latitude");
}

void TestVeskRules::whatAPositionSays()
{
    LocationChoice choice(vesk::Wlan, RequestedAt);
    choice.weigh({.latitude = -33.85,
                  .longitude = 151.2,
                  .accuracy = 20.5,
                  .altitude = 12.25,
                  .seconds = 1750000002,
                  .microseconds = 999999});
    QVERIFY(choice.best().has_value());
    QCOMPARE(choice.best()->latitude(), -33.85);
    QCOMPARE(choice.best()->longitude(), 151.2);
    QCOMPARE(choice.best()->horizontalAccuracy(), 20.5F);
    QCOMPARE(choice.best()->altitude(), 12.25F);
    QVERIFY(std::isnan(choice.best()->altitudeAccuracy())); // GeoClue does not tell
    QCOMPARE(choice.best()->timestamp(), 1750000002U);
    QCOMPARE(choice.best()->timestampMicroseconds(), 999999U);
    QCOMPARE(choice.best()->technologyMask(), vesk::Wlan);
}

void TestVeskRules::whatIsUnknownStaysUnknown_data()
{
    QTest::addColumn<double>("altitude");
    QTest::addColumn<double>("accuracy");
    constexpr double Infinite = std::numeric_limits<double>::infinity();
    QTest::newRow("GeoClue's words for it") << UnknownAltitude << -1.0;
    QTest::newRow("not a number") << NetworkLocation::Unknown << NetworkLocation::Unknown;
    QTest::newRow("infinite") << Infinite << Infinite;
    QTest::newRow("beyond a float") << 1e39 << 1e39;
}

void TestVeskRules::whatIsUnknownStaysUnknown()
{
    QFETCH(double, altitude);
    QFETCH(double, accuracy);
    LocationChoice choice(vesk::Wlan, RequestedAt);
    NetworkLocation location = fresh(accuracy);
    location.altitude = altitude;
    location.microseconds = 5000000;
    QCOMPARE(choice.weigh(location), Verdict::First);
    QVERIFY(std::isnan(choice.best()->altitude()));
    QVERIFY(std::isnan(choice.best()->horizontalAccuracy()));
    QCOMPARE(choice.best()->timestampMicroseconds(), 999999U);
    QCOMPARE(choice.best()->technologyMask(), vesk::CellCoarse);
}

void TestVeskRules::technologies_data()
{
    QTest::addColumn<unsigned>("mask");
    QTest::addColumn<float>("accuracy");
    QTest::addColumn<unsigned>("technology");
    constexpr float Unknown = std::numeric_limits<float>::quiet_NaN();
    QTest::newRow("both, 1 km: WLAN") << 0x0FU << 1000.0F << 0x01U;
    QTest::newRow("both, more: a cell") << 0x0FU << 1000.5F << 0x02U;
    QTest::newRow("both, 30 km: a cell") << 0x0FU << 30000.0F << 0x02U;
    QTest::newRow("both, more: a coarse cell") << 0x0FU << 30000.5F << 0x08U;
    QTest::newRow("both, unknown: a coarse cell") << 0x0FU << Unknown << 0x08U;
    QTest::newRow("WLAN, 1 km") << 0x01U << 1000.0F << 0x01U;
    QTest::newRow("WLAN, 30 km") << 0x01U << 30000.0F << 0x01U;
    QTest::newRow("WLAN, more") << 0x01U << 30000.5F << 0x08U;
    QTest::newRow("WLAN, unknown") << 0x01U << Unknown << 0x08U;
    QTest::newRow("cells, 10 m") << 0x0EU << 10.0F << 0x02U;
    QTest::newRow("cells, 30 km") << 0x0EU << 30000.0F << 0x02U;
    QTest::newRow("cells, more") << 0x0EU << 30000.5F << 0x08U;
    QTest::newRow("cells, unknown") << 0x0EU << Unknown << 0x08U;
    QTest::newRow("one kind of cell") << 0x04U << 500.0F << 0x02U;
}

void TestVeskRules::technologies()
{
    QFETCH(unsigned, mask);
    QFETCH(float, accuracy);
    QTEST(vesk::resultTechnology(mask, accuracy), "technology");
}

void TestVeskRules::refusals_data()
{
    QTest::addColumn<bool>("observed");
    QTest::addColumn<unsigned>("mask");
    QTest::addColumn<unsigned>("usage");
    QTest::addColumn<unsigned>("timeout");
    QTest::addColumn<int>("code");
    QTest::newRow("WLAN") << true << 0x01U << 1U << 1U << 0;
    QTest::newRow("cells, no packet data, for ever") << true << 0x0EU << 2U << 0xffffffffU << 0;
    QTest::newRow("more bits than anyone knows") << true << 0xffffffffU << 1U << 20U << 0;
    QTest::newRow("no technology") << true << 0U << 1U << 20U << -2102;
    QTest::newRow("only what measurements use") << true << 0x30U << 1U << 20U << -2102;
    QTest::newRow("no time") << true << 0x0FU << 1U << 0U << -2102;
    QTest::newRow("nobody to call") << false << 0x0FU << 1U << 20U << -2102;
    QTest::newRow("usage 0") << true << 0x0FU << 0U << 20U << -2102;
    QTest::newRow("usage 3") << true << 0x0FU << 3U << 20U << -2102;
}

void TestVeskRules::refusals()
{
    QFETCH(bool, observed);
    QFETCH(unsigned, mask);
    QFETCH(unsigned, usage);
    QFETCH(unsigned, timeout);
    const Nobody nobody;
    QTEST(vesk::refusal(observed ? &nobody : nullptr, mask, VeskPacketDataUsage(usage), timeout), "code");
}

void TestVeskRules::accuracyLevels_data()
{
    QTest::addColumn<unsigned>("mask");
    QTest::addColumn<quint32>("level");
    QTest::newRow("WLAN: the street") << 0x01U << 6U;
    QTest::newRow("both: the street") << 0x0FU << 6U;
    QTest::newRow("cells: the neighbourhood") << 0x0EU << 5U;
}

void TestVeskRules::accuracyLevels()
{
    QFETCH(unsigned, mask);
    QTEST(vesk::accuracyLevel(mask), "level");
}

void TestVeskRules::anAnswerKeepsItsTimeout_data()
{
    QTest::addColumn<unsigned>("timeout");
    QTest::addColumn<std::chrono::milliseconds>("working");
    QTest::newRow("20 s") << 20U << 19900ms;
    QTest::newRow("1 s") << 1U << 900ms;
    QTest::newRow("longer than any timer") << 0xffffffffU << 2147483647ms;
}

void TestVeskRules::anAnswerKeepsItsTimeout()
{
    QFETCH(unsigned, timeout);
    QTEST(vesk::workingTime(timeout, VeskTimings()), "working");
    // A time-out that is shorter than the reserve leaves some time.
    QCOMPARE(vesk::workingTime(1, {.timeoutUnit = 10ms}), 5ms);
}

void TestVeskRules::codesOfErrors_data()
{
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("code");
    const QString prefix = u"org.freedesktop.DBus.Error."_s;
    QTest::newRow("refused") << prefix + u"AccessDenied"_s << -2104;
    QTest::newRow("no GeoClue") << prefix + u"ServiceUnknown"_s << -2105;
    QTest::newRow("GeoClue left") << prefix + u"NoReply"_s << -2105;
    QTest::newRow("GeoClue does not start") << prefix + u"Spawn.ChildExited"_s << -2105;
    QTest::newRow("no bus") << prefix + u"Disconnected"_s << -2105;
    QTest::newRow("no such object") << prefix + u"UnknownMethod"_s << -2105;
    QTest::newRow("no name") << QString() << -2105;
}

void TestVeskRules::codesOfErrors()
{
    QFETCH(QString, error);
    QTEST(vesk::codeOf(error), "code");
}

void TestVeskRules::packetData_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("metered");
    QTest::addColumn<bool>("packetData");
    QTest::newRow("mobile data") << u"gsm"_s << 2U << true;
    QTest::newRow("mobile data of the other kind") << u"cdma"_s << 0U << true;
    QTest::newRow("WLAN") << u"802-11-wireless"_s << 0U << false;
    QTest::newRow("WLAN that is metered") << u"802-11-wireless"_s << 1U << true;
    QTest::newRow("WLAN that is not metered") << u"802-11-wireless"_s << 2U << false;
    QTest::newRow("a telephone's hot spot, metered at a guess") << u"802-11-wireless"_s << 3U << true;
    QTest::newRow("not metered at a guess") << u"802-3-ethernet"_s << 4U << false;
    QTest::newRow("no connection") << QString() << 0U << false;
}

void TestVeskRules::packetData()
{
    QFETCH(QString, type);
    QFETCH(quint32, metered);
    QTEST(vesk::usesPacketData(type, metered), "packetData");
}

QTEST_GUILESS_MAIN(TestVeskRules)
#include "tst_veskrules.moc"
