#include "client/fakedialogs.h"

#include <QDBusError>
#include <QTest>

using namespace Qt::StringLiterals;

FakeDialogs::FakeDialogs()
    : m_peer({u"/com/varn/location/ui"_s, u"/org/sarnel/m"_s},
             [this](const QDBusMessage &call, const QDBusConnection &bus) { return take(call, bus); })
{
    m_peer.ownName(u"com.varn.location.ui"_s);
}

bool FakeDialogs::take(const QDBusMessage &call, const QDBusConnection &connection) const
{
    if (call.member() != u"exit")
        return true;
    switch (m_exit) {
    case Exit::Answered:
        return connection.send(call.createReply());
    case Exit::Refused:
        return connection.send(call.createErrorReply(QDBusError::Failed, u"not now"_s));
    case Exit::Ignored:
        return true;
    case Exit::Dies:
        m_peer.leaveNow();
        return true;
    }
    return false;
}

QDBusMessage FakeDialogs::nextCall()
{
    [[maybe_unused]] const bool came = QTest::qWaitFor(
        [this] {
            m_calls += m_peer.takeCalls();
            return !m_calls.isEmpty();
        },
        20000);
    return m_calls.isEmpty() ? QDBusMessage() : m_calls.dequeue();
}

QString FakeDialogs::next()
{
    const QDBusMessage call = nextCall();
    QStringList words{call.member()};
    for (const QVariant &argument : call.arguments())
        words << argument.toString();
    return words.join(u' ');
}

bool FakeDialogs::isIdle()
{
    m_peer.settle();
    m_calls += m_peer.takeCalls();
    return m_calls.isEmpty();
}

void FakeDialogs::answer(const QDBusMessage &question, const QVariantList &arguments) const
{
    m_peer.send(question.createReply(arguments));
}

void FakeDialogs::fail(const QDBusMessage &question, const QString &text) const
{
    m_peer.send(question.createErrorReply(QDBusError::Failed, text));
}
