#include "client/fakeclient.h"

#include <QCoreApplication>
#include <QDBusError>

#include <atomic>

using namespace Qt::StringLiterals;

class FakeClient::Object : public QDBusVirtualObject
{
public:
    explicit Object(QString connectionName)
        : m_connectionName(std::move(connectionName))
    {
    }

    QString introspect(const QString &) const override
    {
        introspected = true;
        return {};
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        Answer how;
        {
            const QMutexLocker lock(&mutex);
            calls.append(message);
            how = answer;
        }
        switch (how) {
        case Answer::Empty:
            return !message.isReplyRequired() || connection.send(message.createReply());
        case Answer::Error:
            return connection.send(message.createErrorReply(QDBusError::Failed, u"The map is folded."_s));
        case Answer::Number:
            return connection.send(message.createReply(42));
        case Answer::None:
            return true;
        case Answer::Leave:
            QDBusConnection::disconnectFromBus(m_connectionName);
            return true;
        }
        return false;
    }

    QMutex mutex;
    QList<QDBusMessage> calls;
    Answer answer = Answer::Empty;
    mutable std::atomic<bool> introspected = false;

private:
    const QString m_connectionName;
};

FakeClient::FakeClient(const QString &name)
{
    static int count = 0;
    m_connectionName = u"fake-client-%1"_s.arg(++count);
    m_object = std::make_unique<Object>(m_connectionName);
    m_object->moveToThread(&m_thread);
    m_thread.start();
    run([this] {
        auto connection = QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_connectionName);
        if (!connection.isConnected())
            qFatal("no private bus");
        connection.registerVirtualObject(path(), m_object.get());
        m_service = connection.baseService();
    });
    if (!name.isEmpty())
        ownName(name);
}

FakeClient::~FakeClient()
{
    leave();
    m_thread.quit();
    m_thread.wait();
}

QString FakeClient::path() const
{
    return QString::fromLatin1(ObjectPath);
}

template <typename Work>
void FakeClient::run(Work work)
{
    QMetaObject::invokeMethod(m_object.get(), work, Qt::BlockingQueuedConnection);
}

void FakeClient::setAnswer(Answer answer)
{
    const QMutexLocker lock(&m_object->mutex);
    m_object->answer = answer;
}

QList<QDBusMessage> FakeClient::takeCalls()
{
    const QMutexLocker lock(&m_object->mutex);
    return std::exchange(m_object->calls, {});
}

qsizetype FakeClient::callCount()
{
    const QMutexLocker lock(&m_object->mutex);
    return m_object->calls.size();
}

bool FakeClient::wasIntrospected()
{
    return m_object->introspected;
}

void FakeClient::ownName(const QString &name)
{
    run([this, name] {
        if (!QDBusConnection(m_connectionName).registerService(name))
            qFatal("the name is taken");
    });
    m_service = name;
}

void FakeClient::leave()
{
    run([this] { QDBusConnection::disconnectFromBus(m_connectionName); });
}
