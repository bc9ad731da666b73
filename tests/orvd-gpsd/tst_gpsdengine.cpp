#include "engine/msgsockclient.h"
#include "orvd-gpsd/gpsdengine.h"
#include "support/logcapture.h"
#include "support/stillclock.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <arpa/inet.h>
#include <optional>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orvdgpsd::GpsdEngine;

namespace {
// gpsd's side of its socket: says what the test tells it to.
class Gpsd
{
public:
    Gpsd() { listen(); }

    QByteArray port() const { return QByteArray::number(m_port); }
    // The same port again, after stop().
    void listen()
    {
        m_listener = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        const int on = 1;
        ::setsockopt(m_listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(m_port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        if (::bind(m_listener.get(), generic, length) != 0 || ::listen(m_listener.get(), 8) != 0 ||
            ::getsockname(m_listener.get(), generic, &length) != 0)
            qFatal("No port for gpsd");
        m_port = ntohs(address.sin_port);
    }
    void stop()
    {
        m_listener.reset();
        m_client.reset();
    }
    void hangUp()
    {
        isLeft(); // what is unread would make it a reset
        m_client.reset();
    }

    // The connections so far; the last one is the one that is talked to.
    int connections()
    {
        FileDescriptor next(::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (next.isValid()) {
            m_client = std::move(next);
            ++m_connections;
        }
        return m_connections;
    }
    bool isLeft()
    {
        char byte = 0;
        ssize_t count = 1;
        while (count > 0)
            count = ::recv(m_client.get(), &byte, 1, 0);
        return count == 0;
    }
    bool say(const QByteArray &report)
    {
        const QByteArray line = report + "\r\n";
        return ::send(m_client.get(), line.constData(), std::size_t(line.size()), MSG_NOSIGNAL) ==
               line.size();
    }

private:
    FileDescriptor m_listener;
    FileDescriptor m_client;
    quint16 m_port = 0;
    int m_connections = 0;
};

QByteArray fix(int second, int latitude = 50)
{
    return "{\"class\":\"TPV\",\"device\":\"/dev/gps\",\"mode\":3,\"time\":\"2023-11-14T22:00:" +
           QByteArray::number(second).rightJustified(2, '0') +
           ".000Z\",\"lat\":" + QByteArray::number(latitude) + ".0,\"lon\":4.0}";
}

const QByteArray NoFix = R"({"class":"TPV","device":"/dev/gps","mode":1})";

QByteArray sky(int prn)
{
    return R"({"class":"SKY","device":"/dev/gps","nSat":1,"uSat":0,"satellites":[{"PRN":)" +
           QByteArray::number(prn) + R"(,"el":45.0,"az":90.0,"ss":30.0,"used":false}]})";
}

const QByteArray Barrier = QByteArray::fromHex("EF0A0008 000000FF");
const QByteArray SingleFix = QByteArray::fromHex("EF04000C 0001 0014 02 000000");

QByteArray session(quint8 command)
{
    return QByteArray::fromHex("EF01000C 0007 0000") + char(command) + QByteArray::fromHex("02 0001");
}
constexpr quint8 Start = 0;
constexpr quint8 Stop = 2;
} // namespace

// The engine between a gpsd and a daemon, with a clock that the test winds.
class TestGpsdEngine : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void aSingleFixIsAnsweredFromAFreshFix_data();
    void aSingleFixIsAnsweredFromAFreshFix();
    void aSkyAloneNeitherAnswersASingleFixNorSpoilsTheLast();
    void aLostFixAnswersNoSingleFix();
    void aReceiverThatOnlySendsItsSkyIsShown();
    void gpsdIsLeftTenSecondsAfterTheLastSession();
    void gpsdIsKeptForASessionThatComesBack();
    void leavingGpsdForgetsTheFailedAttempts();
    void gpsdThatOnlyHangsUpIsTriedMoreAndMoreSlowly();
    void aConnectionThatASingleFixReopenedIsKept();
    void aDaemonThatCannotBeAcceptedIsAskedInLater();

private:
    int connectDaemon(MsgSockClient &daemon) const;
    void request(const QByteArray &message) { QCOMPARE(m_daemon->send(message.constData()), 0); }
    void barrier();
    void hear(const QByteArray &message);
    QTimer *timer(std::chrono::milliseconds interval) const;
    int count(const QString &line) const { return int(m_log->lines().count(line)); }

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LogCapture> m_log;
    StillClock m_clock;
    std::unique_ptr<Gpsd> m_gpsd;
    std::unique_ptr<GpsdEngine> m_engine;
    std::unique_ptr<MsgSockClient> m_daemon;
    QStringList m_heard; // reports, as short sentences
    int m_barriers = 0;  // that were answered
};

void TestGpsdEngine::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    m_log = std::make_unique<LogCapture>();
    m_clock = {};
    m_gpsd = std::make_unique<Gpsd>();
    m_engine =
        std::make_unique<GpsdEngine>(orvdgpsd::GpsdAddress{"127.0.0.1", m_gpsd->port(), {}}, 50ms, m_clock);
    QVERIFY(m_engine->listen(m_directory->filePath(u"engine"_s)));
    m_daemon = std::make_unique<MsgSockClient>();
    m_heard.clear();
    connect(m_daemon.get(), &MsgSockClient::messageReceived, this,
            [this](const char *bytes) { hear(QByteArray(bytes, qsizetype(m_daemon->received().size()))); });
    QCOMPARE(connectDaemon(*m_daemon), 0);
}

void TestGpsdEngine::cleanup()
{
    m_daemon.reset();
    m_engine.reset();
    m_gpsd.reset();
    m_log.reset();
}

int TestGpsdEngine::connectDaemon(MsgSockClient &daemon) const
{
    return daemon.connect(QFile::encodeName(m_directory->filePath(u"engine"_s)).constData());
}

// Returns when everything that the engine had to say so far is written down.
void TestGpsdEngine::barrier()
{
    const int before = m_barriers;
    request(Barrier);
    QTRY_VERIFY(m_barriers > before);
}

void TestGpsdEngine::hear(const QByteArray &message)
{
    const bool hasFix = message.size() > 20 && message.mid(8, 2) == "\xEF\x01";
    const double latitude =
        hasFix ? qFromBigEndian<qint32>(message.constData() + 12) * 360.0 / 4294967296.0 : 0.0;
    const QString where = hasFix ? u" %1"_s.arg(qRound(latitude)) : QString();
    if (message.startsWith("\xEF\x03"))
        m_heard.append((hasFix ? u"fix"_s : u"sky"_s) + where);
    else if (message.startsWith("\xEF\x05"))
        m_heard.append((message[6] == 0 ? u"single fix"_s : u"no single fix"_s) + where);
    else if (message.startsWith("\xEF\x0B"))
        ++m_barriers;
}

// The one that runs for so long.
QTimer *TestGpsdEngine::timer(std::chrono::milliseconds interval) const
{
    for (QTimer *found : m_engine->findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly)) {
        if (found->isActive() && found->intervalAsDuration() == interval)
            return found;
    }
    return nullptr;
}

