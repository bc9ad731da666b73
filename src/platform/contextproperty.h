#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariant>

class ScreenSaver;

// A value that the desktop provides, under the context framework's key. "Screen.Blanked" (bool)
// comes from the desktop's screen saver; other keys have no source.
class ContextProperty : public QObject
{
    Q_OBJECT
public:
    // Unsubscribed: nothing is asked and nothing is watched until subscribe().
    explicit ContextProperty(const QString &key, const QDBusConnection &bus = QDBusConnection::sessionBus());

    void subscribe();
    void unsubscribe();
    // Invalid while unsubscribed or not (yet) known. A value that is there is told as a change.
    QVariant value() const { return m_value; }

signals:
    void valueChanged();

private:
    void refresh();

    const QString m_key;
    QDBusConnection m_bus;
    QList<ScreenSaver *> m_sources; // children; the first that knows is believed
    QVariant m_value;
};
