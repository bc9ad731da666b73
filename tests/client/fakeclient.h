#pragma once

#include "support/buspeer.h"

#include <atomic>

// An application on the bus. Every call that reaches its object is kept and answered as it was told to.
class FakeClient
{
public:
    enum class Answer { Empty, Error, Number, None, Leave };

    static constexpr auto ObjectPath = "/com/varn/maps";

    // With an empty name the unique name is its only one.
    explicit FakeClient(const QString &name = {});

    QString service() const { return m_service; }
    QString path() const;
    void setAnswer(Answer answer) { m_answer = answer; }
    // The calls so far, in order; they are forgotten.
    QList<QDBusMessage> takeCalls() { return m_peer.takeCalls(); }
    qsizetype callCount() { return m_peer.callCount(); }
    // Returns when every call that was sent to it before is kept.
    void settle() { m_peer.settle(); }
    bool wasIntrospected() const { return m_peer.wasIntrospected(); }
    void ownName(const QString &name);
    void leave() { m_peer.leave(); }

private:
    bool answer(const QDBusMessage &call, const QDBusConnection &connection) const;

    std::atomic<Answer> m_answer = Answer::Empty;
    BusPeer m_peer; // last: its thread uses the others
    QString m_service;
};
