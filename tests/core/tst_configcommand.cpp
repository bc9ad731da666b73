#include "core/configcommand.h"
#include "core/methodselection.h"

#include <QTest>

#include <limits>

using Steps = std::vector<ConfigStep>;
Q_DECLARE_METATYPE(Steps)

class TestConfigCommand : public QObject
{
    Q_OBJECT

private slots:
    void steps_data();
    void steps();
    void interval_data();
    void interval();
    void freeFixes_data();
    void freeFixes();
    void consent_data();
    void consent();
    void prestart();
};

void TestConfigCommand::steps_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<Steps>("expected");

    using enum ConfigStep;
    QTest::newRow("no bit, no step") << 0 << Steps{};
    QTest::newRow("0x01 starts") << 0x01 << Steps{Start};
    QTest::newRow("0x02 stops") << 0x02 << Steps{Stop};
    QTest::newRow("0x04 sets the method") << 0x04 << Steps{SetMethod};
    QTest::newRow("0x08 sets the interval") << 0x08 << Steps{SetInterval};
    QTest::newRow("0x10 wants satellite information") << 0x10 << Steps{SatInfoStart};
    QTest::newRow("0x20 wants none") << 0x20 << Steps{SatInfoStop};
    QTest::newRow("start and stop together leave the client stopped") << 0x03 << Steps{Start, Stop};
    QTest::newRow("satellite information on and off together leaves it off")
        << 0x30 << Steps{SatInfoStart, SatInfoStop};
    QTest::newRow("13 sets method and interval before it starts")
        << 13 << Steps{SetMethod, SetInterval, Start};
    const Steps all{SetMethod, SetInterval, Start, Stop, SatInfoStart, SatInfoStop};
    QTest::newRow("all bits run in the table's order") << 0x3f << all;
    QTest::newRow("unknown bits mean nothing") << 0x7fffffc0 << Steps{};
    QTest::newRow("a negative command has every bit") << -1 << all;
    QTest::newRow("the sign bit alone means nothing") << std::numeric_limits<int>::min() << Steps{};
}

void TestConfigCommand::steps()
{
    QFETCH(int, command);
    QFETCH(Steps, expected);
    QVERIFY(configSteps(command) == expected);
}

void TestConfigCommand::interval_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::addColumn<int>("seconds");

    QTest::newRow("nothing is a second") << 0 << 1;
    QTest::newRow("999 ms is a second") << 999 << 1;
    QTest::newRow("1000 ms is a second") << 1000 << 1;
    QTest::newRow("1499 ms is a second") << 1499 << 1;
    QTest::newRow("1500 ms is two seconds") << 1500 << 2;
    QTest::newRow("2499 ms is two seconds") << 2499 << 2;
    QTest::newRow("666000 ms is 666 s") << 666000 << 666;
    QTest::newRow("a negative interval is a second") << -1 << 1;
    QTest::newRow("the most negative interval is a second") << std::numeric_limits<int>::min() << 1;
    QTest::newRow("the largest interval does not overflow") << std::numeric_limits<int>::max() << 2147484;
}

void TestConfigCommand::interval()
{
    QFETCH(int, milliseconds);
    QTEST(intervalSeconds(milliseconds), "seconds");
}

void TestConfigCommand::freeFixes_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("seconds");
    QTest::addColumn<bool>("expected");

    QTest::newRow("the agreed interval asks for free fixes") << 0x08 << 666 << true;
    QTest::newRow("together with other commands too") << 0x3f << 666 << true;
    QTest::newRow("not without setting the interval") << 0x37 << 666 << false;
    QTest::newRow("not one second less") << 0x08 << 665 << false;
    QTest::newRow("not one second more") << 0x08 << 667 << false;
}

void TestConfigCommand::freeFixes()
{
    QFETCH(int, command);
    QFETCH(int, seconds);
    QTEST(asksForFreeFixes(command, seconds), "expected");
}

void TestConfigCommand::consent_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<bool>("expected");

    QTest::newRow("start waits for consent") << 0x01 << false << true;
    QTest::newRow("start among others waits for consent") << 13 << false << true;
    QTest::newRow("start and stop together wait") << 0x03 << false << true;
    QTest::newRow("start with consent does not wait") << 0x01 << true << false;
    QTest::newRow("a request without start needs no consent") << 0x3e << false << false;
}

void TestConfigCommand::consent()
{
    QFETCH(int, command);
    QFETCH(bool, accepted);
    QTEST(waitsForConsent(command, accepted), "expected");
}

void TestConfigCommand::prestart()
{
    QVERIFY(prestartMethods(false, false) == std::nullopt);
    QCOMPARE(prestartMethods(true, true).value(), Methods::All);
    QCOMPARE(prestartMethods(true, false).value(), Methods::Satellite);
    QCOMPARE(prestartMethods(false, true).value(), Methods::NonSatellite);
}

QTEST_APPLESS_MAIN(TestConfigCommand)
#include "tst_configcommand.moc"
