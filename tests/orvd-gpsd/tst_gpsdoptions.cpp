#include "orvd-gpsd/options.h"

#include <QTest>

using namespace orvdgpsd;
using namespace Qt::StringLiterals;

namespace {
Options read(const QStringList &arguments)
{
    return readOptions(QStringList{u"orvd-gpsd"_s} + arguments);
}
} // namespace

class TestOptions : public QObject
{
    Q_OBJECT
private slots:
    void withoutAnyTheUsualPlacesAreTaken()
    {
        const Options options = read({});
        QCOMPARE(options.outcome, Options::Outcome::Run);
        QCOMPARE(options.socket, u"/var/run/orvd/orvd.socket"_s);
        QCOMPARE(options.gpsd.host, "localhost");
        QCOMPARE(options.gpsd.port, "2947");
        QVERIFY(options.gpsd.device.isEmpty());
        QCOMPARE(options.settleTime, std::chrono::milliseconds(400));
        QVERIFY(!options.verbose);
    }

    void everyOneIsTaken()
    {
        const Options options = read({u"--socket"_s, u"/tmp/s"_s, u"--host=example"_s, u"--port"_s, u"3000"_s,
                                      u"--device"_s, u"/dev/ttyS1"_s, u"--settle"_s, u"50"_s, u"-v"_s});
        QCOMPARE(options.outcome, Options::Outcome::Run);
        QCOMPARE(options.socket, u"/tmp/s"_s);
        QCOMPARE(options.gpsd.host, "example");
        QCOMPARE(options.gpsd.port, "3000");
        QCOMPARE(options.gpsd.device, "/dev/ttyS1");
        QCOMPARE(options.settleTime, std::chrono::milliseconds(50));
        QVERIFY(options.verbose);
    }

    void whatIsWrongIsSaid_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("text");
        QTest::newRow("an unknown option")
            << QStringList{u"--frobnicate"_s} << u"Unknown option 'frobnicate'."_s;
        QTest::newRow("a missing value") << QStringList{u"--port"_s} << u"Missing value after '--port'."_s;
        QTest::newRow("a stray argument") << QStringList{u"now"_s} << u"Unexpected argument 'now'."_s;
        QTest::newRow("a port that is a word")
            << QStringList{u"--port"_s, u"gpsd"_s} << u"'gpsd' is no port."_s;
        QTest::newRow("port 0") << QStringList{u"--port"_s, u"0"_s} << u"'0' is no port."_s;
        QTest::newRow("a port too high") << QStringList{u"--port"_s, u"65536"_s} << u"'65536' is no port."_s;
        QTest::newRow("no silence at all")
            << QStringList{u"--settle"_s, u"0"_s} << u"'0' is no time from 1 to 10000 milliseconds."_s;
        QTest::newRow("a silence too long") << QStringList{u"--settle"_s, u"10001"_s}
                                            << u"'10001' is no time from 1 to 10000 milliseconds."_s;
        QTest::newRow("an empty path")
            << QStringList{u"--socket="_s} << u"The socket's path and the host need a value."_s;
        QTest::newRow("an empty host")
            << QStringList{u"--host="_s} << u"The socket's path and the host need a value."_s;
    }
    void whatIsWrongIsSaid()
    {
        QFETCH(QStringList, arguments);
        const Options options = read(arguments);
        QCOMPARE(options.outcome, Options::Outcome::Wrong);
        QTEST(options.text, "text");
    }

    void theHelpNamesEveryOption()
    {
        const Options options = read({u"--help"_s});
        QCOMPARE(options.outcome, Options::Outcome::Help);
        for (const auto &name : {u"--socket"_s, u"--host"_s, u"--port"_s, u"--device"_s, u"--settle"_s,
                                 u"--verbose"_s, u"--help"_s, u"--version"_s})
            QVERIFY2(options.text.contains(name), qPrintable(name));
    }

    void theVersionIsPrinted()
    {
        const Options options = read({u"--version"_s});
        QCOMPARE(options.outcome, Options::Outcome::Version);
        QVERIFY(options.text.startsWith(u"orvd-gpsd "_s));
        QVERIFY(options.text.endsWith(u'\n'));
    }
};

QTEST_GUILESS_MAIN(TestOptions)
#include "tst_gpsdoptions.moc"
