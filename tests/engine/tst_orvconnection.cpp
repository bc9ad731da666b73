#include "engine/orvcomm.h"
#include "engine/orvrecorder.h"
#include "support/childprocess.h"
#include "support/fakeengine.h"
#include "support/logcapture.h"
#include "support/scoped.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

#include <signal.h>

using namespace Qt::StringLiterals;

// Which engine is connected to, what is said on the way, and what its loss leaves behind.
class TestOrvConnection : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void theRealEngineIsRegisteredWith();
    void anUnreachableRealEngineIsNoEnd();
    void theSourceDecidesWhoIsConnected_data();
    void theSourceDecidesWhoIsConnected();
    void theSourceIsChosenAnewEveryTime();
    void theTestEngineIsLaunchedWhenItDoesNotRun();
    void aSlowTestEngineIsTriedAgain_data();
    void aSlowTestEngineIsTriedAgain();
    void anUnreachableTestEngineIsTheEnd();
    void losingTheEngineEndsTheSessionsWithoutAStateSignal();
    void anArmedWatchdogOutlivesTheConnection();
    void aReconnectionDoublesNothing();
    void aReceiverOfTheLossMayConnectAtOnce();
    void suplRequestsCountFromOneAfterAReconnection();
    void packetsFromTheSocketAreHandled();

private:
    bool write(const QString &path, const QByteArray &content = {}) const;
    bool provideTestEngine() const;
    bool provideInterpreter(const QString &program) const;
    void connectTo(FakeEngine &engine, ORVComm &orv);

    QStringList take() const { return m_log->takeLines(); }

    std::optional<ScopedVariable> m_noSource;
    std::unique_ptr<QTemporaryDir> m_root;
    DevicePaths m_paths;
    std::unique_ptr<LogCapture> m_log;
};

namespace {

const QByteArray Registration = QByteArray::fromHex("EF0C0006 0000");

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

void TestOrvConnection::init()
{
    m_noSource.emplace("POSITIONING_SOURCE", std::nullopt);
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_paths = DevicePaths{m_root->path()};
    m_log = std::make_unique<LogCapture>();
}

void TestOrvConnection::cleanup()
{
    m_log.reset();
    m_noSource.reset();
}

bool TestOrvConnection::write(const QString &path, const QByteArray &content) const
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(content) == content.size();
}

// This program under the interpreter's name: see serveOneConnection(). Its script is the socket's path.
bool TestOrvConnection::provideTestEngine() const
{
    return provideInterpreter(QCoreApplication::applicationFilePath()) &&
           QDir().mkpath(m_root->path() + u"/tmp"_s) &&
           write(m_root->path() + u"/usr/lib/lodestard-tests/fake_orv.py"_s,
                 QFile::encodeName(m_paths.testEngineSocket()));
}

bool TestOrvConnection::provideInterpreter(const QString &program) const
{
    const QString interpreter = m_root->path() + u"/usr/bin/python2.6"_s;
    return QDir().mkpath(QFileInfo(interpreter).path()) && QFile::link(program, interpreter);
}

void TestOrvConnection::connectTo(FakeEngine &engine, ORVComm &orv)
{
    QCOMPARE(orv.init(), 0);
    QCOMPARE(engine.takeReceived(), QList<QByteArray>{Registration});
}

void TestOrvConnection::theRealEngineIsRegisteredWith()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    QCOMPARE(orv.init(), 0);
    QCOMPARE(engine.takeReceived(), QList<QByteArray>{Registration});
    QCOMPARE(take(), QStringList({u"debug: Connecting to orvd."_s,
                                  u"debug: MsgSockClient::connect: Connected to orv."_s}));
    QCOMPARE(seen.take(), QStringList());
}

void TestOrvConnection::anUnreachableRealEngineIsNoEnd()
{
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    QCOMPARE(orv.init(), -1);
    QCOMPARE(take(), QStringList({u"debug: Connecting to orvd."_s,
                                  u"critical: MsgSockClient::connect: (socket) connect() : "
                                  "No such file or directory"_s,
                                  u"warning: Connection to orvd failed."_s}));
    QCOMPARE(orv.init(), -1);

    FakeEngine engine(m_paths.engineSocket());
    connectTo(engine, orv);
    QCOMPARE(seen.take(), QStringList());
}

