#include "daemon/messagehandler.h"
#include "support/childprocess.h"
#include "support/devicetree.h"
#include "support/stillclock.h"

#include <QLoggingCategory>
#include <QTest>

#include <atomic>
#include <chrono>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr int Returned = 42; // the child ran to its end

LogStream openLog(const DeviceTree &tree)
{
    return LogStream(std::fopen(QFile::encodeName(tree.at(u"/log"_s)).constData(), "w"));
}

// As the lines on busy roads do it: the category is asked before anything is formatted.
const QLoggingCategory &busyLog()
{
    return *QLoggingCategory::defaultCategory();
}

void sayOneOfEach()
{
    qDebug("one");
    qWarning("two");
    qCritical("three");
}

// Stops the thread that asks it, which is inside the handler then, until a fork must have happened.
class SlowClock final : public Clock
{
public:
    QDateTime now() const override
    {
        if (!asked.exchange(true))
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return StillClock().now();
    }
    std::chrono::milliseconds monotonic() const override { return {}; }

    mutable std::atomic<bool> asked = false;
};

} // namespace

class TestMessageHandler : public QObject
{
    Q_OBJECT

private slots:
    void line_data();
    void line();
    void targets_data();
    void targets();
    void eachLevelGoesWhereTheFlagsSay_data();
    void eachLevelGoesWhereTheFlagsSay();
    void aFatalMessageEndsTheProcessWithOne();
    void aSilentFatalMessageEndsTheProcessToo();
    void everyLineIsFlushedAtOnce();
    void debugLinesNobodyWantsAreNotFormatted();
    void theFileAloneKeepsDebugLinesAlive();
    void messagesBeforeTheFlagsAreSettledFollowTheDefaults();
    void threadsDoNotMixTheirLines();
    void aForkWhileAnotherThreadLogsLeavesTheChildItsVoice();
};

void TestMessageHandler::line_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("expected");
    const QTime morning(9, 5, 2, 999);
    QTest::newRow("debug, hours with two digits")
        << int(QtDebugMsg) << morning << u"a"_s << "09:05:02 Debug: a\n"_ba;
    QTest::newRow("warning") << int(QtWarningMsg) << morning << u"b c"_s << "09:05:02 Warning: b c\n"_ba;
    QTest::newRow("critical") << int(QtCriticalMsg) << morning << u"d"_s << "09:05:02 Critical: d\n"_ba;
    QTest::newRow("fatal") << int(QtFatalMsg) << morning << u"e"_s << "09:05:02 Fatal: e\n"_ba;
    QTest::newRow("midnight, empty text")
        << int(QtDebugMsg) << QTime(0, 0) << u""_s << "00:00:00 Debug: \n"_ba;
    QTest::newRow("text beyond ASCII travels as UTF-8")
        << int(QtDebugMsg) << QTime(23, 59, 59) << u"\u00e4"_s << "23:59:59 Debug: \xc3\xa4\n"_ba;
}

void TestMessageHandler::line()
{
    QFETCH(const int, type);
    QFETCH(const QTime, time);
    QFETCH(const QString, text);
    QTEST(logLine(QtMsgType(type), time, text), "expected");
}

void TestMessageHandler::targets_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<LogFlags>("flags");
    QTest::addColumn<LogTargets>("expected");
    const LogFlags nothing{.warnings = false};
    const LogFlags all{.logToFile = true, .verbose = true};
    for (const int type : {QtDebugMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg}) {
        QTest::addRow("level %d goes nowhere when nothing is wanted", type)
            << type << nothing << LogTargets{false, false};
        QTest::addRow("level %d goes everywhere when all is wanted", type)
            << type << all << LogTargets{true, true};
        QTest::addRow("level %d goes to the file alone", type)
            << type << LogFlags{.logToFile = true, .warnings = false} << LogTargets{true, false};
        QTest::addRow("level %d with warnings alone", type)
            << type << LogFlags{.warnings = true} << LogTargets{false, type != QtDebugMsg};
        QTest::addRow("level %d with verbose alone", type)
            << type << LogFlags{.verbose = true, .warnings = false} << LogTargets{false, type == QtDebugMsg};
    }
}

void TestMessageHandler::targets()
{
    QFETCH(const int, type);
    QFETCH(const LogFlags, flags);
    QFETCH(const LogTargets, expected);
    QVERIFY(logTargets(QtMsgType(type), flags) == expected);
}

void TestMessageHandler::eachLevelGoesWhereTheFlagsSay_data()
{
    QTest::addColumn<LogFlags>("flags");
    QTest::addColumn<QByteArray>("console");
    QTest::addColumn<QByteArray>("file");
    const QByteArray debug = "09:05:02 Debug: one\n";
    const QByteArray others = "09:05:02 Warning: two\n09:05:02 Critical: three\n";
    QTest::newRow("the default: warnings on the console") << LogFlags{} << others << ""_ba;
    QTest::newRow("verbose") << LogFlags{.verbose = true} << debug + others << ""_ba;
    QTest::newRow("verbose without warnings")
        << LogFlags{.verbose = true, .warnings = false} << debug << ""_ba;
    QTest::newRow("silent") << LogFlags{.warnings = false} << ""_ba
                            << ""_ba;
    QTest::newRow("into the file alone")
        << LogFlags{.logToFile = true, .warnings = false} << ""_ba << debug + others;
    QTest::newRow("everywhere") << LogFlags{.logToFile = true, .verbose = true} << debug + others
                                << debug + others;
}

