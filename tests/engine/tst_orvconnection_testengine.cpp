#include "engine/enginesidecodec.h"
#include "engine/orvconnectiontest.h"
#include "support/childprocess.h"

#include <QElapsedTimer>

#include <signal.h>

using namespace Qt::StringLiterals;

// The test engine is launched, waited for, and not done without.
class TestOrvConnectionTestEngine : public OrvConnectionTest
{
    Q_OBJECT
private slots:
    void theTestEngineIsLaunchedWhenItDoesNotRun();
    void aSlowTestEngineIsTriedAgain_data();
    void aSlowTestEngineIsTriedAgain();
    void anUnreachableTestEngineIsTheEnd();

private:
    bool provideTestEngine() const;
    bool provideInterpreter(const QString &program) const;
};

namespace {

// The launched engine ends with its connection: its exit status.
int waitForEngine()
{
    int status = -1;
    const bool ended = QTest::qWaitFor([&status] { return ::waitpid(-1, &status, WNOHANG) > 0; }, 15000);
    return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What the test engine does: serves one connection and ends with it, or by itself.
int serveOneConnection(const char *script)
{
    QFile path(QFile::decodeName(script));
    if (!path.open(QIODevice::ReadOnly))
        return 2;
    FakeEngine engine(QFile::decodeName(path.readAll()));
    const auto receives = [&engine] { return engine.takeReceived() == QList<QByteArray>{Registration}; };
    if (!QTest::qWaitFor(receives, 10000))
        return 3;
    return engine.send(engineside::privacyRegistered(true)) &&
                   QTest::qWaitFor([&engine] { return engine.isLeft(); }, 10000)
               ? 0
               : 4;
}

// Like the daemon's handler: every line at once, and a fatal one is the last.
void writeLine(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    const QByteArray line = (type == QtFatalMsg ? "Fatal: " : "") + text.toUtf8() + '\n';
    if (::write(STDERR_FILENO, line.constData(), std::size_t(line.size())) < 0 || type == QtFatalMsg)
        ::_exit(1);
}

} // namespace

// This program under the interpreter's name: see serveOneConnection(). Its script is the socket's path.
bool TestOrvConnectionTestEngine::provideTestEngine() const
{
    return provideInterpreter(QCoreApplication::applicationFilePath()) &&
           QDir().mkpath(m_root->path() + u"/tmp"_s) &&
           write(m_root->path() + u"/usr/lib/lodestard-tests/fake_orv.py"_s,
                 QFile::encodeName(m_paths.testEngineSocket()));
}

bool TestOrvConnectionTestEngine::provideInterpreter(const QString &program) const
{
    const QString interpreter = m_root->path() + u"/usr/bin/python2.6"_s;
    return QDir().mkpath(QFileInfo(interpreter).path()) && QFile::link(program, interpreter);
}

void TestOrvConnectionTestEngine::theTestEngineIsLaunchedWhenItDoesNotRun()
{
    QVERIFY(provideTestEngine());
    const ScopedVariable source("POSITIONING_SOURCE", QByteArray("FAKE"));
    {
        ORVComm orv(m_paths);
        QCOMPARE(orv.init(), 0);
        const QStringList lines = take();
        QCOMPARE(lines.mid(0, 3), QStringList({u"debug: Connecting to fake orvd."_s,
                                               u"critical: MsgSockClient::connect: (socket) connect() : "
                                               "No such file or directory"_s,
                                               u"warning: Trying to launch fake orvd."_s}));
        QCOMPARE(lines.last(), u"warning: >>>>> Using fake position source! <<<<<<"_s);
        QTRY_COMPARE(m_log->lines().mid(1),
                     QStringList(u"debug: ORVComm::handlePrivacyRegistrationResponse privacy reg OK"_s));
    }
    QCOMPARE(waitForEngine(), 0);
}

void TestOrvConnectionTestEngine::aSlowTestEngineIsTriedAgain_data()
{
    QTest::addColumn<int>("attempts"); // that are announced
    QTest::newRow("it is there after the launch") << 0;
    QTest::newRow("it is there a second later") << 1;
    QTest::newRow("it is there at the last moment") << 4;
}

// The engine's socket appears with the line that comes before the attempt, so no machine is too slow.
void TestOrvConnectionTestEngine::aSlowTestEngineIsTriedAgain()
{
    QFETCH(int, attempts);
    QVERIFY(provideInterpreter(u"/bin/true"_s));
    QVERIFY(write(m_paths.marker(".fake_positioning")));
    std::optional<FakeEngine> engine;
    const QString again = u"warning: Trying to connect to fake ORV."_s;
    int left = attempts;
    m_log->onLine([&](const QString &line) {
        const bool isLaunch = line == u"warning: Trying to launch fake orvd."_s;
        if ((isLaunch || line == again) && left-- == 0)
            engine.emplace(m_paths.testEngineSocket());
    });

    ORVComm orv(m_paths);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(orv.init(), 0);
    QVERIFY(timer.elapsed() >= 200 + 1000 * attempts);
    QCOMPARE(engine->takeReceived(), QList<QByteArray>{Registration});

    QStringList expected{u"debug: Connecting to fake orvd."_s, u"warning: Trying to launch fake orvd."_s};
    for (int i = 0; i < attempts; ++i)
        expected.append(again);
    expected.append({u"debug: MsgSockClient::connect: Connected to orv."_s,
                     u"warning: >>>>> Using fake position source! <<<<<<"_s});
    QStringList lines = take();
    const QString refused = u"critical: MsgSockClient::connect: (socket) connect() : "
                            "No such file or directory"_s;
    QCOMPARE(lines.removeAll(refused), attempts + 1);
    QCOMPARE(lines, expected);
    QCOMPARE(waitForEngine(), 0);
}

void TestOrvConnectionTestEngine::anUnreachableTestEngineIsTheEnd()
{
    const ScopedVariable source("POSITIONING_SOURCE", QByteArray("FAKE"));
    QElapsedTimer timer;
    timer.start();
    const ChildOutcome child = runInChild([this] {
        ::signal(SIGCHLD, SIG_IGN);
        qInstallMessageHandler(&writeLine);
        ORVComm orv(m_paths);
        orv.init();
    });
    QVERIFY(timer.elapsed() >= 4200);
    QCOMPARE(child.status, 1);

    // The launched child writes to the same place, at a moment of its own.
    QList<QByteArray> lines = child.err.trimmed().split('\n');
    QCOMPARE(lines.removeAll(">>>>> Could not start fake orvd. <<<<<"), 0);
    QCOMPARE(lines.removeAll("Fatal: >>>>> Could not start fake orvd. <<<<<"), 1);
    const QByteArray refused = "MsgSockClient::connect: (socket) connect() : No such file or directory";
    const QByteArray again = "Trying to connect to fake ORV.";
    QCOMPARE(lines, QList<QByteArray>({"Connecting to fake orvd.", refused, "Trying to launch fake orvd.",
                                       refused, again, refused, again, refused, again, refused, again,
                                       refused, "Fatal: Connection to fake orvd failed."}));
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[0], "python2.6") == 0)
        return serveOneConnection(argv[1]);
    TestOrvConnectionTestEngine test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvconnection_testengine.moc"
