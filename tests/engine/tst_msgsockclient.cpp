#include "engine/msgsockclient.h"
#include "support/fakeengine.h"
#include "support/logcapture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEvent>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>

using namespace Qt::StringLiterals;

class TestMsgSockClient : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void withoutAPathThereIsNoSocketAndNoWord_data();
    void withoutAPathThereIsNoSocketAndNoWord();
    void aConnectionIsLoggedAndNotInherited();
    void aFailedConnectLeavesNoDescriptor();
    void aPathThatIsTooLongFails();
    void aPathThatFillsTheAddressConnects();
    void aProcessWithoutDescriptorsCannotConnect();
    void anEngineThatNeverAcceptsIsGivenUp_data() { addSignalRows(); }
    void anEngineThatNeverAcceptsIsGivenUp();
    void aSignalDoesNotEndTheAttempt();
    void exactlyTheHeadersLengthIsSent_data();
    void exactlyTheHeadersLengthIsSent();
    void sendingWithoutAConnectionFails();
    void sendingToAnEngineThatWentFails();
    void sendingToAnEngineThatNeverReadsIsGivenUp_data() { addSignalRows(); }
    void sendingToAnEngineThatNeverReadsIsGivenUp();
    void everyPacketArrivesWhole();
    void aClosedConnectionIsAnnouncedOnce();
    void anActivationWithNothingToReadIsSilent();
    void aReadErrorKeepsTheConnection();
    void aReceiverMayConnectAnewAtOnce();
    void aSecondConnectReplacesTheFirst();
    void aReceiverOfAMessageMayConnectAnew();
    void aShutdownWithoutAConnectionIsAnnouncedToo();
    void aShutdownClosesTheConnection();
    void signalsAndSlotsKeepTheirOrder();

private:
    static void addSignalRows();
    QByteArray path() const { return QFile::encodeName(m_directory->filePath(u"engine"_s)); }

    std::unique_ptr<QTemporaryDir> m_directory;
};

namespace {

// The numbers of this process's descriptors that are sockets.
QStringList openSockets()
{
    QStringList names =
        QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    names.removeIf([](const QString &name) {
        return !QFile::symLinkTarget(u"/proc/self/fd/"_s + name).contains("socket:"_L1);
    });
    return names;
}

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

// The socket notifier that was activated last.
class NotifierWatch : public QObject
{
public:
    NotifierWatch() { QCoreApplication::instance()->installEventFilter(this); }
    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == QEvent::SockAct)
            last = object;
        return false;
    }

    QPointer<QObject> last;
};

QByteArray message(quint8 length, int bufferSize)
{
    QByteArray bytes(bufferSize, '\x55');
    bytes[0] = char(0xEF);
    bytes[1] = char(0x01);
    bytes[2] = 0;
    bytes[3] = char(length);
    return bytes;
}

} // namespace

void TestMsgSockClient::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

void TestMsgSockClient::withoutAPathThereIsNoSocketAndNoWord_data()
{
    QTest::addColumn<bool>("null");
    QTest::newRow("no path") << true;
    QTest::newRow("an empty path") << false;
}

void TestMsgSockClient::withoutAPathThereIsNoSocketAndNoWord()
{
    QFETCH(bool, null);
    LogCapture log;
    MsgSockClient client;
    const auto sockets = openSockets().size();
    QCOMPARE(client.connect(null ? nullptr : ""), -1);
    QCOMPARE(openSockets().size(), sockets);
    QVERIFY(!client.isConnected());
    QCOMPARE(log.lines(), QStringList());
}

void TestMsgSockClient::aConnectionIsLoggedAndNotInherited()
{
    FakeEngine engine(QFile::decodeName(path()));
    LogCapture log;
    MsgSockClient client;
    const QStringList before = openSockets();
    QCOMPARE(client.connect(path().constData()), 0);
    QVERIFY(client.isConnected());
    QCOMPARE(log.lines(), QStringList(u"debug: MsgSockClient::connect: Connected to orv."_s));

    int found = 0;
    for (const QString &name : openSockets()) {
        const int flags = before.contains(name) ? -1 : ::fcntl(name.toInt(), F_GETFD);
        if (flags == -1)
            continue;
        ++found;
        QVERIFY((flags & FD_CLOEXEC) != 0);
    }
    QCOMPARE(found, 1);
    QTRY_COMPARE(engine.connections(), 1);
}

