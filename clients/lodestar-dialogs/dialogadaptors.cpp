#include "dialogadaptors.h"

#include "dialogserviceif.h"

DialogAdaptor::DialogAdaptor(QObject *host, DialogServiceIF *handler)
    : QDBusAbstractAdaptor(host)
    , m_handler(handler)
{
}

bool DialogAdaptor::privacyDialog(const QDBusMessage &call)
{
    call.setDelayedReply(true);
    m_handler->askPrivacy(call);
    return false;
}

int DialogAdaptor::locationRequest(int type, bool defaultAccept, const QString &name, const QString &id,
                                   const QDBusMessage &call)
{
    call.setDelayedReply(true);
    m_handler->askLocation(type, defaultAccept, name, id, call);
    return 0;
}

ApplicationAdaptor::ApplicationAdaptor(QObject *host, DialogServiceIF *handler)
    : QDBusAbstractAdaptor(host)
    , m_handler(handler)
{
}

void ApplicationAdaptor::exit(const QDBusMessage &call)
{
    call.setDelayedReply(true);
    m_handler->leave(call);
}
