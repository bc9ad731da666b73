#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMutex>
#include <QStringList>
#include <QThread>

#include <functional>
#include <memory>

// Another program on the session bus: a connection and a thread of its own, so that it can answer
// while the tested side blocks. Every call that reaches one of its objects is kept.
class BusPeer
{
public:
    // Runs in the peer's thread; false: the call is refused as unknown.
    using Answer = std::function<bool(const QDBusMessage &call, const QDBusConnection &connection)>;

    BusPeer(const QStringList &paths, Answer answer);
    ~BusPeer();
    BusPeer(const BusPeer &) = delete;
    BusPeer &operator=(const BusPeer &) = delete;

    QString uniqueName() const { return m_uniqueName; }
    // The calls so far, in order; they are forgotten.
    QList<QDBusMessage> takeCalls();
    qsizetype callCount();
    bool wasIntrospected() const;
    void ownName(const QString &name); // fatal when it is taken
    void send(const QDBusMessage &message) const;
    // Returns when every call that was sent to it before is kept.
    void settle();
    void leave();
    // The same from within an answer.
    void leaveNow() const;

private:
    class Object;

    template <typename Work>
    void run(Work work);

    const QStringList m_paths;
    QString m_connectionName;
    QString m_uniqueName;
    QThread m_thread;
    std::unique_ptr<Object> m_object;
};