void TestGpsdEngine::aSingleFixIsAnsweredFromAFreshFix_data()
{
    QTest::addColumn<int>("age");
    QTest::addColumn<QStringList>("answers");
    QTest::newRow("as old as it may be") << 3000 << QStringList({u"single fix 50"_s, u"fix 52"_s});
    QTest::newRow("too old") << 3001 << QStringList({u"fix 52"_s, u"single fix 52"_s});
}

void TestGpsdEngine::aSingleFixIsAnsweredFromAFreshFix()
{
    QFETCH(int, age);
    QFETCH(QStringList, answers);
    request(session(Start));
    QTRY_COMPARE(m_gpsd->connections(), 1);
    QVERIFY(m_gpsd->say(fix(1)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s));

    m_clock.elapsed += std::chrono::milliseconds(age);
    request(SingleFix);
    barrier();
    QVERIFY(m_gpsd->say(fix(10, 52)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s) + answers);
}

void TestGpsdEngine::aSkyAloneNeitherAnswersASingleFixNorSpoilsTheLast()
{
    request(session(Start));
    QTRY_COMPARE(m_gpsd->connections(), 1);
    QVERIFY(m_gpsd->say(fix(1)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s));
    QVERIFY(m_gpsd->say(sky(1)));
    QVERIFY(m_gpsd->say(sky(2)));
    QTRY_COMPARE(m_heard, QStringList({u"fix 50"_s, u"sky"_s}));
    request(SingleFix);
    QTRY_COMPARE(m_heard, QStringList({u"fix 50"_s, u"sky"_s, u"single fix 50"_s}));

    m_heard.clear();
    m_clock.elapsed += 4s;
    request(SingleFix);
    barrier();
    QVERIFY(m_gpsd->say(sky(3)));
    QTRY_COMPARE(m_heard, QStringList(u"sky"_s));
    QVERIFY(m_gpsd->say(fix(5)));
    QTRY_COMPARE(m_heard, QStringList({u"sky"_s, u"fix 50"_s, u"single fix 50"_s}));
}

