#include "core/singleinstance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDebug>

using namespace Qt::StringLiterals;

namespace {

template <typename T>
QDBusReply<T> askBus(const QDBusConnection &bus, const QString &method, const QString &name)
{
    auto call = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                               u"org.freedesktop.DBus"_s, method);
    call << name;
    return bus.call(call);
}

} // namespace

int checkAlreadyRunning(const QDBusConnection &bus)
{
    qDebug("Checking if already running.");
    if (!bus.isConnected())
        return 0;

    const QString service = QString::fromLatin1(ClientServiceName);
    const auto owned = askBus<bool>(bus, u"NameHasOwner"_s, service);
    if (!owned.isValid() || !owned.value())
        return 0;
    qCritical("lodestard is already running.");

    const auto owner = askBus<QString>(bus, u"GetNameOwner"_s, service);
    if (!owner.isValid())
        return 0;
    const auto pid = askBus<uint>(bus, u"GetConnectionUnixProcessID"_s, owner.value());
    return pid.isValid() ? int(pid.value()) : 0;
}
