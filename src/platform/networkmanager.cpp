#include "platform/networkmanager.h"

#include "platform/veskrules.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <limits>

using namespace Qt::StringLiterals;

void networkmanager::askForPacketData(const QDBusConnection &bus, QObject *context,
                                      const std::function<void(bool)> &answer)
{
    constexpr int NoTimeout = std::numeric_limits<int>::max();
    const QString service = u"org.freedesktop.NetworkManager"_s;
    auto call = QDBusMessage::createMethodCall(service, u"/org/freedesktop/NetworkManager"_s,
                                               u"org.freedesktop.DBus.Properties"_s, u"GetAll"_s);
    call.setArguments({service});
    call.setAutoStartService(false);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, NoTimeout), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [answer](QDBusPendingCallWatcher *finished) {
                         finished->deleteLater();
                         const QDBusPendingReply<QVariantMap> reply = *finished;
                         const QVariantMap manager = reply.isError() ? QVariantMap() : reply.value();
                         answer(vesk::usesPacketData(manager.value(u"PrimaryConnectionType"_s).toString(),
                                                     manager.value(u"Metered"_s).toUInt()));
                     });
}
