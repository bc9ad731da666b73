#include "platform/bluez.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>

using namespace Qt::StringLiterals;

namespace {

// A plain message: a proxy would introspect bluez first.
std::optional<QDBusObjectPath> askForPath(const QDBusConnection &bus, const QString &path,
                                          const QString &interface, const QString &method,
                                          const QVariantList &arguments = {})
{
    auto call = QDBusMessage::createMethodCall(QLatin1StringView(bluez::Service), path, interface, method);
    call.setArguments(arguments);
    const QDBusReply<QDBusObjectPath> reply = bus.call(call);
    return reply.isValid() ? std::optional(reply.value()) : std::nullopt;
}

} // namespace

std::optional<QDBusObjectPath> bluez::defaultAdapter(const QDBusConnection &bus)
{
    return askForPath(bus, u"/"_s, u"org.bluez.Manager"_s, u"DefaultAdapter"_s);
}

std::optional<QDBusObjectPath> bluez::findDevice(const QDBusConnection &bus, const QDBusObjectPath &adapter,
                                                 const QString &address)
{
    return askForPath(bus, adapter.path(), u"org.bluez.Adapter"_s, u"FindDevice"_s, {address});
}
