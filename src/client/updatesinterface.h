#pragma once

#include <QDBusAbstractInterface>
#include <QDBusMessage>

// A client's own object, as the daemon calls it. Its peer is never introspected: it may be hung,
// inside a call to us, or have sent names that are none.
class UpdatesInterface : public QDBusAbstractInterface
{
    Q_OBJECT
public:
    UpdatesInterface(const QString &service, const QString &path, const QString &interfaceName,
                     QObject *parent);

    // Whether both names are well-formed and the service had an owner when the bus (not the peer) was
    // asked. If not, the session bus's last error tells why, where the bus had a say.
    bool isReachable() const { return m_callable && isValid(); }

    // No reply is asked for, and nothing is said about a failure.
    void send(const QString &method, const QVariantList &arguments);
    // Blocks until the reply, an error or the bus library's default time-out. False after an error;
    // what a reply holds does not matter.
    bool callAndWait(const QString &method, const QVariantList &arguments);

private:
    QDBusMessage methodCall(const QString &method, const QVariantList &arguments) const;

    bool m_callable; // both names are well-formed
    bool m_unique;   // the service is a connection itself, not a name that may be started
};