void TestGpsdEngine::aLostFixAnswersNoSingleFix()
{
    request(session(Start));
    QTRY_COMPARE(m_gpsd->connections(), 1);
    QVERIFY(m_gpsd->say(fix(1)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s));
    QVERIFY(m_gpsd->say(sky(1)));
    QVERIFY(m_gpsd->say(NoFix));
    QTRY_COMPARE(m_heard, QStringList({u"fix 50"_s, u"sky"_s}));
    request(SingleFix);
    barrier();
    QCOMPARE(m_heard.size(), 2);
}

void TestGpsdEngine::aReceiverThatOnlySendsItsSkyIsShown()
{
    request(session(Start));
    QTRY_COMPARE(m_gpsd->connections(), 1);
    QVERIFY(m_gpsd->say(fix(1)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s));
    // A fix may still follow: this is waited for longer than for the rest of an epoch.
    QVERIFY(m_gpsd->say(sky(1)));
    QTRY_VERIFY(timer(1600ms));
    timer(1600ms)->start(0);
    QTRY_COMPARE(m_heard, QStringList({u"fix 50"_s, u"sky"_s}));
}

void TestGpsdEngine::gpsdIsLeftTenSecondsAfterTheLastSession()
{
    request(session(Start));
    QTRY_COMPARE(m_gpsd->connections(), 1);
    QVERIFY(!timer(10s));
    request(session(Stop));
    QTRY_VERIFY(timer(10s));
    QVERIFY(timer(10s)->isSingleShot());
    QVERIFY(!m_gpsd->isLeft());
    QCOMPARE(count(u"info: Nobody waits for a position, leaving gpsd"_s), 0);

    timer(10s)->start(0);
    QTRY_VERIFY(m_gpsd->isLeft());
    QCOMPARE(count(u"info: Nobody waits for a position, leaving gpsd"_s), 1);

    request(session(Start)); // and fetched again
    QTRY_COMPARE(m_gpsd->connections(), 2);
}

void TestGpsdEngine::gpsdIsKeptForASessionThatComesBack()
{
    request(session(Start));
    QTRY_COMPARE(m_gpsd->connections(), 1);
    request(session(Stop));
    QTRY_VERIFY(timer(10s));
    request(session(Start));
    QTRY_VERIFY(!timer(10s));
    QVERIFY(m_gpsd->say(fix(1)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s));
    QCOMPARE(m_gpsd->connections(), 1);
}

