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
const QString AdapterPath = u"/org/bluez/4711/hci0"_s;

QString devicePath(const QString &address)
{
    return AdapterPath + u"/dev_"_s + address.toUpper().replace(u':', u'_');
}

} // namespace

// What both objects know.
struct FakeBluez::State {
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
        return QDBusObjectPath(AdapterPath);
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
        return QDBusObjectPath(devicePath(address));
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

FakeBluez::FakeBluez()
    : m_state(std::make_unique<State>())
    , m_manager(std::make_unique<FakeBluezManager>(*m_state))
    , m_adapter(std::make_unique<FakeBluezAdapter>(*m_state))
{
    m_manager->moveToThread(&m_thread);
    m_adapter->moveToThread(&m_thread);
    m_thread.start();
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, ConnectionName);
    if (!bus.registerObject(u"/"_s, m_manager.get(), QDBusConnection::ExportAllSlots) ||
        !bus.registerObject(AdapterPath, m_adapter.get(), QDBusConnection::ExportAllSlots) ||
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
    auto removed = QDBusMessage::createSignal(AdapterPath, u"org.bluez.Adapter"_s, u"DeviceRemoved"_s);
    QDBusConnection(ConnectionName)
        .send(removed << QVariant::fromValue(QDBusObjectPath(devicePath(address))));
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