void TestOrvConnection::theSourceDecidesWhoIsConnected_data()
{
    QTest::addColumn<QByteArray>("environment");
    QTest::addColumn<QStringList>("markers");
    QTest::addColumn<bool>("testEngine");
    const QString fake = u".fake_positioning"_s;
    const QString real = u".real_positioning"_s;

    QTest::newRow("nothing said") << QByteArray() << QStringList() << false;
    QTest::newRow("fake in lower case") << QByteArray("fake") << QStringList() << true;
    QTest::newRow("FAKE") << QByteArray("FAKE") << QStringList() << true;
    QTest::newRow("TEST is not FAKE") << QByteArray("TEST") << QStringList() << false;
    QTest::newRow("REAL") << QByteArray("REAL") << QStringList() << false;
    QTest::newRow("the marker beats REAL") << QByteArray("REAL") << QStringList(fake) << true;
    QTest::newRow("the other marker beats FAKE") << QByteArray("FAKE") << QStringList(real) << false;
    QTest::newRow("both markers") << QByteArray("FAKE") << QStringList({fake, real}) << false;
}

void TestOrvConnection::theSourceDecidesWhoIsConnected()
{
    QFETCH(QByteArray, environment);
    QFETCH(QStringList, markers);
    QFETCH(bool, testEngine);
    const ScopedVariable source("POSITIONING_SOURCE", environment);
    for (const QString &marker : markers)
        QVERIFY(write(m_paths.marker(marker.toLatin1().constData())));
    FakeEngine realEngine(m_paths.engineSocket());
    FakeEngine fakeEngine(m_paths.testEngineSocket());

    ORVComm orv(m_paths);
    QCOMPARE(orv.init(), 0);
    QCOMPARE(fakeEngine.takeReceived().size(), testEngine ? 1 : 0);
    QCOMPARE(realEngine.takeReceived().size(), testEngine ? 0 : 1);
    const QString connected = u"debug: MsgSockClient::connect: Connected to orv."_s;
    QCOMPARE(take(), testEngine ? QStringList({u"debug: Connecting to fake orvd."_s, connected,
                                               u"warning: >>>>> Using fake position source! <<<<<<"_s})
                                : QStringList({u"debug: Connecting to orvd."_s, connected}));
}

void TestOrvConnection::theSourceIsChosenAnewEveryTime()
{
    FakeEngine realEngine(m_paths.engineSocket());
    FakeEngine fakeEngine(m_paths.testEngineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(realEngine, orv);
    realEngine.drop();
    QTRY_COMPARE(seen.events, QStringList(u"lost"_s));

    QVERIFY(write(m_paths.marker(".fake_positioning")));
    connectTo(fakeEngine, orv);
}

void TestOrvConnection::theTestEngineIsLaunchedWhenItDoesNotRun()
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

void TestOrvConnection::aSlowTestEngineIsTriedAgain_data()
{
    QTest::addColumn<int>("attempts"); // that are announced
    QTest::newRow("it is there after the launch") << 0;
    QTest::newRow("it is there a second later") << 1;
    QTest::newRow("it is there at the last moment") << 4;
}

// The engine's socket appears with the line that comes before the attempt, so no machine is too slow.
void TestOrvConnection::aSlowTestEngineIsTriedAgain()
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

void TestOrvConnection::anUnreachableTestEngineIsTheEnd()
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

void TestOrvConnection::losingTheEngineEndsTheSessionsWithoutAStateSignal()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    feed(orv, positionReport(7));
    seen.take();

    engine.drop();
    QTRY_VERIFY(!seen.events.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(seen.take(), QStringList(u"lost"_s));
    feed(orv, positionReport(7)); // idle
    QCOMPARE(seen.take(), QStringList());
    orv.startGNSS(7, 1);
    QCOMPARE(seen.take(), QStringList(u"state 1"_s));
}

void TestOrvConnection::anArmedWatchdogOutlivesTheConnection()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    orv.startGNSS(8, 1);
    orv.setGNSSInterval(9, 1);
    QTimer *armed = watchdogs(orv).at(0);
    watchdogs(orv).at(1)->stop();
    seen.take();

    orv.onConnectionLost();
    QCOMPARE(seen.take(), QStringList(u"lost"_s));
    QTRY_COMPARE(watchdogs(orv), QList<QTimer *>{armed}); // the others would never fire
    QVERIFY(armed->isActive());
    QCOMPARE(armed->interval(), 120000);

    armed->start(0);
    QTRY_COMPARE(seen.events, QStringList(u"state 1"_s)); // and no session to tell of
    QTRY_COMPARE(watchdogs(orv).size(), 0);
}

