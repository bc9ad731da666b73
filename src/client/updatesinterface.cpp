#include "client/updatesinterface.h"

#include "client/busnames.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

UpdatesInterface::UpdatesInterface(const QString &service, const QString &path, const QString &interfaceName,
                                   QObject *parent)
    : QDBusAbstractInterface(service, path, interfaceName.toLatin1().constData(),
                             QDBusConnection::sessionBus(), parent)
    , m_callable(isBusName(service) && isObjectPath(path))
    , m_unique(service.startsWith(u':'))
{
    // Qt keeps the bus's refusal to itself. Asked plainly, it becomes the connection's last error.
    if (!isReachable())
        connection().interface()->serviceOwner(service);
}

void UpdatesInterface::send(const QString &method, const QVariantList &arguments)
{
    if (!m_callable)
        return;
    // Here Qt takes the names as checked, which they are, and spares itself a tenth of the work. It
    // would start a service that has just ended, but a unique name stands for nothing to start.
    if (m_unique)
        callWithArgumentList(QDBus::NoBlock, method, arguments);
    else
        connection().send(methodCall(method, arguments));
}

bool UpdatesInterface::callAndWait(const QString &method, const QVariantList &arguments)
{
    return m_callable && connection().call(methodCall(method, arguments), QDBus::Block).type() !=
                             QDBusMessage::ErrorMessage;
}

QDBusMessage UpdatesInterface::methodCall(const QString &method, const QVariantList &arguments) const
{
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path(), interface(), method);
    // A client that has just ended must not be started again by its own last fix.
    call.setAutoStartService(false);
    call.setArguments(arguments);
    return call;
}
