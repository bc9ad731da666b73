#include "support/buspeer.h"

#include "support/leavebus.h"

#include <QCoreApplication>
#include <QDBusVirtualObject>
#include <QMutexLocker>

#include <atomic>
#include <utility>

using namespace Qt::StringLiterals;

class BusPeer::Object : public QDBusVirtualObject
{
public:
    explicit Object(Answer how)
        : answer(std::move(how))
    {
    }

    QString introspect(const QString &) const override
    {
        introspected = true;
        return {};
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        {
            const QMutexLocker lock(&mutex);
            calls.append(message);
        }
        return answer(message, connection);
    }

    const Answer answer;
    QMutex mutex;
    QList<QDBusMessage> calls;
    mutable std::atomic<bool> introspected = false;
};

BusPeer::BusPeer(const QStringList &paths, Answer answer)
    : m_paths(paths)
    , m_object(std::make_unique<Object>(std::move(answer)))
{
    static int count = 0;
    m_connectionName = u"bus-peer-%1"_s.arg(++count);
    m_object->moveToThread(&m_thread);
    m_thread.start();
    run([this] {
        auto connection = QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_connectionName);
        if (!connection.isConnected())
            qFatal("no private bus");
        for (const QString &path : m_paths)
            connection.registerVirtualObject(path, m_object.get());
        m_uniqueName = connection.baseService();
    });
}

BusPeer::~BusPeer()
{
    leave();
    m_thread.quit();
    m_thread.wait();
}

template <typename Work>
void BusPeer::run(Work work)
{
    QMetaObject::invokeMethod(m_object.get(), work, Qt::BlockingQueuedConnection);
}

QList<QDBusMessage> BusPeer::takeCalls()
{
    const QMutexLocker lock(&m_object->mutex);
    return std::exchange(m_object->calls, {});
}

qsizetype BusPeer::callCount()
{
    const QMutexLocker lock(&m_object->mutex);
    return m_object->calls.size();
}

bool BusPeer::wasIntrospected() const
{
    return m_object->introspected;
}

void BusPeer::ownName(const QString &name)
{
    run([this, name] {
        if (!QDBusConnection(m_connectionName).registerService(name))
            qFatal("the name is taken");
    });
}

void BusPeer::send(const QDBusMessage &message) const
{
    QDBusConnection(m_connectionName).send(message);
}

void BusPeer::settle()
{
    // The library answers on its own thread, behind the calls; they go on to the peer's thread.
    const auto ping =
        QDBusMessage::createMethodCall(m_uniqueName, u"/"_s, u"org.freedesktop.DBus.Peer"_s, u"Ping"_s);
    QDBusConnection::sessionBus().call(ping, QDBus::Block);
    run([] {});
}

void BusPeer::leave()
{
    run([this] { leaveNow(); });
}

void BusPeer::leaveNow() const
{
    // A call that is still on its way to the object must not outlive the connection: dropping it would
    // send an error there.
    for (const QString &path : m_paths)
        QDBusConnection(m_connectionName).unregisterObject(path);
    QCoreApplication::sendPostedEvents(m_object.get());
    leaveBus(m_connectionName);
}
