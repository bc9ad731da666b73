#include "network/dbusservervesk.h"
#include "network/dbusserverveskif.h"
#include "support/leavebus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QMetaMethod>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString Path = u"/com/varn/lodestard/vesk"_s;
const QString Interface = u"com.varn.lodestard.vesk"_s;

class FakeHandler : public DBusServerVESKIF
{
public:
    void VESKRequest(int command) override { commands.append(command); }
    QList<int> commands;
};

} // namespace

// Hears the broadcasts on a connection of its own.
class Peer : public QObject
{
    Q_OBJECT
public:
    explicit Peer(const QString &sender)
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"peer"_s))
    {
        for (const char *name : {"positionMessage", "settingMessage"}) {
            m_bus.connect(sender, Path, Interface, QString::fromLatin1(name), this,
                          SLOT(heard(QDBusMessage)));
        }
    }
    ~Peer() override { leaveBus(m_bus); }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    QDBusConnection &bus() { return m_bus; }
    QList<QDBusMessage> messages;

public slots:
    void heard(const QDBusMessage &message) { messages.append(message); }

private:
    QDBusConnection m_bus;
};

class DBusServerVESKTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void passesRequestsOn();
    void answersNobodyWhoAsksForAReply();
    void refusesOtherArguments();
    void broadcastsAPosition();
    void broadcastsASetting();
    void ordersItsSignals();

private:
    QDBusMessage call(const QVariantList &arguments) const
    {
        auto message = QDBusMessage::createMethodCall(m_bus.baseService(), Path, Interface, u"request"_s);
        message.setArguments(arguments);
        return message;
    }
    // What the object refuses it answers, and in turn: all that came before has been dealt with then.
    void settle(QDBusConnection &bus) const
    {
        QDBusPendingCall reply = bus.asyncCall(call({}));
        QTRY_VERIFY(reply.isFinished());
    }

    QDBusConnection m_bus = QDBusConnection::sessionBus();
    FakeHandler m_handler;
    std::unique_ptr<QObject> m_host;
    DBusServerVESK *m_server = nullptr;
    std::unique_ptr<Peer> m_peer;
};

void DBusServerVESKTest::initTestCase()
{
    QVERIFY(m_bus.isConnected());
}

void DBusServerVESKTest::init()
{
    m_handler.commands.clear();
    m_host = std::make_unique<QObject>();
    m_server = new DBusServerVESK(m_host.get(), &m_handler);
    QVERIFY(m_bus.registerObject(Path, m_host.get()));
    m_peer = std::make_unique<Peer>(m_bus.baseService());
    settle(m_peer->bus()); // its match rules are at the bus
}

void DBusServerVESKTest::cleanup()
{
    m_peer.reset();
    m_bus.unregisterObject(Path);
    m_host.reset();
}

void DBusServerVESKTest::passesRequestsOn()
{
    for (const int command : {0x01, 0x84, -1}) {
        auto message = call({command});
        QVERIFY(m_peer->bus().send(message));
    }
    settle(m_peer->bus());
    QCOMPARE(m_handler.commands, (QList<int>{0x01, 0x84, -1}));
}

void DBusServerVESKTest::answersNobodyWhoAsksForAReply()
{
    QDBusPendingCall reply = m_peer->bus().asyncCall(call({0x84}));
    settle(m_peer->bus()); // answered behind it
    QCOMPARE(m_handler.commands, QList<int>{0x84});
    QVERIFY(!reply.isFinished());
}

void DBusServerVESKTest::refusesOtherArguments()
{
    const QList<QVariantList> wrong{{}, {u"1"_s}, {1u}, {1, 2}, {qint64(1)}};
    for (const QVariantList &arguments : wrong) {
        QDBusPendingCall reply = m_peer->bus().asyncCall(call(arguments));
        QTRY_VERIFY(reply.isFinished());
        QVERIFY(reply.isError());
        QCOMPARE(reply.reply().errorName(), u"org.freedesktop.DBus.Error.UnknownMethod"_s);
    }
    QVERIFY(m_handler.commands.isEmpty());
}

void DBusServerVESKTest::broadcastsAPosition()
{
    emit m_server->positionMessage(60.25, -24.5, 12.5, 5.25, 3.75, 200, 10, 36, 2026, 11, 21, 19, 8, 59999);
    QTRY_COMPARE(m_peer->messages.size(), 1);
    const QDBusMessage message = m_peer->messages.first();
    QCOMPARE(message.member(), u"positionMessage"_s);
    QCOMPARE(message.signature(), u"dddddyqqqyyyyq"_s);
    const QVariantList values = message.arguments();
    QCOMPARE(values.at(0).toDouble(), 60.25);
    QCOMPARE(values.at(1).toDouble(), -24.5);
    QCOMPARE(values.at(2).toDouble(), 12.5);
    QCOMPARE(values.at(3).toDouble(), 5.25);
    QCOMPARE(values.at(4).toDouble(), 3.75);
    const QList<uint> whole{200, 10, 36, 2026, 11, 21, 19, 8, 59999};
    for (qsizetype i = 0; i < whole.size(); ++i)
        QCOMPARE(values.at(5 + i).toUInt(), whole.at(i));
}

void DBusServerVESKTest::broadcastsASetting()
{
    emit m_server->settingMessage(0x81, 1);
    QTRY_COMPARE(m_peer->messages.size(), 1);
    QCOMPARE(m_peer->messages.first().member(), u"settingMessage"_s);
    QCOMPARE(m_peer->messages.first().arguments(), (QVariantList{0x81, 1}));
}

void DBusServerVESKTest::ordersItsSignals()
{
    const QMetaObject *meta = m_server->metaObject();
    const int first = meta->methodOffset();
    QCOMPARE(meta->method(first).name(), "positionMessage");
    QCOMPARE(meta->method(first).parameterNames(),
             (QList<QByteArray>{"latitude", "longitude", "altitude", "uncertaintyAlong", "uncertaintyOrtho",
                                "uncertaintyAngle", "uncertaintyAltitude", "groundSpeed", "year", "month",
                                "day", "hours", "minutes", "mseconds"}));
    QCOMPARE(meta->method(first + 1).name(), "settingMessage");
    QCOMPARE(meta->method(first + 1).parameterNames(), (QList<QByteArray>{"settingId", "value"}));
    QCOMPARE(meta->method(first + 2).name(), "request");
    QCOMPARE(meta->method(first + 2).tag(), QByteArray("Q_NOREPLY"));
}

QTEST_GUILESS_MAIN(DBusServerVESKTest)
#include "tst_dbusservervesk.moc"
