#include "core/processsignals.h"
#include "core/signalpipe.h"
#include "support/childprocess.h"

#include <QSignalSpy>
#include <QTest>

#include <cerrno>
#include <csignal>

using namespace Qt::StringLiterals;

class TestSignalPipe : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }
    void eachSignalIsRaisedOnceInTheEventLoop();
    void theHandlerLeavesErrnoAlone();
    void aFloodNeitherBlocksNorIsLostAltogether();
    void withoutAPipeTheSignalDoesNothing();
    void theWakeHandlerRestartsSystemCalls();
    void childrenAreNotWaitedFor();
    void exitStatus_data();
    void exitStatus();
    void otherSignalsAreIgnored();
};

void TestSignalPipe::eachSignalIsRaisedOnceInTheEventLoop()
{
    SignalPipe pipe;
    QVERIFY(pipe.isValid());
    installWakeHandler();
    QSignalSpy raised(&pipe, &SignalPipe::raised);

    ::raise(SIGUSR1);
    QCOMPARE(raised.count(), 0); // not in signal context
    QTRY_COMPARE(raised.count(), 1);

    ::raise(SIGUSR1);
    ::raise(SIGUSR1);
    QTRY_COMPARE(raised.count(), 3);
    QCoreApplication::processEvents();
    QCOMPARE(raised.count(), 3);
}

void TestSignalPipe::theHandlerLeavesErrnoAlone()
{
    const SignalPipe pipe;
    installWakeHandler();
    errno = EXDEV;
    ::raise(SIGUSR1);
    QCOMPARE(errno, EXDEV);
}

void TestSignalPipe::aFloodNeitherBlocksNorIsLostAltogether()
{
    SignalPipe pipe;
    QSignalSpy raised(&pipe, &SignalPipe::raised);
    for (int i = 0; i < 300000; ++i) // more than any socket buffer holds
        SignalPipe::notify();
    QTRY_VERIFY(raised.count() > 0);
}

void TestSignalPipe::withoutAPipeTheSignalDoesNothing()
{
    {
        const SignalPipe gone;
    }
    const ChildOutcome child = runInChild([] {
        installWakeHandler();
        ::raise(SIGUSR1);
        ::_exit(7);
    });
    QCOMPARE(child.status, 7);
}

void TestSignalPipe::theWakeHandlerRestartsSystemCalls()
{
    installWakeHandler();
    struct sigaction action = {};
    QCOMPARE(::sigaction(SIGUSR1, nullptr, &action), 0);
    QVERIFY(action.sa_flags & SA_RESTART);
    for (int signal = 1; signal < 32; ++signal)
        QCOMPARE(sigismember(&action.sa_mask, signal), 0);
}

void TestSignalPipe::childrenAreNotWaitedFor()
{
    const ChildOutcome child = runInChild([] {
        installExitHandlers();
        struct sigaction action = {};
        ::sigaction(SIGCHLD, nullptr, &action);
        ::_exit(action.sa_handler == SIG_IGN ? 7 : 8);
    });
    QCOMPARE(child.status, 7);
}

void TestSignalPipe::exitStatus_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("status");

    QTest::newRow("SIGHUP ends well") << SIGHUP << 0;
    QTest::newRow("SIGINT ends well") << SIGINT << 0;
    QTest::newRow("SIGTERM ends well") << SIGTERM << 0;
    QTest::newRow("SIGABRT ends badly") << SIGABRT << 1;
    QTest::newRow("SIGBUS ends badly") << SIGBUS << 1;
    QTest::newRow("SIGSEGV ends badly") << SIGSEGV << 1;
}

void TestSignalPipe::exitStatus()
{
    QFETCH(int, signal);
    const ChildOutcome raised = runInChild([signal] {
        installExitHandlers();
        ::raise(signal);
    });
    QTEST(raised.status, "status");
    QCOMPARE(raised.out + raised.err, QByteArray());
    const ChildOutcome called = runInChild([signal] { signalHandler(signal); });
    QTEST(called.status, "status");
}

void TestSignalPipe::otherSignalsAreIgnored()
{
    QTest::ignoreMessage(QtDebugMsg, "Ignore signal 28");
    signalHandler(28);
}

QTEST_GUILESS_MAIN(TestSignalPipe)
#include "tst_signalpipe.moc"
