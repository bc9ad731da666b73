#include "platform/contextprovider.h"

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

using namespace Qt::StringLiterals;

namespace ContextProvider {

// The property's face on the bus.
class PropertyAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.context.Property")
public:
    explicit PropertyAdaptor(Property *property)
        : QDBusAbstractAdaptor(property)
        , m_property(property)
    {
    }

signals:
    // Never emitted, since that would tell everybody: subscribers get it addressed.
    void ValueChanged(const QVariantList &value, qulonglong timestamp);

public slots:
    void Subscribe(const QDBusMessage &call, QVariantList &value, qulonglong &timestamp)
    {
        m_property->enrol(call.service());
        Get(value, timestamp);
    }
    void Get(QVariantList &value, qulonglong &timestamp)
    {
        value = m_property->m_value;
        timestamp = m_property->m_setAtMs;
    }
    void Unsubscribe(const QDBusMessage &call) { m_property->drop(call.service()); }

private:
    Property *m_property;
};

Service::Service(const QDBusConnection &bus, const QString &name)
    : m_bus(bus)
    , m_name(name)
{
}

bool Service::start()
{
    return m_bus.registerService(m_name);
}

Property::Property(const Service &service, const QString &key, const Clock &clock)
    : m_bus(service.bus())
    , m_key(key)
    , m_path(u"/com/varn/context/"_s + QString(key).replace(u'.', u'/'))
    , m_clock(clock)
{
    m_watcher.setConnection(m_bus);
    m_watcher.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, &Property::drop);
    new PropertyAdaptor(this);
    m_bus.registerObject(m_path, this, QDBusConnection::ExportAdaptors);
}

Property::~Property()
{
    m_bus.unregisterObject(m_path);
}

void Property::setValue(const QVariant &value)
{
    m_value = {value};
    m_setAtMs = qulonglong(m_clock.now().toMSecsSinceEpoch());
    for (const QString &subscriber : std::as_const(m_subscribers)) {
        auto signal = QDBusMessage::createTargetedSignal(subscriber, m_path, u"com.varn.context.Property"_s,
                                                         u"ValueChanged"_s);
        signal << QVariant(m_value) << m_setAtMs;
        m_bus.send(signal);
    }
}

void Property::enrol(const QString &subscriber)
{
    if (m_subscribers.contains(subscriber))
        return;
    if (m_subscribers.isEmpty())
        emit firstSubscriberAppeared(m_key);
    m_subscribers.append(subscriber);
    m_watcher.addWatchedService(subscriber);
    dropIfGone(subscriber);
}

void Property::drop(const QString &subscriber)
{
    if (!m_subscribers.removeOne(subscriber))
        return;
    m_watcher.removeWatchedService(subscriber);
    if (m_subscribers.isEmpty())
        emit lastSubscriberDisappeared(m_key);
}

// Who left between its call and the watch on its name would stay for ever.
void Property::dropIfGone(const QString &subscriber)
{
    auto question = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                                   u"org.freedesktop.DBus"_s, u"NameHasOwner"_s);
    question << subscriber;
    auto *answer = new QDBusPendingCallWatcher(m_bus.asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, subscriber, answer] {
        answer->deleteLater();
        const QDBusPendingReply<bool> present = *answer;
        if (present.isValid() && !present.value())
            drop(subscriber);
    });
}

} // namespace ContextProvider

#include "contextprovider.moc"
