#include "engine/msgsocktest.h"

#include <QElapsedTimer>
#include <QSignalSpy>

#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>

using namespace Qt::StringLiterals;

// Connecting, sending and reading that fail, and how long they try.
class TestMsgSockClientTrouble : public MsgSockTest
{
    Q_OBJECT
private slots:
    void aFailedConnectLeavesNoDescriptor();
    void aPathThatIsTooLongFails();
    void aProcessWithoutDescriptorsCannotConnect();
    void anEngineThatNeverAcceptsIsGivenUp_data() { addSignalRows(); }
    void anEngineThatNeverAcceptsIsGivenUp();
    void aSignalDoesNotEndTheAttempt();
    void sendingWithoutAConnectionFails();
    void sendingToAnEngineThatWentFails();
    void sendingToAnEngineThatNeverReadsIsGivenUp_data() { addSignalRows(); }
    void sendingToAnEngineThatNeverReadsIsGivenUp();
    void aReadErrorKeepsTheConnection();

private:
    static void addSignalRows();
};

namespace {

int s_listener = -1; // the signal takes a connection from it

// Takes the process out of its system calls, once or again and again; they do not go on by themselves.
class Alarms
{
public:
    enum Count { None, One, Many };

    explicit Alarms(Count count)
    {
        struct sigaction action {
        };
        action.sa_handler = [](int) {
            if (s_listener >= 0)
                ::accept(s_listener, nullptr, nullptr);
        };
        ::sigaction(SIGALRM, &action, &m_before);
        const timeval tenth{.tv_sec = 0, .tv_usec = 100000};
        const itimerval times{.it_interval = count == Many ? tenth : timeval{},
                              .it_value = count == None ? timeval{} : tenth};
        ::setitimer(ITIMER_REAL, &times, nullptr);
    }
    ~Alarms()
    {
        const itimerval none{};
        ::setitimer(ITIMER_REAL, &none, nullptr);
        ::sigaction(SIGALRM, &m_before, nullptr);
    }
    Alarms(const Alarms &) = delete;
    Alarms &operator=(const Alarms &) = delete;

private:
    struct sigaction m_before {
    };
};

} // namespace

void TestMsgSockClientTrouble::addSignalRows()
{
    QTest::addColumn<int>("alarms");
    QTest::addColumn<QString>("reason");
    QTest::newRow("undisturbed") << int(Alarms::None) << u"Resource temporarily unavailable"_s;
    QTest::newRow("with signal after signal") << int(Alarms::Many) << u"Interrupted system call"_s;
}

void TestMsgSockClientTrouble::aFailedConnectLeavesNoDescriptor()
{
    LogCapture log;
    MsgSockClient client;
    const auto sockets = openSockets().size();
    QCOMPARE(client.connect(path().constData()), -1);
    QCOMPARE(openSockets().size(), sockets);
    QVERIFY(!client.isConnected());
    QCOMPARE(log.lines(), QStringList(u"critical: MsgSockClient::connect: (socket) connect() : "
                                      "No such file or directory"_s));
}

void TestMsgSockClientTrouble::aPathThatIsTooLongFails()
{
    LogCapture log;
    MsgSockClient client;
    QCOMPARE(client.connect(QByteArray(109, 'x').constData()), -1);
    QCOMPARE(log.lines(),
             QStringList(u"critical: MsgSockClient::connect: (socket) connect() : File name too long"_s));
}

void TestMsgSockClientTrouble::aProcessWithoutDescriptorsCannotConnect()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    rlimit normal{};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &normal), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = normal.rlim_max};

    LogCapture log;
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = client.connect(path().constData());
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &normal), 0);
    QCOMPARE(result, -1);
    QCOMPARE(log.lines(), QStringList(u"warning: MsgSockClient::connect: socket() : Too many open files"_s));
}

void TestMsgSockClientTrouble::anEngineThatNeverAcceptsIsGivenUp()
{
    QFETCH(int, alarms);
    QFETCH(QString, reason);
    FakeEngine engine(QFile::decodeName(path())); // accepts in the event loop, which does not run here
    MsgSockClient waiting;
    QCOMPARE(waiting.connect(path().constData()), 0);

    LogCapture log;
    MsgSockClient client;
    QElapsedTimer timer;
    timer.start();
    {
        const Alarms disturbance{Alarms::Count(alarms)};
        QCOMPARE(client.connect(path().constData()), -1);
    }
    QVERIFY(timer.elapsed() >= 1900);
    QVERIFY2(timer.elapsed() < 10000, "connect() has to give up");
    QCOMPARE(log.lines(), QStringList(u"critical: MsgSockClient::connect: (socket) connect() : "_s + reason));
}