void TestOrvConnection::aReconnectionDoublesNothing()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    engine.drop();
    QTRY_COMPARE(seen.events, QStringList(u"lost"_s));

    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    seen.take();
    QVERIFY(engine.send(positionReport(7)));
    QVERIFY(engine.send(positionReport(7)));
    QTRY_COMPARE(seen.events, QStringList({u"state 2"_s, u"fix 7"_s, u"fix 7"_s}));
    seen.take();
    engine.drop();
    QTRY_VERIFY(!seen.events.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(seen.take(), QStringList(u"lost"_s));
}

void TestOrvConnection::aReceiverOfTheLossMayConnectAtOnce()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connect(&orv, &ORVComm::connectionLost, &orv, [&orv] {
        QCOMPARE(orv.init(), 0);
        orv.startGNSS(8, 1);
    });
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    seen.take();
    engine.takeReceived();
    engine.drop();
    QTRY_COMPARE(engine.connections(), 2);
    QTRY_COMPARE(engine.received().size(), 2);
    QCOMPARE(engine.received().first(), Registration);
    QCOMPARE(seen.take(), QStringList({u"lost"_s, u"state 1"_s}));
    QVERIFY(engine.send(positionReport(8)));
    QTRY_COMPARE(seen.events, QStringList({u"state 2"_s, u"fix 8"_s}));
}

void TestOrvConnection::suplRequestsCountFromOneAfterAReconnection()
{
    const QByteArray first = QByteArray::fromHex("EF04000C 0001 0014 02 000000");
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.sendSUPLLocationRequest(20);
    orv.sendSUPLLocationRequest(20);
    QCOMPARE(engine.takeReceived().first(), first);
    engine.drop();
    QTRY_COMPARE(seen.events, QStringList(u"lost"_s));

    connectTo(engine, orv);
    orv.sendSUPLLocationRequest(20);
    QCOMPARE(engine.takeReceived(), QList<QByteArray>{first});
}

void TestOrvConnection::packetsFromTheSocketAreHandled()
{
    FakeEngine engine(m_paths.engineSocket());
    ORVComm orv(m_paths);
    OrvRecorder seen(orv);
    connectTo(engine, orv);
    orv.startGNSS(7, 1);
    seen.take();
    take();

    // The packet ends inside its sub-block, although its header and count promise more.
    QVERIFY(engine.send(positionReport(7).left(20)));
    QVERIFY(engine.send(engineside::privacyRegistered(false)));
    QTRY_COMPARE(m_log->lines(),
                 QStringList({u"debug: ORV Message received. id: 0xef03 length: 38"_s,
                              u"debug: ORVComm::handleGNSSNotification() session id: 7, status: 0x41"_s,
                              u"debug: ORV Message received. id: 0xef0d length: 8"_s,
                              u"critical: ORVComm::handlePrivacyRegistrationResponse privacy req FAILED"_s}));
    QCOMPARE(seen.take(), QStringList());

    // Outside a reception there is no packet, whatever the pointer says.
    take();
    const QByteArray stray = positionReport(7);
    orv.orvInbox(stray.constData());
    orv.orvInbox(nullptr);
    QCOMPARE(take(), QStringList());
    QCOMPARE(seen.take(), QStringList());
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[0], "python2.6") == 0)
        return serveOneConnection(argv[1]);
    TestOrvConnection test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvconnection.moc"