void TestMsgSockClient::aFailedConnectLeavesNoDescriptor()
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

void TestMsgSockClient::aPathThatIsTooLongFails()
{
    LogCapture log;
    MsgSockClient client;
    QCOMPARE(client.connect(QByteArray(109, 'x').constData()), -1);
    QCOMPARE(log.lines(),
             QStringList(u"critical: MsgSockClient::connect: (socket) connect() : File name too long"_s));
}

void TestMsgSockClient::aPathThatFillsTheAddressConnects()
{
    const QByteArray longest = (path() + QByteArray(108, 'x')).left(108);
    FakeEngine engine(QFile::decodeName(longest));
    QVERIFY(engine.isListening());
    MsgSockClient client;
    QCOMPARE(client.connect(longest.constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);
}

void TestMsgSockClient::aProcessWithoutDescriptorsCannotConnect()
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

void TestMsgSockClient::addSignalRows()
{
    QTest::addColumn<int>("alarms");
    QTest::addColumn<QString>("reason");
    QTest::newRow("undisturbed") << int(Alarms::None) << u"Resource temporarily unavailable"_s;
    QTest::newRow("with signal after signal") << int(Alarms::Many) << u"Interrupted system call"_s;
}

void TestMsgSockClient::anEngineThatNeverAcceptsIsGivenUp()
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

void TestMsgSockClient::aSignalDoesNotEndTheAttempt()
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

void TestMsgSockClient::exactlyTheHeadersLengthIsSent_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("the shortest message") << 6;
    QTest::newRow("a message of 12 bytes in a longer buffer") << 12;
    QTest::newRow("a message that fills its buffer") << 40;
}

void TestMsgSockClient::exactlyTheHeadersLengthIsSent()
{
    QFETCH(int, length);
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QCOMPARE(client.connect(path().constData()), 0);

    LogCapture log;
    const QByteArray bytes = message(quint8(length), 40);
    QCOMPARE(client.send(bytes.constData()), 0);
    QTRY_COMPARE(engine.received(), QList<QByteArray>{bytes.left(length)});
    QCOMPARE(log.lines(), QStringList());
}

void TestMsgSockClient::sendingWithoutAConnectionFails()
{
    LogCapture log;
    MsgSockClient client;
    QCOMPARE(client.send(message(12, 12).constData()), -1);
    QCOMPARE(log.lines(), QStringList(u"critical: MsgSockClient::send: send() : Bad file descriptor"_s));
}

void TestMsgSockClient::sendingToAnEngineThatWentFails()
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

void TestMsgSockClient::sendingToAnEngineThatNeverReadsIsGivenUp()
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

void TestMsgSockClient::everyPacketArrivesWhole()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QList<QByteArray> messages;
    connect(&client, &MsgSockClient::messageReceived, this, [&](const char *bytes) {
        QVERIFY(static_cast<const void *>(client.received().data()) == bytes);
        messages.append(QByteArray(bytes, qsizetype(client.received().size())));
    });
    QCOMPARE(client.connect(path().constData()), 0);

    // Lengths in headers mean nothing here: what was received counts.
    const QList<QByteArray> sent{message(99, 8), QByteArray("\xEF", 1), QByteArray(8192, '\x7F')};
    for (const QByteArray &packet : sent)
        QVERIFY(engine.send(packet));
    QTRY_COMPARE(messages, sent);
    QVERIFY(client.received().empty());
}

void TestMsgSockClient::aClosedConnectionIsAnnouncedOnce()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QSignalSpy lost(&client, &MsgSockClient::connectionLost);
    QSignalSpy messages(&client, &MsgSockClient::messageReceived);
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_VERIFY(engine.isConnected());
    const auto sockets = openSockets().size();

    LogCapture log;
    engine.drop();
    QTRY_COMPARE(lost.size(), 1);
    QVERIFY(!client.isConnected());
    QCOMPARE(openSockets().size(), sockets - 2); // both ends
    QCoreApplication::processEvents();
    QCOMPARE(lost.size(), 1);
    QCOMPARE(messages.size(), 0);
    QCOMPARE(log.lines(), QStringList({u"warning: MsgSockClient::inMessage: Connection to ORV lost."_s,
                                       u"debug: MsgSockClient::shutdown()"_s}));
    QCOMPARE(client.send(message(12, 12).constData()), -1); // the descriptor is not kept
    QCOMPARE(log.lines().last(), u"critical: MsgSockClient::send: send() : Bad file descriptor"_s);
}