void TestMessageHandler::eachLevelGoesWhereTheFlagsSay()
{
    QFETCH(const LogFlags, flags);
    const DeviceTree tree;
    const ChildOutcome child = runInChild([&] {
        const StillClock clock;
        installMessageHandler(clock);
        setLogTargets(flags, openLog(tree));
        sayOneOfEach();
    });
    QCOMPARE(child.status, Returned);
    QCOMPARE(child.err, ""_ba);
    QTEST(child.out, "console");
    QTEST(tree.read(u"/log"_s), "file");
}

void TestMessageHandler::aFatalMessageEndsTheProcessWithOne()
{
    const DeviceTree tree;
    const ChildOutcome child = runInChild([&] {
        const StillClock clock;
        installMessageHandler(clock);
        setLogTargets({.logToFile = true}, openLog(tree));
        qFatal("lodestard: Already running. pid: %d", 4711);
    });
    QCOMPARE(child.status, 1);
    QCOMPARE(child.out, "09:05:02 Fatal: lodestard: Already running. pid: 4711\n"_ba);
    QCOMPARE(tree.read(u"/log"_s), child.out);
    QCOMPARE(child.err, ""_ba);
}

void TestMessageHandler::aSilentFatalMessageEndsTheProcessToo()
{
    const ChildOutcome child = runInChild([] {
        const StillClock clock;
        installMessageHandler(clock);
        setLogTargets({.warnings = false});
        qFatal("unheard");
    });
    QCOMPARE(child.status, 1);
    QCOMPARE(child.out, ""_ba);
    QCOMPARE(child.err, ""_ba);
}

// The child leaves by _exit, which writes out no buffer.
void TestMessageHandler::everyLineIsFlushedAtOnce()
{
    const DeviceTree tree;
    const ChildOutcome child = runInChild([&] {
        const StillClock clock;
        installMessageHandler(clock);
        setLogTargets({.logToFile = true, .verbose = true}, openLog(tree));
        qDebug("kept");
        ::_exit(0);
    });
    QCOMPARE(child.status, 0);
    QCOMPARE(child.out, "09:05:02 Debug: kept\n"_ba);
    QCOMPARE(tree.read(u"/log"_s), child.out);
}

void TestMessageHandler::debugLinesNobodyWantsAreNotFormatted()
{
    const ChildOutcome child = runInChild([] {
        const StillClock clock;
        installMessageHandler(clock);
        int formatted = 0;
        const auto say = [&formatted] { qCDebug(busyLog) << "line" << ++formatted; };
        setLogTargets({.verbose = true});
        say();
        setLogTargets({.warnings = true});
        say();
        ::_exit(formatted);
    });
    QCOMPARE(child.status, 1);
    QCOMPARE(child.out, "09:05:02 Debug: line 1\n"_ba);
}

void TestMessageHandler::theFileAloneKeepsDebugLinesAlive()
{
    const ChildOutcome child = runInChild([] {
        const StillClock clock;
        installMessageHandler(clock);
        setLogTargets({.logToFile = true, .warnings = false});
        ::_exit(QLoggingCategory::defaultCategory()->isDebugEnabled() ? 1 : 0);
    });
    QCOMPARE(child.status, 1);
}

void TestMessageHandler::messagesBeforeTheFlagsAreSettledFollowTheDefaults()
{
    const ChildOutcome child = runInChild([] {
        const StillClock clock;
        installMessageHandler(clock);
        sayOneOfEach();
    });
    QCOMPARE(child.status, Returned);
    QCOMPARE(child.out, "09:05:02 Warning: two\n09:05:02 Critical: three\n"_ba);
}

void TestMessageHandler::threadsDoNotMixTheirLines()
{
    constexpr int Lines = 500;
    const DeviceTree tree;
    const ChildOutcome child = runInChild([&] {
        const StillClock clock;
        installMessageHandler(clock);
        setLogTargets({.logToFile = true}, openLog(tree));
        const auto talk = [] {
            for (int i = 0; i < Lines; ++i)
                qWarning("from a thread");
        };
        std::thread other(talk);
        talk();
        other.join();
    });
    QCOMPARE(child.status, Returned);
    QCOMPARE(child.out, "09:05:02 Warning: from a thread\n"_ba.repeated(2 * Lines));
    QCOMPARE(tree.read(u"/log"_s), child.out);
}

void TestMessageHandler::aForkWhileAnotherThreadLogsLeavesTheChildItsVoice()
{
    const ChildOutcome child = runInChild([] {
        const SlowClock clock;
        installMessageHandler(clock);
        std::thread other([] { qWarning("from a thread"); });
        while (!clock.asked)
            std::this_thread::yield();
        const pid_t forked = ::fork();
        if (forked == 0) {
            ::alarm(10); // ends a child that waits for ever
            qWarning("from a child");
            ::_exit(0);
        }
        other.join();
        int status = -1;
        ::waitpid(forked, &status, 0);
        ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    });
    QCOMPARE(child.status, 0);
    QCOMPARE(child.out, "09:05:02 Warning: from a thread\n09:05:02 Warning: from a child\n"_ba);
}

QTEST_APPLESS_MAIN(TestMessageHandler)
#include "tst_messagehandler.moc"
