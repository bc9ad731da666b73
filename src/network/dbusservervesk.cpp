#include "network/dbusservervesk.h"

#include "network/dbusserverveskif.h"

#include <QDBusMessage>

DBusServerVESK::DBusServerVESK(QObject *host, DBusServerVESKIF *handler_)
    : QDBusAbstractAdaptor(host)
    , handler(handler_)
{
}

void DBusServerVESK::request(int command, const QDBusMessage &call)
{
    call.setDelayedReply(true); // for good: Qt would answer whoever asked for a reply
    handler->VESKRequest(command);
}
