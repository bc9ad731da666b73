#include "support/fakebluez.h"

#include "support/leavebus.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString ConnectionName = u"fake bluez"_s;

} // namespace

// What both objects know.
struct FakeBluez::State {
    explicit State(int processId)
        : adapterPath(u"/org/bluez/%1/hci0"_s.arg(processId))
    {
    }
    QString devicePath(const QString &address) const
    {
        return adapterPath + u"/dev_"_s + address.toUpper().replace(u':', u'_');
    }

    const QString adapterPath;
    QMutex mutex;
    bool hasAdapter = false;
    bool rejectsSessions = false;
    QStringList paired;
    QStringList calls;
};

class FakeBluezManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Manager")
public:
    explicit FakeBluezManager(FakeBluez::State &state)
        : m_state(state)
    {
    }

public slots:
    QDBusObjectPath DefaultAdapter()
    {
        const QMutexLocker lock(&m_state.mutex);
        m_state.calls << u"DefaultAdapter"_s;
        if (!m_state.hasAdapter)
            sendErrorReply(u"org.bluez.Error.NoSuchAdapter"_s, u"No such adapter"_s);
        return QDBusObjectPath(m_state.adapterPath);
    }

private:
    FakeBluez::State &m_state;
};

class FakeBluezAdapter : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Adapter")
public:
    explicit FakeBluezAdapter(FakeBluez::State &state)
        : m_state(state)
    {
    }

public slots:
    QDBusObjectPath FindDevice(const QString &address)
    {
        const QMutexLocker lock(&m_state.mutex);
        m_state.calls << u"FindDevice "_s + address;
        if (!m_state.paired.contains(address, Qt::CaseInsensitive))
            sendErrorReply(u"org.bluez.Error.DoesNotExist"_s, u"Does Not Exist"_s);
        return QDBusObjectPath(m_state.devicePath(address));
    }
    void RequestSession()
    {
        const QMutexLocker lock(&m_state.mutex);
        m_state.calls << u"RequestSession"_s;
        if (m_state.rejectsSessions)
            sendErrorReply(u"org.bluez.Error.Rejected"_s, u"Rejected"_s);
    }

private:
    FakeBluez::State &m_state;
};

FakeBluez::FakeBluez(int processId)
    : m_state(std::make_unique<State>(processId))
    , m_manager(std::make_unique<FakeBluezManager>(*m_state))
    , m_adapter(std::make_unique<FakeBluezAdapter>(*m_state))
{
    m_manager->moveToThread(&m_thread);
    m_adapter->moveToThread(&m_thread);
    m_thread.start();
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, ConnectionName);
    if (!bus.registerObject(u"/"_s, m_manager.get(), QDBusConnection::ExportAllSlots) ||
        !bus.registerObject(m_state->adapterPath, m_adapter.get(), QDBusConnection::ExportAllSlots) ||
        !bus.registerService(u"org.bluez"_s))
        qFatal("The fake bluez cannot appear on the bus");
}

FakeBluez::~FakeBluez()
{
    QDBusConnection(ConnectionName).unregisterService(u"org.bluez"_s);
    QDBusConnection(ConnectionName).unregisterObject(u"/"_s, QDBusConnection::UnregisterTree);
    // A call that is still on its way to an object must not outlive the connection.
    QMetaObject::invokeMethod(
        m_manager.get(), [] {}, Qt::BlockingQueuedConnection);
    leaveBus(ConnectionName);
    m_thread.quit();
    m_thread.wait();
}

void FakeBluez::plugAdapter()
{
    const QMutexLocker lock(&m_state->mutex);
    m_state->hasAdapter = true;
}

void FakeBluez::pair(const QString &address)
{
    const QMutexLocker lock(&m_state->mutex);
    m_state->paired << address;
}

void FakeBluez::remove(const QString &address)
{
    const QMutexLocker lock(&m_state->mutex);
    m_state->paired.removeAll(address);
    auto removed =
        QDBusMessage::createSignal(m_state->adapterPath, u"org.bluez.Adapter"_s, u"DeviceRemoved"_s);
    QDBusConnection(ConnectionName)
        .send(removed << QVariant::fromValue(QDBusObjectPath(m_state->devicePath(address))));
}

void FakeBluez::rejectSessions()
{
    const QMutexLocker lock(&m_state->mutex);
    m_state->rejectsSessions = true;
}

QStringList FakeBluez::takeCalls()
{
    const QMutexLocker lock(&m_state->mutex);
    return std::exchange(m_state->calls, {});
}

#include "fakebluez.moc"