void TestGpsdEngine::leavingGpsdForgetsTheFailedAttempts()
{
    m_gpsd->stop();
    const QString first = u"debug: Trying gpsd again in 100 ms"_s;
    request(session(Start));
    QTRY_COMPARE(count(u"debug: Trying gpsd again in 400 ms"_s), 1);
    QCOMPARE(count(first), 1);
    request(session(Stop));
    QTRY_VERIFY(timer(10s));
    timer(10s)->start(0);
    QTRY_COMPARE(count(u"info: Nobody waits for a position, leaving gpsd"_s), 1);
    QCOMPARE(m_log->lines().filter(u"gpsd cannot be reached"_s).size(), 1);

    request(session(Start));
    QTRY_COMPARE(count(first), 2);
    QCOMPARE(m_log->lines().filter(u"warning: gpsd cannot be reached ("_s).size(), 2);

    m_gpsd->listen();
    QTRY_COMPARE(m_gpsd->connections(), 1);
}

void TestGpsdEngine::gpsdThatOnlyHangsUpIsTriedMoreAndMoreSlowly()
{
    request(session(Start));
    QStringList expected;
    int connection = 0;
    for (const int delay : {100, 200, 400, 800, 1000, 1000}) {
        ++connection;
        QTRY_COMPARE(m_gpsd->connections(), connection);
        m_gpsd->hangUp();
        expected.append(u"debug: Trying gpsd again in %1 ms"_s.arg(delay));
        QTRY_COMPARE(m_log->lines().filter(u"Trying gpsd again"_s), expected);
    }
    // One that has something to say is a good one.
    QTRY_COMPARE(m_gpsd->connections(), connection + 1);
    QVERIFY(m_gpsd->say(fix(1)));
    QTRY_COMPARE(m_heard, QStringList(u"fix 50"_s));
    m_gpsd->hangUp();
    expected.append(u"debug: Trying gpsd again in 100 ms"_s);
    QTRY_COMPARE(m_log->lines().filter(u"Trying gpsd again"_s), expected);
}

void TestGpsdEngine::aConnectionThatASingleFixReopenedIsKept()
{
    request(session(Start));
    request(SingleFix);
    QTRY_COMPARE(m_gpsd->connections(), 1);
    QVERIFY(m_gpsd->say(fix(1)));
    m_gpsd->hangUp(); // with the epoch open: its end answers the single fix
    QTRY_COMPARE(m_gpsd->connections(), 2);
    QTRY_COMPARE(m_heard, QStringList({u"fix 50"_s, u"single fix 50"_s}));
    QVERIFY(!timer(100ms));
    QCOMPARE(m_log->lines().filter(u"Trying gpsd again"_s), QStringList());
    QVERIFY(m_gpsd->say(fix(2, 51)));
    QTRY_COMPARE(m_heard, QStringList({u"fix 50"_s, u"single fix 50"_s, u"fix 51"_s}));
    QVERIFY(!m_gpsd->isLeft());
}

void TestGpsdEngine::aDaemonThatCannotBeAcceptedIsAskedInLater()
{
    barrier(); // the first one is in
    rlimit normal{};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &normal), 0);
    const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    QVERIFY(next >= 0);
    ::close(next);
    const rlimit oneMore{.rlim_cur = rlim_t(next) + 1, .rlim_max = normal.rlim_max};
    const QString refused =
        u"warning: A daemon cannot be accepted (Too many open files), trying again in a second"_s;

    MsgSockClient second;
    QSignalSpy answers(&second, &MsgSockClient::messageReceived);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &oneMore), 0);
    const int connected = connectDaemon(second);
    const bool isTold = QTest::qWaitFor([&] { return count(refused) > 0; }, 10000);
    barrier(); // the other one is served in the meantime
    barrier();
    const bool isToldOnce = count(refused) == 1;
    QTimer *pause = timer(1s);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &normal), 0);
    QCOMPARE(connected, 0);
    QVERIFY(isTold);
    QVERIFY(isToldOnce);
    QVERIFY(pause);
    pause->start(0);
    QCOMPARE(second.send(Barrier.constData()), 0);
    QTRY_COMPARE(answers.size(), 1);
}

QTEST_GUILESS_MAIN(TestGpsdEngine)
#include "tst_gpsdengine.moc"
