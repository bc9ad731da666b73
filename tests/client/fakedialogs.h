#pragma once

#include "support/buspeer.h"

#include <QQueue>

#include <atomic>

// The dialog service. Its questions stay open until the test answers them.
class FakeDialogs
{
public:
    enum class Exit { Answered, Refused, Ignored, Dies };

    FakeDialogs();

    void setExit(Exit exit) { m_exit = exit; }
    // The next call, or an invalid message when none came within 20 s.
    QDBusMessage nextCall();
    // The same as text: "privacyDialog", "locationRequest 1 true Alice 42", "exit".
    QString next();
    // No call is left that was not looked at. What the daemon's side sent before has arrived.
    bool isIdle();
    void answer(const QDBusMessage &question, const QVariantList &arguments) const;
    void fail(const QDBusMessage &question, const QString &text) const;
    bool wasIntrospected() const { return m_peer.wasIntrospected(); }
    void leave() { m_peer.leave(); }

private:
    bool take(const QDBusMessage &call, const QDBusConnection &connection) const;

    std::atomic<Exit> m_exit = Exit::Answered;
    BusPeer m_peer; // last: its thread uses the others
    QQueue<QDBusMessage> m_calls;
};
