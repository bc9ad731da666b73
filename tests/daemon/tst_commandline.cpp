#include "daemon/commandline.h"

#include <QTest>

#include <cstdlib>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

std::optional<LogFlags> parse(const QByteArrayList &arguments)
{
    std::vector<const char *> raw;
    for (const QByteArray &argument : arguments)
        raw.push_back(argument.constData());
    return parseArguments(raw);
}

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void knownArguments_data();
    void knownArguments();
    void unknownArguments_data();
    void unknownArguments();
    void usage();
};

void TestCommandLine::knownArguments_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<LogFlags>("flags");

    const LogFlags file{.logToFile = true};
    const LogFlags silent{.warnings = false};
    const LogFlags verbose{.verbose = true};
    const LogFlags daemon{.warnings = false, .daemonize = true};
    QTest::newRow("without arguments only warnings are shown") << QByteArrayList{} << LogFlags{};
    QTest::newRow("-l asks for a file") << QByteArrayList{"-l"} << file;
    QTest::newRow("--logfile asks for a file") << QByteArrayList{"--logfile"} << file;
    QTest::newRow("-nl takes the file back") << QByteArrayList{"-l", "-nl"} << LogFlags{};
    QTest::newRow("--no-logfile takes the file back") << QByteArrayList{"-l", "--no-logfile"} << LogFlags{};
    QTest::newRow("-nw hides warnings") << QByteArrayList{"-nw"} << silent;
    QTest::newRow("--no-warning hides warnings") << QByteArrayList{"--no-warning"} << silent;
    QTest::newRow("-w shows them again") << QByteArrayList{"-nw", "-w"} << LogFlags{};
    QTest::newRow("--warning shows them again") << QByteArrayList{"-nw", "--warning"} << LogFlags{};
    QTest::newRow("-v shows debug messages") << QByteArrayList{"-v"} << verbose;
    QTest::newRow("--verbose shows debug messages") << QByteArrayList{"--verbose"} << verbose;
    QTest::newRow("-nv hides them again") << QByteArrayList{"-v", "-nv"} << LogFlags{};
    QTest::newRow("--no-verbose hides them again") << QByteArrayList{"-v", "--no-verbose"} << LogFlags{};
    QTest::newRow("-d detaches and is quiet") << QByteArrayList{"-d"} << daemon;
    QTest::newRow("--daemon detaches and is quiet") << QByteArrayList{"--daemon"} << daemon;
    QTest::newRow("-d -v ends verbose without warnings")
        << QByteArrayList{"-d", "-v"} << LogFlags{.verbose = true, .warnings = false, .daemonize = true};
    QTest::newRow("-v -d ends with both off") << QByteArrayList{"-v", "-d"} << daemon;
    QTest::newRow("-d leaves the file alone")
        << QByteArrayList{"-l", "-d"} << LogFlags{.logToFile = true, .warnings = false, .daemonize = true};
    QTest::newRow("the last of a pair wins") << QByteArrayList{"-v", "-nv", "-v"} << verbose;
}

void TestCommandLine::knownArguments()
{
    QFETCH(const QByteArrayList, arguments);
    QFETCH(const LogFlags, flags);
    const auto parsed = parse(arguments);
    QVERIFY(parsed.has_value());
    QCOMPARE(parsed->logToFile, flags.logToFile);
    QCOMPARE(parsed->verbose, flags.verbose);
    QCOMPARE(parsed->warnings, flags.warnings);
    QCOMPARE(parsed->daemonize, flags.daemonize);
    QCOMPARE(parsed->rdMode, false);
}

void TestCommandLine::unknownArguments_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::newRow("the advertised --logtofile is unknown") << QByteArrayList{"--logtofile"};
    QTest::newRow("the advertised --no-logtofile is unknown") << QByteArrayList{"--no-logtofile"};
    QTest::newRow("there is no help option") << QByteArrayList{"--help"};
    QTest::newRow("case counts") << QByteArrayList{"-V"};
    QTest::newRow("an argument is compared whole") << QByteArrayList{"-vv"};
    QTest::newRow("a prefix is not enough") << QByteArrayList{"--verb"};
    QTest::newRow("the empty argument is unknown") << QByteArrayList{""};
    QTest::newRow("one unknown argument among known ones") << QByteArrayList{"-v", "x", "-d"};
}

void TestCommandLine::unknownArguments()
{
    QFETCH(const QByteArrayList, arguments);
    QVERIFY(!parse(arguments).has_value());
}

void TestCommandLine::usage()
{
    char *text = nullptr;
    std::size_t length = 0;
    std::FILE *out = ::open_memstream(&text, &length);
    printUsage(out);
    std::fclose(out);
    const QByteArray printed(text, qsizetype(length));
    std::free(text);
    QCOMPARE(printed, "Usage: lodestard [options]\n"
                      "Options:\n"
                      "-l  || --logtofile    : Create a logfile (/home/$USER/lodestard.log)\n"
                      "-nl || --no-logtofile : Don't create a logfile (default)\n"
                      "-v  || --verbose      : Display a lot of debug messages (default)\n"
                      "-nv || --no-verbose   : Don't display any debug messages\n"
                      "-w  || --warning      : Display warning messages (default)\n"
                      "-nw || --no-warning   : Don't display warning messages\n"
                      "-d  || --daemon       : Execute as a daemon process\n"_ba);
}

QTEST_APPLESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
