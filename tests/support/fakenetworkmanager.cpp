#include "support/fakenetworkmanager.h"

#include "support/leavebus.h"

#include <QDBusConnection>
#include <QDBusMessage>

using namespace Qt::StringLiterals;

namespace {

const QString ConnectionName = u"fake network manager"_s;
const QString Service = u"org.freedesktop.NetworkManager"_s;

} // namespace

FakeNetworkManager::FakeNetworkManager(const QString &primaryConnectionType, quint32 metered)
    : m_properties{{u"PrimaryConnectionType"_s, primaryConnectionType}, {u"Metered"_s, metered}}
{
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, ConnectionName);
    if (!bus.registerVirtualObject(u"/org/freedesktop/NetworkManager"_s, this) ||
        !bus.registerService(Service))
        qFatal("The fake NetworkManager cannot appear on the bus");
}

FakeNetworkManager::~FakeNetworkManager()
{
    QDBusConnection(ConnectionName).unregisterObject(u"/org/freedesktop/NetworkManager"_s);
    leaveBus(ConnectionName);
}

bool FakeNetworkManager::handleMessage(const QDBusMessage &message, const QDBusConnection &connection)
{
    ++m_calls;
    message.setDelayedReply(true);
    if (m_silent)
        return true;
    const bool known = message.member() == "GetAll"_L1 && message.arguments() == QVariantList{Service};
    connection.send(known
                        ? message.createReply(m_properties)
                        : message.createErrorReply(u"org.freedesktop.DBus.Error.UnknownMethod"_s, QString()));
    return true;
}

QString FakeNetworkManager::introspect(const QString &) const
{
    return {};
}
