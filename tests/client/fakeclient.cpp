#include "client/fakeclient.h"

#include <QDBusError>

using namespace Qt::StringLiterals;

FakeClient::FakeClient(const QString &name)
    : m_peer({path()},
             [this](const QDBusMessage &call, const QDBusConnection &bus) { return answer(call, bus); })
    , m_service(m_peer.uniqueName())
{
    if (!name.isEmpty())
        ownName(name);
}

QString FakeClient::path() const
{
    return QString::fromLatin1(ObjectPath);
}

bool FakeClient::answer(const QDBusMessage &call, const QDBusConnection &connection) const
{
    switch (m_answer) {
    case Answer::Empty:
        return !call.isReplyRequired() || connection.send(call.createReply());
    case Answer::Error:
        return connection.send(call.createErrorReply(QDBusError::Failed, u"The map is folded."_s));
    case Answer::Number:
        return connection.send(call.createReply(42));
    case Answer::None:
        return true;
    case Answer::Leave:
        m_peer.leaveNow();
        return true;
    }
    return false;
}

void FakeClient::ownName(const QString &name)
{
    m_peer.ownName(name);
    m_service = name;
}
