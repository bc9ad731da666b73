#include "support/fakegypsy.h"

#include "support/leavebus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QHash>
#include <QMutex>

#include <atomic>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString ConnectionName = u"fake gypsy"_s;
const QString Server = u"/org/freedesktop/Gypsy"_s;
const QString Interfaces = u"org.freedesktop.Gypsy."_s;
// What Gypsy makes of an error of its own.
const QString OwnError = u"org.freedesktop.DBus.GLib.UnmappedError.GypsyServerErrorQuark.Code1"_s;

} // namespace

class FakeGypsy::Object : public QDBusVirtualObject
{
public:
    enum class Trouble { None, Refuse, Misanswer, Ignore };

    QString introspect(const QString &) const override
    {
        introspected = true;
        return {};
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const QMutexLocker lock(&mutex);
        const QString method = message.member();
        const bool toServer = message.path() == Server;
        calls << method + u' ' + (toServer ? argument(message) : message.path());
        switch (trouble.value(method)) {
        case Trouble::None:
            return connection.send(toServer ? serve(message) : drive(message));
        case Trouble::Refuse:
            return connection.send(message.createErrorReply(OwnError, texts.value(method)));
        case Trouble::Misanswer:
            return connection.send(message.createReply(u"no such type"_s));
        case Trouble::Ignore:
            return true;
        }
        return false;
    }

    QMutex mutex;
    QStringList calls;
    QStringList devices;
    QHash<QString, Trouble> trouble;
    QHash<QString, QString> texts;
    int fixStatus = 0;
    mutable std::atomic<bool> introspected = false;

private:
    static QString argument(const QDBusMessage &message)
    {
        const QVariant first = message.arguments().value(0);
        return first.canConvert<QDBusObjectPath>() ? first.value<QDBusObjectPath>().path() : first.toString();
    }

    static QDBusMessage unknown(const QDBusMessage &message)
    {
        return message.createErrorReply(QDBusError::UnknownMethod,
                                        u"Method \"%1\" with signature \"%2\" "
                                        "on interface \"%3\" doesn't exist\n"_s.arg(
                                            message.member(), message.signature(), message.interface()));
    }

    QDBusMessage serve(const QDBusMessage &message)
    {
        if (message.interface() != Interfaces + u"Server"_s)
            return unknown(message);
        if (message.member() == "Create"_L1 && message.signature() == "s"_L1) {
            devices << pathOf(argument(message));
            return message.createReply(QVariant::fromValue(QDBusObjectPath(devices.last())));
        }
        if (message.member() == "Shutdown"_L1 && message.signature() == "o"_L1 &&
            devices.removeAll(argument(message)))
            return message.createReply();
        return unknown(message);
    }

    QDBusMessage drive(const QDBusMessage &message) const
    {
        if (!devices.contains(message.path()) || message.interface() != Interfaces + u"Device"_s)
            return unknown(message);
        if (message.member() == "Start"_L1)
            return message.createReply();
        return message.member() == "GetFixStatus"_L1 ? message.createReply(fixStatus) : unknown(message);
    }
};

template <typename Work>
void FakeGypsy::run(Work work)
{
    QMetaObject::invokeMethod(m_object.get(), work, Qt::BlockingQueuedConnection);
}

FakeGypsy::FakeGypsy()
    : m_object(std::make_unique<Object>())
{
    SatelliteData::registerWithDBus();
    m_object->moveToThread(&m_thread);
    m_thread.start();
    run([this] {
        auto bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, ConnectionName);
        if (!bus.registerVirtualObject(Server, m_object.get(), QDBusConnection::SubPath) ||
            !bus.registerService(u"org.freedesktop.Gypsy"_s))
            qFatal("The fake Gypsy cannot appear on the bus");
    });
}

FakeGypsy::~FakeGypsy()
{
    run([this] {
        QDBusConnection(ConnectionName).unregisterService(u"org.freedesktop.Gypsy"_s);
        QDBusConnection(ConnectionName).unregisterObject(Server);
        QCoreApplication::sendPostedEvents(m_object.get());
        leaveBus(ConnectionName);
    });
    m_thread.quit();
    m_thread.wait();
}

QString FakeGypsy::pathOf(const QString &address)
{
    // Not the constant above: tests ask for paths while their own constants are made.
    return u"/org/freedesktop/Gypsy/"_s + QString(address).replace(u':', u'_').section(u'/', -1);
}

QStringList FakeGypsy::takeCalls()
{
    const QMutexLocker lock(&m_object->mutex);
    return std::exchange(m_object->calls, {});
}

bool FakeGypsy::wasIntrospected() const
{
    return m_object->introspected;
}

void FakeGypsy::setFixStatus(int status)
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->fixStatus = status;
}

void FakeGypsy::refuse(const QString &method, const QString &text)
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->trouble.insert(method, Object::Trouble::Refuse);
    m_object->texts.insert(method, text);
}

void FakeGypsy::misanswer(const QString &method)
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->trouble.insert(method, Object::Trouble::Misanswer);
}

void FakeGypsy::ignore(const QString &method)
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->trouble.insert(method, Object::Trouble::Ignore);
}

void FakeGypsy::obey(const QString &method)
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->trouble.remove(method);
}

void FakeGypsy::forgetDevices()
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->devices.clear();
}

void FakeGypsy::emitSignal(const QString &path, const QString &interface, const QString &name,
                           const QVariantList &arguments)
{
    auto signal = QDBusMessage::createSignal(path, Interfaces + interface, name);
    signal.setArguments(arguments);
    if (!QDBusConnection(ConnectionName).send(signal))
        qFatal("The fake Gypsy cannot send");
}

void FakeGypsy::fixStatus(const QString &path, int status)
{
    emitSignal(path, u"Device"_s, u"FixStatusChanged"_s, {status});
}

void FakeGypsy::connectionStatus(const QString &path, bool connected)
{
    emitSignal(path, u"Device"_s, u"ConnectionStatusChanged"_s, {connected});
}

void FakeGypsy::position(const QString &path, int fields, int timestamp, double latitude, double longitude,
                         double altitude)
{
    emitSignal(path, u"Position"_s, u"PositionChanged"_s, {fields, timestamp, latitude, longitude, altitude});
}

void FakeGypsy::course(const QString &path, int fields, int timestamp, double speed, double direction,
                       double climb)
{
    emitSignal(path, u"Course"_s, u"CourseChanged"_s, {fields, timestamp, speed, direction, climb});
}

void FakeGypsy::accuracy(const QString &path, int fields, double pdop, double hdop, double vdop)
{
    emitSignal(path, u"Accuracy"_s, u"AccuracyChanged"_s, {fields, pdop, hdop, vdop});
}

void FakeGypsy::satellites(const QString &path, const QList<SatelliteData> &list)
{
    emitSignal(path, u"Satellite"_s, u"SatellitesChanged"_s, {QVariant::fromValue(list)});
}
