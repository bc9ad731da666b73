#include "engine/msgsocktest.h"

#include <QEvent>
#include <QPointer>
#include <QSignalSpy>

#include <fcntl.h>

using namespace Qt::StringLiterals;

// Connections that come about, the packets on them, and their end.
class TestMsgSockClient : public MsgSockTest
{
    Q_OBJECT
private slots:
    void withoutAPathThereIsNoSocketAndNoWord_data();
    void withoutAPathThereIsNoSocketAndNoWord();
    void aConnectionIsLoggedAndNotInherited();
    void aPathThatFillsTheAddressConnects();
    void exactlyTheHeadersLengthIsSent_data();
    void exactlyTheHeadersLengthIsSent();
    void everyPacketArrivesWhole();
    void aClosedConnectionIsAnnouncedOnce();
    void anActivationWithNothingToReadIsSilent();
    void aReceiverMayConnectAnewAtOnce();
    void aSecondConnectReplacesTheFirst();
    void aReceiverOfAMessageMayConnectAnew();
    void aShutdownWithoutAConnectionIsAnnouncedToo();
    void aShutdownClosesTheConnection();
    void signalsAndSlotsKeepTheirOrder();
};

namespace {

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

} // namespace

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

void TestMsgSockClient::aPathThatFillsTheAddressConnects()
{
    const QByteArray longest = (path() + QByteArray(108, 'x')).left(108);
    FakeEngine engine(QFile::decodeName(longest));
    QVERIFY(engine.isListening());
    MsgSockClient client;
    QCOMPARE(client.connect(longest.constData()), 0);
    QTRY_COMPARE(engine.connections(), 1);
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
