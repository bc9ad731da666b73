#pragma once

#include "platform/clock.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>

// Publishing to whoever is interested, and to nobody else. Each property is an object of the
// interface "com.varn.context.Property": subscribers get the value and hear of every later one.
namespace ContextProvider {

class PropertyAdaptor;

// The bus name under which properties are found. Make the properties first, then start().
class Service
{
public:
    Service(const QDBusConnection &bus, const QString &name);

    bool start(); // false when the bus refuses the name
    QDBusConnection bus() const { return m_bus; }

private:
    QDBusConnection m_bus;
    QString m_name;
};

// One published value, unset at first. A subscriber is a connection to the bus, counted once
// however often it subscribes, and gone when it leaves the bus.
class Property : public QObject
{
    Q_OBJECT
public:
    // The key "Location.Coordinates" is the object "/com/varn/context/Location/Coordinates".
    Property(const Service &service, const QString &key, const Clock &clock = Clock::system());
    ~Property() override;

    // A string, or a list of doubles (QList<double>); each subscriber is told, also of the same value.
    void setValue(const QVariant &value);

signals:
    // Inside the subscriber's own call: what is set now is what it gets for an answer.
    void firstSubscriberAppeared(const QString &key);
    void lastSubscriberDisappeared(const QString &key);

private:
    friend class PropertyAdaptor;

    void enrol(const QString &subscriber);
    void drop(const QString &subscriber);
    void dropIfGone(const QString &subscriber);

    QDBusConnection m_bus;
    const QString m_key;
    const QString m_path;
    const Clock &m_clock;
    QVariantList m_value;      // empty while unset, else one
    qulonglong m_setAtMs = 0;  // since 1970
    QStringList m_subscribers; // unique names
    QDBusServiceWatcher m_watcher;
};

} // namespace ContextProvider