void TestMsgSockClient::anActivationWithNothingToReadIsSilent()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QSignalSpy lost(&client, &MsgSockClient::connectionLost);
    QSignalSpy messages(&client, &MsgSockClient::messageReceived);
    QCOMPARE(client.connect(path().constData()), 0);

    LogCapture log;
    QVERIFY(QMetaObject::invokeMethod(&client, "inMessage", Q_ARG(int, 0)));
    QCOMPARE(log.lines(), QStringList());
    QCOMPARE(lost.size() + messages.size(), 0);
    QVERIFY(client.isConnected());
}

void TestMsgSockClient::aReadErrorKeepsTheConnection()
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

void TestMsgSockClient::aReceiverMayConnectAnewAtOnce()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    int lost = 0;
    connect(&client, &MsgSockClient::connectionLost, this, [&] {
        if (++lost == 1)
            QCOMPARE(client.connect(path().constData()), 0);
    });
    QSignalSpy messages(&client, &MsgSockClient::messageReceived);
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);

    engine.drop();
    QTRY_COMPARE(engine.connections(), 2);
    QVERIFY(client.isConnected());
    QVERIFY(engine.send(message(8, 8)));
    QTRY_COMPARE(messages.size(), 1);
    QCOMPARE(lost, 1);
    engine.drop();
    QTRY_COMPARE(lost, 2);
    QVERIFY(!client.isConnected());
}

void TestMsgSockClient::aSecondConnectReplacesTheFirst()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QSignalSpy lost(&client, &MsgSockClient::connectionLost);
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);
    const auto sockets = openSockets().size();

    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_COMPARE(engine.connections(), 2);
    QCOMPARE(openSockets().size(), sockets);
    QCOMPARE(lost.size(), 0);
}

void TestMsgSockClient::aReceiverOfAMessageMayConnectAnew()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    NotifierWatch watch;
    int messages = 0;
    connect(&client, &MsgSockClient::messageReceived, this, [&] {
        if (++messages > 1)
            return;
        QVERIFY(watch.last);
        QCOMPARE(client.connect(path().constData()), 0);
        QVERIFY2(watch.last, "the notifier is on the stack");
    });
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);
    QVERIFY(engine.send(message(8, 8)));
    QTRY_COMPARE(engine.connections(), 2);
    QVERIFY(engine.send(message(8, 8)));
    QTRY_COMPARE(messages, 2);
}

void TestMsgSockClient::aShutdownWithoutAConnectionIsAnnouncedToo()
{
    MsgSockClient client;
    QSignalSpy lost(&client, &MsgSockClient::connectionLost);
    LogCapture log;
    client.shutdown();
    QCOMPARE(log.lines(), QStringList(u"debug: MsgSockClient::shutdown()"_s));
    QCOMPARE(lost.size(), 1);
    QVERIFY(!client.isConnected());

    FakeEngine engine(QFile::decodeName(path()));
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);
}

void TestMsgSockClient::aShutdownClosesTheConnection()
{
    FakeEngine engine(QFile::decodeName(path()));
    MsgSockClient client;
    QCOMPARE(client.connect(path().constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);
    const auto sockets = openSockets().size();
    QSignalSpy lost(&client, &MsgSockClient::connectionLost);

    client.shutdown();
    QCOMPARE(openSockets().size(), sockets - 1);
    QCOMPARE(lost.size(), 1);
    QVERIFY(!client.isConnected());
    client.shutdown();
    QCOMPARE(openSockets().size(), sockets - 1);
}

void TestMsgSockClient::signalsAndSlotsKeepTheirOrder()
{
    const QMetaObject &meta = MsgSockClient::staticMetaObject;
    QList<QByteArray> signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures.append(meta.method(i).methodSignature());
    QCOMPARE(signatures,
             QList<QByteArray>({"messageReceived(const char*)", "connectionLost()", "inMessage(int)"}));
}

QTEST_GUILESS_MAIN(TestMsgSockClient)
#include "tst_msgsockclient.moc"
