#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class QDBusMessage;

// Follows one screen saver service, which may come and go at any time. Nothing blocks, nothing is
// introspected, and no service is started.
class ScreenSaver : public QObject
{
    Q_OBJECT
public:
    // The bus name, which is the interface too and makes the object's path: "org.gnome.ScreenSaver"
    // is looked for at "/org/gnome/ScreenSaver".
    ScreenSaver(const QDBusConnection &bus, const QString &name, QObject *parent);

    std::optional<bool> isActive() const { return m_active; } // nothing while not known

signals:
    void changed();

private slots:
    void onActiveChanged(bool active) { setActive(active); }

private:
    void follow(const QString &owner);
    void setActive(std::optional<bool> active);
    void ask(const QDBusMessage &question, const std::function<void(const QDBusMessage &)> &heed);

    QDBusConnection m_bus;
    const QString m_name;
    const QString m_path;
    QString m_owner; // unique name, empty while there is none
    bool m_ownerTold = false;
    std::optional<bool> m_active;
};
