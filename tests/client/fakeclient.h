#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QMutex>
#include <QThread>

#include <memory>

// An application on a connection and a thread of its own, so that it can answer while the daemon
// side blocks. Every call that reaches its object is kept and answered as it was told to.
class FakeClient
{
public:
    enum class Answer { Empty, Error, Number, None, Leave };

    static constexpr auto ObjectPath = "/com/varn/maps";

    // With an empty name the unique name is its only one.
    explicit FakeClient(const QString &name = {});
    ~FakeClient();
    FakeClient(const FakeClient &) = delete;
    FakeClient &operator=(const FakeClient &) = delete;

    QString service() const { return m_service; }
    QString path() const;
    void setAnswer(Answer answer);
    // The calls so far, in order; they are forgotten.
    QList<QDBusMessage> takeCalls();
    qsizetype callCount();
    bool wasIntrospected();
    void ownName(const QString &name);
    void leave();

private:
    class Object;

    template <typename Work>
    void run(Work work);

    QString m_connectionName;
    QString m_service;
    QThread m_thread;
    std::unique_ptr<Object> m_object;
};