void TestMsgSockClientTrouble::aSignalDoesNotEndTheAttempt()
{
    const QStringList before = openSockets();
    FakeEngine engine(QFile::decodeName(path()));
    QStringList added = openSockets();
    added.removeIf([&before](const QString &name) { return before.contains(name); });
    QCOMPARE(added.size(), 1);
    MsgSockClient waiting;
    QCOMPARE(waiting.connect(path().constData()), 0);

    LogCapture log;
    MsgSockClient client;
    s_listener = added.first().toInt();
    int result = -1;
    {
        const Alarms disturbance{Alarms::One}; // and makes room
        result = client.connect(path().constData());
    }
    s_listener = -1;
    QCOMPARE(result, 0);
    QVERIFY(client.isConnected());
    QCOMPARE(log.lines(), QStringList(u"debug: MsgSockClient::connect: Connected to orv."_s));
}

void TestMsgSockClientTrouble::sendingWithoutAConnectionFails()
{
    LogCapture log;
    MsgSockClient client;
    QCOMPARE(client.send(message(12, 12).constData()), -1);
    QCOMPARE(log.lines(), QStringList(u"critical: MsgSockClient::send: send() : Bad file descriptor"_s));
}

void TestMsgSockClientTrouble::sendingToAnEngineThatWentFails()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_VERIFY(engine.isConnected());
    engine.drop();

    LogCapture log;
    QCOMPARE(client.send(message(12, 12).constData()), -1);
    QCOMPARE(log.lines(), QStringList(u"critical: MsgSockClient::send: send() : Broken pipe"_s));
}

void TestMsgSockClientTrouble::sendingToAnEngineThatNeverReadsIsGivenUp()
{
    QFETCH(int, alarms);
    QFETCH(QString, reason);
    FakeEngine engine(QFile::decodeName(path()), FakeEngine::NeverReads);
    MsgSockClient client;
    QCOMPARE(client.connect(path().constData()), 0);

    LogCapture log;
    QElapsedTimer timer;
    int sent = 0;
    const Alarms disturbance{Alarms::Count(alarms)};
    for (timer.start(); client.send(message(200, 200).constData()) == 0; timer.restart())
        QVERIFY2(++sent < 100000, "the socket never fills");
    QVERIFY(sent > 0);
    QVERIFY(timer.elapsed() >= 1900);
    QVERIFY(timer.elapsed() < 10000);
    QCOMPARE(log.lines(), QStringList(u"critical: MsgSockClient::send: send() : "_s + reason));
    QVERIFY(client.isConnected());
}

void TestMsgSockClientTrouble::aReadErrorKeepsTheConnection()
{
    FakeEngine engine(QFile::decodeName(path()), FakeEngine::NeverReads);
    MsgSockClient client;
    QCOMPARE(client.connect(path().constData()), 0);
    QCOMPARE(client.send(message(12, 12).constData()), 0);
    QTRY_VERIFY(engine.isConnected());
    engine.drop(); // with a packet unread: the peer sees a reset before the end
    QSignalSpy lost(&client, &MsgSockClient::connectionLost);

    LogCapture log;
    QVERIFY(QMetaObject::invokeMethod(&client, "inMessage", Q_ARG(int, 0)));
    QCOMPARE(
        log.takeLines(),
        QStringList(u"critical: MsgSockClient::inMessage: Unable to read! (Connection reset by peer)"_s));
    QVERIFY(client.isConnected());
    QCOMPARE(lost.size(), 0);

    QTRY_COMPARE(lost.size(), 1); // the end itself is the next thing to read
    QCOMPARE(log.lines().first(), u"warning: MsgSockClient::inMessage: Connection to ORV lost."_s);
}

QTEST_GUILESS_MAIN(TestMsgSockClientTrouble)
#include "tst_msgsockclient_trouble.moc"
