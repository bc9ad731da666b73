#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>

// Ends a connection of the test's own, and returns when the library's thread has let go of it. Until
// then that thread looks at the objects that were registered or connected there: they must not die
// before. Copies of the connection would keep it.
inline void leaveBus(const QString &name)
{
    QDBusConnection::disconnectFromBus(name);
    // All connections have one thread, which does its work in order.
    const auto ping =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/"),
                                       QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping"));
    QDBusConnection::sessionBus().call(ping, QDBus::Block);
}

// The same for whoever keeps the last copy.
inline void leaveBus(QDBusConnection &connection)
{
    const QString name = connection.name();
    connection = QDBusConnection(QString());
    leaveBus(name);
}
