#include "core/singleinstance.h"
#include "support/leavebus.h"
#include "support/privatebus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServer>
#include <QDBusVirtualObject>
#include <QHash>
#include <QTest>
#include <QThread>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr uint OtherPid = 4711;

// Answers as a bus does, but refuses one of its questions: a real one refuses only in the moment in
// which the other daemon ends.
class RefusingBus
{
public:
    explicit RefusingBus(const QString &refused)
        : m_answers(refused)
    {
        m_answers.moveToThread(&m_thread); // the asking side blocks
        m_thread.start();
        QMetaObject::invokeMethod(
            &m_answers, [this] { m_answers.listen(); }, Qt::BlockingQueuedConnection);
    }
    ~RefusingBus()
    {
        QMetaObject::invokeMethod(
            &m_answers, [this] { m_answers.close(); }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }
    Q_DISABLE_COPY_MOVE(RefusingBus)

    QString address() const { return m_answers.address; }

private:
    class Answers : public QDBusVirtualObject
    {
    public:
        explicit Answers(QString refuses)
            : refused(std::move(refuses))
        {
        }
        void listen()
        {
            m_server = std::make_unique<QDBusServer>();
            QObject::connect(m_server.get(), &QDBusServer::newConnection, this,
                             [this](QDBusConnection connection) {
                                 connection.registerVirtualObject(u"/org/freedesktop/DBus"_s, this);
                             });
            address = m_server->address();
        }
        void close() { m_server.reset(); }
        QString introspect(const QString &) const override { return {}; }
        bool handleMessage(const QDBusMessage &call, const QDBusConnection &connection) override
        {
            if (call.member() == refused)
                return connection.send(call.createErrorReply(QDBusError::Failed, u"refused"_s));
            const QHash<QString, QVariant> answers{{u"NameHasOwner"_s, true},
                                                   {u"GetNameOwner"_s, u":1.5"_s},
                                                   {u"GetConnectionUnixProcessID"_s, OtherPid}};
            return connection.send(call.createReply(answers.value(call.member())));
        }

        const QString refused;
        QString address;

    private:
        std::unique_ptr<QDBusServer> m_server;
    };

    QThread m_thread;
    Answers m_answers;
};

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }
    void withoutABusNothingRuns();
    void aFreeNameMeansThatNothingRuns();
    void anotherOwnerIsToldByItsProcessId();
    void aBusThatDoesNotTellIsNoReasonToEnd_data();
    void aBusThatDoesNotTellIsNoReasonToEnd();
};

void TestSingleInstance::withoutABusNothingRuns()
{
    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    QCOMPARE(checkAlreadyRunning(QDBusConnection(u"no such connection"_s)), 0);
}

void TestSingleInstance::aFreeNameMeansThatNothingRuns()
{
    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    QCOMPARE(checkAlreadyRunning(QDBusConnection::sessionBus()), 0);
}

void TestSingleInstance::anotherOwnerIsToldByItsProcessId()
{
    const QString name = u"another daemon"_s;
    auto other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    QVERIFY(other.registerService(u"com.varn.lodestard.client"_s));

    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    QTest::ignoreMessage(QtCriticalMsg, "lodestard is already running.");
    QCOMPARE(checkAlreadyRunning(QDBusConnection::sessionBus()), int(QCoreApplication::applicationPid()));

    QVERIFY(other.unregisterService(u"com.varn.lodestard.client"_s));
    leaveBus(name);
}

void TestSingleInstance::aBusThatDoesNotTellIsNoReasonToEnd_data()
{
    QTest::addColumn<QString>("refused");
    QTest::addColumn<bool>("ownerSeen");
    QTest::addColumn<int>("expected");

    QTest::newRow("it tells all") << QString() << true << int(OtherPid);
    QTest::newRow("whether there is an owner") << u"NameHasOwner"_s << false << 0;
    QTest::newRow("who the owner is") << u"GetNameOwner"_s << true << 0;
    QTest::newRow("the owner's process") << u"GetConnectionUnixProcessID"_s << true << 0;
}

void TestSingleInstance::aBusThatDoesNotTellIsNoReasonToEnd()
{
    QFETCH(QString, refused);
    QFETCH(bool, ownerSeen);
    QFETCH(int, expected);
    const RefusingBus peer(refused);
    const QString name = QString::fromLatin1(QTest::currentDataTag()); // each its own connection
    const auto bus = QDBusConnection::connectToPeer(peer.address(), name);
    QVERIFY(bus.isConnected());

    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    if (ownerSeen)
        QTest::ignoreMessage(QtCriticalMsg, "lodestard is already running.");
    QCOMPARE(checkAlreadyRunning(bus), expected);
    QDBusConnection::disconnectFromPeer(name);
}

PRIVATE_BUS_TEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
